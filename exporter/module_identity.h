// What the module tells the host about itself at start-up.
#pragma once

#include <cstdint>

namespace QVN {

// These two codes are written with the first character in the most significant byte, as the host's own
// file type codes are (unlike the FourCCs of AVI chunks and codecs).
inline constexpr std::uint32_t kFileTypeAVIV = 0x41564956; // 'AVIV'
inline constexpr std::uint32_t kClassIdQVNW = 0x51564E57;  // 'QVNW'
inline constexpr char16_t kFileTypeName[] = u"Quorvane AVI File";
inline constexpr char16_t kDefaultExtension[] = u"avi";
inline constexpr std::int32_t kExporterInterfaceVersion = 3;

} // namespace QVN

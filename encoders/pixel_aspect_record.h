// The host's pixel-aspect record: 40 bytes appended after a closed AVI file, a RIFF "AVIX" list the AVI
// readers skip, whose "PARf" payload the host reads back (big-endian) when it imports the file.
#pragma once

#include <cstdint>
#include <string>

namespace QVN {

// Appends the record to the file at path (UTF-16). 0 on success, 99 when the file cannot be opened or
// written (the encoders' status codes).
std::uint32_t AppendPixelAspectRecord(const std::wstring& path, std::int32_t numerator,
                                      std::int32_t denominator);

} // namespace QVN

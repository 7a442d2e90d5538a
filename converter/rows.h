// Row addressing shared by every kernel: bottom-up source, top-down destination.
#pragma once

#include <cstddef>
#include <cstdint>

namespace QVN::Converter::Video::detail {

// Output row n comes from the source row n rows below the last one in memory.
inline const std::uint8_t* SourceRow(const std::uint8_t* src, std::uint32_t srcRowBytes, std::int32_t height,
                                     std::int32_t n) {
    return src + static_cast<std::ptrdiff_t>(height - 1 - n) * static_cast<std::ptrdiff_t>(srcRowBytes);
}

inline std::uint8_t* DestRow(std::uint8_t* dst, std::uint32_t dstRowBytes, std::int32_t n) {
    return dst + static_cast<std::ptrdiff_t>(n) * static_cast<std::ptrdiff_t>(dstRowBytes);
}

inline constexpr std::ptrdiff_t kPixelBytes[3] = {4, 8, 16}; // by Depth: 8u, 16u, 32f

} // namespace QVN::Converter::Video::detail

// The r210 word: big-endian 2 zero bits, R, G, B (10 bits each), built as a little-endian value.
#pragma once

#include <cstdint>

namespace QVN::Converter::Video::detail {

inline std::uint32_t R210Word(std::uint32_t r, std::uint32_t g, std::uint32_t b) {
    return (r >> 4) | ((r & 15) << 12) | ((g >> 6) << 8) | ((g & 63) << 18) | ((b >> 8) << 16) |
           ((b & 255) << 24);
}

} // namespace QVN::Converter::Video::detail

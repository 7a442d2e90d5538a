// Four-character codes: the first character sits in the lowest byte, as AVI files store them.
#pragma once

#include <cstdint>

namespace QVN {

constexpr std::uint32_t MakeFourCC(char a, char b, char c, char d) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(a)) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b)) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(d)) << 24;
}

constexpr std::uint32_t MakeFourCC(const char (&text)[5]) {
    return MakeFourCC(text[0], text[1], text[2], text[3]);
}

} // namespace QVN

#include "host/frame_stamp.h"

#include <algorithm>
#include <string>

namespace qvnhost {
namespace {

constexpr Bgra8 kBlack = {0, 0, 0, 255};
constexpr Bgra8 kWhite = {255, 255, 255, 255};

std::uint32_t CheckNibble(std::uint32_t value) {
    std::uint32_t sum = 5;
    for (int shift = 0; shift < kStampBits; shift += 4)
        sum += (value >> shift) & 0xF;
    return sum & 0xF;
}

// 5x7 digits, one byte per row, the leftmost column in bit 4.
constexpr std::uint8_t kDigits[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
};

void DrawDigits(PictureWriter& picture, std::int64_t number, std::int32_t x, std::int32_t y) {
    const std::string text = std::to_string(number);
    const std::int32_t scale = std::max(1, picture.Height() / 72);
    const auto count = static_cast<std::int32_t>(text.size());
    // A black plate behind the digits, one digit cell (6 columns) per character plus a margin.
    picture.FillRect(x, y, (count * 6 + 1) * scale, 9 * scale, kBlack);
    for (std::int32_t i = 0; i < count; ++i) {
        const auto& glyph = kDigits[text[static_cast<std::size_t>(i)] - '0'];
        for (std::int32_t row = 0; row < 7; ++row) {
            for (std::int32_t col = 0; col < 5; ++col) {
                if (glyph[row] >> (4 - col) & 1)
                    picture.FillRect(x + (1 + i * 6 + col) * scale, y + (1 + row) * scale, scale, scale,
                                     kWhite);
            }
        }
    }
}

} // namespace

std::int32_t StampBandHeight(std::int32_t height) {
    return std::min(height, std::max<std::int32_t>(8, (height / 16) & ~7));
}

void DrawFrameStamp(PictureWriter& picture, std::int64_t frameNumber) {
    const std::int32_t width = picture.Width();
    const std::int32_t band = StampBandHeight(picture.Height());
    const std::int32_t cell = width / kStampCells;
    const auto value = static_cast<std::uint32_t>(frameNumber) & ((1u << kStampBits) - 1);
    const std::uint32_t word = value << 4 | CheckNibble(value);
    picture.FillRect(0, 0, width, band, kBlack);
    for (int i = 0; i < kStampCells; ++i) {
        if (word >> (kStampCells - 1 - i) & 1)
            picture.FillRect(i * cell, 0, cell, band, kWhite);
    }
    DrawDigits(picture, frameNumber, std::max(1, cell / 2), band + std::max(1, band / 4));
}

std::int64_t DecodeFrameStamp(const std::uint8_t* plane, std::int32_t width, std::int32_t height,
                              std::ptrdiff_t rowStride, std::int32_t pixelStep) {
    const std::int32_t band = StampBandHeight(height);
    const std::int32_t cell = width / kStampCells;
    if (cell < 1 || band < 1)
        return -1;
    // The middle half of each cell in both directions, away from edges that compression blurs.
    const std::int32_t x0 = cell / 4;
    const std::int32_t x1 = std::max(x0 + 1, cell - cell / 4);
    const std::int32_t y0 = band / 4;
    const std::int32_t y1 = std::max(y0 + 1, band - band / 4);
    std::uint32_t word = 0;
    for (int i = 0; i < kStampCells; ++i) {
        std::uint64_t sum = 0;
        for (std::int32_t y = y0; y < y1; ++y) {
            const std::uint8_t* row = plane + y * rowStride;
            for (std::int32_t x = i * cell + x0; x < i * cell + x1; ++x)
                sum += row[static_cast<std::ptrdiff_t>(x) * pixelStep];
        }
        const std::uint64_t samples =
            static_cast<std::uint64_t>(y1 - y0) * static_cast<std::uint64_t>(x1 - x0);
        word = word << 1 | (sum > samples * 128 ? 1u : 0u);
    }
    const std::uint32_t value = word >> 4;
    return (word & 0xF) == CheckNibble(value) ? static_cast<std::int64_t>(value) : -1;
}

} // namespace qvnhost

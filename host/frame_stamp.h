// The frame number burnt into every pattern frame: a band of black and white cells across the top that a
// program can read back from decoded video, and the number in digits below it for a person.
//
// The band holds 24 cells of equal width: 20 bits of the frame number, most significant first, then a
// 4-bit check (the sum of the five nibbles plus 5, modulo 16, so that a black band does not read as frame
// 0). Cells are whole-luma black or white and at least 8 lines high, so 4:2:2 or 4:1:1 chroma and DV's 8x8
// blocks leave their centres readable.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/picture_writer.h"

namespace qvnhost {

inline constexpr int kStampCells = 24;
inline constexpr int kStampBits = 20;

// Height in lines of the code band of a picture h lines high.
std::int32_t StampBandHeight(std::int32_t height);

// Draws the band and the digits of frameNumber (modulo 2^20 in the band).
void DrawFrameStamp(PictureWriter& picture, std::int64_t frameNumber);

// Reads the band from an 8-bit plane (luma, or one component of 8-bit BGRA with pixelStep 4), top-down,
// width x height with rowStride bytes between rows. Answers the frame number, or -1 when the check fails.
std::int64_t DecodeFrameStamp(const std::uint8_t* plane, std::int32_t width, std::int32_t height,
                              std::ptrdiff_t rowStride, std::int32_t pixelStep = 1);

} // namespace qvnhost

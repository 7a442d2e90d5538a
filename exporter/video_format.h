// The AVI video format of a codec at a frame size, and the AVI frame rate of a host frame duration.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/win_types.h"

namespace QVN {

// The BITMAPINFOHEADER an encoder is given for a codec: bit count and compression by codec (several
// spellings and byte orders of the uncompressed codes are accepted), image size from the bit count (v210 rows
// are padded to 48 pixels, r210 rows to 64). Codes it does not know get bit count 0 and size 0.
BITMAPINFOHEADER BuildVideoFormat(std::uint32_t codec, std::int32_t width, std::int32_t height);

struct AviRate {
    std::uint32_t rate;
    std::uint32_t scale;
};

// Whole rates, or 24000, 30000 and 60000 over 1001 (also when the host spells them 23.976/23.98, 29.97 or
// 59.94 frames per second exactly). Any other frame duration has no AVI rate.
std::optional<AviRate> AviRateFromTicks(std::int64_t ticksPerSecond, std::int64_t ticksPerFrame);

} // namespace QVN

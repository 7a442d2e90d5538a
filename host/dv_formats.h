// The host's compressed DV pixel formats, spelled like the codec codes, and the one frame each holds.
#pragma once

#include <cstdint>

#include "prsdk/prsdk.h"

namespace qvnhost {

struct DvFormat {
    prsdk::PrPixelFormat format;
    const char* code;
    std::int32_t width;
    std::int32_t height;
    std::int32_t frameBytes;
    std::int32_t fieldType; // 0 progressive, 1 upper first, 2 lower first
    bool hd;                // BT.709 colours; SD is BT.601
    std::int32_t rateNumerator;
    std::int32_t rateDenominator;
};

inline constexpr DvFormat kDvFormats[] = {
    {prsdk::MakeFourCC('d', 'v', 'n', '5'), "dvn5", 720, 480, 240000, 2, false, 30000, 1001},
    {prsdk::MakeFourCC('d', 'v', 'p', '5'), "dvp5", 720, 576, 288000, 2, false, 25, 1},
    {prsdk::MakeFourCC('d', 'v', 'n', '1'), "dvn1", 1280, 1080, 480000, 1, true, 30000, 1001},
    {prsdk::MakeFourCC('d', 'v', 'p', '1'), "dvp1", 1440, 1080, 576000, 1, true, 25, 1},
    {prsdk::MakeFourCC('d', 'v', 'n', '7'), "dvn7", 960, 720, 240000, 0, true, 60000, 1001},
    {prsdk::MakeFourCC('d', 'v', 'p', '7'), "dvp7", 960, 720, 288000, 0, true, 50, 1},
};

inline const DvFormat* FindDvFormat(prsdk::PrPixelFormat format) {
    for (const DvFormat& f : kDvFormats) {
        if (f.format == format)
            return &f;
    }
    return nullptr;
}

} // namespace qvnhost

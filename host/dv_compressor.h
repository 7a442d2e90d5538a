// DV compression of host frames for the Image Processing Suite, through libavcodec's DV encoder (the
// system's natively; on Windows the minimal static one the build makes, without which qvnhost.exe answers
// that it cannot compress).
#pragma once

#include <cstdint>

#include "host/dv_formats.h"
#include "prsdk/prsdk.h"

namespace qvnhost {

// Compresses one 8-bit BGRA frame of srcWidth x srcHeight, its first row in memory the bottom row of the
// picture (srcRowBytes apart), into one frame of `format` (scaled to its size when the source differs).
// fieldType 1 (upper) or 2 (lower) overrides an interlaced format's own field order. For the 720p formats,
// channelOffset 0 writes the frame as the first half of a DIF frame pair (channels 0 and 1), 2 as the
// second (channels 2 and 3). dst must hold format.frameBytes. Answers a suite error.
prsdk::prSuiteError CompressDv(const DvFormat& format, const std::uint8_t* src, std::int32_t srcWidth,
                               std::int32_t srcHeight, std::int32_t srcRowBytes, std::int32_t fieldType,
                               std::int32_t channelOffset, std::uint8_t* dst);

} // namespace qvnhost

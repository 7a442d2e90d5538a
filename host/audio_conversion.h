// The Premiere Audio Suite: planar float samples to interleaved integers and back.
//
// A float x becomes round(x * 2^(bits-1)), half away from zero, clipped to the integer range: +1.0 gives
// the largest value (32767 at 16 bits), -1.0 the smallest (-32768), anything beyond is clipped and NaN is 0.
// 8-bit samples are unsigned with 128 for silence (0.0 -> 128, +1.0 -> 255, -1.0 -> 0); 24-bit samples are
// three bytes, least significant first. Back to float, v / 2^(bits-1) (8-bit: (v - 128) / 128).
#pragma once

#include "prsdk/prsdk.h"

namespace qvnhost {

const prsdk::AudioSuite* AudioSuiteTable();

} // namespace qvnhost

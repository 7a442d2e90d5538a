// The PPix suites: what the module may ask of a frame the host rendered (pixels, bounds, row bytes, format,
// size, field order) and its disposal. Frames are the FrameRegistry's.
#pragma once

#include "prsdk/prsdk.h"

namespace qvnhost {

const prsdk::PPixSuite* PPixSuiteTable();
const prsdk::PPix2Suite* PPix2SuiteTable();

} // namespace qvnhost

// The Image Processing Suite: pixel format facts, and conversion of 8-bit BGRA host frames into the host's
// compressed DV formats (DVCPRO50 "dvn5"/"dvp5", DVCPRO HD "dvn1"/"dvp1", and "dvn7"/"dvp7" through
// CompressDV100720p with its field phase). Compression needs libavcodec; without it those calls answer
// suiteError_NotImplemented.
#pragma once

#include "prsdk/prsdk.h"

namespace qvnhost {

// True when this build can compress DV.
bool HostCompressesDv();

const prsdk::ImageProcessingSuite* ImageProcessingSuiteTable();

} // namespace qvnhost

// The two summary lines the export dialog shows under the preset.
#pragma once

#include <string>

#include "exporter/export_settings.h"

namespace QVN {

// "<width>x<height> <pixel aspect, 4 decimals> ,<field order>", e.g. "720x576 1.0940 ,Lower".
std::string VideoSummary(const ExportSettings& settings);

// Always "48000.000000 Hz", whatever rate is chosen: the line has always read so and is kept unchanged.
std::string AudioSummary();

} // namespace QVN

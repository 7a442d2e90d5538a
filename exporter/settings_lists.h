// The labels and value lists of the settings dialog, and the narrowing of the video lists to a codec.
#pragma once

#include <cstdint>

#include "exporter/settings_params.h"

namespace QVN {

// Width, height, pixel aspects, frame rates and field orders as the codec allows them: fixed sizes are set
// and disabled, free ones enabled with the full range. Frame rates are computed from ticksPerSecond.
void ApplyCodecLimits(const HostParams& params, std::int64_t ticksPerSecond, std::uint32_t codec);

// The labels of the groups and parameters.
void PublishLabels(const HostParams& params);

// Every value list, each cleared first; the video lists as for a codec outside the catalogue.
void PublishValueLists(const HostParams& params, std::int64_t ticksPerSecond);

} // namespace QVN

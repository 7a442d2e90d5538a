// The export settings record an exporter instance keeps in step with the host's parameters.
#pragma once

#include <cstdint>

namespace QVN {

struct ExportSettings {
    std::uint32_t pluginId;
    std::int32_t width;
    std::int32_t height;
    std::uint32_t codec; // FourCC, first character in the lowest byte
    std::int32_t pixelAspectNumerator;
    std::int32_t pixelAspectDenominator;
    std::int64_t ticksPerSecond;
    std::int64_t ticksPerFrame;
    std::int32_t fieldType;        // 0 progressive, 1 upper first, 2 lower first, else unknown
    std::int32_t audioSampleType;  // host code: 1 8-bit, 3 16-bit, 4 24-bit, 5 32-bit, 6 float
    std::int32_t audioChannelType; // host code: 1 mono, 2 stereo, 3 5.1
    double audioSampleRate;
};

} // namespace QVN

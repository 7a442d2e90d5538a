// What the simulated host's sequence looks like: the source the Export Info Suite describes.
#pragma once

#include <cstdint>
#include <string>

namespace qvnhost {

inline constexpr std::int64_t kTicksPerSecond = 254016000000LL;

struct SequenceInfo {
    std::int32_t width = 1920;
    std::int32_t height = 1080;
    std::int64_t ticksPerFrame = kTicksPerSecond / 30000 * 1001;
    std::int32_t fieldType = 0;
    std::int32_t pixelAspectNumerator = 1;
    std::int32_t pixelAspectDenominator = 1;
    std::int64_t videoDurationTicks = kTicksPerSecond * 10;
    std::int64_t audioDurationTicks = kTicksPerSecond * 10;
    std::int32_t audioChannelType = 2;
    double audioSampleRate = 48000.0;
    std::string outputPath; // UTF-8
};

} // namespace qvnhost

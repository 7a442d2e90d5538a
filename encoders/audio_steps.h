// How many audio sample frames belong to the next few video frames, in hundredths of a sample with the
// rounding carried from call to call, so that the counts of many calls add up to the exact total within
// one sample (a mix of 1601 and 1602 at 48 kHz and 30000/1001).
#pragma once

#include <cstdint>

namespace QVN {

class CAudioSteps {
public:
    void Reset() { carry_ = 0; }
    // rate/scale is the frame rate; samplesPerSecond the audio rate. rate must not be 0.
    std::uint32_t Next(std::uint32_t samplesPerSecond, std::uint32_t rate, std::uint32_t scale,
                       std::uint32_t frames) {
        const std::int64_t exact = static_cast<std::int64_t>(samplesPerSecond) * scale * frames * 100;
        const std::int32_t t = static_cast<std::int32_t>((exact + rate / 2) / rate) + carry_;
        const std::int32_t result = (t + 50) / 100;
        carry_ = t - result * 100;
        return static_cast<std::uint32_t>(result);
    }

private:
    std::int32_t carry_ = 0; // hundredths of a sample; may be negative
};

} // namespace QVN

// The sequence's audio as the host renders it: planar 32-bit float, one steady tone per channel, handed out
// in blocks of at most the largest block (GetMaxBlip) for the frame duration the module names.
//
// Channel c (in the host's order; for 5.1: L, R, Ls, Rs, C, LFE) carries a sine of ToneFrequency(c) Hz at
// half full scale, with sample k of the sequence at phase 2 pi f k / rate: the audio of an export that
// starts at time t continues the same tones from sample t x rate.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "prsdk/prsdk.h"

namespace qvnhost {

inline constexpr double kToneAmplitude = 0.5;

// 440 Hz times (channel + 1): 440, 880, 1320, 1760, 2200, 2640.
std::int32_t ToneFrequency(int channel);
// Sample k of a channel at rate (the value GetAudio hands out).
float ToneSample(int channel, std::int64_t k, double rate);

// Sample frames that span ticks at rate, rounded down (roundUp false) or up.
std::int64_t SamplesInTicks(prsdk::PrTime ticks, double rate, bool roundUp);

struct AudioHostReport {
    std::uint64_t renderersMade = 0;
    std::uint64_t renderersReleased = 0;
    std::uint64_t blocks = 0;       // GetAudio calls answered
    std::uint64_t sampleFrames = 0; // sample frames handed out
    std::vector<std::string> problems;
};

void ResetAudioHost();
AudioHostReport AudioHostState();

const prsdk::SequenceAudioSuite* SequenceAudioSuiteTable();

} // namespace qvnhost

// A host whose every answer is scripted, for driving one export run through xSDKExport: renders complete
// on a host thread in batches, last first; progress can cancel or suspend at a chosen report; a frame can
// fail or arrive in a foreign pixel format. Records what the module asked for.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "prsdk/prsdk.h"

namespace scripted {

inline constexpr std::int64_t kTicksPerSecond = 254016000000LL;

struct Script {
    // Settings the parameters answer.
    std::uint32_t codec = 0;
    std::int32_t width = 64;
    std::int32_t height = 8;
    std::int64_t ticksPerFrame = kTicksPerSecond / 25;
    std::int32_t fieldType = 0;
    std::int32_t channelType = 2;
    std::int32_t sampleType = 3;
    double sampleRate = 48000.0;
    std::string path;
    // Behaviour.
    std::size_t batch = 3;                    // renders complete in groups of this many, last first
    prsdk::PrPixelFormat deliveredFormat = 0; // 0: the first format the module asked for
    std::int32_t failFrame = -1;              // this frame's render reports an error
    std::int32_t cancelAtReport = -1;         // from the n-th progress report (0-based) on: "abort"
    std::int32_t suspendAtReport = -1;        // the n-th progress report answers "suspended"
    bool refuseVideoRenderer = false;
    std::int32_t maxBlip = 1000;
};

struct Record {
    std::vector<std::int64_t> requestedTimes;
    std::vector<float> progress;
    std::atomic<int> completed{0};
    std::atomic<int> waitForResume{0};
    std::vector<std::uint32_t> audioBlocks; // frames per GetAudio
    int videoRenderersMade = 0;
    int videoRenderersReleased = 0;
    int audioRenderersMade = 0;
    int audioRenderersReleased = 0;
    std::vector<std::string> outstandingSuites;
};

// Runs start-up's instance selectors and one export of frames [first, end) through the module's entry.
// Returns the export selector's result; *record says what happened.
prsdk::int32 RunExport(const Script& script, std::int32_t firstFrame, std::int32_t endFrame, bool video,
                       bool audio, Record* record);

} // namespace scripted

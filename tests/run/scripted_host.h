// A host whose every answer is scripted, for driving one export run through xSDKExport: renders complete
// on a host thread in batches, last first; progress can cancel or suspend at a chosen report; a frame can
// fail or arrive in a foreign pixel format; any render-side call can be refused. Records what the module
// asked for, and in which order.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "prsdk/prsdk.h"

namespace scripted {

inline constexpr std::int64_t kTicksPerSecond = 254016000000LL;

struct Script {
    // Settings the parameters answer, and the source size the Export Info Suite reports.
    std::uint32_t codec = 0;
    std::int32_t width = 64, height = 8;
    std::int64_t ticksPerFrame = kTicksPerSecond / 25;
    std::int32_t fieldType = 0, aspectNumerator = 1, aspectDenominator = 1;
    std::int32_t sourceWidth = 0, sourceHeight = 0;
    std::int32_t channelType = 2, sampleType = 3;
    double sampleRate = 48000.0;
    std::string path;
    // Behaviour.
    std::size_t batch = 3;                    // renders complete in groups of this many, last first
    prsdk::PrPixelFormat deliveredFormat = 0; // 0: the first format the module asked for
    bool lastRowFirst = false;         // frames are handed over by their last row, with negative row bytes
    std::int32_t failFrame = -1;       // this frame's render reports an error
    std::int32_t cancelAtReport = -1;  // from the n-th progress report (0-based) on: "abort"
    std::int32_t suspendAtReport = -1; // the n-th progress report answers "suspended"
    std::int32_t refuseRenderOf = -1;  // the request for this frame is refused
    bool refuseVideoRenderer = false, refuseAudioRenderer = false, refuseAudioReset = false;
    bool refuseMaxBlip = false;
    std::int32_t failAudioCall = -1; // this GetAudio call (0-based) fails
    std::int32_t maxBlip = 1000;
};

// What one granted render request asked for.
struct RenderRequest {
    std::int64_t time;
    std::vector<prsdk::PrPixelFormat> formats; // as many as the count says
    prsdk::SequenceRender_ParamsRec params;    // the array pointer is not kept
};

// The host's frame n in the given format: a pattern that differs by frame, row, column and channel, with
// 16u components within 0..32768 and 32f components within 0..1. Rows are width * pixel + 16 bytes.
std::vector<unsigned char> FramePixels(std::int32_t n, prsdk::PrPixelFormat format, std::int32_t width,
                                       std::int32_t height, std::int32_t* rowBytes);

struct Record {
    std::vector<RenderRequest> renders;
    // In the order the host saw them: {'v', frame} for a render request, {'a', samples} for a GetAudio.
    std::vector<std::pair<char, std::int64_t>> calls;
    std::vector<std::pair<std::int32_t, std::int32_t>> dvPhases; // {frame, phase} of each 720p compression
    std::vector<std::int32_t> dvScaled;                          // frames of the other DVCPRO compressions
    float audioRendererRate = 0.0f;
    std::vector<float> progress;
    std::atomic<int> completed{0}, waitForResume{0};
    int videoRenderersMade = 0, videoRenderersReleased = 0, audioRenderersReleased = 0;
    std::vector<std::string> outstandingSuites;
};

// Runs start-up's instance selectors and one export of frames [first, end) through the module's entry.
// Returns the export selector's result; *record says what happened.
prsdk::int32 RunExport(const Script& script, std::int32_t firstFrame, std::int32_t endFrame, bool video,
                       bool audio, Record* record);

} // namespace scripted

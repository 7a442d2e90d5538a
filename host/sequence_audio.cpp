#include "host/sequence_audio.h"

#include <cmath>
#include <map>
#include <mutex>

#include "host/instance_suites.h"
#include "host/request_hook.h"
#include "host/sequence.h"

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

struct AudioRenderer {
    int channels = 0;
    double rate = 0;
    std::int64_t firstSample = 0; // the sample at the renderer's start time
    std::int64_t position = 0;    // sample frames handed out since the start
    std::int32_t maxBlip = 0;
};

struct AudioHost {
    std::mutex mutex;
    std::map<prsdk::csSDK_uint32, AudioRenderer> renderers;
    prsdk::csSDK_uint32 nextId = 1;
    AudioHostReport report;
};

AudioHost& TheHost() {
    static AudioHost host;
    return host;
}

int ChannelsOf(prsdk::PrAudioChannelType type) {
    switch (type) {
    case prsdk::kPrAudioChannelType_Mono:
        return 1;
    case prsdk::kPrAudioChannelType_Stereo:
        return 2;
    case prsdk::kPrAudioChannelType_51:
        return 6;
    default:
        return 0;
    }
}

std::int32_t BlipFor(prsdk::PrTime ticksPerFrame, double rate) {
    return static_cast<std::int32_t>(SamplesInTicks(ticksPerFrame, rate, true));
}

prSuiteError MakeAudioRenderer(prsdk::csSDK_uint32, prsdk::PrTime start,
                               prsdk::PrAudioChannelType channelType, prsdk::PrAudioSampleType, float rate,
                               prsdk::csSDK_uint32* id) {
    const int channels = ChannelsOf(channelType);
    if (!id || channels == 0 || !(rate > 0.0f) || start < 0)
        return prsdk::suiteError_InvalidParms;
    AudioRenderer r;
    r.channels = channels;
    r.rate = static_cast<double>(rate);
    r.firstSample = SamplesInTicks(start, r.rate, false);
    // Until the module asks, blocks are limited to one frame of the sequence.
    r.maxBlip = BlipFor(CurrentSequence().ticksPerFrame, r.rate);
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    *id = h.nextId++;
    h.renderers.emplace(*id, r);
    ++h.report.renderersMade;
    return prsdk::suiteError_NoError;
}

prSuiteError ReleaseAudioRenderer(prsdk::csSDK_uint32, prsdk::csSDK_uint32 id) {
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    if (h.renderers.erase(id) == 0)
        return prsdk::suiteError_InvalidParms;
    ++h.report.renderersReleased;
    return prsdk::suiteError_NoError;
}

prSuiteError GetAudio(prsdk::csSDK_uint32 id, prsdk::csSDK_uint32 frames, float** buffers, char) {
    NoteRequest();
    AudioHost& h = TheHost();
    AudioRenderer r;
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        const auto it = h.renderers.find(id);
        if (it == h.renderers.end())
            return prsdk::suiteError_InvalidParms;
        if (frames > static_cast<prsdk::csSDK_uint32>(it->second.maxBlip)) {
            h.report.problems.push_back("GetAudio asked for " + std::to_string(frames) +
                                        " sample frames, more than the largest block " +
                                        std::to_string(it->second.maxBlip));
            return prsdk::suiteError_InvalidParms;
        }
        r = it->second;
        if (frames != 0 && !buffers)
            return prsdk::suiteError_InvalidParms;
        for (int c = 0; frames != 0 && c < r.channels; ++c) {
            if (!buffers[c])
                return prsdk::suiteError_InvalidParms;
        }
        it->second.position += frames;
        ++h.report.blocks;
        h.report.sampleFrames += frames;
    }
    const std::int64_t first = r.firstSample + r.position;
    for (int c = 0; c < r.channels; ++c) {
        for (prsdk::csSDK_uint32 i = 0; i < frames; ++i)
            buffers[c][i] = ToneSample(c, first + i, r.rate);
    }
    return prsdk::suiteError_NoError;
}

prSuiteError ResetAudioToBeginning(prsdk::csSDK_uint32 id) {
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    const auto it = h.renderers.find(id);
    if (it == h.renderers.end())
        return prsdk::suiteError_InvalidParms;
    it->second.position = 0;
    return prsdk::suiteError_NoError;
}

prSuiteError GetMaxBlip(prsdk::csSDK_uint32 id, prsdk::PrTime ticksPerFrame, prsdk::csSDK_int32* maxBlip) {
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    const auto it = h.renderers.find(id);
    if (it == h.renderers.end() || !maxBlip || ticksPerFrame <= 0)
        return prsdk::suiteError_InvalidParms;
    it->second.maxBlip = BlipFor(ticksPerFrame, it->second.rate);
    *maxBlip = it->second.maxBlip;
    return prsdk::suiteError_NoError;
}

const prsdk::SequenceAudioSuite kSuite = {MakeAudioRenderer, ReleaseAudioRenderer, GetAudio,
                                          ResetAudioToBeginning, GetMaxBlip};

} // namespace

std::int32_t ToneFrequency(int channel) {
    return 440 * (channel + 1);
}

namespace {

// sin(2 pi cycles) for cycles in [0, 1), from additions and multiplications only, so that every platform's
// host produces the same samples bit for bit (the C libraries' sin differ in the last place, which shows in
// float exports compared across targets). Accurate to about 1e-11.
double PortableSine(double cycles) {
    constexpr double kPi = 3.14159265358979323846264338327950288;
    if (cycles >= 0.5)
        cycles -= 1.0; // now in [-0.5, 0.5)
    double x = 2.0 * kPi * cycles;
    if (x > kPi / 2)
        x = kPi - x;
    else if (x < -kPi / 2)
        x = -kPi - x;
    const double x2 = x * x;
    // Taylor series to x^15 on [-pi/2, pi/2], evaluated from the smallest term up.
    double sum = -1.0 / 1307674368000.0;
    sum = sum * x2 + 1.0 / 6227020800.0;
    sum = sum * x2 - 1.0 / 39916800.0;
    sum = sum * x2 + 1.0 / 362880.0;
    sum = sum * x2 - 1.0 / 5040.0;
    sum = sum * x2 + 1.0 / 120.0;
    sum = sum * x2 - 1.0 / 6.0;
    sum = sum * x2 + 1.0;
    return sum * x;
}

} // namespace

float ToneSample(int channel, std::int64_t k, double rate) {
    const std::int64_t f = ToneFrequency(channel);
    double cycles; // the fraction of a cycle at sample k, kept exact for whole rates
    if (rate == std::floor(rate)) {
        const auto whole = static_cast<std::int64_t>(rate);
        cycles = static_cast<double>((f * (k % whole)) % whole) / rate;
    } else {
        cycles = std::fmod(static_cast<double>(f) * static_cast<double>(k) / rate, 1.0);
    }
    return static_cast<float>(kToneAmplitude * PortableSine(cycles));
}

std::int64_t SamplesInTicks(prsdk::PrTime ticks, double rate, bool roundUp) {
    // Whole seconds and the rest apart, so that long times at high rates stay exact.
    const std::int64_t seconds = ticks / kTicksPerSecond;
    const std::int64_t rest = ticks % kTicksPerSecond;
    const double part = static_cast<double>(rest) * rate / static_cast<double>(kTicksPerSecond);
    const double whole = static_cast<double>(seconds) * rate;
    // A part that is a whole number up to rounding noise counts as whole.
    const double nearest = std::round(part);
    const double exactPart =
        std::fabs(part - nearest) < 1e-6 ? nearest : (roundUp ? std::ceil(part) : std::floor(part));
    return static_cast<std::int64_t>(whole + exactPart);
}

void ResetAudioHost() {
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.renderers.clear();
    h.report = {};
    h.nextId = 1;
}

AudioHostReport AudioHostState() {
    AudioHost& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    AudioHostReport report = h.report;
    for (const auto& [id, r] : h.renderers)
        report.problems.push_back("audio renderer " + std::to_string(id) + " not released");
    return report;
}

const prsdk::SequenceAudioSuite* SequenceAudioSuiteTable() {
    return &kSuite;
}

} // namespace qvnhost

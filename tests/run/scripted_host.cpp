#include "scripted_host.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "platform/event.h"
#include "platform/sleep.h"
#include "platform/text_encoding.h"
#include "platform/thread.h"

PR_EXPORT prsdk::int32 xSDKExport(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1,
                                  void* param2);

namespace scripted {
namespace {

using prsdk::csSDK_int32;
using prsdk::csSDK_uint32;
using prsdk::prSuiteError;

constexpr prSuiteError kOk = prsdk::suiteError_NoError;

struct Frame {
    std::vector<unsigned char> pixels;
    std::int32_t width, height, rowBytes;
    prsdk::PrPixelFormat format;
};

struct Request {
    prsdk::PrTime time;
    prsdk::PrPixelFormat format;
    std::int32_t width, height; // as asked for, as the host renders it
};

// The one host of a run; the suites are plain function tables, so they reach it through this pointer.
struct Host {
    const Script* script;
    Record* record;
    std::mutex mutex;
    std::map<std::string, int> balance;
    prsdk::PrSDKSequenceAsyncRenderCompletionProc proc = nullptr;
    void* procRef = nullptr;
    std::deque<Request> queued;
    std::uint64_t lastQueuedMs = 0;
    int audioCalls = 0, reports = 0;
    bool stop = false;
    double phase[6] = {};
};
Host* gHost = nullptr;

// --- broker ---
const void* SuiteFor(const std::string& name);
prsdk::SPErr Count(const char* name, prsdk::int32 version, int by) {
    std::lock_guard<std::mutex> hold(gHost->mutex);
    gHost->balance[std::string(name) + " v" + std::to_string(version)] += by;
    return prsdk::kSPNoError;
}
prsdk::SPErr Acquire(const char* name, prsdk::int32 version, const void** suite) {
    *suite = SuiteFor(name);
    return *suite ? Count(name, version, 1) : prsdk::kSPSuiteNotFoundError;
}
prsdk::SPErr Release(const char* name, prsdk::int32 version) {
    return Count(name, version, -1);
}
prsdk::SPBasicSuite gBasic = {Acquire, Release, nullptr, nullptr, nullptr, nullptr, nullptr};

// --- parameters (only the values the export reads), source size, time base, file path ---
prSuiteError GetParamValue(csSDK_uint32, csSDK_int32, const char* id, prsdk::exParamValues* v) {
    const Script& s = *gHost->script;
    const std::string name = id;
    const std::pair<const char*, std::int32_t> ints[] = {
        {"ADBEVideoCodec", static_cast<std::int32_t>(s.codec)},
        {"ADBEVideoWidth", s.width},
        {"ADBEVideoHeight", s.height},
        {"ADBEVideoFieldType", s.fieldType},
        {"ADBEAudioSampleType", s.sampleType},
        {"ADBEAudioNumChannels", s.channelType}};
    for (const auto& [intName, value] : ints) {
        if (name == intName)
            return v->value.intValue = value, kOk;
    }
    if (name == "ADBEVideoFPS")
        v->value.timeValue = s.ticksPerFrame;
    else if (name == "ADBEVideoAspect")
        v->value.ratioValue = {s.aspectNumerator, s.aspectDenominator};
    else if (name == "ADBEAudioRatePerSecond")
        v->value.floatValue = s.sampleRate;
    else
        return prsdk::suiteError_InvalidParms;
    return kOk;
}
prsdk::ExportParamSuite gParams = [] {
    prsdk::ExportParamSuite p{};
    p.GetParamValue = GetParamValue;
    return p;
}();

prSuiteError SourceInfo(csSDK_uint32, prsdk::PrExportSourceInfoKey key, prsdk::PrParam* info) {
    if (key != prsdk::kExportInfo_VideoWidth && key != prsdk::kExportInfo_VideoHeight)
        return prsdk::suiteError_InvalidParms;
    info->mType = prsdk::kPrParamType_Int32;
    info->mInt32 =
        key == prsdk::kExportInfo_VideoWidth ? gHost->script->sourceWidth : gHost->script->sourceHeight;
    return kOk;
}
prsdk::ExportInfoSuite gInfo = {SourceInfo};

prsdk::TimeSuite gTime = {[](prsdk::PrTime* t) { return *t = kTicksPerSecond, kOk; }, nullptr, nullptr};

prSuiteError PlatformPath(csSDK_uint32, csSDK_int32* length, prsdk::prUTF16Char* path) {
    const std::u16string wide = QVN::Utf8ToUtf16(gHost->script->path);
    if (*length < static_cast<csSDK_int32>(wide.size() + 1))
        return prsdk::suiteError_InvalidParms;
    std::copy(wide.c_str(), wide.c_str() + wide.size() + 1, path);
    return kOk;
}
prsdk::ExportFileSuite gFile = {nullptr, nullptr, nullptr, nullptr, PlatformPath};

// --- PPix: frames handed over by their last row have negative row bytes ---
Frame& FrameOf(prsdk::PPixHand h) {
    return *reinterpret_cast<Frame*>(h);
}
prSuiteError Pixels(prsdk::PPixHand h, prsdk::int32, char** p) {
    Frame& f = FrameOf(h);
    const std::size_t last = static_cast<std::size_t>(f.height - 1) * static_cast<std::size_t>(f.rowBytes);
    *p = reinterpret_cast<char*>(f.pixels.data()) + (gHost->script->lastRowFirst ? last : 0);
    return kOk;
}
prsdk::PPixSuite gPPix = {
    [](prsdk::PPixHand h) { return delete &FrameOf(h), kOk; },
    Pixels,
    [](prsdk::PPixHand h, prsdk::prRect* r) {
        return *r = {0, 0, FrameOf(h).width, FrameOf(h).height}, kOk;
    },
    [](prsdk::PPixHand h, csSDK_int32* n) {
        return *n = gHost->script->lastRowFirst ? -FrameOf(h).rowBytes : FrameOf(h).rowBytes, kOk;
    },
    nullptr,
    [](prsdk::PPixHand h, prsdk::PrPixelFormat* f) { return *f = FrameOf(h).format, kOk; },
    nullptr,
    nullptr,
    nullptr};

// --- video renders: a host thread completes queued requests in batches, last first ---
prSuiteError MakeVideoRenderer(csSDK_uint32, csSDK_uint32* id, prsdk::PrTime) {
    if (gHost->script->refuseVideoRenderer)
        return prsdk::suiteError_Fail;
    *id = 77;
    gHost->record->videoRenderersMade += 1;
    return kOk;
}
prSuiteError QueueRender(csSDK_uint32, prsdk::PrTime time, csSDK_uint32* request,
                         prsdk::SequenceRender_ParamsRec* params, prsdk::int32, void*) {
    std::lock_guard<std::mutex> hold(gHost->mutex);
    const std::int64_t n = time / gHost->script->ticksPerFrame;
    gHost->record->calls.emplace_back('v', n);
    if (n == gHost->script->refuseRenderOf)
        return prsdk::suiteError_Fail;
    const prsdk::PrPixelFormat* formats = params->inRequestedPixelFormatArray;
    RenderRequest asked{time, {formats, formats + params->inRequestedPixelFormatArrayCount}, *params};
    asked.params.inRequestedPixelFormatArray = nullptr;
    gHost->record->renders.push_back(asked);
    const prsdk::PrPixelFormat format =
        gHost->script->deliveredFormat ? gHost->script->deliveredFormat : formats[0];
    gHost->queued.push_back({time, format, params->inWidth, params->inHeight});
    gHost->lastQueuedMs = QVN::MonotonicMs();
    *request = static_cast<csSDK_uint32>(gHost->record->renders.size());
    return kOk;
}
prSuiteError SetCompletion(csSDK_uint32, prsdk::PrSDKSequenceAsyncRenderCompletionProc proc, void* ref) {
    return gHost->proc = proc, gHost->procRef = ref, kOk;
}
prsdk::SequenceRenderSuite gRender = {
    MakeVideoRenderer,
    [](csSDK_uint32, csSDK_uint32) { return gHost->record->videoRenderersReleased += 1, kOk; },
    nullptr,
    QueueRender,
    SetCompletion,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

void Complete(const Request& r) {
    const auto n = static_cast<std::int32_t>(r.time / gHost->script->ticksPerFrame);
    prsdk::SequenceRender_GetFrameReturnRec ret{};
    Frame* f = nullptr;
    if (n == gHost->script->failFrame) {
        ret.returnVal = prsdk::suiteError_Fail;
    } else {
        f = new Frame{{}, r.width, r.height, 0, r.format};
        f->pixels = FramePixels(n, r.format, r.width, r.height, &f->rowBytes);
        ret.outFrame = reinterpret_cast<prsdk::PPixHand>(f);
    }
    gHost->proc(77, gHost->procRef, r.time, reinterpret_cast<prsdk::PPixHand>(f), &ret);
    gHost->record->completed.fetch_add(1);
}

std::uint32_t Completer(void*) {
    for (;;) {
        std::vector<Request> batch;
        {
            std::lock_guard<std::mutex> hold(gHost->mutex);
            std::deque<Request>& queued = gHost->queued;
            if (gHost->stop && queued.empty())
                return 0;
            const bool quiet = !queued.empty() && QVN::MonotonicMs() - gHost->lastQueuedMs > 30;
            if (queued.size() >= gHost->script->batch || quiet) {
                const auto end = queued.begin() +
                                 static_cast<std::ptrdiff_t>(std::min(queued.size(), gHost->script->batch));
                batch.assign(queued.begin(), end);
                queued.erase(queued.begin(), end);
            }
        }
        std::for_each(batch.rbegin(), batch.rend(), Complete);
        if (batch.empty())
            QVN::SleepMs(2);
    }
}

// --- audio: a tone per channel ---
prSuiteError MakeAudioRenderer(csSDK_uint32, prsdk::PrTime, prsdk::PrAudioChannelType,
                               prsdk::PrAudioSampleType, float rate, csSDK_uint32* id) {
    gHost->record->audioRendererRate = rate;
    *id = 5;
    return gHost->script->refuseAudioRenderer ? prsdk::suiteError_Fail : kOk;
}
prSuiteError GetAudio(csSDK_uint32, csSDK_uint32 frames, float** buffers, char) {
    if (frames > static_cast<csSDK_uint32>(gHost->script->maxBlip))
        return prsdk::suiteError_InvalidParms;
    {
        std::lock_guard<std::mutex> hold(gHost->mutex);
        gHost->record->calls.emplace_back('a', frames);
    }
    if (gHost->audioCalls++ == gHost->script->failAudioCall)
        return prsdk::suiteError_Fail;
    const int channels = gHost->script->channelType == 3 ? 6 : gHost->script->channelType;
    for (int c = 0; c < channels; ++c)
        for (csSDK_uint32 i = 0; i < frames; ++i, gHost->phase[c] += 0.01 * (c + 1))
            buffers[c][i] = static_cast<float>(0.5 * std::sin(gHost->phase[c]));
    return kOk;
}
prsdk::SequenceAudioSuite gSequenceAudio = {
    MakeAudioRenderer,
    [](csSDK_uint32, csSDK_uint32) { return gHost->record->audioRenderersReleased += 1, kOk; }, GetAudio,
    [](csSDK_uint32) { return gHost->script->refuseAudioReset ? prsdk::suiteError_InvalidCall : kOk; },
    [](csSDK_uint32, prsdk::PrTime, csSDK_int32* n) {
        return *n = gHost->script->maxBlip,
               gHost->script->refuseMaxBlip ? prsdk::suiteError_NotImplemented : kOk;
    }};

prSuiteError To16(float** src, short* dst, csSDK_uint32 channels, csSDK_uint32 frames) {
    for (csSDK_uint32 i = 0; i < frames * channels; ++i)
        dst[i] = static_cast<short>(src[i % channels][i / channels] * 32767.0f);
    return kOk;
}
prsdk::AudioSuite gAudio = {nullptr, To16, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

// --- progress ---
prSuiteError Progress(csSDK_uint32, float fraction) {
    std::lock_guard<std::mutex> hold(gHost->mutex);
    gHost->record->progress.push_back(fraction);
    const int n = gHost->reports++;
    // Once the user has cancelled, every later report answers "abort" too, as the host's dialog does.
    if (gHost->script->cancelAtReport >= 0 && n >= gHost->script->cancelAtReport)
        return prsdk::exportReturn_Abort;
    return n == gHost->script->suspendAtReport ? prsdk::suiteError_ExporterSuspended : kOk;
}
prsdk::ExportProgressSuite gProgress = {
    [](csSDK_uint32, const prsdk::prUTF16Char*) { return kOk; }, Progress, nullptr,
    [](csSDK_uint32) { return gHost->record->waitForResume.fetch_add(1), QVN::SleepMs(5), kOk; }};

// --- DVCPRO compression: records which frame it was given (FramePixels puts the number first) and how ---
std::int32_t FrameNumberOf(const void* pixels) {
    std::int32_t n = 0;
    std::memcpy(&n, pixels, sizeof n);
    return n;
}
prSuiteError ScaleConvert(prsdk::PrPixelFormat, csSDK_uint32, csSDK_uint32, csSDK_int32, prsdk::int32,
                          void* src, prsdk::PrPixelFormat, csSDK_uint32, csSDK_uint32, csSDK_int32,
                          prsdk::int32, void*, prsdk::int32) {
    std::lock_guard<std::mutex> hold(gHost->mutex);
    gHost->record->dvScaled.push_back(FrameNumberOf(src));
    return kOk;
}
prSuiteError CompressDV100720p(prsdk::PrPixelFormat, csSDK_uint32, csSDK_uint32, csSDK_int32, void* src,
                               prsdk::PrPixelFormat, csSDK_int32, void*, prsdk::int32 phase, prsdk::int32) {
    std::lock_guard<std::mutex> hold(gHost->mutex);
    gHost->record->dvPhases.emplace_back(FrameNumberOf(src), phase);
    return kOk;
}
prsdk::ImageProcessingSuite gImage = {nullptr, nullptr, nullptr, nullptr, ScaleConvert, CompressDV100720p};

// Suites the runs here never call into still have to be granted.
unsigned char gUnused[256] = {};

const void* SuiteFor(const std::string& name) {
    const std::pair<const char*, const void*> suites[] = {
        {prsdk::kExportParamSuite, &gParams},    {prsdk::kTimeSuite, &gTime},
        {prsdk::kExportFileSuite, &gFile},       {prsdk::kPPixSuite, &gPPix},
        {prsdk::kSequenceRenderSuite, &gRender}, {prsdk::kSequenceAudioSuite, &gSequenceAudio},
        {prsdk::kAudioSuite, &gAudio},           {prsdk::kExportProgressSuite, &gProgress},
        {prsdk::kExportInfoSuite, &gInfo},       {prsdk::kImageProcessingSuite, &gImage}};
    for (const auto& [suiteName, suite] : suites) {
        if (name == suiteName)
            return suite;
    }
    return gUnused;
}

} // namespace

std::vector<unsigned char> FramePixels(std::int32_t n, prsdk::PrPixelFormat format, std::int32_t width,
                                       std::int32_t height, std::int32_t* rowBytes) {
    const bool deep =
        format == prsdk::PrPixelFormat_BGRA_4444_32f || format == prsdk::PrPixelFormat_BGRX_4444_32f;
    const bool wide =
        format == prsdk::PrPixelFormat_BGRA_4444_16u || format == prsdk::PrPixelFormat_BGRX_4444_16u;
    const std::int32_t pixelBytes = deep ? 16 : wide ? 8 : 4;
    *rowBytes = width * pixelBytes + 16;
    std::vector<unsigned char> pixels(static_cast<std::size_t>(*rowBytes) * static_cast<std::size_t>(height));
    for (std::int32_t y = 0; y < height; ++y) {
        unsigned char* row =
            pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(*rowBytes);
        for (std::int32_t i = 0; i < *rowBytes / (pixelBytes / 4); ++i) {
            const auto level = static_cast<std::uint32_t>((n * 37 + y * 11 + i * 5) % 256);
            const float f = static_cast<float>(level) / 255.0f;
            const auto w = static_cast<std::uint16_t>(level * 128);
            if (deep)
                std::memcpy(row + 4 * i, &f, 4);
            else if (wide)
                std::memcpy(row + 2 * i, &w, 2);
            else
                row[i] = static_cast<unsigned char>(level);
        }
    }
    std::memcpy(pixels.data(), &n, sizeof n); // the host's compression reads it back
    return pixels;
}

prsdk::int32 RunExport(const Script& script, std::int32_t firstFrame, std::int32_t endFrame, bool video,
                       bool audio, Record* record) {
#ifdef _WIN32
    // These runs script the host around the AVI encoder; the graph, which the Windows module would pick for
    // the uncompressed codes, has tests of its own.
    _putenv_s("QVN_ENCODER", "avi");
#endif
    Host host;
    host.script = &script;
    host.record = record;
    gHost = &host;
    prsdk::exportStdParms std{prsdk::EXPORTMOD_VERSION_CS5, [] { return &gBasic; }};
    QVN::CThread completer;
    completer.Start(Completer, nullptr);
    prsdk::exExporterInstanceRec instance{};
    instance.exporterPluginID = 9;
    prsdk::int32 result = xSDKExport(prsdk::exSelBeginInstance, &std, &instance, nullptr);
    if (result == 0) {
        prsdk::exDoExportRec rec{};
        rec.exporterPluginID = 9;
        rec.privateData = instance.privateData;
        rec.exportVideo = video;
        rec.exportAudio = audio;
        rec.startTime = firstFrame * script.ticksPerFrame;
        rec.endTime = endFrame * script.ticksPerFrame;
        rec.fileObject = 1;
        result = xSDKExport(prsdk::exSelExport, &std, &rec, nullptr);
        xSDKExport(prsdk::exSelEndInstance, &std, &instance, nullptr);
    }
    {
        std::lock_guard<std::mutex> hold(host.mutex);
        host.stop = true;
    }
    completer.Join();
    for (const auto& [name, count] : host.balance) {
        if (count != 0)
            record->outstandingSuites.push_back(name);
    }
    gHost = nullptr;
    return result;
}

} // namespace scripted

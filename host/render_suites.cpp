#include "host/render_suites.h"

#include <map>
#include <memory>
#include <mutex>

#include "host/audio_conversion.h"
#include "host/image_processing_suite.h"
#include "host/ppix_suites.h"
#include "host/progress_suite.h"
#include "host/render_scheduler.h"
#include "host/request_hook.h"
#include "host/sequence_audio.h"
#include "host/suite_broker.h"
#include "platform/sleep.h"

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

struct VideoRenderer {
    prsdk::csSDK_uint32 id = 0;
    prsdk::PrTime ticksPerFrame = 0;
    prsdk::PrSDKSequenceAsyncRenderCompletionProc proc = nullptr;
    void* callbackRef = nullptr;
    std::unique_ptr<RenderScheduler> scheduler;
};

// A render request as the host keeps it: the module's record and format list are copied when queued.
struct Request {
    prsdk::PrTime time;
    std::vector<prsdk::PrPixelFormat> formats;
    prsdk::SequenceRender_ParamsRec params;
};

struct Host {
    std::mutex mutex;
    RenderHostOptions options;
    SequenceSource* source = nullptr;
    std::map<prsdk::csSDK_uint32, std::shared_ptr<VideoRenderer>> renderers;
    prsdk::csSDK_uint32 nextId = 1;
    prsdk::csSDK_uint32 nextRequest = 1;
    RenderHostReport report;
};

Host& TheHost() {
    static Host host;
    return host;
}

std::shared_ptr<VideoRenderer> FindRenderer(prsdk::csSDK_uint32 id) {
    Host& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    const auto it = h.renderers.find(id);
    return it == h.renderers.end() ? nullptr : it->second;
}

void Problem(const std::string& line) {
    Host& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.report.problems.push_back(line);
}

// Renders one frame; on failure answers null with *returnVal set.
HostFrame* Render(const Request& r, prsdk::PrTime ticksPerFrame, prsdk::int32* returnVal) {
    Host& h = TheHost();
    RenderHostOptions options;
    SequenceSource* source;
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        options = h.options;
        source = h.source;
    }
    const std::int64_t n = r.time / ticksPerFrame;
    const prsdk::PrPixelFormat format = ChooseRenderFormat(
        r.formats.data(), static_cast<prsdk::int32>(r.formats.size()), options.forcedFormat);
    *returnVal = prsdk::suiteError_Fail;
    if (n == options.failRenderAt || !source || format == 0) {
        std::lock_guard<std::mutex> hold(h.mutex);
        ++h.report.failedRenders;
        if (format == 0)
            h.report.problems.push_back("frame " + std::to_string(n) +
                                        " asked for no pixel format the host renders");
        return nullptr;
    }
    FrameLayout layout;
    layout.format = format;
    layout.width = r.params.inWidth;
    layout.height = r.params.inHeight;
    layout.rowPadding = options.rowPadding;
    layout.unaligned = options.unaligned;
    layout.parNumerator = r.params.inPixelAspectRatioNumerator;
    layout.parDenominator = r.params.inPixelAspectRatioDenominator;
    layout.fieldType = r.params.inFieldType;
    const std::uint64_t start = QVN::MonotonicMs();
    HostFrame* frame = FrameRegistry::Instance().Make(layout);
    std::string error;
    if (frame && !source->Render(n, *frame, &error)) {
        FrameRegistry::Instance().Dispose(frame->Handle());
        frame = nullptr;
        std::lock_guard<std::mutex> hold(h.mutex);
        if (h.report.sourceError.empty())
            h.report.sourceError = error;
    }
    if (!frame) {
        std::lock_guard<std::mutex> hold(h.mutex);
        ++h.report.failedRenders;
        return nullptr;
    }
    frame->renderMilliseconds = static_cast<std::int32_t>(QVN::MonotonicMs() - start);
    *returnVal = prsdk::suiteError_NoError;
    return frame;
}

bool ValidParams(const prsdk::SequenceRender_ParamsRec* params) {
    return params && params->inWidth > 0 && params->inHeight > 0 &&
           params->inRequestedPixelFormatArrayCount >= 0 &&
           (params->inRequestedPixelFormatArrayCount == 0 || params->inRequestedPixelFormatArray);
}

Request Copy(prsdk::PrTime time, const prsdk::SequenceRender_ParamsRec* params) {
    Request r{time, {}, *params};
    r.formats.assign(params->inRequestedPixelFormatArray,
                     params->inRequestedPixelFormatArray + params->inRequestedPixelFormatArrayCount);
    r.params.inRequestedPixelFormatArray = nullptr;
    return r;
}

// --- Sequence Render Suite ---

prSuiteError MakeVideoRenderer(prsdk::csSDK_uint32, prsdk::csSDK_uint32* id, prsdk::PrTime ticksPerFrame) {
    if (!id || ticksPerFrame <= 0)
        return prsdk::suiteError_InvalidParms;
    Host& h = TheHost();
    auto renderer = std::make_shared<VideoRenderer>();
    renderer->ticksPerFrame = ticksPerFrame;
    std::lock_guard<std::mutex> hold(h.mutex);
    renderer->id = h.nextId++;
    renderer->scheduler = std::make_unique<RenderScheduler>(h.options.threads, h.options.seed);
    h.renderers.emplace(renderer->id, renderer);
    ++h.report.renderersMade;
    *id = renderer->id;
    return prsdk::suiteError_NoError;
}

prSuiteError ReleaseVideoRenderer(prsdk::csSDK_uint32, prsdk::csSDK_uint32 id) {
    Host& h = TheHost();
    std::shared_ptr<VideoRenderer> renderer;
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        const auto it = h.renderers.find(id);
        if (it == h.renderers.end())
            return prsdk::suiteError_InvalidParms;
        renderer = it->second;
        h.renderers.erase(it);
        ++h.report.renderersReleased;
    }
    // Renders already running finish; those not started are dropped, as the renderer is gone.
    renderer->scheduler->Stop();
    const std::uint64_t dropped = renderer->scheduler->Dropped();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.report.mostConcurrent = std::max(h.report.mostConcurrent, renderer->scheduler->MostConcurrent());
    if (dropped != 0) {
        h.report.droppedRequests += dropped;
        h.report.problems.push_back("video renderer " + std::to_string(id) + " released with " +
                                    std::to_string(dropped) + " renders outstanding");
    }
    return prsdk::suiteError_NoError;
}

prSuiteError RenderVideoFrame(prsdk::csSDK_uint32 id, prsdk::PrTime time,
                              prsdk::SequenceRender_ParamsRec* params, prsdk::int32,
                              prsdk::SequenceRender_GetFrameReturnRec* frameReturn) {
    NoteRequest();
    const std::shared_ptr<VideoRenderer> renderer = FindRenderer(id);
    if (!renderer || !frameReturn || !ValidParams(params))
        return prsdk::suiteError_InvalidParms;
    prsdk::int32 returnVal = 0;
    HostFrame* frame = Render(Copy(time, params), renderer->ticksPerFrame, &returnVal);
    frameReturn->returnVal = returnVal;
    frameReturn->repeatCount = 0;
    frameReturn->onMarker = 0;
    frameReturn->outFrame = frame ? frame->Handle() : nullptr;
    return returnVal;
}

prSuiteError QueueAsyncVideoFrameRender(prsdk::csSDK_uint32 id, prsdk::PrTime time,
                                        prsdk::csSDK_uint32* requestId,
                                        prsdk::SequenceRender_ParamsRec* params, prsdk::int32,
                                        void* completionData) {
    NoteRequest();
    const std::shared_ptr<VideoRenderer> renderer = FindRenderer(id);
    if (!renderer || !ValidParams(params))
        return prsdk::suiteError_InvalidParms;
    Host& h = TheHost();
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        if (requestId)
            *requestId = h.nextRequest;
        ++h.nextRequest;
        ++h.report.requests;
    }
    const std::int64_t n = time / renderer->ticksPerFrame;
    // The job holds the renderer's plain pointer: releasing the renderer stops its scheduler first.
    VideoRenderer* r = renderer.get();
    renderer->scheduler->Submit(n, [r, request = Copy(time, params), completionData, n]() {
        prsdk::int32 returnVal = 0;
        HostFrame* frame = Render(request, r->ticksPerFrame, &returnVal);
        prsdk::SequenceRender_GetFrameReturnRec rec{completionData, returnVal, 0, 0,
                                                    frame ? frame->Handle() : nullptr};
        prsdk::PrSDKSequenceAsyncRenderCompletionProc proc;
        void* ref;
        {
            Host& host = TheHost();
            std::lock_guard<std::mutex> hold(host.mutex);
            proc = r->proc;
            ref = r->callbackRef;
            host.report.completed.push_back(n);
        }
        if (!proc) {
            if (frame)
                FrameRegistry::Instance().Dispose(frame->Handle());
            Problem("frame " + std::to_string(n) + " rendered with no completion proc set");
            return;
        }
        proc(r->id, ref, request.time, rec.outFrame, &rec);
    });
    return prsdk::suiteError_NoError;
}

prSuiteError SetAsyncRenderCompletionProc(prsdk::csSDK_uint32 id,
                                          prsdk::PrSDKSequenceAsyncRenderCompletionProc proc,
                                          void* callbackRef) {
    const std::shared_ptr<VideoRenderer> renderer = FindRenderer(id);
    if (!renderer)
        return prsdk::suiteError_InvalidParms;
    std::lock_guard<std::mutex> hold(TheHost().mutex);
    renderer->proc = proc;
    renderer->callbackRef = callbackRef;
    return prsdk::suiteError_NoError;
}

prSuiteError GetFrameInfo(prsdk::csSDK_uint32, void*) {
    return prsdk::suiteError_NotImplemented;
}
prSuiteError PrefetchMedia(prsdk::csSDK_uint32 id, prsdk::PrTime) {
    return FindRenderer(id) ? prsdk::suiteError_NoError : prsdk::suiteError_InvalidParms;
}
prSuiteError PrefetchMediaWithRenderParameters(prsdk::csSDK_uint32 id, prsdk::PrTime,
                                               prsdk::SequenceRender_ParamsRec*) {
    return FindRenderer(id) ? prsdk::suiteError_NoError : prsdk::suiteError_InvalidParms;
}
prSuiteError CancelAllOutstandingMediaPrefetches(prsdk::csSDK_uint32 id) {
    return FindRenderer(id) ? prsdk::suiteError_NoError : prsdk::suiteError_InvalidParms;
}

const prsdk::SequenceRenderSuite kRenderSuite = {MakeVideoRenderer,
                                                 ReleaseVideoRenderer,
                                                 RenderVideoFrame,
                                                 QueueAsyncVideoFrameRender,
                                                 SetAsyncRenderCompletionProc,
                                                 GetFrameInfo,
                                                 PrefetchMedia,
                                                 PrefetchMediaWithRenderParameters,
                                                 CancelAllOutstandingMediaPrefetches};

} // namespace

prsdk::PrPixelFormat ChooseRenderFormat(const prsdk::PrPixelFormat* requested, prsdk::int32 count,
                                        prsdk::PrPixelFormat forced) {
    if (forced != 0)
        return forced;
    for (prsdk::int32 i = 0; requested && i < count; ++i) {
        if (BytesPerPixel(requested[i]) != 0)
            return requested[i];
    }
    return 0;
}

void ConfigureRenderHost(const RenderHostOptions& options, SequenceSource* source) {
    Host& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.options = options;
    h.source = source;
}

void ResetRenderHost() {
    Host& h = TheHost();
    std::map<prsdk::csSDK_uint32, std::shared_ptr<VideoRenderer>> renderers;
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        renderers.swap(h.renderers);
    }
    for (auto& [id, renderer] : renderers)
        renderer->scheduler->Stop();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.report = {};
    h.nextId = 1;
    h.nextRequest = 1;
}

RenderHostReport RenderHostState() {
    Host& h = TheHost();
    std::lock_guard<std::mutex> hold(h.mutex);
    RenderHostReport report = h.report;
    for (const auto& [id, renderer] : h.renderers) {
        report.mostConcurrent = std::max(report.mostConcurrent, renderer->scheduler->MostConcurrent());
        report.problems.push_back("video renderer " + std::to_string(id) + " not released");
    }
    return report;
}

const prsdk::SequenceRenderSuite* SequenceRenderSuiteTable() {
    return &kRenderSuite;
}

void RegisterRenderSuites() {
    SuiteBroker& broker = SuiteBroker::Instance();
    broker.Register(prsdk::kSequenceRenderSuite, prsdk::kSequenceRenderSuiteVersion,
                    SequenceRenderSuiteTable());
    broker.Register(prsdk::kSequenceAudioSuite, prsdk::kSequenceAudioSuiteVersion, SequenceAudioSuiteTable());
    broker.Register(prsdk::kAudioSuite, prsdk::kAudioSuiteVersion, AudioSuiteTable());
    broker.Register(prsdk::kPPix2Suite, prsdk::kPPix2SuiteVersion, PPix2SuiteTable());
    broker.Register(prsdk::kExportProgressSuite, prsdk::kExportProgressSuiteVersion,
                    ExportProgressSuiteTable());
    broker.Register(prsdk::kImageProcessingSuite, prsdk::kImageProcessingSuiteVersion,
                    ImageProcessingSuiteTable());
}

} // namespace qvnhost

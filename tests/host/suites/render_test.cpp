// Asynchronous renders: every request completes exactly once, on several host threads, in an order the
// seed reproduces; frames come in the format the host picks, with the layout asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "host/frame_stamp.h"
#include "host/host_frame.h"
#include "host/ppix_suites.h"
#include "host/render_scheduler.h"
#include "host/render_suites.h"
#include "host/sequence.h"
#include "platform/sleep.h"

namespace qvnhost {
namespace {

// Runs `count` jobs on `threads` threads; answers the dispatch order and checks each job ran once, and that
// some ran side by side on several threads.
std::vector<std::int64_t> RunJobs(int threads, std::uint64_t seed, int count) {
    std::mutex mutex;
    std::map<std::int64_t, int> runs;
    std::set<std::thread::id> ids;
    RenderScheduler scheduler(threads, seed);
    for (int i = 0; i < count; ++i) {
        scheduler.Submit(i, [&, i] {
            QVN::SleepMs(1); // long enough for the jobs of a window to overlap
            std::lock_guard<std::mutex> hold(mutex);
            ++runs[i];
            ids.insert(std::this_thread::get_id());
        });
    }
    scheduler.Drain();
    EXPECT_EQ(scheduler.Dropped(), 0u);
    EXPECT_GT(scheduler.MostConcurrent(), 1);
    EXPECT_GT(ids.size(), 1u);
    EXPECT_EQ(static_cast<int>(runs.size()), count);
    for (const auto& [tag, n] : runs)
        EXPECT_EQ(n, 1) << "job " << tag;
    return scheduler.DispatchOrder();
}

TEST(RenderScheduler, RunsEveryJobOnceConcurrentlyInAnOrderTheSeedReproduces) {
    // 203 jobs: the last window is part-full and is released by Drain.
    const std::vector<std::int64_t> a = RunJobs(4, 7, 203);
    ASSERT_EQ(a.size(), 203u);
    EXPECT_FALSE(std::is_sorted(a.begin(), a.end()));
    // Windows of 8: no job is handed out before every job of the windows before it; each window whole.
    std::vector<std::int64_t> sorted = a;
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 0; i < a.size(); ++i) {
        ASSERT_EQ(sorted[i], static_cast<std::int64_t>(i));
        EXPECT_EQ(a[i] / 8, static_cast<std::int64_t>(i / 8)) << "position " << i;
    }
    EXPECT_EQ(RunJobs(4, 7, 203), a) << "same seed, same order";
    EXPECT_EQ(RunJobs(2, 7, 203), a) << "the order depends on the seed only, not the thread count";
    EXPECT_NE(RunJobs(4, 8, 203), a) << "another seed, another order";
}

TEST(RenderScheduler, ReleasesAPartWindowWhenSubmissionsPauseAndDropsWhatIsLeftOnStop) {
    std::atomic<int> ran{0};
    RenderScheduler scheduler(2, 1, 8, 20);
    for (int i = 0; i < 3; ++i)
        scheduler.Submit(i, [&] { ++ran; });
    // No Drain: the three wait for five more, then go after the pause.
    for (const std::uint64_t start = QVN::MonotonicMs(); ran.load() < 3 && QVN::MonotonicMs() - start < 5000;)
        QVN::SleepMs(2);
    EXPECT_EQ(ran.load(), 3);
    RenderScheduler stopped(1, 1, 8, 60000);
    stopped.Submit(0, [&] { ++ran; });
    stopped.Stop();
    EXPECT_EQ(stopped.Dropped(), 1u);
    EXPECT_EQ(ran.load(), 3);
}

// What the module would see: the completion proc's arguments and the frame through the PPix suites.
struct Completion {
    std::int64_t frame;
    void* data;
    prsdk::int32 returnVal;
    bool hadFrame;
    prsdk::PrPixelFormat format;
    prsdk::int32 rowBytes;
    std::uintptr_t address;
    std::int64_t stamp;
};

struct Collector {
    std::mutex mutex;
    std::vector<Completion> done;
    prsdk::PrTime ticksPerFrame = kTicksPerSecond / 25;
    prsdk::csSDK_uint32 renderer = 0;
};

void OnFrame(prsdk::csSDK_uint32 renderer, void* ref, prsdk::PrTime time, prsdk::PPixHand frame,
             prsdk::SequenceRender_GetFrameReturnRec* rec) {
    auto* c = static_cast<Collector*>(ref);
    const prsdk::PPixSuite* ppix = PPixSuiteTable();
    Completion done{
        time / c->ticksPerFrame, rec->asyncCompletionData, rec->returnVal, frame != nullptr, 0, 0, 0, -1};
    EXPECT_EQ(renderer, c->renderer);
    const prsdk::PPixHand out = rec->outFrame; // packed record: read by value, never bound to a reference
    EXPECT_EQ(out, frame);
    if (frame) {
        char* pixels = nullptr;
        prsdk::prRect bounds{};
        ppix->GetPixels(frame, 0, &pixels);
        ppix->GetBounds(frame, &bounds);
        ppix->GetRowBytes(frame, &done.rowBytes);
        ppix->GetPixelFormat(frame, &done.format);
        done.address = reinterpret_cast<std::uintptr_t>(pixels);
        // The picture's top row is the last in memory; its green bytes carry the stamp.
        if (done.format == prsdk::PrPixelFormat_BGRA_4444_8u)
            done.stamp = DecodeFrameStamp(reinterpret_cast<std::uint8_t*>(pixels) +
                                              (bounds.bottom - 1) * done.rowBytes + 1,
                                          bounds.right, bounds.bottom, -done.rowBytes, 4);
        EXPECT_EQ(ppix->Dispose(frame), 0);
    }
    std::lock_guard<std::mutex> hold(c->mutex);
    c->done.push_back(done);
}

class RenderSuite : public ::testing::Test {
protected:
    void SetUp() override {
        ResetRenderHost();
        FrameRegistry::Instance().Reset();
        std::string error;
        ASSERT_TRUE(source.Open(SourceOptions{}, &error));
    }
    void TearDown() override {
        ResetRenderHost();
        ConfigureRenderHost(RenderHostOptions{}, nullptr);
    }
    // Queues frames first..first+count-1 and waits for their completions.
    void RenderAll(const RenderHostOptions& options, std::int64_t first, int count,
                   std::vector<prsdk::PrPixelFormat> formats) {
        ConfigureRenderHost(options, &source);
        ASSERT_EQ(suite->MakeVideoRenderer(1, &collector.renderer, collector.ticksPerFrame), 0);
        ASSERT_EQ(suite->SetAsyncRenderCompletionProc(collector.renderer, OnFrame, &collector), 0);
        prsdk::SequenceRender_ParamsRec params{
            formats.data(), static_cast<prsdk::int32>(formats.size()), 96, 64, 1, 1, 3, 0, 0, 0, 0};
        std::set<prsdk::csSDK_uint32> requestIds;
        for (std::int64_t i = first; i < first + count; ++i) {
            prsdk::csSDK_uint32 requestId = 0;
            ASSERT_EQ(suite->QueueAsyncVideoFrameRender(collector.renderer, i * collector.ticksPerFrame,
                                                        &requestId, &params, 0,
                                                        reinterpret_cast<void*>(i + 1)),
                      0);
            requestIds.insert(requestId);
        }
        EXPECT_EQ(requestIds.size(), static_cast<std::size_t>(count));
        for (const std::uint64_t start = QVN::MonotonicMs();; QVN::SleepMs(5)) {
            {
                std::lock_guard<std::mutex> hold(collector.mutex);
                if (collector.done.size() >= static_cast<std::size_t>(count))
                    break;
            }
            ASSERT_LT(QVN::MonotonicMs() - start, 20000u) << "renders did not complete";
        }
        ASSERT_EQ(suite->ReleaseVideoRenderer(1, collector.renderer), 0);
    }
    SequenceSource source;
    Collector collector;
    const prsdk::SequenceRenderSuite* suite = SequenceRenderSuiteTable();
};

TEST_F(RenderSuite, EveryFrameCompletesOnceWithItsDataPictureAndLayoutOrItsFailure) {
    RenderHostOptions options;
    options.rowPadding = 20;
    options.unaligned = true;
    options.failRenderAt = 105;
    const prsdk::PrPixelFormat k8u = prsdk::PrPixelFormat_BGRA_4444_8u,
                               k16u = prsdk::PrPixelFormat_BGRA_4444_16u;
    RenderAll(options, 100, 40,
              {prsdk::MakeFourCC('y', 'u', 'v', 'x'), k8u, prsdk::PrPixelFormat_BGRA_4444_32f});
    std::map<std::int64_t, int> seen;
    for (const Completion& c : collector.done) {
        SCOPED_TRACE(c.frame);
        ++seen[c.frame];
        EXPECT_EQ(c.data, reinterpret_cast<void*>(c.frame + 1));
        EXPECT_EQ(c.returnVal != 0, c.frame == 105);
        EXPECT_EQ(c.hadFrame, c.frame != 105);
        if (!c.hadFrame)
            continue;
        EXPECT_EQ(c.format, k8u); // the first requested that the host renders
        EXPECT_EQ(c.rowBytes, 96 * 4 + 20);
        EXPECT_NE(c.address % 16, 0u);
        EXPECT_EQ(c.stamp, c.frame);
    }
    ASSERT_EQ(seen.size(), 40u);
    EXPECT_EQ(std::pair(seen.begin()->first, seen.rbegin()->first),
              std::pair(std::int64_t{100}, std::int64_t{139}));
    for (const auto& [frame, n] : seen)
        EXPECT_EQ(n, 1) << "frame " << frame;
    EXPECT_EQ(FrameRegistry::Instance().Live(), 0u);
    const RenderHostReport report = RenderHostState();
    EXPECT_EQ(std::pair(report.requests, report.failedRenders),
              std::pair(std::uint64_t{40}, std::uint64_t{1}));
    EXPECT_EQ(report.renderersMade, report.renderersReleased);
    EXPECT_TRUE(report.problems.empty());
    // A forced format wins over the request; with nothing the host renders in the list, the render
    // completes with an error, and the host says why.
    const prsdk::PrPixelFormat yuv = prsdk::MakeFourCC('y', 'u', 'v', '2');
    EXPECT_EQ(ChooseRenderFormat(&k8u, 1, k16u), k16u);
    EXPECT_EQ(ChooseRenderFormat(nullptr, 0, 0), 0u);
    EXPECT_EQ(ChooseRenderFormat(&yuv, 1, 0), 0u);
    collector.done.clear();
    ResetRenderHost();
    RenderAll(RenderHostOptions{}, 0, 1, {yuv});
    ASSERT_EQ(collector.done.size(), 1u);
    EXPECT_NE(collector.done[0].returnVal, 0);
    EXPECT_FALSE(collector.done[0].hadFrame);
    EXPECT_EQ(RenderHostState().problems.size(), 1u);
}

TEST_F(RenderSuite, SyncRenderAndMisuseOfRenderersAndFrames) {
    ConfigureRenderHost(RenderHostOptions{}, &source);
    prsdk::csSDK_uint32 id = 0;
    ASSERT_EQ(suite->MakeVideoRenderer(1, &id, kTicksPerSecond / 50), 0);
    const prsdk::PrPixelFormat f32 = prsdk::PrPixelFormat_BGRA_4444_32f;
    prsdk::SequenceRender_ParamsRec params{&f32, 1, 48, 32, 1, 1, 3, 0, 0, 0, 1};
    prsdk::SequenceRender_GetFrameReturnRec rec{};
    ASSERT_EQ(suite->RenderVideoFrame(id, 3 * (kTicksPerSecond / 50), &params, 0, &rec), 0);
    const prsdk::PPixHand frame = rec.outFrame; // by value: the record is packed
    ASSERT_NE(frame, nullptr);
    std::size_t size = 0;
    ASSERT_EQ(PPix2SuiteTable()->GetSize(frame, &size), 0);
    EXPECT_EQ(size, 48u * 32u * 16u);
    const prsdk::PPixSuite* ppix = PPixSuiteTable();
    EXPECT_EQ(ppix->Dispose(frame), 0);
    EXPECT_LT(ppix->Dispose(frame), 0) << "a frame is disposed of once";
    prsdk::PrPixelFormat format = 0;
    EXPECT_LT(ppix->GetPixelFormat(frame, &format), 0);
    EXPECT_EQ(FrameRegistry::Instance().BadDisposals(), 1u);
    params.inWidth = 0;
    EXPECT_LT(suite->QueueAsyncVideoFrameRender(id, 0, nullptr, &params, 0, nullptr), 0);
    EXPECT_LT(suite->QueueAsyncVideoFrameRender(id + 99, 0, nullptr, &params, 0, nullptr), 0);
    EXPECT_LT(suite->MakeVideoRenderer(1, &id, 0), 0);
    // Left made: the host reports it.
    const RenderHostReport report = RenderHostState();
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_EQ(report.problems[0], "video renderer " + std::to_string(id) + " not released");
}

} // namespace
} // namespace qvnhost

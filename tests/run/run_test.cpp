// One export run against a scripted host: frames written in order whatever order they complete in, the
// audio arithmetic, suspend, and each row of the failure table.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <string>

#include "exporter/codec_catalogue.h"
#include "platform/file.h"
#include "scripted_host.h"

namespace {

using QVN::FourCC;
using scripted::kTicksPerSecond;

constexpr prsdk::int32 kHostFailure = prsdk::suiteError_Fail;

class ExportRun : public testing::Test {
protected:
    void SetUp() override {
        script.codec = FourCC("UYVY");
        // Unique per process, so that runs side by side never share a file.
        script.path = std::string("qvn_run_") +
                      testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
                      std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".avi";
    }
    void TearDown() override { QVN::DeleteFileUtf8(script.path.c_str()); }
    bool FileExists() const {
        QVN::CFile f;
        return SUCCEEDED(f.OpenRead(script.path.c_str()));
    }
    scripted::Script script;
    scripted::Record record;
};

TEST_F(ExportRun, FramesCompletingLastFirstAreDeliveredInOrderWithOneProgressReportEach) {
    script.batch = 3; // renders complete 2, 1, 0, then 5, 4, 3, ...
    ASSERT_EQ(scripted::RunExport(script, 0, 10, true, false, &record), 0);
    ASSERT_EQ(record.requestedTimes.size(), 10u);
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_EQ(record.requestedTimes[i], static_cast<std::int64_t>(i) * script.ticksPerFrame);
    ASSERT_EQ(record.progress.size(), 10u) << "one report per delivered frame";
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_FLOAT_EQ(record.progress[i], static_cast<float>(i) / 10.0f) << "delivery order at " << i;
    EXPECT_EQ(record.videoRenderersMade, 1);
    EXPECT_EQ(record.videoRenderersReleased, 1);
    EXPECT_TRUE(record.outstandingSuites.empty()) << record.outstandingSuites.front();
    EXPECT_TRUE(FileExists());
}

TEST_F(ExportRun, ARangeShorterThanAChunkFromAnOffsetRequestsExactlyItsFrames) {
    ASSERT_EQ(scripted::RunExport(script, 100, 107, true, false, &record), 0);
    ASSERT_EQ(record.requestedTimes.size(), 7u);
    EXPECT_EQ(record.requestedTimes.front(), 100 * script.ticksPerFrame);
    EXPECT_EQ(record.requestedTimes.back(), 106 * script.ticksPerFrame);
    ASSERT_EQ(record.progress.size(), 7u);
    EXPECT_FLOAT_EQ(record.progress.back(), 6.0f / 7.0f);
}

TEST_F(ExportRun, AudioOfAChunkAddsUpExactlyInBlocksNoLargerThanTheHostsLargest) {
    // 48 kHz at 30000/1001: 30 frames carry 48048 sample frames, in blocks of at most 1000.
    script.ticksPerFrame = kTicksPerSecond / 30000 * 1001;
    script.maxBlip = 1000;
    ASSERT_EQ(scripted::RunExport(script, 0, 30, true, true, &record), 0);
    std::uint64_t total = 0;
    for (std::uint32_t b : record.audioBlocks) {
        EXPECT_LE(b, 1000u);
        total += b;
    }
    EXPECT_EQ(total, 48048u);
    EXPECT_EQ(record.audioRenderersMade, 1);
    EXPECT_EQ(record.audioRenderersReleased, 1);

    // Ten chunks of 30 frames at 44.1 kHz: the rounding carries, so the total is exact (441441 for 300).
    scripted::Record more;
    script.sampleRate = 44100.0;
    ASSERT_EQ(scripted::RunExport(script, 0, 300, false, true, &more), 0) << "audio only";
    std::uint64_t sum = 0;
    for (std::uint32_t b : more.audioBlocks)
        sum += b;
    EXPECT_EQ(sum, 441441u);
    EXPECT_TRUE(more.requestedTimes.empty()) << "an audio-only export requests no frames";
    EXPECT_EQ(more.videoRenderersMade, 1) << "but still makes the video renderer";
}

TEST_F(ExportRun, ASuspendedExportWaitsForResumeAndCarriesOn) {
    script.suspendAtReport = 2;
    ASSERT_EQ(scripted::RunExport(script, 0, 8, true, false, &record), 0);
    EXPECT_EQ(record.waitForResume.load(), 1);
    EXPECT_EQ(record.progress.size(), 8u);
}

TEST_F(ExportRun, EveryFailureEndsWithTheResultTheHostExpects) {
    {
        scripted::Record r;
        script.ticksPerFrame = static_cast<std::int64_t>(std::llround(kTicksPerSecond / 49.95));
        EXPECT_EQ(scripted::RunExport(script, 0, 10, true, false, &r), 3) << "49.95 fps has no AVI rate";
        EXPECT_EQ(r.videoRenderersMade, 0);
        EXPECT_FALSE(FileExists());
        script.ticksPerFrame = kTicksPerSecond / 25;
    }
    {
        scripted::Record r;
        script.codec = FourCC("MJPG");
        EXPECT_EQ(scripted::RunExport(script, 0, 10, true, false, &r), 99) << "no Motion JPEG encoder here";
        EXPECT_FALSE(FileExists());
        script.codec = FourCC("UYVY");
    }
    {
        scripted::Record r;
        script.refuseVideoRenderer = true;
        EXPECT_EQ(scripted::RunExport(script, 0, 10, true, false, &r), kHostFailure);
        script.refuseVideoRenderer = false;
    }
    {
        scripted::Record r;
        const std::string good = script.path;
        script.path = "no-such-folder-qvn/out.avi";
        EXPECT_EQ(scripted::RunExport(script, 0, 10, true, false, &r), 99) << "the file cannot be created";
        EXPECT_EQ(r.videoRenderersReleased, 0) << "a failed open leaves the renderers to the host";
        script.path = good;
    }
    {
        scripted::Record r;
        script.cancelAtReport = 3;
        EXPECT_EQ(scripted::RunExport(script, 0, 100, true, false, &r), prsdk::exportReturn_Abort);
        EXPECT_EQ(r.completed.load(), static_cast<int>(r.requestedTimes.size())) << "every request drained";
        EXPECT_LT(r.requestedTimes.size(), 100u) << "the run stopped asking";
        EXPECT_TRUE(FileExists()) << "the file is closed with what was written";
        script.cancelAtReport = -1;
    }
    {
        scripted::Record r;
        script.failFrame = 4;
        script.batch = 1; // in order, so no later report clears the abort word
        EXPECT_EQ(scripted::RunExport(script, 0, 60, true, false, &r), 3) << "a host render error";
        EXPECT_EQ(r.progress.size(), 4u) << "frames after the lost one are never delivered";
        EXPECT_EQ(r.completed.load(), static_cast<int>(r.requestedTimes.size()));
        script.failFrame = -1;
    }
    {
        // The last frame of a short range fails after the run has requested everything: the run must
        // close the file instead of waiting in Finish for a frame that cannot come.
        scripted::Record r;
        script.failFrame = 3;
        EXPECT_EQ(scripted::RunExport(script, 0, 4, true, false, &r), 3);
        EXPECT_EQ(r.progress.size(), 3u);
        script.failFrame = -1;
    }
    {
        scripted::Record r;
        script.deliveredFormat = FourCC("yuv2");
        EXPECT_EQ(scripted::RunExport(script, 0, 60, true, false, &r), 6) << "a frame in a foreign format";
        script.deliveredFormat = FourCC("Bgra");
        scripted::Record deep;
        EXPECT_EQ(scripted::RunExport(script, 0, 60, true, false, &deep), 3)
            << "16-bit frames cannot become UYVY";
        script.deliveredFormat = 0;
    }
}

TEST_F(ExportRun, ACancelAnsweredWhileTheRunDrainsFinishesTheFileWhenEveryFrameIsIn) {
    // Frames 0-2 complete at once, frame 3 only after the host has had no request for 30 ms: by then the
    // run has asked for everything and waits for it. Frame 3's progress report answers "cancel" too late.
    script.cancelAtReport = 3;
    EXPECT_EQ(scripted::RunExport(script, 0, 4, true, false, &record), 0) << "Finish's result";
    EXPECT_EQ(record.progress.size(), 4u);
    std::ifstream file(script.path, std::ios::binary);
    std::uint32_t frames = 0;
    file.seekg(48); // avih's total frames, which Finish and Close both patch
    file.read(reinterpret_cast<char*>(&frames), 4);
    EXPECT_EQ(frames, 4u);
}

TEST_F(ExportRun, TenBitCodecsAskForTheDeepestFormatFirst) {
    script.codec = FourCC("v210");
    script.width = 48;
    ASSERT_EQ(scripted::RunExport(script, 0, 5, true, false, &record), 0);
    EXPECT_EQ(record.progress.size(), 5u);
}

} // namespace

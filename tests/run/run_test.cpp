// One export run against a scripted host: frames written in order whatever order they complete in, suspend,
// and each row of the failure table.
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

TEST_F(ExportRun, FramesCompletingLastFirstAreDeliveredInOrderWithOneProgressReportEachThroughASuspend) {
    script.batch = 3; // renders complete 2, 1, 0, then 5, 4, 3, ...
    script.suspendAtReport = 2;
    ASSERT_EQ(scripted::RunExport(script, 0, 10, true, false, &record), 0);
    ASSERT_EQ(record.renders.size(), 10u);
    ASSERT_EQ(record.progress.size(), 10u) << "one report per delivered frame";
    for (std::size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(record.renders[i].time, static_cast<std::int64_t>(i) * script.ticksPerFrame);
        EXPECT_FLOAT_EQ(record.progress[i], static_cast<float>(i) / 10.0f) << "delivery order at " << i;
    }
    EXPECT_EQ(std::pair(record.videoRenderersMade, record.videoRenderersReleased), std::pair(1, 1));
    EXPECT_TRUE(record.outstandingSuites.empty()) << record.outstandingSuites.front();
    EXPECT_EQ(record.waitForResume.load(), 1);
    EXPECT_TRUE(FileExists());
}

// Each row of the failure table, as the host sees it: the result, and how far the run got.
TEST_F(ExportRun, EveryFailureEndsWithTheResultTheHostExpects) {
    using S = scripted::Script&;
    struct Case {
        const char* what;
        std::int32_t end;
        bool audio;
        prsdk::int32 result;
        int requested; // render requests the host granted; -1: fewer than the range (the run stopped asking)
        bool file;     // a closed file is left behind
        void (*script)(S);
    };
    const Case cases[] = {
        {"49.95 fps has no AVI rate", 10, false, 3, 0, false,
         [](S s) { s.ticksPerFrame = static_cast<std::int64_t>(std::llround(kTicksPerSecond / 49.95)); }},
        {"no Motion JPEG encoder here", 10, false, 99, 0, false, [](S s) { s.codec = FourCC("MJPG"); }},
        {"the video renderer refused", 10, false, kHostFailure, 0, false,
         [](S s) { s.refuseVideoRenderer = true; }},
        {"the audio renderer refused", 10, true, kHostFailure, 0, false,
         [](S s) { s.refuseAudioRenderer = true; }},
        {"the audio reset refused", 10, true, prsdk::suiteError_InvalidCall, 0, false,
         [](S s) { s.refuseAudioReset = true; }},
        {"the largest block refused", 10, true, prsdk::suiteError_NotImplemented, 0, false,
         [](S s) { s.refuseMaxBlip = true; }},
        {"the file cannot be created", 10, false, 99, 0, false,
         [](S s) { s.path = "no-such-folder-qvn/out.avi"; }},
        // Failures without an abort word end the run quietly: the host hears 0, the file is closed.
        {"a render request refused", 10, false, 0, 2, true, [](S s) { s.refuseRenderOf = 2; }},
        {"the host's audio failed", 60, true, 0, 25, true, [](S s) { s.failAudioCall = 1; }},
        // An unknown channel or sample type (the dialog's sample-type entries all carry "dvsd") is not a
        // failure of the set-up: the run asks for its first chunk, then has no audio to deliver.
        {"channel type 4", 60, true, 0, 25, true, [](S s) { s.channelType = 4; }},
        {"the dialog's sample type", 60, true, 0, 25, true,
         [](S s) { s.sampleType = static_cast<std::int32_t>(FourCC("dvsd")); }},
        {"a cancel", 100, false, prsdk::exportReturn_Abort, -1, true, [](S s) { s.cancelAtReport = 3; }},
        // In order, so that no later report clears the abort word.
        {"a host render error", 60, false, 3, -1, true, [](S s) { s.failFrame = 4, s.batch = 1; }},
        // The last frame fails after everything was requested: the run closes instead of waiting in Finish.
        {"the last frame lost", 4, false, 3, 4, true, [](S s) { s.failFrame = 3; }},
        // Frame 5 fails first in its batch (5, 4, 3); the reports of 3 and 4 answer 0 after it, which clears
        // the abort word, as the host intends: the run stops at the lost frame but returns 0.
        {"a render error overtaken by reports", 60, false, 0, -1, true,
         [](S s) { s.failFrame = 5, s.batch = 3; }},
        // Frames the codec cannot take (abort words 3 and 6): every pairing is in export_driver_tests.
    };
    const scripted::Script plain = script;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        script = plain;
        c.script(script);
        scripted::Record r;
        EXPECT_EQ(scripted::RunExport(script, 0, c.end, true, c.audio, &r), c.result);
        if (c.requested >= 0)
            EXPECT_EQ(static_cast<int>(r.renders.size()), c.requested);
        else
            EXPECT_LT(r.renders.size(), static_cast<std::size_t>(c.end));
        EXPECT_EQ(r.completed.load(), static_cast<int>(r.renders.size())) << "every request drained";
        EXPECT_EQ(FileExists(), c.file);
        EXPECT_EQ(r.videoRenderersReleased, c.file ? 1 : 0)
            << "a run that never opened leaves them to the host";
        EXPECT_EQ(r.audioRenderersReleased, c.file && c.audio ? 1 : 0);
        if (c.file)
            QVN::DeleteFileUtf8(script.path.c_str());
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

} // namespace

// Progress answers: go on, suspend once, abort from the cancel frame on (or after Ctrl-C), and the
// progress lines written when standard error is not a terminal.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "host/progress_suite.h"
#include "platform/console.h"
#include "platform/sleep.h"

namespace qvnhost {
namespace {

float FractionOf(std::int64_t frame, std::int64_t first, std::int64_t count) {
    return static_cast<float>(frame - first) / static_cast<float>(count);
}

TEST(ProgressSuite, SuspendsOnceAndCancelsFromTheChosenFrameOnOrAtCtrlC) {
    ProgressOptions o;
    o.firstFrame = 100;
    o.frameCount = 50;
    o.suspendAt = 105;
    o.cancelAt = 110;
    o.resumeAfterMs = 30;
    o.cancelOnInterrupt = false;
    ConfigureProgress(o);
    const prsdk::ExportProgressSuite* s = ExportProgressSuiteTable();
    for (std::int64_t n = 100; n < 120; ++n) {
        EXPECT_EQ(s->UpdateProgressPercent(1, FractionOf(n, 100, 50)),
                  n == 105   ? prsdk::suiteError_ExporterSuspended
                  : n >= 110 ? prsdk::exportReturn_Abort
                             : 0)
            << n;
    }
    const std::uint64_t start = QVN::MonotonicMs();
    EXPECT_EQ(s->WaitForResume(1), 0);
    EXPECT_GE(QVN::MonotonicMs() - start, 25u);
    const ProgressReport r = ProgressState();
    EXPECT_EQ(r.updates, 20u);
    EXPECT_EQ(r.suspendAnswers, 1u);
    EXPECT_EQ(r.abortAnswers, 10u);
    EXPECT_EQ(r.waits, 1u);
    EXPECT_EQ(r.cancelledAtFrame, 110);
    // Frames of a long export survive the trip through a float fraction.
    o = {};
    o.frameCount = 1'000'000;
    o.cancelAt = 999'999;
    o.cancelOnInterrupt = false;
    ConfigureProgress(o);
    EXPECT_EQ(s->UpdateProgressPercent(1, FractionOf(999'998, 0, 1'000'000)), 0);
    EXPECT_EQ(s->UpdateProgressPercent(1, FractionOf(999'999, 0, 1'000'000)), prsdk::exportReturn_Abort);
    // Ctrl-C cancels at the next report.
    o = {};
    o.frameCount = 10;
    ConfigureProgress(o);
    QVN::ResetInterrupt();
    EXPECT_EQ(s->UpdateProgressPercent(1, 0.0f), 0);
    QVN::RaiseInterrupt();
    EXPECT_TRUE(QVN::InterruptRequested());
    EXPECT_EQ(s->UpdateProgressPercent(1, 0.1f), prsdk::exportReturn_Abort);
    EXPECT_EQ(s->UpdateProgressPercentWithFrame(1, 0.2f, nullptr), prsdk::exportReturn_Abort);
    QVN::ResetInterrupt();
    EXPECT_FALSE(QVN::InterruptRequested());
}

TEST(ProgressSuite, WritesOneLinePerTenthWhenNotOnATerminal) {
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    ProgressOptions o;
    o.firstFrame = 30;
    o.frameCount = 25;
    o.display = ProgressDisplay::Lines;
    o.out = out;
    o.cancelOnInterrupt = false;
    ConfigureProgress(o);
    const prsdk::ExportProgressSuite* s = ExportProgressSuiteTable();
    const char16_t text[] = u"Writing QVN File";
    EXPECT_EQ(s->SetProgressString(1, reinterpret_cast<const prsdk::prUTF16Char*>(text)), 0);
    for (std::int64_t n = 30; n < 55; ++n)
        s->UpdateProgressPercent(1, FractionOf(n, 30, 25));
    std::rewind(out);
    std::string all;
    char line[256];
    while (std::fgets(line, sizeof line, out))
        all += line;
    std::fclose(out);
    std::string expected = "qvnhost: Writing QVN File\n";
    // 25 frames: 10% is reached at frame 3 of 25, 20% at 5, ... 100% at 25.
    const int frames[] = {3, 5, 8, 10, 13, 15, 18, 20, 23, 25};
    for (int tenth = 1; tenth <= 10; ++tenth) {
        char expect[64];
        std::snprintf(expect, sizeof expect, "qvnhost: %3d%% (%d of 25 frames)\n", tenth * 10,
                      frames[tenth - 1]);
        expected += expect;
    }
    EXPECT_EQ(all, expected);
    EXPECT_EQ(ProgressState().text, "Writing QVN File");
}

} // namespace
} // namespace qvnhost

// Progress answers: go on, suspend once, abort from the cancel frame on (or after Ctrl-C). The lines written
// when standard error is not a terminal are pinned through qvnhost export (qvnhost_export.exported).
#include <gtest/gtest.h>

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

} // namespace
} // namespace qvnhost

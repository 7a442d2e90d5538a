#include "host/progress_suite.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "host/param_store.h"
#include "platform/console.h"
#include "platform/sleep.h"
#include "platform/text_encoding.h"

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

constexpr int kBarWidth = 40;

struct Progress {
    std::mutex mutex;
    ProgressOptions options;
    ProgressReport report;
    bool cancelled = false;
    bool suspended = false;
    int shownPercent = -1; // the bar's last percentage, or the last tenth printed as a line
    bool barOpen = false;
};

Progress& TheProgress() {
    static Progress p;
    return p;
}

// With the lock held.
void Show(Progress& p, std::int64_t frame) {
    const ProgressOptions& o = p.options;
    if (o.display == ProgressDisplay::None || !o.out)
        return;
    // By frames delivered, so that the last frame shows 100%.
    const std::int64_t done = frame - o.firstFrame + 1;
    const int percent =
        o.frameCount > 0 ? static_cast<int>(std::clamp<std::int64_t>(done * 100 / o.frameCount, 0, 100)) : 0;
    if (o.display == ProgressDisplay::Lines) {
        const int tenth = percent / 10 * 10;
        if (tenth <= p.shownPercent || tenth == 0)
            return;
        p.shownPercent = tenth;
        std::fprintf(o.out, "qvnhost: %3d%% (%lld of %lld frames)\n", tenth, static_cast<long long>(done),
                     static_cast<long long>(o.frameCount));
        std::fflush(o.out);
        return;
    }
    if (percent == p.shownPercent)
        return;
    p.shownPercent = percent;
    const int filled = percent * kBarWidth / 100;
    std::fprintf(o.out, "\r%s [%.*s%*s] %3d%% %lld/%lld", p.report.text.c_str(), filled,
                 "########################################", kBarWidth - filled, "", percent,
                 static_cast<long long>(done), static_cast<long long>(o.frameCount));
    std::fflush(o.out);
    p.barOpen = true;
}

prSuiteError SetProgressString(prsdk::csSDK_uint32, const prsdk::prUTF16Char* text) {
    if (!text)
        return prsdk::suiteError_InvalidParms;
    Progress& p = TheProgress();
    std::lock_guard<std::mutex> hold(p.mutex);
    p.report.text = QVN::Utf16ToUtf8(HostString(text));
    if (p.options.display == ProgressDisplay::Lines && p.options.out) {
        std::fprintf(p.options.out, "qvnhost: %s\n", p.report.text.c_str());
        std::fflush(p.options.out);
    }
    return prsdk::suiteError_NoError;
}

prSuiteError UpdateProgressPercent(prsdk::csSDK_uint32, float fraction) {
    Progress& p = TheProgress();
    std::lock_guard<std::mutex> hold(p.mutex);
    const ProgressOptions& o = p.options;
    const std::int64_t frame =
        o.firstFrame + static_cast<std::int64_t>(
                           std::llround(static_cast<double>(fraction) * static_cast<double>(o.frameCount)));
    ++p.report.updates;
    p.report.lastFrame = frame;
    Show(p, frame);
    if (!p.cancelled &&
        ((o.cancelOnInterrupt && QVN::InterruptRequested()) || (o.cancelAt >= 0 && frame >= o.cancelAt))) {
        p.cancelled = true;
        p.report.cancelledAtFrame = frame;
    }
    // Once cancelled, every later report answers abort too, as the host's dialog stays cancelled.
    if (p.cancelled) {
        ++p.report.abortAnswers;
        return prsdk::exportReturn_Abort;
    }
    if (!p.suspended && o.suspendAt >= 0 && frame >= o.suspendAt) {
        p.suspended = true;
        ++p.report.suspendAnswers;
        return prsdk::suiteError_ExporterSuspended;
    }
    return prsdk::suiteError_NoError;
}

prSuiteError UpdateProgressPercentWithFrame(prsdk::csSDK_uint32 id, float fraction, prsdk::PPixHand) {
    return UpdateProgressPercent(id, fraction);
}

prSuiteError WaitForResume(prsdk::csSDK_uint32) {
    Progress& p = TheProgress();
    std::uint32_t pause;
    {
        std::lock_guard<std::mutex> hold(p.mutex);
        ++p.report.waits;
        pause = p.options.resumeAfterMs;
        if (p.options.display != ProgressDisplay::None && p.options.out) {
            std::fprintf(p.options.out, "%sqvnhost: export suspended at frame %lld; resuming\n",
                         p.barOpen ? "\n" : "", static_cast<long long>(p.report.lastFrame));
            p.barOpen = false;
            p.shownPercent = -1;
        }
    }
    QVN::SleepMs(pause);
    return prsdk::suiteError_NoError;
}

const prsdk::ExportProgressSuite kSuite = {SetProgressString, UpdateProgressPercent,
                                           UpdateProgressPercentWithFrame, WaitForResume};

} // namespace

void ConfigureProgress(const ProgressOptions& options) {
    Progress& p = TheProgress();
    std::lock_guard<std::mutex> hold(p.mutex);
    p.options = options;
    p.report = {};
    p.cancelled = false;
    p.suspended = false;
    p.shownPercent = -1;
    p.barOpen = false;
}

ProgressReport ProgressState() {
    Progress& p = TheProgress();
    std::lock_guard<std::mutex> hold(p.mutex);
    return p.report;
}

void FinishProgressDisplay() {
    Progress& p = TheProgress();
    std::lock_guard<std::mutex> hold(p.mutex);
    if (p.barOpen && p.options.out) {
        std::fputc('\n', p.options.out);
        std::fflush(p.options.out);
    }
    p.barOpen = false;
}

const prsdk::ExportProgressSuite* ExportProgressSuiteTable() {
    return &kSuite;
}

} // namespace qvnhost

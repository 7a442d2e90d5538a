// The process's file-size limit reached in the middle of an export: the writer thread ignores the failed
// writes, the producer never notices, Finish and Close return, and nothing leaks (checked by LSan in the
// sanitizer builds). Each case runs in a child process so that its limits stay there.
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "encoders/simple_avi_encoder.h"
#include "platform/sleep.h"
#include "riff_reader.h"
#include "test_files.h"

namespace {

// Runs body in a child; returns its exit code, or -1 when it crashed or did not end within the time.
int InChild(int (*body)(const std::filesystem::path&), const std::filesystem::path& path,
            std::uint64_t timeoutMs) {
    const pid_t child = fork();
    if (child == 0)
        std::exit(body(path)); // exit, not _exit: LeakSanitizer checks at exit
    const std::uint64_t start = QVN::MonotonicMs();
    for (;;) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (QVN::MonotonicMs() - start > timeoutMs) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        QVN::SleepMs(10);
    }
}

constexpr rlim_t kFileLimit = 8 * 1024 * 1024;

int ExportPastTheLimit(const std::filesystem::path& path) {
    std::signal(SIGXFSZ, SIG_IGN); // writes past the limit fail with EFBIG instead of killing us
    const rlimit limit{kFileLimit, kFileLimit};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
        return 10;
    avitest::ExportConfig c;
    c.width = 1920;
    c.height = 1080;
    c.frameBytes = avitest::FrameBytes("v210", 1920, 1080);
    c.frames = 12; // 66 MB of video against an 8 MB limit
    c.channels = 2;
    const avitest::ExportResult r = avitest::WriteExport(path, c);
    return r.status == 0 ? 0 : 11;
}

} // namespace

TEST(Faults, FileSizeLimitMidExportNeitherCrashesNorHangs) {
    avitest::TempDir dir("fsize");
    const auto path = dir / "limited.avi";
    EXPECT_EQ(InChild(&ExportPastTheLimit, path, 60000), 0);
    const std::uintmax_t size = std::filesystem::file_size(path);
    EXPECT_LE(size, kFileLimit);
    EXPECT_GT(size, 1024u * 1024u); // the frames before the limit are there
    const avitest::Bytes b = avitest::ReadAll(path);
    EXPECT_EQ(avitest::Tag(b, 0), "RIFF");
    EXPECT_EQ(avitest::Tag(b, 8), "AVI ");
    // The header patches at close lie inside the limit: the counters were written.
    EXPECT_EQ(avitest::U32(b, 48), 12u);
}

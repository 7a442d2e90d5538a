// Process limits in the middle of an export: the file-size limit reached while writing (the writer thread
// ignores the failed writes, the producer never notices, Finish and Close return), and the address space
// running out while Initialise commits its frame buffers. Nothing leaks (checked by LSan in the sanitizer
// builds). Each case runs in a child process so that its limits stay there.
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "encoders/simple_avi_encoder.h"
#include "test_files.h"

using namespace avitest;

namespace {

// Runs body in a child; returns its exit code, or -1 when it crashed or did not end within a minute.
int InChild(int (*body)(const std::filesystem::path&), const std::filesystem::path& path = {}) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);             // a hang ends the child by the signal
        std::exit(body(path)); // exit, not _exit: LeakSanitizer checks at exit
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr rlim_t kFileLimit = 8 * 1024 * 1024;

int ExportPastTheLimit(const std::filesystem::path& path) {
    std::signal(SIGXFSZ, SIG_IGN); // writes past the limit fail with EFBIG instead of killing us
    const rlimit limit{kFileLimit, kFileLimit};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
        return 10;
    // 66 MB of video against an 8 MB limit.
    return WriteExport(path, ExportConfig{"v210", 1920, 1080, 12, 2}).status == 0 ? 0 : 11;
}

// The process's mapped bytes now, from /proc.
rlim_t AddressSpaceInUse() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmSize:", 0) == 0)
            return static_cast<rlim_t>(std::stoull(line.substr(7))) * 1024;
    return 0;
}

// Exit codes: 0 as expected; 20 and up name the check that failed.
int InitialiseOutOfAddressSpace(const std::filesystem::path&) {
    constexpr std::uint32_t kBig = 64u << 20;
    CSimpleAviEncoder encoder(Fcc("v210"));
    const BITMAPINFOHEADER small = Video("v210", 16, 16, 512).bmiHeader;
    if (encoder.Initialise(nullptr, &small, 0, 25, 1, 1, 512, nullptr) != 0)
        return 20;
    encoder.SetAudioFormat(2, 48000, 16, 1);
    // Room for about four of the thirty buffers.
    const rlimit limit{AddressSpaceInUse() + 4 * kBig + kBig / 2, RLIM_INFINITY};
    if (limit.rlim_cur <= 4 * kBig || setrlimit(RLIMIT_AS, &limit) != 0)
        return 21;
    const BITMAPINFOHEADER big = Video("v210", 1920, 16, kBig).bmiHeader;
    if (encoder.Initialise(nullptr, &big, 0, 50, 1, 30, kBig, nullptr) != 0x80000002u)
        return 22;
    BufferList buffers;
    if (encoder.GetFreeBuffers(buffers) != 0)
        return 23;
    // The buffers committed before the failure stay with the encoder (and are released with it).
    if (buffers.size() < 2 || buffers.size() >= 31)
        return 24;
    std::memset(buffers.back(), 1, kBig);
    // Nothing else of the failed call took effect: the format and the rates are the earlier ones.
    if (encoder.VideoDescriptor().bmiHeader.biWidth != 16)
        return 25;
    if (encoder.AudioSamplesForFrames(25) != 48000)
        return 26;
    return 0;
}

} // namespace

TEST(Faults, InitialiseKeepsTheBuffersItCommittedBeforeTheAddressSpaceRanOut) {
    EXPECT_EQ(InChild(&InitialiseOutOfAddressSpace), 0);
}

TEST(Faults, FileSizeLimitMidExportNeitherCrashesNorHangs) {
    TempDir dir("fsize");
    const auto path = dir / "limited.avi";
    EXPECT_EQ(InChild(&ExportPastTheLimit, path), 0);
    const std::uintmax_t size = std::filesystem::file_size(path);
    EXPECT_LE(size, kFileLimit);
    EXPECT_GT(size, 1024u * 1024u); // the frames before the limit are there
    const Bytes b = ReadAll(path);
    EXPECT_EQ(Tag(b, 0), "RIFF");
    EXPECT_EQ(Tag(b, 8), "AVI ");
    // The header patches at close lie inside the limit: the counters were written.
    EXPECT_EQ(U32(b, 48), 12u);
}

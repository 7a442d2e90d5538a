// Every allocation of a short encoder session made to fail in turn, from the first to the last: the
// encoder answers out of memory and keeps its numbering whole (a retry fills the same place), the writer
// releases each payload exactly once, Finish never waits for an item that cannot come, and whatever file is
// left holds its frames and blocks in order. Runs where allocation failures can be injected (the
// AddressSanitizer tree), so a double release or a leak is reported too.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "encoders/simple_avi_encoder.h"
#include "platform/allocation_faults.h"
#include "platform/sleep.h"
#include "test_files.h"

namespace {

namespace Status = QVN::EncoderStatus;
namespace Faults = QVN::AllocationFaults;
using namespace avitest;

constexpr std::uint32_t kFrameBytes = 2 * 4096 + 100; // whole blocks and a tail
constexpr std::uint32_t kBlockBytes = 1920 * 4;
constexpr std::uint32_t kFrames = 6;

// While a session runs: the allocation failing, and when the session started. One that takes longer than any
// healthy one could aborts the process, so that a hang cannot pass silently.
std::atomic<std::uint64_t> gFailing{0}, gSince{0};
void StartWatchdog() {
    std::thread([] {
        for (;; QVN::SleepMs(10)) {
            const std::uint64_t since = gSince.load();
            if (since != 0 && QVN::MonotonicMs() - since > 30000) {
                std::fprintf(stderr, "hang with allocation %llu failing\n",
                             static_cast<unsigned long long>(gFailing.load()));
                std::abort();
            }
        }
    }).detach();
}

// Retries an operation once when it ran out of memory: only one allocation fails per session.
template <class Op> std::uint32_t Retried(Op op) {
    const std::uint32_t first = op();
    return first == Status::kOutOfMemory ? op() : first;
}

struct Outcome {
    bool opened = false;
    std::uint32_t finish = 0;
};

// One session; the payloads carry (stream, number) in their first bytes. Nothing here allocates but the
// encoder, so every allocation counted is one of its own.
Outcome Session(const std::filesystem::path& path, const std::wstring& wide) {
    Outcome outcome;
    std::optional<CSimpleAviEncoder> encoder;
    try {
        encoder.emplace(Fcc("UYVY"));
    } catch (const std::bad_alloc&) { // the host's export fails with an internal error
        return outcome;
    }
    const BITMAPINFOHEADER bmi = Video("UYVY", 64, 64, kFrameBytes).bmiHeader;
    const std::uint32_t initialised = encoder->Initialise(nullptr, &bmi, 0, 25, 1, 4, kFrameBytes, nullptr);
    BufferList buffers;
    const std::uint32_t listed = initialised == 0 ? encoder->GetFreeBuffers(buffers) : initialised;
    if (listed != 0) {
        EXPECT_EQ(listed, Status::kOutOfMemory);
        return outcome;
    }
    encoder->SetAudioFormat(2, 48000, 16, 1);
    const std::uint32_t opened = encoder->Open(1, 1, kFrames, wide.c_str());
    if (opened != 0) {
        EXPECT_TRUE(opened == Status::kFailed || opened == Status::kOutOfMemory) << opened;
        EXPECT_FALSE(std::filesystem::exists(path)) << "a failed open leaves no half-written file";
        return outcome;
    }
    outcome.opened = true;
    static std::uint32_t block[kBlockBytes / 4];
    for (std::uint32_t i = 1; i <= kFrames; ++i) {
        auto* frame = static_cast<std::uint32_t*>(buffers[i % buffers.size()]);
        frame[0] = 0;
        frame[1] = i;
        block[0] = 1;
        block[1] = i;
        // Refused only once the writer reports a lost item, after which it drops everything.
        const std::uint32_t video = Retried([&] { return encoder->WriteVideo(frame, kFrameBytes); });
        EXPECT_TRUE(video == 0 || (video == Status::kOutOfMemory && encoder->File().LostItems())) << i;
        const std::uint32_t audio =
            Retried([&] { return encoder->WriteAudio(reinterpret_cast<std::uint8_t*>(block), kBlockBytes); });
        EXPECT_TRUE(audio == 0 || (audio == Status::kOutOfMemory && encoder->File().LostItems())) << i;
    }
    outcome.finish = encoder->Finish();
    return outcome;
}

TEST(AviEncoderAllocationFailure, EveryAllocationFailingInTurnEndsCleanly) {
    TempDir dir("alloc");
    StartWatchdog();
    std::uint64_t total = 0;
    for (std::uint64_t n = 1;; ++n) {
        const auto path = dir / ("n" + std::to_string(n) + ".avi");
        const std::wstring wide = path.wstring();
        gFailing = n;
        gSince = QVN::MonotonicMs();
        Faults::Arm(n);
        const Outcome outcome = Session(path, wide);
        const std::uint64_t counted = Faults::Disarm();
        gSince = 0;
        SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(counted) + " failing");
        if (n > counted) { // nothing failed: the reference session
            EXPECT_EQ(outcome.finish, 0u);
            total = counted;
            break;
        }
        if (!outcome.opened)
            continue;
        // Finish either saw every item written, or says that the writer had to drop one.
        ASSERT_TRUE(outcome.finish == 0 || outcome.finish == Status::kOutOfMemory) << outcome.finish;
        const Bytes b = ReadAll(path);
        std::uint32_t next[2] = {1, 1};
        for (const Chunk& c : MoviChunks(b)) {
            if (c.id != "00db" && c.id != "01wb")
                continue;
            const std::uint32_t stream = c.id == "00db" ? 0 : 1;
            ASSERT_EQ(U32(b, c.position + 8), stream) << "a payload of the other stream";
            ASSERT_EQ(U32(b, c.position + 12), next[stream]++) << "stream " << stream << " out of order";
        }
        if (outcome.finish == 0) {
            EXPECT_EQ(next[0], kFrames + 1) << "a session that finished holds every frame";
            EXPECT_EQ(next[1], kFrames + 1) << "and every block";
        }
        EXPECT_EQ(U32(b, 48), next[0] - 1) << "avih counts the frames written";
    }
    EXPECT_GT(total, 20u) << "the session allocates; the failure injection must have seen it";
}

} // namespace

// r210::Init when the process heap refuses a table, and its one-time build under concurrent first use.
// Its own program: it replaces the table allocator, so no other test may have built the tables first.
#include "converter/converter.h"
#include "converter/lookup_tables.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace detail = QVN::Converter::Video::detail;

// A bump allocator over a static arena: tables forgotten by the hook are not leaks, and every request
// is recorded. The n-th request (1-based) fails when `failAt` is n.
alignas(64) unsigned char gArena[1 << 20];
std::atomic<std::size_t> gUsed{0};
std::atomic<int> gCalls{0};
std::atomic<int> gFailAt{0};
std::vector<std::size_t> gSizes;

void* ArenaAllocate(std::size_t bytes) {
    const int call = ++gCalls;
    gSizes.push_back(bytes);
    if (call == gFailAt)
        return nullptr;
    const std::size_t at = gUsed.fetch_add((bytes + 63) / 64 * 64);
    return at + bytes <= sizeof gArena ? gArena + at : nullptr;
}

void UseArena(int failAt) {
    gCalls = 0;
    gFailAt = failAt;
    gSizes.clear();
    detail::SetTableAllocatorForTesting(ArenaAllocate);
}

struct Outcome {
    std::int32_t result;
    std::string messages;
    bool destinationUntouched;
};

Outcome ConvertOnePixel() {
    alignas(16) unsigned char src[32] = {10, 20, 30, 0};
    alignas(16) unsigned char dst[32];
    std::memset(dst, 0xA5, sizeof dst);
    ::testing::internal::CaptureStderr();
    const std::int32_t result =
        cv::r210::CreateFrom(src, 32, cv::kPixelFormatBgra8u, dst, 32, 1, 1, 0, cv::kPathAuto);
    Outcome o{result, ::testing::internal::GetCapturedStderr(), true};
    for (unsigned char b : dst)
        o.destinationUntouched = o.destinationUntouched && b == 0xA5;
    return o;
}

TEST(TableAllocation, EachFailureIsReportedAndALaterCallBuildsAllFourAgain) {
    UseArena(0);
    EXPECT_EQ(cv::r210::Init(0x30313276), 0); // "v210" and "v211" need no tables
    EXPECT_EQ(cv::r210::Init(0x31313276), 0);
    EXPECT_EQ(gCalls, 0);
    EXPECT_EQ(detail::R210Lut(), nullptr);
    const char* tables[] = {"sR210LUT", "s8uComponentLUT", "s16uComponentLUT", "s32fComponentLUT"};
    for (int failAt = 1; failAt <= 4; ++failAt) {
        SCOPED_TRACE(tables[failAt - 1]);
        UseArena(failAt);
        const Outcome failed = ConvertOnePixel();
        EXPECT_EQ(failed.result, 12);
        EXPECT_EQ(failed.messages, "*** QVN::Converter::Video::r210::Init[" +
                                       std::to_string(345 + 4 * failAt) + "]: " + tables[failAt - 1] +
                                       " allocation failed\n"
                                       "*** QVN::Converter::Video::r210::CreateFrom[207]: Init failed\n");
        EXPECT_TRUE(failed.destinationUntouched);
        EXPECT_EQ(gCalls, failAt) << "allocation stops at the first failure";
        // Tables obtained before the failure are kept.
        EXPECT_EQ(detail::R210Lut() != nullptr, failAt > 1);
        EXPECT_EQ(detail::Component8uLut() != nullptr, failAt > 2);
        EXPECT_EQ(detail::Component16uLut() != nullptr, failAt > 3);
        EXPECT_EQ(detail::Component32fLut(), nullptr);
        gFailAt = 0;
        const Outcome retried = ConvertOnePixel();
        EXPECT_EQ(retried.result, 0);
        EXPECT_EQ(retried.messages, "");
        EXPECT_FALSE(retried.destinationUntouched);
        EXPECT_EQ(gCalls, failAt + 4) << "the retry allocates all four tables again";
        EXPECT_EQ(std::vector<std::size_t>(gSizes.end() - 4, gSizes.end()),
                  (std::vector<std::size_t>{65538, 1024, 2048, 4096}));
        EXPECT_EQ(detail::R210Lut()[32768], 940);
    }
    detail::SetTableAllocatorForTesting(nullptr);
}

// The first allocation waits until a second thread is inside Init too: without the one-time guard that
// thread allocates while the first is still building (every time, not by chance); with it, it waits for the
// built tables.
std::atomic<int> gInside{0};
std::atomic<int> gConcurrentAllocations{0};

void* SlowArenaAllocate(std::size_t bytes) {
    if (gInside.fetch_add(1) > 0)
        ++gConcurrentAllocations;
    if (gCalls == 0) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        while (gConcurrentAllocations == 0 && std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
    }
    void* p = ArenaAllocate(bytes);
    --gInside;
    return p;
}

TEST(TableAllocation, ConcurrentFirstCallsBuildTheTablesOnce) {
    UseArena(0);
    detail::SetTableAllocatorForTesting(SlowArenaAllocate);
    std::atomic<int> started{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            ++started;
            while (started < 4) {
            }
            failures += cv::r210::Init(cv::kPixelFormatBgra32f) != 0;
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(gConcurrentAllocations, 0);
    EXPECT_EQ(gCalls, 4);
    EXPECT_EQ(detail::R210Lut()[16384], 502);
    detail::SetTableAllocatorForTesting(nullptr);
}

} // namespace
} // namespace qvn_test

// The worker queue and the writer thread: bounds, ordering per stream, stop markers and shutdown.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "encoders/active_avi_file.h"
#include "encoders/aligned_buffer_pool.h"
#include "encoders/task.h"
#include "platform/sleep.h"
#include "test_files.h"

namespace {

// Counts the items it serves; an item of -1 ends a worker.
class CountingTask : public QVN::CTask<int, QVN::CNullDestroyer, QVN::CW32CriticalSection> {
public:
    std::uint32_t ItemLoop() override {
        for (;;) {
            const int item = Pop();
            if (item < 0)
                return 0;
            sum += item;
            served += 1;
        }
    }
    std::atomic<long long> sum{0};
    std::atomic<int> served{0};
};

// One end marker per worker, then the workers' end.
void Stop(CountingTask& task, int workers) {
    for (int i = 0; i < workers; ++i)
        while (!task.Push(-1))
            QVN::SleepMs(1);
    task.Join();
}

void WaitFor(const std::function<bool()>& condition) {
    const std::uint64_t start = QVN::MonotonicMs();
    while (!condition()) {
        ASSERT_LT(QVN::MonotonicMs() - start, 20000u) << "condition never became true";
        QVN::SleepMs(1);
    }
}

// Payloads carry their stream and sequence number so the file shows the order they were written in.
WriteFrame* Item(AlignedBufferPool& pool, std::uint32_t stream, std::uint32_t sequence) {
    const std::uint32_t size = stream == 0 ? 512 : 64;
    auto* payload = static_cast<std::uint32_t*>(pool.Allocate(size));
    payload[0] = stream;
    payload[1] = sequence;
    return new WriteFrame{stream, sequence, payload, size, &pool};
}

// (stream, sequence) of every payload chunk in the movi list, in file order.
std::vector<std::pair<std::uint32_t, std::uint32_t>> WrittenOrder(const avitest::Bytes& b) {
    std::uint64_t at = 12;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> order;
    at = 12 + 8 + avitest::U32(b, 16); // after the header list
    const std::uint64_t end = at + 8 + avitest::U32(b, at + 4);
    for (const avitest::Chunk& c : avitest::Walk(b, at + 12, end))
        if (c.id == "00db" || c.id == "01wb")
            order.emplace_back(avitest::U32(b, c.position + 8), avitest::U32(b, c.position + 12));
    return order;
}

} // namespace

TEST(Task, QueueStopsOneAboveItsBoundAndDrainsOnStart) {
    CountingTask task;
    EXPECT_EQ(task.Bound(), 50u);
    int pushed = 0;
    while (task.Push(1))
        ++pushed;
    EXPECT_EQ(pushed, 51);
    EXPECT_EQ(task.Count(), 51u);
    ASSERT_TRUE(task.Start(2));
    ASSERT_TRUE(task.Start(5)); // already running: no more threads
    EXPECT_EQ(task.ThreadCount(), 2u);
    WaitFor([&] { return task.served.load() == 51; });
    Stop(task, 2);
    EXPECT_EQ(task.ThreadCount(), 0u);
    EXPECT_EQ(task.sum.load(), 51);
}

TEST(Task, ManyProducersAndWorkersServeEveryItemOnce) {
    CountingTask task;
    ASSERT_TRUE(task.Start(3));
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&task, p] {
            for (int i = 1; i <= 2000; ++i)
                while (!task.Push(p * 10000 + i))
                    std::this_thread::yield();
        });
    }
    for (std::thread& t : producers)
        t.join();
    Stop(task, 3);
    long long expected = 0;
    for (int p = 0; p < 4; ++p)
        for (int i = 1; i <= 2000; ++i)
            expected += p * 10000 + i;
    EXPECT_EQ(task.served.load(), 8000);
    EXPECT_EQ(task.sum.load(), expected);
}

TEST(ActiveAviFile, ItemsAheadOfTheirTurnWaitForTheMissingOne) {
    avitest::TempDir dir("order");
    AlignedBufferPool pool;
    VideoStreamInfo video(avitest::Video("UYVY", 16, 16, 512));
    CActiveAviFile file;
    ASSERT_EQ(file.Open((dir / "order.avi").string().c_str(), {&video}), S_OK);
    ASSERT_TRUE(file.Start(1));
    ASSERT_TRUE(file.Push(Item(pool, 0, 2)));
    ASSERT_TRUE(file.Push(Item(pool, 0, 3)));
    WaitFor([&] { return file.HeldCount() == 2; });
    EXPECT_EQ(file.LastWritten(0), 0u);
    ASSERT_TRUE(file.Push(Item(pool, 0, 1)));
    WaitFor([&] { return file.LastWritten(0) == 3; });
    EXPECT_EQ(file.HeldCount(), 0u);
    // 5 arrives without 4: held, then dropped at shutdown with the file closed on what was written.
    ASSERT_TRUE(file.Push(Item(pool, 0, 5)));
    WaitFor([&] { return file.HeldCount() == 1; });
    EXPECT_EQ(file.Shutdown(), S_OK);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.ThreadCount(), 0u);
    EXPECT_EQ(file.LastWritten(0), 0u);
    const auto order = WrittenOrder(avitest::ReadAll(dir / "order.avi"));
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> expected = {{0, 1}, {0, 2}, {0, 3}};
    EXPECT_EQ(order, expected);
    // Every payload went back to the pool, the dropped one included: at most three were out at once
    // (2, 3 and 1), and the fourth reused one of them.
    EXPECT_EQ(pool.CachedBlocks(AlignedBufferPool::ClassSize(512)), 3u);
}

TEST(ActiveAviFile, StreamsInterleaveAndEachKeepsItsOrder) {
    avitest::TempDir dir("interleave");
    AlignedBufferPool pool;
    VideoStreamInfo video(avitest::Video("UYVY", 16, 16, 512));
    const WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
    AudioStreamInfo audio(&pcm);
    CActiveAviFile file;
    constexpr std::uint32_t kVideo = 300, kAudio = 400;
    for (int round = 0; round < 2; ++round) { // sequence numbers start again after a shutdown
        const auto path = dir / ("interleave" + std::to_string(round) + ".avi");
        ASSERT_EQ(file.Open(path.string().c_str(), {&video, &audio}), S_OK);
        ASSERT_TRUE(file.Start(1));
        auto produce = [&](std::uint32_t stream, std::uint32_t count, unsigned seed) {
            // Shuffled in windows of 8, as frames from several render threads arrive.
            std::vector<std::uint32_t> sequence(count);
            std::iota(sequence.begin(), sequence.end(), 1u);
            std::mt19937 random(seed);
            for (std::uint32_t at = 0; at < count; at += 8)
                std::shuffle(sequence.begin() + at, sequence.begin() + std::min(count, at + 8), random);
            for (std::uint32_t n : sequence) {
                WriteFrame* item = Item(pool, stream, n);
                while (!file.Push(item))
                    QVN::SleepMs(1);
            }
        };
        std::thread videoProducer(produce, 0, kVideo, 1 + round);
        std::thread audioProducer(produce, 1, kAudio, 7 + round);
        videoProducer.join();
        audioProducer.join();
        // The stop marker lands behind everything queued: all of it reaches the file.
        EXPECT_EQ(file.Shutdown(), S_OK);
        const auto order = WrittenOrder(avitest::ReadAll(path));
        ASSERT_EQ(order.size(), kVideo + kAudio);
        std::uint32_t next[2] = {1, 1};
        for (const auto& [stream, sequence] : order) {
            ASSERT_LT(stream, 2u);
            EXPECT_EQ(sequence, next[stream]++) << "stream " << stream;
        }
        const avitest::Bytes b = avitest::ReadAll(path);
        EXPECT_EQ(avitest::U32(b, 48), kVideo);
    }
}

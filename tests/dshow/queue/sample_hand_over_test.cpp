// The producer/streaming-thread hand-over of the encoder allocator: its blocking rules, the end of stream,
// the reclaim of released buffers, and thousands of frames under random delays on both sides.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <vector>

#include "dshow/sample_hand_over.h"
#include "platform/thread.h"

namespace {

struct Sample {
    void* buffer = nullptr;
};

struct Access {
    static void* Buffer(Sample* s) { return s->buffer; }
    static void Detach(Sample* s) { s->buffer = nullptr; }
};

// An allocator's state around the queue, with count samples on its free list.
struct Allocator {
    explicit Allocator(std::size_t count) : samples(count) {
        EXPECT_TRUE(queue.IsValid());
        EXPECT_EQ(queue.Reset(count, false), S_OK);
        for (Sample& s : samples)
            EXPECT_EQ(queue.AddFree(&s), S_OK);
    }
    // Takes a free sample for buffer and queues it.
    Sample* Push(void* buffer) {
        Sample* s = nullptr;
        EXPECT_EQ(queue.TakeFree(&s), S_OK);
        s->buffer = buffer;
        EXPECT_EQ(queue.Queue(s), S_OK);
        return s;
    }
    QVN::CW32CriticalSection lock;
    BOOL committed = 1;
    LONG waiting = 0;
    QVN::CSampleHandOver<Sample, Access> queue{{lock, committed, waiting}};
    std::vector<Sample> samples;
    // For a thread blocked in TakeFree.
    std::atomic<bool> done{false};
    Sample* got = nullptr;
};

TEST(SampleHandOver, BlocksAtTheSampleCountAndReclaimsEachReleasedBufferOnce) {
    Allocator a(4);
    Sample* out[4];
    char buffers[4];
    for (int i = 0; i < 4; ++i)
        out[i] = a.Push(&buffers[i]);
    Sample* taken = nullptr;
    for (Sample* s : out) {
        ASSERT_EQ(a.queue.Take(&taken, 0), S_OK);
        EXPECT_EQ(taken, s) << "delivery keeps the producer's order";
    }
    EXPECT_EQ(a.queue.Take(&taken, QVN::kGetBufferNoWait), QVN::kVfwTimeout) << "an empty queue, no wait";
    // Downstream holds all four: the fifth take waits until one comes back.
    QVN::CThread t;
    ASSERT_TRUE(t.Start(
        [](void* raw) -> std::uint32_t {
            auto* x = static_cast<Allocator*>(raw);
            EXPECT_EQ(x->queue.TakeFree(&x->got), S_OK);
            x->done = true;
            return 0;
        },
        &a));
    QVN::SleepMs(50);
    EXPECT_FALSE(a.done) << "the fifth take must block while downstream holds every sample";
    a.queue.Release(out[2]);
    t.Join();
    EXPECT_TRUE(a.done);
    EXPECT_EQ(a.got, out[2]);
    EXPECT_EQ(out[2]->buffer, nullptr) << "a released sample is detached from its buffer";
    a.queue.Release(out[0]);
    a.queue.Release(out[0]); // the same buffer-less sample back again adds nothing
    std::vector<void*> reclaimed;
    ASSERT_EQ(a.queue.Reclaim(reclaimed), S_OK);
    EXPECT_EQ(reclaimed, (std::vector<void*>{&buffers[2], &buffers[0]}));
    ASSERT_EQ(a.queue.Reclaim(reclaimed), S_OK);
    EXPECT_EQ(reclaimed.size(), 2u) << "a second reclaim yields nothing new";
    a.committed = 0;
    EXPECT_EQ(a.queue.TakeFree(&taken), QVN::kVfwNotCommitted);
    EXPECT_EQ(a.queue.Take(&taken, 0), QVN::kVfwNotCommitted);
}

TEST(SampleHandOver, EndOfStreamDeliversWhatIsQueuedThenOneEmptySample) {
    Allocator a(3);
    char data[2];
    for (char& d : data)
        a.Push(&d);
    a.queue.SignalEnd();
    Sample* s = nullptr;
    for (char& d : data) {
        ASSERT_EQ(a.queue.Take(&s, 0), S_OK);
        EXPECT_EQ(s->buffer, &d);
        EXPECT_FALSE(a.queue.EndReached()) << "samples still queued: the end is not reached";
    }
    ASSERT_EQ(a.queue.Take(&s, 0), S_OK);
    EXPECT_EQ(s->buffer, nullptr) << "after the end, the streaming thread gets an empty free sample";
    EXPECT_TRUE(a.queue.EndReached());
}

// The streaming thread as in an export: downstream holds samples for random times and releases them out of
// order.
struct Export {
    Allocator a;
    unsigned seed;
    std::vector<int> seen;
};

std::uint32_t Streaming(void* raw) {
    auto* r = static_cast<Export*>(raw);
    std::mt19937 rng(r->seed + 1);
    std::vector<Sample*> held;
    for (;;) {
        Sample* s = nullptr;
        if (r->a.queue.Take(&s, 0) != S_OK)
            return 1;
        if (s->buffer == nullptr) {
            r->a.queue.Release(s);
            break;
        }
        r->seen.push_back(*static_cast<int*>(s->buffer));
        held.push_back(s);
        // Downstream keeps all but one of the samples at most (holding every one would starve it of data)
        // and lets them go in any order.
        while (!held.empty() && (held.size() >= r->a.samples.size() || rng() % 3 == 0)) {
            const std::size_t i = rng() % held.size();
            if (rng() % 8 == 0)
                QVN::SleepMs(1);
            r->a.queue.Release(held[i]);
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    for (Sample* s : held)
        r->a.queue.Release(s);
    return 0;
}

// The producer renders into its own pool of buffers, a few more than there are samples, and reclaims them.
TEST(SampleHandOver, ThousandsOfFramesUnderRandomDelaysArriveInOrderEachOnce) {
    constexpr int kFrames = 3000;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        const std::size_t samples = 2 + seed % 4;
        Export r{Allocator(samples), seed, {}};
        std::vector<int> pool(samples + 2);
        std::vector<void*> free;
        for (int& b : pool)
            free.push_back(&b);
        QVN::CThread streaming;
        ASSERT_TRUE(streaming.Start(Streaming, &r));
        std::mt19937 rng(seed);
        for (int frame = 0; frame < kFrames; ++frame) {
            while (free.empty()) {
                ASSERT_EQ(r.a.queue.Reclaim(free), S_OK);
                QVN::SleepMs(0);
            }
            *static_cast<int*>(free.back()) = frame;
            r.a.Push(free.back());
            free.pop_back();
            if (rng() % 64 == 0)
                QVN::SleepMs(1);
        }
        r.a.queue.SignalEnd();
        EXPECT_EQ(streaming.Join(), 0u);
        ASSERT_EQ(r.seen.size(), static_cast<std::size_t>(kFrames));
        for (int i = 0; i < kFrames; ++i)
            ASSERT_EQ(r.seen[static_cast<std::size_t>(i)], i);
        ASSERT_EQ(r.a.queue.Reclaim(free), S_OK);
        EXPECT_EQ(free.size(), pool.size()) << "every buffer came back to the producer";
        EXPECT_EQ(r.a.queue.FreeCount(), samples) << "every sample came back";
    }
}

} // namespace

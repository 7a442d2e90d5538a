// The synchronisation primitives where they can go wrong: wake-one events, semaphore counts under
// contention, recursive locking, thread exit codes.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "platform/critical_section.h"
#include "platform/event.h"
#include "platform/interlocked.h"
#include "platform/semaphore.h"
#include "platform/sleep.h"
#include "platform/thread.h"

namespace {

struct EventWaiters {
    QVN::CAutoResetEvent event;
    std::atomic<int> woken{0};
};

std::uint32_t WaitOnce(void* raw) {
    auto* w = static_cast<EventWaiters*>(raw);
    if (w->event.Wait(3000))
        w->woken.fetch_add(1);
    return 0;
}

TEST(AutoResetEvent, EachSetReleasesExactlyOneWaiterAndSignalsDoNotAccumulate) {
    QVN::CAutoResetEvent event;
    ASSERT_TRUE(event.IsValid());
    EXPECT_FALSE(event.Wait(0)) << "a new event starts unsignalled";
    event.Set();
    event.Set(); // a second Set before anybody waited is the same single signal
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0)) << "the wait consumed the signal (auto-reset)";
    EventWaiters waiters;
    QVN::CThread a, b;
    ASSERT_TRUE(a.Start(WaitOnce, &waiters));
    ASSERT_TRUE(b.Start(WaitOnce, &waiters));
    QVN::SleepMs(100); // both are waiting now, or will find the signal when they start
    waiters.event.Set();
    QVN::SleepMs(300);
    EXPECT_EQ(waiters.woken.load(), 1) << "one Set must wake one waiter, not both";
    waiters.event.Set();
    a.Join();
    b.Join();
    EXPECT_EQ(waiters.woken.load(), 2);
}

TEST(Timing, TimedWaitsAndSleepsLastAtLeastTheTimeAsked) {
    QVN::CAutoResetEvent event;
    auto start = QVN::MonotonicMs();
    EXPECT_FALSE(event.Wait(50));
    EXPECT_GE(QVN::MonotonicMs() - start, 40u) << "a time-out must not return early";
    start = QVN::MonotonicMs();
    QVN::SleepMs(30);
    EXPECT_GE(QVN::MonotonicMs() - start, 29u);
}

struct SemaphoreRun {
    QVN::CSemaphore semaphore{0, 1000000};
    std::atomic<int> taken{0};
    int perConsumer = 0;
};

std::uint32_t Produce(void* raw) {
    auto* run = static_cast<SemaphoreRun*>(raw);
    for (int i = 0; i < 500; ++i)
        run->semaphore.Release(i % 2 == 0 ? 1 : 3);
    return 0;
}

std::uint32_t Consume(void* raw) {
    auto* run = static_cast<SemaphoreRun*>(raw);
    for (int i = 0; i < run->perConsumer; ++i)
        if (run->semaphore.Wait(10000))
            run->taken.fetch_add(1);
    return 0;
}

TEST(Semaphore, CountsAreExactUnderContentionAndTheMaximumHolds) {
    SemaphoreRun run;
    // 4 producers x 500 releases of 1 or 3 units = 4 x 1000 units; 4 consumers take 1000 each.
    run.perConsumer = 1000;
    std::vector<QVN::CThread> threads(8);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(threads[i].Start(Consume, &run));
    for (int i = 4; i < 8; ++i)
        ASSERT_TRUE(threads[i].Start(Produce, &run));
    for (auto& t : threads)
        t.Join();
    EXPECT_EQ(run.taken.load(), 4000);
    EXPECT_FALSE(run.semaphore.Wait(0)) << "no unit may be left over or lost";
    QVN::CSemaphore bounded(1, 2);
    std::int32_t previous = -1;
    EXPECT_TRUE(bounded.Release(1, &previous));
    EXPECT_EQ(previous, 1);
    EXPECT_FALSE(bounded.Release(1)) << "releasing past the maximum must fail";
    EXPECT_TRUE(bounded.Wait(0));
    EXPECT_TRUE(bounded.Wait(0));
    EXPECT_FALSE(bounded.Wait(0)) << "the failed release must not have added a unit";
}

struct LockProbe {
    QVN::CW32CriticalSection lock;
    bool otherGotIt = true;
};

std::uint32_t TryFromOtherThread(void* raw) {
    auto* probe = static_cast<LockProbe*>(raw);
    probe->otherGotIt = probe->lock.TryLock();
    if (probe->otherGotIt)
        probe->lock.Unlock();
    return 0;
}

TEST(CriticalSection, IsRecursiveAndHeldUntilEveryEntryIsLeft) {
    LockProbe probe;
    probe.lock.Lock();
    probe.lock.Lock(); // the owner may enter again
    probe.lock.Unlock();
    {
        QVN::CThread other;
        ASSERT_TRUE(other.Start(TryFromOtherThread, &probe));
        other.Join();
    }
    EXPECT_FALSE(probe.otherGotIt) << "one Unlock of two entries must keep the lock held";
    probe.lock.Unlock();
    QVN::CThread other;
    ASSERT_TRUE(other.Start(TryFromOtherThread, &probe));
    other.Join();
    EXPECT_TRUE(probe.otherGotIt);
}

struct Counter {
    volatile std::int32_t value = 0;
    QVN::CW32CriticalSection lock;
    std::int64_t guarded = 0;
};

std::uint32_t Bump(void* raw) {
    auto* c = static_cast<Counter*>(raw);
    for (int i = 0; i < 20000; ++i) {
        QVN::InterlockedInc(&c->value);
        QVN::CAutoLock<QVN::CW32CriticalSection> hold(c->lock);
        c->guarded += 1;
    }
    for (int i = 0; i < 5000; ++i)
        QVN::InterlockedDec(&c->value);
    return 7;
}

TEST(Threads, JoinReturnsTheExitCodeAndCountersSurviveContention) {
    Counter counter;
    std::vector<QVN::CThread> threads(4);
    for (auto& t : threads)
        ASSERT_TRUE(t.Start(Bump, &counter));
    for (auto& t : threads)
        EXPECT_EQ(t.Join(), 7u);
    EXPECT_EQ(QVN::InterlockedRead(&counter.value), 4 * 15000);
    EXPECT_EQ(counter.guarded, 4 * 20000);
    QVN::CThread never;
    EXPECT_EQ(never.Join(), 0u) << "joining a thread that never started is harmless";
}

} // namespace

// Runs asynchronous render jobs on several host threads in a random order that the seed reproduces.
//
// Jobs are taken in windows of consecutive submissions; when a window is full its jobs are released in an
// order drawn from the seed and the window's number alone, so the order in which jobs are handed to the
// threads does not depend on timing. A window left part-full for flushMs (the submitter has stopped or
// is waiting for the results) is released as it is; only such a pause can change the order from one run to
// the next. Jobs of one release run concurrently, each on whichever thread is free.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/thread.h"

namespace qvnhost {

class RenderScheduler {
public:
    using Job = std::function<void()>;

    RenderScheduler(int threads, std::uint64_t seed, int window = 8, std::uint32_t flushMs = 40);
    // Drops jobs not started and joins the threads.
    ~RenderScheduler();
    RenderScheduler(const RenderScheduler&) = delete;
    RenderScheduler& operator=(const RenderScheduler&) = delete;

    // tag identifies the job in DispatchOrder (a frame number).
    void Submit(std::int64_t tag, Job job);
    // Releases any part-full window and waits until every submitted job has run.
    void Drain();
    // Stops the threads; jobs not started are dropped and counted.
    void Stop();

    // Tags in the order jobs were handed to threads.
    std::vector<std::int64_t> DispatchOrder() const;
    // The most jobs that ran at the same moment.
    int MostConcurrent() const;
    std::uint64_t Dropped() const;

private:
    struct Entry {
        std::int64_t tag;
        Job job;
    };
    static std::uint32_t ThreadMain(void* self);
    void Work();
    // With the lock held: moves the collecting window to the ready queue in its seeded order.
    void ReleaseWindow();

    const std::uint64_t seed_;
    const std::size_t window_;
    const std::uint32_t flushMs_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::vector<Entry> collecting_;
    std::deque<Entry> ready_;
    std::uint64_t windowNumber_ = 0;
    std::uint64_t lastSubmitMs_ = 0;
    std::uint64_t submitted_ = 0;
    std::uint64_t finished_ = 0;
    std::uint64_t dropped_ = 0;
    int running_ = 0;
    int mostRunning_ = 0;
    bool stopping_ = false;
    std::vector<std::int64_t> dispatched_;
    std::vector<QVN::CThread> threads_;
};

// A permutation of 0..count-1 drawn from seed and stream alone (the same on every platform).
std::vector<std::size_t> SeededPermutation(std::uint64_t seed, std::uint64_t stream, std::size_t count);

} // namespace qvnhost

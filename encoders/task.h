// A small reusable worker: a bounded FIFO of items served by one or more threads, each running the task's
// item loop. Producers never block inside Push: a full queue is reported, and each caller decides whether
// to wait, retry or drop.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <new>
#include <utility>
#include <vector>

#include "platform/critical_section.h"
#include "platform/event.h"
#include "platform/thread.h"

namespace QVN {

// Item policy that leaves items still queued at destruction alone (the owner drains the queue first).
struct CNullDestroyer {
    template <class Item> static void Destroy(Item&) {}
};

template <class Item, class Destroyer, class Lock> class CTask {
public:
    static constexpr std::uint32_t kDefaultBound = 50;

    CTask() = default;
    // The owner must have ended the threads first (for example with stop markers): this only waits.
    virtual ~CTask() {
        Join();
        for (Item& item : queue_)
            Destroyer::Destroy(item);
    }
    CTask(const CTask&) = delete;
    CTask& operator=(const CTask&) = delete;

    // Run by every worker thread; the thread ends when it returns.
    virtual std::uint32_t ItemLoop() = 0;

    // Starts `threads` workers unless the task already has some. False when a thread could not start, or
    // when the wake event could not be made (workers could never be woken).
    bool Start(std::uint32_t threads) {
        CAutoLock<Lock> hold(lock_);
        if (!threads_.empty())
            return true;
        if (!wake_.IsValid())
            return false;
        try { // room first: a started thread whose handle could not be kept would be joined at once
            threads_.reserve(threads);
        } catch (const std::bad_alloc&) {
            return false;
        }
        for (std::uint32_t i = 0; i < threads; ++i) {
            CThread thread;
            if (!thread.Start(&CTask::ThreadMain, this))
                return false;
            threads_.push_back(std::move(thread));
        }
        return true;
    }

    // Appends while the queue holds no more than the bound (so it can reach bound + 1); false otherwise.
    bool Push(Item item) {
        if (count_.load() > bound_)
            return false;
        {
            CAutoLock<Lock> hold(lock_);
            if (count_.load() > bound_)
                return false;
            try {
                queue_.push_back(std::move(item));
            } catch (const std::bad_alloc&) { // reported like a full queue: the caller retries or drops
                return false;
            }
            count_.store(static_cast<std::uint32_t>(queue_.size()));
        }
        wake_.Set();
        return true;
    }

    // The front item; waits for one when the queue is empty.
    Item Pop() {
        for (;;) {
            if (count_.load() != 0) {
                CAutoLock<Lock> hold(lock_);
                if (!queue_.empty()) {
                    Item item = std::move(queue_.front());
                    queue_.pop_front();
                    count_.store(static_cast<std::uint32_t>(queue_.size()));
                    return item;
                }
            }
            // An auto-reset event wakes one waiter per push; the count check above covers pushes that
            // happened while nobody waited.
            wake_.Wait();
        }
    }

    // Waits until every worker thread has ended.
    void Join() {
        std::vector<CThread> threads;
        {
            CAutoLock<Lock> hold(lock_);
            threads.swap(threads_);
        }
        for (CThread& thread : threads)
            thread.Join();
    }

    std::uint32_t Count() const { return count_.load(); }
    std::uint32_t Bound() const { return bound_; }
    std::uint32_t ThreadCount() {
        CAutoLock<Lock> hold(lock_);
        return static_cast<std::uint32_t>(threads_.size());
    }

private:
    static std::uint32_t ThreadMain(void* task) { return static_cast<CTask*>(task)->ItemLoop(); }

    std::deque<Item> queue_;
    Lock lock_;
    CAutoResetEvent wake_;
    std::uint32_t bound_ = kDefaultBound;
    std::atomic<std::uint32_t> count_{0}; // mirrors the queue size for the unlocked checks
    std::vector<CThread> threads_;
};

} // namespace QVN

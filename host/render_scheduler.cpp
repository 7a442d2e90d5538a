#include "host/render_scheduler.h"

#include <algorithm>
#include <chrono>

#include "platform/sleep.h"

namespace qvnhost {
namespace {

std::uint64_t Mix(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

} // namespace

std::vector<std::size_t> SeededPermutation(std::uint64_t seed, std::uint64_t stream, std::size_t count) {
    std::vector<std::size_t> order(count);
    for (std::size_t i = 0; i < count; ++i)
        order[i] = i;
    std::uint64_t state = seed * 0x100000001B3ull ^ (stream + 1) * 0xD6E8FEB86659FD93ull;
    // Fisher-Yates with our own generator: std::shuffle's draws differ between standard libraries.
    for (std::size_t i = count; i > 1; --i) {
        const auto j = static_cast<std::size_t>(Mix(state) % i);
        std::swap(order[i - 1], order[j]);
    }
    return order;
}

RenderScheduler::RenderScheduler(int threads, std::uint64_t seed, int window, std::uint32_t flushMs)
    : seed_(seed), window_(static_cast<std::size_t>(std::max(1, window))), flushMs_(flushMs) {
    threads_.resize(static_cast<std::size_t>(std::max(1, threads)));
    for (QVN::CThread& t : threads_)
        t.Start(ThreadMain, this);
}

RenderScheduler::~RenderScheduler() {
    Stop();
}

void RenderScheduler::Stop() {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (stopping_)
            return;
        stopping_ = true;
        dropped_ += collecting_.size() + ready_.size();
        collecting_.clear();
        ready_.clear();
    }
    wake_.notify_all();
    for (QVN::CThread& t : threads_)
        t.Join();
}

void RenderScheduler::Submit(std::int64_t tag, Job job) {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (stopping_) {
            ++dropped_;
            return;
        }
        collecting_.push_back({tag, std::move(job)});
        ++submitted_;
        lastSubmitMs_ = QVN::MonotonicMs();
        if (collecting_.size() >= window_)
            ReleaseWindow();
    }
    wake_.notify_all();
}

void RenderScheduler::ReleaseWindow() {
    const std::vector<std::size_t> order = SeededPermutation(seed_, windowNumber_++, collecting_.size());
    for (std::size_t i : order)
        ready_.push_back(std::move(collecting_[i]));
    collecting_.clear();
}

void RenderScheduler::Drain() {
    std::unique_lock<std::mutex> hold(mutex_);
    if (!collecting_.empty()) {
        ReleaseWindow();
        wake_.notify_all();
    }
    idle_.wait(hold, [this] { return stopping_ || finished_ == submitted_; });
}

std::vector<std::int64_t> RenderScheduler::DispatchOrder() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return dispatched_;
}

int RenderScheduler::MostConcurrent() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return mostRunning_;
}

std::uint64_t RenderScheduler::Dropped() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return dropped_;
}

std::uint32_t RenderScheduler::ThreadMain(void* self) {
    static_cast<RenderScheduler*>(self)->Work();
    return 0;
}

void RenderScheduler::Work() {
    std::unique_lock<std::mutex> hold(mutex_);
    for (;;) {
        if (stopping_)
            return;
        if (!ready_.empty()) {
            Entry entry = std::move(ready_.front());
            ready_.pop_front();
            dispatched_.push_back(entry.tag);
            mostRunning_ = std::max(mostRunning_, ++running_);
            hold.unlock();
            entry.job();
            entry.job = nullptr; // whatever the job holds goes before the job counts as finished
            hold.lock();
            --running_;
            ++finished_;
            idle_.notify_all();
            continue;
        }
        if (collecting_.empty()) {
            wake_.wait(hold);
            continue;
        }
        // A part-full window: release it once no job has been submitted for flushMs.
        const std::uint64_t now = QVN::MonotonicMs();
        if (now - lastSubmitMs_ >= flushMs_) {
            ReleaseWindow();
            wake_.notify_all();
            continue;
        }
        wake_.wait_for(hold, std::chrono::milliseconds(flushMs_ - (now - lastSubmitMs_)));
    }
}

} // namespace qvnhost

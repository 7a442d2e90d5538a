// Locks, events, semaphores, threads and sleeping on POSIX threads.
#include <cerrno>
#include <ctime>
#include <new>
#include <pthread.h>
#include <unistd.h>

#include "platform/critical_section.h"
#include "platform/event.h"
#include "platform/semaphore.h"
#include "platform/sleep.h"
#include "platform/thread.h"

namespace QVN {
namespace {

// Absolute CLOCK_MONOTONIC deadline for a relative time-out, for condition variables made on that clock.
timespec DeadlineAfter(std::uint32_t timeoutMs) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += static_cast<time_t>(timeoutMs / 1000);
    ts.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

void InitMonotonicCond(pthread_cond_t* cond) {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(cond, &attr);
    pthread_condattr_destroy(&attr);
}

// Waits on cond until pred() holds or the time-out passes; mutex held on entry and exit.
template <class Pred>
bool WaitUntil(pthread_cond_t* cond, pthread_mutex_t* mutex, std::uint32_t timeoutMs, Pred pred) {
    if (timeoutMs == kInfinite) {
        while (!pred())
            pthread_cond_wait(cond, mutex);
        return true;
    }
    const timespec deadline = DeadlineAfter(timeoutMs);
    while (!pred()) {
        if (pthread_cond_timedwait(cond, mutex, &deadline) == ETIMEDOUT)
            return pred();
    }
    return true;
}

} // namespace

static_assert(sizeof(pthread_mutex_t) <= 64 && alignof(pthread_mutex_t) <= 8);

CW32CriticalSection::CW32CriticalSection() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(reinterpret_cast<pthread_mutex_t*>(storage_), &attr);
    pthread_mutexattr_destroy(&attr);
}
CW32CriticalSection::~CW32CriticalSection() {
    pthread_mutex_destroy(reinterpret_cast<pthread_mutex_t*>(storage_));
}
void CW32CriticalSection::Lock() {
    pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(storage_));
}
void CW32CriticalSection::Unlock() {
    pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(storage_));
}
bool CW32CriticalSection::TryLock() {
    return pthread_mutex_trylock(reinterpret_cast<pthread_mutex_t*>(storage_)) == 0;
}

struct CAutoResetEvent::Impl {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond;
    bool signalled = false;
    // Like SetEvent, a Set that finds threads waiting releases one of them at once, so two Sets release two
    // waiters even when neither has run yet; only a Set without waiters leaves the event signalled.
    int waiters = 0;
    int releases = 0;
};

CAutoResetEvent::CAutoResetEvent() : impl_(new (std::nothrow) Impl) {
    if (impl_)
        InitMonotonicCond(&impl_->cond);
}
CAutoResetEvent::~CAutoResetEvent() {
    if (impl_) {
        pthread_cond_destroy(&impl_->cond);
        pthread_mutex_destroy(&impl_->mutex);
        delete impl_;
    }
}
void CAutoResetEvent::Set() {
    pthread_mutex_lock(&impl_->mutex);
    if (impl_->waiters > impl_->releases) {
        impl_->releases += 1;
        pthread_cond_signal(&impl_->cond);
    } else {
        impl_->signalled = true;
    }
    pthread_mutex_unlock(&impl_->mutex);
}
bool CAutoResetEvent::Wait(std::uint32_t timeoutMs) {
    pthread_mutex_lock(&impl_->mutex);
    if (impl_->signalled) {
        impl_->signalled = false;
        pthread_mutex_unlock(&impl_->mutex);
        return true;
    }
    impl_->waiters += 1;
    const bool got =
        WaitUntil(&impl_->cond, &impl_->mutex, timeoutMs, [this] { return impl_->releases > 0; });
    impl_->waiters -= 1;
    if (got)
        impl_->releases -= 1;
    pthread_mutex_unlock(&impl_->mutex);
    return got;
}

struct CSemaphore::Impl {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond;
    std::int32_t count = 0;
    std::int32_t maximum = 0;
};

CSemaphore::CSemaphore(std::int32_t initialCount, std::int32_t maximumCount) : impl_(nullptr) {
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount)
        return;
    impl_ = new (std::nothrow) Impl;
    if (impl_) {
        InitMonotonicCond(&impl_->cond);
        impl_->count = initialCount;
        impl_->maximum = maximumCount;
    }
}
CSemaphore::~CSemaphore() {
    if (impl_) {
        pthread_cond_destroy(&impl_->cond);
        pthread_mutex_destroy(&impl_->mutex);
        delete impl_;
    }
}
bool CSemaphore::Release(std::int32_t count, std::int32_t* previousCount) {
    if (!impl_ || count <= 0)
        return false;
    pthread_mutex_lock(&impl_->mutex);
    const bool ok = impl_->maximum - impl_->count >= count;
    if (previousCount)
        *previousCount = impl_->count;
    if (ok) {
        impl_->count += count;
        if (count == 1)
            pthread_cond_signal(&impl_->cond);
        else
            pthread_cond_broadcast(&impl_->cond);
    }
    pthread_mutex_unlock(&impl_->mutex);
    return ok;
}
bool CSemaphore::Wait(std::uint32_t timeoutMs) {
    if (!impl_)
        return false;
    pthread_mutex_lock(&impl_->mutex);
    const bool got = WaitUntil(&impl_->cond, &impl_->mutex, timeoutMs, [this] { return impl_->count > 0; });
    if (got)
        impl_->count -= 1;
    pthread_mutex_unlock(&impl_->mutex);
    return got;
}

namespace {
struct ThreadStart {
    ThreadProc proc;
    void* argument;
};
void* ThreadMain(void* raw) {
    ThreadStart start = *static_cast<ThreadStart*>(raw);
    delete static_cast<ThreadStart*>(raw);
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(start.proc(start.argument)));
}
} // namespace

CThread::~CThread() {
    Join();
}
CThread::CThread(CThread&& other) noexcept : handle_(other.handle_) {
    other.handle_ = nullptr;
}
CThread& CThread::operator=(CThread&& other) noexcept {
    if (this != &other) {
        Join();
        handle_ = other.handle_;
        other.handle_ = nullptr;
    }
    return *this;
}
bool CThread::Start(ThreadProc proc, void* argument) {
    if (handle_)
        return false;
    auto* start = new (std::nothrow) ThreadStart{proc, argument};
    auto* id = new (std::nothrow) pthread_t;
    if (!start || !id || pthread_create(id, nullptr, ThreadMain, start) != 0) {
        delete start;
        delete id;
        return false;
    }
    handle_ = id;
    return true;
}
std::uint32_t CThread::Join() {
    if (!handle_)
        return 0;
    auto* id = static_cast<pthread_t*>(handle_);
    void* result = nullptr;
    pthread_join(*id, &result);
    delete id;
    handle_ = nullptr;
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(result));
}

void SleepMs(std::uint32_t milliseconds) {
    timespec ts{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
    }
}

std::uint64_t MonotonicMs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1000u + static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}

} // namespace QVN

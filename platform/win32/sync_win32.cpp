// Locks, events, semaphores, threads and sleeping on the Win32 kernel objects.
#include <new>
#include <process.h>

#include "platform/critical_section.h"
#include "platform/event.h"
#include "platform/semaphore.h"
#include "platform/sleep.h"
#include "platform/thread.h"
#include "platform/win_types.h"

namespace QVN {

static_assert(sizeof(CRITICAL_SECTION) <= 64 && alignof(CRITICAL_SECTION) <= 8);

CW32CriticalSection::CW32CriticalSection() {
    InitializeCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_));
}
CW32CriticalSection::~CW32CriticalSection() {
    DeleteCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_));
}
void CW32CriticalSection::Lock() {
    EnterCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_));
}
void CW32CriticalSection::Unlock() {
    LeaveCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_));
}
bool CW32CriticalSection::TryLock() {
    return TryEnterCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_)) != FALSE;
}

// The Impl pointers carry the HANDLE itself.
struct CAutoResetEvent::Impl {};

CAutoResetEvent::CAutoResetEvent()
    : impl_(reinterpret_cast<Impl*>(CreateEventW(nullptr, FALSE, FALSE, nullptr))) {}
CAutoResetEvent::~CAutoResetEvent() {
    if (impl_)
        CloseHandle(reinterpret_cast<HANDLE>(impl_));
}
void CAutoResetEvent::Set() {
    SetEvent(reinterpret_cast<HANDLE>(impl_));
}
bool CAutoResetEvent::Wait(std::uint32_t timeoutMs) {
    return WaitForSingleObject(reinterpret_cast<HANDLE>(impl_), timeoutMs) == WAIT_OBJECT_0;
}

struct CSemaphore::Impl {};

CSemaphore::CSemaphore(std::int32_t initialCount, std::int32_t maximumCount)
    : impl_(reinterpret_cast<Impl*>(CreateSemaphoreW(nullptr, initialCount, maximumCount, nullptr))) {}
CSemaphore::~CSemaphore() {
    if (impl_)
        CloseHandle(reinterpret_cast<HANDLE>(impl_));
}
bool CSemaphore::Release(std::int32_t count, std::int32_t* previousCount) {
    LONG previous = 0;
    const BOOL ok = impl_ && ReleaseSemaphore(reinterpret_cast<HANDLE>(impl_), count, &previous);
    if (previousCount)
        *previousCount = previous;
    return ok != FALSE;
}
bool CSemaphore::Wait(std::uint32_t timeoutMs) {
    return impl_ && WaitForSingleObject(reinterpret_cast<HANDLE>(impl_), timeoutMs) == WAIT_OBJECT_0;
}

namespace {
struct ThreadStart {
    ThreadProc proc;
    void* argument;
};
unsigned __stdcall ThreadMain(void* raw) {
    ThreadStart start = *static_cast<ThreadStart*>(raw);
    delete static_cast<ThreadStart*>(raw);
    return start.proc(start.argument);
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
    if (!start)
        return false;
    // _beginthreadex rather than CreateThread: the thread may use the C runtime.
    const std::uintptr_t h = _beginthreadex(nullptr, 0, ThreadMain, start, 0, nullptr);
    if (h == 0) {
        delete start;
        return false;
    }
    handle_ = reinterpret_cast<void*>(h);
    return true;
}
std::uint32_t CThread::Join() {
    if (!handle_)
        return 0;
    WaitForSingleObject(static_cast<HANDLE>(handle_), INFINITE);
    DWORD code = 0;
    GetExitCodeThread(static_cast<HANDLE>(handle_), &code);
    CloseHandle(static_cast<HANDLE>(handle_));
    handle_ = nullptr;
    return code;
}

void SleepMs(std::uint32_t milliseconds) {
    Sleep(milliseconds);
}

// The performance counter rather than GetTickCount64, whose 16 ms steps are too coarse for short waits.
std::uint64_t MonotonicMs() {
    LARGE_INTEGER frequency, now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return static_cast<std::uint64_t>(now.QuadPart / (frequency.QuadPart / 1000));
}

} // namespace QVN

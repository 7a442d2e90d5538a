// A recursive lock with the semantics of a Win32 critical section: the owning thread may enter again, and
// must leave as often as it entered.
#pragma once

namespace QVN {

class CW32CriticalSection {
public:
    CW32CriticalSection();
    ~CW32CriticalSection();
    CW32CriticalSection(const CW32CriticalSection&) = delete;
    CW32CriticalSection& operator=(const CW32CriticalSection&) = delete;

    void Lock();
    void Unlock();
    bool TryLock();

private:
    // Room for a CRITICAL_SECTION (40 bytes on Win64) or a pthread mutex (40 bytes on Linux x86-64); the
    // implementation files check that it fits, so no OS header leaks into users of the lock.
    alignas(8) unsigned char storage_[64];
};

// Holds a lock for a scope.
template <class Lock> class CAutoLock {
public:
    explicit CAutoLock(Lock& lock) : lock_(lock) { lock_.Lock(); }
    ~CAutoLock() { lock_.Unlock(); }
    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    Lock& lock_;
};

} // namespace QVN

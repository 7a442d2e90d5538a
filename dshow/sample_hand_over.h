// The meeting point of the producer and a source pin's streaming thread: samples that own no memory go
// round between a free list and a ready queue, carrying the producer's frame buffers to the streaming thread
// and handing each released buffer back to the producer. It knows nothing of COM, so both targets build it
// and ThreadSanitizer checks it natively; the encoder allocator wraps it.
//
// The lock, the committed state and the waiting count belong to the allocator that owns the queue (they are
// the allocator's own members on Windows), so the queue takes references to them. The lock is recursive:
// the owner may hold it around a call.
//
// Each side waits on a semaphore of its own. With one semaphore for both, a wake-up meant for the blocked
// producer can be taken by the streaming thread arriving in between; it finds nothing, waits again, and the
// producer sleeps on beside a free sample while the streaming thread waits for the frame it would queue.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/critical_section.h"
#include "platform/semaphore.h"
#include "platform/sleep.h"
#include "platform/win_types.h"

namespace QVN {

inline constexpr HRESULT kVfwNotCommitted = static_cast<HRESULT>(0x80040211u);
inline constexpr HRESULT kVfwTimeout = static_cast<HRESULT>(0x8004022Eu);
inline constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu); // kUnexpected
inline constexpr DWORD kGetBufferNoWait = 4;                              // AM_GBF_NOWAIT

// A first-in first-out list of fixed capacity, so that moving samples between lists never allocates.
template <class T> class CFixedRing {
public:
    bool Resize(std::size_t capacity) {
        try {
            slots_.assign(capacity, T{});
        } catch (const std::bad_alloc&) {
            return false;
        }
        head_ = count_ = 0;
        return true;
    }
    bool Push(T value) {
        if (count_ == slots_.size()) {
            return false;
        }
        slots_[(head_ + count_) % slots_.size()] = value;
        ++count_;
        return true;
    }
    T Pop() {
        T value = slots_[head_];
        head_ = (head_ + 1) % slots_.size();
        --count_;
        return value;
    }
    bool Empty() const { return count_ == 0; }
    std::size_t Size() const { return count_; }

private:
    std::vector<T> slots_;
    std::size_t head_ = 0;
    std::size_t count_ = 0;
};

// Access tells how to read and detach the producer buffer a Sample carries:
//   static void* Buffer(Sample*)       the buffer, or null when the sample holds none
//   static void Detach(Sample*)        leaves the sample without a buffer
template <class Sample, class Access> class CSampleHandOver {
public:
    struct Owner {
        CW32CriticalSection& lock;
        const BOOL& committed;
        LONG& waiting;
    };

    explicit CSampleHandOver(Owner owner)
        : owner_(owner), wake_(0, 0x7FFFFFFF), wakeProducer_(0, 0x7FFFFFFF) {}
    CSampleHandOver(const CSampleHandOver&) = delete;
    CSampleHandOver& operator=(const CSampleHandOver&) = delete;

    // False when the wake-up semaphore could not be made; the allocator then reports E_OUTOFMEMORY.
    bool IsValid() const { return wake_.IsValid() && wakeProducer_.IsValid(); }

    // A new round (on commit): no released buffers left over and the end flags cleared. Unless the samples
    // are kept, room is made for count of them, each of which may carry one producer buffer, so that moving
    // them about never allocates.
    HRESULT Reset(std::size_t count, bool keepSamples) {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        released_.clear();
        endSignalled_ = false;
        endReached_ = false;
        if (keepSamples) {
            return S_OK;
        }
        if (!free_.Resize(count) || !ready_.Resize(count)) {
            return E_OUTOFMEMORY;
        }
        try {
            released_.reserve(count);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

    // Queued samples go back to the free list, their buffers set aside for the producer as if downstream
    // had released them (on decommit: nobody will take them now).
    void RecallQueued() {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        while (!ready_.Empty()) {
            Release(ready_.Pop());
        }
    }

    // Adds a sample that holds no buffer to the free list (on allocation, after Reset).
    HRESULT AddFree(Sample* sample) {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        return free_.Push(sample) ? S_OK : kUnexpected;
    }

    // Hands every sample, free and queued alike, to dispose (on free) and empties both lists.
    template <class Dispose> void DisposeAll(Dispose dispose) {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        while (!ready_.Empty()) {
            dispose(ready_.Pop());
        }
        while (!free_.Empty()) {
            dispose(free_.Pop());
        }
    }

    std::size_t FreeCount() const {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        return free_.Size();
    }

    // Samples that are not downstream: free, or queued and not yet taken.
    std::size_t HomeCount() const {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        return free_.Size() + ready_.Size();
    }

    // Producer: an empty sample to attach a buffer to; blocks while downstream holds every sample.
    HRESULT TakeFree(Sample** sample) {
        if (sample == nullptr) {
            return E_POINTER;
        }
        for (;;) {
            owner_.lock.Lock();
            if (!owner_.committed) {
                owner_.lock.Unlock();
                return kVfwNotCommitted;
            }
            if (!free_.Empty()) {
                *sample = free_.Pop();
                owner_.lock.Unlock();
                return S_OK;
            }
            ++producerWaiting_;
            owner_.lock.Unlock();
            wakeProducer_.Wait();
        }
    }

    // Producer: a filled sample for the streaming thread, in delivery order.
    HRESULT Queue(Sample* sample) {
        if (sample == nullptr) {
            return E_POINTER;
        }
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        if (!ready_.Push(sample)) {
            return kUnexpected; // not one of this round's samples
        }
        WakeWaiters();
        return S_OK;
    }

    // Streaming thread: the oldest filled sample; after the end is signalled and nothing is queued, an empty
    // free sample (end reached). With kGetBufferNoWait an empty queue answers kVfwTimeout at once.
    HRESULT Take(Sample** sample, DWORD flags) {
        if (sample == nullptr) {
            return E_POINTER;
        }
        for (;;) {
            owner_.lock.Lock();
            if (!owner_.committed) {
                owner_.lock.Unlock();
                return kVfwNotCommitted;
            }
            if (!ready_.Empty()) {
                *sample = ready_.Pop();
                owner_.lock.Unlock();
                return S_OK;
            }
            if (endSignalled_) {
                endReached_ = true;
                if (!free_.Empty()) {
                    *sample = free_.Pop();
                    owner_.lock.Unlock();
                    return S_OK;
                }
                // Every sample is downstream: one comes back soon, since nothing more is queued.
                owner_.lock.Unlock();
                SleepMs(1);
                continue;
            }
            ++owner_.waiting;
            owner_.lock.Unlock();
            if ((flags & kGetBufferNoWait) != 0) {
                return kVfwTimeout;
            }
            wake_.Wait();
        }
    }

    // Downstream let go of a sample: it goes back on the free list, and its buffer (if any) is set aside for
    // the producer (once, however often it comes back) and detached.
    void Release(Sample* sample) {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        free_.Push(sample);
        WakeWaiters();
        void* buffer = Access::Buffer(sample);
        if (buffer != nullptr) {
            bool known = false;
            for (void* b : released_) {
                known = known || b == buffer;
            }
            if (!known) {
                // Room for one buffer per sample was made up front; a producer with more buffers than
                // samples may grow the set here, and if even that fails the buffer is not handed back.
                try {
                    released_.push_back(buffer);
                } catch (const std::bad_alloc&) {
                }
            }
            Access::Detach(sample);
        }
    }

    // Producer: appends every buffer released since the last call, each once.
    HRESULT Reclaim(std::vector<void*>& buffers) {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        try {
            buffers.insert(buffers.end(), released_.begin(), released_.end());
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY; // nothing is lost: the set stays as it was
        }
        released_.clear();
        return S_OK;
    }

    void SignalEnd() {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        endSignalled_ = true;
        WakeWaiters();
    }

    bool EndReached() const {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        return endReached_;
    }

    // Wakes everybody blocked in Take or TakeFree (on decommit).
    void WakeAll() {
        CAutoLock<CW32CriticalSection> lock(owner_.lock);
        WakeWaiters();
    }

private:
    // Caller holds the lock. Every waiter is woken; each looks again and waits anew if it still must.
    void WakeWaiters() {
        if (owner_.waiting > 0) {
            wake_.Release(static_cast<std::int32_t>(owner_.waiting));
            owner_.waiting = 0;
        }
        if (producerWaiting_ > 0) {
            wakeProducer_.Release(producerWaiting_);
            producerWaiting_ = 0;
        }
    }

    Owner owner_;
    CSemaphore wake_;
    CSemaphore wakeProducer_;
    std::int32_t producerWaiting_ = 0;
    CFixedRing<Sample*> free_;
    CFixedRing<Sample*> ready_;
    std::vector<void*> released_;
    bool endSignalled_ = false;
    bool endReached_ = false;
};

} // namespace QVN

// The allocator the push-source pins impose on their downstream connection. Its samples own no memory: the
// producer takes an empty sample, points it at one of its own frame buffers and queues it; the pin's
// streaming thread receives the queued samples in order, already full. When downstream releases a sample its
// buffer is detached and set aside until the producer reclaims it.
#pragma once

#include <vector>

#include "dshow/base/base_allocator.h"
#include "dshow/sample_hand_over.h"

// The producer's side of the allocator, found by QueryInterface so that a pin can tell whether its
// connection really uses our allocator (a downstream filter may have forced another).
struct IEncoderAllocator : public IUnknown {
    // An empty sample; blocks while downstream holds every sample. VFW_E_NOT_COMMITTED when not committed.
    virtual HRESULT STDMETHODCALLTYPE TakeFreeSample(CMediaSample** sample) = 0;
    // A filled sample for the streaming thread.
    virtual HRESULT STDMETHODCALLTYPE QueueSample(CMediaSample* sample) = 0;
    // Appends every buffer released since the last call; always S_OK unless the list cannot grow.
    virtual HRESULT STDMETHODCALLTYPE ReclaimBuffers(std::vector<void*>& buffers) = 0;
    // No more samples come: the streaming thread gets what is queued, then one empty sample.
    virtual void STDMETHODCALLTYPE SignalEnd() = 0;
    virtual BOOL STDMETHODCALLTYPE EndReached() = 0;

protected:
    ~IEncoderAllocator() = default;
};

extern "C" const IID IID_IEncoderAllocator;

class CEncoderAllocator : public CBaseAllocator, public IEncoderAllocator {
public:
    // phr becomes E_OUTOFMEMORY when the wake-up semaphores cannot be made.
    CEncoderAllocator(const wchar_t* name, HRESULT* phr);
    ~CEncoderAllocator() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override;

    // As the platform's memory allocator: the alignment must be a power of two dividing the page size, and
    // prefix + buffer is rounded up to whole alignment units.
    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) override;
    // Always answers 10 buffers, whatever was set: upstream filters that size their own pools from it get
    // a fixed, modest number.
    STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* props) override;
    STDMETHODIMP GetBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end,
                           DWORD flags) override;

    STDMETHODIMP TakeFreeSample(CMediaSample** sample) override;
    STDMETHODIMP QueueSample(CMediaSample* sample) override;
    STDMETHODIMP ReclaimBuffers(std::vector<void*>& buffers) override;
    void STDMETHODCALLTYPE SignalEnd() override;
    BOOL STDMETHODCALLTYPE EndReached() override;

protected:
    HRESULT Alloc() override;
    // Keeps the samples (they hold no memory); queued ones go back to the free list with their buffers set
    // aside for the producer.
    void Free() override;
    // A released sample's buffer is set aside for the producer; both sides are woken.
    void ReturnSample(CMediaSample* sample) override;
    // Queued samples count as home: nobody takes them once the streaming thread has stopped, and Free
    // recalls them.
    LONG SamplesHome() override;
    void WakeWaiters() override;

private:
    struct SampleAccess {
        static void* Buffer(CMediaSample* sample);
        static void Detach(CMediaSample* sample);
    };
    void DeleteSamples();

    QVN::CSampleHandOver<CMediaSample, SampleAccess> handOver_;
};

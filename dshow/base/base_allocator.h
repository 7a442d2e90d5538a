// The allocator contract every allocator of ours keeps: properties set while decommitted, samples handed out
// only while committed, a blocking GetBuffer that wakes when a sample comes back, and a decommit that waits
// for the last outstanding sample before the memory goes. Derived classes decide what a sample's memory is
// (Alloc/Free) and may replace the hand-out and return paths (GetBuffer/ReleaseBuffer).
#pragma once

#include "dshow/base/dshow_headers.h"
#include "dshow/base/media_sample.h"
#include "dshow/base/unknown.h"

class CBaseAllocator : public CUnknown, public IMemAllocatorCallbackTemp {
public:
    // bEvent: create the semaphore GetBuffer waits on (its failure reports E_OUTOFMEMORY through phr).
    // fEnableReleaseCallback: answer IMemAllocatorCallbackTemp in QueryInterface.
    CBaseAllocator(const wchar_t* pName, IUnknown* pUnk, HRESULT* phr, BOOL bEvent = TRUE,
                   BOOL fEnableReleaseCallback = FALSE);
    ~CBaseAllocator() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IMemAllocator
    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) override;
    STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* pProps) override;
    STDMETHODIMP Commit() override;
    STDMETHODIMP Decommit() override;
    STDMETHODIMP GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
                           DWORD dwFlags) override;
    STDMETHODIMP ReleaseBuffer(IMediaSample* pBuffer) override;

    // IMemAllocatorCallbackTemp
    STDMETHODIMP SetNotify(IMemAllocatorNotifyCallbackTemp* pNotify) override;
    STDMETHODIMP GetFreeCount(LONG* plBuffersFree) override;

    // Wakes every thread counted as waiting (call under m_cs).
    void NotifySample();
    // Counts the calling thread as waiting for a sample (call under m_cs, then wait on m_hSem unlocked).
    void SetWaiting() { m_lWaiting++; }

protected:
    // A singly linked list through CMediaSample::m_pNext. A sample is on at most one list at a time.
    class CSampleList {
    public:
        CSampleList() = default;
        CMediaSample* Head() const { return m_List; }
        static CMediaSample* Next(const CMediaSample* pSample) { return pSample->m_pNext; }
        int GetCount() const { return m_nOnList; }
        // Pushes at the head (the free list is a stack: the most recently used sample is warm).
        void Add(CMediaSample* pSample);
        // Appends at the tail, for queues that must keep order.
        void AddTail(CMediaSample* pSample);
        CMediaSample* RemoveHead();
        // Unlinks a sample wherever it is; false when it is not on the list.
        bool Remove(CMediaSample* pSample);

    private:
        CMediaSample* m_List = nullptr;
        CMediaSample* m_Tail = nullptr;
        int m_nOnList = 0;
    };

    // Makes the samples for the current properties. The base checks them: VFW_E_SIZENOTSET when count,
    // size or alignment is below 1, S_FALSE when nothing changed since the last allocation, else S_OK.
    virtual HRESULT Alloc();
    // Releases the samples; called with every sample back on the free list.
    virtual void Free() = 0;

    // How a released sample comes home and who is woken then; a derived allocator with lists of its own
    // replaces these three together. Called under m_cs.
    virtual void ReturnSample(CMediaSample* pSample) {
        m_lFree.Add(pSample);
        NotifySample();
    }
    // Samples that are with the allocator, not downstream; a decommit completes when all are.
    virtual LONG SamplesHome() { return m_lFree.GetCount(); }
    // Wakes every thread waiting for a sample (on decommit, so that it sees the change).
    virtual void WakeWaiters() { NotifySample(); }

    static CMediaSample*& NextSample(CMediaSample* pSample) { return pSample->m_pNext; }

    CSampleList m_lFree;
    HANDLE m_hSem = nullptr; // GetBuffer's wait, released by NotifySample
    LONG m_lWaiting = 0;     // threads about to wait on m_hSem
    LONG m_lCount = 0;       // properties: number of buffers,
    LONG m_lSize = 0;        // bytes per buffer,
    LONG m_lAlignment = 0;   // alignment of each buffer,
    LONG m_lPrefix = 0;      // bytes before each buffer
    LONG m_lAllocated = 0;   // samples that exist (free or out)
    BOOL m_bChanged = FALSE; // properties changed since the last Alloc
    BOOL m_bCommitted = FALSE;
    BOOL m_bDecommitInProgress = FALSE; // decommitted with samples out: Free when the last comes back
    IMemAllocatorNotifyCallbackTemp* m_pNotify = nullptr;
    BOOL m_fEnableReleaseCallback;
    CCritSec m_cs; // guards every member above
};

// The platform's default memory allocator: one block of committed memory holds every sample's buffer, each
// aligned and preceded by its prefix. The memory stays until the properties change or the allocator goes.
class CMemAllocator : public CBaseAllocator {
public:
    CMemAllocator(const wchar_t* pName, IUnknown* pUnk, HRESULT* phr);
    ~CMemAllocator() override;

    static CUnknown* WINAPI CreateInstance(IUnknown* pUnk, HRESULT* phr);

    // Alignment must be a power of two dividing the allocation granularity (VFW_E_BADALIGN); the buffer
    // size is rounded so that prefix + buffer fills whole alignment units.
    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) override;

protected:
    HRESULT Alloc() override;
    void Free() override;
    void ReallyFree();

    BYTE* m_pBuffer = nullptr;
};

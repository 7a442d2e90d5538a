#include "dshow/base/base_allocator.h"

#include <new>

// ---- CSampleList ----

void CBaseAllocator::CSampleList::Add(CMediaSample* pSample) {
    pSample->m_pNext = m_List;
    m_List = pSample;
    if (m_Tail == nullptr) {
        m_Tail = pSample;
    }
    m_nOnList++;
}

void CBaseAllocator::CSampleList::AddTail(CMediaSample* pSample) {
    pSample->m_pNext = nullptr;
    if (m_Tail != nullptr) {
        m_Tail->m_pNext = pSample;
    } else {
        m_List = pSample;
    }
    m_Tail = pSample;
    m_nOnList++;
}

CMediaSample* CBaseAllocator::CSampleList::RemoveHead() {
    CMediaSample* head = m_List;
    if (head != nullptr) {
        m_List = head->m_pNext;
        if (m_List == nullptr) {
            m_Tail = nullptr;
        }
        head->m_pNext = nullptr;
        m_nOnList--;
    }
    return head;
}

bool CBaseAllocator::CSampleList::Remove(CMediaSample* pSample) {
    CMediaSample* previous = nullptr;
    for (CMediaSample* s = m_List; s != nullptr; previous = s, s = s->m_pNext) {
        if (s != pSample) {
            continue;
        }
        (previous != nullptr ? previous->m_pNext : m_List) = s->m_pNext;
        if (m_Tail == s) {
            m_Tail = previous;
        }
        s->m_pNext = nullptr;
        m_nOnList--;
        return true;
    }
    return false;
}

// ---- CBaseAllocator ----

CBaseAllocator::CBaseAllocator(const wchar_t* pName, IUnknown* pUnk, HRESULT* phr, BOOL bEvent,
                               BOOL fEnableReleaseCallback)
    : CUnknown(pName, pUnk), m_fEnableReleaseCallback(fEnableReleaseCallback) {
    if (bEvent) {
        m_hSem = CreateSemaphoreW(nullptr, 0, 0x7FFFFFFF, nullptr);
        if (m_hSem == nullptr && phr != nullptr) {
            *phr = E_OUTOFMEMORY;
        }
    }
}

CBaseAllocator::~CBaseAllocator() {
    // A derived destructor has freed the samples (Free is pure here and cannot be called now).
    if (m_hSem != nullptr) {
        CloseHandle(m_hSem);
    }
    if (m_pNotify != nullptr) {
        m_pNotify->Release();
    }
}

STDMETHODIMP CBaseAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IMemAllocator) ||
        (m_fEnableReleaseCallback && IsEqualIID(riid, IID_IMemAllocatorCallbackTemp))) {
        return GetInterface(static_cast<IMemAllocatorCallbackTemp*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CBaseAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) {
    if (pRequest == nullptr || pActual == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_cs);
    *pActual = ALLOCATOR_PROPERTIES{};
    // The base allocator knows nothing of memory layout, so it can only honour byte alignment.
    if (pRequest->cbAlign != 1) {
        return VFW_E_BADALIGN;
    }
    if (m_bCommitted) {
        return VFW_E_ALREADY_COMMITTED;
    }
    if (SamplesHome() < m_lAllocated) {
        return VFW_E_BUFFERS_OUTSTANDING;
    }
    // Values below 1 are not refused here: Commit refuses them with VFW_E_SIZENOTSET.
    pActual->cBuffers = m_lCount = pRequest->cBuffers;
    pActual->cbBuffer = m_lSize = pRequest->cbBuffer;
    pActual->cbAlign = m_lAlignment = pRequest->cbAlign;
    pActual->cbPrefix = m_lPrefix = pRequest->cbPrefix;
    m_bChanged = TRUE;
    return S_OK;
}

STDMETHODIMP CBaseAllocator::GetProperties(ALLOCATOR_PROPERTIES* pProps) {
    if (pProps == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_cs);
    pProps->cBuffers = m_lCount;
    pProps->cbBuffer = m_lSize;
    pProps->cbAlign = m_lAlignment;
    pProps->cbPrefix = m_lPrefix;
    return S_OK;
}

STDMETHODIMP CBaseAllocator::Commit() {
    CAutoLock lock(m_cs);
    if (m_bCommitted) {
        return S_OK;
    }
    m_bCommitted = TRUE;
    if (m_bDecommitInProgress) {
        // Samples are still out, so nothing can have been reallocated: just take the decommit back. The
        // reference taken by the earlier Commit is still held.
        m_bDecommitInProgress = FALSE;
        return S_OK;
    }
    const HRESULT hr = Alloc();
    if (FAILED(hr)) {
        m_bCommitted = FALSE;
        return hr;
    }
    // Samples point back at us without a reference: keep alive until the decommit completes.
    AddRef();
    return S_OK;
}

STDMETHODIMP CBaseAllocator::Decommit() {
    bool release = false;
    {
        CAutoLock lock(m_cs);
        if (!m_bCommitted) {
            return S_OK; // also while a decommit is pending: it completes on the last return
        }
        m_bCommitted = FALSE;
        if (SamplesHome() < m_lAllocated) {
            m_bDecommitInProgress = TRUE;
        } else {
            Free();
            release = true;
        }
        // Blocked GetBuffer calls wake and see that we are no longer committed.
        WakeWaiters();
    }
    if (release) {
        Release(); // may delete us
    }
    return S_OK;
}

STDMETHODIMP CBaseAllocator::GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                       REFERENCE_TIME* pEndTime, DWORD dwFlags) {
    (void)pStartTime;
    (void)pEndTime;
    if (ppBuffer == nullptr) {
        return E_POINTER;
    }
    *ppBuffer = nullptr;
    CMediaSample* sample = nullptr;
    for (;;) {
        {
            CAutoLock lock(m_cs);
            if (!m_bCommitted) {
                return VFW_E_NOT_COMMITTED;
            }
            sample = m_lFree.RemoveHead();
            if (sample != nullptr) {
                break;
            }
            if ((dwFlags & AM_GBF_NOWAIT) != 0) {
                return VFW_E_TIMEOUT;
            }
            SetWaiting();
        }
        // A release between unlocking and waiting has already counted the semaphore up: no lost wake-up.
        WaitForSingleObject(m_hSem, INFINITE);
    }
    sample->m_cRef = 1;
    *ppBuffer = sample;
    return S_OK;
}

STDMETHODIMP CBaseAllocator::ReleaseBuffer(IMediaSample* pBuffer) {
    if (pBuffer == nullptr) {
        return E_POINTER;
    }
    bool release = false;
    IMemAllocatorNotifyCallbackTemp* notify = nullptr;
    {
        CAutoLock lock(m_cs);
        // Only our own samples come back here (CMediaSample::Release calls its own allocator).
        ReturnSample(static_cast<CMediaSample*>(pBuffer));
        if (m_bDecommitInProgress && SamplesHome() == m_lAllocated) {
            Free();
            m_bDecommitInProgress = FALSE;
            release = true;
        }
        notify = m_pNotify;
        if (notify != nullptr) {
            notify->AddRef();
        }
    }
    // Outside the lock: the callback may call straight back into us (GetBuffer, GetFreeCount).
    if (notify != nullptr) {
        notify->NotifyRelease();
        notify->Release();
    }
    if (release) {
        Release(); // the reference Commit took; may delete us
    }
    return S_OK;
}

STDMETHODIMP CBaseAllocator::SetNotify(IMemAllocatorNotifyCallbackTemp* pNotify) {
    CAutoLock lock(m_cs);
    if (pNotify != nullptr) {
        pNotify->AddRef();
    }
    if (m_pNotify != nullptr) {
        m_pNotify->Release();
    }
    m_pNotify = pNotify;
    return S_OK;
}

STDMETHODIMP CBaseAllocator::GetFreeCount(LONG* plBuffersFree) {
    if (plBuffersFree == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_cs);
    // Samples not made yet count as free: they will be at the next commit.
    *plBuffersFree = m_lCount - m_lAllocated + SamplesHome();
    return S_OK;
}

void CBaseAllocator::NotifySample() {
    if (m_lWaiting != 0 && m_hSem != nullptr) {
        ReleaseSemaphore(m_hSem, m_lWaiting, nullptr);
        m_lWaiting = 0;
    }
}

HRESULT CBaseAllocator::Alloc() {
    if (m_lCount <= 0 || m_lSize <= 0 || m_lAlignment <= 0) {
        return VFW_E_SIZENOTSET;
    }
    return m_bChanged ? S_OK : S_FALSE;
}

// ---- CMemAllocator ----

CMemAllocator::CMemAllocator(const wchar_t* pName, IUnknown* pUnk, HRESULT* phr)
    : CBaseAllocator(pName != nullptr ? pName : L"CMemAllocator", pUnk, phr, TRUE, TRUE) {}

CMemAllocator::~CMemAllocator() {
    // Never committed here (a commit holds a reference), so every sample is on the free list.
    ReallyFree();
}

CUnknown* WINAPI CMemAllocator::CreateInstance(IUnknown* pUnk, HRESULT* phr) {
    CUnknown* allocator = new (std::nothrow) CMemAllocator(L"CMemAllocator", pUnk, phr);
    if (allocator == nullptr && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
    return allocator;
}

STDMETHODIMP CMemAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) {
    if (pRequest == nullptr || pActual == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_cs);
    *pActual = ALLOCATOR_PROPERTIES{};
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const LONG align = pRequest->cbAlign;
    // A power of two that divides the granularity VirtualAlloc places blocks at.
    if (align <= 0 || (align & (align - 1)) != 0 ||
        (info.dwAllocationGranularity % static_cast<DWORD>(align)) != 0) {
        return VFW_E_BADALIGN;
    }
    if (m_bCommitted) {
        return VFW_E_ALREADY_COMMITTED;
    }
    if (m_lFree.GetCount() < m_lAllocated) {
        return VFW_E_BUFFERS_OUTSTANDING;
    }
    // The prefix sits inside the alignment unit: prefix + buffer is rounded up to whole units.
    const LONGLONG unit = static_cast<LONGLONG>(pRequest->cbBuffer) + pRequest->cbPrefix;
    const LONGLONG rounded = (unit + align - 1) / align * align;
    if (rounded - pRequest->cbPrefix > MAXLONG) {
        return E_OUTOFMEMORY;
    }
    pActual->cBuffers = m_lCount = pRequest->cBuffers;
    pActual->cbBuffer = m_lSize = static_cast<LONG>(rounded - pRequest->cbPrefix);
    pActual->cbAlign = m_lAlignment = align;
    pActual->cbPrefix = m_lPrefix = pRequest->cbPrefix;
    m_bChanged = TRUE;
    return S_OK;
}

HRESULT CMemAllocator::Alloc() {
    CAutoLock lock(m_cs);
    HRESULT hr = CBaseAllocator::Alloc();
    if (FAILED(hr)) {
        return hr;
    }
    if (hr == S_FALSE && m_pBuffer != nullptr) {
        return S_OK; // same properties, the samples from last time are all on the free list
    }
    ReallyFree();
    if (m_lPrefix < 0) {
        return E_OUTOFMEMORY;
    }
    LONGLONG unit = static_cast<LONGLONG>(m_lSize) + m_lPrefix;
    unit = (unit + m_lAlignment - 1) / m_lAlignment * m_lAlignment;
    const LONGLONG total = unit * m_lCount;
    if (total > MAXLONG) {
        return E_OUTOFMEMORY;
    }
    // VirtualAlloc places the block at the allocation granularity, so every unit inherits the alignment.
    m_pBuffer = static_cast<BYTE*>(
        VirtualAlloc(nullptr, static_cast<SIZE_T>(total), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (m_pBuffer == nullptr) {
        return E_OUTOFMEMORY;
    }
    for (BYTE* next = m_pBuffer; m_lAllocated < m_lCount; m_lAllocated++, next += unit) {
        hr = S_OK;
        CMediaSample* sample =
            new (std::nothrow) CMediaSample(L"CMemAllocator sample", this, &hr, next + m_lPrefix, m_lSize);
        if (sample == nullptr) {
            ReallyFree();
            return E_OUTOFMEMORY;
        }
        m_lFree.Add(sample);
    }
    m_bChanged = FALSE;
    return S_OK;
}

void CMemAllocator::Free() {
    // The memory stays for the next commit with the same properties; ReallyFree gives it back.
}

void CMemAllocator::ReallyFree() {
    CAutoLock lock(m_cs);
    while (CMediaSample* sample = m_lFree.RemoveHead()) {
        delete sample;
        m_lAllocated--;
    }
    if (m_pBuffer != nullptr) {
        VirtualFree(m_pBuffer, 0, MEM_RELEASE);
        m_pBuffer = nullptr;
    }
    m_lAllocated = 0;
}

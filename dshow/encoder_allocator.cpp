#include "dshow/encoder_allocator.h"

#include <new>

// {7A3E51C2-96D4-4F0B-8C7E-2B5D0A14E963}
extern "C" const IID IID_IEncoderAllocator = {
    0x7a3e51c2, 0x96d4, 0x4f0b, {0x8c, 0x7e, 0x2b, 0x5d, 0x0a, 0x14, 0xe9, 0x63}};

void* CEncoderAllocator::SampleAccess::Buffer(CMediaSample* sample) {
    BYTE* data = nullptr;
    sample->GetPointer(&data);
    return sample->GetSize() != 0 ? data : nullptr;
}

void CEncoderAllocator::SampleAccess::Detach(CMediaSample* sample) {
    sample->SetPointer(nullptr, 0);
}

CEncoderAllocator::CEncoderAllocator(const wchar_t* name, HRESULT* phr)
    // Our own semaphores do the waiting; the base's is not made.
    : CBaseAllocator(name, nullptr, phr, FALSE, TRUE), handOver_({m_cs, m_bCommitted, m_lWaiting}) {
    if (!handOver_.IsValid() && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
}

CEncoderAllocator::~CEncoderAllocator() {
    DeleteSamples();
}

void CEncoderAllocator::DeleteSamples() {
    handOver_.DisposeAll([](CMediaSample* sample) { delete sample; });
    m_lAllocated = 0;
}

STDMETHODIMP CEncoderAllocator::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IEncoderAllocator)) {
        return GetInterface(static_cast<IEncoderAllocator*>(this), object);
    }
    return CBaseAllocator::NonDelegatingQueryInterface(iid, object);
}

STDMETHODIMP CEncoderAllocator::SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) {
    if (request == nullptr || actual == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_cs);
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const LONG align = request->cbAlign;
    if (align <= 0 || (align & (align - 1)) != 0 || info.dwPageSize % static_cast<DWORD>(align) != 0) {
        return VFW_E_BADALIGN;
    }
    if (m_bCommitted) {
        return VFW_E_ALREADY_COMMITTED;
    }
    if (SamplesHome() < m_lAllocated) {
        return VFW_E_BUFFERS_OUTSTANDING;
    }
    const LONGLONG unit = static_cast<LONGLONG>(request->cbBuffer) + request->cbPrefix;
    const LONGLONG rounded = (unit + align - 1) / align * align - request->cbPrefix;
    if (rounded > MAXLONG) {
        return E_OUTOFMEMORY;
    }
    actual->cBuffers = m_lCount = request->cBuffers;
    actual->cbBuffer = m_lSize = static_cast<LONG>(rounded);
    actual->cbAlign = m_lAlignment = align;
    actual->cbPrefix = m_lPrefix = request->cbPrefix;
    m_bChanged = TRUE;
    return S_OK;
}

STDMETHODIMP CEncoderAllocator::GetProperties(ALLOCATOR_PROPERTIES* props) {
    const HRESULT hr = CBaseAllocator::GetProperties(props);
    if (SUCCEEDED(hr)) {
        props->cBuffers = 10;
    }
    return hr;
}

HRESULT CEncoderAllocator::Alloc() {
    HRESULT hr = CBaseAllocator::Alloc(); // VFW_E_SIZENOTSET, or S_FALSE when nothing changed
    if (FAILED(hr)) {
        return hr;
    }
    const bool keep = hr == S_FALSE && m_lAllocated == m_lCount;
    hr = handOver_.Reset(static_cast<std::size_t>(m_lCount), keep);
    if (FAILED(hr) || keep) {
        return hr;
    }
    DeleteSamples();
    hr = handOver_.Reset(static_cast<std::size_t>(m_lCount), false);
    if (FAILED(hr)) {
        return hr;
    }
    for (LONG i = 0; i < m_lCount; ++i) {
        HRESULT made = S_OK;
        auto* sample = new (std::nothrow) CMediaSample(L"encoder sample", this, &made);
        if (sample == nullptr || FAILED(made)) {
            delete sample;
            DeleteSamples();
            return E_OUTOFMEMORY;
        }
        handOver_.AddFree(sample);
        ++m_lAllocated;
    }
    m_bChanged = FALSE;
    return S_OK;
}

void CEncoderAllocator::Free() {
    handOver_.RecallQueued();
}

void CEncoderAllocator::ReturnSample(CMediaSample* sample) {
    handOver_.Release(sample);
}

LONG CEncoderAllocator::SamplesHome() {
    return static_cast<LONG>(handOver_.HomeCount());
}

void CEncoderAllocator::WakeWaiters() {
    handOver_.WakeAll();
}

STDMETHODIMP CEncoderAllocator::GetBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end,
                                          DWORD flags) {
    (void)start;
    (void)end;
    if (sample == nullptr) {
        return E_POINTER;
    }
    *sample = nullptr;
    CMediaSample* taken = nullptr;
    const HRESULT hr = handOver_.Take(&taken, flags);
    if (FAILED(hr)) {
        return hr;
    }
    taken->m_cRef = 1;
    *sample = taken;
    return S_OK;
}

STDMETHODIMP CEncoderAllocator::TakeFreeSample(CMediaSample** sample) {
    return handOver_.TakeFree(sample);
}

STDMETHODIMP CEncoderAllocator::QueueSample(CMediaSample* sample) {
    return handOver_.Queue(sample);
}

STDMETHODIMP CEncoderAllocator::ReclaimBuffers(std::vector<void*>& buffers) {
    return handOver_.Reclaim(buffers);
}

void STDMETHODCALLTYPE CEncoderAllocator::SignalEnd() {
    handOver_.SignalEnd();
}

BOOL STDMETHODCALLTYPE CEncoderAllocator::EndReached() {
    return handOver_.EndReached() ? TRUE : FALSE;
}

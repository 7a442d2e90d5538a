#include "dshow/base/trans_in_place_filter.h"

#include <cstring>
#include <new>

// ---- CTransInPlaceInputPin ----

CTransInPlaceInputPin::CTransInPlaceInputPin(const wchar_t* pObjectName, CTransInPlaceFilter* pFilter,
                                             HRESULT* phr, LPCWSTR pName)
    : CTransformInputPin(pObjectName, pFilter, phr, pName), m_pTIPFilter(pFilter) {}

STDMETHODIMP CTransInPlaceInputPin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    IPin* downstream = m_pTIPFilter->m_pOutput->GetConnected();
    if (downstream == nullptr) {
        *ppEnum = nullptr;
        return VFW_E_NOT_CONNECTED;
    }
    return downstream->EnumMediaTypes(ppEnum);
}

STDMETHODIMP CTransInPlaceInputPin::GetAllocator(IMemAllocator** ppAllocator) {
    if (ppAllocator == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    CTransInPlaceOutputPin* output = m_pTIPFilter->OutputPin();
    if (!output->IsConnected()) {
        // Only for the time being: connecting the output reconnects this pin.
        return CTransformInputPin::GetAllocator(ppAllocator);
    }
    const HRESULT hr = output->ConnectedIMemInputPin()->GetAllocator(ppAllocator);
    if (SUCCEEDED(hr)) {
        output->SetAllocator(*ppAllocator);
    }
    return hr;
}

STDMETHODIMP CTransInPlaceInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) {
    if (pProps == nullptr) {
        return E_POINTER;
    }
    CTransInPlaceOutputPin* output = m_pTIPFilter->OutputPin();
    if (!output->IsConnected()) {
        return E_NOTIMPL;
    }
    return output->ConnectedIMemInputPin()->GetAllocatorRequirements(pProps);
}

STDMETHODIMP CTransInPlaceInputPin::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) {
    if (pAllocator == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    CTransInPlaceOutputPin* output = m_pTIPFilter->OutputPin();
    if (!output->IsConnected()) {
        // Never used: connecting the output reconnects this pin with the allocator that counts.
        return CBaseInputPin::NotifyAllocator(pAllocator, bReadOnly);
    }
    IMemInputPin* downstream = output->ConnectedIMemInputPin();
    HRESULT hr = S_OK;
    if (bReadOnly && m_pTIPFilter->m_bModifiesData) {
        // We may not write into upstream's buffers: the output needs an allocator of its own.
        IMemAllocator* outputAllocator = output->PeekAllocator();
        if (outputAllocator == nullptr || outputAllocator == pAllocator) {
            outputAllocator = nullptr;
            hr = downstream->GetAllocator(&outputAllocator);
            if (SUCCEEDED(hr) && outputAllocator == pAllocator) {
                outputAllocator->Release();
                outputAllocator = nullptr;
                hr = E_FAIL; // downstream offers only upstream's allocator
            }
            if (FAILED(hr)) {
                hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                      reinterpret_cast<void**>(&outputAllocator));
            }
            if (SUCCEEDED(hr)) {
                output->SetAllocator(outputAllocator);
                outputAllocator->Release(); // the output pin holds it now
            }
        }
        // Copies need room for whatever upstream puts in its buffers.
        ALLOCATOR_PROPERTIES props{};
        ALLOCATOR_PROPERTIES actual{};
        if (SUCCEEDED(hr)) {
            hr = pAllocator->GetProperties(&props);
        }
        if (SUCCEEDED(hr)) {
            hr = outputAllocator->SetProperties(&props, &actual);
        }
        if (SUCCEEDED(hr) && (actual.cBuffers < props.cBuffers || actual.cbBuffer < props.cbBuffer ||
                              actual.cbAlign < props.cbAlign)) {
            hr = E_FAIL;
        }
        if (SUCCEEDED(hr)) {
            hr = downstream->NotifyAllocator(outputAllocator, FALSE);
        }
    } else {
        hr = downstream->NotifyAllocator(pAllocator, bReadOnly);
        if (SUCCEEDED(hr)) {
            output->SetAllocator(pAllocator);
        }
    }
    if (SUCCEEDED(hr)) {
        hr = CBaseInputPin::NotifyAllocator(pAllocator, bReadOnly);
    }
    return hr;
}

HRESULT CTransInPlaceInputPin::CheckMediaType(const CMediaType* pmt) {
    const HRESULT hr = m_pTIPFilter->CheckInputType(pmt);
    if (hr != S_OK) {
        return hr;
    }
    IPin* downstream = m_pTIPFilter->m_pOutput->GetConnected();
    return downstream != nullptr ? downstream->QueryAccept(pmt) : S_OK;
}

// ---- CTransInPlaceOutputPin ----

CTransInPlaceOutputPin::CTransInPlaceOutputPin(const wchar_t* pObjectName, CTransInPlaceFilter* pFilter,
                                               HRESULT* phr, LPCWSTR pName)
    : CTransformOutputPin(pObjectName, pFilter, phr, pName), m_pTIPFilter(pFilter) {}

STDMETHODIMP CTransInPlaceOutputPin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    IPin* upstream = m_pTIPFilter->m_pInput->GetConnected();
    if (upstream == nullptr) {
        *ppEnum = nullptr;
        return VFW_E_NOT_CONNECTED;
    }
    return upstream->EnumMediaTypes(ppEnum);
}

HRESULT CTransInPlaceOutputPin::CheckMediaType(const CMediaType* pmt) {
    // The input allocator's buffers were sized for the current type: too late to change it.
    if (m_pTIPFilter->UsingDifferentAllocators() && !m_pFilter->IsStopped()) {
        return *pmt == m_mt ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
    const HRESULT hr = m_pTIPFilter->CheckInputType(pmt);
    if (hr != S_OK) {
        return hr;
    }
    IPin* upstream = m_pTIPFilter->m_pInput->GetConnected();
    return upstream != nullptr ? upstream->QueryAccept(pmt) : S_OK;
}

void CTransInPlaceOutputPin::SetAllocator(IMemAllocator* pAllocator) {
    pAllocator->AddRef(); // before the Release: it may be the same allocator
    if (m_pAllocator != nullptr) {
        m_pAllocator->Release();
    }
    m_pAllocator = pAllocator;
}

// ---- CTransInPlaceFilter ----

CTransInPlaceFilter::CTransInPlaceFilter(const wchar_t* pName, LPUNKNOWN pUnk, REFCLSID clsid, HRESULT* phr,
                                         bool bModifiesData)
    : CTransformFilter(pName, pUnk, clsid), m_bModifiesData(bModifiesData) {
    (void)phr;
}

CBasePin* CTransInPlaceFilter::GetPin(int n) {
    if (m_pInput == nullptr) {
        HRESULT hr = S_OK;
        m_pInput = new (std::nothrow) CTransInPlaceInputPin(L"TransInPlace input pin", this, &hr, L"Input");
        if (m_pInput == nullptr || FAILED(hr)) {
            delete m_pInput;
            m_pInput = nullptr;
            return nullptr;
        }
        m_pOutput =
            new (std::nothrow) CTransInPlaceOutputPin(L"TransInPlace output pin", this, &hr, L"Output");
        if (m_pOutput == nullptr || FAILED(hr)) {
            delete m_pOutput;
            delete m_pInput;
            m_pOutput = nullptr;
            m_pInput = nullptr;
            return nullptr;
        }
    }
    return n == 0 ? static_cast<CBasePin*>(m_pInput) : n == 1 ? static_cast<CBasePin*>(m_pOutput) : nullptr;
}

HRESULT CTransInPlaceFilter::GetMediaType(int iPosition, CMediaType* pMediaType) {
    (void)iPosition;
    (void)pMediaType;
    return E_UNEXPECTED; // never asked: the output pin enumerates upstream's types
}

HRESULT CTransInPlaceFilter::CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) {
    (void)mtIn;
    (void)mtOut;
    return S_OK;
}

HRESULT CTransInPlaceFilter::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProperties) {
    if (pAlloc == nullptr || pProperties == nullptr) {
        return E_POINTER;
    }
    ALLOCATOR_PROPERTIES request{1, 1, 1, 0};
    IMemAllocator* inputAllocator = InputPin()->PeekAllocator();
    if (m_pInput->IsConnected() && inputAllocator != nullptr) {
        const HRESULT hr = inputAllocator->GetProperties(&request);
        if (FAILED(hr)) {
            return hr;
        }
    }
    // Upstream's count and size, downstream's alignment and prefix where they ask for more.
    ALLOCATOR_PROPERTIES wanted{};
    wanted.cBuffers = request.cBuffers > 0 ? request.cBuffers : 1;
    wanted.cbBuffer = request.cbBuffer > 0 ? request.cbBuffer : 1;
    wanted.cbAlign = request.cbAlign > pProperties->cbAlign ? request.cbAlign : pProperties->cbAlign;
    if (wanted.cbAlign < 1) {
        wanted.cbAlign = 1;
    }
    wanted.cbPrefix = pProperties->cbPrefix > 0 ? pProperties->cbPrefix : 0;
    ALLOCATOR_PROPERTIES actual{};
    const HRESULT hr = pAlloc->SetProperties(&wanted, &actual);
    if (FAILED(hr)) {
        return hr;
    }
    if (actual.cBuffers < wanted.cBuffers || actual.cbBuffer < wanted.cbBuffer ||
        actual.cbAlign < wanted.cbAlign) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CTransInPlaceFilter::CompleteConnect(PIN_DIRECTION dir, IPin* pReceivePin) {
    (void)pReceivePin;
    // Reconnection goes through the graph.
    if (m_pGraph == nullptr) {
        return VFW_E_NOT_IN_GRAPH;
    }
    if (dir == PINDIR_OUTPUT) {
        // Always: upstream then allocates with downstream's allocator, and the type is the output's.
        return m_pInput->IsConnected() ? ReconnectPin(m_pInput, &m_pOutput->CurrentMediaType()) : S_OK;
    }
    if (m_pOutput->IsConnected() && !TypesMatch()) {
        return ReconnectPin(m_pOutput, &m_pInput->CurrentMediaType());
    }
    return S_OK;
}

IMediaSample* CTransInPlaceFilter::Copy(IMediaSample* pSource) {
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    const bool timed = pSource->GetTime(&start, &stop) == S_OK;
    IMediaSample* dest = nullptr;
    HRESULT hr =
        OutputPin()->PeekAllocator()->GetBuffer(&dest, timed ? &start : nullptr, timed ? &stop : nullptr,
                                                m_bSampleSkipped ? AM_GBF_PREVFRAMESKIPPED : 0);
    if (FAILED(hr)) {
        return nullptr;
    }
    const LONG length = pSource->GetActualDataLength();
    BYTE* from = nullptr;
    BYTE* to = nullptr;
    if (length < 0 || length > dest->GetSize() || FAILED(pSource->GetPointer(&from)) ||
        FAILED(dest->GetPointer(&to))) {
        dest->Release();
        return nullptr;
    }

    IMediaSample2* dest2 = nullptr;
    if (SUCCEEDED(dest->QueryInterface(IID_IMediaSample2, reinterpret_cast<void**>(&dest2)))) {
        // Every property up to the buffer (which stays the destination's), as the input pin read them.
        hr = dest2->SetProperties(offsetof(AM_SAMPLE2_PROPERTIES, pbBuffer),
                                  reinterpret_cast<const BYTE*>(m_pInput->SampleProps()));
        dest2->Release();
    } else {
        if (timed) {
            dest->SetTime(&start, &stop);
        }
        dest->SetSyncPoint(pSource->IsSyncPoint() == S_OK);
        dest->SetDiscontinuity(pSource->IsDiscontinuity() == S_OK);
        dest->SetPreroll(pSource->IsPreroll() == S_OK);
        AM_MEDIA_TYPE* type = nullptr;
        if (pSource->GetMediaType(&type) == S_OK) {
            hr = dest->SetMediaType(type);
            DeleteMediaType(type);
        }
    }
    if (SUCCEEDED(hr)) {
        hr = dest->SetActualDataLength(length);
    }
    if (FAILED(hr)) {
        dest->Release();
        return nullptr;
    }
    if (m_bSampleSkipped) {
        dest->SetDiscontinuity(TRUE);
        m_bSampleSkipped = FALSE;
    }
    LONGLONG mediaStart = 0;
    LONGLONG mediaStop = 0;
    if (pSource->GetMediaTime(&mediaStart, &mediaStop) == S_OK) {
        dest->SetMediaTime(&mediaStart, &mediaStop);
    }
    if (length > 0) {
        std::memcpy(to, from, static_cast<size_t>(length));
    }
    return dest;
}

HRESULT CTransInPlaceFilter::Receive(IMediaSample* pSample) {
    if (m_pInput->SampleProps()->dwStreamId != AM_STREAM_MEDIA) {
        return m_pOutput->Deliver(pSample);
    }
    // Our own reference on a copy; upstream's sample is delivered under upstream's reference.
    const bool copied = UsingDifferentAllocators() != FALSE;
    IMediaSample* sample = pSample;
    if (copied) {
        sample = Copy(pSample);
        if (sample == nullptr) {
            return E_UNEXPECTED;
        }
    }
    HRESULT hr = Transform(sample);
    if (hr == S_OK) {
        hr = m_pOutput->Deliver(sample);
        m_bSampleSkipped = FALSE;
    } else if (hr == S_FALSE) {
        // Dropped by agreement with the derived class; S_FALSE upstream would mean end of stream.
        m_bSampleSkipped = TRUE;
        if (!m_bQualityChanged) {
            NotifyEvent(EC_QUALITY_CHANGE, 0, 0);
            m_bQualityChanged = TRUE;
        }
        hr = S_OK;
    }
    if (copied) {
        sample->Release();
    }
    return hr;
}

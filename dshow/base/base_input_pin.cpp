#include "dshow/base/base_input_pin.h"

CBaseInputPin::CBaseInputPin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr,
                             LPCWSTR pName)
    : CBasePin(pObjectName, pFilter, pLock, phr, pName, PINDIR_INPUT) {}

CBaseInputPin::~CBaseInputPin() {
    DeleteMediaType(m_pOwnedType);
    if (m_pAllocator != nullptr) {
        m_pAllocator->Release();
    }
}

STDMETHODIMP CBaseInputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IMemInputPin)) {
        return GetInterface(static_cast<IMemInputPin*>(this), ppv);
    }
    return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CBaseInputPin::GetAllocator(IMemAllocator** ppAllocator) {
    if (ppAllocator == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    if (m_pAllocator == nullptr) {
        const HRESULT hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                                            IID_IMemAllocator, reinterpret_cast<void**>(&m_pAllocator));
        if (FAILED(hr)) {
            m_pAllocator = nullptr;
            *ppAllocator = nullptr;
            return hr;
        }
    }
    *ppAllocator = m_pAllocator;
    m_pAllocator->AddRef();
    return S_OK;
}

STDMETHODIMP CBaseInputPin::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) {
    if (pAllocator == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    // AddRef before Release: upstream may hand back the allocator we proposed.
    pAllocator->AddRef();
    if (m_pAllocator != nullptr) {
        m_pAllocator->Release();
    }
    m_pAllocator = pAllocator;
    m_bReadOnly = bReadOnly ? TRUE : FALSE;
    return S_OK;
}

STDMETHODIMP CBaseInputPin::Receive(IMediaSample* pSample) {
    if (pSample == nullptr) {
        return E_POINTER;
    }
    HRESULT hr = CheckStreamingState();
    if (hr != S_OK) {
        return hr;
    }
    DeleteMediaType(m_pOwnedType);
    m_pOwnedType = nullptr;

    IMediaSample2* sample2 = nullptr;
    if (SUCCEEDED(pSample->QueryInterface(IID_IMediaSample2, reinterpret_cast<void**>(&sample2)))) {
        hr = sample2->GetProperties(sizeof(m_SampleProps), reinterpret_cast<BYTE*>(&m_SampleProps));
        sample2->Release();
        if (FAILED(hr)) {
            return hr;
        }
    } else {
        // A sample of IMediaSample alone: assemble the same properties from its accessors.
        m_SampleProps = AM_SAMPLE2_PROPERTIES{};
        m_SampleProps.cbData = sizeof(m_SampleProps);
        m_SampleProps.dwStreamId = AM_STREAM_MEDIA;
        DWORD flags = 0;
        if (pSample->IsDiscontinuity() == S_OK) {
            flags |= AM_SAMPLE_DATADISCONTINUITY;
        }
        if (pSample->IsPreroll() == S_OK) {
            flags |= AM_SAMPLE_PREROLL;
        }
        if (pSample->IsSyncPoint() == S_OK) {
            flags |= AM_SAMPLE_SPLICEPOINT;
        }
        const HRESULT timeResult = pSample->GetTime(&m_SampleProps.tStart, &m_SampleProps.tStop);
        if (SUCCEEDED(timeResult)) {
            flags |= AM_SAMPLE_TIMEVALID;
            // VFW_S_NO_STOP_TIME: the sample has a start time only.
            if (timeResult == S_OK) {
                flags |= AM_SAMPLE_STOPVALID;
            }
        }
        if (pSample->GetMediaType(&m_pOwnedType) == S_OK && m_pOwnedType != nullptr) {
            flags |= AM_SAMPLE_TYPECHANGED;
            m_SampleProps.pMediaType = m_pOwnedType;
        }
        m_SampleProps.dwSampleFlags = flags;
        pSample->GetPointer(&m_SampleProps.pbBuffer);
        m_SampleProps.lActual = pSample->GetActualDataLength();
        m_SampleProps.cbBuffer = pSample->GetSize();
    }

    if ((m_SampleProps.dwSampleFlags & AM_SAMPLE_TYPECHANGED) == 0) {
        return S_OK;
    }
    if (m_SampleProps.pMediaType != nullptr &&
        CheckMediaType(static_cast<const CMediaType*>(m_SampleProps.pMediaType)) == S_OK) {
        return S_OK;
    }
    // A type we cannot take mid-stream ends the stream; the graph learns why.
    m_bRunTimeError = TRUE;
    EndOfStream();
    m_pFilter->NotifyEvent(EC_ERRORABORT, VFW_E_TYPE_NOT_ACCEPTED, 0);
    return VFW_E_INVALIDMEDIATYPE;
}

STDMETHODIMP CBaseInputPin::ReceiveMultiple(IMediaSample** pSamples, long nSamples, long* nSamplesProcessed) {
    if (pSamples == nullptr || nSamplesProcessed == nullptr) {
        return E_POINTER;
    }
    HRESULT hr = S_OK;
    *nSamplesProcessed = 0;
    while (nSamples-- > 0) {
        hr = Receive(pSamples[*nSamplesProcessed]);
        if (hr != S_OK) {
            break;
        }
        ++*nSamplesProcessed;
    }
    return hr;
}

STDMETHODIMP CBaseInputPin::ReceiveCanBlock() {
    int outputs = 0;
    const int count = m_pFilter->GetPinCount();
    for (int i = 0; i < count; ++i) {
        CBasePin* pin = m_pFilter->GetPin(i);
        if (pin == nullptr) {
            break;
        }
        PIN_DIRECTION dir = PINDIR_INPUT;
        if (FAILED(pin->QueryDirection(&dir)) || dir != PINDIR_OUTPUT) {
            continue;
        }
        IPin* peer = nullptr;
        if (FAILED(pin->ConnectedTo(&peer)) || peer == nullptr) {
            continue;
        }
        ++outputs;
        IMemInputPin* input = nullptr;
        const HRESULT hr = peer->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input));
        peer->Release();
        if (FAILED(hr)) {
            // A transport we do not know may block.
            return S_OK;
        }
        const HRESULT blocks = input->ReceiveCanBlock();
        input->Release();
        if (blocks != S_FALSE) {
            return S_OK;
        }
    }
    return outputs == 0 ? S_OK : S_FALSE;
}

STDMETHODIMP CBaseInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) {
    (void)pProps;
    return E_NOTIMPL;
}

STDMETHODIMP CBaseInputPin::BeginFlush() {
    CAutoLock lock(*m_pLock);
    m_bFlushing = TRUE;
    return S_OK;
}

STDMETHODIMP CBaseInputPin::EndFlush() {
    CAutoLock lock(*m_pLock);
    m_bFlushing = FALSE;
    m_bRunTimeError = FALSE;
    return S_OK;
}

STDMETHODIMP CBaseInputPin::Notify(IBaseFilter* pSender, Quality q) {
    (void)pSender;
    (void)q;
    return E_NOTIMPL;
}

HRESULT CBaseInputPin::CheckStreamingState() {
    if (m_bFlushing) {
        return S_FALSE;
    }
    if (IsStopped()) {
        return VFW_E_WRONG_STATE;
    }
    if (m_bRunTimeError) {
        return VFW_E_RUNTIME_ERROR;
    }
    return S_OK;
}

HRESULT CBaseInputPin::CheckConnect(IPin* pPin) {
    return CBasePin::CheckConnect(pPin);
}

HRESULT CBaseInputPin::BreakConnect() {
    if (m_pAllocator != nullptr) {
        // Upstream may not decommit before it lets go; buffers left committed would never be freed.
        const HRESULT hr = m_pAllocator->Decommit();
        if (FAILED(hr)) {
            return hr;
        }
        m_pAllocator->Release();
        m_pAllocator = nullptr;
    }
    return S_OK;
}

HRESULT CBaseInputPin::Inactive() {
    m_bRunTimeError = FALSE;
    if (m_pAllocator == nullptr) {
        return VFW_E_NO_ALLOCATOR;
    }
    m_bFlushing = FALSE;
    return m_pAllocator->Decommit();
}

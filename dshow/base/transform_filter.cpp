#include "dshow/base/transform_filter.h"

#include <cwchar>
#include <new>

// ---- CTransformInputPin ----

CTransformInputPin::CTransformInputPin(const wchar_t* pObjectName, CTransformFilter* pTransformFilter,
                                       HRESULT* phr, LPCWSTR pName)
    : CBaseInputPin(pObjectName, pTransformFilter, &pTransformFilter->m_csFilter, phr, pName),
      m_pTransformFilter(pTransformFilter) {}

HRESULT CTransformInputPin::CheckConnect(IPin* pPin) {
    const HRESULT hr = m_pTransformFilter->CheckConnect(PINDIR_INPUT, pPin);
    return FAILED(hr) ? hr : CBaseInputPin::CheckConnect(pPin);
}

HRESULT CTransformInputPin::BreakConnect() {
    m_pTransformFilter->BreakConnect(PINDIR_INPUT);
    return CBaseInputPin::BreakConnect();
}

HRESULT CTransformInputPin::CompleteConnect(IPin* pReceivePin) {
    const HRESULT hr = m_pTransformFilter->CompleteConnect(PINDIR_INPUT, pReceivePin);
    return FAILED(hr) ? hr : CBaseInputPin::CompleteConnect(pReceivePin);
}

HRESULT CTransformInputPin::CheckMediaType(const CMediaType* mtIn) {
    HRESULT hr = m_pTransformFilter->CheckInputType(mtIn);
    if (hr != S_OK) {
        return hr;
    }
    // A reconnection of the input must keep a type the output can still be made from.
    CTransformOutputPin* output = m_pTransformFilter->m_pOutput;
    if (output != nullptr && output->IsConnected()) {
        hr = m_pTransformFilter->CheckTransform(mtIn, &output->CurrentMediaType());
    }
    return hr;
}

HRESULT CTransformInputPin::SetMediaType(const CMediaType* mt) {
    const HRESULT hr = CBaseInputPin::SetMediaType(mt);
    return FAILED(hr) ? hr : m_pTransformFilter->SetMediaType(PINDIR_INPUT, mt);
}

STDMETHODIMP CTransformInputPin::Receive(IMediaSample* pSample) {
    CAutoLock lock(m_pTransformFilter->m_csReceive);
    HRESULT hr = CBaseInputPin::Receive(pSample);
    if (hr == S_OK) {
        hr = m_pTransformFilter->Receive(pSample);
    }
    return hr;
}

STDMETHODIMP CTransformInputPin::EndOfStream() {
    CAutoLock lock(m_pTransformFilter->m_csReceive);
    HRESULT hr = CheckStreamingState();
    if (hr == S_OK) {
        hr = m_pTransformFilter->EndOfStream();
    }
    return hr;
}

STDMETHODIMP CTransformInputPin::BeginFlush() {
    CAutoLock lock(m_pTransformFilter->m_csFilter);
    if (!IsConnected() || !m_pTransformFilter->m_pOutput->IsConnected()) {
        return VFW_E_NOT_CONNECTED;
    }
    // Refuse samples first, then clear downstream, which releases a Receive blocked there.
    const HRESULT hr = CBaseInputPin::BeginFlush();
    return FAILED(hr) ? hr : m_pTransformFilter->BeginFlush();
}

STDMETHODIMP CTransformInputPin::EndFlush() {
    CAutoLock lock(m_pTransformFilter->m_csFilter);
    if (!IsConnected() || !m_pTransformFilter->m_pOutput->IsConnected()) {
        return VFW_E_NOT_CONNECTED;
    }
    const HRESULT hr = m_pTransformFilter->EndFlush();
    return FAILED(hr) ? hr : CBaseInputPin::EndFlush();
}

STDMETHODIMP CTransformInputPin::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
    CBasePin::NewSegment(tStart, tStop, dRate);
    return m_pTransformFilter->NewSegment(tStart, tStop, dRate);
}

// ---- CTransformOutputPin ----

CTransformOutputPin::CTransformOutputPin(const wchar_t* pObjectName, CTransformFilter* pTransformFilter,
                                         HRESULT* phr, LPCWSTR pName)
    : CBaseOutputPin(pObjectName, pTransformFilter, &pTransformFilter->m_csFilter, phr, pName),
      m_pTransformFilter(pTransformFilter) {}

HRESULT CTransformOutputPin::CheckConnect(IPin* pPin) {
    const HRESULT hr = m_pTransformFilter->CheckConnect(PINDIR_OUTPUT, pPin);
    return FAILED(hr) ? hr : CBaseOutputPin::CheckConnect(pPin);
}

HRESULT CTransformOutputPin::BreakConnect() {
    m_pTransformFilter->BreakConnect(PINDIR_OUTPUT);
    return CBaseOutputPin::BreakConnect();
}

HRESULT CTransformOutputPin::CompleteConnect(IPin* pReceivePin) {
    // The allocator first (the base), so that the filter's own step sees the connection complete (an
    // in-place filter then reconnects its input onto this allocator).
    HRESULT hr = CBaseOutputPin::CompleteConnect(pReceivePin);
    if (SUCCEEDED(hr)) {
        hr = m_pTransformFilter->CompleteConnect(PINDIR_OUTPUT, pReceivePin);
    }
    return hr;
}

HRESULT CTransformOutputPin::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) {
    return m_pTransformFilter->DecideBufferSize(pAlloc, pProp);
}

HRESULT CTransformOutputPin::CheckMediaType(const CMediaType* mtOut) {
    CTransformInputPin* input = m_pTransformFilter->m_pInput;
    if (!input->IsConnected()) {
        return E_INVALIDARG;
    }
    return m_pTransformFilter->CheckTransform(&input->CurrentMediaType(), mtOut);
}

HRESULT CTransformOutputPin::SetMediaType(const CMediaType* mt) {
    const HRESULT hr = CBaseOutputPin::SetMediaType(mt);
    return FAILED(hr) ? hr : m_pTransformFilter->SetMediaType(PINDIR_OUTPUT, mt);
}

HRESULT CTransformOutputPin::GetMediaType(int iPosition, CMediaType* pMediaType) {
    if (!m_pTransformFilter->m_pInput->IsConnected()) {
        return VFW_S_NO_MORE_ITEMS;
    }
    return m_pTransformFilter->GetMediaType(iPosition, pMediaType);
}

STDMETHODIMP CTransformOutputPin::Notify(IBaseFilter* pSender, Quality q) {
    (void)pSender;
    const HRESULT hr = m_pTransformFilter->AlterQuality(q);
    if (hr != S_FALSE) {
        return hr;
    }
    // Not ours to handle: to whoever feeds our input.
    IPin* upstream = m_pTransformFilter->m_pInput->GetConnected();
    IQualityControl* sink = nullptr;
    if (upstream == nullptr ||
        FAILED(upstream->QueryInterface(IID_IQualityControl, reinterpret_cast<void**>(&sink)))) {
        return VFW_E_NOT_FOUND;
    }
    const HRESULT passed = sink->Notify(m_pTransformFilter, q);
    sink->Release();
    return passed;
}

// ---- CTransformFilter ----

CTransformFilter::CTransformFilter(const wchar_t* pName, LPUNKNOWN pUnk, REFCLSID clsid)
    : CBaseFilter(pName, pUnk, &m_csFilter, clsid) {}

CTransformFilter::~CTransformFilter() {
    // The pins share our reference count: nobody else can hold them now.
    delete m_pInput;
    delete m_pOutput;
}

int CTransformFilter::GetPinCount() {
    return 2;
}

CBasePin* CTransformFilter::GetPin(int n) {
    if (m_pInput == nullptr) {
        HRESULT hr = S_OK;
        m_pInput = new (std::nothrow) CTransformInputPin(L"Transform input pin", this, &hr, L"XForm In");
        if (m_pInput == nullptr || FAILED(hr)) {
            delete m_pInput;
            m_pInput = nullptr;
            return nullptr;
        }
        m_pOutput = new (std::nothrow) CTransformOutputPin(L"Transform output pin", this, &hr, L"XForm Out");
        if (m_pOutput == nullptr || FAILED(hr)) {
            delete m_pOutput;
            delete m_pInput;
            m_pOutput = nullptr;
            m_pInput = nullptr;
            return nullptr;
        }
    }
    switch (n) {
    case 0:
        return m_pInput;
    case 1:
        return m_pOutput;
    default:
        return nullptr;
    }
}

STDMETHODIMP CTransformFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
    if (Id == nullptr || ppPin == nullptr) {
        return E_POINTER;
    }
    const int n = std::wcscmp(Id, L"In") == 0 ? 0 : std::wcscmp(Id, L"Out") == 0 ? 1 : -1;
    if (n < 0) {
        return CBaseFilter::FindPin(Id, ppPin);
    }
    CBasePin* pin = GetPin(n);
    if (pin == nullptr) {
        *ppPin = nullptr;
        return E_OUTOFMEMORY;
    }
    return GetInterface(static_cast<IPin*>(pin), reinterpret_cast<void**>(ppPin));
}

STDMETHODIMP CTransformFilter::Stop() {
    CAutoLock lock(m_csFilter);
    if (m_State == State_Stopped) {
        return S_OK;
    }
    if (m_pInput == nullptr || !m_pInput->IsConnected() || !m_pOutput->IsConnected()) {
        m_State = State_Stopped;
        m_bEOSDelivered = FALSE;
        return S_OK;
    }
    // Decommitting the input first fails a Receive blocked in the upstream allocator; only then can we
    // take the receive lock without waiting on a sample that never comes.
    m_pInput->Inactive();
    CAutoLock receiving(m_csReceive);
    m_pOutput->Inactive();
    const HRESULT hr = StopStreaming();
    if (SUCCEEDED(hr)) {
        m_State = State_Stopped;
        m_bEOSDelivered = FALSE;
    }
    return hr;
}

STDMETHODIMP CTransformFilter::Pause() {
    CAutoLock lock(m_csFilter);
    HRESULT hr = S_OK;
    if (m_State == State_Paused) {
        // nothing to do
    } else if (m_pInput == nullptr || !m_pInput->IsConnected()) {
        // No data will ever come: tell downstream so that the graph can complete.
        if (m_pOutput != nullptr && m_pOutput->IsConnected() && !m_bEOSDelivered) {
            m_pOutput->DeliverEndOfStream();
            m_bEOSDelivered = TRUE;
        }
        m_State = State_Paused;
    } else if (!m_pOutput->IsConnected()) {
        m_State = State_Paused;
    } else {
        if (m_State == State_Stopped) {
            CAutoLock receiving(m_csReceive);
            hr = StartStreaming();
        }
        if (SUCCEEDED(hr)) {
            hr = CBaseFilter::Pause();
        }
    }
    m_bSampleSkipped = FALSE;
    m_bQualityChanged = FALSE;
    return hr;
}

HRESULT CTransformFilter::Transform(IMediaSample* pIn, IMediaSample* pOut) {
    (void)pIn;
    (void)pOut;
    return E_UNEXPECTED; // a copying transform must override this
}

HRESULT CTransformFilter::StartStreaming() {
    return S_OK;
}

HRESULT CTransformFilter::StopStreaming() {
    return S_OK;
}

HRESULT CTransformFilter::AlterQuality(Quality q) {
    (void)q;
    return S_FALSE;
}

HRESULT CTransformFilter::SetMediaType(PIN_DIRECTION direction, const CMediaType* pmt) {
    (void)direction;
    (void)pmt;
    return S_OK;
}

HRESULT CTransformFilter::CheckConnect(PIN_DIRECTION dir, IPin* pPin) {
    (void)dir;
    (void)pPin;
    return S_OK;
}

HRESULT CTransformFilter::BreakConnect(PIN_DIRECTION dir) {
    (void)dir;
    return S_OK;
}

HRESULT CTransformFilter::CompleteConnect(PIN_DIRECTION direction, IPin* pReceivePin) {
    (void)direction;
    (void)pReceivePin;
    return S_OK;
}

HRESULT CTransformFilter::InitializeOutputSample(IMediaSample* pSample, IMediaSample** ppOutSample) {
    *ppOutSample = nullptr;
    AM_SAMPLE2_PROPERTIES* const props = m_pInput->SampleProps();
    DWORD flags = m_bSampleSkipped ? AM_GBF_PREVFRAMESKIPPED : 0;
    if ((props->dwSampleFlags & AM_SAMPLE_SPLICEPOINT) == 0) {
        flags |= AM_GBF_NOTASYNCPOINT;
    }
    IMediaSample* out = nullptr;
    HRESULT hr = m_pOutput->GetDeliveryBuffer(
        &out, (props->dwSampleFlags & AM_SAMPLE_TIMEVALID) != 0 ? &props->tStart : nullptr,
        (props->dwSampleFlags & AM_SAMPLE_STOPVALID) != 0 ? &props->tStop : nullptr, flags);
    if (FAILED(hr)) {
        return hr;
    }

    IMediaSample2* out2 = nullptr;
    if (SUCCEEDED(out->QueryInterface(IID_IMediaSample2, reinterpret_cast<void**>(&out2)))) {
        // The input's flags and times over the output's own leading properties; a type change stays the
        // output's own matter (its type is not the input's).
        AM_SAMPLE2_PROPERTIES outProps{};
        hr = out2->GetProperties(offsetof(AM_SAMPLE2_PROPERTIES, tStart), reinterpret_cast<BYTE*>(&outProps));
        if (SUCCEEDED(hr)) {
            outProps.cbData = offsetof(AM_SAMPLE2_PROPERTIES, dwStreamId);
            outProps.dwTypeSpecificFlags = props->dwTypeSpecificFlags;
            outProps.dwSampleFlags = (outProps.dwSampleFlags & AM_SAMPLE_TYPECHANGED) |
                                     (props->dwSampleFlags & ~static_cast<DWORD>(AM_SAMPLE_TYPECHANGED));
            outProps.tStart = props->tStart;
            outProps.tStop = props->tStop;
            hr = out2->SetProperties(outProps.cbData, reinterpret_cast<BYTE*>(&outProps));
        }
        out2->Release();
        if (FAILED(hr)) {
            out->Release();
            return hr;
        }
    } else {
        if ((props->dwSampleFlags & AM_SAMPLE_TIMEVALID) != 0) {
            out->SetTime(&props->tStart,
                         (props->dwSampleFlags & AM_SAMPLE_STOPVALID) != 0 ? &props->tStop : nullptr);
        }
        out->SetSyncPoint((props->dwSampleFlags & AM_SAMPLE_SPLICEPOINT) != 0);
        out->SetPreroll((props->dwSampleFlags & AM_SAMPLE_PREROLL) != 0);
        out->SetDiscontinuity((props->dwSampleFlags & AM_SAMPLE_DATADISCONTINUITY) != 0);
    }
    // A skipped sample before this one makes this one a discontinuity downstream.
    if (m_bSampleSkipped) {
        out->SetDiscontinuity(TRUE);
    }
    if ((props->dwSampleFlags & AM_SAMPLE_DATADISCONTINUITY) != 0 || m_bSampleSkipped) {
        m_bSampleSkipped = FALSE;
    }
    // Media times are not among the sample properties: carried separately.
    LONGLONG mediaStart = 0;
    LONGLONG mediaStop = 0;
    if (pSample->GetMediaTime(&mediaStart, &mediaStop) == S_OK) {
        out->SetMediaTime(&mediaStart, &mediaStop);
    }
    *ppOutSample = out;
    return S_OK;
}

HRESULT CTransformFilter::Receive(IMediaSample* pSample) {
    if (m_pInput->SampleProps()->dwStreamId != AM_STREAM_MEDIA) {
        return m_pOutput->Deliver(pSample); // control data is not ours to transform
    }
    IMediaSample* out = nullptr;
    HRESULT hr = InitializeOutputSample(pSample, &out);
    if (FAILED(hr)) {
        return hr;
    }
    hr = Transform(pSample, out);
    if (hr == S_OK) {
        hr = m_pOutput->Deliver(out);
        m_bSampleSkipped = FALSE;
    } else if (hr == S_FALSE) {
        // Dropped by agreement with the derived class: not an error, and not the end of the stream that
        // S_FALSE from Receive would mean upstream.
        out->Release();
        out = nullptr;
        m_bSampleSkipped = TRUE;
        if (!m_bQualityChanged) {
            NotifyEvent(EC_QUALITY_CHANGE, 0, 0);
            m_bQualityChanged = TRUE;
        }
        hr = S_OK;
    }
    if (out != nullptr) {
        out->Release(); // downstream holds its own reference if it keeps the sample
    }
    return hr;
}

HRESULT CTransformFilter::EndOfStream() {
    return m_pOutput != nullptr ? m_pOutput->DeliverEndOfStream() : S_OK;
}

HRESULT CTransformFilter::BeginFlush() {
    return m_pOutput != nullptr ? m_pOutput->DeliverBeginFlush() : S_OK;
}

HRESULT CTransformFilter::EndFlush() {
    return m_pOutput != nullptr ? m_pOutput->DeliverEndFlush() : S_OK;
}

HRESULT CTransformFilter::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
    return m_pOutput != nullptr ? m_pOutput->DeliverNewSegment(tStart, tStop, dRate) : S_OK;
}

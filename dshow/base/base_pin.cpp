#include "dshow/base/base_pin.h"

#include <cwchar>
#include <new>

#include "dshow/base/enum_media_types.h"

namespace {

// A task-memory copy of a string, as IPin::QueryId hands out.
HRESULT CopyToTaskMemory(const WCHAR* text, LPWSTR* copy) {
    const size_t length = std::wcslen(text) + 1;
    *copy = static_cast<LPWSTR>(CoTaskMemAlloc(length * sizeof(WCHAR)));
    if (*copy == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::wmemcpy(*copy, text, length);
    return S_OK;
}

// These results say only "no" without a reason; a refusal reports them as "type not accepted".
bool IsPlainRefusal(HRESULT hr) {
    return SUCCEEDED(hr) || hr == E_FAIL || hr == E_INVALIDARG;
}

} // namespace

CBasePin::CBasePin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr,
                   LPCWSTR pName, PIN_DIRECTION dir)
    // The pin stands alone as a COM object, but its reference count is its filter's (see AddRef).
    : CUnknown(pObjectName, nullptr), m_dir(dir), m_pLock(pLock), m_pFilter(pFilter) {
    if (pName != nullptr) {
        const size_t length = std::wcslen(pName) + 1;
        m_pName = new (std::nothrow) WCHAR[length];
        if (m_pName != nullptr) {
            std::wmemcpy(m_pName, pName, length);
        } else if (phr != nullptr) {
            *phr = E_OUTOFMEMORY;
        }
    }
}

CBasePin::~CBasePin() {
    delete[] m_pName;
    if (m_Connected != nullptr) {
        m_Connected->Release();
    }
}

STDMETHODIMP CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IPin)) {
        return GetInterface(static_cast<IPin*>(this), ppv);
    }
    if (IsEqualIID(riid, IID_IQualityControl)) {
        return GetInterface(static_cast<IQualityControl*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP_(ULONG) CBasePin::NonDelegatingAddRef() {
    return m_pFilter->AddRef();
}

STDMETHODIMP_(ULONG) CBasePin::NonDelegatingRelease() {
    return m_pFilter->Release();
}

STDMETHODIMP CBasePin::Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) {
    if (pReceivePin == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    if (m_Connected != nullptr) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (!IsStopped() && !m_bCanReconnectWhenActive) {
        return VFW_E_NOT_STOPPED;
    }
    // A CMediaType adds no data members, so the caller's structure can be read as one.
    const HRESULT hr = AgreeMediaType(pReceivePin, static_cast<const CMediaType*>(pmt));
    if (FAILED(hr)) {
        BreakConnect();
        return hr;
    }
    return S_OK;
}

HRESULT CBasePin::AgreeMediaType(IPin* pReceivePin, const CMediaType* pmt) {
    if (pmt != nullptr && !pmt->IsPartiallySpecified()) {
        return AttemptConnection(pReceivePin, pmt);
    }
    HRESULT failure = VFW_E_NO_ACCEPTABLE_TYPES;
    for (int pass = 0; pass < 2; ++pass) {
        IEnumMediaTypes* types = nullptr;
        // Pass 0 asks the receiver unless we try our own types first.
        const bool receiversTypes = (pass == 0) != m_bTryMyTypesFirst;
        HRESULT hr = receiversTypes ? pReceivePin->EnumMediaTypes(&types) : EnumMediaTypes(&types);
        if (FAILED(hr) || types == nullptr) {
            continue;
        }
        hr = TryMediaTypes(pReceivePin, pmt, types);
        types->Release();
        if (SUCCEEDED(hr)) {
            return S_OK;
        }
        // A specific reason beats the generic one.
        if (hr != E_FAIL && hr != E_INVALIDARG && hr != VFW_E_TYPE_NOT_ACCEPTED) {
            failure = hr;
        }
    }
    return failure;
}

HRESULT CBasePin::TryMediaTypes(IPin* pReceivePin, const CMediaType* pmt, IEnumMediaTypes* pEnum) {
    HRESULT hr = pEnum->Reset();
    if (FAILED(hr)) {
        return hr;
    }
    HRESULT failure = S_OK;
    for (;;) {
        AM_MEDIA_TYPE* type = nullptr;
        ULONG fetched = 0;
        hr = pEnum->Next(1, &type, &fetched);
        if (hr != S_OK || fetched != 1 || type == nullptr) {
            DeleteMediaType(type);
            break;
        }
        const CMediaType* candidate = static_cast<const CMediaType*>(type);
        if (pmt == nullptr || candidate->MatchesPartial(pmt)) {
            hr = AttemptConnection(pReceivePin, candidate);
            if (SUCCEEDED(hr)) {
                DeleteMediaType(type);
                return hr;
            }
            if (failure == S_OK || (hr != E_FAIL && hr != E_INVALIDARG && hr != VFW_E_TYPE_NOT_ACCEPTED)) {
                failure = hr;
            }
        }
        DeleteMediaType(type);
    }
    return failure == S_OK ? VFW_E_NO_ACCEPTABLE_TYPES : failure;
}

HRESULT CBasePin::AttemptConnection(IPin* pReceivePin, const CMediaType* pmt) {
    CAutoLock lock(*m_pLock);
    HRESULT hr = CheckConnect(pReceivePin);
    if (FAILED(hr)) {
        BreakConnect();
        return hr;
    }
    hr = CheckMediaType(pmt);
    if (hr == S_OK) {
        // The peer may call back into us during ReceiveConnection, so we look connected already.
        m_Connected = pReceivePin;
        m_Connected->AddRef();
        hr = SetMediaType(pmt);
        if (SUCCEEDED(hr)) {
            hr = pReceivePin->ReceiveConnection(static_cast<IPin*>(this), pmt);
            if (SUCCEEDED(hr)) {
                hr = CompleteConnect(pReceivePin);
                if (SUCCEEDED(hr)) {
                    return hr;
                }
                pReceivePin->Disconnect();
            }
        }
    } else if (IsPlainRefusal(hr)) {
        hr = VFW_E_TYPE_NOT_ACCEPTED;
    }
    BreakConnect();
    if (m_Connected != nullptr) {
        m_Connected->Release();
        m_Connected = nullptr;
    }
    return hr;
}

STDMETHODIMP CBasePin::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) {
    if (pConnector == nullptr || pmt == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    if (m_Connected != nullptr) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (!IsStopped() && !m_bCanReconnectWhenActive) {
        return VFW_E_NOT_STOPPED;
    }
    HRESULT hr = CheckConnect(pConnector);
    if (FAILED(hr)) {
        BreakConnect();
        return hr;
    }
    const CMediaType* type = static_cast<const CMediaType*>(pmt);
    hr = CheckMediaType(type);
    if (hr != S_OK) {
        BreakConnect();
        return IsPlainRefusal(hr) ? VFW_E_TYPE_NOT_ACCEPTED : hr;
    }
    m_Connected = pConnector;
    m_Connected->AddRef();
    hr = SetMediaType(type);
    if (SUCCEEDED(hr)) {
        hr = CompleteConnect(pConnector);
        if (SUCCEEDED(hr)) {
            return S_OK;
        }
    }
    m_Connected->Release();
    m_Connected = nullptr;
    BreakConnect();
    return hr;
}

STDMETHODIMP CBasePin::Disconnect() {
    CAutoLock lock(*m_pLock);
    if (!IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    return DisconnectInternal();
}

STDMETHODIMP CBasePin::DisconnectInternal() {
    CAutoLock lock(*m_pLock);
    if (m_Connected == nullptr) {
        return S_FALSE;
    }
    const HRESULT hr = BreakConnect();
    if (FAILED(hr)) {
        return hr;
    }
    m_Connected->Release();
    m_Connected = nullptr;
    return S_OK;
}

STDMETHODIMP CBasePin::ConnectedTo(IPin** pPin) {
    if (pPin == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    *pPin = m_Connected;
    if (m_Connected == nullptr) {
        return VFW_E_NOT_CONNECTED;
    }
    m_Connected->AddRef();
    return S_OK;
}

STDMETHODIMP CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* pmt) {
    if (pmt == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    if (m_Connected == nullptr) {
        static_cast<CMediaType*>(pmt)->InitMediaType();
        return VFW_E_NOT_CONNECTED;
    }
    return CopyMediaType(pmt, &m_mt);
}

STDMETHODIMP CBasePin::QueryPinInfo(PIN_INFO* pInfo) {
    if (pInfo == nullptr) {
        return E_POINTER;
    }
    pInfo->pFilter = m_pFilter;
    if (m_pFilter != nullptr) {
        m_pFilter->AddRef();
    }
    pInfo->achName[0] = L'\0';
    if (m_pName != nullptr) {
        wcsncpy(pInfo->achName, m_pName, MAX_PIN_NAME - 1);
        pInfo->achName[MAX_PIN_NAME - 1] = L'\0';
    }
    pInfo->dir = m_dir;
    return S_OK;
}

STDMETHODIMP CBasePin::QueryDirection(PIN_DIRECTION* pPinDir) {
    if (pPinDir == nullptr) {
        return E_POINTER;
    }
    *pPinDir = m_dir;
    return S_OK;
}

STDMETHODIMP CBasePin::QueryId(LPWSTR* Id) {
    if (Id == nullptr) {
        return E_POINTER;
    }
    return CopyToTaskMemory(m_pName != nullptr ? m_pName : L"", Id);
}

STDMETHODIMP CBasePin::QueryAccept(const AM_MEDIA_TYPE* pmt) {
    if (pmt == nullptr) {
        return E_POINTER;
    }
    const HRESULT hr = CheckMediaType(static_cast<const CMediaType*>(pmt));
    return hr == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP CBasePin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = new (std::nothrow) CEnumMediaTypes(this, nullptr);
    return *ppEnum == nullptr ? E_OUTOFMEMORY : S_OK;
}

STDMETHODIMP CBasePin::QueryInternalConnections(IPin** apPin, ULONG* nPin) {
    (void)apPin;
    (void)nPin;
    return E_NOTIMPL;
}

STDMETHODIMP CBasePin::EndOfStream() {
    return S_OK;
}

STDMETHODIMP CBasePin::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
    m_tStart = tStart;
    m_tStop = tStop;
    m_dRate = dRate;
    return S_OK;
}

STDMETHODIMP CBasePin::Notify(IBaseFilter* pSender, Quality q) {
    (void)pSender;
    (void)q;
    return E_NOTIMPL;
}

STDMETHODIMP CBasePin::SetSink(IQualityControl* piqc) {
    CAutoLock lock(*m_pLock);
    m_pQSink = piqc;
    return S_OK;
}

LONG CBasePin::GetMediaTypeVersion() {
    return m_TypeVersion;
}

void CBasePin::IncrementTypeVersion() {
    InterlockedIncrement(&m_TypeVersion);
}

HRESULT CBasePin::Active() {
    return S_OK;
}

HRESULT CBasePin::Inactive() {
    return S_OK;
}

HRESULT CBasePin::Run(REFERENCE_TIME tStart) {
    (void)tStart;
    return S_OK;
}

HRESULT CBasePin::SetMediaType(const CMediaType* pmt) {
    return m_mt.Set(*pmt);
}

HRESULT CBasePin::CheckConnect(IPin* pPin) {
    PIN_DIRECTION peer = PINDIR_INPUT;
    const HRESULT hr = pPin->QueryDirection(&peer);
    if (FAILED(hr)) {
        return hr;
    }
    return peer == m_dir ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::BreakConnect() {
    return S_OK;
}

HRESULT CBasePin::CompleteConnect(IPin* pReceivePin) {
    (void)pReceivePin;
    return S_OK;
}

HRESULT CBasePin::GetMediaType(int iPosition, CMediaType* pMediaType) {
    (void)iPosition;
    (void)pMediaType;
    return E_UNEXPECTED;
}

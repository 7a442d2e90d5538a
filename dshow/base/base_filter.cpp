#include "dshow/base/base_filter.h"

#include <cwchar>
#include <new>

#include "dshow/base/base_pin.h"
#include "dshow/base/enum_pins.h"

CBaseFilter::CBaseFilter(const wchar_t* pName, LPUNKNOWN pUnk, CCritSec* pLock, REFCLSID clsid)
    : CUnknown(pName, pUnk), m_clsid(clsid), m_pLock(pLock) {}

CBaseFilter::CBaseFilter(const wchar_t* pName, LPUNKNOWN pUnk, CCritSec* pLock, REFCLSID clsid, HRESULT* phr)
    : CBaseFilter(pName, pUnk, pLock, clsid) {
    (void)phr;
}

CBaseFilter::~CBaseFilter() {
    delete[] m_pName;
    if (m_pClock != nullptr) {
        m_pClock->Release();
    }
}

STDMETHODIMP CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IBaseFilter)) {
        return GetInterface(static_cast<IBaseFilter*>(this), ppv);
    }
    if (IsEqualIID(riid, IID_IMediaFilter)) {
        return GetInterface(static_cast<IMediaFilter*>(this), ppv);
    }
    if (IsEqualIID(riid, IID_IPersist)) {
        return GetInterface(static_cast<IPersist*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CBaseFilter::GetClassID(CLSID* pClsID) {
    if (pClsID == nullptr) {
        return E_POINTER;
    }
    *pClsID = m_clsid;
    return S_OK;
}

STDMETHODIMP CBaseFilter::GetState(DWORD dwMSecs, FILTER_STATE* State) {
    (void)dwMSecs;
    if (State == nullptr) {
        return E_POINTER;
    }
    *State = m_State;
    return S_OK;
}

STDMETHODIMP CBaseFilter::SetSyncSource(IReferenceClock* pClock) {
    CAutoLock lock(*m_pLock);
    // AddRef before Release: the new clock may be the old one.
    if (pClock != nullptr) {
        pClock->AddRef();
    }
    if (m_pClock != nullptr) {
        m_pClock->Release();
    }
    m_pClock = pClock;
    return S_OK;
}

STDMETHODIMP CBaseFilter::GetSyncSource(IReferenceClock** pClock) {
    if (pClock == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    if (m_pClock != nullptr) {
        m_pClock->AddRef();
    }
    *pClock = m_pClock;
    return S_OK;
}

STDMETHODIMP CBaseFilter::Stop() {
    CAutoLock lock(*m_pLock);
    HRESULT hr = S_OK;
    if (m_State != State_Stopped) {
        // Every pin gets its chance to stop even when one fails; the first failure is reported.
        const int count = GetPinCount();
        for (int i = 0; i < count; ++i) {
            CBasePin* pin = GetPin(i);
            if (pin == nullptr) {
                break;
            }
            if (pin->IsConnected()) {
                const HRESULT pinResult = pin->Inactive();
                if (FAILED(pinResult) && SUCCEEDED(hr)) {
                    hr = pinResult;
                }
            }
        }
    }
    m_State = State_Stopped;
    return hr;
}

STDMETHODIMP CBaseFilter::Pause() {
    CAutoLock lock(*m_pLock);
    if (m_State == State_Stopped) {
        const int count = GetPinCount();
        for (int i = 0; i < count; ++i) {
            CBasePin* pin = GetPin(i);
            if (pin == nullptr) {
                break;
            }
            if (pin->IsConnected()) {
                const HRESULT hr = pin->Active();
                if (FAILED(hr)) {
                    return hr;
                }
            }
        }
    }
    m_State = State_Paused;
    return S_OK;
}

STDMETHODIMP CBaseFilter::Run(REFERENCE_TIME tStart) {
    CAutoLock lock(*m_pLock);
    m_tStart = tStart;
    if (m_State == State_Stopped) {
        const HRESULT hr = Pause();
        if (FAILED(hr)) {
            return hr;
        }
    }
    if (m_State != State_Running) {
        const int count = GetPinCount();
        for (int i = 0; i < count; ++i) {
            CBasePin* pin = GetPin(i);
            if (pin == nullptr) {
                break;
            }
            if (pin->IsConnected()) {
                const HRESULT hr = pin->Run(tStart);
                if (FAILED(hr)) {
                    return hr;
                }
            }
        }
    }
    m_State = State_Running;
    return S_OK;
}

HRESULT CBaseFilter::StreamTime(CRefTime& rtStream) {
    if (m_pClock == nullptr) {
        return VFW_E_NO_CLOCK;
    }
    const HRESULT hr = m_pClock->GetTime(&rtStream.m_time);
    if (FAILED(hr)) {
        return hr;
    }
    rtStream -= m_tStart;
    return S_OK;
}

BOOL CBaseFilter::IsActive() {
    CAutoLock lock(*m_pLock);
    return m_State != State_Stopped;
}

BOOL CBaseFilter::IsStopped() {
    return m_State == State_Stopped;
}

STDMETHODIMP CBaseFilter::EnumPins(IEnumPins** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = new (std::nothrow) CEnumPins(this, nullptr);
    return *ppEnum == nullptr ? E_OUTOFMEMORY : S_OK;
}

STDMETHODIMP CBaseFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
    if (Id == nullptr || ppPin == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pLock);
    const int count = GetPinCount();
    for (int i = 0; i < count; ++i) {
        CBasePin* pin = GetPin(i);
        if (pin == nullptr) {
            break;
        }
        if (std::wcscmp(pin->Name(), Id) == 0) {
            return GetInterface(static_cast<IPin*>(pin), reinterpret_cast<void**>(ppPin));
        }
    }
    *ppPin = nullptr;
    return VFW_E_NOT_FOUND;
}

STDMETHODIMP CBaseFilter::QueryFilterInfo(FILTER_INFO* pInfo) {
    if (pInfo == nullptr) {
        return E_POINTER;
    }
    pInfo->achName[0] = L'\0';
    if (m_pName != nullptr) {
        wcsncpy(pInfo->achName, m_pName, MAX_FILTER_NAME - 1);
        pInfo->achName[MAX_FILTER_NAME - 1] = L'\0';
    }
    pInfo->pGraph = m_pGraph;
    if (m_pGraph != nullptr) {
        m_pGraph->AddRef();
    }
    return S_OK;
}

STDMETHODIMP CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
    CAutoLock lock(*m_pLock);
    // The graph owns the filter: a reference back to it, or to its event sink, would be a cycle.
    m_pGraph = pGraph;
    m_pSink = nullptr;
    if (m_pGraph != nullptr) {
        IMediaEventSink* sink = nullptr;
        if (SUCCEEDED(m_pGraph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink)))) {
            m_pSink = sink;
            sink->Release();
        }
    }
    delete[] m_pName;
    m_pName = nullptr;
    if (pName != nullptr) {
        const size_t length = std::wcslen(pName) + 1;
        m_pName = new (std::nothrow) WCHAR[length];
        if (m_pName == nullptr) {
            return E_OUTOFMEMORY;
        }
        std::wmemcpy(m_pName, pName, length);
    }
    return S_OK;
}

STDMETHODIMP CBaseFilter::QueryVendorInfo(LPWSTR* pVendorInfo) {
    (void)pVendorInfo;
    return E_NOTIMPL;
}

HRESULT CBaseFilter::NotifyEvent(long EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) {
    IMediaEventSink* sink = m_pSink;
    if (sink == nullptr) {
        return E_NOTIMPL;
    }
    // The graph counts completions per renderer, so it must know which filter completed.
    if (EventCode == EC_COMPLETE) {
        EventParam2 = reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this));
    }
    return sink->Notify(EventCode, EventParam1, EventParam2);
}

HRESULT CBaseFilter::ReconnectPin(IPin* pPin, const AM_MEDIA_TYPE* pmt) {
    if (m_pGraph == nullptr) {
        return E_NOINTERFACE;
    }
    IFilterGraph2* graph2 = nullptr;
    if (SUCCEEDED(m_pGraph->QueryInterface(IID_IFilterGraph2, reinterpret_cast<void**>(&graph2)))) {
        const HRESULT hr = graph2->ReconnectEx(pPin, pmt);
        graph2->Release();
        return hr;
    }
    return m_pGraph->Reconnect(pPin);
}

LONG CBaseFilter::GetPinVersion() {
    return m_PinVersion;
}

void CBaseFilter::IncrementPinVersion() {
    InterlockedIncrement(&m_PinVersion);
}

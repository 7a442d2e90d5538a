#include "dshow/base/enum_pins.h"

#include <new>

#include "dshow/base/base_filter.h"
#include "dshow/base/base_pin.h"

CEnumPins::CEnumPins(CBaseFilter* pFilter, CEnumPins* pEnumPins)
    : CBaseObject(L"CEnumPins"), m_pFilter(pFilter) {
    m_pFilter->AddRef();
    if (pEnumPins != nullptr) {
        m_Position = pEnumPins->m_Position;
        m_PinCount = pEnumPins->m_PinCount;
        m_Version = pEnumPins->m_Version;
    } else {
        m_PinCount = m_pFilter->GetPinCount();
        m_Version = m_pFilter->GetPinVersion();
    }
}

CEnumPins::~CEnumPins() {
    m_pFilter->Release();
}

STDMETHODIMP CEnumPins::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IEnumPins) || IsEqualIID(riid, IID_IUnknown)) {
        return GetInterface(static_cast<IEnumPins*>(this), ppv);
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CEnumPins::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

STDMETHODIMP_(ULONG) CEnumPins::Release() {
    const LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) {
        delete this;
    }
    return static_cast<ULONG>(count);
}

BOOL CEnumPins::AreWeOutOfSync() {
    return m_pFilter->GetPinVersion() != m_Version;
}

STDMETHODIMP CEnumPins::Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) {
    if (ppPins == nullptr) {
        return E_POINTER;
    }
    if (pcFetched != nullptr) {
        *pcFetched = 0;
    } else if (cPins > 1) {
        return E_INVALIDARG;
    }
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    ULONG fetched = 0;
    while (fetched < cPins && m_Position < m_PinCount) {
        CBasePin* pin = m_pFilter->GetPin(m_Position++);
        if (pin == nullptr) {
            break;
        }
        ppPins[fetched] = pin;
        pin->AddRef();
        ++fetched;
    }
    if (pcFetched != nullptr) {
        *pcFetched = fetched;
    }
    return fetched == cPins ? S_OK : S_FALSE;
}

STDMETHODIMP CEnumPins::Skip(ULONG cPins) {
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    const ULONG left = static_cast<ULONG>(m_PinCount - m_Position);
    if (cPins > left) {
        m_Position = m_PinCount;
        return S_FALSE;
    }
    m_Position += static_cast<int>(cPins);
    return S_OK;
}

STDMETHODIMP CEnumPins::Reset() {
    m_Version = m_pFilter->GetPinVersion();
    m_PinCount = m_pFilter->GetPinCount();
    m_Position = 0;
    return S_OK;
}

STDMETHODIMP CEnumPins::Clone(IEnumPins** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = nullptr;
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    *ppEnum = new (std::nothrow) CEnumPins(m_pFilter, this);
    return *ppEnum == nullptr ? E_OUTOFMEMORY : S_OK;
}

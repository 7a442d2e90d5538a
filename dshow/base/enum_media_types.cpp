#include "dshow/base/enum_media_types.h"

#include <new>

#include "dshow/base/base_pin.h"

CEnumMediaTypes::CEnumMediaTypes(CBasePin* pPin, CEnumMediaTypes* pEnumMediaTypes)
    : CBaseObject(L"CEnumMediaTypes"), m_pPin(pPin) {
    m_pPin->AddRef();
    if (pEnumMediaTypes != nullptr) {
        m_Position = pEnumMediaTypes->m_Position;
        m_Version = pEnumMediaTypes->m_Version;
    } else {
        m_Version = m_pPin->GetMediaTypeVersion();
    }
}

CEnumMediaTypes::~CEnumMediaTypes() {
    m_pPin->Release();
}

STDMETHODIMP CEnumMediaTypes::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IEnumMediaTypes) || IsEqualIID(riid, IID_IUnknown)) {
        return GetInterface(static_cast<IEnumMediaTypes*>(this), ppv);
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CEnumMediaTypes::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

STDMETHODIMP_(ULONG) CEnumMediaTypes::Release() {
    const LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) {
        delete this;
    }
    return static_cast<ULONG>(count);
}

BOOL CEnumMediaTypes::AreWeOutOfSync() {
    return m_pPin->GetMediaTypeVersion() != m_Version;
}

STDMETHODIMP CEnumMediaTypes::Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) {
    if (ppMediaTypes == nullptr) {
        return E_POINTER;
    }
    if (pcFetched != nullptr) {
        *pcFetched = 0;
    } else if (cMediaTypes > 1) {
        return E_INVALIDARG;
    }
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    ULONG fetched = 0;
    while (fetched < cMediaTypes) {
        CMediaType type;
        if (m_pPin->GetMediaType(m_Position, &type) != S_OK) {
            break;
        }
        ++m_Position;
        auto* out = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
        if (out == nullptr) {
            break;
        }
        // The format block and pUnk move to the caller's structure instead of being copied.
        *out = type;
        type.InitMediaType();
        ppMediaTypes[fetched++] = out;
    }
    if (pcFetched != nullptr) {
        *pcFetched = fetched;
    }
    return fetched == cMediaTypes ? S_OK : S_FALSE;
}

STDMETHODIMP CEnumMediaTypes::Skip(ULONG cMediaTypes) {
    if (cMediaTypes == 0) {
        return S_OK;
    }
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    m_Position += static_cast<int>(cMediaTypes);
    // Skipping lands inside the list only when the last skipped position exists.
    CMediaType type;
    return m_pPin->GetMediaType(m_Position - 1, &type) == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP CEnumMediaTypes::Reset() {
    m_Position = 0;
    m_Version = m_pPin->GetMediaTypeVersion();
    return S_OK;
}

STDMETHODIMP CEnumMediaTypes::Clone(IEnumMediaTypes** ppEnum) {
    if (ppEnum == nullptr) {
        return E_POINTER;
    }
    *ppEnum = nullptr;
    if (AreWeOutOfSync()) {
        return VFW_E_ENUM_OUT_OF_SYNC;
    }
    *ppEnum = new (std::nothrow) CEnumMediaTypes(m_pPin, this);
    return *ppEnum == nullptr ? E_OUTOFMEMORY : S_OK;
}

#include "dshow/base/class_factory.h"

volatile LONG CClassFactory::m_cLocked = 0;

CUnknown* CFactoryTemplate::CreateInstance(IUnknown* pUnk, HRESULT* phr) const {
    if (phr == nullptr) {
        return nullptr;
    }
    return m_lpfnNew(pUnk, phr);
}

CClassFactory::CClassFactory(const CFactoryTemplate* pTemplate)
    : CBaseObject(L"Class factory"), m_pTemplate(pTemplate) {}

STDMETHODIMP CClassFactory::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
        return GetInterface(static_cast<IClassFactory*>(this), ppv);
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CClassFactory::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

STDMETHODIMP_(ULONG) CClassFactory::Release() {
    const LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) {
        delete this;
    }
    return static_cast<ULONG>(count);
}

STDMETHODIMP CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** pv) {
    if (pv == nullptr) {
        return E_POINTER;
    }
    *pv = nullptr;
    if (pUnkOuter != nullptr && !IsEqualIID(riid, IID_IUnknown)) {
        return CLASS_E_NOAGGREGATION;
    }
    HRESULT hr = S_OK;
    CUnknown* object = m_pTemplate->CreateInstance(pUnkOuter, &hr);
    if (object == nullptr) {
        return FAILED(hr) ? hr : E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        delete object; // constructed half-way: nobody holds a reference yet
        return hr;
    }
    // Hold the object across the query: an interface that creates inner objects may AddRef and Release
    // ours on the way. A failed query leaves the count at 0 and the Release deletes the object.
    object->NonDelegatingAddRef();
    hr = object->NonDelegatingQueryInterface(riid, pv);
    object->NonDelegatingRelease();
    return hr;
}

STDMETHODIMP CClassFactory::LockServer(BOOL fLock) {
    if (fLock) {
        InterlockedIncrement(&m_cLocked);
    } else {
        InterlockedDecrement(&m_cLocked);
    }
    return S_OK;
}

BOOL CClassFactory::IsLocked() {
    return InterlockedCompareExchange(&m_cLocked, 0, 0) > 0;
}

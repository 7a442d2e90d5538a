#include "dshow/base/unknown.h"

namespace {
volatile LONG g_objectsActive = 0;
} // namespace

CBaseObject::CBaseObject(const wchar_t* name) : name_(name) {
    InterlockedIncrement(&g_objectsActive);
}

CBaseObject::~CBaseObject() {
    InterlockedDecrement(&g_objectsActive);
}

LONG CBaseObject::ObjectsActive() {
    return InterlockedCompareExchange(&g_objectsActive, 0, 0);
}

CUnknown::CUnknown(const wchar_t* name, IUnknown* outer)
    // Standing alone, our own non-delegating IUnknown is the owner: it has IUnknown's vtable layout.
    : CBaseObject(name),
      owner_(outer != nullptr ? outer
                              : reinterpret_cast<IUnknown*>(static_cast<INonDelegatingUnknown*>(this))) {}

HRESULT STDMETHODCALLTYPE CUnknown::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    // IUnknown is always the inner one, so that an aggregator can control our lifetime.
    if (IsEqualIID(iid, IID_IUnknown)) {
        return GetInterface(reinterpret_cast<IUnknown*>(static_cast<INonDelegatingUnknown*>(this)), object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE CUnknown::NonDelegatingAddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG STDMETHODCALLTYPE CUnknown::NonDelegatingRelease() {
    const LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) {
        // Guard against re-entry: a destructor that AddRefs and Releases itself must not delete twice.
        m_cRef = 1;
        delete this;
        return 0;
    }
    return static_cast<ULONG>(count);
}

HRESULT GetInterface(IUnknown* unknown, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = unknown;
    unknown->AddRef();
    return S_OK;
}

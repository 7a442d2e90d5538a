#include "host/dshow_standins/standin_registration.h"

#include <new>

namespace qvn_standins {

HRESULT StandInRegistration::Register(bool force) {
    if (registered_) {
        return S_OK;
    }
    if (!force && platformIsFit_()) {
        return S_FALSE;
    }
    auto* factory = new (std::nothrow) CClassFactory(factory_);
    if (factory == nullptr) {
        return E_OUTOFMEMORY;
    }
    factory->AddRef();
    const HRESULT hr = CoRegisterClassObject(*factory_->m_ClsID, factory, CLSCTX_INPROC_SERVER,
                                             REGCLS_MULTIPLEUSE, &cookie_);
    factory->Release(); // COM holds it while registered
    if (FAILED(hr)) {
        return hr;
    }
    registered_ = true;
    return S_OK;
}

HRESULT StandInRegistration::Revoke() {
    if (!registered_) {
        return S_OK;
    }
    const HRESULT hr = CoRevokeClassObject(cookie_);
    if (SUCCEEDED(hr)) {
        registered_ = false;
    }
    return hr;
}

bool PlatformCanCreate(REFCLSID clsid) {
    IBaseFilter* filter = nullptr;
    if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(&filter)))) {
        return false;
    }
    filter->Release();
    return true;
}

} // namespace qvn_standins

// The module's COM server entry points (exported by QVNExport.def beside xSDKExport): the class factory of
// each class in the template table, the unload answer, and registration.
#include <new>

#include "module/class_registration.h"
#include "module/com_classes.h"

namespace {

// This module's own file, wherever the host or regsvr32 loaded it from.
bool ModulePath(wchar_t* path, DWORD chars) {
    static const int anchor = 0; // any address inside this module
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&anchor), &module)) {
        return false;
    }
    const DWORD n = GetModuleFileNameW(module, path, chars);
    return n > 0 && n < chars;
}

} // namespace

STDAPI DllGetClassObject(REFCLSID rClsID, REFIID riid, void** pv) {
    if (pv == nullptr) {
        return E_POINTER;
    }
    *pv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory)) {
        return E_NOINTERFACE;
    }
    for (int i = 0; i < g_cTemplates; ++i) {
        if (g_Templates[i].IsClassID(rClsID)) {
            CClassFactory* factory = new (std::nothrow) CClassFactory(&g_Templates[i]);
            if (factory == nullptr) {
                return E_OUTOFMEMORY;
            }
            factory->AddRef();
            const HRESULT hr = factory->QueryInterface(riid, pv);
            factory->Release();
            return hr;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

// Every object of ours is counted (factories too), and LockServer holds the module: unloading is safe only
// when nothing is alive and nobody holds a lock.
STDAPI DllCanUnloadNow() {
    return CBaseObject::ObjectsActive() == 0 && !CClassFactory::IsLocked() ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    wchar_t path[MAX_PATH * 4];
    if (!ModulePath(path, MAX_PATH * 4)) {
        return E_FAIL;
    }
    return RegisterComClasses(path);
}

STDAPI DllUnregisterServer() {
    return UnregisterComClasses();
}

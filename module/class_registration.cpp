#include "module/class_registration.h"

#include <cwchar>
#include <initializer_list>

namespace {

constexpr int kGuidChars = 39; // "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" and its terminator
constexpr size_t kKeyChars = 256;

HRESULT FromWin32(LONG error) {
    return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}

// HKEY_CLASSES_ROOT\key: the named value (null: the default value) set to text.
HRESULT SetString(const wchar_t* key, const wchar_t* name, const wchar_t* text) {
    HKEY handle = nullptr;
    LONG error = RegCreateKeyExW(HKEY_CLASSES_ROOT, key, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                                 nullptr, &handle, nullptr);
    if (error == ERROR_SUCCESS) {
        const auto bytes = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t));
        error = RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), bytes);
        RegCloseKey(handle);
    }
    return FromWin32(error);
}

HRESULT DeleteTree(const wchar_t* key) {
    const LONG error = RegDeleteTreeW(HKEY_CLASSES_ROOT, key);
    return error == ERROR_FILE_NOT_FOUND ? S_OK : FromWin32(error);
}

// Formats into a key buffer; false when it does not fit (it always does for our names).
template <class... Args> bool Format(wchar_t (&key)[kKeyChars], const wchar_t* format, Args... args) {
    const int n = std::swprintf(key, kKeyChars, format, args...);
    return n > 0 && static_cast<size_t>(n) < kKeyChars;
}

HRESULT WriteClassKeys(const ComClassRegistration& c, const wchar_t* modulePath) {
    wchar_t clsid[kGuidChars];
    StringFromGUID2(*c.factory->m_ClsID, clsid, kGuidChars);
    wchar_t key[kKeyChars];
    HRESULT hr = Format(key, L"CLSID\\%ls", clsid) ? SetString(key, nullptr, c.description) : E_FAIL;
    if (SUCCEEDED(hr)) {
        hr = Format(key, L"CLSID\\%ls\\InprocServer32", clsid) ? SetString(key, nullptr, modulePath) : E_FAIL;
    }
    if (SUCCEEDED(hr)) {
        hr = SetString(key, L"ThreadingModel", c.threadingModel);
    }
    if (SUCCEEDED(hr)) {
        hr = Format(key, L"CLSID\\%ls\\ProgID", clsid) ? SetString(key, nullptr, c.progId) : E_FAIL;
    }
    if (SUCCEEDED(hr)) {
        hr = Format(key, L"CLSID\\%ls\\VersionIndependentProgID", clsid)
                 ? SetString(key, nullptr, c.versionIndependentProgId)
                 : E_FAIL;
    }
    // Both ProgIDs lead to the class; the version-independent one names the current version.
    for (const wchar_t* progId : {c.progId, c.versionIndependentProgId}) {
        if (SUCCEEDED(hr)) {
            hr = SetString(progId, nullptr, c.description);
        }
        if (SUCCEEDED(hr)) {
            hr = Format(key, L"%ls\\CLSID", progId) ? SetString(key, nullptr, clsid) : E_FAIL;
        }
    }
    if (SUCCEEDED(hr)) {
        hr = Format(key, L"%ls\\CurVer", c.versionIndependentProgId) ? SetString(key, nullptr, c.progId)
                                                                     : E_FAIL;
    }
    return hr;
}

HRESULT DeleteClassKeys(const ComClassRegistration& c) {
    wchar_t clsid[kGuidChars];
    StringFromGUID2(*c.factory->m_ClsID, clsid, kGuidChars);
    wchar_t key[kKeyChars];
    HRESULT hr = Format(key, L"CLSID\\%ls", clsid) ? DeleteTree(key) : E_FAIL;
    for (const wchar_t* progId : {c.progId, c.versionIndependentProgId}) {
        const HRESULT deleted = DeleteTree(progId);
        hr = FAILED(hr) ? hr : deleted;
    }
    return hr;
}

// The filter list entry: HKCR\CLSID\{legacy filter category}\Instance\{clsid} with the friendly name, the
// class id and the filter data (merit and pins) that the filter mapper encodes.
HRESULT RegisterFilter(IFilterMapper2* mapper, const AMOVIESETUP_FILTER& setup) {
    REGFILTER2 filter{};
    filter.dwVersion = 1;
    filter.dwMerit = setup.dwMerit;
    filter.cPins = setup.nPins;
    filter.rgPins = setup.lpPin;
    return mapper->RegisterFilter(*setup.clsID, setup.strName, nullptr, &CLSID_LegacyAmFilterCategory,
                                  nullptr, &filter);
}

HRESULT UnregisterFilter(IFilterMapper2* mapper, const AMOVIESETUP_FILTER& setup) {
    if (mapper != nullptr) {
        mapper->UnregisterFilter(&CLSID_LegacyAmFilterCategory, nullptr, *setup.clsID);
    }
    // Whatever the mapper did or could not do, the instance key must be gone.
    wchar_t category[kGuidChars], clsid[kGuidChars];
    StringFromGUID2(CLSID_LegacyAmFilterCategory, category, kGuidChars);
    StringFromGUID2(*setup.clsID, clsid, kGuidChars);
    wchar_t key[kKeyChars];
    return Format(key, L"CLSID\\%ls\\Instance\\%ls", category, clsid) ? DeleteTree(key) : E_FAIL;
}

// The filter mapper is a COM object: COM must be initialised on this thread for the call (regsvr32 does
// not promise it), and left as it was found.
class ComScope {
public:
    ComScope() : hr_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComScope() {
        if (SUCCEEDED(hr_)) {
            CoUninitialize();
        }
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

private:
    HRESULT hr_;
};

IFilterMapper2* CreateMapper() {
    IFilterMapper2* mapper = nullptr;
    if (FAILED(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                                reinterpret_cast<void**>(&mapper)))) {
        return nullptr;
    }
    return mapper;
}

} // namespace

HRESULT RegisterComClasses(const wchar_t* modulePath) {
    if (modulePath == nullptr) {
        return E_POINTER;
    }
    ComScope com;
    IFilterMapper2* mapper = CreateMapper();
    HRESULT hr = S_OK;
    for (int i = 0; i < g_cRegistrations && SUCCEEDED(hr); ++i) {
        const ComClassRegistration& c = g_Registrations[i];
        hr = WriteClassKeys(c, modulePath);
        if (SUCCEEDED(hr) && c.factory->m_pAMovieSetup_Filter != nullptr) {
            hr = mapper != nullptr ? RegisterFilter(mapper, *c.factory->m_pAMovieSetup_Filter)
                                   : REGDB_E_CLASSNOTREG;
        }
    }
    if (mapper != nullptr) {
        mapper->Release();
    }
    if (FAILED(hr)) {
        UnregisterComClasses();
    }
    return hr;
}

HRESULT UnregisterComClasses() {
    ComScope com;
    IFilterMapper2* mapper = CreateMapper();
    HRESULT hr = S_OK;
    for (int i = 0; i < g_cRegistrations; ++i) {
        const ComClassRegistration& c = g_Registrations[i];
        HRESULT step = S_OK;
        if (c.factory->m_pAMovieSetup_Filter != nullptr) {
            step = UnregisterFilter(mapper, *c.factory->m_pAMovieSetup_Filter);
        }
        const HRESULT keys = DeleteClassKeys(c);
        hr = FAILED(hr) ? hr : FAILED(step) ? step : keys;
    }
    if (mapper != nullptr) {
        mapper->Release();
    }
    return hr;
}

// The module as a COM server: the keys regsvr32 (another process) writes and removes, creation by class
// identifier, and the unload answer of the module loaded here.
#include <gtest/gtest.h>

#include <string>

#include "dshow/base/dshow_headers.h"
#include "tests/dshow/graph_fixture.h"
#include "tests/dshow/mux/avi_readers.h"

namespace {

const CLSID kMux = {0x3c5d9e27, 0x8a41, 0x4f6b, {0xb0, 0xd3, 0x6e, 0x2a, 0x91, 0xc4, 0xf7, 0x05}};
const wchar_t kMuxKey[] = L"CLSID\\{3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}";
const wchar_t kFilterKey[] =
    L"CLSID\\{083863F1-70DE-11D0-BD40-00A0C911CE86}\\Instance\\{3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}";

// regsvr32 in a process of its own, as an installer would run it; its exit status.
int Regsvr32(const wchar_t* options) {
    return qvn_test::RunProcess(L"regsvr32.exe " + std::wstring(options) + L" \"" +
                                    qvn_test::WinePath(QVN_MODULE_FILE) + L"\"",
                                30000);
}

// A string value under HKEY_CLASSES_ROOT; "<missing>" when the key or value does not exist.
std::wstring ReadString(const wchar_t* key, const wchar_t* name) {
    wchar_t value[512];
    DWORD bytes = sizeof(value);
    return RegGetValueW(HKEY_CLASSES_ROOT, key, name, RRF_RT_REG_SZ, nullptr, value, &bytes) == ERROR_SUCCESS
               ? value
               : L"<missing>";
}

// An export as the one function type every other converts from without complaint.
using AnyFunction = void (*)();
AnyFunction Export(HMODULE module, const char* name) {
    return reinterpret_cast<AnyFunction>(GetProcAddress(module, name));
}

// Whatever happened, the prefix is left unregistered.
class Registration : public qvn_test::GraphTest {
protected:
    void TearDown() override {
        Regsvr32(L"/u /s");
        GraphTest::TearDown();
    }
};

TEST_F(Registration, Regsvr32WritesEveryKeyTheClassIsCreatedFromAndUnregisteringRemovesThem) {
    ASSERT_EQ(0, Regsvr32(L"/s"));
    struct Value {
        std::wstring key;
        const wchar_t* name;
        std::wstring want;
    };
    const std::wstring clsid = L"{3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}";
    const Value values[] = {
        {kMuxKey, nullptr, L"CQVNAVIWriter Object"},
        {std::wstring(kMuxKey) + L"\\InprocServer32", nullptr, qvn_test::WinePath(QVN_MODULE_FILE)},
        {std::wstring(kMuxKey) + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {std::wstring(kMuxKey) + L"\\ProgID", nullptr, L"AVIWriter.QVNAVIWriter.1"},
        {std::wstring(kMuxKey) + L"\\VersionIndependentProgID", nullptr, L"AVIWriter.QVNAVIWriter"},
        {L"AVIWriter.QVNAVIWriter.1\\CLSID", nullptr, clsid},
        {L"AVIWriter.QVNAVIWriter\\CLSID", nullptr, clsid},
        {L"AVIWriter.QVNAVIWriter\\CurVer", nullptr, L"AVIWriter.QVNAVIWriter.1"},
        {kFilterKey, L"FriendlyName", L"QVN AVI Mux Filter"},
        {kFilterKey, L"CLSID", clsid},
    };
    for (const Value& v : values)
        EXPECT_EQ(0, _wcsicmp(v.want.c_str(), ReadString(v.key.c_str(), v.name).c_str()))
            << "HKCR\\" << testing::PrintToString(v.key) << " " << (v.name != nullptr ? "value" : "default");

    // Created by class identifier (the ProgIDs name it, above), it is the multiplexer, and a graph takes it.
    IBaseFilter* mux = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(kMux, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                     reinterpret_cast<void**>(&mux)));
    CLSID reported{};
    EXPECT_EQ(S_OK, mux->GetClassID(&reported));
    EXPECT_TRUE(IsEqualCLSID(kMux, reported));
    EXPECT_EQ(S_OK, graph->AddFilter(mux, L"AVI Mux"));
    mux->Release();

    ASSERT_EQ(0, Regsvr32(L"/u /s"));
    HKEY handle = nullptr;
    for (const wchar_t* key : {kMuxKey, L"AVIWriter.QVNAVIWriter.1", L"AVIWriter.QVNAVIWriter", kFilterKey})
        EXPECT_NE(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CLASSES_ROOT, key, 0, KEY_READ, &handle))
            << testing::PrintToString(std::wstring(key));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, CoCreateInstance(kMux, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                                    reinterpret_cast<void**>(&mux)));
}

// The module loaded in this process: its class factory, and DllCanUnloadNow answering S_OK only when no
// object of the module is alive and no client holds a lock.
TEST(ComServer, ServesTheMultiplexersFactoryAndAnswersUnloadTruthfully) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    HMODULE module = LoadLibraryW(qvn_test::WinePath(QVN_MODULE_FILE).c_str());
    ASSERT_NE(nullptr, module);
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();
    auto getClassObject = reinterpret_cast<GetClassObject>(Export(module, "DllGetClassObject"));
    auto canUnloadNow = reinterpret_cast<CanUnloadNow>(Export(module, "DllCanUnloadNow"));
    ASSERT_NE(nullptr, getClassObject);
    ASSERT_NE(nullptr, canUnloadNow);

    void* none = nullptr;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, getClassObject(CLSID_FilterGraph, IID_IClassFactory, &none));
    EXPECT_EQ(E_NOINTERFACE, getClassObject(kMux, IID_IBaseFilter, &none));
    EXPECT_EQ(E_POINTER, getClassObject(kMux, IID_IClassFactory, nullptr));
    EXPECT_EQ(S_OK, canUnloadNow());

    IClassFactory* factory = nullptr;
    ASSERT_EQ(S_OK, getClassObject(kMux, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_FALSE, canUnloadNow()); // the factory itself
    IBaseFilter* mux = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IBaseFilter, reinterpret_cast<void**>(&mux)));
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    factory->Release();
    EXPECT_EQ(S_FALSE, canUnloadNow()); // the filter and the lock
    mux->Release();
    EXPECT_EQ(S_FALSE, canUnloadNow()); // the lock
    ASSERT_EQ(S_OK, getClassObject(kMux, IID_IUnknown, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    factory->Release();
    EXPECT_EQ(S_OK, canUnloadNow());
    FreeLibrary(module);
    CoUninitialize();
}

} // namespace

// Creates the multiplexer by its version-independent ProgID in this process, as a graph tool would after an
// install. Prints the server the registry names and exits 0 when an object of the class was made; exits 1
// with the reason otherwise.
#include <windows.h>

#include <objbase.h>

#include <cstdio>

int main() {
    const CLSID mux = {0x3c5d9e27, 0x8a41, 0x4f6b, {0xb0, 0xd3, 0x6e, 0x2a, 0x91, 0xc4, 0xf7, 0x05}};
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    int status = 1;
    CLSID id{};
    IPersist* object = nullptr;
    HRESULT hr = CLSIDFromProgID(L"AVIWriter.QVNAVIWriter", &id);
    if (FAILED(hr)) {
        printf("ProgID not registered (0x%08lx)\n", static_cast<unsigned long>(hr));
    } else if (!IsEqualCLSID(id, mux)) {
        printf("ProgID names another class\n");
    } else if (FAILED(hr = CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IPersist,
                                            reinterpret_cast<void**>(&object)))) {
        printf("class not created (0x%08lx)\n", static_cast<unsigned long>(hr));
    } else {
        CLSID reported{};
        wchar_t server[MAX_PATH] = L"";
        DWORD bytes = sizeof(server);
        RegGetValueW(HKEY_CLASSES_ROOT, L"CLSID\\{3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}\\InprocServer32",
                     nullptr, RRF_RT_REG_SZ, nullptr, server, &bytes);
        if (SUCCEEDED(object->GetClassID(&reported)) && IsEqualCLSID(reported, mux)) {
            printf("created from %ls\n", server);
            status = 0;
        } else {
            printf("the object made is not the multiplexer\n");
        }
        object->Release();
    }
    CoUninitialize();
    return status;
}

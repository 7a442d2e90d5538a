#include "platform/dynamic_library.h"
#include "platform/text_encoding.h"
#include "platform/win_types.h"

namespace QVN {

CDynamicLibrary::~CDynamicLibrary() {
    Unload();
}

bool CDynamicLibrary::Load(const char* path, std::string* error) {
    Unload();
    const std::wstring wide = Utf8ToWide(path);
    handle_ = LoadLibraryW(wide.c_str());
    if (!handle_ && error) {
        const DWORD code = GetLastError();
        wchar_t* message = nullptr;
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, code, 0, reinterpret_cast<wchar_t*>(&message), 0, nullptr);
        std::string text = message ? WideToUtf8(message) : std::string();
        if (message)
            LocalFree(message);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
            text.pop_back();
        *error = "error " + std::to_string(code) + (text.empty() ? "" : ": " + text);
    }
    return handle_ != nullptr;
}

void* CDynamicLibrary::Symbol(const char* name) const {
    return handle_ ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name)) : nullptr;
}

void CDynamicLibrary::Unload() {
    if (handle_)
        FreeLibrary(static_cast<HMODULE>(handle_));
    handle_ = nullptr;
}

std::string CDynamicLibrary::ProgramPath() {
    wchar_t buffer[32768];
    const DWORD n = GetModuleFileNameW(nullptr, buffer, static_cast<DWORD>(sizeof buffer / sizeof buffer[0]));
    return n ? WideToUtf8(std::wstring_view(buffer, n)) : std::string();
}

const char* CDynamicLibrary::DefaultModuleName() {
    return "QVNExport.prm";
}

} // namespace QVN

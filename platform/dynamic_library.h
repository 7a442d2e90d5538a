// Loading a plug-in module and finding an exported function (LoadLibrary / dlopen).
#pragma once

#include <string>

namespace QVN {

class CDynamicLibrary {
public:
    CDynamicLibrary() = default;
    ~CDynamicLibrary();
    CDynamicLibrary(const CDynamicLibrary&) = delete;
    CDynamicLibrary& operator=(const CDynamicLibrary&) = delete;

    // path is UTF-8. On failure, *error says why in the system's words.
    bool Load(const char* path, std::string* error);
    void* Symbol(const char* name) const;
    void Unload();
    bool IsLoaded() const { return handle_ != nullptr; }

    // The full path of the running program (UTF-8), to find the module beside it.
    static std::string ProgramPath();
    // The platform's file name of the module: "QVNExport.prm" on Windows, "QVNExport.so" elsewhere.
    static const char* DefaultModuleName();

private:
    void* handle_ = nullptr;
};

} // namespace QVN

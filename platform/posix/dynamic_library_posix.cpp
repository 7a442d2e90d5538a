#include <climits>
#include <dlfcn.h>
#include <unistd.h>

#include "platform/dynamic_library.h"

namespace QVN {

CDynamicLibrary::~CDynamicLibrary() {
    Unload();
}

bool CDynamicLibrary::Load(const char* path, std::string* error) {
    Unload();
    handle_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle_ && error) {
        const char* why = dlerror();
        *error = why ? why : "unknown error";
    }
    return handle_ != nullptr;
}

void* CDynamicLibrary::Symbol(const char* name) const {
    return handle_ ? dlsym(handle_, name) : nullptr;
}

void CDynamicLibrary::Unload() {
    if (handle_)
        dlclose(handle_);
    handle_ = nullptr;
}

std::string CDynamicLibrary::ProgramPath() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
}

const char* CDynamicLibrary::DefaultModuleName() {
    return "QVNExport.so";
}

} // namespace QVN

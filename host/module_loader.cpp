#include "host/module_loader.h"

#include "platform/file.h"

namespace qvnhost {

std::string DefaultModulePath() {
    std::string program = QVN::CDynamicLibrary::ProgramPath();
    const auto slash = program.find_last_of("/\\");
    if (slash == std::string::npos)
        return QVN::CDynamicLibrary::DefaultModuleName();
    // Keep the program path's own separator, so Windows paths stay in one style.
    return program.substr(0, slash + 1) + QVN::CDynamicLibrary::DefaultModuleName();
}

bool Module::Load(const std::string& path, std::string* error) {
    path_ = path.empty() ? DefaultModulePath() : path;
    {
        // Tell "no such file" apart from "not a module" before the loader mixes them up.
        QVN::CFile probe;
        const HRESULT hr = probe.OpenRead(path_.c_str());
        if (FAILED(hr)) {
            *error = "no such module: " + path_;
            return false;
        }
    }
    std::string why;
    if (!library_.Load(path_.c_str(), &why)) {
        *error = "not a loadable module: " + path_ + " (" + why + ")";
        return false;
    }
    entry_ = reinterpret_cast<prsdk::ExportEntryFunc>(library_.Symbol("xSDKExport"));
    if (!entry_) {
        *error = "no xSDKExport in module: " + path_;
        return false;
    }
    return true;
}

} // namespace qvnhost

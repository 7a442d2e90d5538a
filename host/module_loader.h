// Finding, loading and entering a plug-in module, as the host does.
#pragma once

#include <string>

#include "platform/dynamic_library.h"
#include "prsdk/prsdk.h"

namespace qvnhost {

class Module {
public:
    // Loads the module at path (or, when empty, the one beside this program). On failure *error is a
    // one-line message naming the problem.
    bool Load(const std::string& path, std::string* error);
    const std::string& Path() const { return path_; }
    prsdk::int32 Call(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* record) const {
        return entry_(selector, stdParms, record, nullptr);
    }

private:
    QVN::CDynamicLibrary library_;
    prsdk::ExportEntryFunc entry_ = nullptr;
    std::string path_;
};

// The module's default location: beside the running program.
std::string DefaultModulePath();

} // namespace qvnhost

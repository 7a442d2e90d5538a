// What an export through the module's DirectShow graph needs from the host's thread on Windows: COM (the
// module builds its graph on the thread that calls it), and our stand-ins for the platform filters that
// are missing or unfit (Wine's File Writer cannot name its file, its Smart Tee loses frames, it has no DV or
// Motion JPEG encoder), registered in this thread's apartment so that the module's CoCreateInstance finds
// them. Natively it does nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace qvnhost {

class PlatformFilters {
public:
    // force: register every stand-in, even where the platform's own filter would do.
    explicit PlatformFilters(bool force);
    ~PlatformFilters();
    PlatformFilters(const PlatformFilters&) = delete;
    PlatformFilters& operator=(const PlatformFilters&) = delete;

    // The names of the stand-ins registered, and a line for each that could not be.
    const std::vector<std::string>& Registered() const { return registered_; }
    const std::vector<std::string>& Problems() const { return problems_; }

private:
    struct Registrations;
    std::unique_ptr<Registrations> registrations_;
    std::vector<std::string> registered_;
    std::vector<std::string> problems_;
    bool comInitialised_ = false;
};

} // namespace qvnhost

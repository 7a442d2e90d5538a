#include "platform/allocation_faults.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "platform/debug_output.h"

namespace QVN::AllocationFaults {
namespace {

std::atomic<bool> sArmed{false};
std::atomic<std::uint64_t> sCount{0};
std::atomic<std::uint64_t> sTarget{0};
bool sFromEnvironment = false; // the export selector's thread only

} // namespace

void Arm(std::uint64_t n) {
    sCount.store(0);
    sTarget.store(n);
    sArmed.store(true);
}

std::uint64_t Disarm() {
    sArmed.store(false);
    return sCount.load();
}

bool Fail() {
    if (!sArmed.load(std::memory_order_relaxed))
        return false;
    const std::uint64_t n = sCount.fetch_add(1) + 1;
    return n == sTarget.load(std::memory_order_relaxed);
}

void ExportBegins() {
    const char* value = std::getenv("QVN_FAIL_ALLOCATION");
    sFromEnvironment = value && *value;
    if (sFromEnvironment)
        Arm(std::strtoull(value, nullptr, 10));
}

void ExportEnds() {
    if (!sFromEnvironment)
        return;
    sFromEnvironment = false;
    char line[80];
    std::snprintf(line, sizeof line, "QVNExport: the export made %" PRIu64 " allocations\n", Disarm());
    DebugOutput(line);
}

} // namespace QVN::AllocationFaults

// Allocation failure injection, for the tests of the failure paths. A build configured with
// QVN_ALLOCATION_FAULTS (native trees only) routes every allocation the module makes through Fail(): the
// heap, the C++ allocation operators and page mappings (platform/posix/allocation_wraps.cpp, linked with
// --wrap). Once armed, the nth allocation counted fails as the real one would on an exhausted machine.
// Without the switch only the export bracket exists, and it does nothing.
#pragma once

#include <cstdint>

namespace QVN::AllocationFaults {

#ifdef QVN_ALLOCATION_FAULTS
// Counts allocations from now on; the nth (1-based) fails, and 0 fails none.
void Arm(std::uint64_t n);
// Stops counting; the allocations counted since Arm.
std::uint64_t Disarm();
// Called once by every allocation: true when this one must fail.
bool Fail();
// Around one export: arms from the environment variable QVN_FAIL_ALLOCATION=N when it is set, and at the
// end writes "QVNExport: the export made K allocations" to the debugger output.
void ExportBegins();
void ExportEnds();
#else
inline void ExportBegins() {}
inline void ExportEnds() {}
#endif

} // namespace QVN::AllocationFaults

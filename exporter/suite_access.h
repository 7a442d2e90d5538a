// Acquiring and releasing one host suite through the broker, typed.
#pragma once

#include "prsdk/prsdk.h"

namespace QVN {

// Stores the suite in out and answers true when the broker grants it; leaves out alone otherwise.
template <class Suite>
bool AcquireSuite(prsdk::SPBasicSuite* broker, const char* name, prsdk::int32 version, Suite*& out) {
    const void* suite = nullptr;
    if (!broker || broker->AcquireSuite(name, version, &suite) != prsdk::kSPNoError)
        return false;
    out = static_cast<Suite*>(const_cast<void*>(suite));
    return true;
}

// Releases a suite that was acquired (non-null) with the version it was acquired with, and forgets it.
template <class Suite>
void ReleaseSuite(prsdk::SPBasicSuite* broker, const char* name, prsdk::int32 version, Suite*& suite) {
    if (broker && suite)
        broker->ReleaseSuite(name, version);
    suite = nullptr;
}

} // namespace QVN

// A stand-in's class object registered in-process under the platform filter's class identifier
// (REGCLS_MULTIPLEUSE, in the apartment of the thread that calls Register: a class object registered in one
// apartment is invisible to another), revoked by Revoke or at destruction. Not thread-safe.
#pragma once

#include <new>

#include "dshow/base/class_factory.h"

namespace qvn_standins {

class StandInRegistration {
public:
    // factory makes the stand-in under its class identifier; platformIsFit tells whether the platform's
    // own filter can do the job.
    StandInRegistration(const CFactoryTemplate* factory, bool (*platformIsFit)())
        : factory_(factory), platformIsFit_(platformIsFit) {}
    ~StandInRegistration() { Revoke(); }
    StandInRegistration(const StandInRegistration&) = delete;
    StandInRegistration& operator=(const StandInRegistration&) = delete;

    // Registers when the platform's filter is unfit, or when force is true: S_OK once registered (also when
    // it already was), S_FALSE when the platform's filter is fit and nothing was registered,
    // CoRegisterClassObject's failure otherwise.
    HRESULT Register(bool force);
    // S_OK, also when nothing was registered; otherwise CoRevokeClassObject's failure.
    HRESULT Revoke();
    bool Registered() const { return registered_; }

private:
    const CFactoryTemplate* factory_;
    bool (*platformIsFit_)();
    bool registered_ = false;
    DWORD cookie_ = 0; // COM's cookies may be 0: registered_ says whether it is valid
};

// The class factory's creator for a stand-in: no aggregation, and an allocation failure answered as such.
template <class Filter> CUnknown* CALLBACK CreateStandIn(IUnknown* outer, HRESULT* phr) {
    if (outer != nullptr) {
        *phr = CLASS_E_NOAGGREGATION;
        return nullptr;
    }
    CUnknown* filter = new (std::nothrow) Filter(phr);
    if (filter == nullptr) {
        *phr = E_OUTOFMEMORY;
    }
    return filter;
}

// True when COM creates the class in-process (as IBaseFilter) without any stand-in of ours.
bool PlatformCanCreate(REFCLSID clsid);

} // namespace qvn_standins

// The COM object every filter, pin, allocator and enumerator of ours is built on: a non-delegating IUnknown
// that owns the reference count, and a delegating one that forwards to the outer object when aggregated.
// Every object is also counted, so a module can answer DllCanUnloadNow truthfully and tests can prove that
// a graph released everything it made.
#pragma once

#include "dshow/base/dshow_headers.h"
#include "platform/critical_section.h"

// The lock the base classes use (recursive, as a Win32 critical section) and its scope guard.
using CCritSec = QVN::CW32CriticalSection;
using CAutoLock = QVN::CAutoLock<QVN::CW32CriticalSection>;

// The inner IUnknown of an aggregatable object. It has IUnknown's shape but is a separate vtable, so that
// the outer object's IUnknown and ours never mix.
struct INonDelegatingUnknown {
    virtual HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE NonDelegatingAddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE NonDelegatingRelease() = 0;

protected:
    ~INonDelegatingUnknown() = default;
};

// Counts the live objects of the base classes (and of everything derived from them).
class CBaseObject {
public:
    explicit CBaseObject(const wchar_t* name);
    virtual ~CBaseObject();
    CBaseObject(const CBaseObject&) = delete;
    CBaseObject& operator=(const CBaseObject&) = delete;

    static LONG ObjectsActive();
    const wchar_t* Name() const { return name_; }

private:
    const wchar_t* name_;
};

class CUnknown : public INonDelegatingUnknown, public CBaseObject {
public:
    // outer is the aggregating object's IUnknown, or null when this object stands alone.
    CUnknown(const wchar_t* name, IUnknown* outer);
    CUnknown(const wchar_t* name, IUnknown* outer, HRESULT* result) : CUnknown(name, outer) { (void)result; }

    // The IUnknown that callers must see: the outer object's when aggregated, ours otherwise.
    IUnknown* GetOwner() const { return owner_; }

    HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE NonDelegatingAddRef() override;
    // Deletes the object when the count reaches zero.
    ULONG STDMETHODCALLTYPE NonDelegatingRelease() override;

protected:
    volatile LONG m_cRef = 0;

private:
    IUnknown* const owner_;
};

// Hands out an interface pointer with one reference taken on it (the way every QueryInterface of ours ends).
HRESULT GetInterface(IUnknown* unknown, void** object);

// The delegating IUnknown of a class that derives from CUnknown and from COM interfaces.
#define DECLARE_IUNKNOWN                                                                                     \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {                           \
        return GetOwner()->QueryInterface(iid, object);                                                      \
    }                                                                                                        \
    ULONG STDMETHODCALLTYPE AddRef() override {                                                              \
        return GetOwner()->AddRef();                                                                         \
    }                                                                                                        \
    ULONG STDMETHODCALLTYPE Release() override {                                                             \
        return GetOwner()->Release();                                                                        \
    }

// COM class creation for a module's filters: a table of templates (name, class id, create function) and
// the class factory that serves one template. The module-wide lock count of LockServer, together with
// CBaseObject::ObjectsActive(), tells DllCanUnloadNow whether anything of the module is still in use.
#pragma once

#include "dshow/base/dshow_headers.h"
#include "dshow/base/unknown.h"

// Creates an object; outer is the aggregating IUnknown or null. Sets *phr on failure (the object, if one
// was returned anyway, is deleted by the factory).
typedef CUnknown*(CALLBACK* LPFNNewCOMObject)(IUnknown* pUnkOuter, HRESULT* phr);
// Called when the module loads (TRUE) and unloads (FALSE), for class-wide set-up.
typedef void(CALLBACK* LPFNInitRoutine)(BOOL bLoading, const CLSID* rclsid);

// The registration description of a filter (the platform's headers have the pin part only).
struct AMOVIESETUP_FILTER {
    const CLSID* clsID;
    const WCHAR* strName;
    DWORD dwMerit;
    UINT nPins;
    const REGFILTERPINS* lpPin;
};

class CFactoryTemplate {
public:
    const WCHAR* m_Name;
    const CLSID* m_ClsID;
    LPFNNewCOMObject m_lpfnNew;
    LPFNInitRoutine m_lpfnInit;
    const AMOVIESETUP_FILTER* m_pAMovieSetup_Filter;

    BOOL IsClassID(REFCLSID rclsid) const { return IsEqualCLSID(*m_ClsID, rclsid); }
    CUnknown* CreateInstance(IUnknown* pUnk, HRESULT* phr) const;
};

class CClassFactory : public IClassFactory, public CBaseObject {
public:
    explicit CClassFactory(const CFactoryTemplate* pTemplate);

    // IUnknown: the factory is its own object; it deletes itself at the last Release.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IClassFactory. With an outer object only IID_IUnknown may be asked for (CLASS_E_NOAGGREGATION),
    // because an aggregated object must hand its inner IUnknown to the aggregator.
    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** pv) override;
    STDMETHODIMP LockServer(BOOL fLock) override;

    // True while any client holds the module with LockServer(TRUE).
    static BOOL IsLocked();

private:
    const CFactoryTemplate* const m_pTemplate;
    volatile LONG m_cRef = 0;
    static volatile LONG m_cLocked;
};

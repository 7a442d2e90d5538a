// Enumerates a filter's pins by position. The enumerator answers VFW_E_ENUM_OUT_OF_SYNC once the filter's
// pin version has changed, until Reset.
#pragma once

#include "dshow/base/unknown.h"

class CBaseFilter;

class CEnumPins : public IEnumPins, public CBaseObject {
public:
    // A new enumerator from the start, or a copy of pEnumPins' position when it is given.
    CEnumPins(CBaseFilter* pFilter, CEnumPins* pEnumPins);
    ~CEnumPins() override;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) override;
    STDMETHODIMP Skip(ULONG cPins) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumPins** ppEnum) override;

private:
    BOOL AreWeOutOfSync();

    int m_Position = 0;
    int m_PinCount = 0;
    CBaseFilter* m_pFilter; // holds a reference
    LONG m_Version = 0;
    volatile LONG m_cRef = 1;
};

// Enumerates a pin's preferred media types (CBasePin::GetMediaType by position). The enumerator answers
// VFW_E_ENUM_OUT_OF_SYNC once the pin's type version has changed, until Reset.
#pragma once

#include "dshow/base/unknown.h"

class CBasePin;

class CEnumMediaTypes : public IEnumMediaTypes, public CBaseObject {
public:
    CEnumMediaTypes(CBasePin* pPin, CEnumMediaTypes* pEnumMediaTypes);
    ~CEnumMediaTypes() override;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // Each type handed out is task memory, freed by the caller with DeleteMediaType.
    STDMETHODIMP Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) override;
    STDMETHODIMP Skip(ULONG cMediaTypes) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumMediaTypes** ppEnum) override;

private:
    BOOL AreWeOutOfSync();

    int m_Position = 0;
    CBasePin* m_pPin; // holds a reference
    LONG m_Version = 0;
    volatile LONG m_cRef = 1;
};

// A source filter: owns a set of CSourceStream output pins (each adds itself on construction and removes
// itself on destruction) and a state lock that serves as the filter's lock.
#pragma once

#include "dshow/base/base_filter.h"

class CSourceStream;

class CSource : public CBaseFilter {
public:
    CSource(const wchar_t* pName, LPUNKNOWN lpunk, CLSID clsid, HRESULT* phr);
    CSource(const wchar_t* pName, LPUNKNOWN lpunk, CLSID clsid);
    // Deletes every pin still owned.
    ~CSource() override;

    int GetPinCount() override;
    CBasePin* GetPin(int n) override;

    CCritSec* pStateLock() { return &m_cStateLock; }

    HRESULT AddPin(CSourceStream* pStream);
    // S_OK when the pin was ours, S_FALSE otherwise.
    HRESULT RemovePin(CSourceStream* pStream);

    // Finds a pin by the identifier its QueryId gives (its 1-based number), or else by its name.
    STDMETHODIMP FindPin(LPCWSTR Id, IPin** ppPin) override;
    // The 0-based position of iPin, or -1.
    int FindPinNumber(IPin* iPin);

protected:
    int m_iPins = 0;
    CSourceStream** m_paStreams = nullptr;
    CCritSec m_cStateLock;
};

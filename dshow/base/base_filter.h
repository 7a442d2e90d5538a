// The filter every filter of ours derives from: IBaseFilter (with IMediaFilter and IPersist), the filter
// state and the pins' activation in state changes, the reference clock, membership of a graph and event
// notification to the graph. Derived classes supply their pins through GetPinCount and GetPin.
#pragma once

#include "dshow/base/ref_time.h"
#include "dshow/base/unknown.h"

class CBasePin;

class CBaseFilter : public CUnknown, public IBaseFilter {
    friend class CBasePin;

public:
    // pLock is the filter's state lock, owned by the derived class; pName names the object for debugging.
    CBaseFilter(const wchar_t* pName, LPUNKNOWN pUnk, CCritSec* pLock, REFCLSID clsid);
    CBaseFilter(const wchar_t* pName, LPUNKNOWN pUnk, CCritSec* pLock, REFCLSID clsid, HRESULT* phr);
    ~CBaseFilter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* pClsID) override;

    // IMediaFilter
    STDMETHODIMP GetState(DWORD dwMSecs, FILTER_STATE* State) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* pClock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** pClock) override;
    // Makes every connected pin inactive (when not already stopped).
    STDMETHODIMP Stop() override;
    // From stopped, makes every connected pin active first; the first failure is returned.
    STDMETHODIMP Pause() override;
    // Pauses first when stopped, then tells every connected pin to run at tStart.
    STDMETHODIMP Run(REFERENCE_TIME tStart) override;

    // The clock's time less the run's start time; VFW_E_NO_CLOCK without a clock.
    virtual HRESULT StreamTime(CRefTime& rtStream);
    BOOL IsActive();
    BOOL IsStopped();

    // IBaseFilter
    STDMETHODIMP EnumPins(IEnumPins** ppEnum) override;
    // The pin whose name equals Id; VFW_E_NOT_FOUND otherwise.
    STDMETHODIMP FindPin(LPCWSTR Id, IPin** ppPin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* pInfo) override;
    // Keeps the graph without a reference (the graph holds the filter), and its event sink likewise.
    STDMETHODIMP JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* pVendorInfo) override;

    // Sends an event to the graph's event sink; EC_COMPLETE carries this filter as its second parameter.
    // E_NOTIMPL when the filter is in no graph.
    HRESULT NotifyEvent(long EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2);
    IFilterGraph* GetFilterGraph() { return m_pGraph; }
    // Asks the graph to reconnect pPin, with pmt through IFilterGraph2 when the graph has it.
    HRESULT ReconnectPin(IPin* pPin, const AM_MEDIA_TYPE* pmt);

    // The pin set's version: enumerators compare it to notice added or removed pins.
    virtual LONG GetPinVersion();
    void IncrementPinVersion();

    virtual int GetPinCount() = 0;
    // The n-th pin, without a reference; null when n is out of range.
    virtual CBasePin* GetPin(int n) = 0;

protected:
    FILTER_STATE m_State = State_Stopped;
    IReferenceClock* m_pClock = nullptr; // holds a reference
    CRefTime m_tStart;                   // the stream time's origin, given by Run
    CLSID m_clsid;
    CCritSec* m_pLock;
    WCHAR* m_pName = nullptr;           // the name given by JoinFilterGraph
    IFilterGraph* m_pGraph = nullptr;   // no reference
    IMediaEventSink* m_pSink = nullptr; // no reference
    LONG m_PinVersion = 1;
};

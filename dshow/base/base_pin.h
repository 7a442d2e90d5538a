// The pin every pin of ours derives from: IPin's connection protocol with media-type agreement, the
// connection's type, pin identity and direction, and the stream notifications' defaults. A pin's
// reference count is its filter's: the filter owns and deletes its pins.
#pragma once

#include "dshow/base/base_filter.h"
#include "dshow/base/media_type.h"

class CBasePin : public CUnknown, public IPin, public IQualityControl {
public:
    // pName is the pin's name (copied); phr receives E_OUTOFMEMORY when the copy fails.
    CBasePin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pName,
             PIN_DIRECTION dir);
    ~CBasePin() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) NonDelegatingAddRef() override;
    STDMETHODIMP_(ULONG) NonDelegatingRelease() override;

    // IPin
    // Connects to pReceivePin with pmt when it is fully specified, otherwise with the first type that both
    // sides accept: the receiver's types first, then ours (m_bTryMyTypesFirst reverses the order).
    STDMETHODIMP Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pPin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* pInfo) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* pPinDir) override;
    STDMETHODIMP QueryId(LPWSTR* Id) override;
    // S_OK when CheckMediaType accepts the type, S_FALSE otherwise.
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    STDMETHODIMP QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
    STDMETHODIMP EndOfStream() override;
    // Records the segment's start, stop and rate.
    STDMETHODIMP NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;
    // BeginFlush and EndFlush stay pure: each direction gives them its own meaning.

    // IQualityControl
    STDMETHODIMP Notify(IBaseFilter* pSender, Quality q) override;
    STDMETHODIMP SetSink(IQualityControl* piqc) override;

    BOOL IsConnected() { return m_Connected != nullptr; }
    IPin* GetConnected() { return m_Connected; }
    BOOL IsStopped() { return m_pFilter->m_State == State_Stopped; }

    // The version of the pin's type list: media-type enumerators compare it to notice changes.
    virtual LONG GetMediaTypeVersion();
    void IncrementTypeVersion();

    // Called by the filter on connected pins: stopped to paused, paused or running to stopped, and run.
    virtual HRESULT Active();
    virtual HRESULT Inactive();
    virtual HRESULT Run(REFERENCE_TIME tStart);

    // S_OK when the pin accepts the type; anything else refuses it.
    virtual HRESULT CheckMediaType(const CMediaType* pmt) = 0;
    // Stores the connection's type.
    virtual HRESULT SetMediaType(const CMediaType* pmt);
    // The connection's first check; the base refuses a peer of the same direction.
    virtual HRESULT CheckConnect(IPin* pPin);
    // Undoes CheckConnect and CompleteConnect (also after a connection attempt failed).
    virtual HRESULT BreakConnect();
    virtual HRESULT CompleteConnect(IPin* pReceivePin);
    // The pin's preferred types by position; VFW_S_NO_MORE_ITEMS past the last. The base has none.
    virtual HRESULT GetMediaType(int iPosition, CMediaType* pMediaType);

    REFERENCE_TIME CurrentStopTime() { return m_tStop; }
    REFERENCE_TIME CurrentStartTime() { return m_tStart; }
    double CurrentRate() { return m_dRate; }
    LPWSTR Name() { return m_pName; }

    void SetReconnectWhenActive(bool bCanReconnect) { m_bCanReconnectWhenActive = bCanReconnect; }
    bool CanReconnectWhenActive() { return m_bCanReconnectWhenActive; }

protected:
    // Checks, sets and offers one type to pReceivePin, undoing everything when any step fails.
    HRESULT AttemptConnection(IPin* pReceivePin, const CMediaType* pmt);
    // Tries each type of pEnum that matches pmt (any, when pmt is null).
    HRESULT TryMediaTypes(IPin* pReceivePin, const CMediaType* pmt, IEnumMediaTypes* pEnum);
    HRESULT AgreeMediaType(IPin* pReceivePin, const CMediaType* pmt);
    // Disconnect without the state check, for a filter that must tear down while running.
    STDMETHODIMP DisconnectInternal();

    WCHAR* m_pName = nullptr;
    IPin* m_Connected = nullptr; // holds a reference
    PIN_DIRECTION m_dir;
    CCritSec* m_pLock;
    bool m_bRunTimeDefined = false;
    bool m_bCanReconnectWhenActive = false;
    bool m_bTryMyTypesFirst = false;
    CBaseFilter* m_pFilter;
    IQualityControl* m_pQSink = nullptr; // no reference
    LONG m_TypeVersion = 1;
    CMediaType m_mt; // the connection's type
    CRefTime m_tStart;
    CRefTime m_tStop{MAX_TIME};
    double m_dRate = 1.0;
};

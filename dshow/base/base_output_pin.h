// An output pin that delivers samples through the downstream pin's IMemInputPin: it decides the
// connection's allocator, commits it while active, and forwards the stream notifications downstream.
#pragma once

#include "dshow/base/base_pin.h"

class CBaseOutputPin : public CBasePin {
public:
    CBaseOutputPin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr,
                   LPCWSTR pName);
    ~CBaseOutputPin() override;

    // Decides the allocator once the peer accepted the type.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    // Offers the peer's allocator, then our own (InitAllocator), sizing each with DecideBufferSize and
    // handing the one that works to the peer with NotifyAllocator.
    virtual HRESULT DecideAllocator(IMemInputPin* pPin, IMemAllocator** pAlloc);
    // Sets the allocator's properties from the peer's requirements (ppropInputRequest).
    virtual HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* ppropInputRequest) = 0;
    virtual HRESULT GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStartTime,
                                      REFERENCE_TIME* pEndTime, DWORD dwFlags);
    // Passes a sample to the peer's Receive.
    virtual HRESULT Deliver(IMediaSample* pSample);
    // The platform's memory allocator.
    virtual HRESULT InitAllocator(IMemAllocator** ppAlloc);
    // Requires the peer to have IMemInputPin.
    HRESULT CheckConnect(IPin* pPin) override;
    // Decommits and releases the allocator and the peer's IMemInputPin.
    HRESULT BreakConnect() override;

    // Commits the allocator; VFW_E_NO_ALLOCATOR without one.
    HRESULT Active() override;
    // Decommits it, which also wakes a thread blocked in GetBuffer.
    HRESULT Inactive() override;

    // These travel downstream, never into an output pin: E_UNEXPECTED.
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;

    // Forward to the connected pin; VFW_E_NOT_CONNECTED when there is none.
    virtual HRESULT DeliverEndOfStream();
    virtual HRESULT DeliverBeginFlush();
    virtual HRESULT DeliverEndFlush();
    virtual HRESULT DeliverNewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate);

protected:
    IMemAllocator* m_pAllocator = nullptr; // the connection's allocator, with a reference
    IMemInputPin* m_pInputPin = nullptr;   // the peer's transport, with a reference
};

// A filter with one input and one output pin that turns each input sample into a new output sample: the
// output comes from the output pin's allocator with the input's stamps and flags, the derived class fills
// it in Transform, and it is delivered downstream on the upstream pin's thread. End of stream, flushing and
// new segments pass straight through. Derived classes say which types they take and make
// (CheckInputType, CheckTransform, GetMediaType) and how big the output buffers are (DecideBufferSize).
#pragma once

#include "dshow/base/base_filter.h"
#include "dshow/base/base_input_pin.h"
#include "dshow/base/base_output_pin.h"

class CTransformFilter;

class CTransformInputPin : public CBaseInputPin {
    friend class CTransformFilter;

public:
    CTransformInputPin(const wchar_t* pObjectName, CTransformFilter* pTransformFilter, HRESULT* phr,
                       LPCWSTR pName);

    HRESULT CheckConnect(IPin* pPin) override;
    HRESULT BreakConnect() override;
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    // The filter's CheckInputType, and CheckTransform against the output's type when it is connected.
    HRESULT CheckMediaType(const CMediaType* mtIn) override;
    HRESULT SetMediaType(const CMediaType* mt) override;

    // Receive, EndOfStream and the flushes hold the filter's receive lock, so that a stop waits for them.
    STDMETHODIMP Receive(IMediaSample* pSample) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

    CMediaType& CurrentMediaType() { return m_mt; }

protected:
    CTransformFilter* m_pTransformFilter;
};

class CTransformOutputPin : public CBaseOutputPin {
    friend class CTransformFilter;

public:
    CTransformOutputPin(const wchar_t* pObjectName, CTransformFilter* pTransformFilter, HRESULT* phr,
                        LPCWSTR pName);

    HRESULT CheckConnect(IPin* pPin) override;
    HRESULT BreakConnect() override;
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) override;
    // Needs a connected input: CheckTransform(input type, mtOut).
    HRESULT CheckMediaType(const CMediaType* mtOut) override;
    HRESULT SetMediaType(const CMediaType* mt) override;
    // The filter's output types, once the input is connected.
    HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;

    // Quality messages from downstream: the filter's AlterQuality, else passed upstream.
    STDMETHODIMP Notify(IBaseFilter* pSender, Quality q) override;

    CMediaType& CurrentMediaType() { return m_mt; }

protected:
    CTransformFilter* m_pTransformFilter;
};

class CTransformFilter : public CBaseFilter {
    friend class CTransformInputPin;
    friend class CTransformOutputPin;

public:
    CTransformFilter(const wchar_t* pName, LPUNKNOWN pUnk, REFCLSID clsid);
    ~CTransformFilter() override;

    // Two pins, made on first request: 0 is the input ("XForm In"), 1 the output ("XForm Out").
    int GetPinCount() override;
    CBasePin* GetPin(int n) override;
    // Finds the pins by name, or by the short identifiers "In" and "Out".
    STDMETHODIMP FindPin(LPCWSTR Id, IPin** ppPin) override;

    // Stop waits for a Receive in progress and calls StopStreaming; Pause from stopped calls
    // StartStreaming. With the input unconnected, pausing sends end of stream downstream so that a
    // renderer does not wait forever.
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;

    // Fills pOut from pIn. S_FALSE: do not deliver this sample (not an error).
    virtual HRESULT Transform(IMediaSample* pIn, IMediaSample* pOut);
    // S_OK when the type can be taken in.
    virtual HRESULT CheckInputType(const CMediaType* mtIn) = 0;
    // S_OK when mtIn can become mtOut.
    virtual HRESULT CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) = 0;
    // Sets the output allocator's properties (pprop holds the downstream pin's requirements).
    virtual HRESULT DecideBufferSize(IMemAllocator* pAllocator, ALLOCATOR_PROPERTIES* pprop) = 0;
    // The output types by position; VFW_S_NO_MORE_ITEMS past the last.
    virtual HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) = 0;

    virtual HRESULT StartStreaming();
    virtual HRESULT StopStreaming();
    // S_FALSE passes a quality message upstream; anything else answers it.
    virtual HRESULT AlterQuality(Quality q);
    // Called after a pin's type was set.
    virtual HRESULT SetMediaType(PIN_DIRECTION direction, const CMediaType* pmt);
    virtual HRESULT CheckConnect(PIN_DIRECTION dir, IPin* pPin);
    virtual HRESULT BreakConnect(PIN_DIRECTION dir);
    virtual HRESULT CompleteConnect(PIN_DIRECTION direction, IPin* pReceivePin);

    // Gets an output sample, lets Transform fill it and delivers it; samples of other streams than media
    // pass as they are.
    virtual HRESULT Receive(IMediaSample* pSample);
    // An output sample from the output allocator with the input sample's stamps, flags and media times.
    HRESULT InitializeOutputSample(IMediaSample* pSample, IMediaSample** ppOutSample);

    virtual HRESULT EndOfStream();
    virtual HRESULT BeginFlush();
    virtual HRESULT EndFlush();
    virtual HRESULT NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate);

    CCritSec* pStateLock() { return &m_csFilter; }

protected:
    BOOL m_bEOSDelivered = FALSE;  // end of stream sent for an unconnected input
    BOOL m_bSampleSkipped = FALSE; // the previous sample was not delivered: the next is a discontinuity
    BOOL m_bQualityChanged = FALSE;
    CCritSec m_csFilter;  // state and connections (the pins' lock)
    CCritSec m_csReceive; // the streaming path
    CTransformInputPin* m_pInput = nullptr;
    CTransformOutputPin* m_pOutput = nullptr;
};

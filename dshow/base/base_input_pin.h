// An input pin that receives samples through IMemInputPin: it keeps the allocator the upstream pin chose,
// refuses samples while stopped or flushing, and reads each sample's properties for derived classes.
#pragma once

#include "dshow/base/base_pin.h"

class CBaseInputPin : public CBasePin, public IMemInputPin {
public:
    CBaseInputPin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr,
                  LPCWSTR pName);
    ~CBaseInputPin() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IMemInputPin
    // Our allocator proposal: the platform's memory allocator, made on first request.
    STDMETHODIMP GetAllocator(IMemAllocator** ppAllocator) override;
    // Keeps the allocator the upstream pin decided on, and whether its samples are read-only.
    STDMETHODIMP NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    // Checks the streaming state and reads the sample's properties into m_SampleProps; a type change the
    // pin refuses ends the stream with a run-time error. Derived classes call it first, then do the work.
    STDMETHODIMP Receive(IMediaSample* pSample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** pSamples, long nSamples, long* nSamplesProcessed) override;
    // S_OK when a connected downstream pin may block, or when the filter has no output pin.
    STDMETHODIMP ReceiveCanBlock() override;
    // No requirements: E_NOTIMPL.
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;

    // IPin: flushing refuses samples until EndFlush.
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;

    // IQualityControl
    STDMETHODIMP Notify(IBaseFilter* pSender, Quality q) override;

    BOOL IsReadOnly() { return m_bReadOnly; }
    BOOL IsFlushing() { return m_bFlushing; }

    // S_OK when samples may be received: S_FALSE while flushing, VFW_E_WRONG_STATE while stopped,
    // VFW_E_RUNTIME_ERROR after a run-time error.
    virtual HRESULT CheckStreamingState();

    HRESULT CheckConnect(IPin* pPin) override;
    // Decommits and releases the allocator.
    HRESULT BreakConnect() override;
    // Decommits the allocator and clears the flushing and run-time error states.
    HRESULT Inactive() override;

    // The properties of the sample being received.
    AM_SAMPLE2_PROPERTIES* SampleProps() { return &m_SampleProps; }

protected:
    IMemAllocator* m_pAllocator = nullptr; // with a reference
    BYTE m_bReadOnly = FALSE;
    BYTE m_bFlushing = FALSE;
    BYTE m_bRunTimeError = FALSE;
    AM_SAMPLE2_PROPERTIES m_SampleProps{};

private:
    // A type read from a sample without IMediaSample2 is our copy, freed at the next Receive.
    AM_MEDIA_TYPE* m_pOwnedType = nullptr;
};

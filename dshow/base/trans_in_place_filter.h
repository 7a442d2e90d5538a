// A transform that works on the samples it receives instead of making new ones: input and output share the
// media type and, where the pins around it allow, one allocator, so that upstream's sample itself is
// transformed and passed on. When the two sides end up with different allocators (a read-only upstream
// allocator that a data-modifying filter may not write into), each sample is first copied into one of the
// output allocator's samples.
#pragma once

#include "dshow/base/transform_filter.h"

class CTransInPlaceFilter;

class CTransInPlaceInputPin : public CTransformInputPin {
public:
    CTransInPlaceInputPin(const wchar_t* pObjectName, CTransInPlaceFilter* pFilter, HRESULT* phr,
                          LPCWSTR pName);

    // With the output connected: the downstream pin's types, allocator and requirements, so that upstream
    // allocates what downstream wants. Unconnected: no types, and a temporary allocator of our own.
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    STDMETHODIMP GetAllocator(IMemAllocator** ppAllocator) override;
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;
    // Passes upstream's allocator on downstream, unless it is read-only and the filter modifies data: then
    // the output keeps its own allocator, sized like upstream's, and samples are copied.
    STDMETHODIMP NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    // CheckInputType, and the downstream pin must accept the type as it is.
    HRESULT CheckMediaType(const CMediaType* pmt) override;

    IMemAllocator* PeekAllocator() const { return m_pAllocator; }

protected:
    CTransInPlaceFilter* const m_pTIPFilter;
};

class CTransInPlaceOutputPin : public CTransformOutputPin {
public:
    CTransInPlaceOutputPin(const wchar_t* pObjectName, CTransInPlaceFilter* pFilter, HRESULT* phr,
                           LPCWSTR pName);

    // With the input connected: the upstream pin's types.
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    // CheckInputType (the type passes unchanged), and upstream must accept it too. While running with a
    // copy between allocators, only the current type.
    HRESULT CheckMediaType(const CMediaType* pmt) override;

    void SetAllocator(IMemAllocator* pAllocator);
    IMemInputPin* ConnectedIMemInputPin() { return m_pInputPin; }
    IMemAllocator* PeekAllocator() const { return m_pAllocator; }

protected:
    CTransInPlaceFilter* const m_pTIPFilter;
};

class CTransInPlaceFilter : public CTransformFilter {
    friend class CTransInPlaceInputPin;
    friend class CTransInPlaceOutputPin;

public:
    // bModifiesData: Transform writes into the sample (so a read-only allocator forces a copy).
    CTransInPlaceFilter(const wchar_t* pName, LPUNKNOWN pUnk, REFCLSID clsid, HRESULT* phr,
                        bool bModifiesData = true);

    CBasePin* GetPin(int n) override;

    // Works on the sample in place. S_FALSE: do not deliver it.
    virtual HRESULT Transform(IMediaSample* pSample) = 0;

    // The output's type is the input's: no list of its own, no transform check.
    HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;
    HRESULT CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) override;
    // The output allocator gets the input allocator's count and size (one byte while the input is
    // unconnected; the input's reconnection revises it).
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProperties) override;
    // Reconnects the other pin so that both carry one type and, when possible, one allocator.
    HRESULT CompleteConnect(PIN_DIRECTION dir, IPin* pReceivePin) override;
    HRESULT Receive(IMediaSample* pSample) override;

protected:
    // A sample of the output allocator holding pSource's data, stamps, flags and media times; null on
    // failure.
    IMediaSample* Copy(IMediaSample* pSource);

    CTransInPlaceInputPin* InputPin() const { return static_cast<CTransInPlaceInputPin*>(m_pInput); }
    CTransInPlaceOutputPin* OutputPin() const { return static_cast<CTransInPlaceOutputPin*>(m_pOutput); }
    BOOL TypesMatch() { return InputPin()->CurrentMediaType() == OutputPin()->CurrentMediaType(); }
    BOOL UsingDifferentAllocators() const {
        return InputPin()->PeekAllocator() != OutputPin()->PeekAllocator();
    }

    bool m_bModifiesData;
};

// A media sample: a data buffer with its stamps and flags, owned by an allocator. When its last reference
// goes, the sample is not deleted: it resets its per-delivery state and goes back to its allocator through
// IMemAllocator::ReleaseBuffer, which owns it and puts it on a free list.
#pragma once

#include "dshow/base/dshow_headers.h"
#include "dshow/base/unknown.h"

class CBaseAllocator;

class CMediaSample : public IMediaSample2, public CBaseObject {
public:
    // pBuffer may be null (a sample that producers point at their own memory later with SetPointer).
    // A negative length reports VFW_E_BUFFER_OVERFLOW through phr and leaves the sample with no size.
    CMediaSample(const wchar_t* pName, CBaseAllocator* pAllocator, HRESULT* phr, BYTE* pBuffer = nullptr,
                 LONG length = 0);
    ~CMediaSample() override;

    // IUnknown: the sample is its own COM object (not aggregatable), reference counted in m_cRef.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // Points the sample at other memory; the actual length becomes the whole buffer.
    HRESULT SetPointer(BYTE* ptr, LONG cBytes);

    // IMediaSample
    STDMETHODIMP GetPointer(BYTE** ppBuffer) override;
    STDMETHODIMP_(LONG) GetSize() override;
    STDMETHODIMP GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    STDMETHODIMP SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    STDMETHODIMP IsSyncPoint() override;
    STDMETHODIMP SetSyncPoint(BOOL bIsSyncPoint) override;
    STDMETHODIMP IsPreroll() override;
    STDMETHODIMP SetPreroll(BOOL bIsPreroll) override;
    STDMETHODIMP_(LONG) GetActualDataLength() override;
    STDMETHODIMP SetActualDataLength(LONG lActual) override;
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** ppMediaType) override;
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* pMediaType) override;
    STDMETHODIMP IsDiscontinuity() override;
    STDMETHODIMP SetDiscontinuity(BOOL bDiscontinuity) override;
    STDMETHODIMP GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;
    STDMETHODIMP SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;

    // IMediaSample2: the sample's state as an AM_SAMPLE2_PROPERTIES, read or written up to cbProperties
    // bytes. The buffer pointer and size cannot be changed this way.
    STDMETHODIMP GetProperties(DWORD cbProperties, BYTE* pbProperties) override;
    STDMETHODIMP SetProperties(DWORD cbProperties, const BYTE* pbProperties) override;

protected:
    friend class CBaseAllocator;

    // m_dwFlags bits: the AM_SAMPLE_* values, plus one of our own for the media time.
    enum : DWORD {
        Sample_SyncPoint = AM_SAMPLE_SPLICEPOINT,
        Sample_Preroll = AM_SAMPLE_PREROLL,
        Sample_Discontinuity = AM_SAMPLE_DATADISCONTINUITY,
        Sample_TypeChanged = AM_SAMPLE_TYPECHANGED,
        Sample_TimeValid = AM_SAMPLE_TIMEVALID,
        Sample_MediaTimeValid = 0x20,
        Sample_TimeDiscontinuity = AM_SAMPLE_TIMEDISCONTINUITY,
        Sample_StopValid = AM_SAMPLE_STOPVALID,
        Sample_ValidFlags = 0x1FF
    };

    DWORD m_dwFlags = 0;
    DWORD m_dwTypeSpecificFlags = 0;
    BYTE* m_pBuffer;
    LONG m_lActual;
    LONG m_cbBuffer;
    CBaseAllocator* m_pAllocator;    // not reference counted: the allocator owns the sample
    CMediaSample* m_pNext = nullptr; // link of the allocator's sample lists
    REFERENCE_TIME m_Start = 0;
    REFERENCE_TIME m_End = 0;
    LONGLONG m_MediaStart = 0;
    LONGLONG m_MediaEnd = 0;
    AM_MEDIA_TYPE* m_pMediaType = nullptr; // only while Sample_TypeChanged is set
    DWORD m_dwStreamId = AM_STREAM_MEDIA;

public:
    // Public as in the platform's classes: an allocator hands a sample out by setting it to 1.
    volatile LONG m_cRef = 0;
};

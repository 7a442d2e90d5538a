#include "dshow/sample_grabber_filter.h"

#include "dshow/video_header.h"

CSampleGrabberFilter::CSampleGrabberFilter(LPUNKNOWN pUnk, HRESULT* phr)
    : CTransInPlaceFilter(L"Sample Grabber", pUnk, GUID_NULL, phr, false) {}

CSampleGrabberFilter::~CSampleGrabberFilter() {
    if (m_pSink != nullptr) {
        m_pSink->Release();
    }
}

HRESULT CSampleGrabberFilter::SetSink(IFrameSink* sink, BOOL enabled) {
    (void)enabled;
    CAutoLock lock(m_lock);
    if (sink != nullptr) {
        sink->AddRef();
    }
    if (m_pSink != nullptr) {
        m_pSink->Release();
    }
    m_pSink = sink;
    return S_OK;
}

HRESULT CSampleGrabberFilter::SetAcceptedMediaType(const CMediaType* mt) {
    if (mt == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*pStateLock());
    return m_mtAccepted.Set(*mt);
}

HRESULT CSampleGrabberFilter::CheckInputType(const CMediaType* mtIn) {
    if (mtIn == nullptr) {
        return E_POINTER;
    }
    if (!m_mtAccepted.IsValid() || !IsEqualGUID(*mtIn->Type(), *m_mtAccepted.Type()) ||
        !IsEqualGUID(*mtIn->Subtype(), *m_mtAccepted.Subtype()) ||
        !IsEqualGUID(*mtIn->FormatType(), *m_mtAccepted.FormatType())) {
        return VFW_E_TYPE_NOT_ACCEPTED;
    }
    const BITMAPINFOHEADER* offered = VideoBitmapHeader(mtIn);
    const BITMAPINFOHEADER* accepted = VideoBitmapHeader(&m_mtAccepted);
    if (offered == nullptr || accepted == nullptr || offered->biWidth != accepted->biWidth ||
        offered->biHeight != accepted->biHeight || offered->biCompression != accepted->biCompression) {
        return VFW_E_TYPE_NOT_ACCEPTED;
    }
    return S_OK;
}

HRESULT CSampleGrabberFilter::Transform(IMediaSample* pSample) {
    if (pSample == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_lock);
    BYTE* data = nullptr;
    pSample->GetPointer(&data);
    REFERENCE_TIME start = 0, stop = 0;
    if (FAILED(pSample->GetTime(&start, &stop))) {
        start = 0;
    }
    if (m_pSink == nullptr) {
        return S_OK;
    }
    const double sampleTime = static_cast<double>(start) / 10000000.0;
    if (m_mode == kSampleMode) {
        return m_pSink->SampleCB(sampleTime, pSample);
    }
    // The whole buffer, not only the actual data: the preview reads frames of the buffer's size.
    return m_pSink->BufferCB(sampleTime, data, pSample->GetSize());
}

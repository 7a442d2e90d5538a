#include "dshow/video_source.h"

#include <new>

namespace {

bool IsVideoInfo(const GUID& formatType) {
    return IsEqualGUID(formatType, FORMAT_VideoInfo) || IsEqualGUID(formatType, FORMAT_VideoInfo2);
}

// The bitmap header of either video format, or null when the block is too short for it.
const BITMAPINFOHEADER* BitmapHeader(const AM_MEDIA_TYPE& type) {
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo) && type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
        return &reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->bmiHeader;
    }
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo2) && type.cbFormat >= sizeof(VIDEOINFOHEADER2)) {
        return &reinterpret_cast<const VIDEOINFOHEADER2*>(type.pbFormat)->bmiHeader;
    }
    return nullptr;
}

// Both headers keep the time per frame at the same place.
REFERENCE_TIME AvgTimePerFrame(const AM_MEDIA_TYPE& type) {
    static_assert(offsetof(VIDEOINFOHEADER, AvgTimePerFrame) == offsetof(VIDEOINFOHEADER2, AvgTimePerFrame));
    if (!IsVideoInfo(type.formattype) || type.cbFormat < sizeof(VIDEOINFOHEADER)) {
        return 0;
    }
    return reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->AvgTimePerFrame;
}

} // namespace

CVideoSourcePin::CVideoSourcePin(HRESULT* phr, CSource* filter)
    : CPushSourcePin(L"Video source pin", phr, filter, L"Video") {}

HRESULT CVideoSourcePin::SetStreamMediaType(const AM_MEDIA_TYPE* type) {
    if (type == nullptr || type->pbFormat == nullptr || type->cbFormat == 0) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    if (!IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    const REFERENCE_TIME perFrame = AvgTimePerFrame(*type);
    if (perFrame == 0) {
        return VFW_E_TYPE_NOT_ACCEPTED;
    }
    CAutoLock pin(pinLock_);
    const HRESULT hr = mediaType_.Set(*type);
    if (SUCCEEDED(hr)) {
        avgTimePerFrame_ = perFrame;
    }
    return hr;
}

HRESULT CVideoSourcePin::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) {
    if (allocator == nullptr || request == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(pinLock_);
    const BITMAPINFOHEADER* header = BitmapHeader(mediaType_);
    if (header == nullptr) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    ALLOCATOR_PROPERTIES props = *request;
    props.cbBuffer = static_cast<LONG>(header->biSizeImage);
    props.cbAlign = 16;
    if (props.cBuffers == 0) {
        props.cBuffers = 30;
    }
    return SetBufferProperties(allocator, props);
}

HRESULT CVideoSourcePin::FillBuffer(IMediaSample* sample) {
    CAutoLock lock(pinLock_);
    if (AllocatorEndReached()) {
        return S_FALSE;
    }
    if (!IsVideoInfo(mediaType_.formattype)) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    REFERENCE_TIME start = nextStart_;
    REFERENCE_TIME stop = start + avgTimePerFrame_;
    nextStart_ = stop;
    sample->SetTime(&start, &stop);
    NoteVideoDelivery();
    LONGLONG frame = nextMediaTime_;
    LONGLONG next = frame + 1;
    sample->SetMediaTime(&frame, &next);
    nextMediaTime_ = next;
    sample->SetSyncPoint(TRUE);
    return GateSample(sample);
}

CVideoSource::CVideoSource(HRESULT* phr) : CPushSource(L"Video Frame Source", phr) {
    if (phr != nullptr && FAILED(*phr)) {
        return;
    }
    videoPin_ = new (std::nothrow) CVideoSourcePin(phr, this);
    if (videoPin_ == nullptr && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
    pushPin_ = videoPin_;
}

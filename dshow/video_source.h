// The video source filter ("Video Frame Source") and its pin ("Video"): rendered frames become samples
// stamped one frame apart, every one a key frame.
#pragma once

#include "dshow/push_source.h"

class CVideoSourcePin : public CPushSourcePin {
public:
    CVideoSourcePin(HRESULT* phr, CSource* filter);

    // The frames' type: video, with a VIDEOINFOHEADER or VIDEOINFOHEADER2 format whose time per frame is
    // not 0. Only while the filter is stopped.
    HRESULT SetStreamMediaType(const AM_MEDIA_TYPE* type);

protected:
    // The image size of the format, aligned to 16; 30 buffers unless downstream or a suggestion says.
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;
    HRESULT FillBuffer(IMediaSample* sample) override;

private:
    REFERENCE_TIME avgTimePerFrame_ = 0;
};

class CVideoSource : public CPushSource {
public:
    explicit CVideoSource(HRESULT* phr);
    CVideoSourcePin* Pin() { return videoPin_; }

private:
    CVideoSourcePin* videoPin_ = nullptr;
};

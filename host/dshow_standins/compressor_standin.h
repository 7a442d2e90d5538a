// What the DV and Motion JPEG encoder stand-ins share: a transform filter that takes 8-bit RGB video
// (RGB24 or RGB32, in a VIDEOINFOHEADER or VIDEOINFOHEADER2) and delivers one compressed frame per sample,
// made by libavcodec on the streaming thread, with the input sample's times and every frame a sync point.
// A subclass says which pictures it takes and how it compresses them.
#pragma once

#include <memory>

#include "dshow/base/transform_filter.h"
#include "host/dshow_standins/frame_compressor.h"

namespace qvn_standins {

class CCompressorStandIn : public CTransformFilter {
public:
    HRESULT CheckInputType(const CMediaType* mtIn) override;
    HRESULT CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) override;
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) override;
    // One output type: the subclass's FourCC at the input's size and frame time.
    HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;
    HRESULT StartStreaming() override;
    HRESULT StopStreaming() override;
    HRESULT Transform(IMediaSample* pIn, IMediaSample* pOut) override;

protected:
    CCompressorStandIn(const wchar_t* name, REFCLSID clsid, DWORD fourCC);

    // Called with the filter's lock held.
    virtual bool TakesPicture(LONG width, LONG height) const = 0;
    // The size of every frame, or 0 when frames vary (the buffers then hold the worst case).
    virtual LONG FixedFrameBytes(LONG width, LONG height) const = 0;
    virtual FrameCompressorSettings Settings(LONG width, LONG height) const = 0;

private:
    const DWORD fourCC_;
    std::unique_ptr<FrameCompressor> compressor_; // while streaming
};

// The FourCC media subtype {xxxxxxxx-0000-0010-8000-00AA00389B71}.
GUID FourCCSubtype(DWORD fourCC);

} // namespace qvn_standins

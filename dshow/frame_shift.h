// "Frame Shift": adapts the frame geometry in front of the DV encoder, which takes 720 x 480 NTSC and
// 720 x 576 PAL frames whose picture starts one line lower than ours.
//
// - 720 x 486 UYVY in: the output type is 720 x 480 UYVY, and each frame keeps lines 2 to 481 (the top 2 and
//   the bottom 4 lines are dropped).
// - 576 lines in and out: the picture moves down one line in memory; the first line becomes black in the
//   output's format and the last input line is dropped. For the bottom-up RGB formats memory line 0 is the
//   picture's bottom line, so there the black line lands at the bottom.
// - Anything else passes unchanged (as many bytes as both samples hold).
//
// The filter sits behind the video source (through the Smart Tee), so it meets the formats that source
// offers: UYVY, HDYC, v210, r210, RGB24 and RGB32. Each has its own black for the filled line (UYVY and
// HDYC: U/V 0x80, Y 0x10; v210: Y 64 and Cb/Cr 512 in its 10-bit groups; r210: R = G = B = 64 in its
// big-endian word; RGB: zero). A format outside that list gets a zero line.
#pragma once

#include "dshow/base/transform_filter.h"

class CFrameShift : public CTransformFilter {
public:
    CFrameShift(LPUNKNOWN pUnk, HRESULT* phr);

    HRESULT Transform(IMediaSample* pIn, IMediaSample* pOut) override;
    // Video with a VIDEOINFOHEADER or VIDEOINFOHEADER2 format; S_FALSE for anything else.
    HRESULT CheckInputType(const CMediaType* mtIn) override;
    // Same major type and subtype, a video-info output format and the same compression in both headers;
    // VFW_E_NO_ACCEPTABLE_TYPES otherwise.
    HRESULT CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) override;
    // One buffer of the input format's image size.
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) override;
    // Position 0: the input's type, rewritten for the 486-line case.
    HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;
    // The input's type is kept as the output's type (720 x 486 UYVY becomes 720 x 480 UYVY).
    HRESULT SetMediaType(PIN_DIRECTION direction, const CMediaType* pmt) override;

private:
    CMediaType m_mtOutput;
};

#include "host/image_processing_suite.h"

#include "host/dv_formats.h"
#include "host/host_frame.h"
#ifdef QVNHOST_HAS_LIBAVCODEC
#include "host/dv_compressor.h"
#endif

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

bool Is8BitBgra(prsdk::PrPixelFormat f) {
    return f == prsdk::PrPixelFormat_BGRA_4444_8u || f == prsdk::PrPixelFormat_BGRX_4444_8u;
}

prSuiteError FormatIsCompressed(prsdk::PrPixelFormat format, prsdk::prBool* compressed) {
    if (!compressed)
        return prsdk::suiteError_InvalidParms;
    *compressed = FindDvFormat(format) != nullptr;
    return prsdk::suiteError_NoError;
}

prSuiteError FormatHasAlpha(prsdk::PrPixelFormat format, prsdk::prBool* alpha) {
    if (!alpha)
        return prsdk::suiteError_InvalidParms;
    *alpha = format == prsdk::PrPixelFormat_BGRA_4444_8u || format == prsdk::PrPixelFormat_BGRA_4444_16u ||
             format == prsdk::PrPixelFormat_BGRA_4444_32f;
    return prsdk::suiteError_NoError;
}

// The host's 4:4:4:4 frames are stored bottom-up; a DV frame is a stream of blocks with no origin.
prSuiteError FormatIsOriginTopLeft(prsdk::PrPixelFormat format, prsdk::prBool* topLeft) {
    if (!topLeft)
        return prsdk::suiteError_InvalidParms;
    *topLeft = BytesPerPixel(format) == 0;
    return prsdk::suiteError_NoError;
}

prSuiteError GetSizeForPixelBuffer(prsdk::PrPixelFormat format, prsdk::csSDK_uint32 width,
                                   prsdk::csSDK_uint32 height, prsdk::csSDK_uint32* rowBytes,
                                   std::size_t* size) {
    if (!rowBytes || !size)
        return prsdk::suiteError_InvalidParms;
    if (const DvFormat* dv = FindDvFormat(format)) {
        *rowBytes = 0;
        *size = static_cast<std::size_t>(dv->frameBytes);
        return prsdk::suiteError_NoError;
    }
    const int bpp = BytesPerPixel(format);
    if (bpp == 0)
        return prsdk::suiteError_InvalidParms;
    *rowBytes = width * static_cast<prsdk::csSDK_uint32>(bpp);
    *size = static_cast<std::size_t>(*rowBytes) * height;
    return prsdk::suiteError_NoError;
}

prSuiteError Compress(prsdk::PrPixelFormat srcFormat, prsdk::csSDK_uint32 srcWidth,
                      prsdk::csSDK_uint32 srcHeight, prsdk::csSDK_int32 srcRowBytes, void* src,
                      const DvFormat& dv, prsdk::int32 fieldType, prsdk::int32 channelOffset, void* dst) {
    if (!Is8BitBgra(srcFormat) || !src || !dst)
        return prsdk::suiteError_InvalidParms;
#ifdef QVNHOST_HAS_LIBAVCODEC
    return CompressDv(dv, static_cast<const std::uint8_t*>(src), static_cast<std::int32_t>(srcWidth),
                      static_cast<std::int32_t>(srcHeight), srcRowBytes, fieldType, channelOffset,
                      static_cast<std::uint8_t*>(dst));
#else
    (void)srcWidth, (void)srcHeight, (void)srcRowBytes, (void)dv, (void)fieldType, (void)channelOffset;
    return prsdk::suiteError_NotImplemented;
#endif
}

prSuiteError ScaleConvert(prsdk::PrPixelFormat srcFormat, prsdk::csSDK_uint32 srcWidth,
                          prsdk::csSDK_uint32 srcHeight, prsdk::csSDK_int32 srcRowBytes, prsdk::int32,
                          void* src, prsdk::PrPixelFormat dstFormat, prsdk::csSDK_uint32 dstWidth,
                          prsdk::csSDK_uint32 dstHeight, prsdk::csSDK_int32, prsdk::int32 dstFieldType,
                          void* dst, prsdk::int32) {
    const DvFormat* dv = FindDvFormat(dstFormat);
    // Only compression into the DV formats is offered, at their own frame size.
    if (!dv)
        return prsdk::suiteError_NotImplemented;
    if (dstWidth != static_cast<prsdk::csSDK_uint32>(dv->width) ||
        dstHeight != static_cast<prsdk::csSDK_uint32>(dv->height))
        return prsdk::suiteError_InvalidParms;
    return Compress(srcFormat, srcWidth, srcHeight, srcRowBytes, src, *dv, dstFieldType, 0, dst);
}

prSuiteError CompressDV100720p(prsdk::PrPixelFormat srcFormat, prsdk::csSDK_uint32 srcWidth,
                               prsdk::csSDK_uint32 srcHeight, prsdk::csSDK_int32 srcRowBytes, void* src,
                               prsdk::PrPixelFormat dstFormat, prsdk::csSDK_int32 dstLength, void* dst,
                               prsdk::int32 channelOffset, prsdk::int32) {
    const DvFormat* dv = FindDvFormat(dstFormat);
    if (!dv || dv->height != 720 || dstLength < dv->frameBytes || (channelOffset != 0 && channelOffset != 2))
        return prsdk::suiteError_InvalidParms;
    return Compress(srcFormat, srcWidth, srcHeight, srcRowBytes, src, *dv, 0, channelOffset, dst);
}

const prsdk::ImageProcessingSuite kSuite = {FormatIsCompressed,    FormatHasAlpha, FormatIsOriginTopLeft,
                                            GetSizeForPixelBuffer, ScaleConvert,   CompressDV100720p};

} // namespace

bool HostCompressesDv() {
#ifdef QVNHOST_HAS_LIBAVCODEC
    return true;
#else
    return false;
#endif
}

const prsdk::ImageProcessingSuite* ImageProcessingSuiteTable() {
    return &kSuite;
}

} // namespace qvnhost

#include "converter/path_choice.h"

#include "converter/converter.h"
#include "converter/cpu_features.h"
#include "converter/diagnostics.h"

namespace QVN::Converter::Video::detail {

bool IsAligned16(const void* ptr, std::uint32_t rowBytes) {
    return reinterpret_cast<std::uintptr_t>(ptr) % 16 == 0 && rowBytes % 16 == 0;
}

int DepthOf(std::uint32_t pixelFormat) {
    switch (pixelFormat) {
    case kPixelFormatBgra8u:
        return kDepth8u;
    case kPixelFormatBgra16u:
        return kDepth16u;
    case kPixelFormatBgra32f:
        return kDepth32f;
    default:
        return -1;
    }
}

const char* PixelFormatName(std::uint32_t pixelFormat) {
    switch (pixelFormat) {
    case kPixelFormatBgra8u:
        return "PrPixelFormat_BGRA_4444_8u";
    case kPixelFormatBgra16u:
        return "PrPixelFormat_BGRA_4444_16u";
    case kPixelFormatBgra32f:
        return "PrPixelFormat_BGRA_4444_32f";
    default:
        return "<unknown>";
    }
}

void ReportScalarFallback(const char* function, std::uint32_t pixelFormat, const char* target,
                          const void* srcPtr, std::uint32_t srcRowBytes, const void* dstPtr,
                          std::uint32_t dstRowBytes) {
    Diagnostic(
        "%s: Reverting to scalar code for conversion from %s to '%s': srcPtr %p srcRowBytes 0x%x dstPtr %p "
        "dstRowBytes 0x%x\n",
        function, PixelFormatName(pixelFormat), target, srcPtr, srcRowBytes, dstPtr, dstRowBytes);
}

const YuvVectorKernels& ActiveV210Vector() {
    return ActiveVectorIsa() == VectorIsa::kAvx2 ? kV210Avx2 : kV210Sse2;
}

const RgbVectorKernels& ActiveR210Vector() {
    return ActiveVectorIsa() == VectorIsa::kAvx2 ? kR210Avx2 : kR210Sse2;
}

const YuvVectorKernels& ActiveUyvyVector() {
    return ActiveVectorIsa() == VectorIsa::kAvx2 ? kUyvyAvx2 : kUyvySse2;
}

} // namespace QVN::Converter::Video::detail

// r210::CreateFrom: table initialisation, path choice and dispatch to the row kernels.
#include "converter/converter.h"
#include "converter/diagnostics.h"
#include "converter/path_choice.h"

namespace QVN::Converter::Video {

std::int32_t r210::CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                              void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width,
                              std::int32_t height, std::uint32_t /*colorMatrix*/, std::uint32_t pathMode) {
    static constexpr const char* kFunction = "QVN::Converter::Video::r210::CreateFrom";
    const std::int32_t init = Init(pixelFormat);
    if (init != kResultOk) {
        detail::Diagnostic("*** %s[%d]: Init failed\n", kFunction, 207);
        return init;
    }
    const bool srcAligned = detail::IsAligned16(srcPtr, srcRowBytes);
    const bool dstAligned = detail::IsAligned16(dstPtr, dstRowBytes);
    const int depth = detail::DepthOf(pixelFormat);
    bool scalar = pathMode == kPathScalar;
    // The 8u and 16u vector kernels read unaligned sources; 32f needs an aligned one; every vector kernel
    // streams to an aligned destination.
    if (pathMode == kPathAuto && (!dstAligned || (!srcAligned && depth == detail::kDepth32f))) {
        detail::ReportScalarFallback(kFunction, pixelFormat, "r210", srcPtr, srcRowBytes, dstPtr,
                                     dstRowBytes);
        scalar = true;
    }
    if (depth < 0) {
        return kResultOk; // "v210" and "v211" pass Init and convert nothing
    }
    const detail::RgbRowKernel kernel =
        scalar ? detail::kR210Scalar[depth]
               : detail::ActiveR210Vector().kernel[depth][srcAligned][dstAligned];
    kernel(static_cast<const std::uint8_t*>(srcPtr), srcRowBytes, static_cast<std::uint8_t*>(dstPtr),
           dstRowBytes, width, height);
    return kResultOk;
}

} // namespace QVN::Converter::Video

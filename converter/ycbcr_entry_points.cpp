// v210::CreateFrom and uyvy::CreateFrom: matrix selection, path choice and dispatch to the row kernels.
#include "converter/converter.h"
#include "converter/diagnostics.h"
#include "converter/matrix.h"
#include "converter/path_choice.h"

namespace QVN::Converter::Video {
namespace {

struct YuvConverter {
    const char* function;
    const char* target;
    const detail::YuvRowKernel* scalar;
    const detail::YuvVectorKernels& (*vector)();
};

std::int32_t ConvertYuv(const YuvConverter& converter, const void* srcPtr, std::uint32_t srcRowBytes,
                        std::uint32_t pixelFormat, void* dstPtr, std::uint32_t dstRowBytes,
                        std::int32_t width, std::int32_t height, std::uint32_t colorMatrix,
                        std::uint32_t pathMode) {
    detail::MatrixTable table;
    detail::BuildMatrixTable(table);
    const float* matrix = detail::SelectMatrix(table, colorMatrix, width);

    const bool srcAligned = detail::IsAligned16(srcPtr, srcRowBytes);
    const bool dstAligned = detail::IsAligned16(dstPtr, dstRowBytes);
    const int depth = detail::DepthOf(pixelFormat);
    bool scalar = pathMode == kPathScalar;
    if (pathMode == kPathAuto && !(srcAligned && dstAligned)) {
        // Host 8u frames are the common case, so an unaligned 8u source keeps a vector kernel.
        if (depth == detail::kDepth8u && dstAligned) {
            converter.vector().kernel[depth][0][1](static_cast<const std::uint8_t*>(srcPtr), srcRowBytes,
                                                   static_cast<std::uint8_t*>(dstPtr), dstRowBytes, width,
                                                   height, matrix);
            return kResultOk;
        }
        detail::ReportScalarFallback(converter.function, pixelFormat, converter.target, srcPtr, srcRowBytes,
                                     dstPtr, dstRowBytes);
        scalar = true;
    }
    if (depth < 0) {
        detail::Diagnostic("Unsupported pixel format\n");
        return kResultUnsupportedFormat;
    }
    const detail::YuvRowKernel kernel =
        scalar ? converter.scalar[depth] : converter.vector().kernel[depth][srcAligned][dstAligned];
    kernel(static_cast<const std::uint8_t*>(srcPtr), srcRowBytes, static_cast<std::uint8_t*>(dstPtr),
           dstRowBytes, width, height, matrix);
    return kResultOk;
}

} // namespace

std::int32_t v210::CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                              void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width,
                              std::int32_t height, std::uint32_t colorMatrix, std::uint32_t pathMode) {
    static const YuvConverter converter{"QVN::Converter::Video::v210::CreateFrom", "v210",
                                        detail::kV210Scalar, detail::ActiveV210Vector};
    return ConvertYuv(converter, srcPtr, srcRowBytes, pixelFormat, dstPtr, dstRowBytes, width, height,
                      colorMatrix, pathMode);
}

std::int32_t uyvy::CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                              void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width,
                              std::int32_t height, std::uint32_t colorMatrix, std::uint32_t pathMode) {
    static const YuvConverter converter{"QVN::Converter::Video::uyvy::CreateFrom", "uyvy",
                                        detail::kUyvyScalar, detail::ActiveUyvyVector};
    return ConvertYuv(converter, srcPtr, srcRowBytes, pixelFormat, dstPtr, dstRowBytes, width, height,
                      colorMatrix, pathMode);
}

} // namespace QVN::Converter::Video

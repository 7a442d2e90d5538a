// Row kernels of the three converters, as the entry points and the tests reach them.
//
// Every kernel converts `height` rows of `width` pixels: output row n (top-down at dst + n * dstRowBytes)
// comes from source row height - 1 - n (the source is bottom-up). Pixels that a group or block needs
// beyond `width` repeat the row's last pixel, so no kernel reads past a row's last pixel.
#pragma once

#include <cstdint>

namespace QVN::Converter::Video::detail {

enum Depth : int { kDepth8u = 0, kDepth16u = 1, kDepth32f = 2, kDepthCount = 3 };

using YuvRowKernel = void (*)(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                              std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height,
                              const float* matrix);
using RgbRowKernel = void (*)(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                              std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height);

// Vector kernels indexed by depth, source alignment and destination alignment (0 unaligned, 1 aligned to
// 16 bytes, address and row bytes). [d][1][1] are the aligned kernels and [8u][0][1] (r210 also [16u][0][1])
// the unaligned-source ones that automatic path choice uses; the rest only serve a forced vector path,
// which must not fault on buffers that the alignment tests would have refused.
template <class Kernel> struct VectorKernels { Kernel kernel[kDepthCount][2][2]; };
using YuvVectorKernels = VectorKernels<YuvRowKernel>;
using RgbVectorKernels = VectorKernels<RgbRowKernel>;

extern const YuvRowKernel kV210Scalar[kDepthCount];
extern const RgbRowKernel kR210Scalar[kDepthCount];
extern const YuvRowKernel kUyvyScalar[kDepthCount];

extern const YuvVectorKernels kV210Sse2;
extern const RgbVectorKernels kR210Sse2;
extern const YuvVectorKernels kUyvySse2;

// Only to be called where the processor runs AVX2 (see cpu_features.h).
extern const YuvVectorKernels kV210Avx2;
extern const RgbVectorKernels kR210Avx2;
extern const YuvVectorKernels kUyvyAvx2;

} // namespace QVN::Converter::Video::detail

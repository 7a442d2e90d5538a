// Path choice shared by the entry points: alignment tests, the fallback line and format names.
#pragma once

#include "converter/kernels.h"

#include <cstdint>

namespace QVN::Converter::Video::detail {

// Buffers count as aligned when address and row bytes are both multiples of 16.
bool IsAligned16(const void* ptr, std::uint32_t rowBytes);

// -1 for a code that is not one of the three host formats.
int DepthOf(std::uint32_t pixelFormat);

// "PrPixelFormat_BGRA_4444_8u" and so on, "<unknown>" for any other code.
const char* PixelFormatName(std::uint32_t pixelFormat);

void ReportScalarFallback(const char* function, std::uint32_t pixelFormat, const char* target,
                          const void* srcPtr, std::uint32_t srcRowBytes, const void* dstPtr,
                          std::uint32_t dstRowBytes);

const YuvVectorKernels& ActiveV210Vector();
const RgbVectorKernels& ActiveR210Vector();
const YuvVectorKernels& ActiveUyvyVector();

} // namespace QVN::Converter::Video::detail

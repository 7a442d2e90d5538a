// Which vector kernels this process uses.
#pragma once

namespace QVN::Converter::Video::detail {

enum class VectorIsa { kSse2, kAvx2 };

// AVX2 when the processor runs it, unless the environment variable QVN_SIMD is "sse2" (for comparison, and
// for machines that misreport). Decided once per process.
VectorIsa ActiveVectorIsa();

bool CpuHasAvx2();

} // namespace QVN::Converter::Video::detail

// The AVX2 vector kernels: the SSE2 kernels' arithmetic on two blocks at a time, one per 128-bit lane,
// with single blocks run by 128-bit code so that nothing is written past what SSE2 writes.
// Compiled with -mavx2; called only where the processor runs AVX2.
#include "converter/r210_vector.h"
#include "converter/ycbcr_vector.h"

#if !defined(__AVX2__)
#error "vector_avx2.cpp must be compiled with -mavx2"
#endif

namespace QVN::Converter::Video::detail {

const YuvVectorKernels kV210Avx2 = MakeYcbcrKernels<V210Layout, Avx2Ops, Sse2Ops>();
const RgbVectorKernels kR210Avx2 = MakeR210Kernels<Avx2Ops, Sse2Ops>();
const YuvVectorKernels kUyvyAvx2 = MakeYcbcrKernels<UyvyLayout, Avx2Ops, Sse2Ops>();

} // namespace QVN::Converter::Video::detail

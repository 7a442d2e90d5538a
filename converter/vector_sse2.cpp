// The SSE2 vector kernels: every x86-64 processor runs them.
#include "converter/r210_vector.h"
#include "converter/ycbcr_vector.h"

namespace QVN::Converter::Video::detail {

const YuvVectorKernels kV210Sse2 = MakeYcbcrKernels<V210Layout, Sse2Ops, Sse2Ops>();
const RgbVectorKernels kR210Sse2 = MakeR210Kernels<Sse2Ops, Sse2Ops>();
const YuvVectorKernels kUyvySse2 = MakeYcbcrKernels<UyvyLayout, Sse2Ops, Sse2Ops>();

} // namespace QVN::Converter::Video::detail

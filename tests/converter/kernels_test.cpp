// Every row kernel against the formulas restated in reference.cpp, on random frames of every depth, with
// canaries around and between the destination rows, and against guard pages.
#include "converter/converter.h"
#include "converter/cpu_features.h"
#include "converter/kernels.h"
#include "platform/virtual_memory.h"
#include "reference.h"
#include "test_frames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace detail = QVN::Converter::Video::detail;

enum class Codec { kV210, kUyvy, kR210 };
constexpr Codec kCodecs[] = {Codec::kV210, Codec::kUyvy, Codec::kR210};
const char* const kCodecNames[] = {"v210", "uyvy", "r210"};
const char* const kDepthNames[] = {"8u", "16u", "32f"};

using Kernel =
    std::function<void(const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t, int, int)>;

Kernel Bind(detail::YuvRowKernel k, const float* m) {
    return [k, m](const std::uint8_t* s, std::uint32_t sr, std::uint8_t* d, std::uint32_t dr, int w, int h) {
        k(s, sr, d, dr, w, h, m);
    };
}
Kernel Bind(detail::RgbRowKernel k) {
    return [k](const std::uint8_t* s, std::uint32_t sr, std::uint8_t* d, std::uint32_t dr, int w, int h) {
        k(s, sr, d, dr, w, h);
    };
}

Kernel ScalarKernel(Codec c, int depth, const float* m) {
    if (c == Codec::kR210)
        return Bind(detail::kR210Scalar[depth]);
    return Bind((c == Codec::kV210 ? detail::kV210Scalar : detail::kUyvyScalar)[depth], m);
}

Kernel VectorKernel(Codec c, bool avx2, int depth, bool alignedSrc, bool alignedDst, const float* m) {
    if (c == Codec::kR210)
        return Bind((avx2 ? detail::kR210Avx2 : detail::kR210Sse2).kernel[depth][alignedSrc][alignedDst]);
    const detail::YuvVectorKernels& set = c == Codec::kV210 ? (avx2 ? detail::kV210Avx2 : detail::kV210Sse2)
                                                            : (avx2 ? detail::kUyvyAvx2 : detail::kUyvySse2);
    return Bind(set.kernel[depth][alignedSrc][alignedDst], m);
}

std::vector<std::vector<std::uint8_t>> Expected(Codec c, const SourceView& s, const float* m,
                                                bool vectorPath) {
    return c == Codec::kV210   ? ReferenceV210(s, m, vectorPath)
           : c == Codec::kUyvy ? ReferenceUyvy(s, m, vectorPath)
                               : ReferenceR210(s, vectorPath);
}

std::size_t Extent(Codec c, int width, int depth, bool vectorPath) {
    return c == Codec::kV210   ? V210RowExtent(width, vectorPath)
           : c == Codec::kUyvy ? UyvyRowExtent(width, vectorPath, false)
                               : R210RowExtent(width, depth, vectorPath);
}

std::vector<int> Widths() {
    std::vector<int> w;
    for (int i = 1; i <= 100; ++i)
        w.push_back(i);
    w.insert(w.end(), {720, 1280, 1920, 3840});
    return w;
}

constexpr std::size_t kPixelBytes[3] = {4, 8, 16};

// `bytes` ending at the guard page, or moved down to a multiple of 16 when `align16`.
std::uint8_t* AtGuard(const QVN::CGuardedBuffer& pages, std::size_t bytes, bool align16) {
    const auto start = reinterpret_cast<std::uintptr_t>(pages.data() + pages.size() - bytes);
    return reinterpret_cast<std::uint8_t*>(align16 ? start & ~std::uintptr_t{15} : start);
}

class KernelTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(cv::r210::Init(cv::kPixelFormatBgra8u), 0); }
    std::mt19937 rng_{20240611};
};

// One conversion on a fresh frame, with paddings and misalignments picked from the width.
::testing::AssertionResult Check(Codec c, int depth, int width, bool vectorPath, const Kernel& kernel,
                                 bool alignedSrc, bool alignedDst, std::mt19937& rng, const float* m) {
    const int height = width <= 100 ? 3 : 2;
    const std::size_t srcPad = static_cast<std::size_t>(width % 3) * 4;
    std::uint32_t srcRowBytes = static_cast<std::uint32_t>(width * kPixelBytes[depth] + srcPad);
    std::uint32_t dstRowBytes =
        static_cast<std::uint32_t>(Extent(c, width, depth, vectorPath) + (width % 2) * 8 + 4);
    if (alignedSrc)
        srcRowBytes = RoundUp16(srcRowBytes);
    if (alignedDst)
        dstRowBytes = RoundUp16(dstRowBytes);
    if (c == Codec::kUyvy && vectorPath && width % 8 == 0) // tight: the next row writes over the tail
        dstRowBytes = static_cast<std::uint32_t>(width * 2 + (alignedDst ? 0 : 4));
    const Frame src = RandomFrame(depth, width, height, srcRowBytes, alignedSrc ? 0 : 1 + width % 7, rng);
    Buffer dst(static_cast<std::size_t>(dstRowBytes) * height, alignedDst ? 0 : 3);
    kernel(src.buffer.data(), srcRowBytes, dst.data(), dstRowBytes, width, height);
    return FrameMatches(dst, dstRowBytes, Expected(c, src.view(), m, vectorPath))
           << " [" << kCodecNames[static_cast<int>(c)] << " " << kDepthNames[depth] << " width " << width
           << "]";
}

// Variants: the SSE2 kernels at their four alignments, the AVX2 ones where the processor runs them, then the
// scalar kernel at any alignment. The two paths take the two matrices at opposite widths.
TEST_F(KernelTest, EveryKernelFollowsItsFormula) {
    const int vectorVariants = detail::CpuHasAvx2() ? 8 : 4;
    for (Codec c : kCodecs) {
        for (int depth = 0; depth < 3; ++depth) {
            for (int width : Widths()) {
                for (int variant = 0; variant <= vectorVariants; ++variant) {
                    const bool vector = variant < vectorVariants, alignedSrc = variant & 1,
                               alignedDst = variant & 2;
                    const float* m = (width % 2 == 1) == vector ? kHdMatrix : kSdMatrix;
                    const Kernel k = vector ? VectorKernel(c, variant >= 4, depth, alignedSrc, alignedDst, m)
                                            : ScalarKernel(c, depth, m);
                    ASSERT_TRUE(Check(c, depth, width, vector, k, alignedSrc, alignedDst, rng_, m))
                        << " variant " << variant;
                }
            }
        }
    }
}

// Sources whose last pixel and destinations whose last written byte touch a guard page: no kernel reads
// past a row's last pixel (the last group or block repeats it) or writes past the frame's last row.
TEST_F(KernelTest, NothingIsReadOrWrittenPastTheFrame) {
    const bool avx2 = detail::CpuHasAvx2();
    for (Codec c : kCodecs) {
        for (int depth = 0; depth < 3; ++depth) {
            for (int width : {1, 4, 5, 7, 20, 23, 25, 28, 44, 47, 49, 100, 724}) {
                const int height = 2;
                const std::uint32_t srcRowBytes = RoundUp16(width * kPixelBytes[depth]);
                const std::size_t srcBytes = srcRowBytes + width * kPixelBytes[depth];
                // path 0 scalar, 1 SSE2 aligned, 2 SSE2 unaligned, 3 AVX2 aligned, 4 AVX2 unaligned
                for (int path = 0; path < (avx2 ? 5 : 3); ++path) {
                    const bool vectorPath = path != 0;
                    const bool aligned = path == 1 || path == 3;
                    std::uint32_t dstRowBytes =
                        static_cast<std::uint32_t>(Extent(c, width, depth, vectorPath));
                    if (aligned)
                        dstRowBytes = RoundUp16(dstRowBytes);
                    const std::size_t lastRow = c == Codec::kUyvy ? UyvyRowExtent(width, vectorPath, true)
                                                                  : Extent(c, width, depth, vectorPath);
                    const QVN::CGuardedBuffer srcPages(srcBytes + 15), dstPages(dstRowBytes + lastRow + 15);
                    std::uint8_t* src = AtGuard(srcPages, srcBytes, aligned);
                    std::memset(src, 0x3C, srcBytes);
                    const Kernel k = vectorPath
                                         ? VectorKernel(c, path >= 3, depth, aligned, aligned, kSdMatrix)
                                         : ScalarKernel(c, depth, kSdMatrix);
                    k(src, srcRowBytes, AtGuard(dstPages, dstRowBytes + lastRow, aligned), dstRowBytes, width,
                      height);
                    SUCCEED();
                }
            }
        }
    }
}

} // namespace
} // namespace qvn_test

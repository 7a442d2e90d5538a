// The v210 and UYVY vector row kernels, written once over the operations of simd_ops.h.
//
// A block is 24 pixels. Components are brought to a common 16-bit scale (full scale 16384), the matrix is
// applied in Q15 with truncating shifts, and chroma is filtered 1-2-1 on the scaled R, G, B before the
// matrix. This deliberately differs from the scalar kernels, which round and filter after the matrix.
// Included only by the SSE2 and AVX2 translation units.
#pragma once

#include "converter/kernels.h"
#include "converter/rows.h"
#include "converter/simd_ops.h"

#include <algorithm>
#include <cstring>

namespace QVN::Converter::Video::detail {
namespace {

constexpr std::int32_t kBlockPixels = 24;

template <class Ops> struct Q15Matrix { typename Ops::I y, cb, cr, ones; };

// Each weight times 32768 in single precision, truncated toward zero; laid out B, G, R, 0 (alpha) per
// pixel as the components lie in memory.
template <class Ops> Q15Matrix<Ops> MakeQ15Matrix(const float* m) {
    const auto q = [](float v) { return static_cast<std::int16_t>(v * 32768.0f); };
    return {Ops::SetPixel16(q(m[2]), q(m[1]), q(m[0]), 0), Ops::SetPixel16(q(m[5]), q(m[4]), q(m[3]), 0),
            Ops::SetPixel16(q(m[8]), q(m[7]), q(m[6]), 0), Ops::Set16(1)};
}

// A block (per lane) is six runs of four pixels n..n+3, each held as the even pixels e = (n, n+2) and the
// odd pixels o = (n+1, n+3), B, G, R, A in 16-bit lanes. Chroma is taken at the even pixels and filtered
// with the odd ones, so this split saves regrouping the pixels for the filter.
template <class Ops> struct Run { typename Ops::I e, o; };

// Run k of the block at p. 16u and 32f are brought to the common scale: 16u >> 1 (32768 gives 16384), 32f
// clamped, times 16384 and rounded to nearest. 8u is kept as it is: its scaled value would be the
// component << 6 (255 gives 16320), and ConvertBlock applies that factor exactly through its shift counts.
template <class Ops, int kDepth, bool kAligned> Run<Ops> LoadRun(const std::uint8_t* p, int k) {
    constexpr std::ptrdiff_t kBlockBytes = kBlockPixels * kPixelBytes[kDepth];
    Run<Ops> r;
    if constexpr (kDepth == kDepth8u) {
        Ops::SplitPixels8u(Ops::template LoadLanes<kAligned>(p + 16 * k, kBlockBytes), r.e, r.o);
    } else if constexpr (kDepth == kDepth16u) {
        const typename Ops::I a = Ops::template LoadLanes<kAligned>(p + 32 * k, kBlockBytes);
        const typename Ops::I c = Ops::template LoadLanes<kAligned>(p + 32 * k + 16, kBlockBytes);
        r.e = Ops::template Srli16<1>(Ops::Unpacklo64(a, c));
        r.o = Ops::template Srli16<1>(Ops::Unpackhi64(a, c));
    } else {
        const typename Ops::F scale = Ops::SetF(16384.0f);
        const auto pixel = [&](int i) {
            return Ops::RoundToInt(Ops::MulF(
                Ops::ClampUnit(Ops::template LoadLanesF<kAligned>(p + 16 * (4 * k + i), kBlockBytes)),
                scale));
        };
        r.e = Ops::Packs32(pixel(0), pixel(2));
        r.o = Ops::Packs32(pixel(1), pixel(3));
    }
    return r;
}

// Converts the block at p, eight pixels at a time, handing `emit` for j = 0, 1, 2 the Y of pixels
// 8j..8j+7 in the order n, n+2, n+1, n+3, n+4, n+6, n+5, n+7, and chroma holding, per run of four pixels
// n..n+3, Cb(n), Cb(n+2), Cr(n), Cr(n+2); values already offset but not yet limited. `previous` holds, in
// its upper half, the pixel before the block; `last` is the block's run 5, which the caller needed first.
// Working in eights keeps few registers live, where converting the whole block stage by stage spilled.
//
// For 8u, with S = 64c: (S_B qB + S_G qG) >> 15 equals (c_B qB + c_G qG) >> 9 (also where a logical shift
// of a negative sum saturates in the pack: both then give 32767); the filter's sums of multiples of 64
// never truncate, so F = 16 (2c(n) + c(n-1) + c(n+1)) and (F q) >> 15 equals ((2c(n) + c(n-1) + c(n+1)) q)
// >> 11. The results are those of the scaled arithmetic, with fewer operations.
template <class Ops, int kDepth, bool kAligned, int kShift, std::int16_t kYOffset, std::int16_t kCOffset,
          class Emit>
void ConvertBlock(const std::uint8_t* p, typename Ops::I previous, const Run<Ops>& last,
                  const Q15Matrix<Ops>& q, Emit&& emit) {
    using I = typename Ops::I;
    constexpr bool kUnscaled = kDepth == kDepth8u;
    constexpr int kLumaShift = kUnscaled ? 9 : 15;
    constexpr int kChromaShift = kUnscaled ? 11 : 15;
    // Luma: the two partial sums (B+G, R+0) are shifted and saturated to 16 bits, then added by the
    // multiply-add with ones. No rounding offset anywhere. Y(n), Y(n+2), Y(n+1), Y(n+3).
    const auto luma = [&](const Run<Ops>& r) {
        const I even = Ops::template Srli32<kLumaShift>(Ops::Madd(r.e, q.y));
        const I odd = Ops::template Srli32<kLumaShift>(Ops::Madd(r.o, q.y));
        return Ops::Madd(Ops::Packs32(even, odd), q.ones);
    };
    // Chroma at the even pixels, filtered on the components (with truncating unsigned shifts where they
    // are scaled). Cb(n), Cb(n+2), Cr(n), Cr(n+2).
    const auto chroma = [&](const Run<Ops>& r, I before) { // before: S(n-1), S(n+1)
        I f;
        if constexpr (kUnscaled) {
            f = Ops::Add16(Ops::Add16(r.e, r.e), Ops::Add16(before, r.o));
        } else {
            f = Ops::template Srli16<1>(Ops::Add16(Ops::template Srli16<1>(Ops::Add16(r.e, before)),
                                                   Ops::template Srli16<1>(Ops::Add16(r.e, r.o))));
        }
        const I cb = Ops::template Srai32<kChromaShift>(Ops::Madd(f, q.cb));
        const I cr = Ops::template Srai32<kChromaShift>(Ops::Madd(f, q.cr));
        return Ops::Madd(Ops::Packs32(cb, cr), q.ones);
    };
    I left = previous;
    QVN_UNROLL
    for (int j = 0; j < 3; ++j) {
        const Run<Ops> a = LoadRun<Ops, kDepth, kAligned>(p, 2 * j);
        const Run<Ops> b = j == 2 ? last : LoadRun<Ops, kDepth, kAligned>(p, 2 * j + 1);
        const I aBefore = Ops::HighLowHalves(left, a.o);
        const I bBefore = Ops::HighLowHalves(a.o, b.o);
        left = b.o;
        // Every sum fits in 16 bits, so packing before the final shift changes nothing.
        const I y =
            Ops::Add16(Ops::template Srai16<kShift>(Ops::Packs32(luma(a), luma(b))), Ops::Set16(kYOffset));
        const I c =
            Ops::Add16(Ops::template Srai16<kShift>(Ops::Packs32(chroma(a, aBefore), chroma(b, bBefore))),
                       Ops::Set16(kCOffset));
        emit(j, y, c);
    }
}

// The 4:2:2 sequence Cb(n) Y(n) Cr(n) Y(n+1) Cb(n+2) Y(n+2) Cr(n+2) Y(n+3) from ConvertBlock's orders:
// interleaving gives pairs Cb(n)Y(n), Cb(n+2)Y(n+2), Cr(n)Y(n+1), Cr(n+2)Y(n+3), and one 32-bit shuffle
// puts them in place.
template <class Ops> typename Ops::I SequenceLow(typename Ops::I chroma, typename Ops::I luma) {
    return Ops::template Shuffle32<_MM_SHUFFLE(3, 1, 2, 0)>(Ops::Unpacklo16(chroma, luma));
}
template <class Ops> typename Ops::I SequenceHigh(typename Ops::I chroma, typename Ops::I luma) {
    return Ops::template Shuffle32<_MM_SHUFFLE(3, 1, 2, 0)>(Ops::Unpackhi16(chroma, luma));
}

enum class StoreKind { kDestination, kLocal };

// v210: values limited to 0..1023 (the lower limit only matters for 16u components above 32768, which the
// host never delivers), then the block's four groups packed by one shared routine: the 4:2:2 sequence
// Cb Y Cr Y ... is built as in UYVY, widened to 32 bits, and each word takes three consecutive samples.
struct V210Layout {
    static constexpr int kShift = 4;
    static constexpr std::int16_t kYOffset = 64;
    static constexpr std::int16_t kCOffset = 512;
    static constexpr std::ptrdiff_t kBlockBytes = 64;
    static constexpr bool kTailOnLastRow = false;

    template <class Ops, int kDepth, bool kAlignedSrc, bool kAlignedDst, StoreKind>
    static void Convert(const std::uint8_t* p, typename Ops::I previous, const Run<Ops>& last,
                        const Q15Matrix<Ops>& q, std::uint8_t* d) {
        typename Ops::I y[3], c[3];
        ConvertBlock<Ops, kDepth, kAlignedSrc, kShift, kYOffset, kCOffset>(
            p, previous, last, q, [&](int j, typename Ops::I yj, typename Ops::I cj) {
                y[j] = yj;
                c[j] = cj;
            });
        Store<Ops, kAlignedDst>(d, y, c);
    }

    // Byte-shuffle controls for the packing with byte shuffles, indexed [odd group][a-b pairs, c][from P,
    // from Q]. P and Q are consecutive registers of interleaved chroma and luma, which hold the samples
    // 0..7 of a run of eight of the 4:2:2 sequence in the order 0 1 4 5 2 3 6 7. An even group (pixels 0..5
    // of a block, or 12..17) starts at P's sample 0, an odd group at P's sample 4. The a-b register takes
    // the group's samples 0 1, 3 4, 6 7, 9 10 as 16-bit pairs, the c register 2, 5, 8, 11 in the lower
    // half of each 32-bit lane; -1 gives a zero byte.
    alignas(16) static constexpr std::int8_t kShuffles[2][2][2][16] = {
        {{{0, 1, 2, 3, 10, 11, 4, 5, 12, 13, 14, 15, -1, -1, -1, -1},
          {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 2, 3, 8, 9}},
         {{8, 9, -1, -1, 6, 7, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
          {-1, -1, -1, -1, -1, -1, -1, -1, 0, 1, -1, -1, 10, 11, -1, -1}}},
        {{{4, 5, 6, 7, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
          {-1, -1, -1, -1, -1, -1, 0, 1, 8, 9, 10, 11, 6, 7, 12, 13}},
         {{12, 13, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
          {-1, -1, -1, -1, 2, 3, -1, -1, 4, 5, -1, -1, 14, 15, -1, -1}}}};

    template <class Ops, bool kAligned>
    static void Store(std::uint8_t* d, const typename Ops::I (&y)[3], const typename Ops::I (&c)[3]) {
        using I = typename Ops::I;
        const I zero = Ops::Zero();
        const I max = Ops::Set16(1023);
        if constexpr (Ops::kByteShuffle) {
            // Each word is a + 1024 b (one multiply-add of the pair) + (c << 20): the same bits as the
            // shifts and ors below, in about half the operations.
            I u[6];
            QVN_UNROLL
            for (int j = 0; j < 3; ++j) {
                const I luma = Ops::Min16(Ops::Max16(y[j], zero), max);
                const I chroma = Ops::Min16(Ops::Max16(c[j], zero), max);
                u[2 * j] = Ops::Unpacklo16(chroma, luma);
                u[2 * j + 1] = Ops::Unpackhi16(chroma, luma);
            }
            const I pairWeights = Ops::Set32(1 | 1024 << 16);
            QVN_UNROLL
            for (int k = 0; k < 4; ++k) {
                const int odd = k & 1;
                const I from = u[k + k / 2], next = u[k + k / 2 + 1];
                const I ab = Ops::Or(Ops::ShuffleBytes(from, kShuffles[odd][0][0]),
                                     Ops::ShuffleBytes(next, kShuffles[odd][0][1]));
                const I cc = Ops::Or(Ops::ShuffleBytes(from, kShuffles[odd][1][0]),
                                     Ops::ShuffleBytes(next, kShuffles[odd][1][1]));
                const I words = Ops::Add32(Ops::Madd(ab, pairWeights), Ops::template Slli32<20>(cc));
                Ops::template StreamLanes<kAligned>(d + 16 * k, kBlockBytes, words);
            }
            return;
        }
        I s[12]; // samples 4m..4m+3 of the sequence in 32-bit lanes
        QVN_UNROLL
        for (int j = 0; j < 3; ++j) {
            const I luma = Ops::Min16(Ops::Max16(y[j], zero), max);
            const I chroma = Ops::Min16(Ops::Max16(c[j], zero), max);
            const I lo =
                SequenceLow<Ops>(chroma, luma); // Cb(n) Y(n) Cr(n) Y(n+1) Cb(n+2) Y(n+2) Cr(n+2) Y(n+3)
            const I hi = SequenceHigh<Ops>(chroma, luma);
            s[4 * j] = Ops::Unpacklo16(lo, zero);
            s[4 * j + 1] = Ops::Unpackhi16(lo, zero);
            s[4 * j + 2] = Ops::Unpacklo16(hi, zero);
            s[4 * j + 3] = Ops::Unpackhi16(hi, zero);
        }
        QVN_UNROLL
        for (int k = 0; k < 4; ++k) {
            // Words 4k..4k+3 take samples a0..a11 = A, B, C: bits 0-9 a0 a3 a6 a9, 10-19 a1 a4 a7 a10,
            // 20-29 a2 a5 a8 a11.
            const I a = s[3 * k], b = s[3 * k + 1], cc = s[3 * k + 2];
            const I low = Ops::template Shuffle32Pair<_MM_SHUFFLE(2, 0, 3, 0)>(
                a, Ops::template Shuffle32Pair<_MM_SHUFFLE(1, 1, 2, 2)>(b, cc));
            const I mid = Ops::template Shuffle32Pair<_MM_SHUFFLE(2, 0, 2, 0)>(
                Ops::template Shuffle32Pair<_MM_SHUFFLE(0, 0, 1, 1)>(a, b),
                Ops::template Shuffle32Pair<_MM_SHUFFLE(2, 2, 3, 3)>(b, cc));
            const I high = Ops::template Shuffle32Pair<_MM_SHUFFLE(2, 0, 2, 0)>(
                Ops::template Shuffle32Pair<_MM_SHUFFLE(1, 1, 2, 2)>(a, b),
                Ops::template Shuffle32Pair<_MM_SHUFFLE(3, 3, 0, 0)>(cc, cc));
            const I words =
                Ops::Or(Ops::Or(low, Ops::template Slli32<10>(mid)), Ops::template Slli32<20>(high));
            Ops::template StreamLanes<kAligned>(d + 16 * k, kBlockBytes, words);
        }
    }
};

// UYVY: bytes Cb, Y0, Cr, Y1 per pair; the unsigned saturating pack limits every value to 0..255.
struct UyvyLayout {
    static constexpr int kShift = 6;
    static constexpr std::int16_t kYOffset = 16;
    static constexpr std::int16_t kCOffset = 128;
    static constexpr std::ptrdiff_t kBlockBytes = 48;
    static constexpr bool kTailOnLastRow = true;

    template <class Ops, int kDepth, bool kAlignedSrc, bool kAlignedDst, StoreKind kKind>
    static void Convert(const std::uint8_t* p, typename Ops::I previous, const Run<Ops>& last,
                        const Q15Matrix<Ops>& q, std::uint8_t* d) {
        ConvertBlock<Ops, kDepth, kAlignedSrc, kShift, kYOffset, kCOffset>(
            p, previous, last, q, [&](int j, typename Ops::I y, typename Ops::I c) {
                const typename Ops::I out = Ops::UyvyBytes(c, y);
                if constexpr (kKind == StoreKind::kLocal) {
                    Ops::template StoreLanes<true>(d + 16 * j, kBlockBytes, out);
                } else {
                    Ops::template StreamLanes<kAlignedDst>(d + 16 * j, kBlockBytes, out);
                }
            });
    }
};

// Copies the row's pixels from `first` up to the width into a block and repeats the last pixel after
// them, so that the last block reads nothing past the row.
template <int kDepth>
void FillTailBlock(const std::uint8_t* row, std::int32_t first, std::int32_t width, std::uint8_t* block) {
    constexpr std::ptrdiff_t kBytes = kPixelBytes[kDepth];
    const std::int32_t count = width - first;
    std::memcpy(block, row + first * kBytes, static_cast<std::size_t>(count * kBytes));
    for (std::int32_t i = count; i < kBlockPixels; ++i) {
        std::memcpy(block + i * kBytes, row + (width - 1) * kBytes, kBytes);
    }
}

// One row kernel: W is the widest register set this translation unit runs (blocks in pairs), N the
// 128-bit one for single blocks; for the SSE2 kernels both are Sse2Ops.
template <class Layout, class W, class N, int kDepth, bool kAlignedSrc, bool kAlignedDst>
[[gnu::flatten]] void YcbcrVectorRows(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                                      std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height,
                                      const float* matrix) {
    if (width <= 0 || height <= 0) {
        return;
    }
    constexpr std::ptrdiff_t kSrcBlock = kBlockPixels * kPixelBytes[kDepth];
    const Q15Matrix<W> qw = MakeQ15Matrix<W>(matrix);
    const Q15Matrix<N> qn = MakeQ15Matrix<N>(matrix);
    const std::int32_t fullBlocks = width / kBlockPixels;
    const std::ptrdiff_t rowLength = width * kPixelBytes[kDepth];
    const std::int32_t remainder = width % kBlockPixels;

    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* s = SourceRow(src, srcRowBytes, height, row);
        const std::uint8_t* rowEnd = s + rowLength;
        std::uint8_t* d = DestRow(dst, dstRowBytes, row);
        std::int32_t b = 0;
        typename N::I carry = N::Zero();
        if constexpr (W::kLanes == 2) {
            typename W::I wideCarry = W::Zero();
            for (; b + 2 <= fullBlocks; b += 2) {
                const std::uint8_t* p = s + b * kSrcBlock;
                PrefetchAhead<W, 2 * kSrcBlock>(p, rowEnd, rowLength, srcRowBytes);
                const Run<W> last = LoadRun<W, kDepth, kAlignedSrc>(p, 5);
                if (b == 0) {
                    const typename W::I first = LoadRun<W, kDepth, kAlignedSrc>(p, 0).e;
                    wideCarry = W::RowStartCarry(W::Unpacklo64(first, first));
                }
                Layout::template Convert<W, kDepth, kAlignedSrc, kAlignedDst, StoreKind::kDestination>(
                    p, W::Previous(wideCarry, last.o), last, qw, d + b * Layout::kBlockBytes);
                wideCarry = last.o;
            }
            if (b > 0) {
                carry = W::HighLane(wideCarry);
            }
        }
        const auto block = [&](const std::uint8_t* p, std::int32_t index, std::uint8_t* out, auto alignedSrc,
                               auto alignedDst, auto kind) {
            constexpr bool kSrc = decltype(alignedSrc)::value;
            const Run<N> last = LoadRun<N, kDepth, kSrc>(p, 5);
            if (index == 0) {
                const typename N::I first = LoadRun<N, kDepth, kSrc>(p, 0).e;
                carry = N::Unpacklo64(first, first); // a row's first pixel is its own left neighbour
            }
            Layout::template Convert<N, kDepth, kSrc, decltype(alignedDst)::value, decltype(kind)::value>(
                p, carry, last, qn, out);
            carry = last.o;
        };
        using Destination = std::integral_constant<StoreKind, StoreKind::kDestination>;
        for (; b < fullBlocks; ++b) {
            const std::uint8_t* p = s + b * kSrcBlock;
            PrefetchAhead<N, kSrcBlock>(p, rowEnd, rowLength, srcRowBytes);
            block(p, b, d + b * Layout::kBlockBytes, std::bool_constant<kAlignedSrc>{},
                  std::bool_constant<kAlignedDst>{}, Destination{});
        }
        if (remainder != 0) {
            alignas(16) std::uint8_t tail[kSrcBlock];
            FillTailBlock<kDepth>(s, fullBlocks * kBlockPixels, width, tail);
            std::uint8_t* out = d + fullBlocks * Layout::kBlockBytes;
            if (Layout::kTailOnLastRow && row == height - 1) {
                // The last row ends the frame: only the bytes of the remaining pixels go into place.
                alignas(16) std::uint8_t local[Layout::kBlockBytes];
                block(tail, fullBlocks, local, std::true_type{}, std::true_type{},
                      std::integral_constant<StoreKind, StoreKind::kLocal>{});
                std::memcpy(out, local, static_cast<std::size_t>(remainder * 2));
            } else {
                block(tail, fullBlocks, out, std::true_type{}, std::bool_constant<kAlignedDst>{},
                      Destination{});
            }
        }
    }
    _mm_sfence(); // streamed rows are visible to the thread that takes the frame next
}

template <class Layout, class W, class N, int kDepth>
constexpr YuvRowKernel kYcbcrKernel[2][2] = {
    {YcbcrVectorRows<Layout, W, N, kDepth, false, false>, YcbcrVectorRows<Layout, W, N, kDepth, false, true>},
    {YcbcrVectorRows<Layout, W, N, kDepth, true, false>, YcbcrVectorRows<Layout, W, N, kDepth, true, true>}};

template <class Layout, class W, class N> constexpr YuvVectorKernels MakeYcbcrKernels() {
    YuvVectorKernels k{};
    for (int s = 0; s < 2; ++s) {
        for (int t = 0; t < 2; ++t) {
            k.kernel[kDepth8u][s][t] = kYcbcrKernel<Layout, W, N, kDepth8u>[s][t];
            k.kernel[kDepth16u][s][t] = kYcbcrKernel<Layout, W, N, kDepth16u>[s][t];
            k.kernel[kDepth32f][s][t] = kYcbcrKernel<Layout, W, N, kDepth32f>[s][t];
        }
    }
    return k;
}

} // namespace
} // namespace QVN::Converter::Video::detail

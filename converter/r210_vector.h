// The r210 vector row kernels, written once over the operations of simd_ops.h. Pure arithmetic (no
// table): 8u gives exactly the table's codes, 16u truncates where the table rounds, 32f rounds to nearest.
// Included only by the SSE2 and AVX2 translation units.
#pragma once

#include "converter/kernels.h"
#include "converter/rows.h"
#include "converter/simd_ops.h"

#include <cstring>

namespace QVN::Converter::Video::detail {
namespace {

// Four pixels (per lane) to four r210 words, from R, G, B codes in 32-bit lanes.
template <class Ops> typename Ops::I R210Words(typename Ops::I r, typename Ops::I g, typename Ops::I b) {
    using I = typename Ops::I;
    const I m15 = Ops::Set32(15);
    const I m63 = Ops::Set32(63);
    I w = Ops::Or(Ops::template Srli32<4>(r), Ops::template Slli32<12>(Ops::And(r, m15)));
    w = Ops::Or(w, Ops::template Slli32<8>(Ops::template Srli32<6>(g)));
    w = Ops::Or(w, Ops::template Slli32<18>(Ops::And(g, m63)));
    w = Ops::Or(w, Ops::template Slli32<16>(Ops::template Srli32<8>(b)));
    return Ops::Or(w, Ops::template Slli32<24>(b)); // the shift drops all but B's low eight bits
}

// Bytes of source per four pixels (one 16-byte output register).
template <int kDepth> constexpr std::ptrdiff_t kUnitBytes = 4 * kPixelBytes[kDepth];

template <class Ops, int kDepth, bool kAligned> typename Ops::I R210Unit(const std::uint8_t* p) {
    using I = typename Ops::I;
    constexpr std::ptrdiff_t kLane = kUnitBytes<kDepth>;
    if constexpr (kDepth == kDepth8u) {
        // code = (((c << 7) + 19) * 1752 >> 16) + 64, computed as (((c << 8) + 38) * 876 >> 16) + 64 (the
        // same product), which lets the widening put c straight into the upper byte of each 16-bit lane. The
        // word is then assembled with one multiply-add, B + 1024 G and 16 R, from the codes less 64, the
        // three offsets added at once, and its bytes reversed: the same word the shifts and masks of
        // R210Words build.
        const I x = Ops::template LoadLanes<kAligned>(p, kLane);
        const I zero = Ops::Zero();
        const I k38 = Ops::Set16(38);
        const I k876 = Ops::Set16(876);
        const I weights = Ops::SetPixel16(1, 1024, 16, 0);
        const auto codes = [&](I c8) { return Ops::Madd(Ops::MulhiU16(Ops::Add16(c8, k38), k876), weights); };
        const I p01 = codes(Ops::Unpacklo8(zero, x)); // B0 + 1024 G0, 16 R0, B1 + 1024 G1, 16 R1
        const I p23 = codes(Ops::Unpackhi8(zero, x));
        const I bg = Ops::template Shuffle32Pair<_MM_SHUFFLE(2, 0, 2, 0)>(p01, p23);
        const I r16 = Ops::template Shuffle32Pair<_MM_SHUFFLE(3, 1, 3, 1)>(p01, p23);
        const I word =
            Ops::Add32(Ops::Add32(bg, Ops::template Slli32<16>(r16)), Ops::Set32(64 | 64 << 10 | 64 << 20));
        return Ops::ByteSwap32(word);
    } else if constexpr (kDepth == kDepth16u) {
        // code = (c * 1752 >> 16) + 64 on every component; components above 32768 count as 32768.
        const I limit = Ops::Set16(static_cast<std::int16_t>(-32768));
        const I k1752 = Ops::Set16(1752);
        const I k64 = Ops::Set16(64);
        const auto code = [&](I c) {
            const I clamped = Ops::Sub16(c, Ops::SubsU16(c, limit));
            return Ops::Add16(Ops::MulhiU16(clamped, k1752), k64);
        };
        const I p01 = code(Ops::template LoadLanes<kAligned>(p, kLane));
        const I p23 = code(Ops::template LoadLanes<kAligned>(p + 16, kLane));
        const I t0 = Ops::Unpacklo16(p01, p23); // B0 B2 G0 G2 R0 R2 A0 A2
        const I t1 = Ops::Unpackhi16(p01, p23); // B1 B3 G1 G3 R1 R3 A1 A3
        const I bg = Ops::Unpacklo16(t0, t1);   // B0 B1 B2 B3 G0 G1 G2 G3
        const I ra = Ops::Unpackhi16(t0, t1);   // R0 R1 R2 R3 A0 A1 A2 A3
        const I zero = Ops::Zero();
        return R210Words<Ops>(Ops::Unpacklo16(ra, zero), Ops::Unpackhi16(bg, zero),
                              Ops::Unpacklo16(bg, zero));
    } else {
        // code = round(clamp(x) * 876.0f) + 64, ties to even.
        const typename Ops::F scale = Ops::SetF(876.0f);
        const I k64 = Ops::Set32(64);
        I c[4];
        QVN_UNROLL
        for (int i = 0; i < 4; ++i) {
            const typename Ops::F x = Ops::template LoadLanesF<kAligned>(p + 16 * i, kLane);
            c[i] = Ops::Add32(Ops::RoundToInt(Ops::MulF(Ops::ClampUnit(x), scale)), k64);
        }
        const I a0 = Ops::Unpacklo32(c[0], c[1]); // B0 B1 G0 G1
        const I a1 = Ops::Unpackhi32(c[0], c[1]); // R0 R1 A0 A1
        const I a2 = Ops::Unpacklo32(c[2], c[3]); // B2 B3 G2 G3
        const I a3 = Ops::Unpackhi32(c[2], c[3]); // R2 R3 A2 A3
        return R210Words<Ops>(Ops::Unpacklo64(a1, a3), Ops::Unpackhi64(a0, a2), Ops::Unpacklo64(a0, a2));
    }
}

// One row kernel. Rows are written in whole blocks (8 pixels for 8u, 4 for 16u and 32f), so the
// destination row holds `width` rounded up to the block, in words; the main loop runs kStep units of four
// pixels at a time (W::kLanes per register), N the remaining units one by one.
template <class W, class N, int kDepth, bool kAlignedSrc, bool kAlignedDst>
[[gnu::flatten]] void R210VectorRows(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                                     std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height) {
    if (width <= 0 || height <= 0) {
        return;
    }
    constexpr std::int32_t kBlockPixels = kDepth == kDepth8u ? 8 : 4;
    constexpr std::ptrdiff_t kUnit = kUnitBytes<kDepth>;
    const std::int32_t units = (width + kBlockPixels - 1) / kBlockPixels * (kBlockPixels / 4);
    const std::int32_t wholeUnits = width / 4;
    // Units per step: at least a cache line of source, so that each line is prefetched once.
    constexpr int kStep = kUnit >= 32 ? 2 : 64 / kUnit;
    const std::ptrdiff_t rowLength = width * kPixelBytes[kDepth];
    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* s = SourceRow(src, srcRowBytes, height, row);
        const std::uint8_t* rowEnd = s + rowLength;
        std::uint8_t* d = DestRow(dst, dstRowBytes, row);
        std::int32_t u = 0;
        for (; u + kStep <= wholeUnits; u += kStep) {
            PrefetchAhead<W, kStep * kUnit>(s + u * kUnit, rowEnd, rowLength, srcRowBytes);
            QVN_UNROLL
            for (int lane = 0; lane < kStep; lane += W::kLanes) {
                W::template StreamLanes<kAlignedDst>(
                    d + 16 * (u + lane), 16, R210Unit<W, kDepth, kAlignedSrc>(s + (u + lane) * kUnit));
            }
        }
        for (; u < wholeUnits; ++u) {
            N::template StreamLanes<kAlignedDst>(d + 16 * u, 16,
                                                 R210Unit<N, kDepth, kAlignedSrc>(s + u * kUnit));
        }
        if (u < units) {
            // The last block of the row repeats the last pixel past the width.
            alignas(16) std::uint8_t tail[2 * kUnit];
            const std::int32_t present = width - 4 * u;
            std::memcpy(tail, s + u * kUnit, static_cast<std::size_t>(present * kPixelBytes[kDepth]));
            for (std::int32_t i = present; i < 4 * (units - u); ++i) {
                std::memcpy(tail + i * kPixelBytes[kDepth], s + (width - 1) * kPixelBytes[kDepth],
                            kPixelBytes[kDepth]);
            }
            for (std::int32_t i = 0; u < units; ++u, ++i) {
                N::template StreamLanes<kAlignedDst>(d + 16 * u, 16,
                                                     R210Unit<N, kDepth, true>(tail + i * kUnit));
            }
        }
    }
    _mm_sfence(); // streamed rows are visible to the thread that takes the frame next
}

template <class W, class N, int kDepth>
constexpr RgbRowKernel kR210Kernel[2][2] = {
    {R210VectorRows<W, N, kDepth, false, false>, R210VectorRows<W, N, kDepth, false, true>},
    {R210VectorRows<W, N, kDepth, true, false>, R210VectorRows<W, N, kDepth, true, true>}};

template <class W, class N> constexpr RgbVectorKernels MakeR210Kernels() {
    RgbVectorKernels k{};
    for (int s = 0; s < 2; ++s) {
        for (int t = 0; t < 2; ++t) {
            k.kernel[kDepth8u][s][t] = kR210Kernel<W, N, kDepth8u>[s][t];
            k.kernel[kDepth16u][s][t] = kR210Kernel<W, N, kDepth16u>[s][t];
            k.kernel[kDepth32f][s][t] = kR210Kernel<W, N, kDepth32f>[s][t];
        }
    }
    return k;
}

} // namespace
} // namespace QVN::Converter::Video::detail

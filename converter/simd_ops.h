// The vector operations the kernels are written in, for 128-bit registers (SSE2) and, where the including
// translation unit is compiled for AVX2, for 256-bit registers.
//
// A 256-bit register is used as two independent 128-bit lanes: every operation here acts on each lane as
// the 128-bit operation does, and loads and stores take the second lane from `laneStride` bytes further
// on. A kernel written once over these operations therefore gives in each AVX2 lane exactly what the SSE2
// kernel gives for the same block, which is what keeps the two bit-identical.
//
// Everything is in an unnamed namespace: the SSE2 and AVX2 translation units each get their own copies,
// so the linker can never substitute an AVX2-encoded copy into the SSE2 kernels.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

// Fixed-count loops over a block's registers are unrolled, so that the arrays stay in registers instead of
// going through the stack between stages.
#define QVN_UNROLL _Pragma("GCC unroll 16")

namespace QVN::Converter::Video::detail {
namespace {

struct Sse2Ops {
    using I = __m128i;
    using F = __m128;
    static constexpr int kLanes = 1;

    static I Zero() { return _mm_setzero_si128(); }
    static I Set16(std::int16_t v) { return _mm_set1_epi16(v); }
    static I Set32(std::int32_t v) { return _mm_set1_epi32(v); }
    static I SetPixel16(std::int16_t b, std::int16_t g, std::int16_t r, std::int16_t a) {
        return _mm_setr_epi16(b, g, r, a, b, g, r, a);
    }
    static F SetF(float v) { return _mm_set1_ps(v); }

    template <bool kAligned> static I Load(const std::uint8_t* p) {
        if constexpr (kAligned) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        } else {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        }
    }
    template <bool kAligned> static I LoadLanes(const std::uint8_t* p, std::ptrdiff_t /*laneStride*/) {
        return Load<kAligned>(p);
    }
    template <bool kAligned> static F LoadLanesF(const std::uint8_t* p, std::ptrdiff_t laneStride) {
        return _mm_castsi128_ps(LoadLanes<kAligned>(p, laneStride));
    }
    template <bool kAligned> static void Store(std::uint8_t* p, I v) {
        if constexpr (kAligned) {
            _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
        } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
        }
    }
    template <bool kAligned> static void StoreLanes(std::uint8_t* p, std::ptrdiff_t /*laneStride*/, I v) {
        Store<kAligned>(p, v);
    }
    // Non-temporal where the destination allows it, which keeps a converted frame out of the caches.
    template <bool kAligned> static void StreamLanes(std::uint8_t* p, std::ptrdiff_t /*laneStride*/, I v) {
        if constexpr (kAligned) {
            _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
        } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
        }
    }

    static I Add16(I a, I b) { return _mm_add_epi16(a, b); }
    static I SubsU16(I a, I b) { return _mm_subs_epu16(a, b); }
    static I Sub16(I a, I b) { return _mm_sub_epi16(a, b); }
    static I Add32(I a, I b) { return _mm_add_epi32(a, b); }
    template <int n> static I Srli16(I a) { return _mm_srli_epi16(a, n); }
    template <int n> static I Slli16(I a) { return _mm_slli_epi16(a, n); }
    template <int n> static I Srai16(I a) { return _mm_srai_epi16(a, n); }
    template <int n> static I Srli32(I a) { return _mm_srli_epi32(a, n); }
    template <int n> static I Slli32(I a) { return _mm_slli_epi32(a, n); }
    template <int n> static I Srai32(I a) { return _mm_srai_epi32(a, n); }
    static I And(I a, I b) { return _mm_and_si128(a, b); }
    static I Or(I a, I b) { return _mm_or_si128(a, b); }
    static I Madd(I a, I b) { return _mm_madd_epi16(a, b); }
    static I MulhiU16(I a, I b) { return _mm_mulhi_epu16(a, b); }
    static I Min16(I a, I b) { return _mm_min_epi16(a, b); }
    static I Max16(I a, I b) { return _mm_max_epi16(a, b); }
    static I Packs32(I a, I b) { return _mm_packs_epi32(a, b); }
    static I Packus16(I a, I b) { return _mm_packus_epi16(a, b); }
    static I Unpacklo8(I a, I b) { return _mm_unpacklo_epi8(a, b); }
    static I Unpackhi8(I a, I b) { return _mm_unpackhi_epi8(a, b); }
    static I Unpacklo16(I a, I b) { return _mm_unpacklo_epi16(a, b); }
    static I Unpackhi16(I a, I b) { return _mm_unpackhi_epi16(a, b); }
    static I Unpacklo32(I a, I b) { return _mm_unpacklo_epi32(a, b); }
    static I Unpackhi32(I a, I b) { return _mm_unpackhi_epi32(a, b); }
    static I Unpacklo64(I a, I b) { return _mm_unpacklo_epi64(a, b); }
    static I Unpackhi64(I a, I b) { return _mm_unpackhi_epi64(a, b); }
    template <int imm> static I Shuffle16LoHi(I a) {
        return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, imm), imm);
    }
    // Two 32-bit lanes of a, then two of b, chosen by imm (shufps).
    template <int imm> static I Shuffle32Pair(I a, I b) {
        return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), imm));
    }

    template <int imm> static I Shuffle32(I a) { return _mm_shuffle_epi32(a, imm); }
    // The upper half of a, then the lower half of b.
    static I HighLowHalves(I a, I b) {
        return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(a), _mm_castsi128_pd(b), 1));
    }

    // The compositions below give the same bytes with either instruction sequence; the byte shuffle is
    // there where this translation unit may use it (the 128-bit code of the AVX2 kernels).

#if defined(__SSSE3__)
    static constexpr bool kByteShuffle = true;
    // Bytes of v chosen by the 16 control bytes at `control` (a negative control gives zero).
    static I ShuffleBytes(I v, const std::int8_t* control) {
        return _mm_shuffle_epi8(v, _mm_load_si128(reinterpret_cast<const __m128i*>(control)));
    }
#else
    static constexpr bool kByteShuffle = false;
    static I ShuffleBytes(I v, const std::int8_t* control); // never defined: guarded by kByteShuffle
#endif

    // Four 8u pixels to the even ones (0, 2) and the odd ones (1, 3), widened to 16-bit lanes.
    static void SplitPixels8u(I x, I& even, I& odd) {
#if defined(__SSSE3__)
        even = _mm_shuffle_epi8(x, _mm_setr_epi8(0, -1, 1, -1, 2, -1, 3, -1, 8, -1, 9, -1, 10, -1, 11, -1));
        odd = _mm_shuffle_epi8(x, _mm_setr_epi8(4, -1, 5, -1, 6, -1, 7, -1, 12, -1, 13, -1, 14, -1, 15, -1));
#else
        const I s = _mm_shuffle_epi32(x, _MM_SHUFFLE(3, 1, 2, 0));
        even = _mm_unpacklo_epi8(s, _mm_setzero_si128());
        odd = _mm_unpackhi_epi8(s, _mm_setzero_si128());
#endif
    }
    // UYVY bytes of eight pixels from chroma Cb(n), Cb(n+2), Cr(n), Cr(n+2), ... and luma in the order
    // n, n+2, n+1, n+3, ...; the unsigned saturating pack limits every value to 0..255.
    static I UyvyBytes(I c, I y) {
#if defined(__SSSE3__)
        return _mm_shuffle_epi8(_mm_packus_epi16(c, y),
                                _mm_setr_epi8(0, 8, 2, 10, 1, 9, 3, 11, 4, 12, 6, 14, 5, 13, 7, 15));
#else
        return _mm_packus_epi16(_mm_shuffle_epi32(_mm_unpacklo_epi16(c, y), _MM_SHUFFLE(3, 1, 2, 0)),
                                _mm_shuffle_epi32(_mm_unpackhi_epi16(c, y), _MM_SHUFFLE(3, 1, 2, 0)));
#endif
    }
    // Reverses the bytes of every 32-bit lane.
    static I ByteSwap32(I v) {
#if defined(__SSSE3__)
        return _mm_shuffle_epi8(v, _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
#else
        const I halves = _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
        return _mm_shufflehi_epi16(_mm_shufflelo_epi16(halves, 0xB1), 0xB1);
#endif
    }

    // maxps returns its second operand when either is NaN, so NaN becomes 0.0 here.
    static F ClampUnit(F a) {
        return _mm_min_ps(_mm_max_ps(a, _mm_setzero_ps()), _mm_set1_ps(1.0f));
    }
    static F MulF(F a, F b) {
        return _mm_mul_ps(a, b);
    }
    static I RoundToInt(F a) {
        return _mm_cvtps_epi32(a);
    } // nearest, ties to even (default MXCSR)

    // The register whose last pixel precedes a block: for one lane the carried register itself.
    static I Previous(I carry, I /*current*/) {
        return carry;
    }
    static I RowStartCarry(I firstPixelTwice) {
        return firstPixelTwice;
    }

    static void Prefetch(const std::uint8_t* p) {
        _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_NTA);
    }
};

#if defined(__AVX2__)
struct Avx2Ops {
    using I = __m256i;
    using F = __m256;
    static constexpr int kLanes = 2;

    static I Zero() { return _mm256_setzero_si256(); }
    static I Set16(std::int16_t v) { return _mm256_set1_epi16(v); }
    static I Set32(std::int32_t v) { return _mm256_set1_epi32(v); }
    static I SetPixel16(std::int16_t b, std::int16_t g, std::int16_t r, std::int16_t a) {
        return _mm256_setr_epi16(b, g, r, a, b, g, r, a, b, g, r, a, b, g, r, a);
    }
    static F SetF(float v) { return _mm256_set1_ps(v); }

    template <bool kAligned> static I LoadLanes(const std::uint8_t* p, std::ptrdiff_t laneStride) {
        if (laneStride == 16) {
            return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        }
        const __m128i lo = Sse2Ops::Load<kAligned>(p);
        const __m128i hi = Sse2Ops::Load<kAligned>(p + laneStride);
        return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
    }
    template <bool kAligned> static F LoadLanesF(const std::uint8_t* p, std::ptrdiff_t laneStride) {
        return _mm256_castsi256_ps(LoadLanes<kAligned>(p, laneStride));
    }
    template <bool kAligned> static void StoreLanes(std::uint8_t* p, std::ptrdiff_t laneStride, I v) {
        Sse2Ops::Store<kAligned>(p, _mm256_castsi256_si128(v));
        Sse2Ops::Store<kAligned>(p + laneStride, _mm256_extracti128_si256(v, 1));
    }
    // Two 16-byte streaming stores: the destination is only known to be 16-byte aligned.
    template <bool kAligned> static void StreamLanes(std::uint8_t* p, std::ptrdiff_t laneStride, I v) {
        Sse2Ops::StreamLanes<kAligned>(p, 0, _mm256_castsi256_si128(v));
        Sse2Ops::StreamLanes<kAligned>(p + laneStride, 0, _mm256_extracti128_si256(v, 1));
    }

    static I Add16(I a, I b) { return _mm256_add_epi16(a, b); }
    static I SubsU16(I a, I b) { return _mm256_subs_epu16(a, b); }
    static I Sub16(I a, I b) { return _mm256_sub_epi16(a, b); }
    static I Add32(I a, I b) { return _mm256_add_epi32(a, b); }
    template <int n> static I Srli16(I a) { return _mm256_srli_epi16(a, n); }
    template <int n> static I Slli16(I a) { return _mm256_slli_epi16(a, n); }
    template <int n> static I Srai16(I a) { return _mm256_srai_epi16(a, n); }
    template <int n> static I Srli32(I a) { return _mm256_srli_epi32(a, n); }
    template <int n> static I Slli32(I a) { return _mm256_slli_epi32(a, n); }
    template <int n> static I Srai32(I a) { return _mm256_srai_epi32(a, n); }
    static I And(I a, I b) { return _mm256_and_si256(a, b); }
    static I Or(I a, I b) { return _mm256_or_si256(a, b); }
    static I Madd(I a, I b) { return _mm256_madd_epi16(a, b); }
    static I MulhiU16(I a, I b) { return _mm256_mulhi_epu16(a, b); }
    static I Min16(I a, I b) { return _mm256_min_epi16(a, b); }
    static I Max16(I a, I b) { return _mm256_max_epi16(a, b); }
    static I Packs32(I a, I b) { return _mm256_packs_epi32(a, b); }
    static I Packus16(I a, I b) { return _mm256_packus_epi16(a, b); }
    static I Unpacklo8(I a, I b) { return _mm256_unpacklo_epi8(a, b); }
    static I Unpackhi8(I a, I b) { return _mm256_unpackhi_epi8(a, b); }
    static I Unpacklo16(I a, I b) { return _mm256_unpacklo_epi16(a, b); }
    static I Unpackhi16(I a, I b) { return _mm256_unpackhi_epi16(a, b); }
    static I Unpacklo32(I a, I b) { return _mm256_unpacklo_epi32(a, b); }
    static I Unpackhi32(I a, I b) { return _mm256_unpackhi_epi32(a, b); }
    static I Unpacklo64(I a, I b) { return _mm256_unpacklo_epi64(a, b); }
    static I Unpackhi64(I a, I b) { return _mm256_unpackhi_epi64(a, b); }
    template <int imm> static I Shuffle16LoHi(I a) {
        return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a, imm), imm);
    }
    template <int imm> static I Shuffle32Pair(I a, I b) {
        return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), imm));
    }

    template <int imm> static I Shuffle32(I a) { return _mm256_shuffle_epi32(a, imm); }
    static I HighLowHalves(I a, I b) { return _mm256_alignr_epi8(b, a, 8); }
    static constexpr bool kByteShuffle = true;
    // The same 16 control bytes in both lanes.
    static I ShuffleBytes(I v, const std::int8_t* control) {
        return _mm256_shuffle_epi8(
            v, _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(control))));
    }
    static void SplitPixels8u(I x, I& even, I& odd) {
        even = _mm256_shuffle_epi8(x, _mm256_setr_epi8(0, -1, 1, -1, 2, -1, 3, -1, 8, -1, 9, -1, 10, -1, 11,
                                                       -1, 0, -1, 1, -1, 2, -1, 3, -1, 8, -1, 9, -1, 10, -1,
                                                       11, -1));
        odd = _mm256_shuffle_epi8(x, _mm256_setr_epi8(4, -1, 5, -1, 6, -1, 7, -1, 12, -1, 13, -1, 14, -1, 15,
                                                      -1, 4, -1, 5, -1, 6, -1, 7, -1, 12, -1, 13, -1, 14, -1,
                                                      15, -1));
    }
    static I UyvyBytes(I c, I y) {
        return _mm256_shuffle_epi8(_mm256_packus_epi16(c, y),
                                   _mm256_setr_epi8(0, 8, 2, 10, 1, 9, 3, 11, 4, 12, 6, 14, 5, 13, 7, 15, 0,
                                                    8, 2, 10, 1, 9, 3, 11, 4, 12, 6, 14, 5, 13, 7, 15));
    }
    static I ByteSwap32(I v) {
        return _mm256_shuffle_epi8(v, _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12,
                                                       3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
    }

    static F ClampUnit(F a) {
        return _mm256_min_ps(_mm256_max_ps(a, _mm256_setzero_ps()), _mm256_set1_ps(1.0f));
    }
    static F MulF(F a, F b) { return _mm256_mul_ps(a, b); }
    static I RoundToInt(F a) { return _mm256_cvtps_epi32(a); }

    // Lane 0 continues the previous pair's second block, lane 1 this pair's first block.
    static I Previous(I carry, I current) { return _mm256_permute2x128_si256(carry, current, 0x21); }
    static I RowStartCarry(I firstPixelTwice) {
        return _mm256_permute2x128_si256(firstPixelTwice, firstPixelTwice, 0x00);
    }
    static __m128i HighLane(I v) { return _mm256_extracti128_si256(v, 1); }

    static void Prefetch(const std::uint8_t* p) {
        _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_NTA);
    }
};
#endif

// Bytes of source prefetched ahead of the loads. Measured on frames read from memory: 2 KiB keeps the
// loads fed where 192 or 512 bytes left them waiting, and 4 KiB and more was slower again.
inline constexpr std::ptrdiff_t kPrefetchDistance = 2048;

// Prefetches `bytes` of source (whole lines) kPrefetchDistance ahead of p in conversion order: past the end
// of the row that continues at the next row converted, one stride lower in memory (the source is
// bottom-up), so that each row starts with its first lines already on the way. Below the frame, on the
// last row, the prefetches hit nothing of ours, and a prefetch never faults.
template <class Ops, std::ptrdiff_t kBytes>
void PrefetchAhead(const std::uint8_t* p, const std::uint8_t* rowEnd, std::ptrdiff_t rowLength,
                   std::uint32_t srcRowBytes) {
    std::uintptr_t target = reinterpret_cast<std::uintptr_t>(p) + kPrefetchDistance;
    if (target >= reinterpret_cast<std::uintptr_t>(rowEnd)) {
        target -= static_cast<std::uintptr_t>(rowLength) + srcRowBytes;
    }
    QVN_UNROLL
    for (std::ptrdiff_t o = 0; o < kBytes; o += 64) {
        Ops::Prefetch(reinterpret_cast<const std::uint8_t*>(target + static_cast<std::uintptr_t>(o)));
    }
}

} // namespace
} // namespace QVN::Converter::Video::detail

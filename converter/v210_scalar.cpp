// The v210 scalar row kernels: the reference result of the v210 converter.
#include "converter/kernels.h"
#include "converter/rows.h"
#include "converter/scalar_pixels.h"

#include <algorithm>
#include <cstring>

namespace QVN::Converter::Video::detail {
namespace {

struct Rgb10 {
    double r, g, b;
};

// Components brought to the 10-bit scale; 16u and 32f saturate at full scale (1023).
Rgb10 To10Bit8u(const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr8u(p);
    return {static_cast<double>(c.r << 2), static_cast<double>(c.g << 2), static_cast<double>(c.b << 2)};
}

Rgb10 To10Bit16u(const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr16u(p);
    return {static_cast<double>(std::min(c.r >> 5, 1023u)), static_cast<double>(std::min(c.g >> 5, 1023u)),
            static_cast<double>(std::min(c.b >> 5, 1023u))};
}

Rgb10 To10Bit32f(const std::uint8_t* p) {
    const ScalarBgrF c = ReadBgr32f(p);
    // Multiplied in single precision and not rounded, as the reference has always done.
    return {static_cast<double>(ClampUnit(c.r) * 1023.0f), static_cast<double>(ClampUnit(c.g) * 1023.0f),
            static_cast<double>(ClampUnit(c.b) * 1023.0f)};
}

struct YCbCr {
    std::uint32_t y, cb, cr;
};

// Double precision, R term + G term + B term + offset in that order; the .5 of the offset and the
// truncation round to nearest.
YCbCr Matrix(const Rgb10& c, const float* m) {
    const double y = static_cast<double>(m[0]) * c.r + static_cast<double>(m[1]) * c.g +
                     static_cast<double>(m[2]) * c.b + 64.5;
    const double cb = static_cast<double>(m[3]) * c.r + static_cast<double>(m[4]) * c.g +
                      static_cast<double>(m[5]) * c.b + 512.5;
    const double cr = static_cast<double>(m[6]) * c.r + static_cast<double>(m[7]) * c.g +
                      static_cast<double>(m[8]) * c.b + 512.5;
    return {static_cast<std::uint32_t>(y), static_cast<std::uint32_t>(cb), static_cast<std::uint32_t>(cr)};
}

// 1-2-1 filter with truncating shifts.
std::uint32_t Filter(std::uint32_t left, std::uint32_t centre, std::uint32_t right) {
    return (((left + right) >> 1) + centre) >> 1;
}

std::uint32_t Word(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    return a | (b << 10) | (c << 20);
}

template <Rgb10 (*ToRgb)(const std::uint8_t*), std::ptrdiff_t kBytes>
void V210Scalar(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height, const float* matrix) {
    if (width <= 0 || height <= 0) {
        return;
    }
    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* s = SourceRow(src, srcRowBytes, height, row);
        std::uint8_t* d = DestRow(dst, dstRowBytes, row);
        YCbCr previous{};
        for (std::int32_t k = 0; k < width; k += 6, d += 16) {
            YCbCr p[6];
            for (std::int32_t i = 0; i < 6; ++i) {
                p[i] = Matrix(ToRgb(s + std::min(k + i, width - 1) * kBytes), matrix);
            }
            if (k == 0) {
                previous = p[0]; // the first group of a row is its own left neighbour
            }
            const std::uint32_t cb0 = Filter(previous.cb, p[0].cb, p[1].cb);
            const std::uint32_t cr0 = Filter(previous.cr, p[0].cr, p[1].cr);
            const std::uint32_t cb2 = Filter(p[1].cb, p[2].cb, p[3].cb);
            const std::uint32_t cr2 = Filter(p[1].cr, p[2].cr, p[3].cr);
            const std::uint32_t cb4 = Filter(p[3].cb, p[4].cb, p[5].cb);
            const std::uint32_t cr4 = Filter(p[3].cr, p[4].cr, p[5].cr);
            const std::uint32_t words[4] = {Word(cb0, p[0].y, cr0), Word(p[1].y, cb2, p[2].y),
                                            Word(cr2, p[3].y, cb4), Word(p[4].y, cr4, p[5].y)};
            std::memcpy(d, words, sizeof words);
            previous = p[5];
        }
    }
}

} // namespace

const YuvRowKernel kV210Scalar[kDepthCount] = {V210Scalar<To10Bit8u, 4>, V210Scalar<To10Bit16u, 8>,
                                               V210Scalar<To10Bit32f, 16>};

} // namespace QVN::Converter::Video::detail

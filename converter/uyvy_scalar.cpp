// The UYVY scalar row kernels: the reference result of the UYVY converter.
#include "converter/kernels.h"
#include "converter/rows.h"
#include "converter/scalar_pixels.h"

#include <algorithm>

namespace QVN::Converter::Video::detail {
namespace {

struct Rgb8 {
    float r, g, b;
};

// Components on the 8-bit scale; 16u and 32f saturate at 255.
Rgb8 To8Bit8u(const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr8u(p);
    return {static_cast<float>(c.r), static_cast<float>(c.g), static_cast<float>(c.b)};
}

Rgb8 To8Bit16u(const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr16u(p);
    return {static_cast<float>(std::min(c.r >> 7, 255u)), static_cast<float>(std::min(c.g >> 7, 255u)),
            static_cast<float>(std::min(c.b >> 7, 255u))};
}

Rgb8 To8Bit32f(const std::uint8_t* p) {
    const ScalarBgrF c = ReadBgr32f(p);
    return {ClampUnit(c.r) * 255.0f, ClampUnit(c.g) * 255.0f, ClampUnit(c.b) * 255.0f};
}

struct YCbCr {
    std::uint32_t y, cb, cr;
};

// Dot products in single precision (R, G, B term in that order), then offset in double and truncation.
YCbCr Matrix(const Rgb8& c, const float* m) {
    const float y = m[0] * c.r + m[1] * c.g + m[2] * c.b;
    const float cb = m[3] * c.r + m[4] * c.g + m[5] * c.b;
    const float cr = m[6] * c.r + m[7] * c.g + m[8] * c.b;
    return {static_cast<std::uint32_t>(static_cast<double>(y) + 16.5),
            static_cast<std::uint32_t>(static_cast<double>(cb) + 128.5),
            static_cast<std::uint32_t>(static_cast<double>(cr) + 128.5)};
}

std::uint32_t Filter(std::uint32_t left, std::uint32_t centre, std::uint32_t right) {
    return (((left + right) >> 1) + centre) >> 1;
}

template <Rgb8 (*To8Bit)(const std::uint8_t*), std::ptrdiff_t kBytes>
void UyvyScalar(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height, const float* matrix) {
    if (width <= 0 || height <= 0) {
        return;
    }
    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* s = SourceRow(src, srcRowBytes, height, row);
        std::uint8_t* d = DestRow(dst, dstRowBytes, row);
        YCbCr previous{};
        for (std::int32_t k = 0; k < width; k += 2, d += 4) {
            const YCbCr first = Matrix(To8Bit(s + k * kBytes), matrix);
            // An odd width repeats the last pixel as the second of the last pair.
            const YCbCr second = Matrix(To8Bit(s + std::min(k + 1, width - 1) * kBytes), matrix);
            if (k == 0) {
                previous = first;
            }
            d[0] = static_cast<std::uint8_t>(Filter(previous.cb, first.cb, second.cb));
            d[1] = static_cast<std::uint8_t>(first.y);
            d[2] = static_cast<std::uint8_t>(Filter(previous.cr, first.cr, second.cr));
            d[3] = static_cast<std::uint8_t>(second.y);
            previous = second;
        }
    }
}

} // namespace

const YuvRowKernel kUyvyScalar[kDepthCount] = {UyvyScalar<To8Bit8u, 4>, UyvyScalar<To8Bit16u, 8>,
                                               UyvyScalar<To8Bit32f, 16>};

} // namespace QVN::Converter::Video::detail

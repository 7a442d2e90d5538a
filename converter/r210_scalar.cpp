// The r210 scalar row kernels: one table lookup per component, exactly `width` words per row.
#include "converter/kernels.h"
#include "converter/lookup_tables.h"
#include "converter/r210_word.h"
#include "converter/rows.h"
#include "converter/scalar_pixels.h"

#include <algorithm>
#include <cstring>

namespace QVN::Converter::Video::detail {
namespace {

struct Codes {
    std::uint32_t r, g, b;
};

// 8u reads every 128th entry: white 255 reads entry 32640 and gives 937, not 940.
Codes Codes8u(const std::uint16_t* lut, const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr8u(p);
    return {lut[c.r * 128], lut[c.g * 128], lut[c.b * 128]};
}

// Components above 32768 are out of the host's range; they read the white entry instead of past the table.
Codes Codes16u(const std::uint16_t* lut, const std::uint8_t* p) {
    const ScalarBgr c = ReadBgr16u(p);
    return {lut[std::min(c.r, 32768u)], lut[std::min(c.g, 32768u)], lut[std::min(c.b, 32768u)]};
}

std::uint32_t Index32f(float x) {
    const double scaled = static_cast<double>(x) * 32768.0;
    if (!(scaled > 0.0)) {
        return 0;
    }
    return scaled >= 32768.0 ? 32768u : static_cast<std::uint32_t>(scaled); // truncates toward zero
}

Codes Codes32f(const std::uint16_t* lut, const std::uint8_t* p) {
    const ScalarBgrF c = ReadBgr32f(p);
    return {lut[Index32f(c.r)], lut[Index32f(c.g)], lut[Index32f(c.b)]};
}

template <Codes (*ToCodes)(const std::uint16_t*, const std::uint8_t*), std::ptrdiff_t kBytes>
void R210Scalar(const std::uint8_t* src, std::uint32_t srcRowBytes, std::uint8_t* dst,
                std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height) {
    if (width <= 0 || height <= 0) {
        return;
    }
    const std::uint16_t* lut = R210Lut();
    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* s = SourceRow(src, srcRowBytes, height, row);
        std::uint8_t* d = DestRow(dst, dstRowBytes, row);
        for (std::int32_t k = 0; k < width; ++k) {
            const Codes c = ToCodes(lut, s + k * kBytes);
            const std::uint32_t word = R210Word(c.r, c.g, c.b);
            std::memcpy(d + 4 * k, &word, sizeof word);
        }
    }
}

} // namespace

const RgbRowKernel kR210Scalar[kDepthCount] = {R210Scalar<Codes8u, 4>, R210Scalar<Codes16u, 8>,
                                               R210Scalar<Codes32f, 16>};

} // namespace QVN::Converter::Video::detail

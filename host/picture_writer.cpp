#include "host/picture_writer.h"

#include <algorithm>
#include <cstring>

namespace qvnhost {
namespace {

void Store(unsigned char* dst, prsdk::PrPixelFormat format, const std::uint8_t* bgra, std::int32_t count) {
    const std::size_t n = static_cast<std::size_t>(count) * 4;
    switch (BytesPerPixel(format)) {
    case 4:
        std::memcpy(dst, bgra, n);
        break;
    case 8: {
        auto* out = reinterpret_cast<std::uint16_t*>(dst);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = To16u(bgra[i]);
        break;
    }
    case 16: {
        auto* out = reinterpret_cast<float*>(dst);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = To32f(bgra[i]);
        break;
    }
    default:
        break;
    }
}

} // namespace

void PictureWriter::StoreRow(std::int32_t x, std::int32_t y, const std::uint8_t* bgra, std::int32_t count) {
    const int bpp = BytesPerPixel(frame_.layout.format);
    Store(frame_.TopRow(y) + static_cast<std::ptrdiff_t>(x) * bpp, frame_.layout.format, bgra, count);
}

void PictureWriter::FillRect(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, Bgra8 colour) {
    const std::int32_t x0 = std::max(x, 0);
    const std::int32_t y0 = std::max(y, 0);
    const std::int32_t x1 = std::min(x + w, Width());
    const std::int32_t y1 = std::min(y + h, Height());
    if (x0 >= x1 || y0 >= y1)
        return;
    const int bpp = BytesPerPixel(frame_.layout.format);
    // One row in the frame's format, then copied down the rectangle.
    unsigned char* first = frame_.TopRow(y0) + static_cast<std::ptrdiff_t>(x0) * bpp;
    const std::uint8_t pixel[4] = {colour.b, colour.g, colour.r, colour.a};
    for (std::int32_t i = 0; i < x1 - x0; ++i)
        Store(first + static_cast<std::ptrdiff_t>(i) * bpp, frame_.layout.format, pixel, 1);
    const std::size_t bytes = static_cast<std::size_t>(x1 - x0) * static_cast<std::size_t>(bpp);
    for (std::int32_t row = y0 + 1; row < y1; ++row)
        std::memcpy(frame_.TopRow(row) + static_cast<std::ptrdiff_t>(x0) * bpp, first, bytes);
}

void PictureWriter::CopyPacked(const unsigned char* packed) {
    const std::size_t rowBytes =
        static_cast<std::size_t>(Width()) * static_cast<std::size_t>(BytesPerPixel(frame_.layout.format));
    if (frame_.layout.rowPadding == 0) {
        std::memcpy(frame_.pixels, packed, rowBytes * static_cast<std::size_t>(Height()));
        return;
    }
    for (std::int32_t row = 0; row < Height(); ++row)
        std::memcpy(frame_.pixels + static_cast<std::ptrdiff_t>(row) * frame_.rowBytes,
                    packed + row * rowBytes, rowBytes);
}

} // namespace qvnhost

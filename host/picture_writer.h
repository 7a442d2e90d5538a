// Drawing into a host frame in its own format: the picture is addressed top-down in 8-bit BGRA terms, and
// each value is stored bottom-up at the frame's depth (16-bit components run 0..32768, float 0.0..1.0).
#pragma once

#include <cstdint>

#include "host/host_frame.h"

namespace qvnhost {

struct Bgra8 {
    std::uint8_t b, g, r, a;
};

// An 8-bit component at a host depth.
inline std::uint16_t To16u(std::uint8_t v) {
    return static_cast<std::uint16_t>((v * 32768u + 127u) / 255u);
}
inline float To32f(std::uint8_t v) {
    return static_cast<float>(v) / 255.0f;
}

class PictureWriter {
public:
    explicit PictureWriter(HostFrame& frame) : frame_(frame) {}

    std::int32_t Width() const { return frame_.layout.width; }
    std::int32_t Height() const { return frame_.layout.height; }

    // Stores count 8-bit BGRA pixels at (x, y) (top-down); the caller keeps them inside the picture.
    void StoreRow(std::int32_t x, std::int32_t y, const std::uint8_t* bgra, std::int32_t count);
    // A solid rectangle, clipped to the picture.
    void FillRect(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, Bgra8 colour);
    // Copies whole rows of pixels (row bytes without padding) from a picture of the same format and size,
    // laid out bottom-up like the frame.
    void CopyPacked(const unsigned char* packed);

private:
    HostFrame& frame_;
};

} // namespace qvnhost

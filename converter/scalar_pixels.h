// Component reads of the scalar kernels: one pixel's B, G, R by depth (alpha is never read).
#pragma once

#include <cstdint>
#include <cstring>

namespace QVN::Converter::Video::detail {

struct ScalarBgr {
    std::uint32_t b, g, r;
};
struct ScalarBgrF {
    float b, g, r;
};

inline ScalarBgr ReadBgr8u(const std::uint8_t* p) {
    return {p[0], p[1], p[2]};
}

inline ScalarBgr ReadBgr16u(const std::uint8_t* p) {
    std::uint16_t c[3];
    std::memcpy(c, p, sizeof c); // host frames need not be 2-byte aligned on the scalar path
    return {c[0], c[1], c[2]};
}

inline ScalarBgrF ReadBgr32f(const std::uint8_t* p) {
    float c[3];
    std::memcpy(c, p, sizeof c);
    return {c[0], c[1], c[2]};
}

// Limits a 32f component to 0.0..1.0; NaN counts as 0.0 so that no later conversion is undefined.
inline float ClampUnit(float x) {
    if (!(x > 0.0f)) {
        return 0.0f;
    }
    return x > 1.0f ? 1.0f : x;
}

} // namespace QVN::Converter::Video::detail

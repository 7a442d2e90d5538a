#include "reference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace qvn_test {

const float kSdMatrix[9] = {0.257f, 0.504f, 0.098f, -0.148f, -0.291f, 0.439f, 0.439f, -0.368f, -0.071f};
const float kHdMatrix[9] = {0.183f, 0.614f, 0.062f, -0.101f, -0.338f, 0.439f, 0.439f, -0.399f, -0.040f};

namespace {

// A source component c (0 = B, 1 = G, 2 = R) of pixel x in output row `row`; pixels past the width
// repeat the last pixel of the row.
struct Pixel {
    unsigned u[3]; // 8u / 16u values
    float f[3];    // 32f values
};

Pixel Read(const SourceView& s, int row, int x) {
    x = std::min(x, s.width - 1);
    const std::uint8_t* p = s.base + static_cast<std::ptrdiff_t>(s.height - 1 - row) * s.rowBytes;
    Pixel px{};
    for (int c = 0; c < 3; ++c) {
        if (s.depth == k8u) {
            px.u[c] = p[x * 4 + c];
        } else if (s.depth == k16u) {
            std::uint16_t v;
            std::memcpy(&v, p + x * 8 + c * 2, 2);
            px.u[c] = v;
        } else {
            std::memcpy(&px.f[c], p + x * 16 + c * 4, 4);
        }
    }
    return px;
}

float Unit(float v) {
    return std::isnan(v) ? 0.0f : std::clamp(v, 0.0f, 1.0f);
}

int Saturate16(long long v) {
    return static_cast<int>(std::clamp<long long>(v, -32768, 32767));
}

// The 4:2:2 sequence Cb Y Cr Y ... of a row, from per-pixel Y and per-even-pixel chroma.
std::vector<int> Sequence422(const std::vector<int>& y, const std::vector<int>& cb,
                             const std::vector<int>& cr) {
    std::vector<int> s;
    for (std::size_t n = 0; n < y.size(); n += 2)
        s.insert(s.end(), {cb[n / 2], y[n], cr[n / 2], y[n + 1]});
    return s;
}

// v210 words are consecutive triples of the 4:2:2 sequence.
std::vector<std::uint8_t> PackV210(const std::vector<int>& seq) {
    std::vector<std::uint8_t> out;
    for (std::size_t i = 0; i + 2 < seq.size(); i += 3) {
        const std::uint32_t w = static_cast<std::uint32_t>(seq[i]) +
                                static_cast<std::uint32_t>(seq[i + 1]) * 1024u +
                                static_cast<std::uint32_t>(seq[i + 2]) * 1048576u;
        for (int b = 0; b < 4; ++b)
            out.push_back(static_cast<std::uint8_t>(w >> (8 * b)));
    }
    return out;
}

unsigned FilterTaps(unsigned left, unsigned centre, unsigned right) {
    return (((left + right) >> 1) + centre) >> 1;
}

// Scalar kernels: the matrix per pixel, then the filter on Cb and Cr.

std::vector<int> ScalarRow(const SourceView& s, const float* m, int row, int pixels, bool v210,
                           std::vector<int>& cbOut, std::vector<int>& crOut) {
    std::vector<int> y(pixels), cb(pixels), cr(pixels);
    for (int x = 0; x < pixels; ++x) {
        const Pixel p = Read(s, row, x);
        double rgb[3]; // R, G, B on the path's scale
        for (int c = 0; c < 3; ++c) {
            double v;
            if (v210) {
                v = s.depth == k8u    ? p.u[c] * 4.0
                    : s.depth == k16u ? std::min(p.u[c] / 32u, 1023u)
                                      : static_cast<double>(Unit(p.f[c]) * 1023.0f);
            } else {
                v = s.depth == k8u    ? p.u[c]
                    : s.depth == k16u ? std::min(p.u[c] / 128u, 255u)
                                      : static_cast<double>(Unit(p.f[c]) * 255.0f);
            }
            rgb[2 - c] = v;
        }
        double out[3];
        for (int k = 0; k < 3; ++k) {
            const float* w = m + 3 * k;
            if (v210) {
                out[k] = static_cast<double>(w[0]) * rgb[0] + static_cast<double>(w[1]) * rgb[1] +
                         static_cast<double>(w[2]) * rgb[2];
            } else {
                const float r = static_cast<float>(rgb[0]), g = static_cast<float>(rgb[1]),
                            b = static_cast<float>(rgb[2]);
                const float sum = w[0] * r + w[1] * g + w[2] * b;
                out[k] = static_cast<double>(sum);
            }
        }
        y[x] = static_cast<int>(std::trunc(out[0] + (v210 ? 64.5 : 16.5)));
        cb[x] = static_cast<int>(std::trunc(out[1] + (v210 ? 512.5 : 128.5)));
        cr[x] = static_cast<int>(std::trunc(out[2] + (v210 ? 512.5 : 128.5)));
    }
    cbOut.clear();
    crOut.clear();
    for (int n = 0; n < pixels; n += 2) {
        const int left = n == 0 ? 0 : n - 1;
        cbOut.push_back(static_cast<int>(FilterTaps(cb[left], cb[n], cb[n + 1])));
        crOut.push_back(static_cast<int>(FilterTaps(cr[left], cr[n], cr[n + 1])));
    }
    return y;
}

// Vector kernels: components on the 16384 scale, chroma filtered before a Q15 matrix, truncating shifts.
std::vector<int> VectorRow(const SourceView& s, const float* m, int row, int pixels, int shift, int yOffset,
                           int cOffset, std::vector<int>& cbOut, std::vector<int>& crOut) {
    int q[9];
    for (int i = 0; i < 9; ++i)
        q[i] = static_cast<int>(std::trunc(m[i] * 32768.0f));
    std::vector<std::array<int, 3>> S(pixels); // B, G, R
    for (int x = 0; x < pixels; ++x) {
        const Pixel p = Read(s, row, x);
        for (int c = 0; c < 3; ++c) {
            S[x][c] = s.depth == k8u    ? static_cast<int>(p.u[c] * 64)
                      : s.depth == k16u ? static_cast<int>(p.u[c] >> 1)
                                        : Saturate16(std::lrint(Unit(p.f[c]) * 16384.0f));
        }
    }
    // Two partial sums, (B, G) and (R), each shifted by 15 and saturated, then added and shifted.
    const auto apply = [&](const std::array<int, 3>& bgr, const int* w, bool logical) {
        const long long bg = static_cast<long long>(bgr[0]) * w[2] + static_cast<long long>(bgr[1]) * w[1];
        const long long r = static_cast<long long>(bgr[2]) * w[0];
        const auto shift15 = [&](long long v) {
            return logical ? static_cast<long long>(static_cast<std::uint32_t>(v) >> 15) : (v >> 15);
        };
        return ((Saturate16(shift15(bg)) + Saturate16(shift15(r))) >> shift);
    };
    std::vector<int> y(pixels);
    for (int x = 0; x < pixels; ++x)
        y[x] = apply(S[x], q, true) + yOffset;
    cbOut.clear();
    crOut.clear();
    for (int n = 0; n < pixels; n += 2) {
        const int left = n == 0 ? 0 : n - 1;
        std::array<int, 3> f{};
        for (int c = 0; c < 3; ++c) {
            const unsigned a = static_cast<unsigned>(S[n][c] + S[left][c]) >> 1;
            const unsigned b = static_cast<unsigned>(S[n][c] + S[n + 1][c]) >> 1;
            f[c] = static_cast<int>((a + b) >> 1);
        }
        cbOut.push_back(apply(f, q + 3, false) + cOffset);
        crOut.push_back(apply(f, q + 6, false) + cOffset);
    }
    return y;
}

int RoundUp(int v, int step) {
    return (v + step - 1) / step * step;
}

} // namespace

std::size_t V210RowExtent(int width, bool vectorPath) {
    return vectorPath ? static_cast<std::size_t>(RoundUp(width, 24) / 24 * 64)
                      : static_cast<std::size_t>(RoundUp(width, 6) / 6 * 16);
}

std::size_t UyvyRowExtent(int width, bool vectorPath, bool lastRow) {
    if (!vectorPath)
        return static_cast<std::size_t>(RoundUp(width, 2) * 2);
    return lastRow ? static_cast<std::size_t>(width * 2) : static_cast<std::size_t>(RoundUp(width, 24) * 2);
}

std::size_t R210RowExtent(int width, int depth, bool vectorPath) {
    return static_cast<std::size_t>(vectorPath ? RoundUp(width, depth == k8u ? 8 : 4) * 4 : width * 4);
}

std::vector<std::vector<std::uint8_t>> ReferenceV210(const SourceView& src, const float* m, bool vectorPath) {
    std::vector<std::vector<std::uint8_t>> rows;
    const int pixels = vectorPath ? RoundUp(src.width, 24) : RoundUp(src.width, 6);
    for (int row = 0; row < src.height; ++row) {
        std::vector<int> cb, cr;
        std::vector<int> y = vectorPath ? VectorRow(src, m, row, pixels, 4, 64, 512, cb, cr)
                                        : ScalarRow(src, m, row, pixels, true, cb, cr);
        const auto limit = [](int v) { return std::clamp(v, 0, 1023); };
        if (vectorPath) {
            std::transform(y.begin(), y.end(), y.begin(), limit);
            std::transform(cb.begin(), cb.end(), cb.begin(), limit);
            std::transform(cr.begin(), cr.end(), cr.begin(), limit);
        }
        rows.push_back(PackV210(Sequence422(y, cb, cr)));
    }
    return rows;
}

std::vector<std::vector<std::uint8_t>> ReferenceUyvy(const SourceView& src, const float* m, bool vectorPath) {
    std::vector<std::vector<std::uint8_t>> rows;
    const int pixels = vectorPath ? RoundUp(src.width, 24) : RoundUp(src.width, 2);
    for (int row = 0; row < src.height; ++row) {
        std::vector<int> cb, cr;
        std::vector<int> y = vectorPath ? VectorRow(src, m, row, pixels, 6, 16, 128, cb, cr)
                                        : ScalarRow(src, m, row, pixels, false, cb, cr);
        std::vector<std::uint8_t> bytes;
        for (int v : Sequence422(y, cb, cr))
            bytes.push_back(static_cast<std::uint8_t>(vectorPath ? std::clamp(v, 0, 255) : v));
        bytes.resize(UyvyRowExtent(src.width, vectorPath, row == src.height - 1));
        rows.push_back(bytes);
    }
    return rows;
}

unsigned R210Code(unsigned index) {
    return std::min(64u + ((876u * index + 16384u) >> 15), 1019u);
}

std::vector<std::vector<std::uint8_t>> ReferenceR210(const SourceView& src, bool vectorPath) {
    std::vector<std::vector<std::uint8_t>> rows;
    const int pixels = static_cast<int>(R210RowExtent(src.width, src.depth, vectorPath) / 4);
    for (int row = 0; row < src.height; ++row) {
        std::vector<std::uint8_t> bytes;
        for (int x = 0; x < pixels; ++x) {
            const Pixel p = Read(src, row, x);
            unsigned code[3]; // B, G, R
            for (int c = 0; c < 3; ++c) {
                if (src.depth == k8u) {
                    code[c] =
                        vectorPath ? ((((p.u[c] << 7) + 19) * 1752) >> 16) + 64 : R210Code(p.u[c] * 128);
                } else if (src.depth == k16u) {
                    const unsigned v = std::min(p.u[c], 32768u);
                    code[c] = vectorPath ? ((v * 1752) >> 16) + 64 : R210Code(v);
                } else if (vectorPath) {
                    code[c] = static_cast<unsigned>(std::nearbyint(Unit(p.f[c]) * 876.0f)) + 64;
                } else {
                    const double scaled =
                        std::isnan(p.f[c]) ? 0.0 : std::trunc(static_cast<double>(p.f[c]) * 32768.0);
                    code[c] = R210Code(static_cast<unsigned>(std::clamp(scaled, 0.0, 32768.0)));
                }
            }
            const unsigned r = code[2], g = code[1], b = code[0];
            // Big-endian: 2 zero bits, R, G, B.
            bytes.insert(bytes.end(), {static_cast<std::uint8_t>(r >> 4),
                                       static_cast<std::uint8_t>(((r & 15) << 4) | (g >> 6)),
                                       static_cast<std::uint8_t>(((g & 63) << 2) | (b >> 8)),
                                       static_cast<std::uint8_t>(b & 255)});
        }
        rows.push_back(bytes);
    }
    return rows;
}

} // namespace qvn_test

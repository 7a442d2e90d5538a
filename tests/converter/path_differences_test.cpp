// How far the vector path may be from the scalar path: the vector kernels truncate where the scalar
// kernels round and filter R, G, B before the matrix instead of Cb, Cr after it.
#include "converter/converter.h"
#include "test_frames.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;

struct Differences {
    int lumaMin = 0, lumaMax = 0, chroma = 0;
};

// Component values of a destination row, luma and chroma apart, for the picture's pixels only.
void Components(const char* codec, const std::uint8_t* row, int width, std::vector<int>& luma,
                std::vector<int>& chroma) {
    luma.clear();
    chroma.clear();
    if (codec[0] == 'r') {
        for (int x = 0; x < width; ++x) {
            const std::uint32_t be = (std::uint32_t{row[4 * x]} << 24) |
                                     (std::uint32_t{row[4 * x + 1]} << 16) |
                                     (std::uint32_t{row[4 * x + 2]} << 8) | row[4 * x + 3];
            luma.insert(luma.end(), {static_cast<int>(be >> 20), static_cast<int>((be >> 10) & 1023),
                                     static_cast<int>(be & 1023)});
        }
        return;
    }
    std::vector<int> seq; // Cb Y Cr Y ...
    if (codec[0] == 'v') {
        for (int i = 0; i < (width + 5) / 6 * 4; ++i) {
            std::uint32_t w;
            std::memcpy(&w, row + 4 * i, 4);
            seq.insert(seq.end(), {static_cast<int>(w & 1023), static_cast<int>((w >> 10) & 1023),
                                   static_cast<int>(w >> 20)});
        }
    } else {
        seq.assign(row, row + (width + 1) / 2 * 4);
    }
    for (int x = 0; x < width; ++x) {
        luma.push_back(seq[static_cast<std::size_t>(2 * x + 1)]);
        if (x % 2 == 0) {
            chroma.insert(chroma.end(),
                          {seq[static_cast<std::size_t>(2 * x)], seq[static_cast<std::size_t>(2 * x + 2)]});
        }
    }
}

// Adds one random frame's differences, vector minus scalar, to `d`.
void Compare(const char* codec, int depth, std::mt19937& rng, Differences& d) {
    const int width = 1280, height = 8;
    const auto entry = codec[0] == 'v'   ? cv::v210::CreateFrom
                       : codec[0] == 'u' ? cv::uyvy::CreateFrom
                                         : cv::r210::CreateFrom;
    const std::uint32_t srcRowBytes = width * (4u << depth);
    const Frame src = RandomFrame(depth, width, height, srcRowBytes, 0, rng, true);
    const std::uint32_t dstRowBytes = width * 4;
    Buffer scalar(static_cast<std::size_t>(dstRowBytes) * height, 0),
        vector(static_cast<std::size_t>(dstRowBytes) * height, 0);
    EXPECT_EQ(entry(src.buffer.data(), srcRowBytes, kFormats[depth], scalar.data(), dstRowBytes, width,
                    height, 0, cv::kPathScalar),
              0);
    EXPECT_EQ(entry(src.buffer.data(), srcRowBytes, kFormats[depth], vector.data(), dstRowBytes, width,
                    height, 0, cv::kPathVector),
              0);
    std::vector<int> ls, cs, lv, cvv;
    for (int row = 0; row < height; ++row) {
        Components(codec, scalar.data() + row * dstRowBytes, width, ls, cs);
        Components(codec, vector.data() + row * dstRowBytes, width, lv, cvv);
        for (std::size_t i = 0; i < ls.size(); ++i) {
            d.lumaMin = std::min(d.lumaMin, lv[i] - ls[i]);
            d.lumaMax = std::max(d.lumaMax, lv[i] - ls[i]);
        }
        for (std::size_t i = 0; i < cs.size(); ++i)
            d.chroma = std::max(d.chroma, std::abs(cvv[i] - cs[i]));
    }
}

// Vector minus scalar. 8u luma: both paths see the same 10-bit (v210) or 8-bit (UYVY) scale, the vector
// path truncates three times where the scalar path rounds once and its Q15 weights are truncated, so it
// lies in (exact - 0.22, exact] against round(exact): 0 or -1. 16u and 32f: the scalar path scales to
// 1023 (v210) or truncates 16u to 10 bits first, the vector path keeps 14 bits on a 1024 scale: one code
// either way. Chroma: both paths filter with truncating shifts at different points: within two codes.
// r210: 8u is exact, 16u truncates where the table rounds (0 or -1), 32f rounds differently (within 1).
const Differences& Bounds(const char* codec, int depth) {
    static const Differences yuv[3] = {{-1, 0, 2}, {-1, 1, 2}, {-1, 1, 2}};
    static const Differences rgb[3] = {{0, 0, 0}, {-1, 0, 0}, {-1, 1, 0}};
    return codec[0] == 'r' ? rgb[depth] : yuv[depth];
}

TEST(PathDifferences, VectorStaysWithinTheDocumentedBoundOfScalar) {
    std::mt19937 rng(11);
    for (const char* codec : {"v210", "uyvy", "r210"}) {
        for (int depth = 0; depth < 3; ++depth) {
            Differences worst;
            for (int round = 0; round < 4; ++round)
                Compare(codec, depth, rng, worst);
            SCOPED_TRACE(std::string(codec) + " depth " + std::to_string(depth));
            const Differences& b = Bounds(codec, depth);
            EXPECT_GE(worst.lumaMin, b.lumaMin);
            EXPECT_LE(worst.lumaMax, b.lumaMax);
            EXPECT_LE(worst.chroma, b.chroma);
            std::printf("%s depth %d: luma %d..%d, chroma +-%d\n", codec, depth, worst.lumaMin, worst.lumaMax,
                        worst.chroma);
        }
    }
}

} // namespace
} // namespace qvn_test

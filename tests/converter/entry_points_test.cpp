// The three entry points: known values, path choice with its messages, matrix choice, formats and sizes.
#include "converter/converter.h"
#include "reference.h"
#include "test_frames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;

using EntryPoint = std::int32_t (*)(const void*, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                                    std::int32_t, std::int32_t, std::uint32_t, std::uint32_t);
constexpr EntryPoint kV210 = cv::v210::CreateFrom;
constexpr EntryPoint kUyvy = cv::uyvy::CreateFrom;
constexpr EntryPoint kR210 = cv::r210::CreateFrom;

std::string Stderr(const std::function<void()>& f) {
    ::testing::internal::CaptureStderr();
    f();
    return ::testing::internal::GetCapturedStderr();
}

// Converts one row of `width` copies of one pixel (B, G, R in the depth's units) and returns the destination.
std::vector<std::uint8_t> OneColour(EntryPoint entry, int depth, std::array<double, 3> bgr, int width,
                                    std::uint32_t path, std::uint32_t matrix = 0) {
    const std::size_t component = std::size_t{1} << depth, rowBytes = RoundUp16(width * 4 * component);
    Buffer src(rowBytes + 64, 0), dst(static_cast<std::size_t>(width + 24) * 4 + 64, 0);
    for (int x = 0; x < width; ++x) {
        for (std::size_t c = 0; c < 4; ++c) {
            const double v = c < 3 ? bgr[c] : 0.0;
            const auto u8 =
                depth == k8u ? static_cast<std::uint8_t>(v) : std::uint8_t{}; // in range only there
            const auto u16 = depth == k16u ? static_cast<std::uint16_t>(v) : std::uint16_t{};
            const auto f = static_cast<float>(v);
            const void* bytes = depth == k8u    ? static_cast<const void*>(&u8)
                                : depth == k16u ? static_cast<const void*>(&u16)
                                                : &f;
            std::memcpy(src.data() + (x * 4 + c) * component, bytes, component);
        }
    }
    std::memset(dst.data(), 0, dst.size());
    EXPECT_EQ(entry(src.data(), static_cast<std::uint32_t>(rowBytes), kFormats[depth], dst.data(),
                    static_cast<std::uint32_t>(dst.size()), width, 1, matrix, path),
              0);
    return {dst.data(), dst.data() + dst.size()};
}

using Triple = std::array<unsigned, 3>;

// The first pixel's Y, Cb, Cr (v210), Cb, Y, Cr (UYVY) or R, G, B (r210, whose top two bits are zero).
Triple FirstPixel(EntryPoint entry, const std::vector<std::uint8_t>& d) {
    std::uint32_t w;
    std::memcpy(&w, d.data(), 4);
    if (entry == kV210)
        return {(w >> 10) & 1023, w & 1023, (w >> 20) & 1023};
    if (entry == kUyvy)
        return {d[0], d[1], d[2]};
    const std::uint32_t be =
        (std::uint32_t{d[0]} << 24) | (std::uint32_t{d[1]} << 16) | (std::uint32_t{d[2]} << 8) | d[3];
    return {be >> 30 == 0 ? (be >> 20) & 1023 : 9999, (be >> 10) & 1023, be & 1023};
}

// Black, white and single components at each depth, against the studio-range codes.
TEST(KnownValues, BlackWhiteAndComponentsOnEachPath) {
    constexpr int kScalar = 1, kVector = 2, kBoth = 3;
    const struct {
        EntryPoint entry;
        int depth;
        std::array<double, 3> bgr;
        int paths;
        Triple expected;
    } rows[] = {
        {kV210, k8u, {255, 255, 255}, kScalar, {940, 512, 512}},
        {kV210, k8u, {0, 0, 0}, kScalar, {64, 512, 512}},
        {kV210, k16u, {32768, 32768, 32768}, kScalar, {943, 512, 512}},
        {kV210, k32f, {1, 1, 1}, kScalar, {943, 512, 512}},
        {kUyvy, k8u, {0, 0, 0}, kScalar, {0x80, 0x10, 0x80}},
        {kUyvy, k8u, {255, 255, 255}, kScalar, {0x80, 0xEB, 0x80}},
        {kUyvy, k16u, {32768, 32768, 32768}, kScalar, {0x80, 0xEB, 0x80}},
        {kR210, k8u, {0, 0, 0}, kBoth, {64, 64, 64}},
        {kR210, k8u, {255, 255, 255}, kBoth, {937, 937, 937}},
        {kR210, k16u, {32768, 16384, 0}, kBoth, {64, 502, 940}},
        {kR210, k32f, {1.0, 0.5, -1.0}, kBoth, {64, 502, 940}},
        {kR210, k32f, {2, 2, 2}, kBoth, {940, 940, 940}},
        {kR210, k8u, {0, 128, 255}, kBoth, {937, 502, 64}}, // R, G, B land in their own bits
        // 16u 19: the table rounds 0.51 up, the vector arithmetic truncates it.
        {kR210, k16u, {19, 19, 19}, kScalar, {65, 65, 65}},
        {kR210, k16u, {19, 19, 19}, kVector, {64, 64, 64}},
    };
    for (const auto& r : rows) {
        for (const std::uint32_t path : {cv::kPathScalar, cv::kPathVector}) {
            if (r.paths & (path == cv::kPathScalar ? kScalar : kVector)) {
                const int width = r.entry == kR210 ? 8 : 6;
                EXPECT_EQ(FirstPixel(r.entry, OneColour(r.entry, r.depth, r.bgr, width, path)), r.expected)
                    << (r.entry == kV210   ? "v210"
                        : r.entry == kUyvy ? "uyvy"
                                           : "r210")
                    << " depth " << r.depth << " (" << r.bgr[0] << ", " << r.bgr[1] << ", " << r.bgr[2]
                    << ") path " << path;
            }
        }
    }
    const auto black = OneColour(kR210, k8u, {0, 0, 0}, 8, cv::kPathScalar);
    EXPECT_EQ(std::vector<std::uint8_t>(black.begin(), black.begin() + 4),
              (std::vector<std::uint8_t>{0x04, 0x01, 0x00, 0x40})); // big-endian
    for (std::uint32_t path : {cv::kPathScalar, cv::kPathVector}) {
        EXPECT_EQ(OneColour(kV210, k32f, {1.5, 0.25, -0.2}, 30, path),
                  OneColour(kV210, k32f, {1.0, 0.25, 0.0}, 30, path));
        // Width 6, one colour: the first pixel is its own left neighbour, so the filter keeps the colour.
        const auto row = OneColour(kV210, k8u, {30, 200, 90}, 6, path);
        std::uint32_t w[4];
        std::memcpy(w, row.data(), 16);
        const unsigned cb = w[0] & 1023, cr = w[0] >> 20;
        EXPECT_EQ((Triple{(w[1] >> 10) & 1023, (w[2] >> 20) & 1023, w[2] & 1023}), (Triple{cb, cb, cr}));
        EXPECT_EQ((w[3] >> 10) & 1023, cr);
        if (path == cv::kPathScalar) {
            // R, G, B = 360, 800, 120 on the 10-bit scale through the standard-definition matrix.
            EXPECT_EQ(cb, static_cast<unsigned>(-0.148f * 360.0 + -0.291f * 800.0 + 0.439f * 120.0 + 512.5));
            EXPECT_EQ(cr, static_cast<unsigned>(0.439f * 360.0 + -0.368f * 800.0 + -0.071f * 120.0 + 512.5));
        }
    }
}

TEST(MatrixChoice, WidthPicksTheMatrixUnlessForced) {
    for (EntryPoint entry : {kV210, kUyvy}) {
        for (std::uint32_t path : {cv::kPathScalar, cv::kPathVector}) {
            const auto convert = [&](int width, std::uint32_t matrix) {
                return OneColour(entry, k8u, {40, 60, 200}, width, path, matrix);
            };
            ASSERT_NE(convert(720, 1), convert(720, 2));
            EXPECT_EQ(convert(720, 0), convert(720, 1));
            EXPECT_NE(convert(721, 1), convert(721, 2));
            EXPECT_EQ(convert(721, 0), convert(721, 2));
        }
    }
}

struct Outcome {
    std::int32_t result;
    std::string messages;
    std::vector<std::uint8_t> output;
    std::string fallback; // the line a fallback to the scalar path prints for this call
};

// Converts a random 41x3 frame (41 leaves a partial group and block, so the paths' extents differ too), with
// the source and destination shifted by the given byte counts.
Outcome Convert(EntryPoint entry, int depth, std::uint32_t format, std::size_t srcShift, std::size_t dstShift,
                std::uint32_t dstExtra, std::uint32_t path, int width = 41, int height = 3) {
    std::mt19937 rng(7);
    const std::uint32_t srcRowBytes = 48 * 16, dstRowBytes = 256 + dstExtra;
    const Frame src = RandomFrame(depth, 48, 3, srcRowBytes, srcShift, rng);
    Buffer dst(static_cast<std::size_t>(dstRowBytes) * 3, dstShift);
    Outcome run;
    run.messages = Stderr([&] {
        run.result =
            entry(src.buffer.data(), srcRowBytes, format, dst.data(), dstRowBytes, width, height, 0, path);
    });
    run.output.assign(dst.data(), dst.data() + dst.size());
    const char* names[] = {"PrPixelFormat_BGRA_4444_8u", "PrPixelFormat_BGRA_4444_16u",
                           "PrPixelFormat_BGRA_4444_32f", "<unknown>"};
    const char* converter = entry == kV210 ? "v210" : entry == kUyvy ? "uyvy" : "r210";
    char line[512];
    std::snprintf(
        line, sizeof line,
        "QVN::Converter::Video::%s::CreateFrom: Reverting to scalar code for conversion from %s to '%s': "
        "srcPtr %p srcRowBytes 0x%x dstPtr %p dstRowBytes 0x%x\n",
        converter, names[std::find(kFormats, kFormats + 3, format) - kFormats], converter,
        static_cast<const void*>(src.buffer.data()), srcRowBytes, static_cast<void*>(dst.data()),
        dstRowBytes);
    run.fallback = line;
    return run;
}

TEST(PathChoice, AlignmentDecidesThePathAndTheMessage) {
    for (EntryPoint entry : {kV210, kUyvy, kR210}) {
        for (int depth = 0; depth < 3; ++depth) {
            SCOPED_TRACE(std::string(entry == kV210   ? "v210"
                                     : entry == kUyvy ? "uyvy"
                                                      : "r210") +
                         " depth " + std::to_string(depth));
            const std::uint32_t format = kFormats[depth];
            const auto run = [&](std::size_t srcShift, std::size_t dstShift, std::uint32_t dstExtra,
                                 std::uint32_t path) {
                return Convert(entry, depth, format, srcShift, dstShift, dstExtra, path);
            };
            const Outcome scalar = run(0, 0, 0, cv::kPathScalar), vector = run(0, 0, 0, cv::kPathVector);
            ASSERT_NE(scalar.output, vector.output) << "the two paths are told apart by their results";
            EXPECT_EQ(scalar.messages + vector.messages, "");
            const Outcome aligned = run(0, 0, 0, cv::kPathAuto);
            EXPECT_EQ(aligned.messages, "");
            EXPECT_EQ(aligned.output, vector.output);
            // Aligned destination address, row bytes not a multiple of 16: scalar, with the exact line.
            const Outcome oddRows = run(0, 0, 8, cv::kPathAuto);
            EXPECT_EQ(oddRows.result, 0);
            EXPECT_EQ(oddRows.messages, oddRows.fallback);
            EXPECT_NE(oddRows.messages.find("dstRowBytes 0x108\n"), std::string::npos) << oddRows.messages;
            EXPECT_EQ(oddRows.output, run(0, 0, 8, cv::kPathScalar).output);
            // Destination address off by 4, row bytes a multiple of 16: the same.
            const Outcome oddDst = run(0, 4, 0, cv::kPathAuto);
            EXPECT_EQ(oddDst.messages, oddDst.fallback);
            EXPECT_EQ(oddDst.output, run(0, 4, 0, cv::kPathScalar).output);
            // Every mode above 1 forces the vector path, without the alignment tests and their message.
            for (const std::uint32_t mode : {3u, 0x80000000u, 0xFFFFFFFFu}) {
                const Outcome forced = run(0, 0, 8, mode);
                EXPECT_EQ(forced.messages, "") << mode;
                EXPECT_EQ(forced.output, run(0, 0, 8, cv::kPathVector).output) << mode;
                EXPECT_EQ(run(0, 0, 0, mode).output, vector.output) << mode;
            }
            // Source at an odd address, destination aligned: a vector kernel without a message for 8u (and
            // 16u into r210); otherwise the scalar path with a message.
            const Outcome oddSource = run(1, 0, 0, cv::kPathAuto);
            const bool vectorExpected = depth == 0 || (entry == kR210 && depth == 1);
            EXPECT_EQ(oddSource.messages, vectorExpected ? "" : oddSource.fallback);
            EXPECT_EQ(oddSource.output,
                      run(1, 0, 0, vectorExpected ? cv::kPathVector : cv::kPathScalar).output);
        }
    }
}

TEST(PathChoice, UnsupportedFormatsAndEmptyFramesLeaveTheDestination) {
    const std::vector<std::uint8_t> untouched(256 * 3, kCanary);
    const std::uint32_t capitals = 0x41524742; // "BGRA"
    for (EntryPoint entry : {kV210, kUyvy}) {
        const Outcome aligned = Convert(entry, k8u, capitals, 0, 0, 0, cv::kPathAuto);
        EXPECT_EQ(aligned.result, 22);
        EXPECT_EQ(aligned.messages, "Unsupported pixel format\n");
        EXPECT_EQ(aligned.output, untouched);
        const Outcome unaligned = Convert(entry, k8u, capitals, 4, 0, 0, cv::kPathAuto);
        EXPECT_EQ(unaligned.result, 22);
        EXPECT_EQ(unaligned.messages, unaligned.fallback + "Unsupported pixel format\n");
        EXPECT_EQ(unaligned.output, untouched);
    }
    const Outcome r210 = Convert(kR210, k8u, capitals, 0, 0, 0, cv::kPathAuto);
    EXPECT_EQ(r210.result, 22);
    EXPECT_EQ(r210.messages, "*** QVN::Converter::Video::r210::Init[341]: Unsupported pixel format\n"
                             "*** QVN::Converter::Video::r210::CreateFrom[207]: Init failed\n");
    EXPECT_EQ(r210.output, untouched);
    // The v210 codes pass r210's table set-up and convert nothing.
    for (const std::uint32_t code : {0x30313276u, 0x31313276u}) {
        const Outcome v210 = Convert(kR210, k8u, code, 0, 0, 0, cv::kPathAuto);
        EXPECT_EQ(v210.result, 0) << std::hex << code;
        EXPECT_EQ(v210.messages, "");
        EXPECT_EQ(v210.output, untouched);
    }
    for (EntryPoint entry : {kV210, kUyvy, kR210}) {
        for (std::uint32_t path : {cv::kPathAuto, cv::kPathScalar, cv::kPathVector}) {
            for (const auto& [w, h] :
                 {std::pair{0, 3}, std::pair{-5, 3}, std::pair{40, 0}, std::pair{40, -1}}) {
                const Outcome empty = Convert(entry, k32f, cv::kPixelFormatBgra32f, 0, 0, 0, path, w, h);
                EXPECT_EQ(empty.result, 0);
                EXPECT_EQ(empty.messages, "");
                EXPECT_EQ(empty.output, untouched);
            }
        }
    }
}

} // namespace
} // namespace qvn_test

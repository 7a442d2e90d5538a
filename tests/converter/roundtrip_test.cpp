// Round trip through an independent decoder: colour bars and ramps converted to v210, UYVY and r210,
// decoded back to RGB by ffmpeg, and compared with the picture (PSNR).
#include "converter/converter.h"
#include "test_frames.h"

#include <gtest/gtest.h>

#include <chrono>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#ifndef QVN_FFMPEG_PATH
#define QVN_FFMPEG_PATH ""
#endif

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace fs = std::filesystem;

struct Picture {
    int width, height;
    std::vector<std::uint8_t> rgb; // top-down, R, G, B
};

// 100% bars over the top two thirds; below, a grey ramp, a red-to-blue ramp and a green ramp.
Picture BarsAndRamps(int width, int height) {
    static const std::uint8_t bars[8][3] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                                            {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
    Picture p{width, height, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 3)};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* px = &p.rgb[(static_cast<std::size_t>(y) * width + x) * 3];
            const auto ramp = static_cast<std::uint8_t>(x * 255 / (width - 1));
            const int band = y * 9 / height;
            if (band < 6)
                std::memcpy(px, bars[x * 8 / width], 3);
            else if (band == 6)
                px[0] = px[1] = px[2] = ramp;
            else if (band == 7)
                px[0] = static_cast<std::uint8_t>(255 - ramp), px[1] = 0, px[2] = ramp;
            else
                px[0] = 0, px[1] = ramp, px[2] = 0;
        }
    }
    return p;
}

// The host's bottom-up frame of the picture at a depth.
Frame HostFrame(const Picture& p, int depth) {
    const std::uint32_t rowBytes = static_cast<std::uint32_t>(p.width) * (4u << depth);
    Frame f{depth, p.width, p.height, rowBytes, Buffer(static_cast<std::size_t>(rowBytes) * p.height, 0)};
    for (int y = 0; y < p.height; ++y) {
        std::uint8_t* row = f.buffer.data() + static_cast<std::size_t>(p.height - 1 - y) * rowBytes;
        for (int x = 0; x < p.width; ++x) {
            const std::uint8_t* px = &p.rgb[(static_cast<std::size_t>(y) * p.width + x) * 3];
            for (int c = 0; c < 4; ++c) {
                const int v = c == 3 ? 255 : px[2 - c]; // B, G, R, A
                if (depth == k8u) {
                    row[x * 4 + c] = static_cast<std::uint8_t>(v);
                } else if (depth == k16u) {
                    const auto w = static_cast<std::uint16_t>((v * 32768 + 127) / 255);
                    std::memcpy(row + x * 8 + c * 2, &w, 2);
                } else {
                    const float w = static_cast<float>(v) / 255.0f;
                    std::memcpy(row + x * 16 + c * 4, &w, 4);
                }
            }
        }
    }
    return f;
}

// Within four pixels of a vertical bar edge, where 4:2:2 chroma cannot follow the picture.
bool NearBarEdge(const Picture& p, int x, int y) {
    if (y * 9 / p.height >= 6)
        return false;
    for (int k = 1; k < 8; ++k)
        if (std::abs(x - k * p.width / 8) <= 4)
            return true;
    return false;
}

struct Psnr {
    double frame;     // every pixel
    double awayEdges; // pixels away from the bar edges: quantisation, matrix and range only
};

Psnr Measure(const Picture& p, const std::vector<double>& decoded) {
    double all = 0, away = 0;
    std::size_t awayCount = 0;
    for (std::size_t i = 0; i < p.rgb.size(); ++i) {
        const double e = decoded[i] - p.rgb[i] / 255.0;
        all += e * e;
        const int pixel = static_cast<int>(i / 3);
        if (!NearBarEdge(p, pixel % p.width, pixel / p.width)) {
            away += e * e;
            ++awayCount;
        }
    }
    const auto db = [](double mse) { return 10.0 * std::log10(1.0 / mse); };
    return {db(all / static_cast<double>(p.rgb.size())), db(away / static_cast<double>(awayCount))};
}

class RoundTrip : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fs::exists(QVN_FFMPEG_PATH))
            << "ffmpeg is required for the round trip (" << QVN_FFMPEG_PATH << ")";
        // Unique per process: CTest runs the cases of this program side by side.
        dir_ =
            fs::temp_directory_path() /
            ("qvn_roundtrip_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) +
             "_" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }
    // Converts, lets ffmpeg decode to RGB, and returns the PSNR against the picture.
    Psnr RoundTripPsnr(const char* codec, const Picture& p, int depth, const char* decodeMatrix) {
        const int w = p.width, h = p.height;
        const std::uint32_t dstRowBytes = codec[0] == 'v'   ? static_cast<std::uint32_t>((w + 47) / 48 * 128)
                                          : codec[0] == 'r' ? static_cast<std::uint32_t>((w + 63) / 64 * 256)
                                                            : static_cast<std::uint32_t>(w * 2);
        const Frame src = HostFrame(p, depth);
        Buffer dst(static_cast<std::size_t>(dstRowBytes) * h, 0);
        const auto entry = codec[0] == 'v'   ? cv::v210::CreateFrom
                           : codec[0] == 'r' ? cv::r210::CreateFrom
                                             : cv::uyvy::CreateFrom;
        EXPECT_EQ(entry(src.buffer.data(), src.rowBytes, kFormats[depth], dst.data(), dstRowBytes, w, h, 0,
                        cv::kPathAuto),
                  0);
        const fs::path in = dir_ / "frame.in", out = dir_ / "frame.out";
        std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(dst.data()), dstRowBytes * h);
        const std::string size = std::to_string(w) + "x" + std::to_string(h);
        std::string input = codec[0] == 'v' ? "-f v210 -video_size " + size
                            : codec[0] == 'r'
                                ? "-f rawvideo -pixel_format rgba -video_size " + size + " -c:v r210"
                                : "-f rawvideo -pixel_format uyvy422 -video_size " + size;
        const std::string output =
            codec[0] == 'r'
                ? "-pix_fmt gbrp10le"
                : std::string("-vf scale=in_color_matrix=") + decodeMatrix +
                      ":in_range=limited:flags=bicubic+accurate_rnd+full_chroma_int,format=rgb48le";
        const std::string command = std::string(QVN_FFMPEG_PATH) + " -v error -y " + input + " -i " +
                                    in.string() + " " + output + " -f rawvideo " + out.string();
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        const std::vector<std::uint8_t> bytes = ReadAll(out);
        const std::size_t samples = static_cast<std::size_t>(w) * h * 3;
        EXPECT_EQ(bytes.size(), samples * 2) << command;
        if (bytes.size() != samples * 2)
            return {0.0, 0.0};
        std::vector<double> decoded(samples);
        for (std::size_t i = 0; i < samples; ++i) {
            std::uint16_t v;
            if (codec[0] == 'r') {
                // Planes G, B, R of 10-bit studio-range codes.
                const std::size_t plane = i % 3 == 0 ? 2 : i % 3 == 1 ? 0 : 1, pixel = i / 3;
                std::memcpy(&v, bytes.data() + 2 * (plane * w * h + pixel), 2);
                decoded[i] = (v - 64.0) / 876.0;
            } else {
                std::memcpy(&v, bytes.data() + 2 * i, 2);
                decoded[i] = v / 65535.0;
            }
        }
        return Measure(p, decoded);
    }
    fs::path dir_;
};

// Floors, in dB. Away from the bar edges the error is quantisation and scale only: 10-bit v210 from
// 16u and 32f reaches about 59 dB; from 8u the vector path scales white to 16320 of 16384 and truncates,
// which caps it near 49 dB (floor 45); 8-bit UYVY stays above 42 dB; r210 from 8u is limited by its
// deliberate white of 937 (not 940) to about 53 dB (floor 50). A wrong matrix or range, or swapped
// components, costs far more (the BT.601 decode of the HD frame is checked to fall below). Over the whole
// frame the 4:2:2 chroma at the sharp 100% bar edges limits both YCbCr layouts to about 31-33 dB; 30 dB still
// fails a wrong matrix.
struct Floor {
    double frame, awayEdges;
};
constexpr Floor kV210Floor{30.0, 45.0}, kUyvyFloor{30.0, 42.0}, kR210Floor{50.0, 50.0};

TEST_F(RoundTrip, FfmpegDecodesEveryConverterAndDepthBackToThePicture) {
    const char* depths[] = {"8u", "16u", "32f"};
    const Picture hd = BarsAndRamps(1280, 720), sd = BarsAndRamps(720, 486);
    for (int depth = 0; depth < 3; ++depth) {
        for (const char* codec : {"v210", "uyvy"}) {
            const Floor floor = codec[0] == 'v' ? kV210Floor : kUyvyFloor;
            const Psnr psnrHd = RoundTripPsnr(codec, hd, depth, "bt709");
            const Psnr psnrSd = RoundTripPsnr(codec, sd, depth, "bt601");
            std::printf(
                "%s %s: 1280x720 BT.709 %.2f dB (%.2f away from bar edges), 720x486 BT.601 %.2f dB (%.2f)\n",
                codec, depths[depth], psnrHd.frame, psnrHd.awayEdges, psnrSd.frame, psnrSd.awayEdges);
            for (const Psnr& psnr : {psnrHd, psnrSd}) {
                EXPECT_GE(psnr.frame, floor.frame) << codec << " " << depths[depth];
                EXPECT_GE(psnr.awayEdges, floor.awayEdges) << codec << " " << depths[depth];
            }
        }
        const Psnr psnr = RoundTripPsnr("r210", hd, depth, "");
        std::printf("r210 %s: %.2f dB\n", depths[depth], psnr.frame);
        EXPECT_GE(psnr.frame, kR210Floor.frame) << depths[depth];
    }
    for (const char* codec : {"v210", "uyvy"}) {
        const Psnr wrong = RoundTripPsnr(codec, hd, 0, "bt601");
        std::printf("%s 8u 1280x720 decoded as BT.601: %.2f dB (%.2f)\n", codec, wrong.frame,
                    wrong.awayEdges);
        EXPECT_LT(wrong.frame, (codec[0] == 'v' ? kV210Floor : kUyvyFloor).frame);
        EXPECT_LT(wrong.awayEdges, (codec[0] == 'v' ? kV210Floor : kUyvyFloor).awayEdges);
    }
}

} // namespace
} // namespace qvn_test

// The arithmetic of an export's set-up: AVI rate and scale from host ticks, the video format of each codec
// spelling, and the encoder each codec gets.
#include <gtest/gtest.h>

#include <cstring>

#include "encoders/simple_avi_encoder.h"
#include "exporter/codec_catalogue.h"
#include "exporter/encoder_choice.h"
#include "exporter/unavailable_encoder.h"
#include "exporter/video_format.h"
#ifdef _WIN32
#include <cstdlib>

#include "dshow/dshow_encoder.h"
#endif

namespace {

using QVN::FourCC;

constexpr std::int64_t kT = 254016000000LL; // the host's ticks per second

std::uint32_t Code(const char* text) {
    std::uint32_t code = 0;
    for (int i = 0; i < 4; ++i)
        code |= static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])) << (8 * i);
    return code;
}

TEST(AviRate, WholeRatesAndTheThreeNtscRatesInEverySpelling) {
    auto rate = [](std::int64_t t, std::int64_t f) {
        const auto r = QVN::AviRateFromTicks(t, f);
        return r ? std::make_pair(r->rate, r->scale) : std::make_pair(0u, 0u);
    };
    using P = std::pair<std::uint32_t, std::uint32_t>;
    EXPECT_EQ(rate(kT, kT / 25), P(25, 1));
    EXPECT_EQ(rate(kT, kT / 60), P(60, 1));
    EXPECT_EQ(rate(kT, kT / 24000 * 1001), P(24000, 1001));
    EXPECT_EQ(rate(kT, kT / 30000 * 1001), P(30000, 1001));
    EXPECT_EQ(rate(kT, kT / 60000 * 1001), P(60000, 1001));
    // With 240240 ticks per second the dialog's "29.97" entry is 8008 ticks, which divides evenly: 30 fps.
    EXPECT_EQ(rate(240240, 8008), P(30, 1));
    // 23.976 written as exactly 23976 frames in 1000 seconds, 23.98 likewise, 29.97 and 59.94.
    EXPECT_EQ(rate(23976, 1000), P(24000, 1001));
    EXPECT_EQ(rate(23980, 1000), P(24000, 1001));
    EXPECT_EQ(rate(29970, 1000), P(30000, 1001));
    EXPECT_EQ(rate(59940, 1000), P(60000, 1001));
    // Not an AVI rate: 49.95 fps, 29.98 fps, and nonsense durations.
    EXPECT_EQ(rate(4995, 100), P(0, 0));
    EXPECT_EQ(rate(29980, 1000), P(0, 0));
    EXPECT_EQ(rate(kT, 0), P(0, 0));
    EXPECT_EQ(rate(kT, -kT / 25), P(0, 0));
    // An exact divisor gives the whole rate even when it is unusual.
    EXPECT_EQ(rate(kT, kT / 7), P(7, 1));
}

TEST(VideoFormat, BitCountCompressionAndPaddedRowSizesByCodec) {
    struct Case {
        const char* code;
        std::int32_t w, h;
        std::uint16_t bits;
        std::uint32_t compression, size;
    };
    const Case cases[] = {
        {"v210", 1920, 1080, 20, FourCC("v210"), 40 * 128 * 1080}, // 1920 = 40 groups of 48
        {"v210", 1280, 720, 20, FourCC("v210"), 27 * 128 * 720},   // 1280 pads to 27 groups
        {"012v", 720, 486, 20, FourCC("v210"), 15 * 128 * 486},
        {"V210", 49, 2, 20, FourCC("v210"), 2 * 128 * 2},
        {"r210", 1920, 1080, 30, FourCC("r210"), 30 * 256 * 1080},
        {"r210", 65, 1, 30, FourCC("r210"), 2 * 256},
        {"UYVY", 720, 486, 16, FourCC("UYVY"), 720 * 486 * 2},
        {"2vuy", 720, 576, 16, FourCC("UYVY"), 720 * 576 * 2},
        {"YVYU", 8, 8, 16, FourCC("UYVY"), 128},
        {"HDYC", 1920, 1080, 16, FourCC("HDYC"), 1920 * 1080 * 2},
        {"CYDH", 1920, 1080, 16, FourCC("HDYC"), 1920 * 1080 * 2},
        {"BGRA", 100, 10, 32, 0, 4000},
        {" WAR", 100, 10, 32, 0, 4000},
        {"ARGB", 100, 10, 32, FourCC("ARGB"), 4000},
        {" RGB", 100, 10, 32, FourCC("ARGB"), 4000},
        {"MJPG", 1920, 1080, 0, FourCC("MJPG"), 0},
        {"dvn5", 720, 480, 0, FourCC("dvn5"), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << " " << c.w << "x" << c.h);
        const BITMAPINFOHEADER f = QVN::BuildVideoFormat(Code(c.code), c.w, c.h);
        EXPECT_EQ(f.biSize, 40u);
        EXPECT_EQ(f.biWidth, c.w);
        EXPECT_EQ(f.biHeight, c.h);
        EXPECT_EQ(f.biPlanes, 1);
        EXPECT_EQ(f.biBitCount, c.bits);
        EXPECT_EQ(f.biCompression, c.compression);
        EXPECT_EQ(f.biSizeImage, c.size);
        EXPECT_EQ(f.biXPelsPerMeter | f.biYPelsPerMeter | static_cast<LONG>(f.biClrUsed | f.biClrImportant),
                  0);
    }
    EXPECT_EQ(QVN::BuildVideoFormat(0, 2, 2).biBitCount, 32) << "code 0 is uncompressed RGB";
    EXPECT_EQ(QVN::BuildVideoFormat(FourCC("v210"), 48, -10).biSizeImage, 1280u)
        << "a bottom-up height counts whole";
}

// Where the graph writes a code, and which encoder the others get.
TEST(EncoderChoice, DvcproIsStoredAsHostCompressedFramesAndTheGraphCodesGoWhereTheBuildWritesThem) {
    struct Case {
        const char* code;
        std::uint32_t written;
        std::uint32_t size;
    };
    for (const Case& c : {Case{"dvn1", FourCC("dvh1"), 480000}, Case{"dvp1", FourCC("dvh1"), 576000},
                          Case{"dvn5", FourCC("dv50"), 240000}, Case{"dvp5", FourCC("dv50"), 288000},
                          Case{"dvn7", FourCC("dvh1"), 240000}, Case{"dvp7", FourCC("dvh1"), 288000}}) {
        auto choice = QVN::ChooseEncoder(Code(c.code), 720, 480, 1024);
        EXPECT_EQ(choice.output.biCompression, c.written) << c.code;
        EXPECT_EQ(choice.output.biSizeImage, c.size) << c.code;
        EXPECT_EQ(choice.output.biBitCount, 16) << c.code;
        EXPECT_EQ(choice.mode, 0u) << c.code << ": the aspect never matters for DVCPRO";
        EXPECT_NE(dynamic_cast<CSimpleAviEncoder*>(choice.encoder.get()), nullptr) << c.code;
    }
#ifdef _WIN32
    // The Windows module writes them through its graph; QVN_ENCODER=avi sends the uncompressed ones to the
    // AVI encoder, never the compressed ones, which only the graph can write.
    const auto graphWrites = [](const QVN::EncoderChoice& choice) {
        return dynamic_cast<CDShowEncoder*>(choice.encoder.get()) != nullptr;
    };
    for (const char* forced : {"graph", "avi"}) {
        _putenv_s("QVN_ENCODER", forced);
        for (const char* code : {"UYVY", "HDYC", "v210", "r210"})
            EXPECT_EQ(graphWrites(QVN::ChooseEncoder(Code(code), 1920, 1080, 1)), forced[0] == 'g') << code;
        for (const char* code : {"MJPG", "dvsd"})
            EXPECT_TRUE(graphWrites(QVN::ChooseEncoder(Code(code), 720, 480, 1))) << code << " " << forced;
    }
    _putenv_s("QVN_ENCODER", "avi");
#endif
    for (const char* code : {"UYVY", "HDYC", "v210", "r210"}) {
        auto choice = QVN::ChooseEncoder(Code(code), 1920, 1080, 1);
        EXPECT_NE(dynamic_cast<CSimpleAviEncoder*>(choice.encoder.get()), nullptr) << code;
        EXPECT_EQ(choice.mode, 1u);
        EXPECT_EQ(std::memcmp(&choice.input, &choice.output, sizeof choice.input), 0) << code;
    }
    auto wide = QVN::ChooseEncoder(FourCC("v210"), 720, 576, 1024);
    EXPECT_EQ(wide.mode, 4u) << "PAL wide (1024/702) shifts frames in the graph";
    EXPECT_EQ(QVN::ChooseEncoder(FourCC("v210"), 720, 576, 768).mode, 1u) << "768 is not above 768";
    for (const char* code : {"MJPG", "dvsd"}) {
        auto choice = QVN::ChooseEncoder(Code(code), 720, 480, 10);
        SCOPED_TRACE(code);
        EXPECT_EQ(choice.input.biCompression, 0u) << "the compressor takes 32-bit frames";
        EXPECT_EQ(choice.input.biBitCount, 32);
        EXPECT_EQ(choice.input.biSizeImage, 720u * 480 * 4);
        EXPECT_EQ(choice.output.biSizeImage, 720u * 480 * 4);
        EXPECT_EQ(choice.output.biCompression, Code(code));
#ifndef _WIN32
        // Without a graph they fail cleanly when the run starts the encoder.
        ASSERT_NE(dynamic_cast<QVN::CUnavailableEncoder*>(choice.encoder.get()), nullptr);
        EXPECT_EQ(choice.encoder->Initialise(&choice.input, &choice.output, 1, 25, 1, 30, 1, nullptr), 99u);
#endif
    }
}

} // namespace

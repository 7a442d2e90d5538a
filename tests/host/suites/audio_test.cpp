// The sequence audio (tones per channel, block limits, positions) and the Premiere Audio Suite's integer
// conversions at and beyond full scale.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "host/audio_conversion.h"
#include "host/instance_suites.h"
#include "host/sequence.h"
#include "host/sequence_audio.h"

namespace qvnhost {
namespace {

// Sample values and what each integer width must make of them: full scale, beyond it, half an LSB (which
// rounds away from zero), the largest float below 1 and NaN.
struct Case {
    float x;
    int u8;
    std::int32_t s16, s24;
    std::int64_t s32;
};

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kBelowOne = 1.0f - 1.0f / 16777216.0f; // 1 - 2^-24

const Case kCases[] = {
    {0.0f, 128, 0, 0, 0},
    {1.0f, 255, 32767, 8388607, 2147483647},
    {-1.0f, 0, -32768, -8388608, -2147483648LL},
    {0.5f, 192, 16384, 4194304, 1073741824},
    {-0.5f, 64, -16384, -4194304, -1073741824},
    {1.5f, 255, 32767, 8388607, 2147483647},
    {-1.5f, 0, -32768, -8388608, -2147483648LL},
    {1e30f, 255, 32767, 8388607, 2147483647},
    {kBelowOne, 255, 32767, 8388607, 2147483520},
    {1.0f / 256.0f, 129, 128, 32768, 8388608}, // half an 8-bit step
    {-1.0f / 256.0f, 127, -128, -32768, -8388608},
    {1.0f / 65536.0f, 128, 1, 128, 32768}, // half a 16-bit step
    {-1.0f / 65536.0f, 128, -1, -128, -32768},
    {1.0f / 16777216.0f, 128, 0, 1, 128},  // half a 24-bit step
    {std::ldexp(1.0f, -32), 128, 0, 0, 1}, // half a 32-bit step
    {-std::ldexp(1.0f, -32), 128, 0, 0, -1},
    {kNaN, 128, 0, 0, 0},
};

TEST(AudioSuite, ConvertsEachWidthExactlyAtAndBeyondFullScale) {
    const prsdk::AudioSuite* s = AudioSuiteTable();
    const prsdk::csSDK_uint32 n = std::size(kCases);
    std::vector<float> plane(n);
    std::transform(std::begin(kCases), std::end(kCases), plane.begin(), [](const Case& c) { return c.x; });
    float* planes[1] = {plane.data()};
    std::vector<char> u8(n);
    std::vector<short> s16(n);
    std::vector<char> s24(n * 3);
    std::vector<prsdk::int32> s32(n);
    ASSERT_EQ(s->ConvertAndInterleaveTo8BitInteger(planes, u8.data(), 1, n), 0);
    ASSERT_EQ(s->ConvertAndInterleaveTo16BitInteger(planes, s16.data(), 1, n), 0);
    ASSERT_EQ(s->ConvertAndInterleaveTo24BitInteger(planes, s24.data(), 1, n), 0);
    ASSERT_EQ(s->ConvertAndInterleaveTo32BitInteger(planes, s32.data(), 1, n), 0);
    for (std::size_t i = 0; i < n; ++i) {
        SCOPED_TRACE(::testing::Message() << "sample " << i << " = " << kCases[i].x);
        EXPECT_EQ(static_cast<unsigned char>(u8[i]), kCases[i].u8);
        EXPECT_EQ(s16[i], kCases[i].s16);
        std::uint32_t bits = 0; // least significant byte first
        std::memcpy(&bits, &s24[i * 3], 3);
        EXPECT_EQ(bits, static_cast<std::uint32_t>(kCases[i].s24) & 0xFFFFFF);
        EXPECT_EQ(s32[i], kCases[i].s32);
    }
}

// The order of interleaved channels is pinned end to end, where each channel's tone is found in the file.
TEST(AudioSuite, ReadsBackTheExtremesOfEachWidthAndRefusesMissingBuffers) {
    const prsdk::AudioSuite* s = AudioSuiteTable();
    // v / 2^(bits-1); 24-bit values are sign-extended.
    unsigned char u8[2] = {0, 255}, s24[6] = {0x00, 0x00, 0x80, 0xFF, 0xFF, 0xFF};
    short s16[2] = {-32768, 16384};
    prsdk::int32 s32[2] = {std::numeric_limits<prsdk::int32>::min(), 1 << 30};
    float a[2];
    float* pa[1] = {a};
    ASSERT_EQ(s->UninterleaveAndConvertFrom8BitInteger(reinterpret_cast<char*>(u8), pa, 1, 2), 0);
    EXPECT_EQ(std::pair(a[0], a[1]), std::pair(-1.0f, 127.0f / 128.0f));
    ASSERT_EQ(s->UninterleaveAndConvertFrom16BitInteger(s16, pa, 1, 2), 0);
    EXPECT_EQ(std::pair(a[0], a[1]), std::pair(-1.0f, 0.5f));
    ASSERT_EQ(s->UninterleaveAndConvertFrom24BitInteger(reinterpret_cast<char*>(s24), pa, 1, 2), 0);
    EXPECT_EQ(std::pair(a[0], a[1]), std::pair(-1.0f, -1.0f / 8388608.0f));
    ASSERT_EQ(s->UninterleaveAndConvertFrom32BitInteger(s32, pa, 1, 2), 0);
    EXPECT_EQ(std::pair(a[0], a[1]), std::pair(-1.0f, 0.5f));
    // Missing buffers or channels are refused with a negative result, which the exporter tests for.
    float* holes[2] = {a, nullptr};
    EXPECT_LT(s->ConvertAndInterleaveTo16BitInteger(holes, s16, 2, 1), 0);
    EXPECT_LT(s->ConvertAndInterleaveTo16BitInteger(pa, nullptr, 1, 2), 0);
    EXPECT_LT(s->ConvertAndInterleaveTo32BitInteger(pa, s32, 0, 2), 0);
}

class SequenceAudio : public ::testing::Test {
protected:
    void SetUp() override {
        ResetAudioHost();
        CurrentSequence() = SequenceInfo{};
    }
    void TearDown() override { ResetAudioHost(); }
    const prsdk::SequenceAudioSuite* s = SequenceAudioSuiteTable();
};

constexpr prsdk::PrTime kNtscFrame = kTicksPerSecond / 30000 * 1001;

TEST_F(SequenceAudio, EachChannelCarriesItsOwnToneFromTheStartTime) {
    // Ten NTSC frames in: 10 x 1601.6 = 16016 samples at 48 kHz.
    prsdk::csSDK_uint32 id = 0;
    ASSERT_EQ(s->MakeAudioRenderer(1, 10 * kNtscFrame, prsdk::kPrAudioChannelType_51,
                                   prsdk::kPrAudioSampleType_32BitFloat, 48000.0f, &id),
              0);
    prsdk::csSDK_int32 blip = 0;
    ASSERT_EQ(s->GetMaxBlip(id, kNtscFrame, &blip), 0);
    std::vector<std::vector<float>> ch(6, std::vector<float>(48000));
    for (std::size_t done = 0; done < 48000;) {
        const auto m = static_cast<prsdk::csSDK_uint32>(
            std::min<std::size_t>(static_cast<std::size_t>(blip), 48000 - done));
        float* planes[6];
        for (int c = 0; c < 6; ++c)
            planes[c] = ch[c].data() + done;
        ASSERT_EQ(s->GetAudio(id, m, planes, 0), 0);
        done += m;
    }
    constexpr double kTwoPi = 6.283185307179586;
    for (int c = 0; c < 6; ++c) {
        const double f = 440.0 * (c + 1);
        for (int i = 0; i < 48000; ++i)
            ASSERT_NEAR(ch[c][i], 0.5 * std::sin(kTwoPi * f * (16016.0 + i) / 48000.0), 2e-6)
                << "channel " << c << " sample " << i;
    }
    EXPECT_EQ(s->ReleaseAudioRenderer(1, id), 0);
}

TEST_F(SequenceAudio, BlocksAreLimitedToTheLargestBlockAndPositionsAdvanceExactly) {
    prsdk::csSDK_uint32 id = 0;
    ASSERT_EQ(s->MakeAudioRenderer(1, 0, prsdk::kPrAudioChannelType_Stereo,
                                   prsdk::kPrAudioSampleType_16BitInt, 48000.0f, &id),
              0);
    prsdk::csSDK_int32 blip = 0;
    const auto maxBlip = [&](prsdk::PrTime frame) {
        return s->GetMaxBlip(id, frame, &blip) == 0 ? blip : -1;
    };
    EXPECT_EQ(maxBlip(kNtscFrame), 1602);           // 1601.6 samples per NTSC frame, rounded up
    EXPECT_EQ(maxBlip(kTicksPerSecond / 25), 1920); // exactly one PAL frame
    EXPECT_LT(s->GetMaxBlip(id, 0, &blip), 0);
    std::vector<float> l(4000), r(4000);
    float* planes[2] = {l.data(), r.data()};
    EXPECT_LT(s->GetAudio(id, 1921, planes, 0), 0); // one sample frame over the limit
    EXPECT_EQ(AudioHostState().problems.front(),
              "GetAudio asked for 1921 sample frames, more than the largest block 1920");
    // 1000 + 1920 + 7 frames continue each other exactly: the same as one long read from another renderer.
    std::vector<float> pieces;
    for (prsdk::csSDK_uint32 m : {1000u, 1920u, 7u}) {
        ASSERT_EQ(s->GetAudio(id, m, planes, 0), 0);
        pieces.insert(pieces.end(), l.begin(), l.begin() + m);
    }
    ASSERT_EQ(s->ResetAudioToBeginning(id), 0);
    ASSERT_EQ(s->GetAudio(id, 1000, planes, 0), 0);
    EXPECT_TRUE(std::equal(l.begin(), l.begin() + 1000, pieces.begin())) << "reset returns to the start";
    EXPECT_EQ(AudioHostState().sampleFrames, 1000u + 1920u + 7u + 1000u);
    EXPECT_EQ(s->ReleaseAudioRenderer(1, id), 0);
    EXPECT_LT(s->ReleaseAudioRenderer(1, id), 0);
    // 44.1 kHz at 23.976: 1839.3375 per frame, rounded up.
    ASSERT_EQ(s->MakeAudioRenderer(1, 0, prsdk::kPrAudioChannelType_Mono, prsdk::kPrAudioSampleType_16BitInt,
                                   44100.0f, &id),
              0);
    EXPECT_EQ(maxBlip(kTicksPerSecond / 24000 * 1001), 1840);
    // Left unreleased: the host reports it.
    const AudioHostReport report = AudioHostState();
    EXPECT_EQ(report.renderersMade, 2u);
    EXPECT_EQ(report.renderersReleased, 1u);
    EXPECT_EQ(report.problems.back(), "audio renderer " + std::to_string(id) + " not released");
    // Channel types outside mono, stereo and 5.1 are refused.
    EXPECT_LT(s->MakeAudioRenderer(1, 0, static_cast<prsdk::PrAudioChannelType>(4),
                                   prsdk::kPrAudioSampleType_16BitInt, 48000.0f, &id),
              0);
}

} // namespace
} // namespace qvnhost

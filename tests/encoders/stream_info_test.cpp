// Stream headers, formats and index chunk layouts, byte by byte.
#include <gtest/gtest.h>

#include <cstring>

#include "encoders/avi_index.h"
#include "encoders/stream_info.h"
#include "test_files.h"

using avitest::Fcc;

// The strh and strf bytes themselves are checked in the files AVIFile writes (avi_file_test.cpp).
TEST(VideoStreamInfo, QualityAndSuggestedBufferAtTheirBoundaries) {
    struct Case {
        std::int32_t width;
        std::uint32_t image, quality, suggested;
    };
    for (const Case& c : {Case{1000, 0, 9000, 0}, Case{1001, 8192, 9800, 8192}, Case{720, 8193, 9000, 12288},
                          Case{1920, 5529601, 9800, 5529600 + 4096}}) {
        const VideoStreamInfo s(avitest::Video("v210", c.width, 2, c.image));
        EXPECT_EQ(s.Header().dwQuality, c.quality) << c.width;
        EXPECT_EQ(s.Header().dwSuggestedBufferSize, c.suggested) << c.image;
        EXPECT_EQ(s.Header().dwSampleSize, c.image);
    }
}

TEST(VideoStreamInfo, FrameDurationsMapToTheSupportedRatesOnly) {
    // Each rate takes the durations strictly between its bounds: both bounds and both values just inside
    // them are tried, so that every comparison of the table is pinned.
    struct Row {
        std::int64_t above, below;
        std::uint32_t rate, scale;
    };
    const Row rows[] = {{417081, 417085, 24000, 1001}, {416665, 416669, 24, 1}, {399998, 400002, 25, 1},
                        {333665, 333669, 30000, 1001}, {333331, 333335, 30, 1}, {199998, 200002, 50, 1},
                        {166831, 166835, 60000, 1001}, {166665, 166669, 60, 1}};
    const auto rateOf = [](std::int64_t duration) {
        const VideoStreamInfo s(avitest::Video("", 720, 486, 0, 16, duration));
        return std::make_pair(s.Header().dwRate, s.Header().dwScale);
    };
    using P = std::pair<std::uint32_t, std::uint32_t>;
    for (const Row& r : rows) {
        EXPECT_EQ(rateOf(r.above), P(0, 0)) << r.above;
        EXPECT_EQ(rateOf(r.above + 1), P(r.rate, r.scale)) << r.above + 1;
        EXPECT_EQ(rateOf(r.below - 1), P(r.rate, r.scale)) << r.below - 1;
        EXPECT_EQ(rateOf(r.below), P(0, 0)) << r.below;
    }
    EXPECT_EQ(rateOf(0), P(0, 0));
    EXPECT_EQ(rateOf(-333667), P(0, 0));
}

TEST(AudioStreamInfo, PcmGivesEighteenBytesAndExtensibleForty) {
    WAVEFORMATEXTENSIBLE ext{};
    std::memset(&ext, 0xAB, sizeof(ext)); // bytes past a plain format must not leak into the copy
    ext.Format.wFormatTag = WAVE_FORMAT_PCM;
    ext.Format.nChannels = 2;
    ext.Format.nSamplesPerSec = 48000;
    ext.Format.nAvgBytesPerSec = 192000;
    ext.Format.nBlockAlign = 4;
    ext.Format.wBitsPerSample = 16;
    ext.Format.cbSize = 0;
    const AudioStreamInfo pcm(&ext.Format);
    EXPECT_EQ(pcm.GetFormatSize(), 18u);
    EXPECT_EQ(std::memcmp(pcm.GetFormat(), &ext, 18), 0);
    const auto* stored = static_cast<const unsigned char*>(pcm.GetFormat());
    for (int i = 18; i < 40; ++i)
        EXPECT_EQ(stored[i], 0) << i;
    ext.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    ext.Format.cbSize = 22;
    const AudioStreamInfo six(&ext.Format);
    EXPECT_EQ(six.GetFormatSize(), 40u);
    EXPECT_EQ(std::memcmp(six.GetFormat(), &ext, 40), 0);
}

TEST(StreamInfo, CloneKeepsCountersAndFormat) {
    VideoStreamInfo v(avitest::Video("UYVY", 720, 486, 699840, 16, 333667));
    v.Header().dwLength = 1500;
    v.Header().dwSuggestedBufferSize = 123456;
    const auto copy = v.Clone();
    ASSERT_NE(dynamic_cast<VideoStreamInfo*>(copy.get()), nullptr);
    EXPECT_EQ(std::memcmp(&copy->Header(), &v.Header(), 64), 0);
    EXPECT_EQ(std::memcmp(copy->GetFormat(), v.GetFormat(), 40), 0);
    WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 1, 44100, 44100, 1, 8, 0};
    AudioStreamInfo a(&pcm);
    a.Header().dwLength = 77;
    const auto audioCopy = a.Clone();
    ASSERT_NE(dynamic_cast<AudioStreamInfo*>(audioCopy.get()), nullptr);
    EXPECT_EQ(audioCopy->Header().dwLength, 77u);
    EXPECT_EQ(audioCopy->GetFormatSize(), 18u);
    EXPECT_EQ(std::memcmp(audioCopy->GetFormat(), &pcm, 18), 0);
}

// The index headers are checked in the files AVIFile writes; here the two-digit stream numbers and the
// zeroed remainder of a fresh index.
TEST(AviIndex, ChunkIdsAndEmptyIndexes) {
    using namespace QVN::AviIndex;
    EXPECT_EQ(ChunkId(0, Fcc("vids")), Fcc("00db"));
    EXPECT_EQ(ChunkId(1, Fcc("auds")), Fcc("01wb"));
    EXPECT_EQ(ChunkId(12, Fcc("txts")), Fcc("12un"));
    EXPECT_EQ(StandardIndexId(23), Fcc("ix23"));
    auto super = std::make_unique<SuperIndexChunk>();
    auto standard = std::make_unique<StandardIndexChunk>();
    std::memset(super.get(), 0xEE, sizeof(*super));
    std::memset(standard.get(), 0xEE, sizeof(*standard));
    InitSuperIndex(*super, Fcc("01wb"));
    InitStandardIndex(*standard, 3, Fcc("03db"));
    for (const void* index :
         {static_cast<const void*>(super.get()), static_cast<const void*>(standard.get())}) {
        const auto* bytes = static_cast<const unsigned char*>(index);
        EXPECT_EQ(avitest::Tag(avitest::Bytes(bytes, bytes + 20), 16),
                  index == super.get() ? "01wb" : "03db");
        for (std::size_t i = 20; i < 65536; ++i)
            ASSERT_EQ(bytes[i], 0) << i;
    }
}

// Stream headers, formats and index chunk layouts, byte by byte.
#include <gtest/gtest.h>

#include <cstring>

#include "encoders/avi_index.h"
#include "encoders/stream_info.h"
#include "riff_reader.h"

using avitest::Fcc;

namespace {

VIDEOINFOHEADER Video(std::int32_t width, std::int32_t height, std::uint32_t fourcc, std::uint32_t image,
                      std::int64_t duration) {
    VIDEOINFOHEADER v{};
    v.AvgTimePerFrame = duration;
    v.bmiHeader.biSize = 40;
    v.bmiHeader.biWidth = width;
    v.bmiHeader.biHeight = height;
    v.bmiHeader.biPlanes = 1;
    v.bmiHeader.biBitCount = 16;
    v.bmiHeader.biCompression = fourcc;
    v.bmiHeader.biSizeImage = image;
    return v;
}

avitest::Bytes HeaderBytes(const StreamInfo& s) {
    avitest::Bytes b(64);
    std::memcpy(b.data(), &s.Header(), 64);
    return b;
}

} // namespace

TEST(VideoStreamInfo, HeaderFieldsAtTheirOffsets) {
    const VideoStreamInfo s(Video(1920, 1080, Fcc("v210"), 5529600 + 1, 333667));
    const avitest::Bytes b = HeaderBytes(s);
    EXPECT_EQ(avitest::Tag(b, 0), "strh");
    EXPECT_EQ(avitest::U32(b, 4), 56u);
    EXPECT_EQ(avitest::Tag(b, 8), "vids");
    EXPECT_EQ(avitest::Tag(b, 12), "v210");
    EXPECT_EQ(avitest::U32(b, 16), 0u); // flags
    EXPECT_EQ(avitest::U32(b, 20), 0u); // priority, language
    EXPECT_EQ(avitest::U32(b, 24), 0u); // initial frames
    EXPECT_EQ(avitest::U32(b, 28), 1001u);
    EXPECT_EQ(avitest::U32(b, 32), 30000u);
    EXPECT_EQ(avitest::U32(b, 36), 0u);               // start
    EXPECT_EQ(avitest::U32(b, 40), 0u);               // length
    EXPECT_EQ(avitest::U32(b, 44), 5529600u + 4096u); // one byte over a 4096 multiple rounds up a block
    EXPECT_EQ(avitest::U32(b, 48), 9800u);
    EXPECT_EQ(avitest::U32(b, 52), 5529601u);
    EXPECT_EQ(avitest::U64(b, 56), 0u); // frame rectangle
    EXPECT_EQ(s.GetFormatSize(), 40u);
    const VIDEOINFOHEADER expected = Video(1920, 1080, Fcc("v210"), 5529601, 333667);
    EXPECT_EQ(std::memcmp(s.GetFormat(), &expected.bmiHeader, 40), 0);
}

TEST(VideoStreamInfo, QualityAndSuggestedBufferAtTheirBoundaries) {
    EXPECT_EQ(VideoStreamInfo(Video(1000, 2, 0, 0, 400000)).Header().dwQuality, 9000u);
    EXPECT_EQ(VideoStreamInfo(Video(1001, 2, 0, 0, 400000)).Header().dwQuality, 9800u);
    EXPECT_EQ(VideoStreamInfo(Video(720, 486, 0, 0, 400000)).Header().dwQuality, 9000u);
    EXPECT_EQ(VideoStreamInfo(Video(720, 486, 0, 8192, 400000)).Header().dwSuggestedBufferSize, 8192u);
    EXPECT_EQ(VideoStreamInfo(Video(720, 486, 0, 0, 400000)).Header().dwSuggestedBufferSize, 0u);
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
        const VideoStreamInfo s(Video(720, 486, 0, 0, duration));
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
    const avitest::Bytes b = HeaderBytes(pcm);
    EXPECT_EQ(avitest::Tag(b, 8), "auds");
    EXPECT_EQ(avitest::U32(b, 12), 0u);
    EXPECT_EQ(avitest::U32(b, 28), 1u);
    EXPECT_EQ(avitest::U32(b, 32), 48000u);
    EXPECT_EQ(avitest::U32(b, 44), 192000u);
    EXPECT_EQ(avitest::U32(b, 48), 0u);
    EXPECT_EQ(avitest::U32(b, 52), 4u);

    ext.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    ext.Format.cbSize = 22;
    const AudioStreamInfo six(&ext.Format);
    EXPECT_EQ(six.GetFormatSize(), 40u);
    EXPECT_EQ(std::memcmp(six.GetFormat(), &ext, 40), 0);
}

TEST(StreamInfo, CloneKeepsCountersAndFormat) {
    VideoStreamInfo v(Video(720, 486, Fcc("UYVY"), 699840, 333667));
    v.Header().dwLength = 1500;
    v.Header().dwSuggestedBufferSize = 123456;
    const auto copy = v.Clone();
    ASSERT_NE(dynamic_cast<VideoStreamInfo*>(copy.get()), nullptr);
    EXPECT_EQ(std::memcmp(&copy->Header(), &v.Header(), 64), 0);
    EXPECT_EQ(copy->Header().dwLength, 1500u);
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

TEST(AviIndex, ChunkIdsAndEmptyIndexLayouts) {
    using namespace QVN::AviIndex;
    EXPECT_EQ(ChunkId(0, Fcc("vids")), Fcc("00db"));
    EXPECT_EQ(ChunkId(1, Fcc("auds")), Fcc("01wb"));
    EXPECT_EQ(ChunkId(12, Fcc("txts")), Fcc("12un"));
    EXPECT_EQ(StandardIndexId(7), Fcc("ix07"));
    EXPECT_EQ(StandardIndexId(23), Fcc("ix23"));

    auto super = std::make_unique<SuperIndexChunk>();
    std::memset(super.get(), 0xEE, sizeof(*super));
    InitSuperIndex(*super, Fcc("01wb"));
    avitest::Bytes b(65536);
    std::memcpy(b.data(), super.get(), b.size());
    EXPECT_EQ(avitest::Tag(b, 0), "indx");
    EXPECT_EQ(avitest::U32(b, 4), 65528u);
    EXPECT_EQ(avitest::U16(b, 8), 4u);
    EXPECT_EQ(b[10], 0);
    EXPECT_EQ(b[11], 0);
    EXPECT_EQ(avitest::U32(b, 12), 0u);
    EXPECT_EQ(avitest::Tag(b, 16), "01wb");
    for (std::size_t i = 20; i < b.size(); ++i)
        ASSERT_EQ(b[i], 0) << i;

    auto standard = std::make_unique<StandardIndexChunk>();
    std::memset(standard.get(), 0xEE, sizeof(*standard));
    InitStandardIndex(*standard, 3, Fcc("03db"));
    std::memcpy(b.data(), standard.get(), b.size());
    EXPECT_EQ(avitest::Tag(b, 0), "ix03");
    EXPECT_EQ(avitest::U32(b, 4), 65528u);
    EXPECT_EQ(avitest::U16(b, 8), 2u);
    EXPECT_EQ(b[10], 0);
    EXPECT_EQ(b[11], 1);
    EXPECT_EQ(avitest::U32(b, 12), 0u);
    EXPECT_EQ(avitest::Tag(b, 16), "03db");
    for (std::size_t i = 20; i < b.size(); ++i)
        ASSERT_EQ(b[i], 0) << i;
    EXPECT_EQ(offsetof(StandardIndexHeader, qwBaseOffset), 20u);
    EXPECT_EQ(offsetof(SuperIndexChunk, entries), 32u);
    EXPECT_EQ(offsetof(StandardIndexChunk, entries), 32u);
}

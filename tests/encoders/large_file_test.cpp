// An export larger than 2.5 GB: three RIFF segments, read back by ffprobe across every "AVIX" segment and
// checked by the inspector; the first segment ends exactly where the 1,000,000,000-byte limit says.
#include <gtest/gtest.h>

#include <algorithm>

#include "encoders/avi_file.h"
#include "test_files.h"

using namespace avitest;

namespace {

// Header reads at positions of a file too large to load.
class Seeker {
public:
    explicit Seeker(const std::filesystem::path& path) : in_(path, std::ios::binary) {}
    Bytes At(std::uint64_t at, std::size_t n) {
        Bytes b(n);
        in_.seekg(static_cast<std::streamoff>(at));
        in_.read(reinterpret_cast<char*>(b.data()), static_cast<std::streamsize>(n));
        return b;
    }
    std::uint32_t U32(std::uint64_t at) { return avitest::U32(At(at, 4), 0); }
    std::uint64_t U64(std::uint64_t at) { return avitest::U64(At(at, 8), 0); }
    std::string Tag(std::uint64_t at) { return avitest::Tag(At(at, 4), 0); }
    std::vector<Chunk> Walk(std::uint64_t begin, std::uint64_t end) {
        std::vector<Chunk> chunks;
        for (std::uint64_t at = begin; at + 8 <= end;
             at += 8 + chunks.back().size + (chunks.back().size & 1u))
            chunks.push_back({Tag(at), at, U32(at + 4)});
        return chunks;
    }
    // The chunks other than JUNK in the movi list of the RIFF at `riff`; `list` receives the list itself.
    std::vector<Chunk> Movi(std::uint64_t riff, Chunk* list = nullptr) {
        std::vector<Chunk> inside;
        for (const auto& k : Walk(riff + 12, riff + 8 + U32(riff + 4))) {
            if (k.id != "LIST" || Tag(k.position + 8) != "movi")
                continue;
            if (list)
                *list = k;
            for (const auto& c : Walk(k.position + 12, k.position + 8 + k.size))
                if (c.id != "JUNK")
                    inside.push_back(c);
        }
        return inside;
    }

private:
    std::ifstream in_;
};

} // namespace

TEST(LargeFile, MultiSegmentExportIsReadCompletely) {
    ASSERT_TRUE(HaveTool("ffprobe")) << "ffprobe is needed for this test";
    TempDir dir("large");
    const auto file = dir / "large.avi";
    const ExportConfig c{"v210", 1920, 1080, 470, 2}; // 2.6 GB
    const ExportResult written = WriteExport(file, c);
    ASSERT_EQ(written.status, 0u);
    const std::uint64_t size = std::filesystem::file_size(file);
    ASSERT_GT(size, 2500000000u);
    // Segments: "AVI " then "AVIX", each closing at the first chunk that takes it past the limit.
    Seeker s(file);
    std::vector<std::uint64_t> riffs;
    for (std::uint64_t at = 0; at < size; at += 8 + s.U32(at + 4)) {
        ASSERT_EQ(s.Tag(at), "RIFF") << at;
        EXPECT_EQ(s.Tag(at + 8), riffs.empty() ? "AVI " : "AVIX") << at;
        EXPECT_EQ(at % 4096, 0u);
        riffs.push_back(at);
    }
    ASSERT_EQ(riffs.size(), 3u);
    std::uint64_t frames = 0, frames1 = 0;
    for (std::size_t i = 0; i < riffs.size(); ++i) {
        const auto top = s.Walk(riffs[i] + 12, riffs[i] + 8 + s.U32(riffs[i] + 4));
        Chunk movi{};
        const auto data = s.Movi(riffs[i], &movi);
        EXPECT_EQ((movi.position + 12) % 4096, 0u);
        ASSERT_GE(data.size(), 3u);
        // Each segment's movi list ends with both standard indexes.
        EXPECT_EQ(data[data.size() - 2].id, "ix00");
        EXPECT_EQ(data[data.size() - 1].id, "ix01");
        for (const auto& k : data)
            frames += k.id == "00db";
        if (i + 1 < riffs.size()) {
            // The last payload chunk crossed the limit; the one before it did not.
            const Chunk& last = data[data.size() - 3];
            const Chunk& before = data[data.size() - 4];
            const auto endOf = [](const Chunk& k) {
                return k.id == "00db" ? (k.position + 8 + k.size + 4095) / 4096 * 4096
                                      : k.position + 8 + k.size;
            };
            EXPECT_GT(endOf(last) - riffs[i], 1000000000u);
            EXPECT_LE(endOf(before) - riffs[i], 1000000000u + 4096u);
        }
        if (i == 0) {
            frames1 = frames;
            // idx1 and the signature close the first segment only.
            ASSERT_GE(top.size(), 4u);
            const auto idx1 =
                std::find_if(top.begin(), top.end(), [](const Chunk& k) { return k.id == "idx1"; });
            ASSERT_NE(idx1, top.end());
            EXPECT_EQ((idx1 + 1)->id, "QVN ");
            std::uint64_t idx1Frames = 0;
            for (std::uint64_t e = 0; e < idx1->size / 16; ++e)
                idx1Frames += s.Tag(idx1->position + 8 + 16 * e) == "00db";
            EXPECT_EQ(idx1Frames, frames1);
        } else {
            EXPECT_EQ(std::count_if(top.begin(), top.end(), [](const Chunk& k) { return k.id == "idx1"; }),
                      0);
        }
    }
    EXPECT_EQ(frames, c.frames);
    EXPECT_LT(frames1, c.frames);
    EXPECT_EQ(s.U32(48), c.frames); // avih counts the frames of all segments
    const auto video = Shell("ffprobe -v error -select_streams v:0 -count_packets -show_entries "
                             "stream=nb_read_packets,nb_frames -of csv=p=0 " +
                             Quote(file));
    ASSERT_EQ(video.exitCode, 0) << video.errors;
    EXPECT_EQ(video.output, std::to_string(c.frames) + "," + std::to_string(c.frames) + "\n");
    EXPECT_EQ(AudioSamples(file), written.samples);
    const auto lastFrames =
        Shell("ffmpeg -nostdin -v error -sseof -1 -i " + Quote(file) + " -map 0 -f null -");
    EXPECT_EQ(lastFrames.exitCode, 0);
    EXPECT_EQ(lastFrames.errors, ""); // the last segment decodes
    const Inspected inspected = Inspect({file.string()});
    EXPECT_EQ(inspected.code, 0);
    EXPECT_NE(inspected.out.find("\nconsistent\n"), std::string::npos) << inspected.out;
}

TEST(LargeFile, ASegmentEndsWithTheFirstChunkThatTakesItPastOneBillionBytes) {
    TempDir dir("split");
    const WAVEFORMATEX mono8{WAVE_FORMAT_PCM, 1, 22050, 22050, 1, 8, 0};
    AudioStreamInfo audio(&mono8);
    // Where the movi data of such a file starts.
    std::uint64_t dataStart = 0;
    {
        AVIFile probe;
        const auto path = dir / "probe.avi";
        ASSERT_EQ(probe.Open(path.string().c_str(), {&audio}), S_OK);
        ASSERT_EQ(probe.Close(), S_OK);
        Chunk movi{};
        Seeker(path).Movi(0, &movi);
        dataStart = movi.position + 12;
        ASSERT_GT(dataStart, 12u);
    }
    // Chunks that end exactly 1,000,000,000 bytes into the file do not split it; the next chunk, which
    // passes the limit, is still the first segment's last one.
    const auto path = dir / "split.avi";
    constexpr std::uint64_t kLimit = 1000000000;
    const std::vector<unsigned char> block(64 << 20, 0x5A);
    std::vector<std::uint64_t> positions;
    {
        AVIFile file;
        ASSERT_EQ(file.Open(path.string().c_str(), {&audio}), S_OK);
        std::uint64_t at = dataStart;
        while (at < kLimit) {
            const std::uint64_t size = std::min<std::uint64_t>(block.size(), kLimit - at - 8);
            positions.push_back(at);
            ASSERT_EQ(file.WriteChunk(0, block.data(), static_cast<std::uint32_t>(size), true), S_OK);
            at += 8 + size;
        }
        ASSERT_EQ(at, kLimit);
        const unsigned char two[2] = {1, 2};
        ASSERT_EQ(file.WriteChunk(0, two, 2, true), S_OK); // splits
        ASSERT_EQ(file.WriteChunk(0, two, 2, true), S_OK); // the second segment's first
        ASSERT_EQ(file.Close(), S_OK);
    }
    positions.push_back(kLimit);
    Seeker s(path);
    const std::uint64_t second = 8 + s.U32(4);
    ASSERT_EQ(s.Tag(second), "RIFF");
    ASSERT_EQ(s.Tag(second + 8), "AVIX");
    const auto first = s.Movi(0);
    ASSERT_EQ(first.size(), positions.size() + 1);
    for (std::size_t i = 0; i < positions.size(); ++i)
        EXPECT_EQ(first[i].position, positions[i]) << i;
    EXPECT_EQ(first.back().id, "ix00");
    const auto later = s.Movi(second);
    ASSERT_EQ(later.size(), 2u);
    EXPECT_EQ(later[0].id, "00wb");
    ASSERT_EQ(later[1].id, "ix00");
    // The second segment's index counts from the chunk that split the file.
    const std::uint64_t ix = later[1].position;
    EXPECT_EQ(s.U64(ix + 20), kLimit);
    ASSERT_EQ(s.U32(ix + 12), 1u);
    EXPECT_EQ(kLimit + s.U32(ix + 32) - 8, later[0].position);
}

TEST(LargeFile, FullSuperIndexRefusesFurtherChunksAndKeepsOneSlotForClose) {
    // 4093 standard indexes of 8188 entries each, made of repeated frames so that no payload is written.
    TempDir dir("superindex");
    const auto file = dir / "repeats.avi";
    VideoStreamInfo video(Video("UYVY", 16, 16, 512));
    AVIFile avi;
    ASSERT_EQ(avi.Open(file.string().c_str(), {&video}), S_OK);
    unsigned char frame[512] = {};
    ASSERT_EQ(avi.WriteChunk(0, frame, sizeof(frame), true), S_OK);
    constexpr std::uint64_t kAccepted = 4093ull * 8188ull;
    for (std::uint64_t i = 1; i < kAccepted; ++i)
        ASSERT_EQ(avi.WriteRepeat(0), S_OK) << i;
    EXPECT_EQ(avi.WriteRepeat(0), E_FAIL);
    EXPECT_EQ(avi.WriteChunk(0, frame, sizeof(frame), true), E_FAIL);
    EXPECT_EQ(avi.GetStream(0)->Header().dwLength, kAccepted); // refused chunks are not counted
    ASSERT_EQ(avi.Close(), S_OK);
    Seeker s(file);
    const std::uint64_t indx = 212;
    ASSERT_EQ(s.Tag(indx), "indx");
    EXPECT_EQ(s.U32(indx + 12), 4094u); // the flush at close used the slot that was kept free
    const std::uint64_t last = indx + 32 + 16 * 4093;
    const std::uint64_t lastIx = s.U64(last);
    EXPECT_EQ(s.Tag(lastIx), "ix00");
    EXPECT_EQ(s.U32(lastIx + 12), 0u); // empty: every accepted entry went into the earlier ones
    EXPECT_EQ(s.U32(last + 12), 0u);
    const std::uint64_t first = indx + 32;
    EXPECT_EQ(s.U32(first + 12), 8188u);
    EXPECT_EQ(s.U32(48), kAccepted);
}

TEST(LargeFile, FfmpegOpenDmlFileIsConsistentToTheInspector) {
    // ffmpeg starts its second segment after 1 GB and keeps the total in dmlh rather than avih.
    ASSERT_TRUE(HaveTool("ffmpeg")) << "ffmpeg is needed for this test";
    TempDir dir("ffodml");
    const auto file = dir / "odml.avi";
    const auto r = Shell("ffmpeg -nostdin -v error -y -f lavfi -i testsrc=size=1920x1080:rate=25 -f lavfi -i "
                         "sine=sample_rate=48000 -t 11 -c:v rawvideo -pix_fmt uyvy422 -c:a pcm_s16le " +
                         Quote(file));
    ASSERT_EQ(r.exitCode, 0) << r.errors;
    const auto [code, out, err] = Inspect({file.string()});
    EXPECT_EQ(code, 0) << err;
    EXPECT_NE(out.find("form=\"AVIX\""), std::string::npos) << out;
    EXPECT_NE(out.find("chunk id=\"dmlh\""), std::string::npos) << out;
    EXPECT_NE(out.find("total_frames=275"), std::string::npos) << out; // 11 s at 25 fps, in dmlh
    EXPECT_NE(out.find("\nconsistent\n"), std::string::npos) << out;
}

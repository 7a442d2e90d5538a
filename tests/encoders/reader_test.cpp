// Files written through CSimpleAviEncoder, read back by tools nobody here wrote: ffprobe, ffmpeg, MediaInfo.
#include <gtest/gtest.h>

#include "test_files.h"

using namespace avitest;

namespace {

// "key=value" lines of ffprobe's default-wrapper-free output.
std::string Field(const std::string& text, const std::string& key) {
    for (const std::string& line : Lines(text))
        if (line.rfind(key + "=", 0) == 0)
            return line.substr(key.size() + 1);
    return "<missing " + key + ">";
}

struct Case {
    const char* name;
    ExportConfig config;
    const char* rate; // ffprobe's r_frame_rate
    const char* codec;
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.name;
}

void CheckWithReaders(const Case& c) {
    ASSERT_TRUE(HaveTool("ffprobe")) << "ffprobe is needed for this test";
    ASSERT_TRUE(HaveTool("ffmpeg")) << "ffmpeg is needed for this test";
    ASSERT_TRUE(HaveTool("mediainfo")) << "mediainfo is needed for this test";
    TempDir dir(c.name);
    const auto file = dir / (std::string(c.name) + ".avi");
    const ExportResult written = WriteExport(file, c.config);
    ASSERT_EQ(written.status, 0u);
    const bool video = c.config.width > 0;
    const std::string probe = "ffprobe -v error -of default=nw=1 -show_entries stream=";
    const auto expect = [](const CommandResult& r, std::vector<std::pair<const char*, std::string>> fields) {
        ASSERT_EQ(r.exitCode, 0) << r.errors;
        EXPECT_EQ(r.errors, "");
        for (const auto& [key, value] : fields)
            EXPECT_EQ(Field(r.output, key), value) << key;
    };
    const auto text = [](std::uint32_t n) { return std::to_string(n); };
    if (video)
        expect(Shell(probe +
                     "codec_name,codec_tag_string,width,height,r_frame_rate,nb_read_frames,nb_frames "
                     "-select_streams v:0 -count_frames " +
                     Quote(file)),
               {{"codec_tag_string", c.config.fourcc},
                {"codec_name", c.codec},
                {"width", text(c.config.width)},
                {"height", text(c.config.height)},
                {"r_frame_rate", c.rate},
                {"nb_frames", text(c.config.frames)},
                {"nb_read_frames", text(c.config.frames)}});
    if (c.config.channels) {
        expect(Shell(probe + "channels,sample_rate,bits_per_sample -select_streams a:0 " + Quote(file)),
               {{"channels", text(c.config.channels)},
                {"sample_rate", text(c.config.sampleRate)},
                {"bits_per_sample", text(c.config.bits)}});
        EXPECT_EQ(AudioSamples(file), written.samples);
    }
    const auto decode = Shell("ffmpeg -nostdin -v error -i " + Quote(file) + " -map 0 -f null -");
    EXPECT_EQ(decode.exitCode, 0);
    EXPECT_EQ(decode.errors, "");
    const Inspected inspected = Inspect({file.string()});
    EXPECT_EQ(inspected.code, 0);
    EXPECT_NE(inspected.out.find("\nconsistent\n"), std::string::npos) << inspected.out;
    const auto info = Shell("mediainfo --Inform='General;%Format%|%VideoCount%|%AudioCount%' " + Quote(file));
    ASSERT_EQ(info.exitCode, 0);
    EXPECT_EQ(Lines(info.output).at(0),
              std::string("AVI|") + (video ? "1" : "") + "|" + (c.config.channels ? "1" : ""));
    if (video) {
        const auto frames = Shell("mediainfo --Inform='Video;%FrameCount%|%Width%|%Height%' " + Quote(file));
        EXPECT_EQ(Lines(frames.output).at(0),
                  text(c.config.frames) + "|" + text(c.config.width) + "|" + text(c.config.height));
    }
}

} // namespace

// Each case as its own test, so that CTest runs them side by side.
class Readers : public testing::TestWithParam<Case> {};

TEST_P(Readers, ReadTheWholeFile) {
    CheckWithReaders(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Files, Readers,
    testing::Values(Case{"v210", {"v210", 1920, 1080, 24, 2}, "30000/1001", "v210"},
                    // 720x486 UYVY is no multiple of 4096: every frame has a tail.
                    Case{"uyvy", {"UYVY", 720, 486, 31, 6, 30000, 24}, "30000/1001", "rawvideo"},
                    Case{"audio", {"", 0, 0, 45, 2, 30000, 16, 44100}, "", ""},
                    // 801 or 800 bytes per block: odd payloads.
                    Case{"hdyc", {"HDYC", 1280, 720, 20, 1, 60000, 8}, "60000/1001", "rawvideo"}),
    [](const testing::TestParamInfo<Case>& p) { return std::string(p.param.name); });

// The inspector on files that ffmpeg wrote: a reader of any AVI, not only of ours.
TEST(InspectFfmpegFiles, RawAndCompressedFilesAreConsistent) {
    ASSERT_TRUE(HaveTool("ffmpeg")) << "ffmpeg is needed for this test";
    TempDir dir("ffinspect");
    const std::string inputs =
        "-f lavfi -i testsrc=size=320x240:rate=25 -f lavfi -i sine=sample_rate=48000 -t 2 ";
    const std::vector<std::pair<std::string, std::string>> files = {
        {"raw.avi", "-c:v rawvideo -pix_fmt uyvy422 -c:a pcm_s16le -ac 2"},
        {"mjpeg.avi", "-c:v mjpeg -c:a pcm_u8 -ac 1"},
        {"v210.avi", "-c:v v210 -c:a pcm_s24le -ac 6"},
    };
    for (const auto& [name, codecs] : files) {
        const auto file = dir / name;
        const auto r = Shell("ffmpeg -nostdin -v error -y " + inputs + codecs + " " + Quote(file));
        ASSERT_EQ(r.exitCode, 0) << r.errors;
        const Inspected inspected = Inspect({file.string()});
        EXPECT_EQ(inspected.code, 0) << name << "\n" << inspected.out;
        EXPECT_NE(inspected.out.find("length=50"), std::string::npos) << name;
        EXPECT_NE(inspected.out.find("idx1"), std::string::npos) << name;
    }
}

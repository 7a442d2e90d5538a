// qvnhost inspect on files that ffmpeg wrote: a reader of any AVI, not only of ours.
#include <gtest/gtest.h>

#include "host/inspect_command.h"
#include "riff_reader.h"
#include "test_files.h"

namespace {

int InspectFile(const std::filesystem::path& file, std::string& out) {
    std::string a0 = "inspect", a1 = file.string();
    char* argv[] = {a0.data(), a1.data()};
    testing::internal::CaptureStdout();
    const int code = QvnInspectCommand(2, argv);
    out = testing::internal::GetCapturedStdout();
    return code;
}

} // namespace

TEST(InspectFfmpegFiles, RawAndCompressedFilesAreConsistent) {
    ASSERT_TRUE(avitest::HaveTool("ffmpeg")) << "ffmpeg is needed for this test";
    avitest::TempDir dir("ffinspect");
    const std::string inputs =
        "-f lavfi -i testsrc=size=320x240:rate=25 -f lavfi -i sine=sample_rate=48000 -t 2 ";
    const std::vector<std::pair<std::string, std::string>> files = {
        {"raw.avi", "-c:v rawvideo -pix_fmt uyvy422 -c:a pcm_s16le -ac 2"},
        {"mjpeg.avi", "-c:v mjpeg -c:a pcm_u8 -ac 1"},
        {"v210.avi", "-c:v v210 -c:a pcm_s24le -ac 6"},
    };
    for (const auto& [name, codecs] : files) {
        const auto file = dir / name;
        const auto r =
            avitest::Run("ffmpeg -nostdin -v error -y " + inputs + codecs + " " + avitest::Quote(file));
        ASSERT_EQ(r.exitCode, 0) << r.errors;
        std::string out;
        EXPECT_EQ(InspectFile(file, out), 0) << name << "\n" << out;
        EXPECT_NE(out.find("length=50"), std::string::npos) << name;
        EXPECT_NE(out.find("idx1"), std::string::npos) << name;
    }
}

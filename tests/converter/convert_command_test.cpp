// qvnhost convert: the frames it writes are the entry points' output; bad input exits 2.
#include "converter/converter.h"
#include "host/convert_command.h"
#include "test_frames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace fs = std::filesystem;

int Command(std::vector<std::string> args) {
    args.insert(args.begin(), "convert");
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    ::testing::internal::CaptureStderr();
    const int status = QvnConvertCommand(static_cast<int>(argv.size()), argv.data());
    const std::string messages = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(status != 2 || messages.find("qvnhost: convert: ") != std::string::npos) << messages;
    return status;
}

class ConvertCommand : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(dir_); }
    void TearDown() override { fs::remove_all(dir_); }
    std::string Path(const char* name) const { return (dir_ / name).string(); }
    const fs::path dir_ =
        fs::temp_directory_path() /
        ("qvn_convert_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

TEST_F(ConvertCommand, FramesMatchTheEntryPoints) {
    // Two 16u frames, 100x6, rows padded to 808 bytes.
    const int width = 100, height = 6;
    const std::uint32_t srcRowBytes = 808;
    std::mt19937 rng(5);
    std::vector<Frame> src;
    std::ofstream in(Path("in.raw"), std::ios::binary);
    for (int f = 0; f < 2; ++f) {
        src.push_back(RandomFrame(k16u, width, height, srcRowBytes, 0, rng));
        in.write(reinterpret_cast<const char*>(src.back().buffer.data()), srcRowBytes * height);
    }
    in.close();
    const struct {
        const char* codec;
        std::uint32_t rowBytes; // the decoders' stride for this width
        decltype(&cv::v210::CreateFrom) entry;
    } codecs[] = {{"v210", 384, cv::v210::CreateFrom},
                  {"r210", 512, cv::r210::CreateFrom},
                  {"uyvy", 200, cv::uyvy::CreateFrom}};
    for (const auto& c : codecs) {
        for (const char* path : {"scalar", "vector"}) {
            ASSERT_EQ(
                Command({"--codec", c.codec, "--from", "Bgra", "--size", "100x6", "--src-row-bytes", "808",
                         "--path", path, "--matrix", "2", "--in", Path("in.raw"), "--out", Path("out.raw")}),
                0);
            std::vector<std::uint8_t> expected;
            for (const Frame& f : src) {
                Buffer dst(static_cast<std::size_t>(c.rowBytes) * height + 64, 0);
                std::memset(dst.data(), 0, dst.size());
                ASSERT_EQ(c.entry(f.buffer.data(), srcRowBytes, cv::kPixelFormatBgra16u, dst.data(),
                                  c.rowBytes, width, height, 2,
                                  path[0] == 's' ? cv::kPathScalar : cv::kPathVector),
                          0);
                expected.insert(expected.end(), dst.data(), dst.data() + c.rowBytes * height);
            }
            std::ifstream out(Path("out.raw"), std::ios::binary);
            EXPECT_EQ(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(out), {}), expected)
                << c.codec << " " << path;
        }
    }
}

TEST_F(ConvertCommand, BadInputExitsWithTwo) {
    std::ofstream(Path("in.raw"), std::ios::binary) << std::string(4 * 8 * 8 + 5, 'x');
    // One whole frame and a partial one: with "--frames 1" every argument is good, so each bad one below is
    // the only fault.
    const std::vector<std::string> good = {"--codec", "uyvy",          "--from",   "bgra",
                                           "--size",  "8x8",           "--in",     Path("in.raw"),
                                           "--out",   Path("out.raw"), "--frames", "1"};
    const auto with = [&](std::size_t index, const std::string& value) {
        auto args = good;
        args[index] = value;
        return args;
    };
    EXPECT_EQ(Command(good), 0) << "one whole frame is there";
    EXPECT_EQ(Command(with(11, "2")), 2) << "two are not";
    EXPECT_EQ(Command({good.begin(), good.end() - 2}), 2) << "a trailing partial frame is short input";
    EXPECT_EQ(Command(with(1, "v211")), 2);
    EXPECT_EQ(Command(with(3, "rgba")), 2);
    for (const char* size : {"0x8", "8", "8x", "x8", "-8x8", "8x8x", "axb", "20000x8"})
        EXPECT_EQ(Command(with(5, size)), 2) << size;
    EXPECT_EQ(Command(with(7, Path("missing.raw"))), 2);
    for (const std::vector<std::string>& extra :
         std::vector<std::vector<std::string>>{{"--src-row-bytes", "31"},
                                               {"--dst-row-bytes", "15"},
                                               {"--path", "fast"},
                                               {"--matrix", "3"},
                                               {"--bogus"}}) {
        auto args = good;
        args.insert(args.end(), extra.begin(), extra.end());
        EXPECT_EQ(Command(args), 2) << extra[0];
    }
    EXPECT_EQ(Command({"--codec", "v210"}), 2);
}

} // namespace
} // namespace qvn_test

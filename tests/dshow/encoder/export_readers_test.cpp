// Whole exports through qvnhost.exe and the module's graph, read back by AVIFile and the AVI splitter,
// which must agree with each other and the export; then seeded runs with a cancel, suspend or failure.
#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "encoders/fourcc.h"
#include "tests/dshow/graph_fixture.h"
#include "tests/dshow/mux/avi_readers.h"

#include <vfw.h>

namespace {

using qvn_test::TempPath;
using ExportReadersTest = qvn_test::GraphTest;

// Runs qvnhost.exe with the arguments; its exit status, or -1 when it did not end within two minutes.
int RunHost(const std::wstring& arguments) {
    return qvn_test::RunProcess(L"\"" + qvn_test::WinePath(QVN_TEST_QVNHOST) + L"\" " + arguments, 120000);
}

// How often a byte pattern occurs.
size_t Count(const std::vector<BYTE>& bytes, std::initializer_list<BYTE> pattern) {
    size_t n = 0;
    for (auto at = bytes.begin();
         (at = std::search(at, bytes.end(), pattern.begin(), pattern.end())) != bytes.end(); ++at)
        ++n;
    return n;
}

// Each code through the module's graph (Motion JPEG and DV through qvnhost.exe's stand-in encoders): the
// stream header's quality, PAL frames for 576 lines, the wide DV fix. Wine's splitter has no media type for
// v210, r210, Motion JPEG or DV video (ffmpeg reads them in windows_matches_native).
struct ExportCase {
    const char* name;
    const wchar_t* options;
    DWORD code, rate, scale;
    LONG frames, width, height;
    WORD channels, bitCount; // bitCount 0: compressed
    DWORD frameBytes;        // 0: Motion JPEG, frames vary
    DWORD quality;           // compressed only
    bool wide, splitter;     // splitter: whether Wine's AVI splitter has a media type for the video
};

class ExportReadersCodeTest : public ExportReadersTest, public ::testing::WithParamInterface<ExportCase> {};

TEST_P(ExportReadersCodeTest, EveryFrameAndSampleReachesThePlatformsReaders) {
    const ExportCase& c = GetParam();
    const std::wstring path = TempPath(L"qvn-readers.avi");
    DeleteFileW(path.c_str());
    ASSERT_EQ(RunHost(L"export " + std::wstring(c.options) + L" --sample-type 16 --frames " +
                      std::to_wstring(c.frames) + L" --out \"" + path + L"\""),
              0);
    const bool compressed = c.bitCount == 0;
    const qvn_test::AviFileRead file = qvn_test::ReadWithAviFile(path);
    ASSERT_EQ(file.openResult, S_OK);
    ASSERT_EQ(file.stream.size(), c.channels != 0 ? 2u : 1u);
    const qvn_test::AviFileStream& video = file.stream[0];
    EXPECT_EQ(std::make_tuple(DWORD{streamtypeVIDEO}, c.rate, c.scale, c.frames),
              std::make_tuple(video.fccType, video.rate, video.scale, video.streamLength));
    if (compressed) {
        EXPECT_EQ(video.quality, c.quality);
        EXPECT_EQ(video.sampleSize, c.frameBytes) << "Motion JPEG frames vary in size";
    }
    ASSERT_GE(video.format.size(), sizeof(BITMAPINFOHEADER));
    const auto* bitmap = reinterpret_cast<const BITMAPINFOHEADER*>(video.format.data());
    EXPECT_EQ(std::make_tuple(c.code, c.width, c.height),
              std::make_tuple(bitmap->biCompression, bitmap->biWidth, bitmap->biHeight));
    EXPECT_TRUE(compressed || bitmap->biBitCount == c.bitCount) << bitmap->biBitCount;
    ASSERT_EQ(video.frames.size(), static_cast<size_t>(c.frames));
    for (size_t i = 0; i < video.frames.size(); ++i) {
        const std::vector<BYTE>& frame = video.frames[i];
        SCOPED_TRACE(testing::Message() << "frame " << i);
        if (c.frameBytes == 0) { // a whole JPEG picture: start and end of image
            ASSERT_GT(frame.size(), 4u);
            EXPECT_TRUE(frame[0] == 0xFF && frame[1] == 0xD8 && frame[frame.size() - 2] == 0xFF &&
                        frame.back() == 0xD9);
            continue;
        }
        ASSERT_EQ(frame.size(), c.frameBytes);
        if (!compressed)
            continue;
        EXPECT_EQ(frame[0], 0x1F) << "a DIF header block first";
        EXPECT_EQ(frame[3] >> 7, c.height == 576 ? 1 : 0) << "the 625-line flag";
        // The fix turns the 4:3 video control packs into 16:9 ones, every one of them.
        EXPECT_EQ(Count(frame, {0xC8, 0xFC, 0xFF}) == 0, c.wide);
        EXPECT_EQ(Count(frame, {0xCF, 0xFD, 0xFF}) != 0, c.wide);
    }
    if (c.channels != 0) {
        const qvn_test::AviFileStream& audio = file.stream[1];
        ASSERT_GE(audio.format.size(), 16u);
        const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(audio.format.data());
        EXPECT_EQ(std::make_tuple(DWORD{streamtypeAUDIO}, c.channels, 48000ul, WORD(c.channels * 2),
                                  size_t{48000} * c.scale * static_cast<size_t>(c.frames) / c.rate *
                                      c.channels * 2),
                  std::make_tuple(audio.fccType, wave->nChannels, wave->nSamplesPerSec, wave->nBlockAlign,
                                  audio.samples.size()));
    }
    // The splitter delivers the same frames, byte for byte, and the same samples.
    const qvn_test::PlaybackRead play = qvn_test::PlayWithAviSplitter(path);
    if (!c.splitter) {
        EXPECT_EQ(play.result, VFW_E_NO_ACCEPTABLE_TYPES) << play.problem;
        return;
    }
    ASSERT_EQ(play.result, S_OK) << play.problem;
    ASSERT_EQ(play.streams.size(), file.stream.size());
    ASSERT_EQ(play.streams[0].samples.size(), static_cast<size_t>(c.frames));
    for (size_t i = 0; i < video.frames.size(); ++i)
        ASSERT_EQ(play.streams[0].samples[i].bytes, video.frames[i]) << "frame " << i;
    if (c.channels != 0) {
        std::vector<BYTE> samples;
        for (const qvn_test::ReceivedSample& s : play.streams[1].samples)
            samples.insert(samples.end(), s.bytes.begin(), s.bytes.end());
        EXPECT_EQ(samples, file.stream[1].samples);
    }
}

// At 29.97, 30 frames hold 30 x 1601.6 = 48048 sample frames exactly.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Codes, ExportReadersCodeTest, ::testing::Values(
    ExportCase{"UYVY_5_1", L"--codec UYVY --size 720x486 --rate 29.97 --audio 5.1", QVN::MakeFourCC("UYVY"),
               30000, 1001, 30, 720, 486, 6, 16, 720 * 486 * 2, 0, false, true},
    ExportCase{"HDYC_stereo", L"--codec HDYC --size 1280x720 --rate 29.97 --audio stereo",
               QVN::MakeFourCC("HDYC"), 30000, 1001, 30, 1280, 720, 2, 16, 1280 * 720 * 2, 0, false, true},
    ExportCase{"v210_no_audio", L"--codec v210 --size 1920x1080 --rate 29.97 --audio none",
               QVN::MakeFourCC("v210"), 30000, 1001, 30, 1920, 1080, 0, 20, 1920 / 48 * 128 * 1080, 0, false,
               false},
    ExportCase{"r210_mono", L"--codec r210 --size 640x360 --rate 29.97 --audio mono", QVN::MakeFourCC("r210"),
               30000, 1001, 30, 640, 360, 1, 30, 640 * 4 * 360, 0, false, false},
    ExportCase{"MJPG_1080_stereo", L"--codec MJPG --size 1920x1080 --rate 29.97 --audio stereo",
               QVN::MakeFourCC("MJPG"), 30000, 1001, 30, 1920, 1080, 2, 0, 0, 9000, false, false},
    ExportCase{"MJPG_480_5_1", L"--codec MJPG --size 720x480 --rate 25 --audio 5.1", QVN::MakeFourCC("MJPG"),
               25, 1, 25, 720, 480, 6, 0, 0, 9800, false, false},
    ExportCase{"dvsd_NTSC", L"--codec dvsd --size 720x480 --rate 29.97 --aspect NTSC --audio none",
               QVN::MakeFourCC("dvsd"), 30000, 1001, 30, 720, 480, 0, 0, 120000, 0, false, false},
    ExportCase{"dvsd_PAL_wide", L"--codec dvsd --size 720x576 --rate 25 --aspect \"PAL wide\" --audio stereo",
               QVN::MakeFourCC("dvsd"), 25, 1, 25, 720, 576, 2, 0, 144000, 0, true, false}),
    [](const ::testing::TestParamInfo<ExportCase>& p) { return std::string(p.param.name); });
// clang-format on

// A frame size the DV encoder does not take: the graph cannot be built, and no file is started.
TEST_F(ExportReadersTest, ADvFrameSizeTheEncoderRefusesStartsNoFile) {
    const std::wstring path = TempPath(L"qvn-readers-refused.avi");
    DeleteFileW(path.c_str());
    EXPECT_EQ(RunHost(L"export --codec dvsd --size 720x486 --frames 5 --out \"" + path + L"\""), 1);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

// Seeded runs through the graph, one event at a random frame each: qvnhost.exe ends with 0 or 1, and a
// file left behind opens with every frame whole.
TEST(ExportThroughTheGraph, CancelSuspendAndRenderFailuresAtRandomFramesEndCleanly) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))); // as the other tests' thread
    std::uint64_t state = 20261125;
    auto next = [&state](std::uint64_t bound) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<LONG>((state >> 33) % bound);
    };
    const wchar_t* options[] = {L"--cancel-at", L"--suspend-at", L"--fail-render-at"};
    const std::wstring path = TempPath(L"qvn-graph-stress.avi");
    for (int run = 0; run < 16; ++run) {
        const int kind = next(3);
        const LONG frames = 20 + next(50);
        const LONG at = next(frames);
        const bool v210 = next(2) != 0;
        SCOPED_TRACE(testing::Message()
                     << "run " << run << ": " << (v210 ? "v210" : "UYVY") << ", "
                     << std::string(options[kind], options[kind] + std::wcslen(options[kind])) << " " << at
                     << " of " << frames);
        DeleteFileW(path.c_str());
        const int status = RunHost(std::wstring(L"export --codec ") + (v210 ? L"v210" : L"UYVY") +
                                   L" --size 96x54 --threads 8 --frames " + std::to_wstring(frames) + L" " +
                                   options[kind] + L" " + std::to_wstring(at) + L" --seed " +
                                   std::to_wstring(run + 1) + L" --out \"" + path + L"\"");
        ASSERT_TRUE(status == 0 || status == 1) << "exit status " << status;
        if (kind == 1) {
            EXPECT_EQ(status, 0) << "a suspended export resumes and finishes";
        }
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
            continue;
        }
        const qvn_test::AviFileRead file = qvn_test::ReadWithAviFile(path);
        ASSERT_EQ(file.openResult, S_OK);
        ASSERT_GE(file.stream.size(), 1u);
        if (kind == 2) {
            // The run stops at the lost frame; closing does not wait for samples on their way, so frames
            // just before it may be missing too, never one after it.
            EXPECT_LE(file.stream[0].streamLength, at);
        } else if (status == 0) {
            EXPECT_EQ(file.stream[0].streamLength, frames);
        } else {
            EXPECT_LE(file.stream[0].streamLength, frames);
        }
        const size_t frameBytes = v210 ? 96 / 48 * 128 * 54 : 96 * 2 * 54;
        for (const std::vector<BYTE>& frame : file.stream[0].frames)
            ASSERT_EQ(frame.size(), frameBytes);
    }
    DeleteFileW(path.c_str());
    CoUninitialize();
}

} // namespace

// Whole exports through the module, read back by ffprobe and ffmpeg: stream layout, frame and sample
// counts, every frame decoded and in order by its stamp, and each audio channel's tone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "host/frame_stamp.h"
#include "host/sequence_audio.h"

namespace qvnhost {
namespace {

const std::string kDir = QVN_TEST_DIR, kHost = QVN_TEST_QVNHOST, kFfmpeg = QVN_TEST_FFMPEG;

// CTest runs the cases of this program as separate processes, side by side: each keeps its scratch files
// under its own name.
std::string Scratch(const std::string& name) {
    return kDir + "/" + testing::UnitTest::GetInstance()->current_test_info()->name() + "." + name;
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs a shell command; answers its exit status, with standard output in *out.
int Shell(const std::string& command, std::string* out = nullptr) {
    const std::string file = Scratch("command.out");
    const int status = std::system((command + " > " + file + " 2> " + Scratch("command.err")).c_str());
    if (out)
        *out = Slurp(file);
    return status;
}
std::string Errors() {
    return Slurp(Scratch("command.err"));
}

std::string Probe(const std::string& file, const std::string& stream, const std::string& entries) {
    std::string out;
    Shell(std::string(QVN_TEST_FFPROBE) + " -v error -select_streams " + stream +
              " -count_packets -show_entries stream=" + entries + " -of default=noprint_wrappers=1 " + file,
          &out);
    return out;
}

// ffmpeg's decoding of a file as raw bytes of the given format.
std::string Decoded(const std::string& file, const std::string& format) {
    const std::string raw = Scratch("decoded");
    EXPECT_EQ(Shell(kFfmpeg + " -v error -y -i " + file + " " + format + " " + raw), 0);
    return Slurp(raw);
}

// The stamps of every decoded frame, in decoding order.
std::vector<std::int64_t> Stamps(const std::string& file, int w, int h) {
    const std::string bytes = Decoded(file, "-f rawvideo -pix_fmt gray");
    std::vector<std::int64_t> stamps;
    const std::size_t size = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
    for (std::size_t at = 0; at + size <= bytes.size(); at += size)
        stamps.push_back(DecodeFrameStamp(reinterpret_cast<const std::uint8_t*>(bytes.data() + at), w, h, w));
    return stamps;
}

std::vector<std::int64_t> Range(std::int64_t first, std::int64_t count) {
    std::vector<std::int64_t> v(static_cast<std::size_t>(count));
    std::iota(v.begin(), v.end(), first);
    return v;
}

std::string Export(const std::string& name, const std::string& options) {
    const std::string file = kDir + "/" + name + ".avi";
    EXPECT_EQ(Shell(kHost + " export --out " + file + " " + options), 0) << options << "\n" << Errors();
    return file;
}

// Every "key=value" must be among ffprobe's lines.
void ExpectProbed(const std::string& probe, const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        EXPECT_NE(probe.find(line + "\n"), std::string::npos) << line << " not in\n" << probe;
}

// Each codec, and each rate the dialog offers at least once (each with its own AVI rate and scale), read
// back with the container's rate; every frame decodes, in order by its stamp.
TEST(ExportEndToEnd, EveryFrameOfEachCodecDecodesInOrderAtEachRate) {
    struct Case {
        const char *name, *options, *codec; // the codec as ffprobe names it
        int width, height;
        std::int64_t first, count;
        const char* rate; // avg_frame_rate: the container's (the DV payload of "dvp7" is a 50 Hz one)
    };
    const Case cases[] = {
        // Longer than one chunk, eight threads, deep frames with padded, misaligned rows.
        {"v210", "--codec v210 --size 256x144 --frames 45 --threads 8 --row-padding 32 --unaligned --seed 3",
         "v210", 256, 144, 0, 45, "30000/1001"},
        {"r210_16u", "--codec r210 --size 192x108 --rate 25 --frames 12 --host-format 16u", "r210", 192, 108,
         0, 12, "25/1"},
        // Shorter than a chunk, starting late.
        {"uyvy", "--codec UYVY --size 160x120 --start-frame 100 --frames 10 --source noise --rate 24",
         "rawvideo", 160, 120, 100, 10, "24/1"},
        {"hdyc", "--codec HDYC --size 320x180 --rate 59.94 --frames 8 --suspend-at 3", "rawvideo", 320, 180,
         0, 8, "60000/1001"},
        {"uyvy30", "--codec UYVY --size 96x54 --rate 30 --frames 3", "rawvideo", 96, 54, 0, 3, "30/1"},
        {"hdyc50", "--codec HDYC --size 96x54 --rate 50 --frames 3", "rawvideo", 96, 54, 0, 3, "50/1"},
        {"v210_60", "--codec v210 --size 96x54 --rate 60 --frames 3", "v210", 96, 54, 0, 3, "60/1"},
        {"dvn5", "--codec dvn5 --frames 6", "dvvideo", 720, 480, 0, 6, "30000/1001"},
        {"dvp5", "--codec dvp5 --frames 3", "dvvideo", 720, 576, 0, 3, "25/1"},
        {"dvn1", "--codec dvn1 --rate 23.976 --frames 3", "dvvideo", 1280, 1080, 0, 3, "24000/1001"},
        {"dvp1", "--codec dvp1 --frames 4 --row-padding 64", "dvvideo", 1440, 1080, 0, 4, "25/1"},
        {"dvn7", "--codec dvn7 --frames 6 --start-frame 1 --row-padding 64", "dvvideo", 960, 720, 1, 6,
         "60000/1001"},
        {"dvp7", "--codec dvp7 --frames 3", "dvvideo", 960, 720, 0, 3, "60000/1001"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string file = Export(c.name, std::string(c.options) + " --audio stereo");
        ExpectProbed(Probe(file, "v:0", "codec_name,width,height,avg_frame_rate,nb_read_packets"),
                     {"codec_name=" + std::string(c.codec), "width=" + std::to_string(c.width),
                      "avg_frame_rate=" + std::string(c.rate), "nb_read_packets=" + std::to_string(c.count)});
        EXPECT_EQ(Stamps(file, c.width, c.height), Range(c.first, c.count));
        std::remove(file.c_str());
    }
}

TEST(ExportEndToEnd, AudioSampleCountsAndTonesPerChannel) {
    struct Case {
        const char* options;
        int channels;
        const char* codec;
        std::size_t samples;
        int rate;
    };
    const Case cases[] = {
        // 31 NTSC frames at 48 kHz: one chunk of 30 frames (48048 sample frames), then one frame, which the
        // exporter's carried rounding makes 1602: 49650.
        {"--audio stereo --sample-type 16 --rate 29.97 --frames 31", 2, "pcm_s16le", 49650, 48000},
        {"--audio mono --sample-type 8 --rate 25 --frames 10", 1, "pcm_u8", 19200, 48000},
        {"--audio 5.1 --sample-type 24 --rate 25 --frames 25", 6, "pcm_s24le", 48000, 48000},
        {"--audio stereo --sample-type 32 --rate 50 --frames 50", 2, "pcm_s32le", 48000, 48000},
        // Float samples in a plain (not 5.1) format are labelled PCM by the writer; their signs still carry
        // the tones.
        {"--audio stereo --sample-type float --rate 25 --frames 25 --no-video", 2, "pcm_s32le", 48000, 48000},
        // 44.1 kHz at 29.97 has 1471.47 sample frames per frame; 300 frames carry exactly 441441.
        {"--audio stereo --sample-type 16 --rate 29.97 --frames 300 --sample-rate 44100", 2, "pcm_s16le",
         441441, 44100},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string file =
            Export("audio" + std::to_string(n++), std::string("--codec UYVY --size 64x48 ") + c.options);
        ExpectProbed(Probe(file, "a:0", "codec_name,channels,sample_rate,nb_read_packets,duration_ts"),
                     {"codec_name=" + std::string(c.codec), "channels=" + std::to_string(c.channels),
                      "sample_rate=" + std::to_string(c.rate)});
        // Each channel's zero crossings per second, from the samples decoded as 32-bit floats.
        const std::string bytes = Decoded(file, "-vn -f f32le");
        const std::size_t frames = bytes.size() / (4 * static_cast<std::size_t>(c.channels));
        EXPECT_EQ(frames, c.samples);
        for (int ch = 0; ch < c.channels; ++ch) {
            int crossings = 0;
            float previous = 0, v = 0;
            for (std::size_t i = 0; i < frames; ++i, previous = v) {
                std::memcpy(&v,
                            bytes.data() +
                                (i * static_cast<std::size_t>(c.channels) + static_cast<std::size_t>(ch)) * 4,
                            4);
                crossings += i > 0 && (previous < 0) != (v < 0);
            }
            const double expected = 2.0 * ToneFrequency(ch);
            EXPECT_NEAR(crossings * c.rate / static_cast<double>(frames), expected, expected * 0.02)
                << "channel " << ch;
        }
    }
}

TEST(ExportEndToEnd, DecodedPicturesMatchTheSourceInEveryCodec) {
    // ffmpeg's colour bars piped in as top-down BGRA, exported, decoded by ffmpeg and compared in RGB with
    // the same bars. Decoding uses the matrix the exporter picks by width (BT.601 up to 720 pixels, BT.709
    // above) and studio range; r210 holds studio-range RGB, so the source is brought to 16..235 for it.
    // Measured: v210 38.3 dB, UYVY 35.2, HDYC 35.9 (4:2:2 chroma across the bars' sharp edges, which ffmpeg
    // upsamples differently), r210 51.7 (rounding only), DVCPRO50 43.4 and DVCPRO HD 43.9-44.8. Decoding with
    // the other matrix costs about 9 dB, and full-range r210 about 26: the floors sit between.
    struct Case {
        const char *codec, *size, *rate, *fps; // qvnhost's rate option, and ffmpeg's
        const char* matrix;                    // "" for r210
        double floor;
    };
    const Case cases[] = {
        {"v210", "1280x720", "29.97", "30000/1001", "bt709", 35.0},
        {"r210", "1280x720", "25", "25", "", 48.0},
        {"UYVY", "720x486", "29.97", "30000/1001", "bt601", 32.0},
        {"HDYC", "1280x720", "59.94", "60000/1001", "bt709", 32.0},
        {"dvn5", "720x480", "29.97", "30000/1001", "bt601", 40.0},
        {"dvp5", "720x576", "25", "25", "bt601", 40.0},
        {"dvn1", "1280x1080", "29.97", "30000/1001", "bt709", 40.0},
        {"dvp1", "1440x1080", "25", "25", "bt709", 40.0},
        {"dvn7", "960x720", "59.94", "60000/1001", "bt709", 40.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.codec);
        const std::string bars = std::string("smptehdbars=size=") + c.size + ":rate=" + c.fps;
        const std::string file = kDir + "/picture_" + c.codec + ".avi";
        ASSERT_EQ(Shell(kFfmpeg + " -v error -f lavfi -i " + bars +
                        " -frames:v 5 -f rawvideo -pix_fmt bgra - | " + kHost + " export --out " + file +
                        " --source raw:- --size " + c.size + " --codec " + c.codec + " --rate " + c.rate +
                        " --frames 5 --audio none"),
                  0)
            << Errors();
        ExpectProbed(Probe(file, "v:0", "nb_read_packets"), {"nb_read_packets=5"});
        std::string size = c.size;
        size[size.find('x')] = ':';
        const std::string studio = "lutrgb=r=val*219/255+16:g=val*219/255+16:b=val*219/255+16";
        const std::string source =
            std::string("[0:v]trim=end_frame=5,format=rgb24") + (*c.matrix ? "" : "," + studio) + "[a]";
        const std::string decoded = *c.matrix ? "[1:v]scale=" + size + ":in_color_matrix=" + c.matrix +
                                                    ":in_range=limited,format=rgb24[b]"
                                              : std::string("[1:v]format=rgb24[b]");
        std::string out;
        Shell(kFfmpeg + " -v info -f lavfi -i " + bars + " -i " + file + " -filter_complex \"" + source +
                  ";" + decoded + ";[a][b]psnr\" -f null - 2>&1 | grep -o 'average:[0-9.inf]*'",
              &out);
        ASSERT_FALSE(out.empty()) << "no PSNR from ffmpeg";
        EXPECT_GT(out.find("inf") != std::string::npos ? 99.0 : std::atof(out.c_str() + 8), c.floor) << out;
        std::remove(file.c_str());
    }
}

TEST(ExportEndToEnd, CancelSuspendAndRenderFailuresAtRandomFramesNeverHangOrLoseTheFile) {
    // Seeded runs on 8 host threads: each injects one event at a random frame. Whatever happens, qvnhost
    // returns (CTest's time-out catches a hang), the module answers what the failure calls for, and the
    // file is closed, consistent and holds a gapless run of frames from the first.
    std::uint64_t state = 20261121;
    auto next = [&state](std::uint64_t bound) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return (state >> 33) % bound;
    };
    const std::string options[] = {"--cancel-at", "--suspend-at", "--fail-render-at"};
    for (int run = 0; run < 12; ++run) {
        const std::size_t kind = next(3);
        const std::uint64_t frames = 20 + next(50), at = next(frames);
        const std::string codec = next(2) ? "v210" : "UYVY", file = kDir + "/stress.avi";
        SCOPED_TRACE("run " + std::to_string(run) + ": " + codec + ", " + options[kind] + " " +
                     std::to_string(at) + " of " + std::to_string(frames));
        const int status =
            Shell(kHost + " export --out " + file + " --codec " + codec +
                  " --size 96x54 --threads 8 --frames " + std::to_string(frames) + " " + options[kind] + " " +
                  std::to_string(at) + " --seed " + std::to_string(run + 1));
        const std::string err = Errors();
        // A cancel answered while the run drains, every frame asked for, comes too late: it finishes. A later
        // progress answer for an earlier frame may clear a render error; either way the run stops at the
        // lost frame.
        const char* failure[] = {"module answered 1 (abort: cancelled)", nullptr,
                                 "module answered 3 (internal error)"};
        EXPECT_TRUE(status == 0 || (failure[kind] && err.find(failure[kind]) != std::string::npos)) << err;
        EXPECT_EQ(Shell(kHost + " inspect " + file), 0) << "the file must be consistent";
        const std::vector<std::int64_t> stamps = Stamps(file, 96, 54);
        EXPECT_EQ(stamps, Range(0, static_cast<std::int64_t>(stamps.size())));
        if (kind == 1 || (kind == 0 && status == 0))
            EXPECT_EQ(stamps.size(), frames);
        else if (kind == 2)
            EXPECT_EQ(stamps.size(), at) << "every frame before the failed one, and none after";
        else
            EXPECT_GE(stamps.size(), at + 1) << "every frame through the cancelled one";
    }
}

#ifdef QVN_ALLOCATION_FAULTS
// The module counts its allocations during an export and fails the nth (platform/allocation_faults.h); one
// export for every n from the first to the last. Each must end with a result of the failure table, or 0 with
// a complete file; no crash, hang or sanitizer report; renderers may stay made after a failure (the host
// tears them down), nothing else may be left over; and a file left behind is readable, consistent and holds
// a gapless run of frames from the first.
void EveryAllocationFailingInTurn(const std::string& options, int width, int height, std::size_t frames) {
    const auto packets = [](const std::string& f) {
        return Probe(f, "v:0", "nb_read_packets") + Probe(f, "a:0", "nb_read_packets");
    };
    const std::string file = Scratch("injected.avi"), run = kHost + " export --out " + file + " " + options;
    std::string out;
    ASSERT_EQ(Shell("QVN_FAIL_ALLOCATION=0 " + run, &out), 0) << Errors();
    const std::string counted = Errors();
    const std::size_t at = counted.find("the export made ");
    ASSERT_NE(at, std::string::npos) << counted;
    const long total = std::atol(counted.c_str() + at + 16);
    ASSERT_GT(total, 50) << "too few allocations seen: is the module built with the switch?";
    const std::string reference = packets(file);
    std::map<std::string, int> results;
    for (long n = 1; n <= total; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(total) + " failing");
        std::remove(file.c_str());
        const int status =
            Shell("QVN_FAIL_ALLOCATION=" + std::to_string(n) + " timeout -s KILL 120 " + run, &out);
        const std::string errors = Errors();
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << "crashed or hung: " << status << errors;
        ASSERT_EQ(errors.find("Sanitizer"), std::string::npos) << errors;
        ASSERT_EQ(errors.find("runtime error"), std::string::npos) << errors;
        const std::size_t r = out.find("result:");
        ASSERT_NE(r, std::string::npos) << out;
        std::string result;
        std::istringstream(out.substr(r + 7)) >> result;
        results[result] += 1;
        ASSERT_TRUE(result == "0" || result == "3" || result == "99" || result == "0x80000002") << out;
        std::istringstream lines(errors);
        for (std::string line; std::getline(lines, line);) {
            if (line.find("not released") != std::string::npos)
                EXPECT_NE(result, "0") << line;
            else if (line.find("never disposed") != std::string::npos ||
                     line.find("not live") != std::string::npos || line.rfind("qvnhost: suite ", 0) == 0)
                ADD_FAILURE() << line;
        }
        if (!std::ifstream(file).good()) {
            EXPECT_NE(result, "0") << "a successful export without its file";
            continue;
        }
        ASSERT_EQ(Shell(std::string(QVN_TEST_FFPROBE) + " -v error " + file), 0) << "unreadable file";
        ASSERT_EQ(Shell(kHost + " inspect " + file), 0) << "inconsistent file";
        // ffmpeg cannot tell a DV stream's format from no frame at all.
        const std::string video = Probe(file, "v:0", "nb_read_packets");
        const bool none = video == "nb_read_packets=N/A\n" || video == "nb_read_packets=0\n";
        const std::vector<std::int64_t> stamps =
            none ? std::vector<std::int64_t>{} : Stamps(file, width, height);
        EXPECT_EQ(stamps, Range(0, static_cast<std::int64_t>(stamps.size()))) << "frames out of place";
        if (result == "0") {
            EXPECT_EQ(stamps.size(), frames);
            EXPECT_EQ(packets(file), reference);
        }
    }
    std::string summary;
    for (const auto& [result, count] : results)
        summary += " " + result + ": " + std::to_string(count);
    std::printf("%ld runs;%s\n", total, summary.c_str());
}

TEST(ExportEndToEnd, EveryAllocationFailingInTurnOnTheDirectPathWithAudio) {
    // More frames than the 30 buffers, and two chunks of audio.
    EveryAllocationFailingInTurn("--codec v210 --size 320x240 --frames 40 --audio stereo", 320, 240, 40);
}

TEST(ExportEndToEnd, EveryAllocationFailingInTurnOnTheDvcproPath) {
    EveryAllocationFailingInTurn("--codec dvn5 --frames 5 --audio 5.1 --sample-type 24", 720, 480, 5);
}
#endif

} // namespace
} // namespace qvnhost

// The render driver against a scripted host, with the run's encoder swapped (through the linker's --wrap of
// QVN::ChooseEncoder) for an AVI encoder that records what it is handed: what each render request asks the
// host for, which converter each pairing of frame format and codec takes, the order of render requests and
// audio, and what the export handler makes of odd settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "converter/converter.h"
#include "encoders/simple_avi_encoder.h"
#include "exporter/codec_catalogue.h"
#include "exporter/encoder_choice.h"
#include "platform/file.h"
#include "scripted_host.h"

namespace {

using QVN::FourCC;
using scripted::kTicksPerSecond;

// What the run handed its encoder.
struct Handed {
    std::mutex mutex;
    std::vector<std::vector<unsigned char>> frames; // in WriteVideo order
    std::vector<std::uint32_t> openedWith;          // has video, has audio, frame limit
    std::uint32_t audioRate = 0, audioWrites = 0;
};
Handed* gHanded = nullptr;

class RecordingEncoder : public CSimpleAviEncoder {
public:
    using CSimpleAviEncoder::CSimpleAviEncoder;
    std::uint32_t Open(std::uint32_t video, std::uint32_t audio, std::uint32_t limit,
                       const wchar_t* path) override {
        gHanded->openedWith = {video, audio, limit};
        return CSimpleAviEncoder::Open(video, audio, limit, path);
    }
    std::uint32_t SetAudioFormat(std::uint16_t channels, std::uint32_t rate, std::uint16_t bits,
                                 std::int16_t tag) override {
        gHanded->audioRate = rate;
        return CSimpleAviEncoder::SetAudioFormat(channels, rate, bits, tag);
    }
    std::uint32_t WriteAudio(const std::uint8_t* samples, std::uint32_t size) override {
        gHanded->audioWrites += 1;
        return CSimpleAviEncoder::WriteAudio(samples, size);
    }
    std::uint32_t EncodeFrame(const void* source, std::uint32_t size, std::uint8_t* destination,
                              std::uint32_t destinationSize) override {
        const auto* bytes = static_cast<const unsigned char*>(source);
        std::unique_lock<std::mutex> hold(gHanded->mutex);
        gHanded->frames.emplace_back(bytes, bytes + size);
        hold.unlock();
        return CSimpleAviEncoder::EncodeFrame(source, size, destination, destinationSize);
    }
};

} // namespace

QVN::EncoderChoice RealChooseEncoder(std::uint32_t, std::int32_t, std::int32_t,
                                     std::int32_t) __asm__("__real__ZN3QVN13ChooseEncoderEjiii");
QVN::EncoderChoice WrappedChooseEncoder(std::uint32_t, std::int32_t, std::int32_t,
                                        std::int32_t) __asm__("__wrap__ZN3QVN13ChooseEncoderEjiii");

// Every code gets the recording encoder, so that the codes only the graph writes (and codes outside the
// catalogue, which would get no frame size at all) reach the driver on this platform too.
QVN::EncoderChoice WrappedChooseEncoder(std::uint32_t codec, std::int32_t width, std::int32_t height,
                                        std::int32_t aspect) {
    QVN::EncoderChoice choice = RealChooseEncoder(codec, width, height, aspect);
    if (choice.output.biSizeImage == 0)
        choice.output.biSizeImage = static_cast<DWORD>(width * height * 4);
    choice.encoder = std::make_unique<RecordingEncoder>(choice.output.biCompression);
    return choice;
}

namespace {

std::uint32_t Code(const char* text) {
    std::uint32_t code = 0;
    std::memcpy(&code, text, 4); // first character in the lowest byte
    return code;
}

constexpr prsdk::PrPixelFormat k8u = prsdk::PrPixelFormat_BGRA_4444_8u;
constexpr prsdk::PrPixelFormat k16u = prsdk::PrPixelFormat_BGRA_4444_16u;
constexpr prsdk::PrPixelFormat k32f = prsdk::PrPixelFormat_BGRA_4444_32f;

class Driver : public testing::Test {
protected:
    void SetUp() override {
        gHanded = &handed;
        script.codec = FourCC("UYVY");
        script.path = std::string("qvn_driver_") +
                      testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
                      std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".avi";
    }
    void TearDown() override {
        QVN::DeleteFileUtf8(script.path.c_str());
        gHanded = nullptr;
    }
    prsdk::int32 Run(std::int32_t first, std::int32_t end, bool video, bool audio) {
        record.emplace(); // a fresh record for each run (it holds atomics, so it is not assigned)
        handed.frames.clear();
        handed.audioWrites = 0;
        return scripted::RunExport(script, first, end, video, audio, &*record);
    }
    scripted::Script script;
    std::optional<scripted::Record> record;
    Handed handed;
};

TEST_F(Driver, EachCodecAsksForItsPixelFormatsAndTheSettingsOfTheExport) {
    struct Case {
        const char* codec;
        std::vector<prsdk::PrPixelFormat> formats;
    };
    const std::vector<prsdk::PrPixelFormat> deep = {k32f, k16u, k8u}, flat = {k8u};
    const Case cases[] = {{"UYVY", flat}, {"HDYC", flat}, {"v210", deep}, {"r210", deep},
                          {"MJPG", flat}, {"dvsd", flat}, {"dvn1", flat}, {"dvp1", flat},
                          {"dvn7", flat}, {"dvp7", flat}, {"dvn5", flat}, {"dvp5", flat}};
    script.fieldType = 2;
    script.aspectNumerator = 40;
    script.aspectDenominator = 33;
    script.width = 48;
    script.height = 6;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.codec);
        script.codec = Code(c.codec);
        // From an odd first frame, so that the 720p field phase shows whether it counts from the first frame.
        ASSERT_EQ(Run(3, 8, true, false), 0);
        ASSERT_EQ(record->renders.size(), 5u);
        for (const scripted::RenderRequest& r : record->renders) {
            const prsdk::SequenceRender_ParamsRec p = r.params;
            EXPECT_EQ(r.formats, c.formats);
            EXPECT_EQ(
                (std::vector<prsdk::int32>{p.inWidth, p.inHeight, p.inPixelAspectRatioNumerator,
                                           p.inPixelAspectRatioDenominator, p.inRenderQuality, p.inFieldType,
                                           p.inDeinterlace, p.inDeinterlaceQuality, p.inCompositeOnBlack}),
                (std::vector<prsdk::int32>{48, 6, 40, 33, prsdk::kPrRenderQuality_High, 2, 0, 0, 1}));
        }
        // The host compresses DVCPRO; the 720p codes with the field phase, 0 and 2 from the first frame on.
        const bool dv = c.codec[0] == 'd' && c.codec[1] == 'v' && c.codec[2] != 's';
        const bool phased = dv && c.codec[3] == '7';
        using Phases = std::vector<std::pair<std::int32_t, std::int32_t>>;
        using Frames = std::vector<std::int32_t>;
        std::sort(record->dvPhases.begin(), record->dvPhases.end());
        std::sort(record->dvScaled.begin(), record->dvScaled.end());
        EXPECT_EQ(record->dvPhases, (phased ? Phases{{3, 0}, {4, 2}, {5, 0}, {6, 2}, {7, 0}} : Phases{}));
        EXPECT_EQ(record->dvScaled, (dv && !phased ? Frames{3, 4, 5, 6, 7} : Frames{}));
    }
}

// Converts frame n as the driver should, on either converter path (which one the buffers' alignment picks
// is the converter's business).
using Entry = std::int32_t (*)(const void*, std::uint32_t, std::uint32_t, void*, std::uint32_t, std::int32_t,
                               std::int32_t, std::uint32_t, std::uint32_t);

std::vector<std::vector<unsigned char>> Expected(Entry entry, std::uint32_t from,
                                                 prsdk::PrPixelFormat delivered, std::int32_t n,
                                                 std::int32_t w, std::int32_t h, std::uint32_t frameBytes,
                                                 bool lastRowFirst = false) {
    std::int32_t rowBytes = 0;
    const std::vector<unsigned char> src = scripted::FramePixels(n, delivered, w, h, &rowBytes);
    std::vector<std::vector<unsigned char>> out;
    for (std::uint32_t path : {QVN::Converter::Video::kPathScalar, QVN::Converter::Video::kPathVector}) {
        std::vector<unsigned char> dst(frameBytes, 0);
        if (entry) {
            entry(src.data(), static_cast<std::uint32_t>(rowBytes), from, dst.data(),
                  frameBytes / static_cast<std::uint32_t>(h), w, h, 0, path);
        } else { // the row copy: rows of width * 4 bytes, source padding left out, from the first row handed
            for (std::int32_t y = 0; y < h; ++y)
                std::memcpy(dst.data() + static_cast<std::size_t>(y * w * 4),
                            src.data() + static_cast<std::size_t>((lastRowFirst ? h - 1 - y : y) * rowBytes),
                            static_cast<std::size_t>(w) * 4);
        }
        out.push_back(dst);
    }
    return out;
}

TEST_F(Driver, EveryPairingOfFrameFormatAndCodecTakesItsConverterOrStops) {
    namespace Video = QVN::Converter::Video;
    const Entry r210 = Video::r210::CreateFrom, v210 = Video::v210::CreateFrom,
                uyvy = Video::uyvy::CreateFrom;
    struct Case {
        const char* delivered; // the host's code, no-alpha variants included
        const char* codec;     // "\0\0\0\0" is code 0
        Entry entry;           // null with a result of 0: the row copy
        std::uint32_t from;    // the format code the converter is given
        prsdk::int32 result;
    };
    const std::uint32_t f32 = Video::kPixelFormatBgra32f, f16 = Video::kPixelFormatBgra16u,
                        f8 = Video::kPixelFormatBgra8u;
    const Case cases[] = {
        {"BGra", "r210", r210, f32, 0},      {"BGrx", "r210", r210, f32, 0},  {"BGra", "v210", v210, f32, 0},
        {"BGrx", "v210", v210, f32, 0},      {"BGra", "UYVY", nullptr, 0, 3}, {"BGrx", "MJPG", nullptr, 0, 3},
        {"Bgra", "r210", r210, f16, 0},      {"Bgrx", "r210", r210, f16, 0},  {"Bgra", "v210", v210, f16, 0},
        {"Bgrx", "v210", v210, f16, 0},      {"Bgra", "HDYC", nullptr, 0, 3}, {"Bgrx", "dvsd", nullptr, 0, 3},
        {"bgra", "UYVY", uyvy, f8, 0},       {"bgrx", "UYVY", uyvy, f8, 0},   {"bgra", "HDYC", uyvy, f8, 0},
        {"bgrx", "HDYC", uyvy, f8, 0},       {"bgra", "r210", r210, f8, 0},   {"bgrx", "r210", r210, f8, 0},
        {"bgra", "v210", v210, f8, 0},       {"bgrx", "v210", v210, f8, 0},   {"bgra", "MJPG", nullptr, 0, 0},
        {"bgrx", "MJPG", nullptr, 0, 0},     {"bgra", "dvsd", nullptr, 0, 0}, {"bgra", "nvsd", nullptr, 0, 0},
        {"bgra", "pvsd", nullptr, 0, 0},     {"bgra", "BGRA", nullptr, 0, 0}, {"bgra", "ARGB", nullptr, 0, 0},
        {"bgra", "\0\0\0\0", nullptr, 0, 0}, {"bgra", "abcd", nullptr, 0, 3}, {"bgrx", "yuv2", nullptr, 0, 3},
        {"yuv2", "v210", nullptr, 0, 6},     {"ARGB", "UYVY", nullptr, 0, 6}, {"bgrA", "r210", nullptr, 0, 6},
    };
    script.width = 56; // rows of 4:2:2 groups and blocks that the width does not fill, 16-byte strides
    script.height = 3;
    script.batch = 1;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.delivered) + " into " + std::string(c.codec, 4));
        script.codec = Code(c.codec);
        script.deliveredFormat = Code(c.delivered);
        ASSERT_EQ(Run(0, 2, true, false), c.result);
        if (c.result != 0) {
            EXPECT_TRUE(handed.frames.empty()) << "no frame reaches the encoder";
            continue;
        }
        ASSERT_EQ(handed.frames.size(), 2u);
        for (std::int32_t n = 0; n < 2; ++n) {
            const std::vector<unsigned char>& got = handed.frames[static_cast<std::size_t>(n)];
            const auto expected = Expected(c.entry, c.from, script.deliveredFormat, n, script.width,
                                           script.height, static_cast<std::uint32_t>(got.size()));
            EXPECT_TRUE(got == expected[0] || got == expected[1]) << "frame " << n;
        }
    }
    // Handed over by its last row with negative row bytes, a frame is copied from that row on.
    script.codec = Code("MJPG");
    script.deliveredFormat = k8u;
    script.lastRowFirst = true;
    ASSERT_EQ(Run(0, 2, true, false), 0);
    ASSERT_EQ(handed.frames.size(), 2u);
    for (std::int32_t n = 0; n < 2; ++n) {
        const std::vector<unsigned char>& got = handed.frames[static_cast<std::size_t>(n)];
        EXPECT_EQ(got, Expected(nullptr, 0, k8u, n, script.width, script.height,
                                static_cast<std::uint32_t>(got.size()), true)[0])
            << "frame " << n;
    }
}

// Collapses the host's calls into runs: render requests of consecutive frames, and the samples of the
// audio fetched between them.
std::vector<std::pair<char, std::int64_t>> Runs(const std::vector<std::pair<char, std::int64_t>>& calls) {
    std::vector<std::pair<char, std::int64_t>> runs;
    std::int64_t nextFrame = -1;
    for (const auto& [kind, value] : calls) {
        if (runs.empty() || runs.back().first != kind)
            runs.emplace_back(kind, 0);
        if (kind == 'v') {
            EXPECT_TRUE(nextFrame < 0 || value == nextFrame) << "frame " << value;
            nextFrame = value + 1;
            runs.back().second += 1;
        } else {
            runs.back().second += value;
        }
    }
    return runs;
}

TEST_F(Driver, EachChunkOfRequestsIsFollowedByItsAudioBeforeTheNextIsAskedFor) {
    using Runs_ = std::vector<std::pair<char, std::int64_t>>;
    // 29.97 fps: a chunk is 30 frames (rounded up), 48048 samples at 48 kHz; 65 frames make 104104.
    script.ticksPerFrame = kTicksPerSecond / 30000 * 1001;
    script.maxBlip = 1000;
    ASSERT_EQ(Run(0, 65, true, true), 0);
    EXPECT_EQ(Runs(record->calls),
              (Runs_{{'v', 30}, {'a', 48048}, {'v', 30}, {'a', 48048}, {'v', 5}, {'a', 8008}}));
    EXPECT_EQ(handed.audioWrites, 3u) << "one block per chunk";
    // 25 fps from frame 10: chunks of 25.
    script.ticksPerFrame = kTicksPerSecond / 25;
    ASSERT_EQ(Run(10, 40, true, true), 0);
    EXPECT_EQ(Runs(record->calls), (Runs_{{'v', 25}, {'a', 48000}, {'v', 5}, {'a', 9600}}));
    EXPECT_EQ(record->calls.front(), std::make_pair('v', std::int64_t{10}));
}

TEST_F(Driver, TheExportHandlerFillsInSizesFromTheSourceAndKeepsAudioRatesWithinTheCardsRange) {
    script.sourceWidth = 40;
    script.sourceHeight = 10;
    struct Size {
        std::int32_t width, height, renderedWidth, renderedHeight;
    };
    for (const Size& s : {Size{0, 8, 40, 8}, Size{64, 0, 64, 10}, Size{0, 0, 40, 10}, Size{64, 8, 64, 8}}) {
        script.width = s.width;
        script.height = s.height;
        ASSERT_EQ(Run(0, 1, true, false), 0) << s.width << "x" << s.height;
        ASSERT_EQ(record->renders.size(), 1u);
        EXPECT_EQ(record->renders[0].params.inWidth, s.renderedWidth);
        EXPECT_EQ(record->renders[0].params.inHeight, s.renderedHeight);
    }
    script.width = 64;
    script.height = 8;
    struct Rate {
        double asked, used;
    };
    for (const Rate& r :
         {Rate{0.0, 48000.0}, Rate{32000.0, 48000.0}, Rate{44099.5, 48000.0}, Rate{44100.0, 44100.0},
          Rate{47999.75, 47999.75}, Rate{48000.0, 48000.0}, Rate{48000.5, 48000.0}, Rate{96000.0, 48000.0}}) {
        script.sampleRate = r.asked;
        ASSERT_EQ(Run(0, 1, false, true), 0) << r.asked;
        EXPECT_EQ(record->audioRendererRate, static_cast<float>(r.used)) << r.asked;
        EXPECT_EQ(handed.audioRate, static_cast<std::uint32_t>(r.used + 0.5)) << r.asked;
    }
}

TEST_F(Driver, AnAudioOnlyExportOpensTheEncoderForItsFramesAndWritesEveryChunksAudio) {
    ASSERT_EQ(Run(5, 65, false, true), 0);
    EXPECT_EQ(handed.openedWith, (std::vector<std::uint32_t>{0, 1, 60}));
    EXPECT_TRUE(record->renders.empty());
    EXPECT_EQ(record->videoRenderersMade, 1);
    EXPECT_EQ(record->videoRenderersReleased, 1);
    EXPECT_EQ(handed.audioWrites, 3u);
    EXPECT_EQ(Runs(record->calls), (std::vector<std::pair<char, std::int64_t>>{{'a', 60 * 1920}}));
}

} // namespace

// The in-graph transforms in graphs made by the platform's filter graph manager: a source of prepared video
// frames -> transform -> recording renderer, compared byte for byte with what each frame must become.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "dshow/dv_post_process.h"
#include "dshow/frame_shift.h"
#include "dshow/sample_grabber_filter.h"
#include "dshow/video_header.h"
#include "encoders/fourcc.h"
#include "tests/dshow/base/graph_test_filters.h"

namespace {

using Bytes = std::vector<BYTE>;
using qvn_test::ReceivedSample;

GUID FourCCSubtype(DWORD fourcc) {
    GUID g = MEDIASUBTYPE_YUY2; // the FourCC template {xxxxxxxx-0000-0010-8000-00AA00389B71}
    g.Data1 = fourcc;
    return g;
}

CMediaType VideoType(const GUID& subtype, DWORD compression, WORD bits, LONG width, LONG height,
                     DWORD image) {
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = qvn_test::kSampleDuration;
    info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, height, 1, bits, compression, image, 0, 0, 0, 0};
    CMediaType mt(&MEDIATYPE_Video);
    mt.SetSubtype(&subtype);
    mt.SetFormatType(&FORMAT_VideoInfo);
    mt.SetFormat(reinterpret_cast<BYTE*>(&info), sizeof(info));
    mt.SetSampleSize(image);
    return mt;
}

CMediaType Uyvy(LONG width, LONG height, DWORD image) {
    const DWORD uyvy = QVN::MakeFourCC("UYVY");
    return VideoType(FourCCSubtype(uyvy), uyvy, 16, width, height, image);
}

// Every line differs from its neighbours and every frame from the others, so a line or frame out of place
// shows.
Bytes Frame(LONG n, LONG bytes, LONG stride) {
    Bytes f(static_cast<size_t>(bytes));
    for (LONG i = 0; i < bytes; ++i)
        f[static_cast<size_t>(i)] = static_cast<BYTE>((i / stride) * 3 + (i % stride) * 7 + n * 11);
    return f;
}

// Records each buffer callback as (time, size, first byte); fails the call numbered failAt (from 0).
struct RecordingSink : IFrameSink {
    HRESULT QueryInterface(const GUID&, void** object) override { return *object = nullptr, E_NOINTERFACE; }
    ULONG AddRef() override { return static_cast<ULONG>(++refs); }
    ULONG Release() override { return static_cast<ULONG>(--refs); }
    HRESULT SampleCB(double, void*) override { return ++sampleCalls, S_OK; }
    HRESULT BufferCB(double time, BYTE* data, LONG size) override {
        calls.emplace_back(time, size, data != nullptr ? data[0] : BYTE{0});
        InterlockedIncrement(&count);
        return static_cast<int>(calls.size()) - 1 == failAt ? E_FAIL : S_OK;
    }
    int refs = 0, sampleCalls = 0, failAt = -1;
    std::vector<std::tuple<double, LONG, BYTE>> calls; // read once the graph has stopped
    volatile LONG count = 0;
};

class TransformFiltersTest : public qvn_test::SourceGraphTest {
protected:
    void SetUp() override {
        SourceGraphTest::SetUp();
        renderer->pin.acceptAny = true;
    }
    // source -> transform -> renderer, in place of the previous transform; the source sends frames in
    // buffers extraBytes larger than the largest.
    void Insert(CTransformFilter* transform, const CMediaType& type, std::vector<Bytes> frames,
                LONG extraBytes = 0) {
        if (current != nullptr) {
            ASSERT_EQ(S_OK, graph->RemoveFilter(current)); // disconnects its pins
        }
        current = Own(transform, L"Transform");
        LONG largest = 1;
        for (const Bytes& f : frames)
            largest = std::max(largest, static_cast<LONG>(f.size()));
        source->stream->type = type;
        source->stream->frames = std::move(frames);
        source->stream->limit = static_cast<LONG>(source->stream->frames.size());
        source->stream->sampleBytes = largest + extraBytes;
        ASSERT_EQ(S_OK, graph->ConnectDirect(source->stream, transform->GetPin(0), nullptr));
        ASSERT_EQ(S_OK, graph->ConnectDirect(transform->GetPin(1), &renderer->pin, nullptr));
    }
    CTransformFilter* current = nullptr;
};

// One line of the format's black. UYVY and HDYC: Cb/Cr 0x80, Y 0x10. v210: 16-byte groups of six pixels,
// three 10-bit fields per little-endian word, Cb Y Cr | Y Cb Y | Cr Y Cb | Y Cr Y, Y 64 and Cb/Cr 512; 720
// pixels fill 120 groups exactly. r210: 720 big-endian words of 2 zero bits and 10-bit R, G, B, all 64, the
// row padded with zeros to 64 pixels. RGB: zeros.
Bytes BlackLine(const std::string& format, LONG stride) {
    Bytes unit;
    if (format == "UYVY" || format == "HDYC") {
        unit = {0x80, 0x10};
    } else if (format == "v210") {
        for (int w = 0; w < 4; ++w) {
            DWORD word = 0;
            for (int c = 0; c < 3; ++c)
                word |= ((w * 3 + c) % 2 == 1 ? 64u : 512u) << (10 * c);
            unit.insert(unit.end(), {BYTE(word), BYTE(word >> 8), BYTE(word >> 16), BYTE(word >> 24)});
        }
    } else if (format == "r210") {
        unit = {0x04, 0x01, 0x00, 0x40};
    }
    Bytes line(static_cast<size_t>(stride));
    const size_t filled = format == "r210" ? 720 * 4 : unit.empty() ? 0 : line.size();
    for (size_t i = 0; i < filled; ++i)
        line[i] = unit[i % unit.size()];
    return line;
}

// NTSC UYVY of 486 lines is cropped to 480, keeping lines 2 to 481, under a smaller type; a 576-line frame of
// any format moves down one line under its format's black, its type unchanged. The base class passes stream
// events on.
TEST_F(TransformFiltersTest, FrameShiftCropsNtsc486To480AndMoves576DownOneLineUnderItsFormatsBlack) {
    HRESULT hr = S_OK;
    CMediaType none;
    CFrameShift* first = new CFrameShift(nullptr, &hr);
    // The output's type is made from the input's: nothing to offer before the input connects.
    EXPECT_EQ(E_UNEXPECTED, first->GetMediaType(0, &none));
    const struct {
        const char* name;
        const char* fourcc; // nullptr: an RGB type
        WORD bits;
        LONG stride;
        LONG lines;
    } cases[] = {
        {"NTSC UYVY", "UYVY", 16, 1440, 486}, {"UYVY", "UYVY", 16, 1440, 576},
        {"HDYC", "HDYC", 16, 1440, 576},      {"v210", "v210", 20, 1920, 576},
        {"r210", "r210", 30, 3072, 576},      {"RGB24", nullptr, 24, 2160, 576},
        {"RGB32", nullptr, 32, 2880, 576},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DWORD compression = c.fourcc != nullptr
                                      ? QVN::MakeFourCC(c.fourcc[0], c.fourcc[1], c.fourcc[2], c.fourcc[3])
                                      : BI_RGB;
        const GUID subtype = c.fourcc != nullptr ? FourCCSubtype(compression)
                             : c.bits == 24      ? MEDIASUBTYPE_RGB24
                                                 : MEDIASUBTYPE_RGB32;
        const LONG bytes = c.stride * c.lines;
        const bool crop = c.lines == 486;
        const LONG outBytes = crop ? c.stride * 480 : bytes;
        const CMediaType in =
            VideoType(subtype, compression, c.bits, 720, c.lines, static_cast<DWORD>(bytes));
        const std::vector<Bytes> frames = {Frame(0, bytes, c.stride), Frame(1, bytes, c.stride)};
        Insert(&c == cases ? first : new CFrameShift(nullptr, &hr), in, frames);
        const CMediaType out = ConnectedType(&renderer->pin);
        EXPECT_TRUE(crop || out == in) << "the type passes unchanged";
        EXPECT_TRUE(IsEqualGUID(MEDIATYPE_Video, *out.Type()) && IsEqualGUID(subtype, *out.Subtype()));
        const BITMAPINFOHEADER* header = VideoBitmapHeader(&out);
        ASSERT_NE(nullptr, header);
        EXPECT_EQ(std::make_tuple(720L, crop ? 480L : c.lines, compression, c.bits,
                                  static_cast<DWORD>(outBytes), static_cast<ULONG>(outBytes)),
                  std::make_tuple(header->biWidth, header->biHeight, header->biCompression,
                                  header->biBitCount, header->biSizeImage, out.GetSampleSize()));
        const auto samples = RunToCompletion();
        ASSERT_EQ(2u, samples.size());
        for (size_t n = 0; n < samples.size(); ++n) {
            SCOPED_TRACE(n);
            const ReceivedSample& s = samples[n];
            // One buffer of the input's image size.
            ASSERT_EQ(std::tuple(outBytes, bytes, static_cast<REFERENCE_TIME>(n) * qvn_test::kSampleDuration),
                      std::tuple(s.actual, s.size, s.start));
            if (crop) {
                EXPECT_EQ(0, std::memcmp(frames[n].data() + 2 * c.stride, s.bytes.data(), 691200));
                continue;
            }
            EXPECT_EQ(BlackLine(c.fourcc != nullptr ? c.fourcc : "RGB", c.stride),
                      Bytes(s.bytes.begin(), s.bytes.begin() + c.stride));
            // Input line k is output line k + 1; the last input line is gone.
            EXPECT_EQ(0, std::memcmp(frames[n].data(), s.bytes.data() + c.stride,
                                     static_cast<size_t>(bytes - c.stride)));
        }
    }
    IPin* found = nullptr;
    ASSERT_EQ(S_OK, current->FindPin(L"Out", &found));
    EXPECT_EQ(current->GetPin(1), found);
    found->Release();
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    IPin* in = current->GetPin(0);
    EXPECT_EQ(S_OK, in->NewSegment(10, 20, 2.0));
    EXPECT_EQ(std::tuple(renderer->pin.CurrentStartTime(), renderer->pin.CurrentStopTime(),
                         renderer->pin.CurrentRate()),
              std::tuple(REFERENCE_TIME{10}, REFERENCE_TIME{20}, 2.0));
    EXPECT_EQ(S_OK, in->BeginFlush());
    EXPECT_TRUE(renderer->pin.IsFlushing());
    EXPECT_EQ(S_OK, in->EndFlush());
    EXPECT_FALSE(renderer->pin.IsFlushing());
}

TEST_F(TransformFiltersTest, DVPostProcessRewritesC8FCFFAndNothingElse) {
    Bytes frame(4000);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<BYTE>(i % 199); // never C8 (200) on its own
    const struct {
        size_t at;
        Bytes before;
        Bytes after;
    } patches[] = {
        {0, {0xC8, 0xFC, 0xFF}, {0xCF, 0xFD, 0xFF}},               // at the very start
        {80, {0xC8, 0xFC, 0xFF}, {0xCF, 0xFD, 0xFF}},              // in the middle
        {200, {0xC8, 0xFC, 0xFE}, {0xC8, 0xFC, 0xFE}},             // last byte differs
        {300, {0xC8, 0xFD, 0xFF}, {0xC8, 0xFD, 0xFF}},             // middle byte differs
        {400, {0xC9, 0xFC, 0xFF}, {0xC9, 0xFC, 0xFF}},             // first byte differs
        {500, {0xC8, 0xC8, 0xFC, 0xFF}, {0xC8, 0xCF, 0xFD, 0xFF}}, // a false start before the match
        {600, {0xC8, 0xFC, 0xFF, 0xC8, 0xFC, 0xFF}, {0xCF, 0xFD, 0xFF, 0xCF, 0xFD, 0xFF}}, // back to back
        {3997, {0xC8, 0xFC, 0xFF}, {0xCF, 0xFD, 0xFF}}, // ending on the last byte
    };
    Bytes expected = frame;
    for (const auto& p : patches) {
        std::copy(p.before.begin(), p.before.end(), frame.begin() + static_cast<long>(p.at));
        std::copy(p.after.begin(), p.after.end(), expected.begin() + static_cast<long>(p.at));
    }
    HRESULT hr = S_OK;
    CDVPostProcess* post = new CDVPostProcess(nullptr, &hr);
    ASSERT_EQ(S_OK, hr);
    Insert(post, VideoType(MEDIASUBTYPE_dvsd, QVN::MakeFourCC("dvsd"), 24, 720, 480, 4000),
           {frame, expected});
    const auto samples = RunToCompletion();
    ASSERT_EQ(2u, samples.size());
    EXPECT_EQ(expected, samples[0].bytes);
    EXPECT_EQ(expected, samples[1].bytes); // a fixed stream stays as it is
}

TEST_F(TransformFiltersTest, SampleGrabberCallsItsSinkWithTheBufferSizeAndTakesOnlyItsType) {
    const CMediaType type = Uyvy(64, 8, 1024);
    std::vector<Bytes> frames;
    for (LONG n = 0; n < 4; ++n)
        frames.push_back(Frame(n, 1024, 128));
    const struct {
        const char* name;
        bool withSink;
        int failAt;
        size_t delivered;
    } cases[] = {{"no sink", false, -1, 4}, {"sink", true, -1, 4}, {"failing sink", true, 1, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HRESULT hr = S_OK;
        CSampleGrabberFilter* grabber = new CSampleGrabberFilter(nullptr, &hr);
        RecordingSink sink;
        sink.failAt = c.failAt;
        ASSERT_EQ(S_OK, grabber->SetAcceptedMediaType(&type));
        ASSERT_EQ(S_OK, grabber->SetSink(&sink, TRUE));
        EXPECT_EQ(1, sink.refs);
        if (!c.withSink) {
            ASSERT_EQ(S_OK, grabber->SetSink(nullptr, FALSE));
            EXPECT_EQ(0, sink.refs);
        }
        Insert(grabber, type, frames, 1000); // buffers larger than the frames
        renderer->pin.Clear();
        source->stream->next = 0;
        // A failing sink stops the branch: the source hears of the failure and delivers no more, and the
        // stream does not complete.
        std::vector<ReceivedSample> samples;
        if (c.failAt < 0) {
            samples = RunToCompletion();
        } else {
            ASSERT_TRUE(SUCCEEDED(control->Run()));
            EXPECT_TRUE(WaitUntil([&] { return sink.count == c.failAt + 1; }));
            Sleep(20); // anything still on its way arrives now
            EXPECT_EQ(S_OK, control->Stop());
            samples = renderer->pin.Samples();
        }
        ASSERT_EQ(c.delivered, samples.size());
        for (size_t n = 0; n < samples.size(); ++n)
            EXPECT_EQ(frames[n], samples[n].bytes);
        const size_t calls = !c.withSink     ? 0
                             : c.failAt >= 0 ? static_cast<size_t>(c.failAt) + 1
                                             : frames.size();
        ASSERT_EQ(calls, sink.calls.size());
        for (size_t n = 0; n < calls; ++n) // the buffer's size, not the frame's
            EXPECT_EQ(std::tuple(static_cast<double>(n) * 0.04, 1024 + 1000, frames[n][0]), sink.calls[n])
                << n;
        EXPECT_EQ(samples[0].size, 1024 + 1000);
        EXPECT_EQ(0, sink.sampleCalls);
        ASSERT_EQ(S_OK, grabber->SetSink(nullptr, FALSE));
        EXPECT_EQ(0, sink.refs);
    }
    // It takes only the type it was given, and none before it is given one.
    const std::pair<CMediaType, HRESULT> types[] = {
        {type, S_OK},
        {Uyvy(66, 8, 1056), VFW_E_TYPE_NOT_ACCEPTED},
        {Uyvy(64, -8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
        {VideoType(type.subtype, QVN::MakeFourCC("HDYC"), 16, 64, 8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
        {VideoType(MEDIASUBTYPE_YUY2, QVN::MakeFourCC("UYVY"), 16, 64, 8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
    };
    HRESULT hr = S_OK;
    CSampleGrabberFilter* grabber = new CSampleGrabberFilter(nullptr, &hr);
    grabber->AddRef();
    EXPECT_EQ(VFW_E_TYPE_NOT_ACCEPTED, grabber->CheckInputType(&type));
    ASSERT_EQ(S_OK, grabber->SetAcceptedMediaType(&type));
    for (const auto& t : types)
        EXPECT_EQ(t.second, grabber->CheckInputType(&t.first)) << &t - types;
    grabber->Release();
}

} // namespace

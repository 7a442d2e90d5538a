// The in-graph transforms in graphs made by the platform's filter graph manager: a source of prepared video
// frames -> transform -> recording renderer, compared byte for byte with what each frame must become.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

#include "dshow/dv_post_process.h"
#include "dshow/frame_shift.h"
#include "dshow/sample_grabber_filter.h"
#include "dshow/video_header.h"
#include "encoders/fourcc.h"
#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/graph_fixture.h"

namespace {

using Bytes = std::vector<BYTE>;
constexpr REFERENCE_TIME kFrameTime = 400000;

GUID FourCCSubtype(DWORD fourcc) {
    GUID g = MEDIASUBTYPE_YUY2; // the FourCC template {xxxxxxxx-0000-0010-8000-00AA00389B71}
    g.Data1 = fourcc;
    return g;
}

CMediaType VideoType(const GUID& subtype, DWORD compression, WORD bits, LONG width, LONG height,
                     DWORD image) {
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = kFrameTime;
    info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, height, 1, bits, compression, image, 0, 0, 0, 0};
    CMediaType mt;
    mt.SetType(&MEDIATYPE_Video);
    mt.SetSubtype(&subtype);
    mt.SetFormatType(&FORMAT_VideoInfo);
    mt.SetFormat(reinterpret_cast<BYTE*>(&info), sizeof(info));
    mt.SetSampleSize(image);
    return mt;
}

// Every line differs from its neighbours and every frame from the others, so a line or frame out of place
// shows.
Bytes Frame(LONG n, LONG bytes, LONG stride) {
    Bytes f(static_cast<size_t>(bytes));
    for (LONG i = 0; i < bytes; ++i) {
        f[static_cast<size_t>(i)] = static_cast<BYTE>((i / stride) * 3 + (i % stride) * 7 + n * 11);
    }
    return f;
}

// Delivers the prepared frames, one frame time apart, in buffers extraBytes larger than the largest frame.
class CFrameStream : public CSourceStream {
public:
    CFrameStream(HRESULT* phr, CSource* filter) : CSourceStream(L"frame stream", phr, filter, L"Out") {}

    CMediaType type;
    std::vector<Bytes> frames;
    LONG extraBytes = 0;
    LONG next = 0;

    HRESULT GetMediaType(CMediaType* mt) override { return mt->Set(type); }
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        LONG largest = 1;
        for (const Bytes& f : frames) {
            largest = std::max(largest, static_cast<LONG>(f.size()));
        }
        ALLOCATOR_PROPERTIES wanted = *request, actual{};
        wanted.cBuffers = std::max(request->cBuffers, 2L);
        wanted.cbBuffer = std::max(request->cbBuffer, largest + extraBytes);
        wanted.cbAlign = std::max(request->cbAlign, 1L);
        const HRESULT hr = allocator->SetProperties(&wanted, &actual);
        return FAILED(hr) ? hr : actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
    }
    HRESULT FillBuffer(IMediaSample* sample) override {
        if (next >= static_cast<LONG>(frames.size())) {
            return S_FALSE;
        }
        const Bytes& f = frames[static_cast<size_t>(next)];
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        std::memcpy(data, f.data(), f.size());
        sample->SetActualDataLength(static_cast<LONG>(f.size()));
        REFERENCE_TIME start = next * kFrameTime, stop = start + kFrameTime;
        sample->SetTime(&start, &stop);
        sample->SetSyncPoint(TRUE);
        ++next;
        return S_OK;
    }
};

class CFrameSource : public CSource {
public:
    explicit CFrameSource(HRESULT* phr) : CSource(L"frame source", nullptr, GUID_NULL, phr) {
        stream = new (std::nothrow) CFrameStream(phr, this); // the filter owns its pin
    }
    CFrameStream* stream;
};

// Records each buffer callback; fails the call numbered failAt (from 0) when set.
struct RecordingSink : IFrameSink {
    HRESULT QueryInterface(const GUID&, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return static_cast<ULONG>(++refs); }
    ULONG Release() override { return static_cast<ULONG>(--refs); }
    HRESULT SampleCB(double, void*) override { return ++sampleCalls, S_OK; }
    HRESULT BufferCB(double time, BYTE* data, LONG size) override {
        calls.push_back({time, size, data != nullptr ? data[0] : BYTE{0}});
        InterlockedIncrement(&count);
        return static_cast<int>(calls.size()) - 1 == failAt ? E_FAIL : S_OK;
    }
    struct Call {
        double time;
        LONG size;
        BYTE first;
    };
    int refs = 0;
    int sampleCalls = 0;
    int failAt = -1;
    std::vector<Call> calls; // read once the graph has stopped
    volatile LONG count = 0;
};

class TransformFiltersTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        NewEnds();
    }
    // The fixture has released the graph by now: only our references are left.
    void ReleaseFilters() override { RemoveAll(false); }

    // A fresh source and renderer in the graph (the previous ones leave it).
    void NewEnds() {
        RemoveAll();
        HRESULT hr = S_OK;
        source = new CFrameSource(&hr);
        renderer = new qvn_test::CRecordingRenderer(&hr);
        ASSERT_EQ(S_OK, hr);
        renderer->pin.acceptAny = true;
        Add(source, L"Source");
        Add(renderer, L"Renderer");
    }
    void Add(CBaseFilter* filter, const wchar_t* name) {
        filter->AddRef();
        added.push_back(filter);
        ASSERT_EQ(S_OK, graph->AddFilter(filter, name));
    }
    void RemoveAll(bool fromGraph = true) {
        for (CBaseFilter* f : added) {
            if (fromGraph) {
                graph->RemoveFilter(f);
            }
            f->Release();
        }
        added.clear();
    }

    // source -> transform -> renderer, with the source's type and frames.
    void Connect(CTransformFilter* transform, const CMediaType& type, std::vector<Bytes> frames) {
        source->stream->type = type;
        source->stream->frames = std::move(frames);
        Add(transform, L"Transform");
        ASSERT_EQ(S_OK, graph->ConnectDirect(source->stream, transform->GetPin(0), nullptr));
        ASSERT_EQ(S_OK, graph->ConnectDirect(transform->GetPin(1), &renderer->pin, nullptr));
    }

    // Runs until the graph completes, or, for a stream that ends without completing, until done() holds.
    template <class Done> std::vector<qvn_test::ReceivedSample> Run(Done done) {
        renderer->pin.Clear();
        source->stream->next = 0;
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        EXPECT_TRUE(WaitUntil(done));
        Sleep(20); // anything still on its way arrives now
        EXPECT_EQ(S_OK, control->Stop());
        return renderer->pin.Samples();
    }
    std::vector<qvn_test::ReceivedSample> Run() {
        renderer->pin.Clear();
        source->stream->next = 0;
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        EXPECT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, nullptr, 10000));
        EXPECT_EQ(S_OK, control->Stop());
        return renderer->pin.Samples();
    }

    CMediaType RendererType() {
        AM_MEDIA_TYPE mt{};
        EXPECT_EQ(S_OK, renderer->pin.ConnectionMediaType(&mt));
        CMediaType copy(mt);
        FreeMediaType(mt);
        return copy;
    }

    CFrameSource* source = nullptr;
    qvn_test::CRecordingRenderer* renderer = nullptr;
    std::vector<CBaseFilter*> added;
};

TEST_F(TransformFiltersTest, FrameShiftCropsNtsc486To480KeepingLines2To481AndOffersTheSmallerType) {
    constexpr LONG kStride = 720 * 2;
    const DWORD uyvy = QVN::MakeFourCC("UYVY");
    HRESULT hr = S_OK;
    CFrameShift* shift = new CFrameShift(nullptr, &hr);
    // The output's type is made from the input's: nothing to offer before the input connects.
    CMediaType none;
    EXPECT_EQ(E_UNEXPECTED, shift->GetMediaType(0, &none));
    std::vector<Bytes> frames;
    for (LONG n = 0; n < 3; ++n) {
        frames.push_back(Frame(n, 699840, kStride));
    }
    Connect(shift, VideoType(FourCCSubtype(uyvy), uyvy, 16, 720, 486, 699840), frames);

    const CMediaType out = RendererType();
    EXPECT_TRUE(IsEqualGUID(MEDIATYPE_Video, *out.Type()));
    EXPECT_TRUE(IsEqualGUID(FourCCSubtype(uyvy), *out.Subtype()));
    const BITMAPINFOHEADER* header = VideoBitmapHeader(&out);
    ASSERT_NE(nullptr, header);
    EXPECT_EQ(720, header->biWidth);
    EXPECT_EQ(480, header->biHeight);
    EXPECT_EQ(uyvy, header->biCompression);
    EXPECT_EQ(16, header->biBitCount);
    EXPECT_EQ(691200u, header->biSizeImage);
    EXPECT_EQ(691200u, out.GetSampleSize());

    const auto samples = Run();
    ASSERT_EQ(3u, samples.size());
    for (size_t n = 0; n < samples.size(); ++n) {
        SCOPED_TRACE(n);
        ASSERT_EQ(691200, samples[n].actual);
        EXPECT_EQ(699840, samples[n].size); // one buffer of the input's image size
        EXPECT_EQ(static_cast<REFERENCE_TIME>(n) * kFrameTime, samples[n].start);
        EXPECT_EQ(0, std::memcmp(frames[n].data() + 2 * kStride, samples[n].bytes.data(), 691200));
    }
}

// One line of each format's black, judged by its components.
struct BlackCase {
    const char* name;
    GUID subtype;
    DWORD compression;
    WORD bits;
    LONG stride;
    void (*expectBlack)(const BYTE* line, LONG stride);
};

void ExpectYuvBlack(const BYTE* line, LONG stride) {
    for (LONG i = 0; i < stride; i += 2) {
        ASSERT_EQ(0x80, line[i]) << "chroma at " << i;
        ASSERT_EQ(0x10, line[i + 1]) << "luma at " << i + 1;
    }
}

// v210: 16-byte groups of six pixels, three 10-bit fields per little-endian word, in the order
// Cb Y Cr | Y Cb Y | Cr Y Cb | Y Cr Y. 720 pixels fill 120 groups exactly.
void ExpectV210Black(const BYTE* line, LONG stride) {
    static const bool isLuma[12] = {false, true, false, true, false, true,
                                    false, true, false, true, false, true};
    for (LONG g = 0; g < stride / 16; ++g) {
        for (int w = 0; w < 4; ++w) {
            DWORD word = 0;
            std::memcpy(&word, line + 16 * g + 4 * w, 4);
            ASSERT_EQ(0u, word >> 30) << "group " << g;
            for (int c = 0; c < 3; ++c) {
                const DWORD value = (word >> (10 * c)) & 1023;
                ASSERT_EQ(isLuma[w * 3 + c] ? 64u : 512u, value)
                    << "group " << g << " word " << w << " field " << c;
            }
        }
    }
}

// r210: 720 big-endian words of 2 zero bits and 10-bit R, G, B, all 64 (bytes 04 01 00 40); the row is
// padded to 64 pixels, and the padding stays zero.
void ExpectR210Black(const BYTE* line, LONG stride) {
    const BYTE black[4] = {0x04, 0x01, 0x00, 0x40};
    for (LONG i = 0; i < 720 * 4; ++i) {
        ASSERT_EQ(black[i % 4], line[i]) << "byte " << i;
    }
    for (LONG i = 720 * 4; i < stride; ++i) {
        ASSERT_EQ(0, line[i]) << "padding byte " << i;
    }
}

void ExpectZero(const BYTE* line, LONG stride) {
    for (LONG i = 0; i < stride; ++i) {
        ASSERT_EQ(0, line[i]) << "byte " << i;
    }
}

TEST_F(TransformFiltersTest, FrameShiftMovesA576LineFrameDownOneLineUnderItsFormatsBlack) {
    const BlackCase cases[] = {
        {"UYVY", FourCCSubtype(QVN::MakeFourCC("UYVY")), QVN::MakeFourCC("UYVY"), 16, 1440, ExpectYuvBlack},
        {"HDYC", FourCCSubtype(QVN::MakeFourCC("HDYC")), QVN::MakeFourCC("HDYC"), 16, 1440, ExpectYuvBlack},
        {"v210", FourCCSubtype(QVN::MakeFourCC("v210")), QVN::MakeFourCC("v210"), 20, 1920, ExpectV210Black},
        {"r210", FourCCSubtype(QVN::MakeFourCC("r210")), QVN::MakeFourCC("r210"), 30, 3072, ExpectR210Black},
        {"RGB24", MEDIASUBTYPE_RGB24, BI_RGB, 24, 2160, ExpectZero},
        {"RGB32", MEDIASUBTYPE_RGB32, BI_RGB, 32, 2880, ExpectZero},
    };
    for (const BlackCase& c : cases) {
        SCOPED_TRACE(c.name);
        NewEnds();
        const LONG bytes = c.stride * 576;
        HRESULT hr = S_OK;
        CFrameShift* shift = new CFrameShift(nullptr, &hr);
        std::vector<Bytes> frames = {Frame(0, bytes, c.stride), Frame(1, bytes, c.stride)};
        Connect(shift, VideoType(c.subtype, c.compression, c.bits, 720, 576, static_cast<DWORD>(bytes)),
                frames);
        // The type passes unchanged.
        EXPECT_TRUE(RendererType() == source->stream->type);

        const auto samples = Run();
        ASSERT_EQ(2u, samples.size());
        for (size_t n = 0; n < samples.size(); ++n) {
            SCOPED_TRACE(n);
            ASSERT_EQ(bytes, samples[n].actual);
            const BYTE* out = samples[n].bytes.data();
            c.expectBlack(out, c.stride);
            // Input line k is output line k + 1; the last input line is gone.
            EXPECT_EQ(0,
                      std::memcmp(frames[n].data(), out + c.stride, static_cast<size_t>(bytes - c.stride)));
        }
        ASSERT_EQ(S_OK, control->Stop());
    }
}

TEST_F(TransformFiltersTest, DVPostProcessRewritesC8FCFFAndNothingElse) {
    Bytes frame(4000);
    for (size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<BYTE>(i % 199); // never C8 (200) on its own
    }
    struct Patch {
        size_t at;
        Bytes before;
        Bytes after;
    };
    const Patch patches[] = {
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
    for (const Patch& p : patches) {
        std::copy(p.before.begin(), p.before.end(), frame.begin() + static_cast<long>(p.at));
        std::copy(p.after.begin(), p.after.end(), expected.begin() + static_cast<long>(p.at));
    }
    HRESULT hr = S_OK;
    CDVPostProcess* post = new CDVPostProcess(nullptr, &hr);
    ASSERT_EQ(S_OK, hr);
    const CMediaType dv = VideoType(MEDIASUBTYPE_dvsd, QVN::MakeFourCC("dvsd"), 24, 720, 480, 4000);
    Connect(post, dv, {frame, expected});

    const auto samples = Run();
    ASSERT_EQ(2u, samples.size());
    ASSERT_EQ(expected.size(), samples[0].bytes.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i], samples[0].bytes[i]) << "byte " << i;
    }
    EXPECT_EQ(expected, samples[1].bytes); // a fixed stream stays as it is
}

TEST_F(TransformFiltersTest, SampleGrabberCallsItsSinkWithTheBufferSizeAndPassesFramesWithoutOne) {
    const DWORD uyvy = QVN::MakeFourCC("UYVY");
    const CMediaType type = VideoType(FourCCSubtype(uyvy), uyvy, 16, 64, 8, 64 * 2 * 8);
    std::vector<Bytes> frames;
    for (LONG n = 0; n < 4; ++n) {
        frames.push_back(Frame(n, 64 * 2 * 8, 128));
    }
    struct Case {
        const char* name;
        bool withSink;
        int failAt;
        size_t delivered;
    };
    const Case cases[] = {{"no sink", false, -1, 4}, {"sink", true, -1, 4}, {"failing sink", true, 1, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        NewEnds();
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
        source->stream->extraBytes = 1000; // buffers larger than the frames
        Connect(grabber, type, frames);
        // A failing sink stops the branch: the source hears of the failure and delivers no more.
        const auto samples = c.failAt < 0 ? Run() : Run([&] { return sink.count == c.failAt + 1; });
        ASSERT_EQ(c.delivered, samples.size());
        for (size_t n = 0; n < samples.size(); ++n) {
            EXPECT_EQ(frames[n], samples[n].bytes);
        }
        if (!c.withSink) {
            EXPECT_TRUE(sink.calls.empty());
            continue;
        }
        const size_t calls = c.failAt >= 0 ? static_cast<size_t>(c.failAt) + 1 : frames.size();
        ASSERT_EQ(calls, sink.calls.size());
        for (size_t n = 0; n < calls; ++n) {
            SCOPED_TRACE(n);
            EXPECT_DOUBLE_EQ(static_cast<double>(n) * 0.04, sink.calls[n].time);
            EXPECT_EQ(samples[0].size, sink.calls[n].size); // the buffer's size, not the frame's
            EXPECT_EQ(64 * 2 * 8 + 1000, sink.calls[n].size);
            EXPECT_EQ(frames[n][0], sink.calls[n].first);
        }
        EXPECT_EQ(0, sink.sampleCalls);
        ASSERT_EQ(S_OK, grabber->SetSink(nullptr, FALSE));
        EXPECT_EQ(0, sink.refs);
    }
}

TEST_F(TransformFiltersTest, SampleGrabberTakesOnlyTheTypeItWasGiven) {
    const DWORD uyvy = QVN::MakeFourCC("UYVY");
    const CMediaType accepted = VideoType(FourCCSubtype(uyvy), uyvy, 16, 64, 8, 1024);
    const std::pair<CMediaType, HRESULT> cases[] = {
        {accepted, S_OK},
        {VideoType(FourCCSubtype(uyvy), uyvy, 16, 66, 8, 1056), VFW_E_TYPE_NOT_ACCEPTED},
        {VideoType(FourCCSubtype(uyvy), uyvy, 16, 64, -8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
        {VideoType(FourCCSubtype(uyvy), QVN::MakeFourCC("HDYC"), 16, 64, 8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
        {VideoType(MEDIASUBTYPE_YUY2, uyvy, 16, 64, 8, 1024), VFW_E_TYPE_NOT_ACCEPTED},
    };
    HRESULT hr = S_OK;
    CSampleGrabberFilter* grabber = new CSampleGrabberFilter(nullptr, &hr);
    grabber->AddRef();
    EXPECT_EQ(VFW_E_TYPE_NOT_ACCEPTED, grabber->CheckInputType(&accepted)); // nothing set yet
    ASSERT_EQ(S_OK, grabber->SetAcceptedMediaType(&accepted));
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].second, grabber->CheckInputType(&cases[i].first)) << "case " << i;
    }
    grabber->Release();
}

} // namespace

// The Smart Tee stand-in, created through its registration by class identifier, in graphs made by the
// platform's filter graph manager: our video source into it, "Capture" and "Preview" into recording
// renderers or the platform's Null Renderer.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/video_source.h"
#include "host/dshow_standins/smart_tee_standin.h"
#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/graph_fixture.h"
#include "tests/dshow/mux/avi_readers.h"
#include "tests/dshow/push_helpers.h"

// In the platform's import library, declared in no header.
extern "C" const CLSID CLSID_NullRenderer;

namespace {

using qvn_test::Query;
using qvn_test::ReceivedSample;

constexpr REFERENCE_TIME kFrame = 333667;
constexpr LONG kWidth = 64;
constexpr LONG kHeight = 8;
constexpr DWORD kFrameBytes = kWidth * kHeight * 2;
constexpr int kFrames = 300;

BYTE FrameByte(int k, DWORD i) {
    return static_cast<BYTE>(k * 31 + static_cast<int>(i));
}

DWORD FillFrame(int k, BYTE* buffer) {
    for (DWORD i = 0; i < kFrameBytes; ++i)
        buffer[i] = FrameByte(k, i);
    return kFrameBytes;
}

class SmartTeeTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        // Under Wine the platform's Smart Tee has no stream control, so the check alone registers ours.
        ASSERT_EQ(S_OK, registration_.Register(false));
        const LONG before = CBaseObject::ObjectsActive();
        ASSERT_EQ(S_OK, CoCreateInstance(qvn_standins::kClsidSmartTee, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IBaseFilter, reinterpret_cast<void**>(&tee)));
        ASSERT_GT(CBaseObject::ObjectsActive(), before) << "the class identifier creates the stand-in";
        HRESULT hr = S_OK;
        video = new CVideoSource(&hr);
        video->AddRef();
        for (qvn_test::CRecordingRenderer** recorder : {&capture, &preview}) {
            *recorder = new qvn_test::CRecordingRenderer(&hr);
            (*recorder)->AddRef();
            (*recorder)->pin.acceptAny = true;
        }
        ASSERT_EQ(S_OK, hr);
        IMediaFilter* clock = Query<IMediaFilter>(graph, IID_IMediaFilter);
        ASSERT_EQ(S_OK, clock->SetSyncSource(nullptr)); // no clock: samples flow as fast as they are taken
        clock->Release();
        ASSERT_EQ(S_OK, graph->AddFilter(video, L"Video Frame Source"));
        ASSERT_EQ(S_OK, graph->AddFilter(tee, L"Smart Tee"));
        ASSERT_EQ(S_OK, graph->AddFilter(capture, L"Capture recorder"));
        ASSERT_EQ(S_OK, graph->AddFilter(preview, L"Preview recorder"));
        const CMediaType type = qvn_test::UyvyType(kWidth, kHeight, kFrame);
        ASSERT_EQ(S_OK, video->Pin()->SetStreamMediaType(&type));
        // Few producer buffers, as in an export: a tee that keeps or skips one shows at once.
        IAMBufferNegotiation* negotiation =
            Query<IAMBufferNegotiation>(static_cast<IPin*>(video->Pin()), IID_IAMBufferNegotiation);
        ALLOCATOR_PROPERTIES suggestion{4, -1, -1, -1};
        ASSERT_EQ(S_OK, negotiation->SuggestAllocatorProperties(&suggestion));
        negotiation->Release();
        ASSERT_EQ(S_OK, tee->FindPin(L"Input", &input));
        ASSERT_EQ(S_OK, tee->FindPin(L"Capture", &captureOut));
        ASSERT_EQ(S_OK, tee->FindPin(L"Preview", &previewOut));
    }

    void ReleaseFilters() override {
        for (IUnknown* object : {static_cast<IUnknown*>(input), static_cast<IUnknown*>(captureOut),
                                 static_cast<IUnknown*>(previewOut), static_cast<IUnknown*>(tee),
                                 static_cast<IUnknown*>(static_cast<IBaseFilter*>(video)),
                                 static_cast<IUnknown*>(static_cast<IBaseFilter*>(capture)),
                                 static_cast<IUnknown*>(static_cast<IBaseFilter*>(preview)),
                                 static_cast<IUnknown*>(nullRenderer)})
            if (object != nullptr)
                object->Release();
        EXPECT_EQ(S_OK, registration_.Revoke());
    }

    void ConnectSourceAndCapture() {
        ASSERT_EQ(S_OK, graph->ConnectDirect(video->Pin(), input, nullptr));
        ASSERT_EQ(S_OK, graph->ConnectDirect(captureOut, &capture->pin, nullptr));
    }

    // Runs the graph over kFrames frames until completion; answers the buffers the producer holds.
    std::vector<void*> RunFrames() {
        EXPECT_EQ(S_OK, video->Pin()->AllocateBuffers());
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        std::vector<void*> left = qvn_test::Produce(video->Pin(), kFrames, FillFrame, 5);
        EXPECT_TRUE(WaitForEvent(EC_COMPLETE)) << "both branches end";
        EXPECT_EQ(S_OK, control->Stop());
        return left;
    }

    // Every frame in [0, count) reached Capture as it left the source: in order, stamped, byte for byte.
    void ExpectCaptured(int count) {
        const std::vector<ReceivedSample> samples = capture->pin.Samples();
        ASSERT_EQ(static_cast<size_t>(count), samples.size());
        for (int k = 0; k < count; ++k) {
            const ReceivedSample& s = samples[static_cast<size_t>(k)];
            ASSERT_EQ(k * kFrame, s.start) << "frame " << k;
            ASSERT_EQ((k + 1) * kFrame, s.stop) << "frame " << k;
            ASSERT_EQ(static_cast<LONG>(kFrameBytes), s.actual);
            ASSERT_EQ(FrameByte(k, 0), s.bytes[0]) << "frame " << k;
            ASSERT_EQ(FrameByte(k, kFrameBytes - 1), s.bytes.back()) << "frame " << k;
        }
    }

    // Every producer buffer is back with the producer, each once.
    void ExpectPoolReturned(std::vector<void*> free) {
        std::vector<void*> pool;
        ASSERT_EQ(S_OK, video->Pin()->GetFreeBuffers(pool));
        ASSERT_EQ(S_OK, video->Pin()->ReclaimBuffers(free));
        std::sort(pool.begin(), pool.end());
        std::sort(free.begin(), free.end());
        EXPECT_EQ(pool, free);
    }

    qvn_standins::SmartTeeStandInRegistration registration_;
    IBaseFilter* tee = nullptr;
    IPin* input = nullptr;
    IPin* captureOut = nullptr;
    IPin* previewOut = nullptr;
    CVideoSource* video = nullptr;
    qvn_test::CRecordingRenderer* capture = nullptr;
    qvn_test::CRecordingRenderer* preview = nullptr;
    IBaseFilter* nullRenderer = nullptr;
};

// The preview's peer: quick, slow, keeping every sample (so the preview's buffers run out), or the
// platform's Null Renderer. None of them may cost Capture a frame.
struct PreviewCase {
    const char* name;
    unsigned delayMs;
    bool hold;
    bool platformNull;
};

class SmartTeeBranches : public SmartTeeTest, public ::testing::WithParamInterface<PreviewCase> {};

TEST_P(SmartTeeBranches, CaptureGetsEveryFramePreviewGetsUnstampedCopiesAndBuffersComeBack) {
    const PreviewCase& c = GetParam();
    ConnectSourceAndCapture();
    if (c.platformNull) {
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&nullRenderer)));
        ASSERT_EQ(S_OK, graph->AddFilter(nullRenderer, L"Null Renderer"));
        IPin* in = qvn_test::FirstPin(nullRenderer, PINDIR_INPUT);
        ASSERT_NE(nullptr, in);
        EXPECT_EQ(S_OK, graph->ConnectDirect(previewOut, in, nullptr));
        in->Release();
    } else {
        ASSERT_EQ(S_OK, graph->ConnectDirect(previewOut, &preview->pin, nullptr));
    }
    preview->pin.maxDelayMs = c.delayMs;
    preview->pin.holdSamples = c.hold;

    const std::vector<void*> left = RunFrames();
    preview->pin.ReleaseHeld();
    ExpectCaptured(kFrames);
    EXPECT_EQ(1, capture->pin.endOfStreams);
    ExpectPoolReturned(left);
    if (c.platformNull)
        return;

    // The preview: unstamped copies of source frames, in order, some perhaps left out.
    const std::vector<ReceivedSample> shown = preview->pin.Samples();
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(1, preview->pin.endOfStreams) << "after the last preview sample";
    int last = -1;
    for (const ReceivedSample& s : shown) {
        EXPECT_EQ(0u, s.flags & (AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID)) << "no stamps on the preview";
        ASSERT_EQ(static_cast<LONG>(kFrameBytes), s.actual);
        int k = last + 1;
        while (k < kFrames && s.bytes[0] != FrameByte(k, 0))
            ++k;
        ASSERT_LT(k, kFrames) << "a preview frame out of order or not from the source";
        ASSERT_EQ(FrameByte(k, kFrameBytes - 1), s.bytes.back());
        last = k;
    }
    if (c.hold) {
        EXPECT_LT(shown.size(), static_cast<size_t>(kFrames)) << "a stuck preview runs out of buffers";
    }
}

INSTANTIATE_TEST_SUITE_P(Preview, SmartTeeBranches,
                         ::testing::Values(PreviewCase{"Quick", 0, false, false},
                                           PreviewCase{"Slow", 3, false, false},
                                           PreviewCase{"Stuck", 0, true, false},
                                           PreviewCase{"PlatformNullRenderer", 0, false, true}),
                         [](const ::testing::TestParamInfo<PreviewCase>& param) { return param.param.name; });

TEST_F(SmartTeeTest, StopAtOnBothOutputsEndsBothStreamsAtTheStopTime) {
    ConnectSourceAndCapture();
    ASSERT_EQ(S_OK, graph->ConnectDirect(previewOut, &preview->pin, nullptr));
    constexpr int kKept = 100;
    const REFERENCE_TIME stop = kKept * kFrame - 1; // inside frame kKept - 1: the last one that goes
    for (IPin* pin : {captureOut, previewOut}) {
        IAMStreamControl* gate = Query<IAMStreamControl>(pin, IID_IAMStreamControl);
        ASSERT_NE(gate, nullptr);
        ASSERT_EQ(S_OK, gate->StopAt(&stop, FALSE, pin == captureOut ? 7 : 0));
        gate->Release();
    }
    preview->pin.maxDelayMs = 1;
    const std::vector<void*> left = RunFrames();
    ExpectCaptured(kKept);
    EXPECT_EQ(1, capture->pin.endOfStreams) << "the end of stream still goes through";
    ExpectPoolReturned(left);
    // The preview's copies carry no stamps, so their bytes tell that none came from after the stop.
    for (const ReceivedSample& s : preview->pin.Samples()) {
        bool early = false;
        for (int k = 0; k < kKept && !early; ++k)
            early = s.bytes[0] == FrameByte(k, 0) && s.bytes[1] == FrameByte(k, 1);
        ASSERT_TRUE(early) << "a preview frame from after the stop";
    }
}

TEST_F(SmartTeeTest, PinsConnectInOrderAndStreamNotificationsReachBothOutputs) {
    // An output has no type to offer before the input is connected.
    EXPECT_TRUE(FAILED(graph->ConnectDirect(captureOut, &capture->pin, nullptr)));
    ConnectSourceAndCapture();
    ASSERT_EQ(S_OK, graph->ConnectDirect(previewOut, &preview->pin, nullptr));
    AM_MEDIA_TYPE in{}, out{};
    ASSERT_EQ(S_OK, input->ConnectionMediaType(&in));
    ASSERT_EQ(S_OK, previewOut->ConnectionMediaType(&out));
    EXPECT_TRUE(CMediaType(in) == CMediaType(out)) << "the outputs carry the input's type";
    FreeMediaType(in);
    FreeMediaType(out);

    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    ASSERT_EQ(S_OK, input->NewSegment(10, 20, 1.0));
    ASSERT_EQ(S_OK, input->BeginFlush());
    ASSERT_EQ(S_OK, input->EndFlush());
    ASSERT_EQ(S_OK, input->EndOfStream());
    ASSERT_TRUE(WaitUntil([&] { return preview->pin.endOfStreams == 1; }));
    for (qvn_test::CRecordingRenderer* r : {capture, preview}) {
        EXPECT_EQ(10, r->pin.CurrentStartTime());
        EXPECT_EQ(20, r->pin.CurrentStopTime());
        EXPECT_EQ(1, r->pin.endOfStreams);
        EXPECT_FALSE(r->pin.IsFlushing()) << "the flush ended on both";
    }
}

TEST(SmartTeeRegistration, TheCheckPicksTheStandInUnderWineAndForcingRegistersIt) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    EXPECT_FALSE(qvn_standins::PlatformSmartTeeControlsStreams())
        << "Wine's Capture pin has no stream control";
    {
        qvn_standins::SmartTeeStandInRegistration forced;
        ASSERT_EQ(S_OK, forced.Register(true));
        EXPECT_TRUE(qvn_standins::PlatformSmartTeeControlsStreams()) << "the class identifier now makes ours";
        EXPECT_EQ(S_OK, forced.Register(false)) << "already registered";
        EXPECT_EQ(S_OK, forced.Revoke());
        EXPECT_FALSE(forced.Registered());
    }
    EXPECT_FALSE(qvn_standins::PlatformSmartTeeControlsStreams()) << "revoked: the platform's again";
    CoUninitialize();
}

} // namespace

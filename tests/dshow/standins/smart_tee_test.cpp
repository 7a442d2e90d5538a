// The Smart Tee stand-in, made by class identifier, in real graphs: our video source into it, "Capture"
// and "Preview" into recording renderers or the platform's Null Renderer.
#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/video_source.h"
#include "host/dshow_standins/file_writer_standin.h"
#include "host/dshow_standins/smart_tee_standin.h"
#include "tests/dshow/base/graph_test_filters.h"
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

class SmartTeeTest : public qvn_test::OwningGraphTest {
protected:
    void SetUp() override {
        OwningGraphTest::SetUp();
        // Under Wine the platform's Smart Tee has no stream control, so the check alone registers ours.
        ASSERT_EQ(S_OK, registration_.Register(false));
        const LONG before = CBaseObject::ObjectsActive();
        ASSERT_EQ(S_OK, CoCreateInstance(qvn_standins::kClsidSmartTee, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IBaseFilter, reinterpret_cast<void**>(&tee)));
        ASSERT_GT(CBaseObject::ObjectsActive(), before) << "the class identifier creates the stand-in";
        IMediaFilter* clock = Query<IMediaFilter>(graph, IID_IMediaFilter);
        ASSERT_EQ(S_OK, clock->SetSyncSource(nullptr)); // no clock: samples flow as fast as they are taken
        clock->Release();
        HRESULT hr = S_OK;
        video = Own(new CVideoSource(&hr), L"Video Frame Source");
        Own(tee, L"Smart Tee")->Release();
        capture = Own(new qvn_test::CRecordingRenderer(&hr), L"Capture recorder");
        preview = Own(new qvn_test::CRecordingRenderer(&hr), L"Preview recorder");
        ASSERT_EQ(S_OK, hr);
        capture->pin.acceptAny = preview->pin.acceptAny = true;
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
        for (IPin* pin : {input, captureOut, previewOut})
            if (pin != nullptr)
                pin->Release();
        OwningGraphTest::ReleaseFilters();
        EXPECT_EQ(S_OK, registration_.Revoke());
    }

    void ConnectSourceAndCapture() {
        ASSERT_EQ(S_OK, graph->ConnectDirect(video->Pin(), input, nullptr));
        ASSERT_EQ(S_OK, graph->ConnectDirect(captureOut, &capture->pin, nullptr));
    }

    // Runs kFrames frames to completion. Capture got frames [0, kept) as they left the source (in order,
    // stamped, byte for byte) and one end of stream, and every producer buffer came back, each once.
    void RunFrames(int kept) {
        EXPECT_EQ(S_OK, video->Pin()->AllocateBuffers());
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        std::vector<void*> free = qvn_test::Produce(video->Pin(), kFrames, FillFrame, 5), pool;
        EXPECT_TRUE(WaitForEvent(EC_COMPLETE)) << "both branches end";
        EXPECT_EQ(S_OK, control->Stop());
        preview->pin.ReleaseHeld();
        const std::vector<ReceivedSample> samples = capture->pin.Samples();
        ASSERT_EQ(static_cast<size_t>(kept), samples.size());
        for (int k = 0; k < kept; ++k) {
            const ReceivedSample& s = samples[static_cast<size_t>(k)];
            ASSERT_EQ(std::make_tuple(k * kFrame, (k + 1) * kFrame, static_cast<LONG>(kFrameBytes)),
                      std::make_tuple(s.start, s.stop, s.actual))
                << "frame " << k;
            ASSERT_EQ(FrameByte(k, 0), s.bytes[0]) << "frame " << k;
            ASSERT_EQ(FrameByte(k, kFrameBytes - 1), s.bytes.back()) << "frame " << k;
        }
        EXPECT_EQ(1, capture->pin.endOfStreams);
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
};

// The preview's peer: quick, slow, keeping every sample (its buffers run out), or the platform's Null
// Renderer; none may cost Capture a frame. A stop time on both outputs ends both streams there.
struct PreviewCase {
    const char* name;
    unsigned delayMs;
    bool hold, platformNull;
    int kept; // frames up to the stop time (kFrames: no stop time)
};

class SmartTeeBranches : public SmartTeeTest, public ::testing::WithParamInterface<PreviewCase> {};

TEST_P(SmartTeeBranches, CaptureGetsEveryFramePreviewGetsUnstampedCopiesAndBuffersComeBack) {
    const PreviewCase& c = GetParam();
    ConnectSourceAndCapture();
    if (c.platformNull) {
        IBaseFilter* made = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&made)));
        IPin* in = qvn_test::FirstPin(Own(made, L"Null Renderer"), PINDIR_INPUT);
        made->Release();
        EXPECT_EQ(S_OK, graph->ConnectDirect(previewOut, in, nullptr));
        in->Release();
    } else {
        ASSERT_EQ(S_OK, graph->ConnectDirect(previewOut, &preview->pin, nullptr));
    }
    preview->pin.maxDelayMs = c.delayMs;
    preview->pin.holdSamples = c.hold;
    const REFERENCE_TIME stop = c.kept * kFrame - 1; // inside frame kept - 1: the last one that goes
    for (IPin* pin : {captureOut, previewOut}) {
        IAMStreamControl* gate = Query<IAMStreamControl>(pin, IID_IAMStreamControl);
        ASSERT_NE(gate, nullptr);
        if (c.kept < kFrames) {
            ASSERT_EQ(S_OK, gate->StopAt(&stop, FALSE, 0));
        }
        gate->Release();
    }
    RunFrames(c.kept); // the end of stream still goes through
    if (c.platformNull)
        return;

    // The preview: unstamped copies of source frames before the stop, in order, some perhaps left out.
    const std::vector<ReceivedSample> shown = preview->pin.Samples();
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(1, preview->pin.endOfStreams) << "after the last preview sample";
    int last = -1;
    for (const ReceivedSample& s : shown) {
        EXPECT_EQ(0u, s.flags & (AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID)) << "no stamps on the preview";
        ASSERT_EQ(static_cast<LONG>(kFrameBytes), s.actual);
        int k = last + 1;
        while (k < c.kept && s.bytes[0] != FrameByte(k, 0))
            ++k;
        ASSERT_LT(k, c.kept) << "a preview frame out of order, from after the stop, or not from the source";
        ASSERT_EQ(FrameByte(k, kFrameBytes - 1), s.bytes.back());
        last = k;
    }
    if (c.hold) {
        EXPECT_LT(shown.size(), static_cast<size_t>(kFrames)) << "a stuck preview runs out of buffers";
    }
}

INSTANTIATE_TEST_SUITE_P(Preview, SmartTeeBranches,
                         ::testing::Values(PreviewCase{"Quick", 0, false, false, kFrames},
                                           PreviewCase{"Slow", 3, false, false, kFrames},
                                           PreviewCase{"Stuck", 0, true, false, kFrames},
                                           PreviewCase{"PlatformNullRenderer", 0, false, true, kFrames},
                                           PreviewCase{"StopAtOnBothOutputs", 1, false, false, 100}),
                         [](const ::testing::TestParamInfo<PreviewCase>& param) { return param.param.name; });

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

// Each stand-in's check picks it under Wine; forcing registers it, and once revoked the platform's is back.
TEST(StandInRegistration, TheCheckPicksTheStandInUnderWineAndForcingRegistersIt) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    {
        qvn_standins::FileWriterStandInRegistration fileWriter;
        qvn_standins::SmartTeeStandInRegistration smartTee;
        const std::pair<qvn_standins::StandInRegistration*, bool (*)()> cases[] = {
            {&fileWriter, qvn_standins::PlatformFileWriterReportsName},
            {&smartTee, qvn_standins::PlatformSmartTeeControlsStreams}};
        for (const auto& [registration, fit] : cases) {
            SCOPED_TRACE(registration == &smartTee ? "Smart Tee" : "File Writer");
            EXPECT_FALSE(fit()) << "Wine's own is unfit";
            ASSERT_EQ(S_OK, registration->Register(false));
            EXPECT_TRUE(registration->Registered());
            EXPECT_EQ(S_OK, registration->Revoke());
            EXPECT_FALSE(registration->Registered());
            EXPECT_FALSE(fit()) << "revoked: the platform's again";
            ASSERT_EQ(S_OK, registration->Register(true));
            EXPECT_TRUE(fit()) << "the class identifier now makes ours";
            EXPECT_EQ(S_OK, registration->Register(false)) << "already registered";
            EXPECT_EQ(S_OK, registration->Revoke());
        }
    }
    CoUninitialize();
}

} // namespace

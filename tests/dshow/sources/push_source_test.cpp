// The video and audio push sources in platform graphs, into a recording renderer of our own and the Null
// Renderer: stamps, media times, bytes, the 24-bit 5.1 reorder, buffer negotiation, stream control, and the
// producer's buffers coming back. And the encoder allocator under them through its COM interfaces, with the
// base allocator's commit, decommit and release callback.
#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/audio_source.h"
#include "dshow/encoder_allocator.h"
#include "dshow/video_source.h"
#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/push_helpers.h"

// In the platform's import library, declared in no header.
extern "C" const CLSID CLSID_NullRenderer;

namespace {

using qvn_test::Produce;
using qvn_test::Query;
using qvn_test::ReceivedSample;

constexpr REFERENCE_TIME kFrame = 333667; // 29.97 frames per second
constexpr DWORD kFrameBytes = 64 * 2 * 8; // 64 x 8 UYVY

struct ReleaseCounter : IMemAllocatorNotifyCallbackTemp {
    IMemAllocatorCallbackTemp* allocator = nullptr;
    int calls = 0;
    LONG freeSeen = -1;
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP NotifyRelease() override {
        ++calls;
        return allocator->GetFreeCount(&freeSeen); // calling back in must not deadlock
    }
};

class PushSourceTest : public qvn_test::OwningGraphTest {
protected:
    void SetUp() override {
        OwningGraphTest::SetUp();
        HRESULT hr = S_OK;
        video = Own(new CVideoSource(&hr), L"Video Frame Source");
        audio = Own(new CAudioSource(&hr), L"Audio Frame Source");
        recorder = Own(new qvn_test::CRecordingRenderer(&hr), L"Recorder");
        recorder->pin.acceptAny = true;
        ASSERT_EQ(S_OK, hr);
        IBaseFilter* made = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&made)));
        Own(made, L"Null Renderer")->Release();
        ASSERT_EQ(S_OK, made->FindPin(L"In", &nullIn));
        nullIn->Release(); // the filter keeps its pin
        IMediaFilter* clock = Query<IMediaFilter>(graph, IID_IMediaFilter);
        ASSERT_EQ(S_OK, clock->SetSyncSource(nullptr)); // no clock: samples flow as fast as they are taken
        clock->Release();
        const CMediaType type = qvn_test::UyvyType(64, 8, kFrame);
        ASSERT_EQ(S_OK, video->Pin()->SetStreamMediaType(&type));
    }
    // recorded into our recorder, the other pin into the Null Renderer.
    void Connect(CPushSourcePin* recorded, CPushSourcePin* other) {
        ASSERT_EQ(S_OK, graph->ConnectDirect(recorded, &recorder->pin, nullptr));
        ASSERT_EQ(S_OK, graph->ConnectDirect(other, nullIn, nullptr));
    }
    void Run() {
        ASSERT_EQ(S_OK, video->Pin()->AllocateBuffers());
        ASSERT_EQ(S_OK, audio->Pin()->AllocateBuffers());
        ASSERT_TRUE(SUCCEEDED(control->Run()));
    }
    // After the stop every buffer of the pool is back with the producer, each once.
    static void ExpectPoolReturned(CPushSourcePin* pin, std::vector<void*> free) {
        std::vector<void*> pool;
        ASSERT_EQ(S_OK, pin->GetFreeBuffers(pool));
        ASSERT_EQ(S_OK, pin->ReclaimBuffers(free));
        std::sort(pool.begin(), pool.end());
        std::sort(free.begin(), free.end());
        EXPECT_EQ(pool, free);
    }
    CVideoSource* video = nullptr;
    CAudioSource* audio = nullptr;
    qvn_test::CRecordingRenderer* recorder = nullptr;
    IPin* nullIn = nullptr;
};

TEST_F(PushSourceTest, ThousandsOfFramesUnderRandomDelaysArriveStampedInOrderEachOnce) {
    IAMBufferNegotiation* negotiation =
        Query<IAMBufferNegotiation>(static_cast<IPin*>(video->Pin()), IID_IAMBufferNegotiation);
    ASSERT_NE(negotiation, nullptr);
    ALLOCATOR_PROPERTIES suggestion{8, -1, -1, -1}, actual{};
    ASSERT_EQ(S_OK, negotiation->SuggestAllocatorProperties(&suggestion));
    Connect(video->Pin(), audio->Pin());
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, negotiation->SuggestAllocatorProperties(&suggestion));
    ASSERT_EQ(S_OK, negotiation->GetAllocatorProperties(&actual));
    negotiation->Release();
    EXPECT_EQ(std::tuple(actual.cBuffers, actual.cbBuffer, actual.cbAlign),
              std::tuple(8L, static_cast<LONG>(kFrameBytes), 16L))
        << "the suggestion of 8 buffers wins over the default of 30";
    // Audio into the Null Renderer: 48 kHz stereo 16-bit by default, 5 buffers of two seconds.
    const ALLOCATOR_PROPERTIES audioProps = audio->Pin()->ActualProperties();
    EXPECT_EQ(std::pair(audioProps.cBuffers, audioProps.cbBuffer), std::pair(5L, 384000L));
    recorder->pin.maxDelayMs = 1;
    Run();
    constexpr int kFrames = 2000;
    // Full frames, short frames and empty ones.
    auto fillFrame = [](int k, BYTE* buffer) {
        const DWORD length = k % 7 == 3 ? 0 : kFrameBytes - static_cast<DWORD>(k % 5);
        for (DWORD i = 0; i < length; ++i)
            buffer[i] = static_cast<BYTE>(k * 31 + static_cast<int>(i));
        return length;
    };
    const std::vector<void*> videoLeft = Produce(video->Pin(), kFrames, fillFrame, 17);
    const std::vector<void*> audioLeft = Produce(audio->Pin(), 40, [](int, BYTE*) { return DWORD{6400}; });
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE)) << "both renderers complete after the end of stream";
    ASSERT_EQ(S_OK, control->Stop());
    const std::vector<ReceivedSample> samples = recorder->pin.Samples();
    ASSERT_EQ(static_cast<size_t>(kFrames), samples.size());
    EXPECT_EQ(1, recorder->pin.endOfStreams);
    for (int k = 0; k < kFrames; ++k) {
        const ReceivedSample& s = samples[static_cast<size_t>(k)];
        BYTE expected[kFrameBytes];
        const LONG length = static_cast<LONG>(fillFrame(k, expected));
        // An empty sample too lasts one frame.
        ASSERT_EQ(
            std::tuple(s.start, s.stop, s.mediaStart, s.mediaEnd, s.flags, s.size, s.actual),
            std::tuple(k * kFrame, (k + 1) * kFrame, LONGLONG{k}, LONGLONG{k} + 1,
                       static_cast<DWORD>(AM_SAMPLE_SPLICEPOINT | AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID),
                       static_cast<LONG>(kFrameBytes), length))
            << "frame " << k;
        ASSERT_TRUE(std::equal(s.bytes.begin(), s.bytes.end(), expected)) << "frame " << k;
    }
    // Our renderer and the platform's gave every sample back.
    ExpectPoolReturned(video->Pin(), videoLeft);
    ExpectPoolReturned(audio->Pin(), audioLeft);
}

// The 16-bit 5.1 reorder is read back from whole files by the multiplexer's tests.
TEST_F(PushSourceTest, AudioStampsTruncatePerBlockAndFiveOneIsReorderedAfterAReconnection) {
    Connect(audio->Pin(), video->Pin());
    // A new format while connected reconnects the pin with it.
    ASSERT_EQ(S_OK, audio->Pin()->SetAudioFormat(6, 48000, 16, WAVE_FORMAT_PCM));
    AM_MEDIA_TYPE connected{};
    ASSERT_EQ(S_OK, recorder->pin.ConnectionMediaType(&connected));
    ASSERT_EQ(sizeof(WAVEFORMATEXTENSIBLE), connected.cbFormat);
    const WAVEFORMATEXTENSIBLE expected{
        {WAVE_FORMAT_EXTENSIBLE, 6, 48000, 576000, 12, 16, 22}, {0}, 0x3F, MEDIASUBTYPE_PCM};
    EXPECT_EQ(0, memcmp(&expected, connected.pbFormat, sizeof(expected)))
        << "the 40-byte extensible format, byte for byte";
    FreeMediaType(connected);
    EXPECT_EQ(2 * 576000, audio->Pin()->ActualProperties().cbBuffer)
        << "buffers sized again for the new format";
    Run();
    // 1601 sample frames last 333541.67 units: each block's stop is truncated, so the stamps fall behind the
    // exact time by two thirds of a unit per block.
    constexpr int kBlocks = 30, kFrames = 1601;
    const std::vector<void*> left =
        Produce(audio->Pin(), kBlocks, [](int, BYTE*) { return DWORD{kFrames * 12}; });
    Produce(video->Pin(), 0, nullptr);
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    const std::vector<ReceivedSample> samples = recorder->pin.Samples();
    ASSERT_EQ(static_cast<size_t>(kBlocks), samples.size());
    for (int k = 0; k < kBlocks; ++k) {
        const ReceivedSample& s = samples[static_cast<size_t>(k)];
        EXPECT_EQ(std::tuple(s.start, s.stop, s.mediaStart, s.mediaEnd, s.actual),
                  std::tuple(k * 333541LL, (k + 1) * 333541LL, LONGLONG{k} * kFrames,
                             LONGLONG{k + 1} * kFrames, kFrames * 12))
            << "block " << k;
    }
    ExpectPoolReturned(audio->Pin(), left);
    // 24-bit 5.1 moves whole 3-byte samples: L, R, Ls, Rs, C, LFE become L, R, C, LFE, Ls, Rs.
    ASSERT_EQ(S_OK, audio->Pin()->SetAudioFormat(6, 48000, 24, WAVE_FORMAT_PCM));
    recorder->pin.Clear();
    Run();
    Produce(audio->Pin(), 1, [](int, BYTE* buffer) {
        for (BYTE i = 0; i < 36; ++i)
            buffer[i] = i;
        return DWORD{36};
    });
    ASSERT_TRUE(WaitUntil([&] { return recorder->pin.Count() == 1; }));
    const std::vector<BYTE> expect24 = {0,  1,  2,  3,  4,  5,  12, 13, 14, 15, 16, 17,
                                        6,  7,  8,  9,  10, 11, 18, 19, 20, 21, 22, 23,
                                        30, 31, 32, 33, 34, 35, 24, 25, 26, 27, 28, 29};
    EXPECT_EQ(expect24, recorder->pin.Samples()[0].bytes);
}

TEST_F(PushSourceTest, StreamControlGatesFramesAndMarksTheFirstAfterAGap) {
    Connect(video->Pin(), audio->Pin());
    IAMStreamControl* gate = Query<IAMStreamControl>(static_cast<IPin*>(video->Pin()), IID_IAMStreamControl);
    ASSERT_NE(gate, nullptr);
    const REFERENCE_TIME start = 5 * kFrame, stop = 9 * kFrame;
    ASSERT_EQ(S_OK, gate->StartAt(&start, 3));
    ASSERT_EQ(S_OK, gate->StopAt(&stop, TRUE, 7));
    gate->Release();
    Run();
    const std::vector<void*> left = Produce(video->Pin(), 14, [](int k, BYTE* buffer) {
        buffer[0] = static_cast<BYTE>(k);
        return DWORD{1};
    });
    Produce(audio->Pin(), 0, nullptr);
    LONG_PTR started = 0, stopped = 0;
    ASSERT_TRUE(WaitForEvent(EC_STREAM_CONTROL_STARTED, nullptr, &started));
    ASSERT_TRUE(WaitForEvent(EC_STREAM_CONTROL_STOPPED, nullptr, &stopped));
    EXPECT_EQ((std::pair<LONG_PTR, LONG_PTR>(3, 7)), std::pair(started, stopped)) << "the cookies";
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    // Frames 5 to 9 flow, and frame 10 as the one extra sample after the stop; the first to flow after the
    // discarded ones says so, and media times count the skipped frames.
    const std::vector<ReceivedSample> samples = recorder->pin.Samples();
    ASSERT_EQ(6u, samples.size());
    for (size_t i = 0; i < samples.size(); ++i)
        EXPECT_EQ(std::tuple(static_cast<BYTE>(5 + i), static_cast<LONGLONG>(5 + i), i == 0),
                  std::tuple(samples[i].bytes.at(0), samples[i].mediaStart,
                             (samples[i].flags & AM_SAMPLE_DATADISCONTINUITY) != 0))
            << "sample " << i;
    ExpectPoolReturned(video->Pin(), left);
}

TEST_F(PushSourceTest, RefusalsAndStateAnswers) {
    CVideoSourcePin* pin = video->Pin();
    CMediaType noFormat(&MEDIATYPE_Video);
    const CMediaType zeroRate = qvn_test::UyvyType(64, 8, 0);
    std::vector<void*> buffers;
    BYTE byte = 0;
    ALLOCATOR_PROPERTIES props{};
    IAMBufferNegotiation* negotiation =
        Query<IAMBufferNegotiation>(static_cast<IPin*>(pin), IID_IAMBufferNegotiation);
    IAMFilterMiscFlags* flags =
        Query<IAMFilterMiscFlags>(static_cast<IBaseFilter*>(video), IID_IAMFilterMiscFlags);
    ASSERT_NE(flags, nullptr);
    EXPECT_EQ(static_cast<ULONG>(AM_FILTER_MISC_FLAGS_IS_SOURCE), flags->GetMiscFlags());
    flags->Release();
    const struct {
        const char* what;
        HRESULT expected;
        HRESULT got;
    } stopped[] = {
        {"null type", E_POINTER, pin->SetStreamMediaType(nullptr)},
        {"type without a format block", E_POINTER, pin->SetStreamMediaType(&noFormat)},
        {"time per frame 0", VFW_E_TYPE_NOT_ACCEPTED, pin->SetStreamMediaType(&zeroRate)},
        {"deliver unconnected", E_NOINTERFACE, pin->DeliverBuffer(&byte, 1)},
        {"reclaim unconnected", E_NOINTERFACE, pin->ReclaimBuffers(buffers)},
        {"end of stream unconnected", E_NOINTERFACE, pin->SignalEndOfStream()},
        {"allocator properties unconnected", VFW_E_NOT_CONNECTED,
         negotiation->GetAllocatorProperties(&props)},
    };
    for (const auto& c : stopped)
        EXPECT_EQ(c.expected, c.got) << c.what;
    negotiation->Release();
    ASSERT_EQ(S_OK, graph->ConnectDirect(pin, &recorder->pin, nullptr));
    ASSERT_EQ(S_OK, pin->AllocateBuffers());
    ASSERT_EQ(S_OK, pin->GetFreeBuffers(buffers));
    ASSERT_EQ(30u, buffers.size()) << "30 buffers unless downstream or a suggestion says otherwise";
    for (void* b : buffers)
        EXPECT_EQ(0u, reinterpret_cast<UINT_PTR>(b) % 16) << "payloads keep the negotiated alignment";
    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pin->DeliverBuffer(static_cast<BYTE*>(buffers[0]), kFrameBytes + 1));
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    FILTER_STATE state = State_Stopped;
    EXPECT_EQ(VFW_S_CANT_CUE, video->GetState(0, &state)) << "a live source cannot cue while paused";
    EXPECT_EQ(State_Paused, state);
    const CMediaType type = qvn_test::UyvyType(64, 8, kFrame);
    EXPECT_EQ(VFW_E_NOT_STOPPED, pin->SetStreamMediaType(&type));
    EXPECT_EQ(VFW_E_NOT_STOPPED, audio->Pin()->SetAudioFormat(1, 44100, 16, WAVE_FORMAT_PCM));
    ASSERT_EQ(S_OK, control->Stop());
}

TEST(EncoderAllocator, PropertiesRoundTripAndDecommitWithASampleOut) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    const LONG baseline = CBaseObject::ObjectsActive();
    HRESULT hr = S_OK;
    auto* allocator = new CEncoderAllocator(L"test", &hr);
    ASSERT_EQ(S_OK, hr);
    allocator->AddRef();
    IEncoderAllocator* producer = nullptr;
    ASSERT_EQ(S_OK, allocator->QueryInterface(IID_IEncoderAllocator, reinterpret_cast<void**>(&producer)));
    const struct {
        ALLOCATOR_PROPERTIES request;
        HRESULT expected;
        LONG buffer; // granted buffer size
    } cases[] = {
        {{30, 100, 3, 0}, VFW_E_BADALIGN, 0},
        {{30, 100, 8192, 0}, VFW_E_BADALIGN, 0}, // larger than a page
        {{30, 100, 0, 0}, VFW_E_BADALIGN, 0},
        {{30, 100, 16, 8}, S_OK, 104}, // prefix + buffer rounded up to whole units
        {{4, 4096, 4096, 0}, S_OK, 4096},
        {{30, 100, 16, 0}, S_OK, 112},
    };
    ALLOCATOR_PROPERTIES actual{}, got{};
    for (const auto& c : cases) {
        ALLOCATOR_PROPERTIES request = c.request;
        actual = {};
        EXPECT_EQ(c.expected, allocator->SetProperties(&request, &actual)) << c.request.cbAlign;
        EXPECT_EQ(c.buffer, actual.cbBuffer) << c.request.cbAlign;
    }
    EXPECT_EQ(30, actual.cBuffers);
    ASSERT_EQ(S_OK, allocator->GetProperties(&got));
    EXPECT_EQ(std::pair(got.cBuffers, got.cbBuffer), std::pair(10L, 112L))
        << "10: a fixed answer, whatever was set";
    IMediaSample* sample = nullptr;
    CMediaSample* empty = nullptr;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, allocator->GetBuffer(&sample, nullptr, nullptr, 0));
    EXPECT_EQ(VFW_E_NOT_COMMITTED, producer->TakeFreeSample(&empty));
    ASSERT_EQ(S_OK, allocator->Commit());
    ALLOCATOR_PROPERTIES again = cases[5].request;
    EXPECT_EQ(VFW_E_ALREADY_COMMITTED, allocator->SetProperties(&again, &actual));
    EXPECT_EQ(VFW_E_TIMEOUT, allocator->GetBuffer(&sample, nullptr, nullptr, AM_GBF_NOWAIT));
    BYTE frame[112];
    ASSERT_EQ(S_OK, producer->TakeFreeSample(&empty));
    empty->SetPointer(frame, sizeof(frame));
    ASSERT_EQ(S_OK, producer->QueueSample(empty));
    ASSERT_EQ(S_OK, allocator->GetBuffer(&sample, nullptr, nullptr, AM_GBF_NOWAIT));
    EXPECT_EQ(static_cast<IMediaSample*>(empty), sample);
    // A release callback sees each return and may call straight back in.
    IMemAllocatorCallbackTemp* callback = nullptr;
    ASSERT_EQ(S_OK,
              allocator->QueryInterface(IID_IMemAllocatorCallbackTemp, reinterpret_cast<void**>(&callback)));
    ReleaseCounter counter;
    counter.allocator = callback;
    ASSERT_EQ(S_OK, callback->SetNotify(&counter));
    // Downstream holds the sample across a decommit; a recommit cancels the decommit, so the sample comes
    // back to a live allocator that keeps its samples.
    ASSERT_EQ(S_OK, allocator->Decommit());
    IMediaSample* none = nullptr;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, allocator->GetBuffer(&none, nullptr, nullptr, 0));
    std::vector<void*> back;
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_TRUE(back.empty()) << "nothing released yet";
    const LONG objects = CBaseObject::ObjectsActive();
    ASSERT_EQ(S_OK, allocator->Commit());
    EXPECT_EQ(0u, sample->Release());
    EXPECT_EQ(std::pair(1, objects), std::pair(counter.calls, CBaseObject::ObjectsActive()));
    EXPECT_NE(-1, counter.freeSeen);
    callback->SetNotify(nullptr);
    callback->Release();
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_EQ(std::vector<void*>{frame}, back) << "released once, it comes back once";
    // With a sample out, a decommitted allocator outlives its last reference; the last sample frees it.
    ASSERT_EQ(S_OK, producer->TakeFreeSample(&empty));
    empty->SetPointer(frame, sizeof(frame));
    ASSERT_EQ(S_OK, producer->QueueSample(empty));
    ASSERT_EQ(S_OK, allocator->GetBuffer(&sample, nullptr, nullptr, AM_GBF_NOWAIT));
    ASSERT_EQ(S_OK, allocator->Decommit());
    producer->Release();
    allocator->Release();
    EXPECT_EQ(objects, CBaseObject::ObjectsActive());
    sample->Release();
    EXPECT_EQ(baseline, CBaseObject::ObjectsActive()) << "the allocator and its samples are gone";
    CoUninitialize();
}

} // namespace

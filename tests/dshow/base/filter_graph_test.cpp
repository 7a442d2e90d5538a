// The base classes in graphs made by the platform's filter graph manager: a numbered source on CSourceStream
// feeding a recording renderer on CBaseInputPin, directly or through a transform. The copying transform
// inverts the bytes into new samples (and drops one, which makes the next a discontinuity); the in-place one
// adds one to every byte of upstream's own samples, and copies them once the allocators differ.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "dshow/base/trans_in_place_filter.h"
#include "tests/dshow/base/source_graph.h"

namespace {

using qvn_test::ExpectNumbered;
using qvn_test::kSampleDuration;

constexpr LONG kDropped = 5; // the sample the copying transform drops

bool IsTestType(const CMediaType* mt) {
    return IsEqualGUID(*mt->Type(), qvn_test::kTestMajor) != FALSE;
}

class CInvert : public CTransformFilter {
public:
    CInvert() : CTransformFilter(L"invert", nullptr, GUID_NULL) {}
    int starts = 0, stops = 0;
    HRESULT CheckInputType(const CMediaType* mt) override { return IsTestType(mt) ? S_OK : S_FALSE; }
    HRESULT CheckTransform(const CMediaType* in, const CMediaType* out) override {
        return *in == *out ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
    HRESULT GetMediaType(int position, CMediaType* mt) override {
        return position > 0 ? VFW_S_NO_MORE_ITEMS : mt->Set(m_pInput->CurrentMediaType());
    }
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        ALLOCATOR_PROPERTIES wanted{2, 256, request->cbAlign > 0 ? request->cbAlign : 1, 0}, actual{};
        const HRESULT hr = allocator->SetProperties(&wanted, &actual);
        return FAILED(hr) ? hr : actual.cbBuffer < 256 ? E_FAIL : S_OK;
    }
    HRESULT Transform(IMediaSample* in, IMediaSample* out) override {
        REFERENCE_TIME start = 0, stop = 0;
        in->GetTime(&start, &stop);
        if (start == kDropped * kSampleDuration) {
            return S_FALSE;
        }
        BYTE* from = nullptr;
        BYTE* to = nullptr;
        in->GetPointer(&from);
        out->GetPointer(&to);
        for (LONG i = 0; i < in->GetActualDataLength(); ++i) {
            to[i] = static_cast<BYTE>(~from[i]);
        }
        return out->SetActualDataLength(in->GetActualDataLength());
    }
    HRESULT StartStreaming() override { return ++starts, S_OK; }
    HRESULT StopStreaming() override { return ++stops, S_OK; }
};

class CAddOne : public CTransInPlaceFilter {
public:
    explicit CAddOne(HRESULT* phr) : CTransInPlaceFilter(L"add one", nullptr, GUID_NULL, phr, true) {}
    using CTransInPlaceFilter::UsingDifferentAllocators;
    IMediaSample* received = nullptr;
    int copies = 0;
    HRESULT CheckInputType(const CMediaType* mt) override { return IsTestType(mt) ? S_OK : S_FALSE; }
    HRESULT Receive(IMediaSample* sample) override {
        received = sample;
        return CTransInPlaceFilter::Receive(sample);
    }
    HRESULT Transform(IMediaSample* sample) override {
        copies += sample != received;
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        for (LONG i = 0; i < sample->GetActualDataLength(); ++i) {
            ++data[i];
        }
        return S_OK;
    }
};

class FilterGraphTest : public qvn_test::SourceGraphTest {
protected:
    IPin* Out() { return source->stream; }
    IPin* In() { return &renderer->pin; }
    static bool IsUnconnected(IPin* pin) {
        IPin* peer = reinterpret_cast<IPin*>(1);
        return pin->ConnectedTo(&peer) == VFW_E_NOT_CONNECTED && peer == nullptr;
    }
    LONG ConnectedSampleBytes(IPin* pin) {
        const CMediaType mt = ConnectedType(pin);
        return mt.FormatLength() == sizeof(qvn_test::TestFormat)
                   ? reinterpret_cast<const qvn_test::TestFormat*>(mt.Format())->sampleBytes
                   : -1;
    }
};

TEST_F(FilterGraphTest, StreamsEverySampleInOrderThenCompletesAndReconnectsForANewFormat) {
    source->stream->limit = 60;
    // No type given: the pins agree through each other's media-type enumerators.
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    EXPECT_EQ(std::pair(ConnectedSampleBytes(Out()), ConnectedSampleBytes(In())), std::pair(256L, 256L));
    // Each renderer's completion reaches the application, naming the renderer.
    ASSERT_EQ(S_OK, events->CancelDefaultHandling(EC_COMPLETE));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    LONG_PTR completed = 0;
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, &completed));
    EXPECT_EQ(reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(renderer)), completed);
    ASSERT_EQ(60u, renderer->pin.Count());
    ExpectNumbered(renderer->pin.Samples(), 0, 256);
    EXPECT_EQ(1, renderer->pin.endOfStreams);
    EXPECT_EQ(0, renderer->pin.refused);
    ASSERT_EQ(S_OK, control->Stop());
    ASSERT_EQ(S_OK, events->RestoreDefaultHandling(EC_COMPLETE));
    // Larger samples need a new type and a new allocator: the graph reconnects the pin.
    source->stream->limit = 10;
    source->stream->sampleBytes = 5000;
    ASSERT_EQ(S_OK, source->ReconnectPin(Out(), nullptr));
    EXPECT_EQ(std::pair(ConnectedSampleBytes(Out()), ConnectedSampleBytes(In())), std::pair(5000L, 5000L));
    const auto samples = RunToCompletion();
    ASSERT_EQ(10u, samples.size());
    ExpectNumbered(samples, 0, 5000);
}

TEST_F(FilterGraphTest, RefusedConnectionsLeaveBothPinsUnconnected) {
    CMediaType typeA;
    ASSERT_EQ(S_OK, source->stream->GetMediaType(&typeA));
    struct Case {
        const char* what;
        GUID accepted;
        const AM_MEDIA_TYPE* type;
        bool failBufferSize;
        HRESULT expected;
    } cases[] = {
        {"no common type", qvn_test::kSubtypeB, nullptr, false, VFW_E_NO_ACCEPTABLE_TYPES},
        {"the given type refused", qvn_test::kSubtypeB, &typeA, false, VFW_E_TYPE_NOT_ACCEPTED},
        // The receiver accepted, then the allocator could not be decided: it must be disconnected again.
        {"buffer size refused", GUID_NULL, nullptr, true, VFW_E_NO_ACCEPTABLE_TYPES},
        {"buffer size refused, given type", GUID_NULL, &typeA, true, E_FAIL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        renderer->pin.acceptedSubtype = c.accepted;
        source->stream->failBufferSize = c.failBufferSize;
        EXPECT_EQ(c.expected, graph->ConnectDirect(Out(), In(), c.type));
        EXPECT_TRUE(IsUnconnected(Out()));
        EXPECT_TRUE(IsUnconnected(In()));
    }
    // Nothing was left half made: the same pins connect, and disconnect, cleanly.
    renderer->pin.acceptedSubtype = qvn_test::kSubtypeA;
    source->stream->failBufferSize = false;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), &typeA));
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, Out()->Connect(In(), &typeA));
    ASSERT_EQ(S_OK, graph->Disconnect(Out()));
    ASSERT_EQ(S_OK, graph->Disconnect(In()));
    EXPECT_TRUE(IsUnconnected(Out()));
    // An unconnected graph runs, and its renderer completes at once.
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    EXPECT_TRUE(WaitForEvent(EC_COMPLETE));
    EXPECT_EQ(0u, renderer->pin.Count());
}

TEST_F(FilterGraphTest, StateChangesAndFlushingWhileSamplesFlow) {
    source->stream->limit = -1;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    auto received = [this] { return renderer->pin.Count(); };
    // Pausing a running live source does not interrupt its stream.
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitUntil([&] { return received() >= 20; }));
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    const size_t atPause = received();
    ASSERT_TRUE(WaitUntil([&] { return received() >= atPause + 20; }));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitUntil([&] { return received() >= atPause + 40; }));
    ASSERT_EQ(S_OK, control->Stop());
    const size_t atStop = received();
    Sleep(50);
    EXPECT_EQ(atStop, received()) << "delivered after Stop returned";
    ExpectNumbered(renderer->pin.Samples(), 0, 256);
    // While the renderer flushes it refuses samples; the refusal ends the source's loop.
    renderer->pin.Clear();
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitUntil([&] { return received() >= 10; }));
    ASSERT_EQ(S_OK, source->stream->DeliverBeginFlush());
    ASSERT_TRUE(WaitUntil([&] { return renderer->pin.refused > 0; }));
    const size_t atFlush = received();
    EXPECT_EQ(S_OK, source->stream->DeliverNewSegment(10, 20, 2.0));
    EXPECT_EQ(std::tuple(renderer->pin.CurrentStartTime(), renderer->pin.CurrentStopTime(),
                         renderer->pin.CurrentRate()),
              std::tuple(REFERENCE_TIME{10}, REFERENCE_TIME{20}, 2.0));
    ASSERT_EQ(S_OK, source->stream->DeliverEndFlush());
    EXPECT_FALSE(renderer->pin.IsFlushing());
    Sleep(50);
    EXPECT_EQ(atFlush, received());
    // Stopping and running again starts a new streaming thread that carries on numbering.
    ASSERT_EQ(S_OK, control->Stop());
    const LONG resumeAt = source->stream->next;
    renderer->pin.Clear();
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitUntil([&] { return received() >= 10; }));
    ASSERT_EQ(S_OK, control->Stop());
    ExpectNumbered(renderer->pin.Samples(), resumeAt, 256);
    // A renderer that keeps every sample, even over the stop, leaves the source blocked in GetBuffer once its
    // 4 buffers are out; stopping must still end its thread.
    renderer->pin.Clear();
    renderer->pin.holdSamples = true;
    source->stream->next = 0;
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitUntil([&] { return received() >= 4; }));
    Sleep(50);
    EXPECT_EQ(4u, received()) << "the source decided on 4 buffers";
    EXPECT_EQ(S_OK, control->Stop());
    renderer->pin.ReleaseHeld();
    ExpectNumbered(renderer->pin.Samples(), 0, 256);
}

TEST_F(FilterGraphTest, EnumeratorsFallOutOfSyncWhenPinsOrTypesChange) {
    IEnumPins* pins = nullptr;
    ASSERT_EQ(S_OK, source->EnumPins(&pins));
    IEnumMediaTypes* types = nullptr;
    ASSERT_EQ(S_OK, Out()->EnumMediaTypes(&types));
    // A second pin: the filter's enumerator must say its list is stale until reset.
    HRESULT hr = S_OK;
    auto* second = new qvn_test::CNumberedStream(&hr, source);
    ASSERT_EQ(S_OK, hr);
    IPin* pin = nullptr;
    ULONG fetched = 0;
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pins->Next(1, &pin, &fetched));
    ASSERT_EQ(S_OK, pins->Reset());
    IPin* all[3] = {};
    EXPECT_EQ(S_FALSE, pins->Next(3, all, &fetched));
    ASSERT_EQ(2u, fetched);
    EXPECT_EQ(Out(), all[0]);
    EXPECT_EQ(static_cast<IPin*>(second), all[1]);
    // The identifier a source pin gives finds that pin again.
    LPWSTR id = nullptr;
    ASSERT_EQ(S_OK, all[1]->QueryId(&id));
    EXPECT_STREQ(L"2", id);
    ASSERT_EQ(S_OK, source->FindPin(id, &pin));
    EXPECT_EQ(all[1], pin);
    pin->Release();
    CoTaskMemFree(id);
    all[0]->Release();
    all[1]->Release();
    // One type, handed out as a task-memory copy; a type change makes the enumerator stale.
    AM_MEDIA_TYPE* mt[2] = {};
    EXPECT_EQ(S_FALSE, types->Next(2, mt, &fetched));
    ASSERT_EQ(1u, fetched);
    EXPECT_EQ(256, reinterpret_cast<qvn_test::TestFormat*>(mt[0]->pbFormat)->sampleBytes);
    DeleteMediaType(mt[0]);
    source->stream->IncrementTypeVersion();
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, types->Skip(1));
    types->Release();
    delete second; // takes itself out of the filter
    EXPECT_EQ(1, source->GetPinCount());
    EXPECT_EQ(VFW_E_ENUM_OUT_OF_SYNC, pins->Skip(1));
    pins->Release();
}

TEST_F(FilterGraphTest, CopyingTransformMakesNewSamplesWithTheInputsStampsAndPassesStreamEvents) {
    source->stream->limit = 20;
    CInvert* invert = Own(new CInvert, L"Invert");
    IPin* invertIn = invert->GetPin(0);
    IPin* invertOut = invert->GetPin(1);
    // The output's types come from the input: nothing to connect before it is.
    EXPECT_FALSE(SUCCEEDED(graph->ConnectDirect(invertOut, In(), nullptr)));
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), invertIn, nullptr));
    ASSERT_EQ(S_OK, graph->ConnectDirect(invertOut, In(), nullptr));
    IPin* found = nullptr;
    ASSERT_EQ(S_OK, invert->FindPin(L"Out", &found));
    EXPECT_EQ(invertOut, found);
    found->Release();
    const auto samples = RunToCompletion();
    ASSERT_EQ(19u, samples.size());
    ExpectNumbered(
        samples, 0, 256, [](BYTE b) { return static_cast<BYTE>(~b); }, kDropped);
    EXPECT_EQ(1, invert->starts);
    EXPECT_EQ(1, invert->stops);
    // Stream notifications pass to the renderer.
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    EXPECT_EQ(S_OK, invertIn->NewSegment(10, 20, 2.0));
    EXPECT_EQ(10, renderer->pin.CurrentStartTime());
    EXPECT_EQ(S_OK, invertIn->BeginFlush());
    EXPECT_TRUE(renderer->pin.IsFlushing());
    EXPECT_EQ(S_OK, invertIn->EndFlush());
    EXPECT_FALSE(renderer->pin.IsFlushing());
}

TEST_F(FilterGraphTest, InPlaceTransformWorksOnUpstreamsSamplesAndCopiesWhenTheAllocatorIsReadOnly) {
    source->stream->limit = 20;
    HRESULT hr = S_OK;
    CAddOne* addOne = Own(new CAddOne(&hr), L"Add one");
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), addOne->GetPin(0), nullptr));
    // Connecting the output reconnects the input, so that upstream allocates from downstream's allocator.
    ASSERT_EQ(S_OK, graph->ConnectDirect(addOne->GetPin(1), In(), nullptr));
    EXPECT_FALSE(addOne->UsingDifferentAllocators());
    const auto plusOne = [](BYTE b) { return static_cast<BYTE>(b + 1); };
    auto samples = RunToCompletion();
    ASSERT_EQ(20u, samples.size());
    ExpectNumbered(samples, 0, 256, plusOne);
    EXPECT_EQ(0, addOne->copies);
    // A read-only allocator on the input cannot be written: the filter copies into its output allocator.
    IMemAllocator* readOnly = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                     reinterpret_cast<void**>(&readOnly)));
    ALLOCATOR_PROPERTIES props{4, 256, 1, 0}, actual{};
    ASSERT_EQ(S_OK, readOnly->SetProperties(&props, &actual));
    IMemInputPin* input = nullptr;
    ASSERT_EQ(S_OK, addOne->GetPin(0)->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input)));
    EXPECT_EQ(S_OK, input->NotifyAllocator(readOnly, TRUE));
    input->Release();
    readOnly->Release();
    EXPECT_TRUE(addOne->UsingDifferentAllocators());
    samples = RunToCompletion();
    ASSERT_EQ(20u, samples.size());
    ExpectNumbered(samples, 0, 256, plusOne);
    EXPECT_EQ(20, addOne->copies);
}

} // namespace

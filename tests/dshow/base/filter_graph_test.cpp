// The base classes in graphs made by the platform's filter graph manager: a numbered source on
// CSourceStream feeding a recording renderer on CBaseInputPin.
#include <cstdio>

#include <gtest/gtest.h>

#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/graph_fixture.h"

namespace {

using qvn_test::CNumberedSource;
using qvn_test::CRecordingRenderer;
using qvn_test::kSampleDuration;
using qvn_test::PatternByte;
using qvn_test::ReceivedSample;

class FilterGraphTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        HRESULT hr = S_OK;
        source = new CNumberedSource(&hr);
        source->AddRef();
        renderer = new CRecordingRenderer(&hr);
        renderer->AddRef();
        ASSERT_EQ(S_OK, hr);
        ASSERT_EQ(S_OK, graph->AddFilter(source, L"Source"));
        ASSERT_EQ(S_OK, graph->AddFilter(renderer, L"Renderer"));
    }

    void ReleaseFilters() override {
        if (source != nullptr) {
            source->Release();
        }
        if (renderer != nullptr) {
            renderer->Release();
        }
    }

    IPin* Out() { return source->stream; }
    IPin* In() { return &renderer->pin; }

    static bool IsUnconnected(IPin* pin) {
        IPin* peer = reinterpret_cast<IPin*>(1);
        const HRESULT hr = pin->ConnectedTo(&peer);
        return hr == VFW_E_NOT_CONNECTED && peer == nullptr;
    }

    static LONG ConnectedSampleBytes(IPin* pin) {
        AM_MEDIA_TYPE mt{};
        if (pin->ConnectionMediaType(&mt) != S_OK) {
            return -1;
        }
        const LONG bytes = mt.cbFormat == sizeof(qvn_test::TestFormat)
                               ? reinterpret_cast<qvn_test::TestFormat*>(mt.pbFormat)->sampleBytes
                               : -1;
        FreeMediaType(mt);
        return bytes;
    }

    // Samples numbered first, first + 1, ... each complete, with its stamps and flags.
    static void ExpectNumbered(const std::vector<ReceivedSample>& samples, LONG first, LONG sampleBytes) {
        for (size_t k = 0; k < samples.size(); ++k) {
            const ReceivedSample& s = samples[k];
            const LONG n = static_cast<LONG>(s.start / kSampleDuration);
            ASSERT_EQ(first + static_cast<LONG>(k), n) << "sample " << k << " out of order";
            EXPECT_EQ(s.start + kSampleDuration, s.stop);
            const DWORD flags = AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID |
                                (n % 2 == 0 ? AM_SAMPLE_SPLICEPOINT : 0) |
                                (n == 0 ? AM_SAMPLE_DATADISCONTINUITY : 0);
            EXPECT_EQ(flags, s.flags) << "sample " << n;
            ASSERT_EQ(sampleBytes - n % 3, s.actual) << "sample " << n;
            EXPECT_GE(s.size, sampleBytes);
            for (LONG i = 0; i < s.actual; ++i) {
                ASSERT_EQ(PatternByte(n, i), s.bytes[static_cast<size_t>(i)])
                    << "sample " << n << " byte " << i;
            }
        }
    }

    CNumberedSource* source = nullptr;
    CRecordingRenderer* renderer = nullptr;
};

TEST_F(FilterGraphTest, StreamsEverySampleInOrderThenCompletes) {
    source->stream->limit = 60;
    // No type given: the pins agree through each other's media-type enumerators.
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    EXPECT_EQ(256, ConnectedSampleBytes(Out()));
    EXPECT_EQ(256, ConnectedSampleBytes(In()));

    // Each renderer's completion reaches the application, naming the renderer.
    ASSERT_EQ(S_OK, events->CancelDefaultHandling(EC_COMPLETE));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    LONG_PTR completed = 0;
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, &completed));
    EXPECT_EQ(reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(renderer)), completed);

    const std::vector<ReceivedSample> samples = renderer->pin.Samples();
    ASSERT_EQ(60u, samples.size());
    ExpectNumbered(samples, 0, 256);
    EXPECT_EQ(1, renderer->pin.endOfStreams);
    EXPECT_EQ(0, renderer->pin.refused);
    EXPECT_EQ(S_OK, control->Stop());
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

TEST_F(FilterGraphTest, ReconnectsAfterFormatChange) {
    source->stream->limit = 10;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    ExpectNumbered(renderer->pin.Samples(), 0, 256);

    // Larger samples need a new type and a new allocator: the graph reconnects the pin.
    source->stream->sampleBytes = 5000;
    source->stream->next = 0;
    renderer->pin.Clear();
    ASSERT_EQ(S_OK, source->ReconnectPin(Out(), nullptr));
    EXPECT_EQ(5000, ConnectedSampleBytes(In()));
    EXPECT_EQ(5000, ConnectedSampleBytes(Out()));

    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(WaitForEvent(EC_COMPLETE));
    const std::vector<ReceivedSample> samples = renderer->pin.Samples();
    ASSERT_EQ(10u, samples.size());
    ExpectNumbered(samples, 0, 5000);
}

TEST_F(FilterGraphTest, StateChangesAndFlushingWhileSamplesFlow) {
    source->stream->limit = -1;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    CRecordingRenderer* r = renderer;
    auto received = [r] { return r->pin.Count(); };

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
    EXPECT_EQ(10, renderer->pin.CurrentStartTime());
    EXPECT_EQ(20, renderer->pin.CurrentStopTime());
    EXPECT_EQ(2.0, renderer->pin.CurrentRate());
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
}

TEST_F(FilterGraphTest, StopsWhileTheSourceWaitsForABuffer) {
    // The renderer keeps every sample, even over the stop, so the source runs out of buffers and blocks in
    // GetBuffer; stopping must still end its thread.
    source->stream->limit = -1;
    renderer->pin.holdSamples = true;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    CRecordingRenderer* r = renderer;
    ASSERT_TRUE(WaitUntil([r] { return r->pin.Count() >= 4; }));
    Sleep(50);
    EXPECT_EQ(4u, renderer->pin.Count()) << "the source decided on 4 buffers";
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

} // namespace

// The base classes in graphs made by the platform's filter graph manager: a numbered source on CSourceStream
// feeding a recording renderer on CBaseInputPin. Transforms on the base classes are the system's own
// (tests/dshow/transforms).
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "tests/dshow/base/graph_test_filters.h"

namespace {

// The numbered samples from the first: each with its stamps, flags, length and bytes.
void ExpectNumbered(const std::vector<qvn_test::ReceivedSample>& samples) {
    for (LONG n = 0; n < static_cast<LONG>(samples.size()); ++n) {
        SCOPED_TRACE(n);
        const qvn_test::ReceivedSample& s = samples[static_cast<size_t>(n)];
        const DWORD flags = AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID |
                            (n % 2 == 0 ? AM_SAMPLE_SPLICEPOINT : 0) |
                            (n == 0 ? AM_SAMPLE_DATADISCONTINUITY : 0);
        ASSERT_EQ(std::tuple(n * qvn_test::kSampleDuration, (n + 1) * qvn_test::kSampleDuration, flags,
                             256 - n % 3),
                  std::tuple(s.start, s.stop, s.flags, s.actual));
        EXPECT_GE(s.size, 256);
        for (LONG i = 0; i < s.actual; ++i)
            ASSERT_EQ(qvn_test::PatternByte(n, i), s.bytes[static_cast<size_t>(i)]) << "byte " << i;
    }
}

class FilterGraphTest : public qvn_test::SourceGraphTest {
protected:
    IPin* Out() { return source->stream; }
    IPin* In() { return &renderer->pin; }
    static bool IsUnconnected(IPin* pin) {
        IPin* peer = reinterpret_cast<IPin*>(1);
        return pin->ConnectedTo(&peer) == VFW_E_NOT_CONNECTED && peer == nullptr;
    }
};

TEST_F(FilterGraphTest, RefusedConnectionsLeaveBothPinsUnconnected) {
    CMediaType typeA;
    ASSERT_EQ(S_OK, source->stream->GetMediaType(&typeA));
    const struct {
        const char* what;
        bool refuse;
        const AM_MEDIA_TYPE* type;
        bool failBufferSize;
        HRESULT expected;
    } cases[] = {
        {"no common type", true, nullptr, false, VFW_E_NO_ACCEPTABLE_TYPES},
        {"the given type refused", true, &typeA, false, VFW_E_TYPE_NOT_ACCEPTED},
        // The receiver accepted, then the allocator could not be decided: it must be disconnected again.
        {"buffer size refused", false, nullptr, true, VFW_E_NO_ACCEPTABLE_TYPES},
        {"buffer size refused, given type", false, &typeA, true, E_FAIL},
    };
    for (const auto& c : cases) {
        renderer->pin.refuse = c.refuse;
        source->stream->failBufferSize = c.failBufferSize;
        EXPECT_EQ(c.expected, graph->ConnectDirect(Out(), In(), c.type)) << c.what;
        EXPECT_TRUE(IsUnconnected(Out()) && IsUnconnected(In())) << c.what;
    }
    // Nothing was left half made: the same pins connect, and disconnect, cleanly.
    renderer->pin.refuse = false;
    source->stream->failBufferSize = false;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), &typeA));
    EXPECT_EQ(VFW_E_ALREADY_CONNECTED, Out()->Connect(In(), &typeA));
    source->stream->sampleBytes = 5000; // a larger format reconnects through the graph, with new buffers
    ASSERT_EQ(S_OK, source->ReconnectPin(Out(), nullptr));
    EXPECT_EQ(5000, reinterpret_cast<const qvn_test::TestFormat*>(ConnectedType(In()).Format())->sampleBytes);
    ASSERT_EQ(S_OK, graph->Disconnect(Out()));
    ASSERT_EQ(S_OK, graph->Disconnect(In()));
    EXPECT_TRUE(IsUnconnected(Out()));
    // An unconnected graph runs, and its renderer completes at once; the completion reaches the application
    // naming the renderer.
    ASSERT_EQ(S_OK, events->CancelDefaultHandling(EC_COMPLETE));
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    LONG_PTR completed = 0;
    EXPECT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, &completed));
    EXPECT_EQ(reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(renderer)), completed);
    EXPECT_EQ(0u, renderer->pin.Count());
}

TEST_F(FilterGraphTest, StateChangesAndFlushingWhileSamplesFlow) {
    source->stream->limit = -1;
    ASSERT_EQ(S_OK, graph->ConnectDirect(Out(), In(), nullptr));
    auto received = [this] { return renderer->pin.Count(); };
    auto runUntil = [&](size_t count) {
        ASSERT_TRUE(SUCCEEDED(control->Run()));
        ASSERT_TRUE(WaitUntil([&] { return received() >= count; }));
    };
    // Pausing a running live source does not interrupt its stream.
    runUntil(20);
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    const size_t atPause = received();
    ASSERT_TRUE(WaitUntil([&] { return received() >= atPause + 20; }));
    runUntil(atPause + 40);
    ASSERT_EQ(S_OK, control->Stop());
    const size_t atStop = received();
    Sleep(50);
    EXPECT_EQ(atStop, received()) << "delivered after Stop returned";
    ExpectNumbered(renderer->pin.Samples());
    // While the renderer flushes it refuses samples; the refusal ends the source's loop.
    renderer->pin.Clear();
    runUntil(10);
    ASSERT_EQ(S_OK, source->stream->DeliverBeginFlush());
    ASSERT_TRUE(WaitUntil([&] { return renderer->pin.refused > 0; }));
    const size_t atFlush = received();
    ASSERT_EQ(S_OK, source->stream->DeliverEndFlush());
    EXPECT_FALSE(renderer->pin.IsFlushing());
    Sleep(50);
    EXPECT_EQ(atFlush, received());
    ASSERT_EQ(S_OK, control->Stop());
    // A renderer that keeps every sample, even over the stop, leaves the source blocked in GetBuffer once its
    // 4 buffers are out; stopping must still end its thread.
    renderer->pin.Clear();
    renderer->pin.holdSamples = true;
    source->stream->next = 0;
    runUntil(4);
    Sleep(50);
    EXPECT_EQ(4u, received()) << "the source decided on 4 buffers";
    EXPECT_EQ(S_OK, control->Stop());
    renderer->pin.ReleaseHeld();
    ExpectNumbered(renderer->pin.Samples());
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
    EXPECT_EQ(std::tuple(Out(), static_cast<IPin*>(second)), std::tuple(all[0], all[1]));
    // The identifier a source pin gives finds that pin again.
    LPWSTR id = nullptr;
    ASSERT_EQ(S_OK, all[1]->QueryId(&id));
    EXPECT_STREQ(L"2", id);
    ASSERT_EQ(S_OK, source->FindPin(id, &pin));
    EXPECT_EQ(all[1], pin);
    CoTaskMemFree(id);
    for (IPin* p : {pin, all[0], all[1]})
        p->Release();
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

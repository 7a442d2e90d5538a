// The transform base classes in graphs made by the platform's filter graph manager: numbered source ->
// transform -> recording renderer. A copying transform inverts the bytes into new samples (and drops one,
// which makes the next a discontinuity); an in-place transform adds one to every byte of upstream's own
// samples, and copies them once the allocators differ.
#include <gtest/gtest.h>

#include <vector>

#include "dshow/base/trans_in_place_filter.h"
#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/graph_fixture.h"

namespace {

using qvn_test::kSampleDuration;
using qvn_test::PatternByte;
using qvn_test::ReceivedSample;

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
        if (position > 0) {
            return VFW_S_NO_MORE_ITEMS;
        }
        return mt->Set(m_pInput->CurrentMediaType());
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
        const LONG length = in->GetActualDataLength();
        for (LONG i = 0; i < length; ++i) {
            to[i] = static_cast<BYTE>(~from[i]);
        }
        return out->SetActualDataLength(length);
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

IPin* Pin(CBaseFilter* filter, int n) {
    return filter->GetPin(n);
}

class TransformTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        HRESULT hr = S_OK;
        source = new qvn_test::CNumberedSource(&hr);
        renderer = new qvn_test::CRecordingRenderer(&hr);
        ASSERT_EQ(S_OK, hr);
        source->stream->limit = 20;
        Add(source, L"Source");
        Add(renderer, L"Renderer");
    }

    void ReleaseFilters() override {
        for (CBaseFilter* f : added) {
            f->Release();
        }
    }

    void Add(CBaseFilter* filter, const wchar_t* name) {
        filter->AddRef();
        added.push_back(filter);
        ASSERT_EQ(S_OK, graph->AddFilter(filter, name));
    }

    // Runs the graph to its completion and stops it.
    std::vector<ReceivedSample> RunToCompletion() {
        renderer->pin.Clear();
        source->stream->next = 0;
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        EXPECT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, nullptr, 10000));
        EXPECT_EQ(S_OK, control->Stop());
        return renderer->pin.Samples();
    }

    // Every sample's stamps, sync and discontinuity flags and bytes, after byteOf.
    template <class ByteOf>
    static void ExpectCarried(const std::vector<ReceivedSample>& samples, LONG count, ByteOf byteOf,
                              LONG dropped = -1) {
        ASSERT_EQ(static_cast<size_t>(dropped >= 0 ? count - 1 : count), samples.size());
        size_t k = 0;
        for (LONG n = 0; n < count; ++n) {
            if (n == dropped) {
                continue;
            }
            const ReceivedSample& s = samples[k++];
            SCOPED_TRACE(n);
            EXPECT_EQ(n * kSampleDuration, s.start);
            EXPECT_EQ((n + 1) * kSampleDuration, s.stop);
            const DWORD want = AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID |
                               (n % 2 == 0 ? AM_SAMPLE_SPLICEPOINT : 0) |
                               (n == 0 || n == dropped + 1 ? AM_SAMPLE_DATADISCONTINUITY : 0);
            EXPECT_EQ(want, s.flags);
            ASSERT_EQ(256 - n % 3, s.actual);
            for (LONG i = 0; i < s.actual; ++i) {
                ASSERT_EQ(byteOf(PatternByte(n, i)), s.bytes[static_cast<size_t>(i)]) << "byte " << i;
            }
        }
    }

    qvn_test::CNumberedSource* source = nullptr;
    qvn_test::CRecordingRenderer* renderer = nullptr;
    std::vector<CBaseFilter*> added;
};

TEST_F(TransformTest, CopyingTransformMakesNewSamplesWithTheInputsStampsAndPassesStreamEvents) {
    CInvert* invert = new CInvert;
    Add(invert, L"Invert");
    // The output's types come from the input: nothing to connect before it is.
    EXPECT_FALSE(SUCCEEDED(graph->ConnectDirect(Pin(invert, 1), &renderer->pin, nullptr)));
    ASSERT_EQ(S_OK, graph->ConnectDirect(source->stream, Pin(invert, 0), nullptr));
    ASSERT_EQ(S_OK, graph->ConnectDirect(Pin(invert, 1), &renderer->pin, nullptr));
    IPin* found = nullptr;
    ASSERT_EQ(S_OK, invert->FindPin(L"Out", &found));
    EXPECT_EQ(Pin(invert, 1), found);
    found->Release();

    ExpectCarried(
        RunToCompletion(), 20, [](BYTE b) { return static_cast<BYTE>(~b); }, kDropped);
    EXPECT_EQ(1, invert->starts);
    EXPECT_EQ(1, invert->stops);

    // Stream notifications pass to the renderer.
    ASSERT_TRUE(SUCCEEDED(control->Pause()));
    EXPECT_EQ(S_OK, Pin(invert, 0)->NewSegment(10, 20, 2.0));
    EXPECT_EQ(10, renderer->pin.CurrentStartTime());
    EXPECT_EQ(S_OK, Pin(invert, 0)->BeginFlush());
    EXPECT_TRUE(renderer->pin.IsFlushing());
    EXPECT_EQ(S_OK, Pin(invert, 0)->EndFlush());
    EXPECT_FALSE(renderer->pin.IsFlushing());
}

TEST_F(TransformTest, InPlaceTransformWorksOnUpstreamsSamplesAndCopiesWhenTheAllocatorIsReadOnly) {
    HRESULT hr = S_OK;
    CAddOne* addOne = new CAddOne(&hr);
    Add(addOne, L"Add one");
    ASSERT_EQ(S_OK, graph->ConnectDirect(source->stream, Pin(addOne, 0), nullptr));
    // Connecting the output reconnects the input, so that upstream allocates from downstream's allocator.
    ASSERT_EQ(S_OK, graph->ConnectDirect(Pin(addOne, 1), &renderer->pin, nullptr));
    EXPECT_FALSE(addOne->UsingDifferentAllocators());
    const auto plusOne = [](BYTE b) { return static_cast<BYTE>(b + 1); };
    ExpectCarried(RunToCompletion(), 20, plusOne);
    EXPECT_EQ(0, addOne->copies);

    // A read-only allocator on the input cannot be written: the filter copies into its output allocator.
    IMemAllocator* readOnly = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                     reinterpret_cast<void**>(&readOnly)));
    ALLOCATOR_PROPERTIES props{4, 256, 1, 0}, actual{};
    ASSERT_EQ(S_OK, readOnly->SetProperties(&props, &actual));
    IMemInputPin* input = nullptr;
    ASSERT_EQ(S_OK, Pin(addOne, 0)->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input)));
    EXPECT_EQ(S_OK, input->NotifyAllocator(readOnly, TRUE));
    input->Release();
    readOnly->Release();
    EXPECT_TRUE(addOne->UsingDifferentAllocators());
    ExpectCarried(RunToCompletion(), 20, plusOne);
    EXPECT_EQ(20, addOne->copies);
}

} // namespace

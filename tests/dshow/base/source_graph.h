// Graph tests that own their filters: each added with a reference of the test's, released after the graph.
#pragma once

#include <vector>

#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/graph_fixture.h"

namespace qvn_test {

class OwningGraphTest : public GraphTest {
protected:
    void ReleaseFilters() override {
        for (IBaseFilter* f : owned) {
            f->Release();
        }
    }
    template <class Filter> Filter* Own(Filter* filter, const wchar_t* name) {
        owned.push_back(static_cast<IBaseFilter*>(filter));
        owned.back()->AddRef();
        EXPECT_EQ(S_OK, graph->AddFilter(owned.back(), name));
        return filter;
    }
    static CMediaType ConnectedType(IPin* pin) {
        AM_MEDIA_TYPE mt{};
        EXPECT_EQ(S_OK, pin->ConnectionMediaType(&mt));
        CMediaType copy(mt);
        FreeMediaType(mt);
        return copy;
    }
    std::vector<IBaseFilter*> owned;
};

// A numbered source and a recording renderer, in the graph but not connected.
class SourceGraphTest : public OwningGraphTest {
protected:
    void SetUp() override {
        OwningGraphTest::SetUp();
        HRESULT hr = S_OK;
        source = Own(new CNumberedSource(&hr), L"Source");
        renderer = Own(new CRecordingRenderer(&hr), L"Renderer");
        ASSERT_EQ(S_OK, hr);
    }
    // Streams from the first sample until the graph completes, stops, and answers what the renderer got.
    std::vector<ReceivedSample> RunToCompletion() {
        renderer->pin.Clear();
        source->stream->next = 0;
        EXPECT_TRUE(SUCCEEDED(control->Run()));
        EXPECT_TRUE(WaitForEvent(EC_COMPLETE, nullptr, nullptr, 10000));
        EXPECT_EQ(S_OK, control->Stop());
        return renderer->pin.Samples();
    }
    CNumberedSource* source = nullptr;
    CRecordingRenderer* renderer = nullptr;
};

inline BYTE Same(BYTE b) {
    return b;
}

// Numbered samples first, first + 1, ... with dropped left out (which makes the next a discontinuity): each
// with its stamps, flags, length and bytes after byteOf.
template <class ByteOf = BYTE (*)(BYTE)>
void ExpectNumbered(const std::vector<ReceivedSample>& samples, LONG first, LONG sampleBytes,
                    ByteOf byteOf = Same, LONG dropped = -1) {
    LONG n = first;
    for (const ReceivedSample& s : samples) {
        n += n == dropped;
        SCOPED_TRACE(n);
        ASSERT_EQ(n * kSampleDuration, s.start) << "out of order";
        EXPECT_EQ(s.start + kSampleDuration, s.stop);
        const DWORD flags = AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID |
                            (n % 2 == 0 ? AM_SAMPLE_SPLICEPOINT : 0) |
                            (n == 0 || n == dropped + 1 ? AM_SAMPLE_DATADISCONTINUITY : 0);
        EXPECT_EQ(flags, s.flags);
        ASSERT_EQ(sampleBytes - n % 3, s.actual);
        EXPECT_GE(s.size, sampleBytes);
        for (LONG i = 0; i < s.actual; ++i) {
            ASSERT_EQ(byteOf(PatternByte(n, i)), s.bytes[static_cast<size_t>(i)]) << "byte " << i;
        }
        ++n;
    }
}

} // namespace qvn_test

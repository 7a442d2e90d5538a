// Two small filters built on the base classes for tests in real graphs: a source whose streaming thread
// produces numbered samples, and a renderer that records every sample it receives. And graph fixtures that
// own their filters: each added with a reference of the test's, released after the graph.
#pragma once

#include <mutex>
#include <new>
#include <vector>

#include "dshow/base/base_input_pin.h"
#include "dshow/base/source_stream.h"
#include "tests/dshow/graph_fixture.h"

namespace qvn_test {

// A media type of our own, so that no platform filter claims it.
inline const GUID kTestMajor = {0x5176e401, 0x1c2b, 0x4d8e, {0x9a, 0x10, 0x6f, 0x21, 0x3c, 0x44, 0x85, 0x01}};
inline const GUID kTestFormat = {
    0x5176e404, 0x1c2b, 0x4d8e, {0x9a, 0x10, 0x6f, 0x21, 0x3c, 0x44, 0x85, 0x04}};
constexpr REFERENCE_TIME kSampleDuration = 400000;

struct TestFormat {
    LONG sampleBytes;
};

// Sample n carries bytes n * 7 + i, is n % 3 bytes shorter than the format's size, spans
// [n, n + 1) x kSampleDuration, is a sync point when n is even and a discontinuity when it is 0.
inline BYTE PatternByte(LONG n, LONG i) {
    return static_cast<BYTE>(n * 7 + i);
}

class CNumberedStream : public CSourceStream {
public:
    CNumberedStream(HRESULT* phr, CSource* filter) : CSourceStream(L"numbered stream", phr, filter, L"Out") {}
    // Changed only while the filter is stopped.
    LONG limit = 50; // samples before end of stream; -1 for no end
    LONG sampleBytes = 256;
    bool failBufferSize = false;
    volatile LONG next = 0;
    // When set, offered in place of the test type, with these frames sent whole in place of the pattern.
    CMediaType type;
    std::vector<std::vector<BYTE>> frames;
    HRESULT GetMediaType(CMediaType* mt) override {
        if (type.IsValid())
            return mt->Set(type);
        mt->InitMediaType();
        mt->SetType(&kTestMajor);
        mt->SetSubtype(&kTestMajor);
        mt->SetFormatType(&kTestFormat);
        TestFormat format{sampleBytes};
        return mt->SetFormat(reinterpret_cast<BYTE*>(&format), sizeof(format)) ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        if (failBufferSize)
            return E_FAIL;
        ALLOCATOR_PROPERTIES wanted = *request, actual{};
        wanted.cBuffers = request->cBuffers > 4 ? request->cBuffers : 4;
        wanted.cbBuffer = request->cbBuffer > sampleBytes ? request->cbBuffer : sampleBytes;
        const HRESULT hr = allocator->SetProperties(&wanted, &actual);
        return FAILED(hr) ? hr : actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
    }
    HRESULT FillBuffer(IMediaSample* sample) override {
        if (limit >= 0 && next >= limit)
            return S_FALSE;
        const LONG n = next;
        InterlockedIncrement(&next);
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        // Never past the buffer: an allocator sized for an older format shows up as short samples.
        const std::vector<BYTE>* frame = frames.empty() ? nullptr : &frames[static_cast<size_t>(n)];
        const LONG wanted = frame == nullptr ? sampleBytes - n % 3 : static_cast<LONG>(frame->size());
        const LONG length = wanted < sample->GetSize() ? wanted : sample->GetSize();
        for (LONG i = 0; i < length; ++i)
            data[i] = frame == nullptr ? PatternByte(n, i) : (*frame)[static_cast<size_t>(i)];
        sample->SetActualDataLength(length);
        REFERENCE_TIME start = n * kSampleDuration, stop = start + kSampleDuration;
        sample->SetTime(&start, &stop);
        sample->SetSyncPoint(n % 2 == 0);
        sample->SetDiscontinuity(n == 0);
        return S_OK;
    }
};

class CNumberedSource : public CSource {
public:
    explicit CNumberedSource(HRESULT* phr) : CSource(L"numbered source", nullptr, GUID_NULL, phr) {
        // The pin adds itself to the filter, which deletes it.
        stream = new (std::nothrow) CNumberedStream(phr, this);
    }
    CNumberedStream* stream;
};

struct ReceivedSample {
    REFERENCE_TIME start, stop;
    DWORD flags;
    LONG actual, size;
    std::vector<BYTE> bytes;
    LONGLONG mediaStart = -1, mediaEnd = -1; // -1: no media time
};

class CRecordingPin : public CBaseInputPin {
public:
    CRecordingPin(CBaseFilter* filter, CCritSec* lock, HRESULT* phr)
        : CBaseInputPin(L"recording pin", filter, lock, phr, L"In") {}
    bool refuse = false;      // accept no media type
    bool holdSamples = false; // keep every sample until ReleaseHeld
    bool acceptAny = false;   // accept every media type (to record the system's own sources)
    unsigned maxDelayMs = 0;  // sleep a pseudo-random time up to this in each Receive
    HRESULT CheckMediaType(const CMediaType* mt) override {
        return acceptAny || (!refuse && IsEqualGUID(*mt->Type(), kTestMajor) &&
                             IsEqualGUID(*mt->FormatType(), kTestFormat) &&
                             mt->FormatLength() == sizeof(TestFormat))
                   ? S_OK
                   : S_FALSE;
    }
    STDMETHODIMP Receive(IMediaSample* sample) override {
        std::lock_guard<std::mutex> guard(mutex_);
        const HRESULT hr = CBaseInputPin::Receive(sample);
        if (hr != S_OK)
            return ++refused, hr;
        const AM_SAMPLE2_PROPERTIES& p = m_SampleProps;
        samples.push_back({p.tStart, p.tStop, p.dwSampleFlags, p.lActual, p.cbBuffer,
                           std::vector<BYTE>(p.pbBuffer, p.pbBuffer + p.lActual)});
        sample->GetMediaTime(&samples.back().mediaStart, &samples.back().mediaEnd);
        if (maxDelayMs != 0) {
            seed_ = seed_ * 1103515245u + 12345u;
            Sleep((seed_ >> 16) % (maxDelayMs + 1));
        }
        if (holdSamples) {
            sample->AddRef();
            held.push_back(sample);
        }
        return S_OK;
    }
    // The graph discards completions that arrive before it runs (a live source may finish while the graph
    // is still pausing on its way to running), so a completion seen earlier waits for Run, as renderers do.
    STDMETHODIMP EndOfStream() override {
        CAutoLock state(*m_pLock);
        std::lock_guard<std::mutex> guard(mutex_);
        const HRESULT hr = CheckStreamingState();
        if (hr != S_OK)
            return hr;
        ++endOfStreams;
        if (!m_pFilter->IsStopped() && running)
            return m_pFilter->NotifyEvent(EC_COMPLETE, S_OK, 0);
        completionPending = true;
        return S_OK;
    }
    // A holding pin models a downstream filter that keeps its buffers across a stop: it neither decommits
    // nor lets go until ReleaseHeld, so only the source's own decommit can wake a source waiting for one.
    HRESULT Inactive() override { return holdSamples ? S_OK : CBaseInputPin::Inactive(); }
    void ReleaseHeld() {
        std::lock_guard<std::mutex> guard(mutex_);
        for (IMediaSample* sample : held)
            sample->Release();
        held.clear();
    }
    std::vector<ReceivedSample> Samples() {
        std::lock_guard<std::mutex> guard(mutex_);
        return samples;
    }
    size_t Count() {
        std::lock_guard<std::mutex> guard(mutex_);
        return samples.size();
    }
    void Clear() {
        std::lock_guard<std::mutex> guard(mutex_);
        samples.clear();
        refused = endOfStreams = 0;
    }
    int refused = 0, endOfStreams = 0;
    bool running = false, completionPending = false; // under the filter lock

private:
    unsigned seed_ = 1;
    std::mutex mutex_;
    std::vector<ReceivedSample> samples;
    std::vector<IMediaSample*> held;
};

class CRecordingRenderer : public CBaseFilter, public IAMFilterMiscFlags {
public:
    explicit CRecordingRenderer(HRESULT* phr)
        : CBaseFilter(L"recording renderer", nullptr, &lock_, GUID_NULL), pin(this, &lock_, phr) {}
    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        // The graph counts completions only from filters that call themselves renderers.
        if (IsEqualIID(riid, IID_IAMFilterMiscFlags))
            return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
        return CBaseFilter::NonDelegatingQueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int n) override { return n == 0 ? &pin : nullptr; }
    // Without a connection no end of stream will come, and the graph waits for every renderer.
    STDMETHODIMP Run(REFERENCE_TIME start) override {
        CAutoLock lock(lock_);
        const bool starting = m_State != State_Running;
        const HRESULT hr = CBaseFilter::Run(start);
        if (SUCCEEDED(hr) && starting) {
            pin.running = true;
            if (!pin.IsConnected() || pin.completionPending) {
                pin.completionPending = false;
                NotifyEvent(EC_COMPLETE, S_OK, 0);
            }
        }
        return hr;
    }
    STDMETHODIMP Pause() override {
        CAutoLock lock(lock_);
        pin.running = false;
        return CBaseFilter::Pause();
    }
    STDMETHODIMP Stop() override {
        CAutoLock lock(lock_);
        pin.running = pin.completionPending = false;
        return CBaseFilter::Stop();
    }

private:
    CCritSec lock_;

public:
    CRecordingPin pin;
};

class OwningGraphTest : public GraphTest {
protected:
    void ReleaseFilters() override {
        for (IBaseFilter* f : owned)
            f->Release();
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

} // namespace qvn_test

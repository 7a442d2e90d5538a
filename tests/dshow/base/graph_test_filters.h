// Two small filters built on the base classes for tests in real graphs: a source whose streaming thread
// produces numbered samples, and a renderer that records every sample it receives.
#pragma once

#include <mutex>
#include <new>
#include <vector>

#include "dshow/base/base_input_pin.h"
#include "dshow/base/source_stream.h"

namespace qvn_test {

// A media type of our own, so that no platform filter claims it.
inline const GUID kTestMajor = {0x5176e401, 0x1c2b, 0x4d8e, {0x9a, 0x10, 0x6f, 0x21, 0x3c, 0x44, 0x85, 0x01}};
inline const GUID kSubtypeA = {0x5176e402, 0x1c2b, 0x4d8e, {0x9a, 0x10, 0x6f, 0x21, 0x3c, 0x44, 0x85, 0x02}};
inline const GUID kSubtypeB = {0x5176e403, 0x1c2b, 0x4d8e, {0x9a, 0x10, 0x6f, 0x21, 0x3c, 0x44, 0x85, 0x03}};
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
    GUID subtype = kSubtypeA;
    bool failBufferSize = false;
    volatile LONG next = 0;
    // When set, offered in place of the test type, with these frames sent whole in place of the pattern.
    CMediaType type;
    std::vector<std::vector<BYTE>> frames;

    HRESULT GetMediaType(CMediaType* mt) override {
        if (type.IsValid()) {
            return mt->Set(type);
        }
        mt->InitMediaType();
        mt->SetType(&kTestMajor);
        mt->SetSubtype(&subtype);
        mt->SetFormatType(&kTestFormat);
        TestFormat format{sampleBytes};
        return mt->SetFormat(reinterpret_cast<BYTE*>(&format), sizeof(format)) ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        if (failBufferSize) {
            return E_FAIL;
        }
        ALLOCATOR_PROPERTIES wanted = *request;
        wanted.cBuffers = request->cBuffers > 4 ? request->cBuffers : 4;
        wanted.cbBuffer = request->cbBuffer > sampleBytes ? request->cbBuffer : sampleBytes;
        ALLOCATOR_PROPERTIES actual{};
        const HRESULT hr = allocator->SetProperties(&wanted, &actual);
        if (FAILED(hr)) {
            return hr;
        }
        return actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
    }

    HRESULT FillBuffer(IMediaSample* sample) override {
        if (limit >= 0 && next >= limit) {
            return S_FALSE;
        }
        const LONG n = next;
        InterlockedIncrement(&next);
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        // Never past the buffer: an allocator sized for an older format shows up as short samples.
        const std::vector<BYTE>* frame = frames.empty() ? nullptr : &frames[static_cast<size_t>(n)];
        const LONG wanted = frame == nullptr ? sampleBytes - n % 3 : static_cast<LONG>(frame->size());
        const LONG length = wanted < sample->GetSize() ? wanted : sample->GetSize();
        for (LONG i = 0; i < length; ++i) {
            data[i] = frame == nullptr ? PatternByte(n, i) : (*frame)[static_cast<size_t>(i)];
        }
        sample->SetActualDataLength(length);
        REFERENCE_TIME start = n * kSampleDuration;
        REFERENCE_TIME stop = start + kSampleDuration;
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
    REFERENCE_TIME start;
    REFERENCE_TIME stop;
    DWORD flags;
    LONG actual;
    LONG size;
    std::vector<BYTE> bytes;
    LONGLONG mediaStart = -1; // -1: no media time
    LONGLONG mediaEnd = -1;
};

class CRecordingRenderer;

class CRecordingPin : public CBaseInputPin {
public:
    CRecordingPin(CBaseFilter* filter, CCritSec* lock, HRESULT* phr)
        : CBaseInputPin(L"recording pin", filter, lock, phr, L"In") {}

    GUID acceptedSubtype = GUID_NULL; // GUID_NULL accepts every subtype of the test type
    bool holdSamples = false;         // keep every sample until ReleaseHeld
    bool acceptAny = false;           // accept every media type (to record the system's own sources)
    unsigned maxDelayMs = 0;          // sleep a pseudo-random time up to this in each Receive

    HRESULT CheckMediaType(const CMediaType* mt) override {
        if (acceptAny) {
            return S_OK;
        }
        const bool subtypeOk =
            IsEqualGUID(acceptedSubtype, GUID_NULL) || IsEqualGUID(*mt->Subtype(), acceptedSubtype);
        return IsEqualGUID(*mt->Type(), kTestMajor) && subtypeOk &&
                       IsEqualGUID(*mt->FormatType(), kTestFormat) && mt->FormatLength() == sizeof(TestFormat)
                   ? S_OK
                   : S_FALSE;
    }

    STDMETHODIMP Receive(IMediaSample* sample) override {
        std::lock_guard<std::mutex> guard(mutex_);
        const HRESULT hr = CBaseInputPin::Receive(sample);
        if (hr != S_OK) {
            ++refused;
            return hr;
        }
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
        if (hr != S_OK) {
            return hr;
        }
        ++endOfStreams;
        if (m_pFilter->IsStopped() || !running) {
            completionPending = true;
            return S_OK;
        }
        return m_pFilter->NotifyEvent(EC_COMPLETE, S_OK, 0);
    }

    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override {
        std::lock_guard<std::mutex> guard(mutex_);
        return CBaseInputPin::NewSegment(start, stop, rate);
    }

    // A holding pin models a downstream filter that keeps its buffers across a stop: it neither decommits
    // nor lets go until ReleaseHeld, so only the source's own decommit can wake a source waiting for one.
    HRESULT Inactive() override { return holdSamples ? S_OK : CBaseInputPin::Inactive(); }

    void ReleaseHeld() {
        std::lock_guard<std::mutex> guard(mutex_);
        for (IMediaSample* sample : held) {
            sample->Release();
        }
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

    int refused = 0;
    int endOfStreams = 0;
    bool running = false;           // under the filter lock
    bool completionPending = false; // under the filter lock

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
        if (IsEqualIID(riid, IID_IAMFilterMiscFlags)) {
            return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
        }
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
        pin.running = false;
        pin.completionPending = false;
        return CBaseFilter::Stop();
    }

private:
    CCritSec lock_;

public:
    CRecordingPin pin;
};

} // namespace qvn_test

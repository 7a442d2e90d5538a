#include "host/dshow_standins/smart_tee_standin.h"

#include <algorithm>

#include <cstring>
#include <deque>
#include <new>

#include "dshow/base/base_input_pin.h"
#include "dshow/base/base_output_pin.h"
#include "dshow/base/class_factory.h"
#include "dshow/base/media_type.h"
#include "dshow/base/stream_control.h"

namespace qvn_standins {

const CLSID kClsidSmartTee = {0xcc58e280, 0x8aa1, 0x11d1, {0xb3, 0xf1, 0x00, 0xaa, 0x00, 0x37, 0x61, 0xc5}};

namespace {

class CSmartTee;

class CTeeInputPin : public CBaseInputPin {
public:
    CTeeInputPin(CSmartTee* tee, CCritSec* lock, HRESULT* phr);

    HRESULT CheckMediaType(const CMediaType* type) override {
        return type != nullptr && IsEqualGUID(*type->Type(), MEDIATYPE_Video) ? S_OK : S_FALSE;
    }
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    IMemAllocator* Allocator() { return m_pAllocator; }
    const CMediaType& Type() { return m_mt; }

private:
    CSmartTee* const tee_;
};

// Both outputs: the input's type only, and stream control.
class CTeeOutputPin : public CBaseOutputPin, public CBaseStreamControl {
public:
    CTeeOutputPin(const wchar_t* objectName, CBaseFilter* filter, CTeeInputPin* input, CCritSec* lock,
                  HRESULT* phr, LPCWSTR name)
        : CBaseOutputPin(objectName, filter, lock, phr, name), CBaseStreamControl(phr), input_(input) {}

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualIID(iid, IID_IAMStreamControl)) {
            return GetInterface(static_cast<IAMStreamControl*>(this), object);
        }
        return CBaseOutputPin::NonDelegatingQueryInterface(iid, object);
    }

    // An output connects after the input, with the input's type.
    HRESULT CheckMediaType(const CMediaType* type) override {
        if (type == nullptr) {
            return E_POINTER;
        }
        if (!input_->IsConnected()) {
            return VFW_E_NOT_CONNECTED;
        }
        return *type == input_->Type() ? S_OK : S_FALSE;
    }
    HRESULT GetMediaType(int position, CMediaType* type) override {
        if (type == nullptr) {
            return E_POINTER;
        }
        if (position < 0) {
            return E_INVALIDARG;
        }
        if (position > 0 || !input_->IsConnected()) {
            return VFW_S_NO_MORE_ITEMS;
        }
        return type->Set(input_->Type());
    }

protected:
    CTeeInputPin* const input_;
};

// Passes the input's samples on, so its peer is told the input's allocator; it owns none, and leaves
// committing to the upstream pin that does.
class CCapturePin : public CTeeOutputPin {
public:
    CCapturePin(CBaseFilter* filter, CTeeInputPin* input, CCritSec* lock, HRESULT* phr)
        : CTeeOutputPin(L"Smart Tee capture", filter, input, lock, phr, L"Capture") {}

    HRESULT CompleteConnect(IPin*) override {
        IMemAllocator* allocator = input_->Allocator();
        if (allocator == nullptr) {
            return VFW_E_NO_ALLOCATOR;
        }
        return m_pInputPin->NotifyAllocator(allocator, input_->IsReadOnly());
    }
    HRESULT DecideBufferSize(IMemAllocator*, ALLOCATOR_PROPERTIES*) override { return E_UNEXPECTED; }
    HRESULT Active() override { return S_OK; }
    HRESULT Inactive() override { return S_OK; }
};

// Copies into buffers of its own allocator and delivers them from its own thread, in order with the end of
// stream and new segments that follow them.
class CPreviewPin : public CTeeOutputPin {
public:
    CPreviewPin(CBaseFilter* filter, CTeeInputPin* input, CCritSec* lock, HRESULT* phr)
        : CTeeOutputPin(L"Smart Tee preview", filter, input, lock, phr, L"Preview") {
        wake_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        if (wake_ == nullptr) {
            *phr = E_OUTOFMEMORY;
        }
    }
    ~CPreviewPin() override {
        StopWorker();
        if (wake_ != nullptr) {
            CloseHandle(wake_);
        }
    }

    // As large as the input's buffers; a few, since a preview that falls behind drops frames anyway.
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        ALLOCATOR_PROPERTIES upstream{};
        if (input_->Allocator() != nullptr) {
            input_->Allocator()->GetProperties(&upstream);
        }
        ALLOCATOR_PROPERTIES wanted = *request;
        wanted.cBuffers = request->cBuffers > kBuffers ? request->cBuffers : kBuffers;
        LONG bytes =
            upstream.cbBuffer > 0 ? upstream.cbBuffer : static_cast<LONG>(input_->Type().GetSampleSize());
        wanted.cbBuffer = request->cbBuffer > bytes ? request->cbBuffer : bytes;
        if (wanted.cbBuffer <= 0) {
            return E_FAIL;
        }
        ALLOCATOR_PROPERTIES actual{};
        const HRESULT hr = allocator->SetProperties(&wanted, &actual);
        if (FAILED(hr)) {
            return hr;
        }
        return actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
    }

    HRESULT Active() override {
        HRESULT hr = CBaseOutputPin::Active();
        if (FAILED(hr)) {
            return hr;
        }
        CAutoLock lock(queueLock_);
        exit_ = false;
        thread_ = CreateThread(nullptr, 0, Worker, this, 0, nullptr);
        return thread_ != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT Inactive() override {
        StopWorker();
        return CBaseOutputPin::Inactive();
    }

    // On the streaming thread: a copy when a buffer is free now, otherwise the frame is dropped.
    void Offer(const AM_SAMPLE2_PROPERTIES& props) {
        if (!IsConnected() || !Accepting()) {
            return;
        }
        IMediaSample* copy = nullptr;
        if (FAILED(GetDeliveryBuffer(&copy, nullptr, nullptr, AM_GBF_NOWAIT)) || copy == nullptr) {
            dropped_ = true;
            return;
        }
        BYTE* data = nullptr;
        if (FAILED(copy->GetPointer(&data)) || copy->GetSize() < props.lActual) {
            copy->Release();
            dropped_ = true;
            return;
        }
        memcpy(data, props.pbBuffer, static_cast<size_t>(props.lActual));
        copy->SetActualDataLength(props.lActual);
        // The input's stamps stay on until the stream control has looked at them.
        REFERENCE_TIME start = props.tStart;
        REFERENCE_TIME stop = props.tStop;
        if ((props.dwSampleFlags & AM_SAMPLE_TIMEVALID) != 0) {
            copy->SetTime(&start, (props.dwSampleFlags & AM_SAMPLE_STOPVALID) != 0 ? &stop : nullptr);
        }
        copy->SetSyncPoint((props.dwSampleFlags & AM_SAMPLE_SPLICEPOINT) != 0);
        copy->SetPreroll((props.dwSampleFlags & AM_SAMPLE_PREROLL) != 0);
        // A gap left by dropped frames is a discontinuity for the preview's peer.
        copy->SetDiscontinuity(dropped_ || (props.dwSampleFlags & AM_SAMPLE_DATADISCONTINUITY) != 0);
        if ((props.dwSampleFlags & AM_SAMPLE_TYPECHANGED) != 0 && props.pMediaType != nullptr) {
            copy->SetMediaType(props.pMediaType);
        }
        dropped_ = !Queue({Item::kSample, copy, 0, 0, 0});
    }

    void EndOfStreamInOrder() {
        if (IsConnected() && !Queue({Item::kEndOfStream, nullptr, 0, 0, 0})) {
            DeliverEndOfStream();
        }
    }
    void NewSegmentInOrder(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
        if (IsConnected() && !Queue({Item::kNewSegment, nullptr, start, stop, rate})) {
            DeliverNewSegment(start, stop, rate);
        }
    }

    // Drops the queued frames; the peer's flush ends a delivery in progress.
    void BeginFlushing() {
        {
            CAutoLock lock(queueLock_);
            flushing_ = true;
            ClearQueue(true);
        }
        Flushing(TRUE);
        if (IsConnected()) {
            DeliverBeginFlush();
        }
    }
    void EndFlushing() {
        WaitIdle(); // a delivery begun before the flush must not arrive after its end
        {
            CAutoLock lock(queueLock_);
            flushing_ = false;
            dropped_ = true;
        }
        Flushing(FALSE);
        if (IsConnected()) {
            DeliverEndFlush();
        }
    }

private:
    static constexpr LONG kBuffers = 3;

    struct Item {
        enum Kind { kSample, kEndOfStream, kNewSegment } kind;
        IMediaSample* sample; // with a reference
        REFERENCE_TIME start;
        REFERENCE_TIME stop;
        double rate;
    };

    bool Accepting() {
        CAutoLock lock(queueLock_);
        return thread_ != nullptr && !flushing_;
    }

    // False when no worker runs (the item's sample is released then).
    bool Queue(const Item& item) {
        {
            CAutoLock lock(queueLock_);
            if (thread_ != nullptr && !exit_ && !flushing_) {
                try {
                    queue_.push_back(item);
                } catch (const std::bad_alloc&) {
                    if (item.sample != nullptr) {
                        item.sample->Release();
                    }
                    return false;
                }
                SetEvent(wake_);
                return true;
            }
        }
        if (item.sample != nullptr) {
            item.sample->Release();
        }
        return false;
    }

    // Releases the queued frames and forgets a pending end of stream. On a flush (keepSegments) a queued
    // new segment still reaches the peer: it describes the samples that follow the flush.
    void ClearQueue(bool keepSegments) {
        for (const Item& item : queue_) {
            if (item.sample != nullptr) {
                item.sample->Release();
            }
        }
        queue_.erase(std::remove_if(queue_.begin(), queue_.end(),
                                    [keepSegments](const Item& item) {
                                        return !keepSegments || item.kind != Item::kNewSegment;
                                    }),
                     queue_.end());
    }

    void WaitIdle() {
        for (;;) {
            {
                CAutoLock lock(queueLock_);
                if (!busy_) {
                    return;
                }
            }
            Sleep(1);
        }
    }

    // Callers change the stream control's state first, so that a sample waiting in it is let go.
    void StopWorker() {
        HANDLE thread = nullptr;
        {
            CAutoLock lock(queueLock_);
            exit_ = true;
            thread = thread_;
            SetEvent(wake_);
        }
        if (thread != nullptr) {
            WaitForSingleObject(thread, INFINITE);
            CloseHandle(thread);
        }
        CAutoLock lock(queueLock_);
        thread_ = nullptr;
        ClearQueue(false);
    }

    static DWORD WINAPI Worker(LPVOID self) {
        static_cast<CPreviewPin*>(self)->Work();
        return 0;
    }

    void Work() {
        for (;;) {
            Item item{};
            bool got = false;
            {
                CAutoLock lock(queueLock_);
                if (exit_) {
                    return;
                }
                if (!queue_.empty()) {
                    item = queue_.front();
                    queue_.pop_front();
                    busy_ = got = true;
                }
            }
            if (!got) {
                WaitForSingleObject(wake_, INFINITE);
                continue;
            }
            switch (item.kind) {
            case Item::kSample:
                if (CheckStreamState(item.sample) == STREAM_FLOWING) {
                    item.sample->SetTime(nullptr, nullptr); // the preview carries no stamps
                    Deliver(item.sample);
                }
                item.sample->Release();
                break;
            case Item::kEndOfStream:
                DeliverEndOfStream();
                break;
            case Item::kNewSegment:
                DeliverNewSegment(item.start, item.stop, item.rate);
                break;
            }
            CAutoLock lock(queueLock_);
            busy_ = false;
        }
    }

    CCritSec queueLock_;
    std::deque<Item> queue_; // under queueLock_
    HANDLE wake_ = nullptr;
    HANDLE thread_ = nullptr; // under queueLock_
    bool exit_ = false;       // under queueLock_
    bool flushing_ = false;   // under queueLock_
    bool busy_ = false;       // under queueLock_: the worker holds an item
    bool dropped_ = false;    // the streaming thread's
};

class CSmartTee : public CBaseFilter {
public:
    explicit CSmartTee(HRESULT* phr)
        : CBaseFilter(L"Smart Tee stand-in", nullptr, &lock_, kClsidSmartTee), input_(this, &lock_, phr),
          capture_(this, &input_, &lock_, phr), preview_(this, &input_, &lock_, phr) {}

    int GetPinCount() override { return 3; }
    CBasePin* GetPin(int n) override {
        switch (n) {
        case 0:
            return &input_;
        case 1:
            return &capture_;
        case 2:
            return &preview_;
        default:
            return nullptr;
        }
    }

    // The stream controls learn every state first: a preview sample waiting in one is let go before the
    // preview's worker is stopped.
    STDMETHODIMP Stop() override {
        CAutoLock lock(lock_);
        capture_.NotifyFilterState(State_Stopped);
        preview_.NotifyFilterState(State_Stopped);
        return CBaseFilter::Stop();
    }
    // Before the pins start, so that no sample meets a stream control that still thinks it stopped.
    STDMETHODIMP Pause() override {
        CAutoLock lock(lock_);
        capture_.NotifyFilterState(State_Paused);
        preview_.NotifyFilterState(State_Paused);
        return CBaseFilter::Pause();
    }
    STDMETHODIMP Run(REFERENCE_TIME start) override {
        CAutoLock lock(lock_);
        capture_.NotifyFilterState(State_Running, start);
        preview_.NotifyFilterState(State_Running, start);
        return CBaseFilter::Run(start);
    }
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override {
        CAutoLock lock(lock_);
        capture_.SetSyncSource(clock);
        preview_.SetSyncSource(clock);
        return CBaseFilter::SetSyncSource(clock);
    }
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override {
        CAutoLock lock(lock_);
        const HRESULT hr = CBaseFilter::JoinFilterGraph(graph, name);
        if (SUCCEEDED(hr)) {
            capture_.SetFilterGraph(m_pSink);
            preview_.SetFilterGraph(m_pSink);
        }
        return hr;
    }

    // The preview's copy first: the capture's peer may change the sample's bytes.
    HRESULT Receive(IMediaSample* sample, const AM_SAMPLE2_PROPERTIES& props) {
        preview_.Offer(props);
        if (!capture_.IsConnected() ||
            capture_.CheckStreamState(sample) != CBaseStreamControl::STREAM_FLOWING) {
            return S_OK;
        }
        return capture_.Deliver(sample);
    }
    HRESULT EndOfStream() {
        if (capture_.IsConnected()) {
            capture_.DeliverEndOfStream();
        }
        preview_.EndOfStreamInOrder();
        return S_OK;
    }
    HRESULT BeginFlush() {
        capture_.Flushing(TRUE);
        if (capture_.IsConnected()) {
            capture_.DeliverBeginFlush();
        }
        preview_.BeginFlushing();
        return S_OK;
    }
    HRESULT EndFlush() {
        capture_.Flushing(FALSE);
        if (capture_.IsConnected()) {
            capture_.DeliverEndFlush();
        }
        preview_.EndFlushing();
        return S_OK;
    }
    HRESULT NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
        if (capture_.IsConnected()) {
            capture_.DeliverNewSegment(start, stop, rate);
        }
        preview_.NewSegmentInOrder(start, stop, rate);
        return S_OK;
    }

private:
    CCritSec lock_;
    CTeeInputPin input_;
    CCapturePin capture_;
    CPreviewPin preview_;
};

CTeeInputPin::CTeeInputPin(CSmartTee* tee, CCritSec* lock, HRESULT* phr)
    : CBaseInputPin(L"Smart Tee input", tee, lock, phr, L"Input"), tee_(tee) {}

STDMETHODIMP CTeeInputPin::Receive(IMediaSample* sample) {
    const HRESULT hr = CBaseInputPin::Receive(sample);
    if (hr != S_OK) {
        return hr;
    }
    return tee_->Receive(sample, m_SampleProps);
}

STDMETHODIMP CTeeInputPin::EndOfStream() {
    const HRESULT hr = CheckStreamingState();
    if (hr != S_OK) {
        return hr;
    }
    return tee_->EndOfStream();
}

STDMETHODIMP CTeeInputPin::BeginFlush() {
    const HRESULT hr = CBaseInputPin::BeginFlush();
    if (FAILED(hr)) {
        return hr;
    }
    return tee_->BeginFlush();
}

STDMETHODIMP CTeeInputPin::EndFlush() {
    const HRESULT hr = tee_->EndFlush();
    if (FAILED(hr)) {
        return hr;
    }
    return CBaseInputPin::EndFlush();
}

STDMETHODIMP CTeeInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
    const HRESULT hr = CBaseInputPin::NewSegment(start, stop, rate);
    if (FAILED(hr)) {
        return hr;
    }
    return tee_->NewSegment(start, stop, rate);
}

const CFactoryTemplate kTemplate = {L"Smart Tee", &kClsidSmartTee, CreateStandIn<CSmartTee>, nullptr,
                                    nullptr};

} // namespace

bool PlatformSmartTeeControlsStreams() {
    IBaseFilter* filter = nullptr;
    if (FAILED(CoCreateInstance(kClsidSmartTee, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(&filter)))) {
        return false;
    }
    bool controls = false;
    IEnumPins* pins = nullptr;
    if (SUCCEEDED(filter->EnumPins(&pins))) {
        IPin* pin = nullptr;
        while (!controls && pins->Next(1, &pin, nullptr) == S_OK) {
            PIN_INFO info{};
            if (SUCCEEDED(pin->QueryPinInfo(&info))) {
                if (info.pFilter != nullptr) {
                    info.pFilter->Release();
                }
                IAMStreamControl* control = nullptr;
                if (info.dir == PINDIR_OUTPUT && wcscmp(info.achName, L"Capture") == 0 &&
                    SUCCEEDED(
                        pin->QueryInterface(IID_IAMStreamControl, reinterpret_cast<void**>(&control)))) {
                    control->Release();
                    controls = true;
                }
            }
            pin->Release();
        }
        pins->Release();
    }
    filter->Release();
    return controls;
}

SmartTeeStandInRegistration::SmartTeeStandInRegistration()
    : StandInRegistration(&kTemplate, PlatformSmartTeeControlsStreams) {}

} // namespace qvn_standins

#include "dshow/qvn_avi_writer.h"

#include <cstring>
#include <new>

#include "dshow/avi_input_pin.h"
#include "dshow/avi_output_pin.h"
#include "platform/text_encoding.h"

extern "C" const CLSID CLSID_QVNAVIWriter = {
    0x3c5d9e27, 0x8a41, 0x4f6b, {0xb0, 0xd3, 0x6e, 0x2a, 0x91, 0xc4, 0xf7, 0x05}};
extern "C" const IID IID_IQVNAVIWriter = {
    0x3c5d9e28, 0x8a41, 0x4f6b, {0xb0, 0xd3, 0x6e, 0x2a, 0x91, 0xc4, 0xf7, 0x05}};

namespace {
constexpr std::uint32_t kWriterBound = 50; // CTask's default bound, as the design asks
constexpr std::uint32_t kWriterThreads = 1;
constexpr REFERENCE_TIME kGapTolerance = 10; // 100-ns units a video sample may start after the last stop
static_assert(QVN::CTask<int, QVN::CNullDestroyer, QVN::CW32CriticalSection>::kDefaultBound == kWriterBound);
} // namespace

CUnknown* WINAPI CQVNAVIWriter::CreateInstance(IUnknown* outer, HRESULT* phr) {
    HRESULT hr = S_OK;
    auto* filter = new (std::nothrow) CQVNAVIWriter(outer, &hr);
    if (filter == nullptr) {
        hr = E_OUTOFMEMORY;
    } else if (FAILED(hr)) {
        delete filter;
        filter = nullptr;
    }
    if (phr != nullptr) {
        *phr = hr;
    }
    return filter;
}

CQVNAVIWriter::CQVNAVIWriter(IUnknown* outer, HRESULT* phr)
    : CBaseFilter(L"CQVNAVIWriter", outer, &lock_, CLSID_QVNAVIWriter) {
    HRESULT hr = S_OK;
    output_ = new (std::nothrow) CAVIOutputPin(this, &lock_, &hr);
    auto* input = new (std::nothrow) CAVIInputPin(this, &lock_, &hr);
    try {
        if (input != nullptr) {
            inputs_.push_back(input);
            input = nullptr;
        }
    } catch (const std::bad_alloc&) {
        delete input;
        input = nullptr;
        hr = E_OUTOFMEMORY;
    }
    if (output_ == nullptr || inputs_.empty()) {
        hr = E_OUTOFMEMORY;
    }
    if (phr != nullptr && FAILED(hr)) {
        *phr = hr;
    }
}

CQVNAVIWriter::~CQVNAVIWriter() {
    CloseFile(); // a filter released while active (the graph stops it first; this is the safety net)
    for (CAVIInputPin* pin : inputs_) {
        delete pin;
    }
    delete output_;
}

STDMETHODIMP CQVNAVIWriter::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IQVNAVIWriter)) {
        return GetInterface(static_cast<IQVNAVIWriter*>(this), object);
    }
    if (IsEqualIID(iid, IID_IAMStreamControl)) {
        return GetInterface(static_cast<IAMStreamControl*>(this), object);
    }
    return CBaseFilter::NonDelegatingQueryInterface(iid, object);
}

int CQVNAVIWriter::GetPinCount() {
    CAutoLock lock(lock_);
    return 1 + static_cast<int>(inputs_.size());
}

CBasePin* CQVNAVIWriter::GetPin(int n) {
    CAutoLock lock(lock_);
    if (n == 0) {
        return output_;
    }
    if (n < 0 || n > static_cast<int>(inputs_.size())) {
        return nullptr;
    }
    return inputs_[static_cast<size_t>(n - 1)];
}

int CQVNAVIWriter::InputPinCount() {
    CAutoLock lock(lock_);
    return static_cast<int>(inputs_.size());
}

CAVIInputPin* CQVNAVIWriter::InputPin(int n) {
    CAutoLock lock(lock_);
    return n >= 0 && n < static_cast<int>(inputs_.size()) ? inputs_[static_cast<size_t>(n)] : nullptr;
}

void CQVNAVIWriter::PinConnected() {
    CAutoLock lock(lock_);
    for (CAVIInputPin* pin : inputs_) {
        if (!pin->IsConnected()) {
            return;
        }
    }
    HRESULT hr = S_OK;
    auto* spare = new (std::nothrow) CAVIInputPin(this, &lock_, &hr);
    if (spare == nullptr) {
        return; // no further stream can be connected; the ones connected work
    }
    try {
        inputs_.push_back(spare);
    } catch (const std::bad_alloc&) {
        delete spare;
        return;
    }
    IncrementPinVersion();
}

std::wstring CQVNAVIWriter::DownstreamFileName() {
    std::wstring name;
    IPin* peer = output_->GetConnected();
    PIN_INFO info{};
    if (peer == nullptr || FAILED(peer->QueryPinInfo(&info))) {
        return name;
    }
    IFileSinkFilter* sink = nullptr;
    if (info.pFilter != nullptr &&
        SUCCEEDED(info.pFilter->QueryInterface(IID_IFileSinkFilter, reinterpret_cast<void**>(&sink)))) {
        LPOLESTR got = nullptr;
        if (SUCCEEDED(sink->GetCurFile(&got, nullptr)) && got != nullptr) {
            try {
                name = got;
            } catch (const std::bad_alloc&) {
                name.clear();
            }
        }
        CoTaskMemFree(got);
        sink->Release();
    }
    if (info.pFilter != nullptr) {
        info.pFilter->Release();
    }
    return name;
}

HRESULT CQVNAVIWriter::OpenFile() {
    CAutoLock lock(lock_);
    if (file_ != nullptr) {
        return S_OK;
    }
    try {
        // 1. One description per connected pin of a known major type, numbered in pin order.
        std::vector<std::unique_ptr<StreamInfo>> descriptions;
        std::vector<std::unique_ptr<StreamRecord>> records;
        for (size_t i = 0; i < inputs_.size(); ++i) {
            CAVIInputPin* pin = inputs_[i];
            pin->SetStreamNumber(-1);
            if (!pin->IsConnected()) {
                continue;
            }
            CMediaType type;
            if (FAILED(pin->ConnectionMediaType(&type))) {
                continue;
            }
            auto record = std::make_unique<StreamRecord>();
            record->pin = static_cast<LONG>(i);
            if (IsEqualGUID(type.majortype, MEDIATYPE_Video) && type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
                const auto& format = *reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat);
                descriptions.push_back(std::make_unique<VideoStreamInfo>(format));
                record->video = true;
                record->avgTimePerFrame = format.AvgTimePerFrame;
            } else if (IsEqualGUID(type.majortype, MEDIATYPE_Audio) &&
                       type.cbFormat >= sizeof(WAVEFORMATEX)) {
                descriptions.push_back(
                    std::make_unique<AudioStreamInfo>(reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat)));
            } else {
                continue;
            }
            record->fccType = descriptions.back()->Header().fccType;
            pin->SetStreamNumber(static_cast<LONG>(records.size()));
            records.push_back(std::move(record));
        }
        // 2-4. The file object and the File Writer's path (empty when it cannot tell).
        auto file = std::make_unique<AVIFile>();
        fileName_ = DownstreamFileName();
        triedOpen_ = true;
        const std::string path = QVN::WideToUtf8(fileName_);
        // 5. Open; the descriptions go either way.
        std::vector<StreamInfo*> raw;
        for (const auto& description : descriptions) {
            raw.push_back(description.get());
        }
        const HRESULT hr = file->Open(path.c_str(), raw);
        if (FAILED(hr)) {
            for (CAVIInputPin* pin : inputs_) {
                pin->SetStreamNumber(-1);
            }
            return hr;
        }
        // 6. Running state, then the writer thread.
        streams_ = std::move(records);
        openStreams_ = static_cast<ULONG>(streams_.size());
        error_.store(S_OK);
        dropped_.store(0);
        file_ = std::move(file);
        task_ = std::make_unique<WriterTask>(this);
        workerRunning_.store(true);
        if (!task_->Start(kWriterThreads)) {
            workerRunning_.store(false);
            task_.reset();
            file_.reset(); // closes the file just made: it stays on disk with its headers
            return E_OUTOFMEMORY;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void CQVNAVIWriter::ReleaseQueued() {
    // Only after the worker has ended: whatever it left behind (it stops at its first failure) is released
    // here, so every sample goes back to its allocator.
    while (task_->Count() != 0) {
        QueuedSample item = task_->Pop();
        if (item.sample != nullptr) {
            item.sample->Release();
        }
    }
}

HRESULT CQVNAVIWriter::CloseFile() {
    CAutoLock lock(lock_);
    if (task_ != nullptr) {
        const std::uint32_t threads = task_->ThreadCount();
        for (std::uint32_t i = 0; i < threads; ++i) {
            // Retry until the marker fits; a worker that stopped at a failure takes nothing any more.
            while (!task_->Push(QueuedSample{-1, nullptr}) && workerRunning_.load()) {
                Sleep(1);
            }
        }
        task_->Join();
        ReleaseQueued();
        task_.reset();
    }
    file_.reset(); // the destructor completes the headers and indexes
    openStreams_ = 0;
    return S_OK;
}

HRESULT CQVNAVIWriter::Deliver(LONG stream, IMediaSample* sample) {
    const HRESULT error = error_.load();
    if (FAILED(error)) {
        NotifyEvent(EC_ERRORABORT, error, 0);
        return error;
    }
    CAutoLock lock(lock_);
    if (file_ == nullptr || task_ == nullptr || stream < 0 ||
        static_cast<size_t>(stream) >= streams_.size()) {
        return VFW_E_WRONG_STATE;
    }
    StreamRecord& record = *streams_[static_cast<size_t>(stream)];
    REFERENCE_TIME start = 0, stop = 0;
    const bool timed = SUCCEEDED(sample->GetTime(&start, &stop));
    if (record.video && timed && record.lastStop != 0 && record.avgTimePerFrame > 0 &&
        start - record.lastStop > kGapTolerance) {
        const LONGLONG repeats = (start - record.lastStop) / record.avgTimePerFrame;
        for (LONGLONG i = 0; i < repeats; ++i) {
            if (!task_->Push(QueuedSample{stream, nullptr})) {
                dropped_.fetch_add(1);
            }
        }
    }
    sample->AddRef();
    if (task_->Push(QueuedSample{stream, sample})) {
        if (timed) {
            record.lastStop = stop;
        }
    } else {
        sample->Release();
        dropped_.fetch_add(1);
    }
    return S_OK;
}

bool CQVNAVIWriter::StreamEnded() {
    CAutoLock lock(lock_);
    if (file_ == nullptr || openStreams_ == 0) {
        return false;
    }
    return --openStreams_ == 0;
}

std::uint32_t CQVNAVIWriter::WorkerLoop() {
    error_.store(S_OK);
    while (SUCCEEDED(error_.load())) {
        QueuedSample item = task_->Pop();
        if (item.stream < 0) {
            break;
        }
        StreamRecord& record = *streams_[static_cast<size_t>(item.stream)];
        HRESULT hr = S_OK;
        if (item.sample != nullptr) {
            BYTE* data = nullptr;
            hr = item.sample->GetPointer(&data);
            const LONG length = item.sample->GetActualDataLength();
            if (SUCCEEDED(hr)) {
                hr = file_->WriteChunk(static_cast<std::uint32_t>(item.stream), data,
                                       static_cast<std::uint32_t>(length > 0 ? length : 0),
                                       item.sample->IsSyncPoint() == S_OK);
            }
            if (SUCCEEDED(hr)) {
                record.chunks.fetch_add(1);
                record.bytes.fetch_add(static_cast<ULONGLONG>(length > 0 ? length : 0));
            }
            item.sample->Release();
        } else {
            hr = file_->WriteRepeat(static_cast<std::uint32_t>(item.stream));
            if (SUCCEEDED(hr)) {
                record.repeats.fetch_add(1);
            }
        }
        if (FAILED(hr)) {
            error_.store(hr);
        }
    }
    workerRunning_.store(false);
    return 0;
}

STDMETHODIMP CQVNAVIWriter::GetFileName(LPOLESTR* name) {
    if (name == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(lock_);
    *name = nullptr;
    if (!triedOpen_) {
        return S_FALSE;
    }
    const size_t bytes = (fileName_.size() + 1) * sizeof(wchar_t);
    *name = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
    if (*name == nullptr) {
        return E_OUTOFMEMORY;
    }
    memcpy(*name, fileName_.c_str(), bytes);
    return S_OK;
}

STDMETHODIMP CQVNAVIWriter::GetState(QVNAVIWriterState* state) {
    if (state == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(lock_);
    state->fileOpen = file_ != nullptr;
    state->streams = static_cast<ULONG>(streams_.size());
    state->openStreams = openStreams_;
    state->error = error_.load();
    state->queued = task_ != nullptr ? task_->Count() : 0;
    state->dropped = dropped_.load();
    return S_OK;
}

STDMETHODIMP CQVNAVIWriter::GetStreamState(ULONG stream, QVNAVIStreamState* state) {
    if (state == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(lock_);
    if (stream >= streams_.size()) {
        return E_INVALIDARG;
    }
    const StreamRecord& record = *streams_[stream];
    state->fccType = record.fccType;
    state->pin = record.pin;
    state->chunksWritten = record.chunks.load();
    state->repeatsWritten = record.repeats.load();
    state->bytesWritten = record.bytes.load();
    state->lastStop = record.lastStop;
    return S_OK;
}

STDMETHODIMP CQVNAVIWriter::StartAt(const REFERENCE_TIME* start, DWORD cookie) {
    CAutoLock lock(lock_);
    HRESULT result = S_OK;
    for (CAVIInputPin* pin : inputs_) {
        if (pin->IsConnected()) {
            const HRESULT hr = pin->StartAt(start, cookie);
            if (FAILED(hr) && SUCCEEDED(result)) {
                result = hr;
            }
        }
    }
    return result;
}

STDMETHODIMP CQVNAVIWriter::StopAt(const REFERENCE_TIME* stop, BOOL sendExtra, DWORD cookie) {
    CAutoLock lock(lock_);
    HRESULT result = S_OK;
    for (CAVIInputPin* pin : inputs_) {
        if (pin->IsConnected()) {
            const HRESULT hr = pin->StopAt(stop, sendExtra, cookie);
            if (FAILED(hr) && SUCCEEDED(result)) {
                result = hr;
            }
        }
    }
    return result;
}

STDMETHODIMP CQVNAVIWriter::GetInfo(AM_STREAM_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(lock_);
    for (CAVIInputPin* pin : inputs_) {
        if (pin->IsConnected()) {
            return pin->GetInfo(info);
        }
    }
    return VFW_E_NOT_CONNECTED;
}

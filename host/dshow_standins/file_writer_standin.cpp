#include "host/dshow_standins/file_writer_standin.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <string>

#include "dshow/base/base_input_pin.h"
#include "dshow/base/class_factory.h"
#include "dshow/base/media_type.h"

namespace qvn_standins {

const CLSID kClsidFileWriter = {0x8596e5f0, 0x0da5, 0x11d0, {0xbd, 0x21, 0x00, 0xa0, 0xc9, 0x11, 0xce, 0x86}};

namespace {

class CFileWriterStandIn;

class CFileWriterPin : public CBaseInputPin {
public:
    CFileWriterPin(CFileWriterStandIn* filter, CCritSec* lock, HRESULT* phr);

    HRESULT CheckMediaType(const CMediaType* type) override {
        if (type == nullptr) {
            return E_POINTER;
        }
        return IsEqualGUID(type->majortype, MEDIATYPE_Stream) && IsEqualGUID(type->subtype, MEDIASUBTYPE_Avi)
                   ? S_OK
                   : S_FALSE;
    }
    HRESULT GetMediaType(int position, CMediaType* type) override {
        if (type == nullptr) {
            return E_POINTER;
        }
        if (position != 0) {
            return position < 0 ? E_INVALIDARG : VFW_S_NO_MORE_ITEMS;
        }
        type->InitMediaType();
        type->SetType(&MEDIATYPE_Stream);
        type->SetSubtype(&MEDIASUBTYPE_Avi);
        return S_OK;
    }
    STDMETHODIMP Receive(IMediaSample* sample) override {
        const HRESULT hr = CBaseInputPin::Receive(sample);
        if (hr == S_OK) {
            InterlockedIncrement(&received_);
        }
        return hr;
    }
    STDMETHODIMP EndOfStream() override;

private:
    CFileWriterStandIn* const writer_;
    volatile LONG received_ = 0;
};

class CFileWriterStandIn : public CBaseFilter, public IFileSinkFilter2, public IAMFilterMiscFlags {
    friend class CFileWriterPin;

public:
    explicit CFileWriterStandIn(HRESULT* phr)
        : CBaseFilter(L"File Writer stand-in", nullptr, &lock_, kClsidFileWriter), pin_(this, &lock_, phr) {}
    ~CFileWriterStandIn() override { FreeMediaType(type_); }

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualIID(iid, IID_IFileSinkFilter)) {
            return GetInterface(static_cast<IFileSinkFilter*>(this), object);
        }
        if (IsEqualIID(iid, IID_IFileSinkFilter2)) {
            return GetInterface(static_cast<IFileSinkFilter2*>(this), object);
        }
        if (IsEqualIID(iid, IID_IAMFilterMiscFlags)) {
            return GetInterface(static_cast<IAMFilterMiscFlags*>(this), object);
        }
        return CBaseFilter::NonDelegatingQueryInterface(iid, object);
    }

    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int n) override { return n == 0 ? &pin_ : nullptr; }

    // IFileSinkFilter
    STDMETHODIMP SetFileName(LPCOLESTR name, const AM_MEDIA_TYPE* type) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        CAutoLock lock(lock_);
        AM_MEDIA_TYPE copy{};
        if (type != nullptr && FAILED(CopyMediaType(&copy, type))) {
            return E_OUTOFMEMORY;
        }
        try {
            name_ = name;
        } catch (const std::bad_alloc&) {
            FreeMediaType(copy);
            return E_OUTOFMEMORY;
        }
        FreeMediaType(type_);
        type_ = copy;
        hasName_ = true;
        return S_OK;
    }
    // E_FAIL with a null name before SetFileName; a type that SetFileName did not give comes back zeroed.
    STDMETHODIMP GetCurFile(LPOLESTR* name, AM_MEDIA_TYPE* type) override {
        if (name == nullptr) {
            return E_POINTER;
        }
        CAutoLock lock(lock_);
        *name = nullptr;
        if (type != nullptr) {
            *type = AM_MEDIA_TYPE{};
        }
        if (!hasName_) {
            return E_FAIL;
        }
        const size_t bytes = (name_.size() + 1) * sizeof(WCHAR);
        *name = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
        if (*name == nullptr) {
            return E_OUTOFMEMORY;
        }
        memcpy(*name, name_.c_str(), bytes);
        if (type != nullptr && FAILED(CopyMediaType(type, &type_))) {
            CoTaskMemFree(*name);
            *name = nullptr;
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

    // IFileSinkFilter2
    STDMETHODIMP SetMode(DWORD flags) override {
        if ((flags & ~static_cast<DWORD>(AM_FILE_OVERWRITE)) != 0) {
            return E_INVALIDARG;
        }
        CAutoLock lock(lock_);
        mode_ = flags;
        return S_OK;
    }
    STDMETHODIMP GetMode(DWORD* flags) override {
        if (flags == nullptr) {
            return E_POINTER;
        }
        CAutoLock lock(lock_);
        *flags = mode_;
        return S_OK;
    }

    STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

    STDMETHODIMP Run(REFERENCE_TIME start) override {
        CAutoLock lock(lock_);
        const bool starting = m_State != State_Running;
        const HRESULT hr = CBaseFilter::Run(start);
        if (SUCCEEDED(hr) && starting) {
            running_ = true;
            if (!pin_.IsConnected() || completionPending_) {
                completionPending_ = false;
                NotifyEvent(EC_COMPLETE, S_OK, 0);
            }
        }
        return hr;
    }
    STDMETHODIMP Pause() override {
        CAutoLock lock(lock_);
        running_ = false;
        return CBaseFilter::Pause();
    }
    STDMETHODIMP Stop() override {
        CAutoLock lock(lock_);
        running_ = false;
        completionPending_ = false;
        return CBaseFilter::Stop();
    }

private:
    CCritSec lock_;
    CFileWriterPin pin_;
    std::wstring name_;
    bool hasName_ = false;
    AM_MEDIA_TYPE type_{};
    DWORD mode_ = 0;
    bool running_ = false;           // under lock_
    bool completionPending_ = false; // under lock_
};

CFileWriterPin::CFileWriterPin(CFileWriterStandIn* filter, CCritSec* lock, HRESULT* phr)
    : CBaseInputPin(L"File Writer stand-in pin", filter, lock, phr, L"in"), writer_(filter) {}

STDMETHODIMP CFileWriterPin::EndOfStream() {
    CAutoLock lock(*m_pLock);
    const HRESULT hr = CheckStreamingState();
    if (hr != S_OK) {
        return hr;
    }
    if (!writer_->running_) {
        writer_->completionPending_ = true;
        return S_OK;
    }
    return writer_->NotifyEvent(EC_COMPLETE, S_OK, 0);
}

const CFactoryTemplate kTemplate = {L"File writer", &kClsidFileWriter, CreateStandIn<CFileWriterStandIn>,
                                    nullptr, nullptr};

} // namespace

bool PlatformFileWriterReportsName() {
    IBaseFilter* filter = nullptr;
    if (FAILED(CoCreateInstance(kClsidFileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(&filter)))) {
        return false;
    }
    bool reports = false;
    IFileSinkFilter* sink = nullptr;
    if (SUCCEEDED(filter->QueryInterface(IID_IFileSinkFilter, reinterpret_cast<void**>(&sink)))) {
        static const wchar_t kProbe[] =
            L"C:\\qvn-file-writer-probe.avi"; // never created: the graph does not run
        LPOLESTR got = nullptr;
        if (SUCCEEDED(sink->SetFileName(kProbe, nullptr)) && SUCCEEDED(sink->GetCurFile(&got, nullptr)) &&
            got != nullptr) {
            reports = wcscmp(got, kProbe) == 0;
        }
        CoTaskMemFree(got);
        sink->Release();
    }
    filter->Release();
    return reports;
}

FileWriterStandInRegistration::FileWriterStandInRegistration()
    : StandInRegistration(&kTemplate, PlatformFileWriterReportsName) {}

} // namespace qvn_standins

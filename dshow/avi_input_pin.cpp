#include "dshow/avi_input_pin.h"

#include "dshow/avi_output_pin.h"
#include "dshow/qvn_avi_writer.h"

namespace {
constexpr DWORD kStartDefined = AM_STREAM_INFO_START_DEFINED; // flag 1
constexpr DWORD kStopDefined = AM_STREAM_INFO_STOP_DEFINED;   // flag 2
constexpr DWORD kSendExtra = AM_STREAM_INFO_STOP_SEND_EXTRA;  // flag 16
static_assert(kStartDefined == 1 && kStopDefined == 2 && kSendExtra == 16);
static_assert(sizeof(AM_STREAM_INFO) == 32);
constexpr REFERENCE_TIME kNoTime = 0x7FFFFFFFFFFFFFFF;
} // namespace

CAVIInputPin::CAVIInputPin(CQVNAVIWriter* filter, CCritSec* lock, HRESULT* phr)
    : CBaseInputPin(L"StreamInputPin", filter, lock, phr, L"Input"), writer_(filter) {}

STDMETHODIMP CAVIInputPin::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IAMStreamControl)) {
        return GetInterface(static_cast<IAMStreamControl*>(this), object);
    }
    return CBaseInputPin::NonDelegatingQueryInterface(iid, object);
}

HRESULT CAVIInputPin::CheckMediaType(const CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    if (IsEqualGUID(type->majortype, MEDIATYPE_Video) && IsEqualGUID(type->formattype, FORMAT_VideoInfo) &&
        type->pbFormat != nullptr && type->cbFormat >= sizeof(VIDEOINFOHEADER)) {
        return S_OK;
    }
    if (IsEqualGUID(type->majortype, MEDIATYPE_Audio) && IsEqualGUID(type->formattype, FORMAT_WaveFormatEx) &&
        type->pbFormat != nullptr && type->cbFormat >= sizeof(WAVEFORMATEX)) {
        const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(type->pbFormat);
        if (wave->wFormatTag != WAVE_FORMAT_EXTENSIBLE || type->cbFormat >= sizeof(WAVEFORMATEXTENSIBLE)) {
            return S_OK;
        }
    }
    return S_FALSE;
}

HRESULT CAVIInputPin::GetMediaType(int position, CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    if (position < 0) {
        return E_INVALIDARG;
    }
    if (position > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    type->InitMediaType();
    type->SetType(&MEDIATYPE_Video);
    return S_OK;
}

HRESULT CAVIInputPin::CompleteConnect(IPin* receivePin) {
    stream_ = -1;
    {
        CAutoLock control(controlLock_);
        started_ = 0;
        control_ = AM_STREAM_INFO{};
    }
    const HRESULT hr = CBaseInputPin::CompleteConnect(receivePin);
    if (SUCCEEDED(hr)) {
        writer_->PinConnected();
    }
    return hr;
}

STDMETHODIMP CAVIInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* props) {
    if (props == nullptr) {
        return E_POINTER;
    }
    props->cBuffers = 30;
    props->cbBuffer = static_cast<LONG>(m_mt.GetSampleSize());
    props->cbAlign = 4096;
    props->cbPrefix = 0;
    return S_OK;
}

STDMETHODIMP CAVIInputPin::Receive(IMediaSample* sample) {
    if (m_bFlushing) {
        return S_FALSE;
    }
    if (sample == nullptr) {
        return E_POINTER;
    }
    LONG stream = -1;
    {
        CAutoLock lock(*m_pLock);
        stream = stream_;
    }
    if (stream < 0) {
        return VFW_E_WRONG_STATE;
    }
    bool deliver = true;
    long event = 0;
    DWORD cookie = 0;
    {
        CAutoLock control(controlLock_);
        const DWORD flags = control_.dwFlags;
        if ((flags & (kStartDefined | kStopDefined)) != 0) {
            REFERENCE_TIME start = 0, stop = 0;
            if (FAILED(sample->GetTime(&start, &stop))) {
                return S_OK; // untimed samples cannot be gated: dropped
            }
            if ((flags & kStartDefined) != 0 && stop <= control_.tStart) {
                deliver = false; // before the start time
            } else if ((flags & kStopDefined) != 0 && start > control_.tStop) {
                deliver = false; // after the stop time
                if (started_ != 0) {
                    started_ = 0;
                    event = EC_STREAM_CONTROL_STOPPED;
                    cookie = control_.dwStopCookie;
                }
            } else if ((flags & kStartDefined) != 0 && started_ == 0) {
                started_ = 1;
                event = EC_STREAM_CONTROL_STARTED;
                cookie = control_.dwStartCookie;
            }
        }
    }
    if (event != 0) {
        writer_->NotifyEvent(event, reinterpret_cast<LONG_PTR>(static_cast<IPin*>(this)), cookie);
    }
    return deliver ? writer_->Deliver(stream, sample) : S_OK;
}

STDMETHODIMP CAVIInputPin::EndOfStream() {
    {
        CAutoLock lock(*m_pLock);
        if (stream_ < 0) {
            return S_OK; // this pin feeds no stream of the file
        }
    }
    if (writer_->StreamEnded()) {
        // Outside the filter lock: the File Writer reports completion to the graph from this call.
        writer_->output_->DeliverEndOfStream();
    }
    return S_OK;
}

STDMETHODIMP CAVIInputPin::StartAt(const REFERENCE_TIME* start, DWORD cookie) {
    CAutoLock control(controlLock_);
    if (start == nullptr || *start == kNoTime) {
        control_.dwFlags &= ~kStartDefined;
    } else {
        control_.dwFlags |= kStartDefined;
        control_.tStart = *start;
        control_.dwStartCookie = cookie;
    }
    return S_OK;
}

STDMETHODIMP CAVIInputPin::StopAt(const REFERENCE_TIME* stop, BOOL sendExtra, DWORD cookie) {
    CAutoLock control(controlLock_);
    if (stop == nullptr || *stop == kNoTime) {
        control_.dwFlags &= ~kStopDefined;
    } else {
        control_.dwFlags |= kStopDefined;
        if (sendExtra) {
            control_.dwFlags |= kSendExtra;
        } else {
            control_.dwFlags &= ~kSendExtra;
        }
        control_.tStop = *stop;
        control_.dwStopCookie = cookie;
    }
    return S_OK;
}

STDMETHODIMP CAVIInputPin::GetInfo(AM_STREAM_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    CAutoLock control(controlLock_);
    *info = control_;
    return S_OK;
}

#include "dshow/audio_source.h"

#include <algorithm>
#include <new>

CAudioSourcePin::CAudioSourcePin(HRESULT* phr, CSource* filter)
    : CPushSourcePin(L"Audio source pin", phr, filter, L"Audio") {
    SetAudioFormat(2, 48000, 16, WAVE_FORMAT_PCM);
}

const WAVEFORMATEX* CAudioSourcePin::Format() const {
    if (!IsEqualGUID(mediaType_.formattype, FORMAT_WaveFormatEx) ||
        mediaType_.cbFormat < sizeof(WAVEFORMATEX)) {
        return nullptr;
    }
    return reinterpret_cast<const WAVEFORMATEX*>(mediaType_.pbFormat);
}

HRESULT CAudioSourcePin::SetAudioFormat(WORD channels, DWORD samplesPerSecond, WORD bitsPerSample,
                                        SHORT formatTag) {
    CAutoLock lock(*m_pFilter->pStateLock());
    if (!IsStopped()) {
        return VFW_E_NOT_STOPPED;
    }
    // The sub-format GUIDs of PCM-like formats carry the format tag in their first field.
    GUID subtype = MEDIASUBTYPE_PCM;
    subtype.Data1 = static_cast<WORD>(formatTag);
    WAVEFORMATEXTENSIBLE format{};
    ULONG size = sizeof(WAVEFORMATEX);
    if (channels == 6) {
        size = sizeof(WAVEFORMATEXTENSIBLE);
        format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        format.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
        format.dwChannelMask = SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER |
                               SPEAKER_LOW_FREQUENCY | SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT;
        format.SubFormat = subtype;
        // The valid-bits field stays 0 on purpose: the readers take wBitsPerSample.
    } else {
        format.Format.wFormatTag = static_cast<WORD>(formatTag);
    }
    format.Format.nChannels = channels;
    format.Format.nSamplesPerSec = samplesPerSecond;
    format.Format.wBitsPerSample = bitsPerSample;
    format.Format.nBlockAlign = static_cast<WORD>(channels * bitsPerSample / 8);
    format.Format.nAvgBytesPerSec = samplesPerSecond * format.Format.nBlockAlign;

    CMediaType type(&MEDIATYPE_Audio);
    type.SetSubtype(&subtype);
    type.SetFormatType(&FORMAT_WaveFormatEx);
    type.SetSampleSize(format.Format.nBlockAlign);
    if (!type.SetFormat(reinterpret_cast<BYTE*>(&format), size)) {
        return E_OUTOFMEMORY;
    }
    {
        CAutoLock pin(pinLock_);
        const HRESULT hr = mediaType_.Set(type);
        if (FAILED(hr)) {
            return hr;
        }
        suggested_ = ALLOCATOR_PROPERTIES{-1, -1, -1, -1};
    }
    if (IsConnected() && m_pFilter->GetFilterGraph() != nullptr) {
        return m_pFilter->GetFilterGraph()->Reconnect(this);
    }
    return S_OK;
}

HRESULT CAudioSourcePin::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) {
    if (allocator == nullptr || request == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(pinLock_);
    const WAVEFORMATEX* format = Format();
    if (format == nullptr) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    ALLOCATOR_PROPERTIES props = *request;
    props.cbBuffer = static_cast<LONG>(2 * format->nAvgBytesPerSec);
    if (props.cBuffers == 0) {
        props.cBuffers = 5;
    }
    return SetBufferProperties(allocator, props);
}

HRESULT CAudioSourcePin::FillBuffer(IMediaSample* sample) {
    CAutoLock lock(pinLock_);
    if (AllocatorEndReached()) {
        return S_FALSE;
    }
    const WAVEFORMATEX* format = Format();
    if (format == nullptr || format->nBlockAlign == 0 || format->nSamplesPerSec == 0) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    const LONGLONG frames = sample->GetActualDataLength() / format->nBlockAlign;
    if (format->nChannels == 6) {
        // The producer's 5.1 order is L, R, Ls, Rs, C, LFE; the file's is L, R, C, LFE, Ls, Rs: channels 2
        // and 3 trade places with 4 and 5 in every sample frame.
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const int width = format->nBlockAlign / 6;
        for (LONGLONG f = 0; f < frames; ++f) {
            BYTE* frame = data + f * format->nBlockAlign;
            std::swap_ranges(frame + 2 * width, frame + 4 * width, frame + 4 * width);
        }
    }
    REFERENCE_TIME start = nextStart_;
    // Truncated per block: the stamps may run up to 100 ns per block behind the exact sample time.
    REFERENCE_TIME stop = start + frames * 10000000 / format->nSamplesPerSec;
    nextStart_ = stop;
    sample->SetTime(&start, &stop);
    NoteAudioDelivery();
    LONGLONG first = nextMediaTime_;
    LONGLONG end = first + frames;
    sample->SetMediaTime(&first, &end);
    nextMediaTime_ = end;
    sample->SetSyncPoint(TRUE);
    return GateSample(sample);
}

CAudioSource::CAudioSource(HRESULT* phr) : CPushSource(L"Audio Frame Source", phr) {
    if (phr != nullptr && FAILED(*phr)) {
        return;
    }
    audioPin_ = new (std::nothrow) CAudioSourcePin(phr, this);
    if (audioPin_ == nullptr && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
    pushPin_ = audioPin_;
}

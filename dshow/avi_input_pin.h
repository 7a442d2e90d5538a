// CAVIInputPin: one stream into CQVNAVIWriter ("Input"). It accepts video with a VIDEOINFOHEADER and audio
// with a WAVEFORMATEX, asks for 4096-aligned buffers so that video payloads can reach the unbuffered file
// handle without a copy, and gates its samples with a stream control of its own (IAMStreamControl).
//
// The stream control differs from the platform's: a null (or MAXLONGLONG) start time simply removes the
// start gate, and the pin passes samples at once. With a start time set (flag 1), a sample whose stop time
// is not after it is dropped. With a stop time set (flag 2), a sample that starts after it is dropped; the
// first such sample after the pin has started sends EC_STREAM_CONTROL_STOPPED with the stop cookie and
// clears the started state, so later late samples send nothing. The first sample that passes both gates
// while the start gate is set sends EC_STREAM_CONTROL_STARTED with the start cookie. Flag 16 records the
// send-extra request. Both events carry the pin as their first parameter.
#pragma once

#include "dshow/base/base_input_pin.h"

class CQVNAVIWriter;

class CAVIInputPin : public CBaseInputPin, public IAMStreamControl {
public:
    CAVIInputPin(CQVNAVIWriter* filter, CCritSec* lock, HRESULT* phr);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override;

    // "vids" with FORMAT_VideoInfo and "auds" with FORMAT_WaveFormatEx (with a format block large enough
    // for its structure); S_FALSE for anything else.
    HRESULT CheckMediaType(const CMediaType* type) override;
    // Position 0: a video type without subtype or format (the upstream pin proposes the real type).
    HRESULT GetMediaType(int position, CMediaType* type) override;
    // Resets the stream number and the stream control, connects, then lets the filter add a spare pin.
    HRESULT CompleteConnect(IPin* receivePin) override;

    // 30 buffers of the connection type's sample size, aligned to 4096, no prefix.
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* props) override;
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP EndOfStream() override;

    // IAMStreamControl
    STDMETHODIMP StartAt(const REFERENCE_TIME* start, DWORD cookie) override;
    STDMETHODIMP StopAt(const REFERENCE_TIME* stop, BOOL sendExtra, DWORD cookie) override;
    STDMETHODIMP GetInfo(AM_STREAM_INFO* info) override;

    // The file's stream this pin feeds; -1 until a file is opened with it. Under the filter lock.
    LONG StreamNumber() const { return stream_; }
    void SetStreamNumber(LONG stream) { stream_ = stream; }

private:
    CQVNAVIWriter* const writer_;
    LONG stream_ = -1;
    CCritSec controlLock_; // the stream-control record and the started flag
    AM_STREAM_INFO control_{};
    BYTE started_ = 0;
};

// The audio source filter ("Audio Frame Source") and its pin ("Audio"): blocks of interleaved PCM become
// samples stamped by their sample count.
#pragma once

#include "dshow/push_source.h"

class CAudioSourcePin : public CPushSourcePin {
public:
    // Starts with 48 kHz 16-bit stereo PCM, so that the pin can be connected before the format is known.
    CAudioSourcePin(HRESULT* phr, CSource* filter);

    // A WAVEFORMATEX for formatTag, or for 6 channels a WAVEFORMATEXTENSIBLE with the 5.1 channel mask and
    // formatTag as its sub-format. Only while the filter is stopped; a connected pin is reconnected.
    HRESULT SetAudioFormat(WORD channels, DWORD samplesPerSecond, WORD bitsPerSample, SHORT formatTag);

protected:
    // Two seconds of sound per buffer; 5 buffers unless downstream or a suggestion says.
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;
    HRESULT FillBuffer(IMediaSample* sample) override;

private:
    const WAVEFORMATEX* Format() const;
};

class CAudioSource : public CPushSource {
public:
    explicit CAudioSource(HRESULT* phr);
    CAudioSourcePin* Pin() { return audioPin_; }

private:
    CAudioSourcePin* audioPin_ = nullptr;
};

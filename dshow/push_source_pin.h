// What the video and audio source pins share. The design is zero-copy and producer-driven: the pin
// allocates the frame buffers itself once the allocator is negotiated, the producer renders into them and
// hands each back with its length, and the pin's streaming thread stamps the queued samples and delivers
// them. Downstream always gets our CEncoderAllocator, whose samples carry the producer's buffers.
#pragma once

#include <vector>

#include "dshow/base/source_stream.h"
#include "dshow/base/stream_control.h"
#include "dshow/encoder_allocator.h"

class CPushSourcePin : public CSourceStream, public IAMBufferNegotiation, public CBaseStreamControl {
public:
    CPushSourcePin(const wchar_t* objectName, HRESULT* phr, CSource* filter, const wchar_t* pinName);
    ~CPushSourcePin() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override;

    // IAMBufferNegotiation: a value above 0 replaces the pin's own choice when the buffers are sized.
    STDMETHODIMP SuggestAllocatorProperties(const ALLOCATOR_PROPERTIES* props) override;
    STDMETHODIMP GetAllocatorProperties(ALLOCATOR_PROPERTIES* props) override;

    // A newly allocated copy of the current media type (free it with DeleteMediaType).
    HRESULT GetStreamMediaType(AM_MEDIA_TYPE** type);

    // The producer's side.
    // Allocates the frame buffers for the negotiated properties, replacing earlier ones.
    HRESULT AllocateBuffers();
    // Every buffer the producer may render into.
    HRESULT GetFreeBuffers(std::vector<void*>& buffers);
    // The buffers downstream has finished with since the last call.
    HRESULT ReclaimBuffers(std::vector<void*>& buffers);
    // Queues one filled buffer for the streaming thread; a length of 0 makes an empty sample. Blocks while
    // downstream holds every sample.
    HRESULT DeliverBuffer(BYTE* buffer, DWORD length);
    // No more buffers come: the streaming thread delivers what is queued, then ends the stream.
    HRESULT SignalEndOfStream();

    // The allocator properties the negotiation settled on.
    ALLOCATOR_PROPERTIES ActualProperties();

protected:
    HRESULT InitAllocator(IMemAllocator** allocator) override;
    // Never tries the downstream pin's allocator: ours carries the producer's buffers.
    HRESULT DecideAllocator(IMemInputPin* pin, IMemAllocator** allocator) override;
    HRESULT GetMediaType(CMediaType* type) override;
    // A sample that stream control discards is not passed on (see GateSample).
    HRESULT Deliver(IMediaSample* sample) override;

    // Applies the suggestions to props, sets them on the allocator and keeps what it granted. Caller holds
    // the pin lock.
    HRESULT SetBufferProperties(IMemAllocator* allocator, ALLOCATOR_PROPERTIES props);
    // True once the producer has ended the stream and every queued sample has gone.
    bool AllocatorEndReached();
    // The stream-control check after stamping: a sample outside the gate is skipped after a pause of 20 ms
    // (the producer is far ahead, nothing is lost by waiting), and the first sample to flow again is marked
    // as a discontinuity. Once a stop has taken effect and no start is pending, the stream is over: the
    // answer is S_FALSE, which ends the stream downstream (so that renderers complete and the graph
    // reports completion).
    HRESULT GateSample(IMediaSample* sample);
    bool StoppedForGood();

    CCritSec pinLock_;
    ALLOCATOR_PROPERTIES suggested_{-1, -1, -1, -1};
    ALLOCATOR_PROPERTIES actual_{};
    CMediaType mediaType_;
    REFERENCE_TIME nextStart_ = 0;
    LONGLONG nextMediaTime_ = 0;

private:
    IEncoderAllocator* EncoderAllocator(); // with a reference, or null
    void ReleasePool();

    DWORD discontinuityPending_ = 0;
    bool skipSample_ = false;
    std::vector<void*> blocks_;
    std::vector<void*> payloads_;
};

// When each kind of sample last left a source pin (timeGetTime, for diagnostics; written without a lock).
DWORD LastVideoDeliveryTime();
DWORD LastAudioDeliveryTime();
void NoteVideoDelivery();
void NoteAudioDelivery();

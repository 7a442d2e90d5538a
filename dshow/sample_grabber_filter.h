// "Sample Grabber": passes every preview frame to the caller's frame sink and on downstream unchanged. The
// sink may be set or removed from another thread while frames flow; a lock keeps each frame's callback and
// a sink change apart, so that a removed sink is never called again.
#pragma once

#include "dshow/base/trans_in_place_filter.h"
#include "encoders/frame_sink.h"

class CSampleGrabberFilter : public CTransInPlaceFilter {
public:
    CSampleGrabberFilter(LPUNKNOWN pUnk, HRESULT* phr);
    ~CSampleGrabberFilter() override;

    // Replaces the sink (null: none); the grabber holds a reference. enabled is accepted for the callers'
    // sake and not stored: a set sink is called.
    HRESULT SetSink(IFrameSink* sink, BOOL enabled);
    // The only type the input takes (major type, subtype, format type, and the frame's width, height and
    // compression); until one is set, none is taken.
    HRESULT SetAcceptedMediaType(const CMediaType* mt);

    // E_POINTER for null; VFW_E_TYPE_NOT_ACCEPTED unless the type matches the accepted one.
    HRESULT CheckInputType(const CMediaType* mtIn) override;
    // The sink's result is the result: a failing sink stops the preview branch.
    HRESULT Transform(IMediaSample* pSample) override;

private:
    enum Mode { kBufferMode = 0, kSampleMode = 1 };

    CCritSec m_lock; // the sink and the transform
    CMediaType m_mtAccepted;
    IFrameSink* m_pSink = nullptr;
    int m_mode = kBufferMode; // only buffer mode is used: the sink gets the data, not the sample
};

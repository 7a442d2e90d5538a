// IAMStreamControl for a pin: a start and a stop time (stream time, 100 ns) that gate the samples the pin
// delivers, with the application's cookies sent back as EC_STREAM_CONTROL_STARTED / _STOPPED when a gate
// takes effect. The pin derives from this class, answers IID_IAMStreamControl with it, supplies IUnknown,
// and keeps it informed: NotifyFilterState on every state change, SetSyncSource, SetFilterGraph when the
// filter joins a graph, Flushing in BeginFlush/EndFlush. It asks CheckStreamState for every sample.
#pragma once

#include "dshow/base/dshow_headers.h"
#include "dshow/base/unknown.h"

class CBaseStreamControl : public IAMStreamControl {
public:
    enum StreamControlState { STREAM_FLOWING = 0x1000, STREAM_DISCARDING };

    explicit CBaseStreamControl(HRESULT* phr = nullptr);
    virtual ~CBaseStreamControl();
    CBaseStreamControl(const CBaseStreamControl&) = delete;
    CBaseStreamControl& operator=(const CBaseStreamControl&) = delete;

    // The clock lets a discarding pin throw samples away at their own time rather than all at once.
    void SetSyncSource(IReferenceClock* pRefClock);
    // The graph's event sink (not reference counted: the graph owns the filter that owns us).
    void SetFilterGraph(IMediaEventSink* pSink);
    // Stopping executes any pending start and stop (their events go out) and leaves the stream flowing.
    void NotifyFilterState(FILTER_STATE new_state, REFERENCE_TIME tStart = 0);
    void Flushing(BOOL bInProgress);

    // IAMStreamControl. StartAt(null) starts now; StopAt(null) stops now; MAXLONGLONG cancels.
    STDMETHODIMP StartAt(const REFERENCE_TIME* ptStart = nullptr, DWORD dwCookie = 0) override;
    STDMETHODIMP StopAt(const REFERENCE_TIME* ptStop = nullptr, BOOL bSendExtra = FALSE,
                        DWORD dwCookie = 0) override;
    STDMETHODIMP GetInfo(AM_STREAM_INFO* pInfo) override;

    // Deliver the sample only when this answers STREAM_FLOWING. A sample without times follows the
    // current state. While discarding with a clock, blocks until the sample's start time (indefinitely
    // while paused) unless the state changes, a flush starts or a new start/stop arrives.
    StreamControlState CheckStreamState(IMediaSample* pSample);

private:
    // Under m_CritSec: applies the gates against one sample's times; answers the resulting state.
    StreamControlState CheckSampleTimes(const REFERENCE_TIME* pSampleStart,
                                        const REFERENCE_TIME* pSampleStop);
    void ExecuteStart();
    void ExecuteStop();
    void CancelStart();
    void CancelStop();
    // The event's first parameter: the pin (IPin) when this object is one, as the events document.
    LONG_PTR Sender();

    StreamControlState m_StreamState = STREAM_FLOWING;
    StreamControlState m_StreamStateOnStop = STREAM_FLOWING; // STREAM_FLOWING: no stop pending
    REFERENCE_TIME m_tStartTime = MAXLONGLONG;               // MAXLONGLONG: none
    REFERENCE_TIME m_tStopTime = MAXLONGLONG;
    DWORD m_dwStartCookie = 0;
    DWORD m_dwStopCookie = 0;
    volatile BOOL m_bIsFlushing = FALSE;
    volatile BOOL m_bStopSendExtra = FALSE;
    volatile BOOL m_bStopExtraSent = FALSE;
    CCritSec m_CritSec;
    HANDLE m_StreamEvent = nullptr; // auto-reset: wakes a sample waiting to be discarded
    IReferenceClock* m_pRefClock = nullptr;
    IMediaEventSink* m_pSink = nullptr;
    FILTER_STATE m_FilterState = State_Stopped;
    REFERENCE_TIME m_tRunStart = 0;
};

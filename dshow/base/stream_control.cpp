#include "dshow/base/stream_control.h"

CBaseStreamControl::CBaseStreamControl(HRESULT* phr) {
    m_StreamEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_StreamEvent == nullptr && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
}

CBaseStreamControl::~CBaseStreamControl() {
    SetSyncSource(nullptr);
    if (m_StreamEvent != nullptr) {
        CloseHandle(m_StreamEvent);
    }
}

void CBaseStreamControl::SetSyncSource(IReferenceClock* pRefClock) {
    CAutoLock lock(m_CritSec);
    if (pRefClock != nullptr) {
        pRefClock->AddRef();
    }
    if (m_pRefClock != nullptr) {
        m_pRefClock->Release();
    }
    m_pRefClock = pRefClock;
}

void CBaseStreamControl::SetFilterGraph(IMediaEventSink* pSink) {
    CAutoLock lock(m_CritSec);
    m_pSink = pSink;
}

STDMETHODIMP CBaseStreamControl::StartAt(const REFERENCE_TIME* ptStart, DWORD dwCookie) {
    CAutoLock lock(m_CritSec);
    if (ptStart == nullptr) {
        // Start now, with no notification.
        CancelStart();
        m_StreamState = STREAM_FLOWING;
    } else if (*ptStart == MAXLONGLONG) {
        CancelStart();
        // Only a future stop is left: the stream should flow when the graph runs.
        if (m_FilterState == State_Stopped && m_tStopTime != MAXLONGLONG) {
            m_StreamState = STREAM_FLOWING;
        }
        return S_OK;
    } else {
        // A start scheduled while stopped (and not after a pending stop) means: begin discarding.
        if (m_FilterState == State_Stopped && m_tStopTime >= *ptStart) {
            m_StreamState = STREAM_DISCARDING;
        }
        m_tStartTime = *ptStart;
        m_dwStartCookie = dwCookie;
    }
    SetEvent(m_StreamEvent); // a sample waiting to be discarded is looked at again
    return S_OK;
}

STDMETHODIMP CBaseStreamControl::StopAt(const REFERENCE_TIME* ptStop, BOOL bSendExtra, DWORD dwCookie) {
    CAutoLock lock(m_CritSec);
    m_bStopSendExtra = FALSE;
    m_bStopExtraSent = FALSE;
    if (ptStop == nullptr) {
        // Stop now, with no notification and no extra sample.
        CancelStop();
        m_StreamState = STREAM_DISCARDING;
    } else if (*ptStop == MAXLONGLONG) {
        CancelStop();
        // Only a future start is left: the stream should discard until then.
        if (m_FilterState == State_Stopped && m_tStartTime != MAXLONGLONG) {
            m_StreamState = STREAM_DISCARDING;
        }
        return S_OK;
    } else {
        // A stop scheduled while stopped, before any pending start, means: begin flowing.
        if (m_FilterState == State_Stopped && m_tStartTime > *ptStop) {
            m_StreamState = STREAM_FLOWING;
        }
        m_bStopSendExtra = bSendExtra;
        m_tStopTime = *ptStop;
        m_dwStopCookie = dwCookie;
        m_StreamStateOnStop = STREAM_DISCARDING;
    }
    SetEvent(m_StreamEvent);
    return S_OK;
}

STDMETHODIMP CBaseStreamControl::GetInfo(AM_STREAM_INFO* pInfo) {
    if (pInfo == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(m_CritSec);
    pInfo->tStart = m_tStartTime;
    pInfo->tStop = m_tStopTime;
    pInfo->dwStartCookie = m_dwStartCookie;
    pInfo->dwStopCookie = m_dwStopCookie;
    DWORD flags = 0;
    if (m_bStopSendExtra) {
        flags |= AM_STREAM_INFO_STOP_SEND_EXTRA;
    }
    if (m_tStartTime != MAXLONGLONG) {
        flags |= AM_STREAM_INFO_START_DEFINED;
    }
    if (m_tStopTime != MAXLONGLONG) {
        flags |= AM_STREAM_INFO_STOP_DEFINED;
    }
    if (m_StreamState == STREAM_DISCARDING) {
        flags |= AM_STREAM_INFO_DISCARDING;
    }
    pInfo->dwFlags = flags;
    return S_OK;
}

LONG_PTR CBaseStreamControl::Sender() {
    // The events name the pin; a stream control that is not a pin names itself.
    IUnknown* sender = dynamic_cast<IPin*>(static_cast<IAMStreamControl*>(this));
    if (sender == nullptr) {
        sender = static_cast<IAMStreamControl*>(this);
    }
    return reinterpret_cast<LONG_PTR>(sender);
}

void CBaseStreamControl::ExecuteStart() {
    m_StreamState = STREAM_FLOWING;
    // A cookie of 0 asks for no notification.
    if (m_dwStartCookie != 0 && m_pSink != nullptr) {
        m_pSink->Notify(EC_STREAM_CONTROL_STARTED, Sender(), static_cast<LONG_PTR>(m_dwStartCookie));
    }
    CancelStart();
}

void CBaseStreamControl::ExecuteStop() {
    m_StreamState = m_StreamStateOnStop;
    if (m_dwStopCookie != 0 && m_pSink != nullptr) {
        m_pSink->Notify(EC_STREAM_CONTROL_STOPPED, Sender(), static_cast<LONG_PTR>(m_dwStopCookie));
    }
    CancelStop();
}

void CBaseStreamControl::CancelStart() {
    m_tStartTime = MAXLONGLONG;
    m_dwStartCookie = 0;
}

void CBaseStreamControl::CancelStop() {
    m_tStopTime = MAXLONGLONG;
    m_dwStopCookie = 0;
    m_StreamStateOnStop = STREAM_FLOWING;
}

// A gate time t lies in the sample [start, stop) when start <= t < stop; a gate before the sample has
// passed. A sample is delivered whole when any part of it flows. When start and stop fall together, the
// start counts first. Passed gates are executed (and forgotten), in time order, so that their events go
// out once.
CBaseStreamControl::StreamControlState
CBaseStreamControl::CheckSampleTimes(const REFERENCE_TIME* pSampleStart, const REFERENCE_TIME* pSampleStop) {
    const REFERENCE_TIME sampleStart = *pSampleStart;
    const REFERENCE_TIME sampleStop = *pSampleStop;
    const bool stopPassed = m_tStopTime < sampleStart;   // the stop lies before this sample
    const bool startReached = m_tStartTime < sampleStop; // the start lies before or in this sample

    if (!stopPassed) {
        if (!startReached) {
            return m_StreamState; // nothing takes effect in this sample
        }
        // The start takes effect here; a stop that precedes it takes effect first.
        if (m_tStopTime < m_tStartTime) {
            ExecuteStop();
        }
        ExecuteStart();
        return m_StreamState;
    }
    if (!startReached) {
        ExecuteStop();
        return m_StreamState;
    }
    // Both passed: the later one decides the state.
    if (m_tStartTime <= m_tStopTime) {
        ExecuteStart();
        ExecuteStop();
    } else {
        ExecuteStop();
        ExecuteStart();
    }
    return m_StreamState;
}

CBaseStreamControl::StreamControlState CBaseStreamControl::CheckStreamState(IMediaSample* pSample) {
    REFERENCE_TIME sampleStart = 0;
    REFERENCE_TIME sampleStop = 0;
    const bool timed = pSample != nullptr && SUCCEEDED(pSample->GetTime(&sampleStart, &sampleStop));

    for (;;) {
        DWORD waitMs = 0;
        {
            CAutoLock lock(m_CritSec);
            if (m_bIsFlushing || m_FilterState == State_Stopped) {
                return STREAM_DISCARDING;
            }
            if (!timed) {
                return m_StreamState; // nothing to compare with the gates
            }
            const StreamControlState state = CheckSampleTimes(&sampleStart, &sampleStop);
            if (state == STREAM_FLOWING) {
                return state;
            }
            // The first sample after an executed stop still goes when the stop asked for one extra.
            if (m_bStopSendExtra && !m_bStopExtraSent && m_tStopTime == MAXLONGLONG) {
                m_bStopExtraSent = TRUE;
                return STREAM_FLOWING;
            }
            if (m_pRefClock == nullptr) {
                return STREAM_DISCARDING; // no clock: discard at once
            }
            if (m_FilterState == State_Paused) {
                waitMs = INFINITE; // no stream time while paused: hold until run, stop or flush
            } else {
                // Discard at the sample's own time, so that a start set later can still catch it.
                REFERENCE_TIME now = 0;
                if (FAILED(m_pRefClock->GetTime(&now))) {
                    return STREAM_DISCARDING;
                }
                const REFERENCE_TIME aheadMs = (sampleStart - (now - m_tRunStart)) / 10000;
                if (aheadMs < 10) {
                    return STREAM_DISCARDING; // not worth waiting for
                }
                waitMs = aheadMs >= INFINITE ? INFINITE - 1 : static_cast<DWORD>(aheadMs);
            }
        }
        if (WaitForSingleObject(m_StreamEvent, waitMs) == WAIT_TIMEOUT) {
            return STREAM_DISCARDING;
        }
        // Woken by a state change, a flush or a new gate: decide again.
    }
}

void CBaseStreamControl::NotifyFilterState(FILTER_STATE new_state, REFERENCE_TIME tStart) {
    CAutoLock lock(m_CritSec);
    if (m_FilterState == new_state) {
        return;
    }
    if (new_state == State_Stopped) {
        // Gates still pending take effect now, in time order, so that their events are not lost.
        const bool start = m_tStartTime != MAXLONGLONG;
        const bool stop = m_tStopTime != MAXLONGLONG;
        if (start && (!stop || m_tStartTime <= m_tStopTime)) {
            ExecuteStart();
        }
        if (stop) {
            ExecuteStop();
        }
        if (start && m_tStartTime != MAXLONGLONG) {
            ExecuteStart(); // a start that lay after the stop
        }
        // The next run begins flowing unless a gate set before it says otherwise.
        m_StreamState = STREAM_FLOWING;
    } else if (new_state == State_Running) {
        m_tRunStart = tStart;
    }
    m_FilterState = new_state;
    SetEvent(m_StreamEvent);
}

void CBaseStreamControl::Flushing(BOOL bInProgress) {
    CAutoLock lock(m_CritSec);
    m_bIsFlushing = bInProgress;
    SetEvent(m_StreamEvent);
}

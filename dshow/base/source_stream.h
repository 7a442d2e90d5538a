// An output pin with its own streaming thread: while the filter is paused or running the thread loops
// getting a buffer, having the derived class fill it, and delivering it, until it is told to stop or
// FillBuffer answers S_FALSE (end of stream).
#pragma once

#include "dshow/base/am_thread.h"
#include "dshow/base/base_output_pin.h"
#include "dshow/base/source.h"

class CSourceStream : public CAMThread, public CBaseOutputPin {
public:
    // Adds the pin to ps; phr receives the failure when that or the base construction fails.
    CSourceStream(const wchar_t* pObjectName, HRESULT* phr, CSource* ps, LPCWSTR pPinName);
    ~CSourceStream() override;

    // The pin's 1-based number as text, which CSource::FindPin takes back.
    STDMETHODIMP QueryId(LPWSTR* Id) override;

protected:
    CSource* m_pFilter;

    // Fills a sample for delivery: S_OK delivers it, S_FALSE ends the stream, a failure ends the stream
    // and reports EC_ERRORABORT.
    virtual HRESULT FillBuffer(IMediaSample* pSamp) = 0;

    // Run on the streaming thread: when it starts, when it ends, and each time the loop (re)starts.
    virtual HRESULT OnThreadCreate() { return S_OK; }
    virtual HRESULT OnThreadDestroy() { return S_OK; }
    virtual HRESULT OnThreadStartPlay() { return S_OK; }

    // Commits the allocator, starts the thread and sends it CMD_INIT then CMD_PAUSE.
    HRESULT Active() override;
    // Decommits the allocator (releasing a thread blocked for a buffer), then stops and ends the thread.
    HRESULT Inactive() override;

    enum Command { CMD_INIT, CMD_PAUSE, CMD_RUN, CMD_STOP, CMD_EXIT };
    HRESULT Init() { return static_cast<HRESULT>(CallWorker(CMD_INIT)); }
    HRESULT Exit() { return static_cast<HRESULT>(CallWorker(CMD_EXIT)); }
    HRESULT Run() { return static_cast<HRESULT>(CallWorker(CMD_RUN)); }
    HRESULT Pause() { return static_cast<HRESULT>(CallWorker(CMD_PAUSE)); }
    HRESULT Stop() { return static_cast<HRESULT>(CallWorker(CMD_STOP)); }

    Command GetRequest() { return static_cast<Command>(CAMThread::GetRequest()); }
    BOOL CheckRequest(Command* pCom) {
        DWORD request = 0;
        const BOOL pending = CAMThread::CheckRequest(&request);
        if (pending && pCom != nullptr) {
            *pCom = static_cast<Command>(request);
        }
        return pending;
    }

    // Waits for CMD_INIT, then serves commands until CMD_EXIT; pause and run start the buffer loop.
    DWORD ThreadProc() override;
    // S_OK when the stream ended (or delivery failed), S_FALSE when told to stop.
    virtual HRESULT DoBufferProcessingLoop();

    // Accepts exactly the type GetMediaType(CMediaType*) gives.
    HRESULT CheckMediaType(const CMediaType* pMediaType) override;
    // Position 0 is GetMediaType(CMediaType*); there are no others.
    HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;
    // The pin's one type, for pins that have one; E_UNEXPECTED in the base.
    virtual HRESULT GetMediaType(CMediaType* pMediaType);
};

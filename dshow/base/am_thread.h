// A worker thread driven by commands: the caller posts one DWORD request and blocks until the worker
// replies, so that the caller and the worker never run a command's work at the same time. Streaming pins
// use it to start, pause and stop their delivery loop from the graph's control thread.
#pragma once

#include "dshow/base/unknown.h"

class CAMThread {
public:
    // phr, when given, receives E_OUTOFMEMORY if the events cannot be made (and is left alone otherwise).
    explicit CAMThread(HRESULT* phr = nullptr);
    virtual ~CAMThread();
    CAMThread(const CAMThread&) = delete;
    CAMThread& operator=(const CAMThread&) = delete;

    // Serialises callers of CallWorker; held for the whole round trip of one request.
    CCritSec m_AccessLock;
    // For derived classes: the worker holds it while it works, callers take it to wait for that work.
    CCritSec m_WorkerLock;

    // Starts the worker thread; FALSE when one already runs or the thread cannot be made.
    BOOL Create();
    // Posts a request and waits for the worker's Reply. E_FAIL (as a DWORD) when no worker exists or the
    // worker ended without replying.
    DWORD CallWorker(DWORD dwParam);
    // Waits for the worker to end and forgets it. The worker must have been told to leave ThreadProc.
    void Close();
    BOOL ThreadExists() const;

    // Worker side: blocks until a request is pending and answers its parameter. The request stays pending
    // until Reply.
    DWORD GetRequest();
    // Worker side: TRUE (with the parameter) when a request is pending; neither blocks nor consumes it, so
    // a loop can notice a request, return, and serve it with GetRequest.
    BOOL CheckRequest(DWORD* pParam);
    // Worker side: answers the request being served and releases the caller.
    void Reply(DWORD dw);

    // A manual-reset event signalled while a request awaits its reply, for a worker that waits on several
    // handles.
    HANDLE GetRequestHandle() const { return m_hEventSend; }
    DWORD GetRequestParam() const { return m_dwParam; }

    // Joins the multithreaded apartment; callers pair a success with CoUninitialize.
    static HRESULT CoInitializeHelper();

protected:
    // The worker's body; its result becomes the thread's exit code.
    virtual DWORD ThreadProc() = 0;

    HANDLE m_hThread = nullptr;

private:
    static DWORD WINAPI InitialThreadProc(LPVOID pv);

    HANDLE m_hEventSend = nullptr;
    HANDLE m_hEventComplete = nullptr;
    volatile DWORD m_dwParam = 0;
    volatile DWORD m_dwReturnVal = 0;
};

#include "dshow/base/am_thread.h"

CAMThread::CAMThread(HRESULT* phr)
    // The request event stays signalled until the worker replies, so that CheckRequest can see a request
    // and leave it for GetRequest; the completion event releases the caller once.
    : m_hEventSend(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_hEventComplete(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    if ((m_hEventSend == nullptr || m_hEventComplete == nullptr) && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
}

CAMThread::~CAMThread() {
    Close();
    if (m_hEventSend != nullptr) {
        CloseHandle(m_hEventSend);
    }
    if (m_hEventComplete != nullptr) {
        CloseHandle(m_hEventComplete);
    }
}

HRESULT CAMThread::CoInitializeHelper() {
    return CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

DWORD WINAPI CAMThread::InitialThreadProc(LPVOID pv) {
    // The worker calls into other filters' COM objects, so it needs an apartment of its own.
    const HRESULT init = CoInitializeHelper();
    const DWORD result = static_cast<CAMThread*>(pv)->ThreadProc();
    if (SUCCEEDED(init)) {
        CoUninitialize();
    }
    return result;
}

BOOL CAMThread::Create() {
    CAutoLock lock(m_AccessLock);
    if (ThreadExists() || m_hEventSend == nullptr || m_hEventComplete == nullptr) {
        return FALSE;
    }
    // A request left over from an earlier worker must not reach the new one.
    ResetEvent(m_hEventSend);
    ResetEvent(m_hEventComplete);
    DWORD id = 0;
    m_hThread = CreateThread(nullptr, 0, InitialThreadProc, this, 0, &id);
    return m_hThread != nullptr;
}

DWORD CAMThread::CallWorker(DWORD dwParam) {
    CAutoLock lock(m_AccessLock);
    if (!ThreadExists()) {
        return static_cast<DWORD>(E_FAIL);
    }
    m_dwParam = dwParam;
    SetEvent(m_hEventSend);
    // Waiting on the thread too means a worker that ended without replying cannot hang the caller. The
    // completion event comes first so that a reply followed by a quick exit still counts as a reply.
    const HANDLE handles[2] = {m_hEventComplete, m_hThread};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
        return static_cast<DWORD>(E_FAIL);
    }
    return m_dwReturnVal;
}

void CAMThread::Close() {
    HANDLE thread = InterlockedExchangePointer(&m_hThread, nullptr);
    if (thread != nullptr) {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    }
}

BOOL CAMThread::ThreadExists() const {
    return m_hThread != nullptr;
}

DWORD CAMThread::GetRequest() {
    WaitForSingleObject(m_hEventSend, INFINITE);
    return m_dwParam;
}

BOOL CAMThread::CheckRequest(DWORD* pParam) {
    if (WaitForSingleObject(m_hEventSend, 0) != WAIT_OBJECT_0) {
        return FALSE;
    }
    if (pParam != nullptr) {
        *pParam = m_dwParam;
    }
    return TRUE;
}

void CAMThread::Reply(DWORD dw) {
    m_dwReturnVal = dw;
    // Reset before releasing the caller: a next request posted at once must not be wiped out.
    ResetEvent(m_hEventSend);
    SetEvent(m_hEventComplete);
}

#include "dshow/base/source_stream.h"

#include <cstring>
#include <cwchar>

CSourceStream::CSourceStream(const wchar_t* pObjectName, HRESULT* phr, CSource* ps, LPCWSTR pPinName)
    : CAMThread(phr), CBaseOutputPin(pObjectName, ps, ps->pStateLock(), phr, pPinName), m_pFilter(ps) {
    const HRESULT hr = m_pFilter->AddPin(this);
    if (FAILED(hr) && phr != nullptr) {
        *phr = hr;
    }
}

CSourceStream::~CSourceStream() {
    m_pFilter->RemovePin(this);
}

STDMETHODIMP CSourceStream::QueryId(LPWSTR* Id) {
    if (Id == nullptr) {
        return E_POINTER;
    }
    wchar_t text[16];
    swprintf(text, 16, L"%d", m_pFilter->FindPinNumber(this) + 1);
    const size_t bytes = (std::wcslen(text) + 1) * sizeof(wchar_t);
    *Id = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (*Id == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*Id, text, bytes);
    return S_OK;
}

HRESULT CSourceStream::Active() {
    CAutoLock lock(*m_pFilter->pStateLock());
    if (m_pFilter->IsActive()) {
        return S_FALSE;
    }
    if (!IsConnected()) {
        return S_OK;
    }
    HRESULT hr = CBaseOutputPin::Active();
    if (FAILED(hr)) {
        return hr;
    }
    if (!Create()) {
        return E_FAIL;
    }
    hr = Init();
    if (FAILED(hr)) {
        return hr;
    }
    return Pause();
}

HRESULT CSourceStream::Inactive() {
    if (!IsConnected()) {
        return S_OK;
    }
    // Decommit first: a thread waiting in GetBuffer gets its failure and can see the stop request.
    HRESULT hr = CBaseOutputPin::Inactive();
    if (FAILED(hr)) {
        return hr;
    }
    if (ThreadExists()) {
        hr = Stop();
        if (FAILED(hr)) {
            return hr;
        }
        hr = Exit();
        if (FAILED(hr)) {
            return hr;
        }
        Close();
    }
    return S_OK;
}

DWORD CSourceStream::ThreadProc() {
    // Nothing but CMD_INIT may start the thread's life.
    Command command = GetRequest();
    while (command != CMD_INIT) {
        Reply(static_cast<DWORD>(E_UNEXPECTED));
        command = GetRequest();
    }
    HRESULT hr = OnThreadCreate();
    if (FAILED(hr)) {
        OnThreadDestroy();
        Reply(static_cast<DWORD>(hr));
        return 1;
    }
    Reply(static_cast<DWORD>(S_OK));

    do {
        command = GetRequest();
        switch (command) {
        case CMD_EXIT:
        case CMD_STOP:
            Reply(static_cast<DWORD>(S_OK));
            break;
        case CMD_RUN:
        case CMD_PAUSE:
            // A live source produces while paused as well as running.
            Reply(static_cast<DWORD>(S_OK));
            DoBufferProcessingLoop();
            break;
        default:
            Reply(static_cast<DWORD>(E_NOTIMPL));
            break;
        }
    } while (command != CMD_EXIT);

    return FAILED(OnThreadDestroy()) ? 1 : 0;
}

HRESULT CSourceStream::DoBufferProcessingLoop() {
    OnThreadStartPlay();
    Command command = CMD_STOP;
    do {
        while (!CheckRequest(&command)) {
            IMediaSample* sample = nullptr;
            HRESULT hr = GetDeliveryBuffer(&sample, nullptr, nullptr, 0);
            if (FAILED(hr) || sample == nullptr) {
                // Decommitted while stopping: the stop request arrives next.
                Sleep(1);
                continue;
            }
            hr = FillBuffer(sample);
            if (hr == S_OK) {
                hr = Deliver(sample);
                sample->Release();
                // Downstream refused (flushing, stopping, or failed): it has said what happens next.
                if (hr != S_OK) {
                    return S_OK;
                }
            } else if (hr == S_FALSE) {
                sample->Release();
                DeliverEndOfStream();
                return S_OK;
            } else {
                sample->Release();
                DeliverEndOfStream();
                m_pFilter->NotifyEvent(EC_ERRORABORT, hr, 0);
                return hr;
            }
        }
        // Pause and run only change what the filter reports; the loop goes on. Stop is answered by
        // ThreadProc's GetRequest, so it is left pending here.
        if (command == CMD_RUN || command == CMD_PAUSE) {
            Reply(static_cast<DWORD>(S_OK));
        } else if (command != CMD_STOP) {
            Reply(static_cast<DWORD>(E_UNEXPECTED));
        }
    } while (command != CMD_STOP);
    return S_FALSE;
}

HRESULT CSourceStream::CheckMediaType(const CMediaType* pMediaType) {
    if (pMediaType == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    CMediaType mine;
    const HRESULT hr = GetMediaType(&mine);
    if (FAILED(hr)) {
        return hr;
    }
    return mine == *pMediaType ? S_OK : E_FAIL;
}

HRESULT CSourceStream::GetMediaType(int iPosition, CMediaType* pMediaType) {
    if (pMediaType == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    if (iPosition < 0) {
        return E_INVALIDARG;
    }
    if (iPosition > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    return GetMediaType(pMediaType);
}

HRESULT CSourceStream::GetMediaType(CMediaType* pMediaType) {
    (void)pMediaType;
    return E_UNEXPECTED;
}

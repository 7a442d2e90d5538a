#include "dshow/base/base_output_pin.h"

CBaseOutputPin::CBaseOutputPin(const wchar_t* pObjectName, CBaseFilter* pFilter, CCritSec* pLock,
                               HRESULT* phr, LPCWSTR pName)
    : CBasePin(pObjectName, pFilter, pLock, phr, pName, PINDIR_OUTPUT) {}

CBaseOutputPin::~CBaseOutputPin() {
    // A filter destroyed while connected (the graph normally disconnects first) must not leak these.
    if (m_pAllocator != nullptr) {
        m_pAllocator->Release();
    }
    if (m_pInputPin != nullptr) {
        m_pInputPin->Release();
    }
}

HRESULT CBaseOutputPin::CompleteConnect(IPin* pReceivePin) {
    (void)pReceivePin;
    return DecideAllocator(m_pInputPin, &m_pAllocator);
}

HRESULT CBaseOutputPin::DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc) {
    if (pPin == nullptr || ppAlloc == nullptr) {
        return E_POINTER;
    }
    *ppAlloc = nullptr;
    ALLOCATOR_PROPERTIES request{};
    // Requirements are optional (E_NOTIMPL is common); what the peer did not fill stays 0.
    pPin->GetAllocatorRequirements(&request);
    if (request.cbAlign == 0) {
        request.cbAlign = 1;
    }

    // The peer's allocator first, then ours; each must take our sizes and be accepted by the peer.
    HRESULT hr = pPin->GetAllocator(ppAlloc);
    if (SUCCEEDED(hr) && *ppAlloc != nullptr) {
        hr = DecideBufferSize(*ppAlloc, &request);
        if (SUCCEEDED(hr)) {
            hr = pPin->NotifyAllocator(*ppAlloc, FALSE);
            if (SUCCEEDED(hr)) {
                return S_OK;
            }
        }
    }
    if (*ppAlloc != nullptr) {
        (*ppAlloc)->Release();
        *ppAlloc = nullptr;
    }

    hr = InitAllocator(ppAlloc);
    if (SUCCEEDED(hr)) {
        hr = DecideBufferSize(*ppAlloc, &request);
        if (SUCCEEDED(hr)) {
            hr = pPin->NotifyAllocator(*ppAlloc, FALSE);
            if (SUCCEEDED(hr)) {
                return S_OK;
            }
        }
    }
    if (*ppAlloc != nullptr) {
        (*ppAlloc)->Release();
        *ppAlloc = nullptr;
    }
    return hr;
}

HRESULT CBaseOutputPin::GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStartTime,
                                          REFERENCE_TIME* pEndTime, DWORD dwFlags) {
    if (m_pAllocator == nullptr) {
        return E_NOINTERFACE;
    }
    return m_pAllocator->GetBuffer(ppSample, pStartTime, pEndTime, dwFlags);
}

HRESULT CBaseOutputPin::Deliver(IMediaSample* pSample) {
    if (m_pInputPin == nullptr) {
        return VFW_E_NOT_CONNECTED;
    }
    return m_pInputPin->Receive(pSample);
}

HRESULT CBaseOutputPin::InitAllocator(IMemAllocator** ppAlloc) {
    if (ppAlloc == nullptr) {
        return E_POINTER;
    }
    return CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                            reinterpret_cast<void**>(ppAlloc));
}

HRESULT CBaseOutputPin::CheckConnect(IPin* pPin) {
    HRESULT hr = CBasePin::CheckConnect(pPin);
    if (FAILED(hr)) {
        return hr;
    }
    IMemInputPin* input = nullptr;
    hr = pPin->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input));
    if (FAILED(hr)) {
        return hr;
    }
    // A failed earlier attempt may have left one behind.
    if (m_pInputPin != nullptr) {
        m_pInputPin->Release();
    }
    m_pInputPin = input;
    return S_OK;
}

HRESULT CBaseOutputPin::BreakConnect() {
    if (m_pAllocator != nullptr) {
        // Decommit first: the allocator may outlive us in the peer, with our buffers committed.
        const HRESULT hr = m_pAllocator->Decommit();
        if (FAILED(hr)) {
            return hr;
        }
        m_pAllocator->Release();
        m_pAllocator = nullptr;
    }
    if (m_pInputPin != nullptr) {
        m_pInputPin->Release();
        m_pInputPin = nullptr;
    }
    return S_OK;
}

HRESULT CBaseOutputPin::Active() {
    if (m_pAllocator == nullptr) {
        return VFW_E_NO_ALLOCATOR;
    }
    return m_pAllocator->Commit();
}

HRESULT CBaseOutputPin::Inactive() {
    if (m_pAllocator == nullptr) {
        return VFW_E_NO_ALLOCATOR;
    }
    return m_pAllocator->Decommit();
}

STDMETHODIMP CBaseOutputPin::EndOfStream() {
    return E_UNEXPECTED;
}

STDMETHODIMP CBaseOutputPin::BeginFlush() {
    return E_UNEXPECTED;
}

STDMETHODIMP CBaseOutputPin::EndFlush() {
    return E_UNEXPECTED;
}

HRESULT CBaseOutputPin::DeliverEndOfStream() {
    IPin* peer = m_Connected;
    return peer == nullptr ? VFW_E_NOT_CONNECTED : peer->EndOfStream();
}

HRESULT CBaseOutputPin::DeliverBeginFlush() {
    IPin* peer = m_Connected;
    return peer == nullptr ? VFW_E_NOT_CONNECTED : peer->BeginFlush();
}

HRESULT CBaseOutputPin::DeliverEndFlush() {
    IPin* peer = m_Connected;
    return peer == nullptr ? VFW_E_NOT_CONNECTED : peer->EndFlush();
}

HRESULT CBaseOutputPin::DeliverNewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
    IPin* peer = m_Connected;
    return peer == nullptr ? VFW_E_NOT_CONNECTED : peer->NewSegment(tStart, tStop, dRate);
}

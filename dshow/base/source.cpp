#include "dshow/base/source.h"

#include <new>

#include "dshow/base/source_stream.h"

CSource::CSource(const wchar_t* pName, LPUNKNOWN lpunk, CLSID clsid, HRESULT* phr)
    : CBaseFilter(pName, lpunk, &m_cStateLock, clsid, phr) {}

CSource::CSource(const wchar_t* pName, LPUNKNOWN lpunk, CLSID clsid)
    : CBaseFilter(pName, lpunk, &m_cStateLock, clsid) {}

CSource::~CSource() {
    // Each pin's destructor takes itself out of the array.
    while (m_iPins != 0) {
        delete m_paStreams[m_iPins - 1];
    }
}

int CSource::GetPinCount() {
    CAutoLock lock(m_cStateLock);
    return m_iPins;
}

CBasePin* CSource::GetPin(int n) {
    CAutoLock lock(m_cStateLock);
    if (n < 0 || n >= m_iPins) {
        return nullptr;
    }
    return m_paStreams[n];
}

HRESULT CSource::AddPin(CSourceStream* pStream) {
    CAutoLock lock(m_cStateLock);
    auto* streams = new (std::nothrow) CSourceStream*[static_cast<size_t>(m_iPins) + 1];
    if (streams == nullptr) {
        return E_OUTOFMEMORY;
    }
    for (int i = 0; i < m_iPins; ++i) {
        streams[i] = m_paStreams[i];
    }
    streams[m_iPins] = pStream;
    delete[] m_paStreams;
    m_paStreams = streams;
    ++m_iPins;
    IncrementPinVersion();
    return S_OK;
}

HRESULT CSource::RemovePin(CSourceStream* pStream) {
    CAutoLock lock(m_cStateLock);
    for (int i = 0; i < m_iPins; ++i) {
        if (m_paStreams[i] != pStream) {
            continue;
        }
        // Shrinking in place cannot fail; the array is freed with the last pin.
        for (int j = i + 1; j < m_iPins; ++j) {
            m_paStreams[j - 1] = m_paStreams[j];
        }
        if (--m_iPins == 0) {
            delete[] m_paStreams;
            m_paStreams = nullptr;
        }
        IncrementPinVersion();
        return S_OK;
    }
    return S_FALSE;
}

STDMETHODIMP CSource::FindPin(LPCWSTR Id, IPin** ppPin) {
    if (Id == nullptr || ppPin == nullptr) {
        return E_POINTER;
    }
    int number = 0;
    bool digits = Id[0] != L'\0';
    for (const wchar_t* c = Id; *c != L'\0' && digits; ++c) {
        digits = *c >= L'0' && *c <= L'9' && number < 100000;
        number = number * 10 + (*c - L'0');
    }
    if (digits) {
        CAutoLock lock(m_cStateLock);
        CBasePin* pin = GetPin(number - 1);
        if (pin != nullptr) {
            return GetInterface(static_cast<IPin*>(pin), reinterpret_cast<void**>(ppPin));
        }
    }
    return CBaseFilter::FindPin(Id, ppPin);
}

int CSource::FindPinNumber(IPin* iPin) {
    CAutoLock lock(m_cStateLock);
    for (int i = 0; i < m_iPins; ++i) {
        if (static_cast<IPin*>(m_paStreams[i]) == iPin) {
            return i;
        }
    }
    return -1;
}

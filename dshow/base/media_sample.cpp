#include "dshow/base/media_sample.h"

#include "dshow/base/base_allocator.h"
#include "dshow/base/media_type.h"

#include <cstddef>
#include <cstring>

namespace {

// True when the first cb bytes of an AM_SAMPLE2_PROPERTIES reach to the end of the given field.
constexpr bool Covers(DWORD cb, size_t offset, size_t size) {
    return cb >= offset + size;
}
#define QVN_COVERS(cb, field)                                                                                \
    Covers(cb, offsetof(AM_SAMPLE2_PROPERTIES, field), sizeof(AM_SAMPLE2_PROPERTIES::field))

} // namespace

CMediaSample::CMediaSample(const wchar_t* pName, CBaseAllocator* pAllocator, HRESULT* phr, BYTE* pBuffer,
                           LONG length)
    : CBaseObject(pName != nullptr ? pName : L"CMediaSample"), m_pBuffer(pBuffer), m_lActual(length),
      m_cbBuffer(length), m_pAllocator(pAllocator) {
    if (length < 0) {
        m_cbBuffer = 0;
        m_lActual = 0;
        if (phr != nullptr) {
            *phr = VFW_E_BUFFER_OVERFLOW;
        }
    }
}

CMediaSample::~CMediaSample() {
    if (m_pMediaType != nullptr) {
        DeleteMediaType(m_pMediaType);
    }
}

STDMETHODIMP CMediaSample::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMediaSample) ||
        IsEqualIID(riid, IID_IMediaSample2)) {
        return GetInterface(static_cast<IMediaSample2*>(this), ppv);
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CMediaSample::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

STDMETHODIMP_(ULONG) CMediaSample::Release() {
    const LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) {
        // What belonged to this delivery goes; the next user of the sample starts clean. Times and length
        // stay but are meaningless without their flags.
        if (m_pMediaType != nullptr) {
            DeleteMediaType(m_pMediaType);
            m_pMediaType = nullptr;
        }
        m_dwFlags = 0;
        m_dwTypeSpecificFlags = 0;
        m_dwStreamId = AM_STREAM_MEDIA;
        if (m_pAllocator != nullptr) {
            // May delete the allocator and this sample with it: touch nothing of ours afterwards.
            m_pAllocator->ReleaseBuffer(this);
        } else {
            delete this;
        }
    }
    return static_cast<ULONG>(count);
}

HRESULT CMediaSample::SetPointer(BYTE* ptr, LONG cBytes) {
    if (cBytes < 0) {
        return VFW_E_BUFFER_OVERFLOW;
    }
    m_pBuffer = ptr;
    m_cbBuffer = cBytes;
    m_lActual = cBytes;
    return S_OK;
}

STDMETHODIMP CMediaSample::GetPointer(BYTE** ppBuffer) {
    if (ppBuffer == nullptr) {
        return E_POINTER;
    }
    *ppBuffer = m_pBuffer;
    return S_OK;
}

STDMETHODIMP_(LONG) CMediaSample::GetSize() {
    return m_cbBuffer;
}

STDMETHODIMP CMediaSample::GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    if (pTimeStart == nullptr || pTimeEnd == nullptr) {
        return E_POINTER;
    }
    if ((m_dwFlags & Sample_TimeValid) == 0) {
        return VFW_E_SAMPLE_TIME_NOT_SET;
    }
    *pTimeStart = m_Start;
    if ((m_dwFlags & Sample_StopValid) == 0) {
        // Callers that always read a stop get the shortest sample after the start.
        *pTimeEnd = m_Start + 1;
        return VFW_S_NO_STOP_TIME;
    }
    *pTimeEnd = m_End;
    return S_OK;
}

STDMETHODIMP CMediaSample::SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    if (pTimeStart == nullptr) {
        // No start means no times at all (a stop without a start is meaningless).
        m_dwFlags &= ~static_cast<DWORD>(Sample_TimeValid | Sample_StopValid);
        return S_OK;
    }
    m_Start = *pTimeStart;
    m_dwFlags |= Sample_TimeValid;
    if (pTimeEnd == nullptr) {
        m_dwFlags &= ~static_cast<DWORD>(Sample_StopValid);
    } else {
        m_End = *pTimeEnd;
        m_dwFlags |= Sample_StopValid;
    }
    return S_OK;
}

STDMETHODIMP CMediaSample::IsSyncPoint() {
    return (m_dwFlags & Sample_SyncPoint) != 0 ? S_OK : S_FALSE;
}

STDMETHODIMP CMediaSample::SetSyncPoint(BOOL bIsSyncPoint) {
    m_dwFlags =
        bIsSyncPoint ? (m_dwFlags | Sample_SyncPoint) : (m_dwFlags & ~static_cast<DWORD>(Sample_SyncPoint));
    return S_OK;
}

STDMETHODIMP CMediaSample::IsPreroll() {
    return (m_dwFlags & Sample_Preroll) != 0 ? S_OK : S_FALSE;
}

STDMETHODIMP CMediaSample::SetPreroll(BOOL bIsPreroll) {
    m_dwFlags = bIsPreroll ? (m_dwFlags | Sample_Preroll) : (m_dwFlags & ~static_cast<DWORD>(Sample_Preroll));
    return S_OK;
}

STDMETHODIMP CMediaSample::IsDiscontinuity() {
    return (m_dwFlags & Sample_Discontinuity) != 0 ? S_OK : S_FALSE;
}

STDMETHODIMP CMediaSample::SetDiscontinuity(BOOL bDiscontinuity) {
    m_dwFlags = bDiscontinuity ? (m_dwFlags | Sample_Discontinuity)
                               : (m_dwFlags & ~static_cast<DWORD>(Sample_Discontinuity));
    return S_OK;
}

STDMETHODIMP_(LONG) CMediaSample::GetActualDataLength() {
    return m_lActual;
}

STDMETHODIMP CMediaSample::SetActualDataLength(LONG lActual) {
    if (lActual < 0 || lActual > m_cbBuffer) {
        return VFW_E_BUFFER_OVERFLOW;
    }
    m_lActual = lActual;
    return S_OK;
}

STDMETHODIMP CMediaSample::GetMediaType(AM_MEDIA_TYPE** ppMediaType) {
    if (ppMediaType == nullptr) {
        return E_POINTER;
    }
    if ((m_dwFlags & Sample_TypeChanged) == 0 || m_pMediaType == nullptr) {
        // S_FALSE: the type has not changed since the previous sample.
        *ppMediaType = nullptr;
        return S_FALSE;
    }
    *ppMediaType = CreateMediaType(m_pMediaType);
    return *ppMediaType != nullptr ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CMediaSample::SetMediaType(AM_MEDIA_TYPE* pMediaType) {
    AM_MEDIA_TYPE* copy = nullptr;
    if (pMediaType != nullptr) {
        copy = CreateMediaType(pMediaType);
        if (copy == nullptr) {
            return E_OUTOFMEMORY;
        }
    }
    if (m_pMediaType != nullptr) {
        DeleteMediaType(m_pMediaType);
    }
    m_pMediaType = copy;
    m_dwFlags = copy != nullptr ? (m_dwFlags | Sample_TypeChanged)
                                : (m_dwFlags & ~static_cast<DWORD>(Sample_TypeChanged));
    return S_OK;
}

STDMETHODIMP CMediaSample::GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    if (pTimeStart == nullptr || pTimeEnd == nullptr) {
        return E_POINTER;
    }
    if ((m_dwFlags & Sample_MediaTimeValid) == 0) {
        return VFW_E_MEDIA_TIME_NOT_SET;
    }
    *pTimeStart = m_MediaStart;
    *pTimeEnd = m_MediaEnd;
    return S_OK;
}

STDMETHODIMP CMediaSample::SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    if (pTimeStart == nullptr) {
        m_dwFlags &= ~static_cast<DWORD>(Sample_MediaTimeValid);
        return S_OK;
    }
    if (pTimeEnd == nullptr) {
        return E_POINTER;
    }
    m_MediaStart = *pTimeStart;
    m_MediaEnd = *pTimeEnd;
    m_dwFlags |= Sample_MediaTimeValid;
    return S_OK;
}

STDMETHODIMP CMediaSample::GetProperties(DWORD cbProperties, BYTE* pbProperties) {
    if (cbProperties == 0) {
        return S_OK;
    }
    if (pbProperties == nullptr) {
        return E_POINTER;
    }
    AM_SAMPLE2_PROPERTIES props{};
    props.cbData = cbProperties < sizeof(props) ? cbProperties : static_cast<DWORD>(sizeof(props));
    // The media-time bit is ours, not an AM_SAMPLE_* flag.
    props.dwSampleFlags = m_dwFlags & ~static_cast<DWORD>(Sample_MediaTimeValid);
    props.dwTypeSpecificFlags = m_dwTypeSpecificFlags;
    props.lActual = m_lActual;
    props.tStart = m_Start;
    props.tStop = m_End;
    props.dwStreamId = m_dwStreamId;
    props.pMediaType = (m_dwFlags & Sample_TypeChanged) != 0 ? m_pMediaType : nullptr;
    props.pbBuffer = m_pBuffer;
    props.cbBuffer = m_cbBuffer;
    std::memcpy(pbProperties, &props, props.cbData);
    return S_OK;
}

STDMETHODIMP CMediaSample::SetProperties(DWORD cbProperties, const BYTE* pbProperties) {
    if (cbProperties == 0) {
        return S_OK;
    }
    if (pbProperties == nullptr) {
        return E_POINTER;
    }
    if (cbProperties > sizeof(AM_SAMPLE2_PROPERTIES)) {
        return E_INVALIDARG;
    }
    // Copy what the caller gave; the rest stays zero and is not looked at.
    AM_SAMPLE2_PROPERTIES props{};
    std::memcpy(&props, pbProperties, cbProperties);
    DWORD cb = cbProperties;
    if (QVN_COVERS(cb, cbData)) {
        if (props.cbData > sizeof(AM_SAMPLE2_PROPERTIES)) {
            return E_INVALIDARG;
        }
        if (props.cbData < cb) {
            cb = props.cbData; // never use more than the structure says it holds
        }
    }

    // Every check before any assignment, so that a refused call changes nothing.
    if (QVN_COVERS(cb, dwSampleFlags)) {
        if ((props.dwSampleFlags & ~static_cast<DWORD>(Sample_ValidFlags)) != 0 ||
            (props.dwSampleFlags & Sample_MediaTimeValid) != 0) {
            return E_INVALIDARG;
        }
        // Valid times must come with the times themselves, unless the sample already has them.
        if ((props.dwSampleFlags & Sample_TimeValid) != 0 && (m_dwFlags & Sample_TimeValid) == 0 &&
            !QVN_COVERS(cb, tStop)) {
            return E_INVALIDARG;
        }
    }
    if (QVN_COVERS(cb, pbBuffer) && props.pbBuffer != nullptr && props.pbBuffer != m_pBuffer) {
        return E_INVALIDARG;
    }
    if (QVN_COVERS(cb, cbBuffer) && props.cbBuffer != 0 && props.cbBuffer != m_cbBuffer) {
        return E_INVALIDARG;
    }
    if (QVN_COVERS(cb, lActual) && (props.lActual < 0 || props.lActual > m_cbBuffer)) {
        return E_INVALIDARG;
    }
    const bool typeGiven = QVN_COVERS(cb, pMediaType) && QVN_COVERS(cb, dwSampleFlags) &&
                           (props.dwSampleFlags & Sample_TypeChanged) != 0;
    AM_MEDIA_TYPE* newType = nullptr;
    if (typeGiven) {
        if (props.pMediaType == nullptr) {
            return E_POINTER;
        }
        newType = CreateMediaType(props.pMediaType);
        if (newType == nullptr) {
            return E_OUTOFMEMORY;
        }
    }

    if (QVN_COVERS(cb, dwTypeSpecificFlags)) {
        m_dwTypeSpecificFlags = props.dwTypeSpecificFlags;
    }
    if (QVN_COVERS(cb, dwSampleFlags)) {
        m_dwFlags = props.dwSampleFlags | (m_dwFlags & Sample_MediaTimeValid);
    }
    if (QVN_COVERS(cb, lActual)) {
        m_lActual = props.lActual;
    }
    if (QVN_COVERS(cb, tStart)) {
        m_Start = props.tStart;
    }
    if (QVN_COVERS(cb, tStop)) {
        m_End = props.tStop;
    }
    if (QVN_COVERS(cb, dwStreamId)) {
        m_dwStreamId = props.dwStreamId;
    }
    if (typeGiven) {
        if (m_pMediaType != nullptr) {
            DeleteMediaType(m_pMediaType);
        }
        m_pMediaType = newType;
    }
    // The flag follows the type we hold, whatever the flags said: a sample never claims a type it lacks
    // nor loses one it was given earlier.
    m_dwFlags = m_pMediaType != nullptr ? (m_dwFlags | Sample_TypeChanged)
                                        : (m_dwFlags & ~static_cast<DWORD>(Sample_TypeChanged));
    return S_OK;
}

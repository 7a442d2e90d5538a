#include "dshow/base/media_type.h"

#include <cstring>

void WINAPI FreeMediaType(AM_MEDIA_TYPE& mt) {
    // A format length of 0 means nothing was allocated, whatever pbFormat points at.
    if (mt.cbFormat != 0) {
        CoTaskMemFree(mt.pbFormat);
    }
    mt.cbFormat = 0;
    mt.pbFormat = nullptr;
    if (mt.pUnk != nullptr) {
        mt.pUnk->Release();
        mt.pUnk = nullptr;
    }
}

void WINAPI DeleteMediaType(AM_MEDIA_TYPE* pmt) {
    if (pmt == nullptr) {
        return;
    }
    FreeMediaType(*pmt);
    CoTaskMemFree(pmt);
}

AM_MEDIA_TYPE* WINAPI CreateMediaType(const AM_MEDIA_TYPE* pSrc) {
    if (pSrc == nullptr) {
        return nullptr;
    }
    auto* pmt = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (pmt == nullptr) {
        return nullptr;
    }
    if (FAILED(CopyMediaType(pmt, pSrc))) {
        CoTaskMemFree(pmt);
        return nullptr;
    }
    return pmt;
}

HRESULT WINAPI CopyMediaType(AM_MEDIA_TYPE* pmtTarget, const AM_MEDIA_TYPE* pmtSource) {
    if (pmtTarget == nullptr || pmtSource == nullptr) {
        return E_POINTER;
    }
    if (pmtTarget == pmtSource) {
        return S_OK;
    }
    *pmtTarget = *pmtSource;
    if (pmtSource->cbFormat != 0 && pmtSource->pbFormat != nullptr) {
        pmtTarget->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(pmtSource->cbFormat));
        if (pmtTarget->pbFormat == nullptr) {
            pmtTarget->cbFormat = 0;
            pmtTarget->pUnk = nullptr;
            return E_OUTOFMEMORY;
        }
        std::memcpy(pmtTarget->pbFormat, pmtSource->pbFormat, pmtSource->cbFormat);
    } else {
        pmtTarget->cbFormat = 0;
        pmtTarget->pbFormat = nullptr;
    }
    if (pmtTarget->pUnk != nullptr) {
        pmtTarget->pUnk->AddRef();
    }
    return S_OK;
}

CMediaType::CMediaType() : AM_MEDIA_TYPE() {
    InitMediaType();
}

CMediaType::CMediaType(const GUID* ptype) : AM_MEDIA_TYPE() {
    InitMediaType();
    if (ptype != nullptr) {
        majortype = *ptype;
    }
}

CMediaType::CMediaType(const AM_MEDIA_TYPE& rt, HRESULT* phr) : AM_MEDIA_TYPE() {
    InitMediaType();
    if (FAILED(CopyMediaType(this, &rt)) && phr != nullptr) {
        *phr = E_OUTOFMEMORY;
    }
}

CMediaType::CMediaType(const CMediaType& rt, HRESULT* phr)
    : CMediaType(static_cast<const AM_MEDIA_TYPE&>(rt), phr) {}

CMediaType::~CMediaType() {
    FreeMediaType(*this);
}

CMediaType& CMediaType::operator=(const CMediaType& rt) {
    Set(rt);
    return *this;
}

CMediaType& CMediaType::operator=(const AM_MEDIA_TYPE& rt) {
    Set(rt);
    return *this;
}

BOOL CMediaType::operator==(const CMediaType& rt) const {
    return IsEqualGUID(majortype, rt.majortype) && IsEqualGUID(subtype, rt.subtype) &&
           IsEqualGUID(formattype, rt.formattype) && cbFormat == rt.cbFormat &&
           (cbFormat == 0 || std::memcmp(pbFormat, rt.pbFormat, cbFormat) == 0);
}

BOOL CMediaType::operator!=(const CMediaType& rt) const {
    return !(*this == rt);
}

HRESULT CMediaType::Set(const CMediaType& rt) {
    return Set(static_cast<const AM_MEDIA_TYPE&>(rt));
}

HRESULT CMediaType::Set(const AM_MEDIA_TYPE& rt) {
    if (&rt == this) {
        return S_OK;
    }
    FreeMediaType(*this);
    return FAILED(CopyMediaType(this, &rt)) ? E_OUTOFMEMORY : S_OK;
}

BOOL CMediaType::IsValid() const {
    return !IsEqualGUID(majortype, GUID_NULL);
}

void CMediaType::SetType(const GUID* ptype) {
    majortype = *ptype;
}

void CMediaType::SetSubtype(const GUID* ptype) {
    subtype = *ptype;
}

void CMediaType::SetFormatType(const GUID* pformattype) {
    formattype = *pformattype;
}

ULONG CMediaType::GetSampleSize() const {
    return IsFixedSize() ? lSampleSize : 0;
}

void CMediaType::SetSampleSize(ULONG sz) {
    if (sz == 0) {
        SetVariableSize();
    } else {
        bFixedSizeSamples = TRUE;
        lSampleSize = sz;
    }
}

void CMediaType::SetVariableSize() {
    bFixedSizeSamples = FALSE;
}

void CMediaType::SetTemporalCompression(BOOL bCompressed) {
    bTemporalCompression = bCompressed;
}

BOOL CMediaType::SetFormat(BYTE* pFormat, ULONG length) {
    BYTE* block = AllocFormatBuffer(length);
    if (block == nullptr && length != 0) {
        return FALSE;
    }
    if (length != 0) {
        std::memcpy(block, pFormat, length);
    }
    return TRUE;
}

void CMediaType::ResetFormatBuffer() {
    if (cbFormat != 0) {
        CoTaskMemFree(pbFormat);
    }
    cbFormat = 0;
    pbFormat = nullptr;
}

BYTE* CMediaType::AllocFormatBuffer(ULONG length) {
    if (length == cbFormat) {
        return pbFormat;
    }
    if (length == 0) {
        ResetFormatBuffer();
        return nullptr;
    }
    auto* block = static_cast<BYTE*>(CoTaskMemAlloc(length));
    if (block == nullptr) {
        return length <= cbFormat ? pbFormat : nullptr;
    }
    ResetFormatBuffer();
    cbFormat = length;
    pbFormat = block;
    return block;
}

BYTE* CMediaType::ReallocFormatBuffer(ULONG length) {
    if (length == cbFormat) {
        return pbFormat;
    }
    if (length == 0) {
        ResetFormatBuffer();
        return nullptr;
    }
    auto* block = static_cast<BYTE*>(CoTaskMemAlloc(length));
    if (block == nullptr) {
        return length <= cbFormat ? pbFormat : nullptr;
    }
    if (cbFormat != 0) {
        std::memcpy(block, pbFormat, cbFormat < length ? cbFormat : length);
    }
    ResetFormatBuffer();
    cbFormat = length;
    pbFormat = block;
    return block;
}

void CMediaType::InitMediaType() {
    // The old format block and pUnk are dropped without freeing, as the documented reset does: callers use
    // it on fresh or already freed structures.
    majortype = GUID_NULL;
    subtype = GUID_NULL;
    formattype = GUID_NULL;
    bFixedSizeSamples = TRUE;
    bTemporalCompression = FALSE;
    lSampleSize = 1;
    pUnk = nullptr;
    cbFormat = 0;
    pbFormat = nullptr;
}

BOOL CMediaType::MatchesPartial(const CMediaType* ppartial) const {
    if (!IsEqualGUID(ppartial->majortype, GUID_NULL) && !IsEqualGUID(majortype, ppartial->majortype)) {
        return FALSE;
    }
    if (!IsEqualGUID(ppartial->subtype, GUID_NULL) && !IsEqualGUID(subtype, ppartial->subtype)) {
        return FALSE;
    }
    if (!IsEqualGUID(ppartial->formattype, GUID_NULL)) {
        if (!IsEqualGUID(formattype, ppartial->formattype) || cbFormat != ppartial->cbFormat) {
            return FALSE;
        }
        if (cbFormat != 0 && std::memcmp(pbFormat, ppartial->pbFormat, cbFormat) != 0) {
            return FALSE;
        }
    }
    return TRUE;
}

BOOL CMediaType::IsPartiallySpecified() const {
    return IsEqualGUID(majortype, GUID_NULL) || IsEqualGUID(formattype, GUID_NULL);
}

// An AM_MEDIA_TYPE with value semantics: copies own their format block (task memory) and their pUnk
// reference, and the destructor gives both back. Pins keep their connection type in one, and the helpers
// below handle the bare structures that cross COM interfaces.
#pragma once

#include "dshow/base/dshow_headers.h"

class CMediaType : public AM_MEDIA_TYPE {
public:
    CMediaType();
    explicit CMediaType(const GUID* majortype);
    // phr receives E_OUTOFMEMORY when the format block cannot be copied (the copy then has none).
    CMediaType(const AM_MEDIA_TYPE& rt, HRESULT* phr = nullptr);
    CMediaType(const CMediaType& rt, HRESULT* phr = nullptr);
    ~CMediaType();

    CMediaType& operator=(const CMediaType& rt);
    CMediaType& operator=(const AM_MEDIA_TYPE& rt);
    // Equal major type, subtype, format type and format bytes; the other fields do not take part.
    BOOL operator==(const CMediaType& rt) const;
    BOOL operator!=(const CMediaType& rt) const;

    // Replaces this type by a copy of rt; E_OUTOFMEMORY when the format block cannot be copied.
    HRESULT Set(const CMediaType& rt);
    HRESULT Set(const AM_MEDIA_TYPE& rt);

    // A type is valid once it has a major type.
    BOOL IsValid() const;

    const GUID* Type() const { return &majortype; }
    void SetType(const GUID* ptype);
    const GUID* Subtype() const { return &subtype; }
    void SetSubtype(const GUID* ptype);
    const GUID* FormatType() const { return &formattype; }
    void SetFormatType(const GUID* pformattype);

    BOOL IsFixedSize() const { return bFixedSizeSamples; }
    BOOL IsTemporalCompressed() const { return bTemporalCompression; }
    // The fixed sample size, or 0 for variable-size samples.
    ULONG GetSampleSize() const;
    // A size of 0 makes the samples variable-size.
    void SetSampleSize(ULONG sz);
    void SetVariableSize();
    void SetTemporalCompression(BOOL bCompressed);

    BYTE* Format() const { return pbFormat; }
    ULONG FormatLength() const { return cbFormat; }
    // Copies length bytes into a format block of exactly that size; FALSE when it cannot be allocated.
    BOOL SetFormat(BYTE* pFormat, ULONG length);
    void ResetFormatBuffer();
    // A format block of length bytes (contents undefined), or null; the old block is kept when the new
    // one cannot be allocated and the old one is large enough.
    BYTE* AllocFormatBuffer(ULONG length);
    // As AllocFormatBuffer, keeping the leading bytes of the old block.
    BYTE* ReallocFormatBuffer(ULONG length);

    // Resets to an empty type: every GUID null, no format, fixed-size samples of 1 byte.
    void InitMediaType();
    // TRUE when every field that ppartial specifies (non-null GUIDs, and the format block with a format
    // type) equals ours.
    BOOL MatchesPartial(const CMediaType* ppartial) const;
    // TRUE when the major type or the format type is missing.
    BOOL IsPartiallySpecified() const;
};

// Frees the format block and releases pUnk, leaving the structure itself.
void WINAPI FreeMediaType(AM_MEDIA_TYPE& mt);
// FreeMediaType, then frees the structure (task memory); null is allowed.
void WINAPI DeleteMediaType(AM_MEDIA_TYPE* pmt);
// A task-memory copy of pSrc with its own format block, or null when out of memory.
AM_MEDIA_TYPE* WINAPI CreateMediaType(const AM_MEDIA_TYPE* pSrc);
// Copies pmtSource over pmtTarget (whose old contents are not freed), duplicating the format block and
// taking a reference on pUnk. On E_OUTOFMEMORY the target has no format block.
HRESULT WINAPI CopyMediaType(AM_MEDIA_TYPE* pmtTarget, const AM_MEDIA_TYPE* pmtSource);

#include "host/dshow_standins/compressor_standin.h"

#include <cstdlib>

namespace qvn_standins {

namespace {

const BITMAPINFOHEADER* BitmapHeader(const CMediaType* type) {
    if (IsEqualGUID(*type->FormatType(), FORMAT_VideoInfo) &&
        type->FormatLength() >= sizeof(VIDEOINFOHEADER)) {
        return &reinterpret_cast<const VIDEOINFOHEADER*>(type->Format())->bmiHeader;
    }
    if (IsEqualGUID(*type->FormatType(), FORMAT_VideoInfo2) &&
        type->FormatLength() >= sizeof(VIDEOINFOHEADER2)) {
        return &reinterpret_cast<const VIDEOINFOHEADER2*>(type->Format())->bmiHeader;
    }
    return nullptr;
}

// Both video-info layouts keep the frame time at the same place.
REFERENCE_TIME FrameTime(const CMediaType* type) {
    return BitmapHeader(type) != nullptr
               ? reinterpret_cast<const VIDEOINFOHEADER*>(type->Format())->AvgTimePerFrame
               : 0;
}

// The worst case of a Motion JPEG frame: four bytes a pixel, and room for the headers.
LONG BufferBytes(LONG fixed, LONG width, LONG height) {
    return fixed > 0 ? fixed : width * height * 4 + 65536;
}

} // namespace

GUID FourCCSubtype(DWORD fourCC) {
    return {fourCC, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
}

CCompressorStandIn::CCompressorStandIn(const wchar_t* name, REFCLSID clsid, DWORD fourCC)
    : CTransformFilter(name, nullptr, clsid), fourCC_(fourCC) {}

HRESULT CCompressorStandIn::CheckInputType(const CMediaType* mtIn) {
    if (mtIn == nullptr) {
        return E_POINTER;
    }
    const BITMAPINFOHEADER* header = BitmapHeader(mtIn);
    const bool rgb32 = IsEqualGUID(*mtIn->Subtype(), MEDIASUBTYPE_RGB32);
    const bool rgb24 = IsEqualGUID(*mtIn->Subtype(), MEDIASUBTYPE_RGB24);
    if (!IsEqualGUID(*mtIn->Type(), MEDIATYPE_Video) || header == nullptr || (!rgb32 && !rgb24) ||
        header->biCompression != BI_RGB || header->biBitCount != (rgb32 ? 32 : 24)) {
        return VFW_E_TYPE_NOT_ACCEPTED;
    }
    return TakesPicture(header->biWidth, std::labs(header->biHeight)) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
}

HRESULT CCompressorStandIn::CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) {
    if (mtIn == nullptr || mtOut == nullptr) {
        return E_POINTER;
    }
    const HRESULT hr = CheckInputType(mtIn);
    if (hr != S_OK) {
        return hr;
    }
    const BITMAPINFOHEADER* in = BitmapHeader(mtIn);
    const BITMAPINFOHEADER* out = BitmapHeader(mtOut);
    const GUID subtype = FourCCSubtype(fourCC_);
    const bool ok = IsEqualGUID(*mtOut->Type(), MEDIATYPE_Video) && IsEqualGUID(*mtOut->Subtype(), subtype) &&
                    out != nullptr && out->biCompression == fourCC_ && out->biWidth == in->biWidth &&
                    std::labs(out->biHeight) == std::labs(in->biHeight);
    return ok ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
}

HRESULT CCompressorStandIn::GetMediaType(int iPosition, CMediaType* pMediaType) {
    if (pMediaType == nullptr) {
        return E_POINTER;
    }
    if (m_pInput == nullptr || !m_pInput->IsConnected()) {
        return E_UNEXPECTED;
    }
    if (iPosition < 0) {
        return E_INVALIDARG;
    }
    if (iPosition > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    const CMediaType& input = m_pInput->CurrentMediaType();
    const BITMAPINFOHEADER* in = BitmapHeader(&input);
    const LONG width = in->biWidth;
    const LONG height = std::labs(in->biHeight);
    const LONG fixed = FixedFrameBytes(width, height);
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = FrameTime(&input);
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    info.bmiHeader.biCompression = fourCC_;
    // Frames that vary in size carry an image size of 0: the multiplexer writes it as the stream's sample
    // size, and readers would take a nonzero one as the size of every frame.
    info.bmiHeader.biSizeImage = static_cast<DWORD>(fixed);
    pMediaType->InitMediaType();
    pMediaType->SetType(&MEDIATYPE_Video);
    const GUID subtype = FourCCSubtype(fourCC_);
    pMediaType->SetSubtype(&subtype);
    pMediaType->SetFormatType(&FORMAT_VideoInfo);
    if (!pMediaType->SetFormat(reinterpret_cast<BYTE*>(&info), sizeof(info))) {
        return E_OUTOFMEMORY;
    }
    pMediaType->SetTemporalCompression(FALSE);
    if (fixed > 0) {
        pMediaType->SetSampleSize(static_cast<ULONG>(fixed));
    } else {
        pMediaType->SetVariableSize();
    }
    return S_OK;
}

HRESULT CCompressorStandIn::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) {
    if (pAlloc == nullptr || pProp == nullptr) {
        return E_POINTER;
    }
    if (m_pInput == nullptr || !m_pInput->IsConnected()) {
        return E_UNEXPECTED;
    }
    const BITMAPINFOHEADER* in = BitmapHeader(&m_pInput->CurrentMediaType());
    const LONG width = in->biWidth;
    const LONG height = std::labs(in->biHeight);
    ALLOCATOR_PROPERTIES wanted = *pProp;
    wanted.cBuffers = wanted.cBuffers > 1 ? wanted.cBuffers : 1;
    wanted.cbBuffer = BufferBytes(FixedFrameBytes(width, height), width, height);
    wanted.cbAlign = wanted.cbAlign > 0 ? wanted.cbAlign : 1;
    ALLOCATOR_PROPERTIES actual{};
    const HRESULT hr = pAlloc->SetProperties(&wanted, &actual);
    if (FAILED(hr)) {
        return hr;
    }
    return actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
}

HRESULT CCompressorStandIn::StartStreaming() {
    const BITMAPINFOHEADER* in = BitmapHeader(&m_pInput->CurrentMediaType());
    FrameCompressorSettings settings = Settings(in->biWidth, std::labs(in->biHeight));
    settings.bitsPerPixel = in->biBitCount;
    settings.bottomUp = in->biHeight > 0;
    compressor_ = FrameCompressor::Create(settings);
    return compressor_ != nullptr ? S_OK : E_FAIL;
}

HRESULT CCompressorStandIn::StopStreaming() {
    compressor_.reset();
    return S_OK;
}

HRESULT CCompressorStandIn::Transform(IMediaSample* pIn, IMediaSample* pOut) {
    if (pIn == nullptr || pOut == nullptr) {
        return E_POINTER;
    }
    if (compressor_ == nullptr) {
        return VFW_E_WRONG_STATE;
    }
    BYTE* from = nullptr;
    BYTE* to = nullptr;
    if (FAILED(pIn->GetPointer(&from)) || FAILED(pOut->GetPointer(&to)) || from == nullptr || to == nullptr) {
        return E_POINTER;
    }
    if (pIn->GetActualDataLength() < compressor_->SourceBytes()) {
        return E_INVALIDARG;
    }
    const std::int64_t size = compressor_->Compress(from, to, pOut->GetSize());
    if (size < 0) {
        return E_FAIL;
    }
    pOut->SetActualDataLength(static_cast<LONG>(size));
    pOut->SetSyncPoint(TRUE);
    return S_OK;
}

} // namespace qvn_standins

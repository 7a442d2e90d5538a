#include "dshow/frame_shift.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "dshow/video_header.h"
#include "encoders/fourcc.h"
#include "exporter/video_format.h"

namespace {

constexpr DWORD kUYVY = QVN::MakeFourCC("UYVY");
constexpr DWORD kHDYC = QVN::MakeFourCC("HDYC");
constexpr DWORD kV210 = QVN::MakeFourCC("v210");
constexpr DWORD kR210 = QVN::MakeFourCC("r210");

bool IsVideoInfo(const GUID& formatType) {
    return IsEqualGUID(formatType, FORMAT_VideoInfo) || IsEqualGUID(formatType, FORMAT_VideoInfo2);
}

// Repeats a little-endian 32-bit pattern over count words.
void FillWords(BYTE* to, LONG count, DWORD word) {
    for (LONG i = 0; i < count; ++i) {
        std::memcpy(to + 4 * i, &word, 4);
    }
}

// One line of video black in the format of header, bytes long; what lies beyond the pixels (row padding)
// is zero.
void PaintBlackLine(const BITMAPINFOHEADER& header, BYTE* line, LONG bytes) {
    std::memset(line, 0, static_cast<size_t>(bytes));
    const LONG width = header.biWidth > 0 ? header.biWidth : 0;
    switch (header.biCompression) {
    case kUYVY:
    case kHDYC: // U Y V Y with U = V = 0x80, Y = 0x10; a pixel pair per word
        FillWords(line, std::min((width + 1) / 2, bytes / 4), 0x10801080u);
        break;
    case kV210: { // six pixels in four words: Cb Y Cr | Y Cb Y | Cr Y Cb | Y Cr Y, Y = 64, Cb = Cr = 512
        constexpr DWORD chromaLumaChroma = 512u | 64u << 10 | 512u << 20;
        constexpr DWORD lumaChromaLuma = 64u | 512u << 10 | 64u << 20;
        const LONG groups = std::min((width + 5) / 6, bytes / 16);
        for (LONG g = 0; g < groups; ++g) {
            FillWords(line + 16 * g, 1, chromaLumaChroma);
            FillWords(line + 16 * g + 4, 1, lumaChromaLuma);
            FillWords(line + 16 * g + 8, 1, chromaLumaChroma);
            FillWords(line + 16 * g + 12, 1, lumaChromaLuma);
        }
        break;
    }
    case kR210: // big-endian 2 zero bits, R, G, B of 10 bits each, R = G = B = 64: bytes 04 01 00 40
        FillWords(line, std::min(width, bytes / 4), 0x40000104u);
        break;
    default: // RGB black is zero
        break;
    }
}

} // namespace

CFrameShift::CFrameShift(LPUNKNOWN pUnk, HRESULT* phr) : CTransformFilter(L"Frame Shift", pUnk, GUID_NULL) {
    (void)phr;
}

HRESULT CFrameShift::CheckInputType(const CMediaType* mtIn) {
    if (mtIn == nullptr) {
        return E_POINTER;
    }
    return IsEqualGUID(*mtIn->Type(), MEDIATYPE_Video) && VideoBitmapHeader(mtIn) != nullptr ? S_OK : S_FALSE;
}

HRESULT CFrameShift::CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) {
    if (mtIn == nullptr || mtOut == nullptr) {
        return E_POINTER;
    }
    const HRESULT hr = CheckInputType(mtIn);
    if (hr != S_OK) {
        return hr;
    }
    const BITMAPINFOHEADER* in = VideoBitmapHeader(mtIn);
    const BITMAPINFOHEADER* out = VideoBitmapHeader(mtOut);
    const bool ok = IsEqualGUID(*mtIn->Type(), *mtOut->Type()) &&
                    IsEqualGUID(*mtIn->Subtype(), *mtOut->Subtype()) && IsVideoInfo(*mtOut->FormatType()) &&
                    in != nullptr && out != nullptr && in->biCompression == out->biCompression;
    return ok ? S_OK : VFW_E_NO_ACCEPTABLE_TYPES;
}

HRESULT CFrameShift::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) {
    if (pAlloc == nullptr || pProp == nullptr) {
        return E_POINTER;
    }
    if (m_pInput == nullptr || !m_pInput->IsConnected()) { // the pins are made on first request
        return E_UNEXPECTED;
    }
    const BITMAPINFOHEADER* in = VideoBitmapHeader(&m_pInput->CurrentMediaType());
    ALLOCATOR_PROPERTIES wanted = *pProp;
    wanted.cBuffers = 1;
    wanted.cbBuffer = in != nullptr ? static_cast<LONG>(in->biSizeImage) : 0;
    if (wanted.cbBuffer <= 0) { // a BI_RGB header may leave its size 0: the type's sample size
        wanted.cbBuffer = static_cast<LONG>(m_pInput->CurrentMediaType().GetSampleSize());
    }
    if (wanted.cbAlign <= 0) {
        wanted.cbAlign = 1;
    }
    ALLOCATOR_PROPERTIES actual{};
    const HRESULT hr = pAlloc->SetProperties(&wanted, &actual);
    if (FAILED(hr)) {
        return hr;
    }
    return actual.cBuffers < wanted.cBuffers || actual.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK;
}

HRESULT CFrameShift::GetMediaType(int iPosition, CMediaType* pMediaType) {
    if (pMediaType == nullptr) {
        return E_POINTER;
    }
    if (m_pInput == nullptr || !m_pInput->IsConnected()) { // the pins are made on first request
        return E_UNEXPECTED;
    }
    if (iPosition < 0) {
        return E_INVALIDARG;
    }
    if (iPosition > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    return pMediaType->Set(m_mtOutput);
}

HRESULT CFrameShift::SetMediaType(PIN_DIRECTION direction, const CMediaType* pmt) {
    if (pmt == nullptr) {
        return E_POINTER;
    }
    if (direction != PINDIR_INPUT) {
        return S_OK;
    }
    HRESULT hr = m_mtOutput.Set(*pmt);
    if (FAILED(hr)) {
        return hr;
    }
    BITMAPINFOHEADER* header = VideoBitmapHeader(&m_mtOutput);
    if (header != nullptr && header->biWidth == 720 && header->biHeight == 486 &&
        header->biCompression == kUYVY) {
        *header = QVN::BuildVideoFormat(kUYVY, 720, 480);
        // The rectangles still describe 486 lines; empty ones mean the whole (new) frame.
        auto* info = reinterpret_cast<VIDEOINFOHEADER*>(m_mtOutput.Format());
        SetRectEmpty(&info->rcSource);
        SetRectEmpty(&info->rcTarget);
        m_mtOutput.SetSampleSize(header->biSizeImage);
    }
    return S_OK;
}

HRESULT CFrameShift::Transform(IMediaSample* pIn, IMediaSample* pOut) {
    if (pIn == nullptr || pOut == nullptr) {
        return E_POINTER;
    }
    BYTE* from = nullptr;
    BYTE* to = nullptr;
    if (FAILED(pIn->GetPointer(&from)) || FAILED(pOut->GetPointer(&to)) || from == nullptr || to == nullptr) {
        return E_POINTER;
    }
    const LONG inLen = pIn->GetActualDataLength();
    const BITMAPINFOHEADER* inHeader = VideoBitmapHeader(&m_pInput->CurrentMediaType());
    const BITMAPINFOHEADER* outHeader = VideoBitmapHeader(&m_pOutput->CurrentMediaType());
    // An output sample's own length is whatever its last use left there: the output frame's length comes
    // from its format, within the buffer.
    LONG outLen = pOut->GetSize();
    if (outHeader != nullptr && outHeader->biSizeImage != 0) {
        outLen = std::min(outLen, static_cast<LONG>(outHeader->biSizeImage));
    }
    const LONG inHeight = inHeader != nullptr ? std::abs(inHeader->biHeight) : 0;
    const LONG outHeight = outHeader != nullptr ? std::abs(outHeader->biHeight) : 0;
    LONG written = std::min(inLen, outLen);
    if (inHeight == 0 || outHeight == 0) {
        std::memcpy(to, from, static_cast<size_t>(written));
        return pOut->SetActualDataLength(written);
    }
    const LONG inStride = inLen / inHeight;
    const LONG outStride = outLen / outHeight;
    if (inStride != outStride) {
        return E_FAIL;
    }
    if (inHeight == 576 && outHeight == 576) {
        const LONG moved = std::min(inLen - inStride, outLen - outStride);
        std::memcpy(to + outStride, from, static_cast<size_t>(moved));
        PaintBlackLine(*outHeader, to, outStride);
        written = outStride + moved;
    } else if (inHeight == 486 && outHeight == 480) {
        written = std::min(inLen - 6 * inStride, outLen);
        std::memcpy(to, from + 2 * inStride, static_cast<size_t>(written));
    } else {
        std::memcpy(to, from, static_cast<size_t>(written));
    }
    return pOut->SetActualDataLength(written);
}

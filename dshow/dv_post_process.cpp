#include "dshow/dv_post_process.h"

CDVPostProcess::CDVPostProcess(LPUNKNOWN pUnk, HRESULT* phr)
    : CTransInPlaceFilter(L"DV Post Process", pUnk, GUID_NULL, phr, true) {}

HRESULT CDVPostProcess::CheckInputType(const CMediaType* mtIn) {
    if (mtIn == nullptr) {
        return E_POINTER;
    }
    return IsEqualGUID(*mtIn->Type(), MEDIATYPE_Video) ? S_OK : S_FALSE;
}

HRESULT CDVPostProcess::Transform(IMediaSample* pSample) {
    if (pSample == nullptr) {
        return E_POINTER;
    }
    BYTE* data = nullptr;
    if (FAILED(pSample->GetPointer(&data)) || data == nullptr) {
        return E_POINTER;
    }
    const LONG length = pSample->GetActualDataLength();
    // A pattern may start in the last two bytes of the data and end in the buffer beyond it (the data is
    // matched as the encoder's stream, not cut at the sample's end); never past the buffer itself.
    const LONG size = pSample->GetSize();
    for (LONG i = 0; i < length && i + 2 < size; ++i) {
        if (data[i] == 0xC8 && data[i + 1] == 0xFC && data[i + 2] == 0xFF) {
            data[i] = 0xCF;
            data[i + 1] = 0xFD;
        }
    }
    return S_OK;
}

#include "dshow/avi_output_pin.h"

#include "dshow/qvn_avi_writer.h"

CAVIOutputPin::CAVIOutputPin(CQVNAVIWriter* filter, CCritSec* lock, HRESULT* phr)
    : CBaseOutputPin(L"StreamOutputPin", filter, lock, phr, L"Output"), writer_(filter) {}

HRESULT CAVIOutputPin::CheckMediaType(const CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    return IsEqualGUID(type->majortype, MEDIATYPE_Stream) && IsEqualGUID(type->subtype, MEDIASUBTYPE_Avi)
               ? S_OK
               : S_FALSE;
}

HRESULT CAVIOutputPin::GetMediaType(int position, CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    if (position < 0) {
        return E_INVALIDARG;
    }
    if (position > 0) {
        return VFW_S_NO_MORE_ITEMS;
    }
    type->InitMediaType();
    type->SetType(&MEDIATYPE_Stream);
    type->SetSubtype(&MEDIASUBTYPE_Avi);
    return S_OK;
}

HRESULT CAVIOutputPin::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) {
    if (allocator == nullptr || request == nullptr) {
        return E_POINTER;
    }
    ALLOCATOR_PROPERTIES wanted{1, 1024, 1, 0};
    ALLOCATOR_PROPERTIES actual{};
    return allocator->SetProperties(&wanted, &actual);
}

HRESULT CAVIOutputPin::Active() {
    const HRESULT hr = writer_->OpenFile();
    if (FAILED(hr)) {
        return hr;
    }
    return CBaseOutputPin::Active();
}

HRESULT CAVIOutputPin::Inactive() {
    writer_->CloseFile();
    return CBaseOutputPin::Inactive();
}

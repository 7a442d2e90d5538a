// CAVIOutputPin: the multiplexer's output ("Output"), connected to the File Writer. It carries no data: its
// activation opens the file (the path comes from the File Writer) and its deactivation closes it; the only
// thing it sends downstream is the end of stream once every stream of the file has ended.
#pragma once

#include "dshow/base/base_output_pin.h"

class CQVNAVIWriter;

class CAVIOutputPin : public CBaseOutputPin {
public:
    CAVIOutputPin(CQVNAVIWriter* filter, CCritSec* lock, HRESULT* phr);

    // MEDIATYPE_Stream / MEDIASUBTYPE_Avi only.
    HRESULT CheckMediaType(const CMediaType* type) override;
    HRESULT GetMediaType(int position, CMediaType* type) override;
    // One buffer of 1024 bytes, alignment 1: the pin never delivers a sample.
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;
    // Opens the file; a failure is the activation's result (the graph then fails to pause).
    HRESULT Active() override;
    // Closes the file after the writer thread has written everything queued.
    HRESULT Inactive() override;

private:
    CQVNAVIWriter* const writer_;
};

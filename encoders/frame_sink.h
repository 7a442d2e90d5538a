// An observer that receives every frame an encoder accepts (the export's preview). Its layout follows the
// graph path's sample-grabber callback: three reference-counting operations, a sample callback and a buffer
// callback; the encoders call only the buffer callback.
#pragma once

#include "platform/win_types.h"

class IFrameSink {
public:
    virtual HRESULT QueryInterface(const GUID& iid, void** object) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;
    // sample is the graph's media sample; unused by the AVI encoders.
    virtual HRESULT SampleCB(double sampleTime, void* sample) = 0;
    virtual HRESULT BufferCB(double sampleTime, BYTE* data, LONG size) = 0;

protected:
    ~IFrameSink() = default;
};

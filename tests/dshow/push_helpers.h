// What tests that drive the system's push sources share: a UYVY frame type, interface queries, and a
// producer that pushes buffers the way an export does.
#pragma once

#include <functional>
#include <random>
#include <vector>

#include "dshow/push_source_pin.h"

namespace qvn_test {

template <class Interface> Interface* Query(IUnknown* object, REFIID iid) {
    Interface* result = nullptr;
    object->QueryInterface(iid, reinterpret_cast<void**>(&result));
    return result;
}

inline CMediaType UyvyType(LONG width, LONG height, REFERENCE_TIME perFrame) {
    CMediaType type(&MEDIATYPE_Video);
    GUID subtype = MEDIASUBTYPE_PCM;
    subtype.Data1 = MAKEFOURCC('U', 'Y', 'V', 'Y');
    type.SetSubtype(&subtype);
    type.SetFormatType(&FORMAT_VideoInfo);
    const DWORD bytes = static_cast<DWORD>(width * height * 2);
    type.SetSampleSize(bytes);
    VIDEOINFOHEADER format{};
    format.AvgTimePerFrame = perFrame;
    format.bmiHeader = {
        sizeof(BITMAPINFOHEADER), width, height, 1, 16, MAKEFOURCC('U', 'Y', 'V', 'Y'), bytes, 0, 0, 0, 0};
    type.SetFormat(reinterpret_cast<BYTE*>(&format), sizeof(format));
    return type;
}

// Pushes count buffers through pin as the export does: each from the pin's own pool, reclaiming consumed
// ones when none is free; fill(k, buffer) writes buffer k and answers its length. A non-zero seed adds
// random pauses on the producer's side. Then ends the stream (samples still queued are delivered first) and
// answers the buffers the producer holds at the end.
inline std::vector<void*> Produce(CPushSourcePin* pin, int count,
                                  const std::function<DWORD(int, BYTE*)>& fill, unsigned seed = 0) {
    std::vector<void*> free;
    pin->GetFreeBuffers(free);
    std::mt19937 rng(seed);
    for (int k = 0; k < count; ++k) {
        while (free.empty()) {
            pin->ReclaimBuffers(free);
            Sleep(free.empty() ? 1 : 0);
        }
        BYTE* buffer = static_cast<BYTE*>(free.back());
        free.pop_back();
        // A refused buffer ends the pushing; the caller's checks of what arrived tell.
        if (pin->DeliverBuffer(buffer, fill(k, buffer)) != S_OK)
            break;
        if (seed != 0 && rng() % 16 == 0)
            Sleep(rng() % 3);
    }
    pin->SignalEndOfStream();
    return free;
}

} // namespace qvn_test

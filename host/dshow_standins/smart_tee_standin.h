// A Smart Tee that behaves as Windows' does in the encoder graph, for platforms whose own is unfit: Wine's
// answers no IAMStreamControl on its output pins and takes its output buffers from the upstream allocator,
// which with our sources (whose samples carry the producer's few queued buffers) loses frames. It belongs to
// the host and the tests, never to the module: the host registers its class object in-process under
// CLSID_SmartTee, so that CoCreateInstance(CLSID_SmartTee) made in that apartment creates it.
//
// The filter: one input pin "Input" for video of any subtype, output pins "Capture" (pin 0) and "Preview"
// (pin 1) that connect once the input has and offer its type. "Capture" passes every sample on as it is and
// hands its peer the upstream allocator. "Preview" delivers copies from its own buffers, without time stamps,
// on a thread of its own: a copy is made only when a buffer is free at once, so a slow or stuck preview
// never holds up the capture stream nor keeps a producer's buffer. Both output pins answer IAMStreamControl
// (gated by the input's time stamps); end of stream, flushes and new segments go to both.
#pragma once

#include "dshow/base/dshow_headers.h"

namespace qvn_standins {

// Windows' Smart Tee class, {CC58E280-8AA1-11D1-B3F1-00AA003761C5}.
extern const CLSID kClsidSmartTee;

// A new stand-in Smart Tee with one reference, as IBaseFilter; null when out of memory.
IBaseFilter* CreateSmartTeeStandIn();

// True when the platform's Smart Tee (created in-process) answers IAMStreamControl on its "Capture" pin,
// which the encoder graph needs to end the capture stream.
bool PlatformSmartTeeControlsStreams();

// The stand-in's class object registered under CLSID_SmartTee (REGCLS_MULTIPLEUSE, in-process, in the
// apartment of the thread that calls Register), revoked by Revoke or at destruction. Not thread-safe.
class SmartTeeStandInRegistration {
public:
    SmartTeeStandInRegistration() = default;
    ~SmartTeeStandInRegistration() { Revoke(); }
    SmartTeeStandInRegistration(const SmartTeeStandInRegistration&) = delete;
    SmartTeeStandInRegistration& operator=(const SmartTeeStandInRegistration&) = delete;

    // Registers when the platform's Smart Tee has no stream control, or when force is true: S_OK once
    // registered (also when it already was), S_FALSE when the platform's filter is fit and nothing was
    // registered, CoRegisterClassObject's failure otherwise.
    HRESULT Register(bool force);
    // S_OK, also when nothing was registered; otherwise CoRevokeClassObject's failure.
    HRESULT Revoke();
    bool Registered() const { return registered_; }

private:
    bool registered_ = false;
    DWORD cookie_ = 0; // COM's cookies may be 0: registered_ says whether it is valid
};

} // namespace qvn_standins

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

#include "host/dshow_standins/standin_registration.h"

#include "dshow/base/dshow_headers.h"

namespace qvn_standins {

// Windows' Smart Tee class, {CC58E280-8AA1-11D1-B3F1-00AA003761C5}.
extern const CLSID kClsidSmartTee;

// True when the platform's Smart Tee (created in-process) answers IAMStreamControl on its "Capture" pin,
// which the encoder graph needs to end the capture stream.
bool PlatformSmartTeeControlsStreams();

// The stand-in's registration (see StandInRegistration).
class SmartTeeStandInRegistration : public StandInRegistration {
public:
    SmartTeeStandInRegistration();
};

} // namespace qvn_standins

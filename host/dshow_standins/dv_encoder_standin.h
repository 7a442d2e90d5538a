// A DV Video Encoder for platforms that have none (Wine registers no class under CLSID_DVVideoEnc). It
// belongs to the host and the tests, never to the module: the host registers its class object in-process
// under that class identifier, so the module's CoCreateInstance finds it.
//
// Like Windows' encoder it takes 720 x 480 (NTSC) or 720 x 576 (PAL) RGB24 or RGB32 frames, whichever video
// format IDVEnc::put_IFormatResolution chose (NTSC until told otherwise), and delivers "dvsd" frames of
// 120,000 or 144,000 bytes: 25 Mbit/s DV, 4:1:1 for NTSC and 4:2:0 for PAL, made by libavcodec. Only the
// full-resolution DVSD format is offered; a frame of another size is refused at connection.
#pragma once

#include "host/dshow_standins/standin_registration.h"

#include "dshow/base/dshow_headers.h"

namespace qvn_standins {

// Windows' DV Video Encoder class, {13AA3650-BB6F-11D0-AFB9-00AA00B67A42}.
extern const CLSID kClsidDvVideoEncoder;

// The stand-in's registration: only where the platform's class cannot be created.
class DvEncoderStandInRegistration : public StandInRegistration {
public:
    DvEncoderStandInRegistration();
};

} // namespace qvn_standins

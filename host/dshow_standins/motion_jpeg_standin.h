// A Motion JPEG compressor for machines without the capture cards' software, which installs the real one
// under the class identifier the module creates. It belongs to the host and the tests, never to the module:
// the host registers its class object in-process under that identifier.
//
// It takes RGB24 or RGB32 frames of an even width from 16 to 4096 and a height from 16 to 4096, and delivers
// "MJPG" frames (baseline JPEG, 4:2:2, made by libavcodec), every one a key frame. IAMVideoCompression's
// quality (0 to 1, 0.75 until set) picks the quantiser: 1.0 the finest, 0.9 four times coarser.
#pragma once

#include "host/dshow_standins/standin_registration.h"

#include "dshow/base/dshow_headers.h"

namespace qvn_standins {

// The cards' Motion JPEG compressor class, {6C2F1A93-4D07-4B8E-9A61-3E5B2C7D0F18}.
extern const CLSID kClsidMotionJpegCompressor;

// The stand-in's registration: only where the cards' class cannot be created.
class MotionJpegStandInRegistration : public StandInRegistration {
public:
    MotionJpegStandInRegistration();
};

} // namespace qvn_standins

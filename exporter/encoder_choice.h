// Which encoder writes a codec, and what the encoder is told about the frames.
#pragma once

#include <cstdint>
#include <memory>

#include "encoders/encoder_base.h"
#include "platform/win_types.h"

namespace QVN {

struct EncoderChoice {
    std::unique_ptr<CEncoderBase> encoder;
    BITMAPINFOHEADER input;  // what the producer puts into a frame buffer
    BITMAPINFOHEADER output; // what the file's video stream holds
    std::uint32_t mode;      // the encoder's option word
};

// The DVCPRO codes are stored by the AVI encoder as "dvh1"/"dv50" frames the host has compressed; every
// other code belongs to the DirectShow graph. Where the build has no DirectShow (or QVN_ENCODER=avi asks
// for it), the uncompressed codes go to the AVI encoder instead; without DirectShow the graph-compressed
// ones get an encoder that refuses to initialise.
// Never returns a null encoder.
EncoderChoice ChooseEncoder(std::uint32_t codec, std::int32_t width, std::int32_t height,
                            std::int32_t pixelAspectNumerator);

} // namespace QVN

// The encoder for a codec this build cannot write: every operation fails, and Initialise says why on the
// debugger channel, so the export ends at once with the encoder's failure instead of a broken file.
#pragma once

#include <cstdint>

#include "encoders/encoder_base.h"

namespace QVN {

class CUnavailableEncoder final : public CEncoderBase {
public:
    explicit CUnavailableEncoder(std::uint32_t codec) : codec_(codec) {}

    std::uint32_t Initialise(const BITMAPINFOHEADER*, const BITMAPINFOHEADER*, std::uint32_t, std::uint32_t,
                             std::uint32_t, std::uint8_t, std::uint32_t, IFrameSink*) override;
    std::uint32_t GetFreeBuffers(BufferList& buffers) override {
        buffers.clear();
        return EncoderStatus::kFailed;
    }
    std::uint32_t ReclaimBuffers(BufferList& buffers) override {
        buffers.clear();
        return EncoderStatus::kFailed;
    }
    std::uint32_t SetAudioFormat(std::uint16_t, std::uint32_t, std::uint16_t, std::int16_t) override {
        return EncoderStatus::kFailed;
    }
    std::uint32_t Open(std::uint32_t, std::uint32_t, std::uint32_t, const wchar_t*) override {
        return EncoderStatus::kFailed;
    }
    std::uint32_t WriteVideo(const void*, std::uint32_t) override { return EncoderStatus::kFailed; }
    std::uint32_t WriteAudio(const std::uint8_t*, std::uint32_t) override { return EncoderStatus::kFailed; }
    std::uint32_t Finish() override { return EncoderStatus::kFailed; }
    std::uint32_t Close() override { return EncoderStatus::kFailed; }
    std::uint32_t WritePixelAspect(std::int32_t, std::int32_t) override { return EncoderStatus::kFailed; }
    std::uint32_t AudioSamplesForFrames(std::uint32_t) override { return 0; }
    std::uint32_t AudioSamplesForNextFrame(std::uint32_t) override { return 0; }
    std::uint32_t ReleaseSink() override { return EncoderStatus::kOk; }

private:
    std::uint32_t codec_;
};

} // namespace QVN

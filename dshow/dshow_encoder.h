// The encoder that writes through a DirectShow filter graph: the uncompressed codes go from our video
// source straight to our AVI multiplexer, Motion JPEG and DV through the platform's compressor on the way.
// A thin object: each operation forwards to the graph state (dshow_graph.h) and turns its HRESULT into the
// encoder's status (0, or 99 for any failure).
#pragma once

#include "dshow/dshow_graph.h"
#include "encoders/encoder_base.h"

class CDShowEncoder final : public CEncoderBase {
public:
    CDShowEncoder() = default;

    // Also E_POINTER itself when a format is missing.
    std::uint32_t Initialise(const BITMAPINFOHEADER* sourceFormat, const BITMAPINFOHEADER* targetFormat,
                             std::uint32_t options, std::uint32_t rate, std::uint32_t scale,
                             std::uint8_t bufferCount, std::uint32_t bufferSize, IFrameSink* sink) override;
    std::uint32_t GetFreeBuffers(BufferList& buffers) override;
    std::uint32_t ReclaimBuffers(BufferList& buffers) override;
    std::uint32_t SetAudioFormat(std::uint16_t channels, std::uint32_t samplesPerSecond,
                                 std::uint16_t bitsPerSample, std::int16_t subFormatTag) override;
    std::uint32_t Open(std::uint32_t hasVideo, std::uint32_t hasAudio, std::uint32_t frameLimit,
                       const wchar_t* path) override;
    std::uint32_t WriteVideo(const void* frame, std::uint32_t size) override;
    std::uint32_t WriteAudio(const std::uint8_t* samples, std::uint32_t size) override;
    std::uint32_t Finish() override;
    std::uint32_t Close() override;
    std::uint32_t WritePixelAspect(std::int32_t numerator, std::int32_t denominator) override;
    std::uint32_t AudioSamplesForFrames(std::uint32_t frames) override;
    std::uint32_t AudioSamplesForNextFrame(std::uint32_t frames) override;
    std::uint32_t ReleaseSink() override;

    CDShowGraph& State() { return state_; }

private:
    CDShowGraph state_;
};

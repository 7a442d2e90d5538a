// The one interface through which the export run hands frames and audio to an encoder. Every operation
// returns a status code; nothing throws across it.
#pragma once

#include <cstdint>
#include <vector>

#include "encoders/frame_sink.h"
#include "platform/win_types.h"

namespace QVN::EncoderStatus {
inline constexpr std::uint32_t kOk = 0;
inline constexpr std::uint32_t kFailed = 99;
inline constexpr std::uint32_t kOutOfMemory = 0x80000002u;
} // namespace QVN::EncoderStatus

using BufferList = std::vector<void*>;

class CEncoderBase {
public:
    virtual ~CEncoderBase() = default;

    // sourceFormat and options are for encoders that convert or compress in a graph.
    virtual std::uint32_t Initialise(const BITMAPINFOHEADER* sourceFormat,
                                     const BITMAPINFOHEADER* targetFormat, std::uint32_t options,
                                     std::uint32_t rate, std::uint32_t scale, std::uint8_t bufferCount,
                                     std::uint32_t bufferSize, IFrameSink* sink) = 0;
    // All frame buffers the producer may render into.
    virtual std::uint32_t GetFreeBuffers(BufferList& buffers) = 0;
    // The frame buffers whose content has been consumed since the last call.
    virtual std::uint32_t ReclaimBuffers(BufferList& buffers) = 0;
    virtual std::uint32_t SetAudioFormat(std::uint16_t channels, std::uint32_t samplesPerSecond,
                                         std::uint16_t bitsPerSample, std::int16_t subFormatTag) = 0;
    virtual std::uint32_t Open(std::uint32_t hasVideo, std::uint32_t hasAudio, std::uint32_t frameLimit,
                               const wchar_t* path) = 0;
    virtual std::uint32_t WriteVideo(const void* frame, std::uint32_t size) = 0;
    virtual std::uint32_t WriteAudio(const std::uint8_t* samples, std::uint32_t size) = 0;
    // Waits until the frame limit's last frame is on disk, then closes.
    virtual std::uint32_t Finish() = 0;
    virtual std::uint32_t Close() = 0;
    // Appends the host's pixel-aspect record to the closed file.
    virtual std::uint32_t WritePixelAspect(std::int32_t numerator, std::int32_t denominator) = 0;
    virtual std::uint32_t AudioSamplesForFrames(std::uint32_t frames) = 0;
    virtual std::uint32_t AudioSamplesForNextFrame(std::uint32_t frames) = 0;
    virtual std::uint32_t ReleaseSink() = 0;
};

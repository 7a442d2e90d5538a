// The AVI encoder for uncompressed codecs (and payloads the host has already compressed): the frame the
// producer hands over is the chunk payload, copied as it is.
#pragma once

#include <cstdint>

#include "encoders/avi_encoder.h"

class CSimpleAviEncoder : public CAviEncoder {
public:
    explicit CSimpleAviEncoder(std::uint32_t fourcc) : fourcc_(fourcc) {}

    std::uint32_t Initialise(const BITMAPINFOHEADER* sourceFormat, const BITMAPINFOHEADER* targetFormat,
                             std::uint32_t options, std::uint32_t rate, std::uint32_t scale,
                             std::uint8_t bufferCount, std::uint32_t bufferSize, IFrameSink* sink) override;
    std::uint32_t Open(std::uint32_t hasVideo, std::uint32_t hasAudio, std::uint32_t frameLimit,
                       const wchar_t* path) override;
    std::uint32_t EncodeFrame(const void* source, std::uint32_t sourceSize, std::uint8_t* destination,
                              std::uint32_t destinationSize) override;
    std::uint32_t ReuseFrame(std::uint32_t sequence, const void* source, std::uint32_t sourceSize,
                             std::uint8_t* destination, std::uint32_t destinationSize) override;

private:
    std::uint32_t fourcc_;
};

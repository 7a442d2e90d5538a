// One picture of 8-bit RGB (a DIB: 24 or 32 bits per pixel, rows padded to 4 bytes, bottom row first when
// bottomUp) compressed into one DV or Motion JPEG frame through libavcodec, for the encoder stand-ins. COM
// free; one frame at a time, from one thread.
#pragma once

#include <cstdint>
#include <memory>

namespace qvn_standins {

struct FrameCompressorSettings {
    enum class Codec { DvNtsc, DvPal, MotionJpeg };
    Codec codec = Codec::MotionJpeg;
    int width = 0;
    int height = 0;
    int bitsPerPixel = 32; // 24 or 32
    bool bottomUp = true;
    int jpegQuantiser = 2; // Motion JPEG: 1 (finest) to 31
};

class FrameCompressor {
public:
    // Null when libavcodec cannot open the codec for these settings.
    static std::unique_ptr<FrameCompressor> Create(const FrameCompressorSettings& settings);
    ~FrameCompressor();
    FrameCompressor(const FrameCompressor&) = delete;
    FrameCompressor& operator=(const FrameCompressor&) = delete;

    // Bytes of one source picture.
    std::int64_t SourceBytes() const;
    // Compresses src (at least SourceBytes() long) into dst. Answers the frame's size, or -1 when the
    // encoder failed or the frame would not fit in capacity.
    std::int64_t Compress(const std::uint8_t* src, std::uint8_t* dst, std::int64_t capacity);

    // Quantiser of a compression quality between 0 and 1: 1 gives the finest, 0 the coarsest.
    static int QuantiserForQuality(double quality);

private:
    struct State;
    explicit FrameCompressor(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace qvn_standins

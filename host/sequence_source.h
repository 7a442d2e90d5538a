// What the simulated sequence shows: a test pattern (colour bars, ramps or seeded noise, each with the
// burnt-in frame number and a box that moves from frame to frame), or raw 8-bit BGRA frames read top-down
// from a file or standard input, as `ffmpeg ... -f rawvideo -pix_fmt bgra -` writes them.
//
// Every frame is drawn into a host frame of any size and host BGRA depth; a raw picture of another size is
// scaled to it (nearest pixel). Several render threads may ask for frames at once.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "host/host_frame.h"
#include "platform/file.h"

namespace qvnhost {

enum class SourceKind { Bars, Ramp, Noise, Raw };

struct SourceOptions {
    SourceKind kind = SourceKind::Bars;
    std::string rawPath; // "-": standard input
    std::int32_t rawWidth = 0;
    std::int32_t rawHeight = 0;
    std::uint32_t seed = 1;
};

// "bars", "ramp", "noise", "raw:FILE" or "raw:-" into options (kind and path); false with *error.
bool ParseSourceName(const std::string& text, SourceOptions* options, std::string* error);

class SequenceSource {
public:
    SequenceSource() = default;
    SequenceSource(const SequenceSource&) = delete;
    SequenceSource& operator=(const SequenceSource&) = delete;

    // Opens raw input; patterns need nothing. False with a one-line *error.
    bool Open(const SourceOptions& options, std::string* error);
    const SourceOptions& Options() const { return options_; }

    // Whole frames in a raw file (-1 for patterns and standard input).
    std::int64_t RawFrameCount() const { return rawFrames_; }
    // Standard input is read forward only: frames before this one are read and dropped.
    void SetFirstFrame(std::int64_t frame) { nextPipeFrame_ = 0, firstFrame_ = frame; }

    // Draws frame n into frame. False with *error (raw input that ended or failed, a frame read already).
    bool Render(std::int64_t n, HostFrame& frame, std::string* error);

private:
    // The still part of a pattern at one size and depth, bottom-up rows without padding.
    std::shared_ptr<const std::vector<unsigned char>> Background(const FrameLayout& layout);
    void DrawNoise(std::int64_t n, HostFrame& frame) const;
    // Fills *pixels, a buffer from TakeReadBuffer, with raw frame n.
    bool ReadRaw(std::int64_t n, std::vector<std::uint8_t>* pixels, std::string* error);
    bool RenderRaw(std::int64_t n, HostFrame& frame, std::string* error);
    // With the lock held: a spare frame-sized read buffer, or an empty one; and its return afterwards.
    std::vector<std::uint8_t> TakeReadBuffer();
    void ReturnReadBuffer(std::vector<std::uint8_t> buffer);

    SourceOptions options_;
    std::mutex mutex_;
    std::map<std::tuple<std::int32_t, std::int32_t, prsdk::PrPixelFormat>,
             std::shared_ptr<const std::vector<unsigned char>>>
        backgrounds_;
    QVN::CFile file_;
    std::int64_t rawFrames_ = -1;
    // Standard input: frames read ahead of their request, by number.
    std::map<std::int64_t, std::vector<std::uint8_t>> pipeFrames_;
    std::int64_t nextPipeFrame_ = 0;
    std::int64_t firstFrame_ = 0;
    bool pipeEnded_ = false;
    // Read buffers kept between frames, at most one per render thread that reads at once (and a few).
    std::vector<std::vector<std::uint8_t>> spareReads_;
};

} // namespace qvnhost

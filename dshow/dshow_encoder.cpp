#include "dshow/dshow_encoder.h"

#include <cstdio>

#include "platform/debug_output.h"

namespace {

// Every failure becomes the encoder's one error code; the debugger line keeps what the graph answered.
std::uint32_t Status(HRESULT hr, const char* step) {
    if (SUCCEEDED(hr))
        return QVN::EncoderStatus::kOk;
    char line[120];
    std::snprintf(line, sizeof line, "QVNExport: the DirectShow graph failed to %s: 0x%08lX\n", step,
                  static_cast<unsigned long>(hr));
    QVN::DebugOutput(line);
    return QVN::EncoderStatus::kFailed;
}

} // namespace

std::uint32_t CDShowEncoder::Initialise(const BITMAPINFOHEADER* sourceFormat,
                                        const BITMAPINFOHEADER* targetFormat, std::uint32_t options,
                                        std::uint32_t rate, std::uint32_t scale, std::uint8_t bufferCount,
                                        std::uint32_t bufferSize, IFrameSink* sink) {
    const HRESULT hr =
        state_.Initialise(sourceFormat, targetFormat, options, rate, scale, bufferCount, bufferSize, sink);
    return hr == E_POINTER ? static_cast<std::uint32_t>(E_POINTER) : Status(hr, "start");
}

std::uint32_t CDShowEncoder::GetFreeBuffers(BufferList& buffers) {
    state_.GetFreeBuffers(buffers);
    return QVN::EncoderStatus::kOk;
}

std::uint32_t CDShowEncoder::ReclaimBuffers(BufferList& buffers) {
    return Status(state_.ReclaimBuffers(buffers), "take back its buffers");
}

std::uint32_t CDShowEncoder::SetAudioFormat(std::uint16_t channels, std::uint32_t samplesPerSecond,
                                            std::uint16_t bitsPerSample, std::int16_t subFormatTag) {
    return Status(state_.SetAudioFormat(channels, samplesPerSecond, bitsPerSample, subFormatTag),
                  "take the audio format");
}

std::uint32_t CDShowEncoder::Open(std::uint32_t hasVideo, std::uint32_t hasAudio, std::uint32_t frameLimit,
                                  const wchar_t* path) {
    return Status(state_.Open(hasVideo, hasAudio, frameLimit, path), "open the file");
}

std::uint32_t CDShowEncoder::WriteVideo(const void* frame, std::uint32_t size) {
    return Status(state_.WriteVideo(frame, size), "write a frame");
}

std::uint32_t CDShowEncoder::WriteAudio(const std::uint8_t* samples, std::uint32_t size) {
    return Status(state_.WriteAudio(samples, size), "write audio");
}

std::uint32_t CDShowEncoder::Finish() {
    return Status(state_.Finish(), "finish the file");
}

std::uint32_t CDShowEncoder::Close() {
    return Status(state_.Close(), "close the file");
}

std::uint32_t CDShowEncoder::WritePixelAspect(std::int32_t numerator, std::int32_t denominator) {
    return Status(state_.WritePixelAspect(numerator, denominator), "record the pixel aspect");
}

std::uint32_t CDShowEncoder::AudioSamplesForFrames(std::uint32_t frames) {
    return state_.AudioSamplesForFrames(frames);
}

std::uint32_t CDShowEncoder::AudioSamplesForNextFrame(std::uint32_t frames) {
    return state_.AudioSamplesForNextFrame(frames);
}

std::uint32_t CDShowEncoder::ReleaseSink() {
    return Status(state_.ReleaseSink(), "release the frame sink");
}

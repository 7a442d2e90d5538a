// The asynchronous AVI encoder: a frame is turned into a chunk payload on the producer's thread and queued
// to the file's writer thread, so the producer waits for the disk only when the writer falls more than the
// queue bound behind. Subclasses supply the payload (EncodeFrame) and the file's streams (Open).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "encoders/active_avi_file.h"
#include "encoders/aligned_buffer_pool.h"
#include "encoders/audio_steps.h"
#include "encoders/encoder_base.h"
#include "platform/critical_section.h"
#include "platform/win_types.h"

class CAviEncoder : public CEncoderBase {
public:
    static constexpr std::int32_t kUnlimited = 0x7FFFFFFF;

    CAviEncoder();
    ~CAviEncoder() override;

    std::uint32_t Initialise(const BITMAPINFOHEADER* sourceFormat, const BITMAPINFOHEADER* targetFormat,
                             std::uint32_t options, std::uint32_t rate, std::uint32_t scale,
                             std::uint8_t bufferCount, std::uint32_t bufferSize, IFrameSink* sink) override;
    std::uint32_t GetFreeBuffers(BufferList& buffers) override;
    std::uint32_t ReclaimBuffers(BufferList& buffers) override;
    std::uint32_t SetAudioFormat(std::uint16_t channels, std::uint32_t samplesPerSecond,
                                 std::uint16_t bitsPerSample, std::int16_t subFormatTag) override;
    std::uint32_t WriteVideo(const void* frame, std::uint32_t size) override;
    std::uint32_t WriteAudio(const std::uint8_t* samples, std::uint32_t size) override;
    std::uint32_t Finish() override;
    std::uint32_t Close() override;
    std::uint32_t WritePixelAspect(std::int32_t numerator, std::int32_t denominator) override;
    std::uint32_t AudioSamplesForFrames(std::uint32_t frames) override;
    std::uint32_t AudioSamplesForNextFrame(std::uint32_t frames) override;
    std::uint32_t ReleaseSink() override;

    // Fills destination with the chunk payload of a frame; returns its size (0: nothing to write).
    virtual std::uint32_t EncodeFrame(const void* source, std::uint32_t sourceSize, std::uint8_t* destination,
                                      std::uint32_t destinationSize) = 0;
    // Nonzero: the subclass took over the frame and will itself queue a WriteFrame with this sequence number.
    virtual std::uint32_t ReuseFrame(std::uint32_t sequence, const void* source, std::uint32_t sourceSize,
                                     std::uint8_t* destination, std::uint32_t destinationSize) = 0;

    // Queues a finished payload (or recycles it when written is 0) and returns the producer's frame buffer.
    // Called with the encoder lock held.
    void EncodeComplete(std::uint32_t sequence, const void* source, std::uint32_t sourceSize,
                        std::uint8_t* payload, std::uint32_t written);

    // For tests and diagnostics.
    const VIDEOINFOHEADER& VideoDescriptor() const { return video_; }
    const WAVEFORMATEXTENSIBLE& AudioFormat() const { return audio_; }
    CActiveAviFile& File() { return file_; }

protected:
    // Queues an item, waiting in 5 ms steps while the writer is more than the bound behind.
    void QueueItem(WriteFrame* item, const char* fullMessage);
    // Takes a payload buffer and makes sure a queue item is at hand; false (nothing taken) when out of
    // memory.
    bool PrepareItem(std::uint32_t size, void** payload);
    // The item PrepareItem set aside, filled in.
    WriteFrame* TakeItem(std::uint32_t stream, std::uint32_t sequence, void* payload, std::uint32_t size);
    bool ReserveReturned();

    QVN::CW32CriticalSection lock_;
    AlignedBufferPool pool_;
    CActiveAviFile file_;
    std::vector<void*> producerBuffers_;
    std::vector<std::size_t> producerBufferSizes_;
    std::vector<void*> returnedBuffers_;
    VIDEOINFOHEADER video_{};
    WAVEFORMATEXTENSIBLE audio_{};
    std::int32_t videoStream_ = -1;
    std::int32_t audioStream_ = -1;
    std::wstring path_;
    std::uint32_t rate_ = 0;
    std::uint32_t scale_ = 1;
    std::int32_t frameLimit_ = kUnlimited;
    std::int32_t framesSubmitted_ = 0;
    std::uint32_t audioBlocks_ = 0;
    std::uint32_t samplesPerSecond_ = 0;
    QVN::CAudioSteps audioSteps_;
    IFrameSink* sink_ = nullptr;
    bool open_ = false;           // the writer thread runs
    WriteFrame* spare_ = nullptr; // the next queue item, allocated before a sequence number is taken
};

#include "encoders/avi_encoder.h"

#include <cstring>
#include <new>

#include "encoders/pixel_aspect_record.h"
#include "platform/debug_output.h"
#include "platform/sleep.h"
#include "platform/virtual_memory.h"

namespace {

using Hold = QVN::CAutoLock<QVN::CW32CriticalSection>;
namespace Status = QVN::EncoderStatus;

constexpr std::uint32_t kQueueRetryMs = 5;

} // namespace

CAviEncoder::CAviEncoder() = default;

CAviEncoder::~CAviEncoder() {
    if (open_ || file_.IsOpen())
        file_.Shutdown();
    delete spare_;
    for (std::size_t i = 0; i < producerBuffers_.size(); ++i)
        QVN::ReleasePages(producerBuffers_[i], producerBufferSizes_[i]);
}

std::uint32_t CAviEncoder::Initialise(const BITMAPINFOHEADER*, const BITMAPINFOHEADER* targetFormat,
                                      std::uint32_t, std::uint32_t rate, std::uint32_t scale,
                                      std::uint8_t bufferCount, std::uint32_t bufferSize, IFrameSink* sink) {
    if (!targetFormat || rate == 0)
        return Status::kFailed;
    const std::size_t bytes = (static_cast<std::size_t>(bufferSize) + 15) / 16 * 16;
    try { // the lists take room before the memory is committed, so that no buffer is ever lost
        producerBuffers_.reserve(producerBuffers_.size() + bufferCount);
        producerBufferSizes_.reserve(producerBufferSizes_.size() + bufferCount);
    } catch (const std::bad_alloc&) {
        return Status::kOutOfMemory;
    }
    for (std::uint32_t i = 0; i < bufferCount; ++i) {
        void* buffer = QVN::CommitPages(bytes);
        if (!buffer)
            return Status::kOutOfMemory;
        producerBuffers_.push_back(buffer);
        producerBufferSizes_.push_back(bytes);
    }
    std::memset(&video_, 0, sizeof(video_));
    std::memset(&audio_, 0, sizeof(audio_));
    video_.bmiHeader = *targetFormat;
    videoStream_ = -1;
    audioStream_ = -1;
    rate_ = rate;
    framesSubmitted_ = 0;
    audioBlocks_ = 0;
    video_.AvgTimePerFrame = static_cast<std::int64_t>(scale) * 10000000 / rate;
    frameLimit_ = kUnlimited;
    scale_ = scale == 0 ? 1 : scale;
    sink_ = sink;
    return Status::kOk;
}

std::uint32_t CAviEncoder::GetFreeBuffers(BufferList& buffers) {
    Hold hold(lock_);
    try {
        buffers.assign(producerBuffers_.begin(), producerBuffers_.end());
    } catch (const std::bad_alloc&) {
        return Status::kOutOfMemory;
    }
    return Status::kOk;
}

std::uint32_t CAviEncoder::ReclaimBuffers(BufferList& buffers) {
    Hold hold(lock_);
    buffers.clear();
    buffers.swap(returnedBuffers_);
    return Status::kOk;
}

std::uint32_t CAviEncoder::SetAudioFormat(std::uint16_t channels, std::uint32_t samplesPerSecond,
                                          std::uint16_t bitsPerSample, std::int16_t subFormatTag) {
    // Initialise clears the format area; what this leaves alone keeps its value.
    WAVEFORMATEX& format = audio_.Format;
    if (channels == 6) {
        format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        format.cbSize = 22;
        // The valid-bits field stays 0 on purpose, as in every file this writer has produced.
        audio_.dwChannelMask = 0x3F;
        audio_.SubFormat.Data1 = static_cast<std::uint32_t>(static_cast<std::int32_t>(subFormatTag));
        audio_.SubFormat.Data2 = 0x0000;
        audio_.SubFormat.Data3 = 0x0010;
        const unsigned char tail[8] = {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        std::memcpy(audio_.SubFormat.Data4, tail, sizeof(tail));
    } else {
        format.wFormatTag = WAVE_FORMAT_PCM;
    }
    format.nChannels = channels;
    format.nSamplesPerSec = samplesPerSecond;
    format.wBitsPerSample = bitsPerSample;
    format.nBlockAlign = static_cast<WORD>(static_cast<int>(channels) * static_cast<int>(bitsPerSample) / 8);
    format.nAvgBytesPerSec = format.nBlockAlign * samplesPerSecond;
    samplesPerSecond_ = samplesPerSecond;
    return Status::kOk;
}

void CAviEncoder::QueueItem(WriteFrame* item, const char* fullMessage) {
    while (!file_.Push(item)) {
        QVN::DebugOutput(fullMessage);
        QVN::SleepMs(kQueueRetryMs);
    }
}

bool CAviEncoder::PrepareItem(std::uint32_t size, void** payload) {
    *payload = pool_.Allocate(size);
    if (*payload && !spare_)
        spare_ = new (std::nothrow) WriteFrame{};
    if (!*payload || !spare_) {
        pool_.Release(*payload);
        *payload = nullptr;
        return false;
    }
    return true;
}

WriteFrame* CAviEncoder::TakeItem(std::uint32_t stream, std::uint32_t sequence, void* payload,
                                  std::uint32_t size) {
    WriteFrame* item = spare_ ? spare_ : new WriteFrame{};
    spare_ = nullptr;
    *item = WriteFrame{stream, sequence, payload, size, &pool_};
    return item;
}

std::uint32_t CAviEncoder::WriteVideo(const void* frame, std::uint32_t size) {
    std::uint32_t result = Status::kOk;
    IFrameSink* sink = nullptr;
    try {
        Hold hold(lock_);
        if (!open_) // no writer thread to drain the queue
            return Status::kFailed;
        const std::int32_t sequence = framesSubmitted_ + 1;
        if (frameLimit_ >= 0 && sequence > frameLimit_) {
            framesSubmitted_ = sequence;
            return Status::kOk;
        }
        // Everything the frame needs is taken before its sequence number: a number used up by a frame that
        // never reaches the writer would hold every later frame of the stream back for good.
        void* payload = nullptr;
        const bool room = returnedBuffers_.size() < returnedBuffers_.capacity() || ReserveReturned();
        // After a lost item the writer drops everything: the producer hears of it at once.
        if (file_.LostItems() || !room || !PrepareItem(size, &payload)) {
            if (returnedBuffers_.size() < returnedBuffers_.capacity())
                returnedBuffers_.push_back(const_cast<void*>(frame));
            return Status::kOutOfMemory;
        }
        framesSubmitted_ = sequence;
        const auto n = static_cast<std::uint32_t>(sequence);
        auto* bytes = static_cast<std::uint8_t*>(payload);
        if (ReuseFrame(n, frame, size, bytes, size) == 0) {
            const std::uint32_t written = EncodeFrame(frame, size, bytes, size);
            EncodeComplete(n, frame, size, bytes, written);
            result = written == 0 ? Status::kFailed : Status::kOk;
        }
        sink = sink_;
    } catch (const std::bad_alloc&) { // nothing may be thrown across the encoder interface
        return Status::kOutOfMemory;
    }
    if (sink) // outside the lock: the observer may take its time
        sink->BufferCB(0.0, static_cast<BYTE*>(const_cast<void*>(frame)), static_cast<LONG>(size));
    return result;
}

bool CAviEncoder::ReserveReturned() {
    try { // room for every producer buffer at once, so that handing one back never allocates
        returnedBuffers_.reserve(returnedBuffers_.size() + producerBuffers_.size() + 1);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void CAviEncoder::EncodeComplete(std::uint32_t sequence, const void* source, std::uint32_t,
                                 std::uint8_t* payload, std::uint32_t written) {
    returnedBuffers_.push_back(const_cast<void*>(source));
    if (written == 0) {
        pool_.Release(payload);
        return;
    }
    QueueItem(TakeItem(static_cast<std::uint32_t>(videoStream_), sequence, payload, written),
              "queue full in CAviEncoder::EncodeComplete\n");
}

std::uint32_t CAviEncoder::WriteAudio(const std::uint8_t* samples, std::uint32_t size) {
    Hold hold(lock_);
    if (!open_)
        return Status::kFailed;
    if (file_.LostItems())
        return Status::kOutOfMemory;
    const std::uint32_t block = audioBlocks_ + 1;
    if ((frameLimit_ >= 0 && framesSubmitted_ > frameLimit_) || audioStream_ < 0) {
        // Audio after the last video frame, or a file without an audio stream: counted, not written.
        audioBlocks_ = block;
        return Status::kOk;
    }
    void* payload = nullptr;
    if (!PrepareItem(size, &payload))
        return Status::kOutOfMemory; // the block number stays free for the next block
    audioBlocks_ = block;
    std::memcpy(payload, samples, size);
    QueueItem(TakeItem(static_cast<std::uint32_t>(audioStream_), block, payload, size),
              "queue full in CAviEncoder::WriteAudio\n");
    return Status::kOk;
}

std::uint32_t CAviEncoder::Finish() {
    std::int32_t limit;
    std::int32_t videoStream;
    {
        Hold hold(lock_);
        limit = frameLimit_;
        videoStream = videoStream_;
    }
    if (limit >= 0 && limit != kUnlimited && videoStream >= 0) {
        // An item the writer had to drop never reaches the file: waiting for it would never end.
        while (!file_.LostItems() &&
               file_.LastWritten(static_cast<std::uint32_t>(videoStream)) < static_cast<std::uint32_t>(limit))
            QVN::SleepMs(kQueueRetryMs);
    }
    // Items queued behind the last frame (audio) are written during Close: the writer's verdict comes after.
    Close();
    return file_.LostItems() ? Status::kOutOfMemory : Status::kOk;
}

std::uint32_t CAviEncoder::Close() {
    {
        Hold hold(lock_);
        frameLimit_ = kUnlimited;
        framesSubmitted_ = 0;
        audioBlocks_ = 0;
        open_ = false;
    }
    file_.Shutdown();
    return Status::kOk;
}

std::uint32_t CAviEncoder::WritePixelAspect(std::int32_t numerator, std::int32_t denominator) {
    return QVN::AppendPixelAspectRecord(path_, numerator, denominator);
}

std::uint32_t CAviEncoder::AudioSamplesForFrames(std::uint32_t frames) {
    const std::int64_t total = static_cast<std::int64_t>(samplesPerSecond_) * scale_ * frames;
    return static_cast<std::uint32_t>((total + rate_ - 1) / rate_);
}

std::uint32_t CAviEncoder::AudioSamplesForNextFrame(std::uint32_t frames) {
    Hold hold(lock_);
    return audioSteps_.Next(samplesPerSecond_, rate_, scale_, frames);
}

std::uint32_t CAviEncoder::ReleaseSink() {
    Hold hold(lock_);
    sink_ = nullptr;
    return Status::kOk;
}

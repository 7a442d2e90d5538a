#include "encoders/simple_avi_encoder.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "encoders/stream_info.h"
#include "encoders/streaming_copy.h"
#include "platform/text_encoding.h"

namespace Status = QVN::EncoderStatus;

std::uint32_t CSimpleAviEncoder::Initialise(const BITMAPINFOHEADER* sourceFormat,
                                            const BITMAPINFOHEADER* targetFormat, std::uint32_t options,
                                            std::uint32_t rate, std::uint32_t scale, std::uint8_t bufferCount,
                                            std::uint32_t bufferSize, IFrameSink* sink) {
    return CAviEncoder::Initialise(sourceFormat, targetFormat, options, rate, scale, bufferCount, bufferSize,
                                   sink);
}

std::uint32_t CSimpleAviEncoder::Open(std::uint32_t hasVideo, std::uint32_t hasAudio,
                                      std::uint32_t frameLimit, const wchar_t* path) {
    if (!path || open_)
        return Status::kFailed;
    std::vector<std::unique_ptr<StreamInfo>> streams;
    std::vector<StreamInfo*> list;
    std::string narrow;
    try {
        QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
        path_ = path;
        frameLimit_ = static_cast<std::int32_t>(frameLimit);
        framesSubmitted_ = 0;
        audioBlocks_ = 0;
        videoStream_ = -1;
        audioStream_ = -1;
        if (hasVideo) {
            VIDEOINFOHEADER format = video_;
            // The codec goes into both the strh handler and the bitmap's compression field.
            format.bmiHeader.biCompression = fourcc_;
            streams.push_back(std::make_unique<VideoStreamInfo>(format));
            videoStream_ = 0;
        }
        if (hasAudio) {
            streams.push_back(std::make_unique<AudioStreamInfo>(&audio_.Format));
            audioStream_ = videoStream_ + 1;
        }
        for (const auto& stream : streams)
            list.push_back(stream.get());
        narrow = QVN::WideToUtf8(path_);
    } catch (const std::bad_alloc&) {
        return Status::kOutOfMemory;
    }
    if (!file_.StartWriter()) {
        file_.Shutdown();
        return Status::kFailed;
    }
    if (FAILED(file_.Open(narrow.c_str(), list))) {
        file_.Shutdown(); // no writer thread outlives a failed open
        return Status::kFailed;
    }
    QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
    audioSteps_.Reset();
    open_ = true;
    return Status::kOk;
}

std::uint32_t CSimpleAviEncoder::EncodeFrame(const void* source, std::uint32_t sourceSize,
                                             std::uint8_t* destination, std::uint32_t destinationSize) {
    QVN::StreamingCopy(destination, source, std::min(sourceSize, destinationSize));
    return sourceSize;
}

std::uint32_t CSimpleAviEncoder::ReuseFrame(std::uint32_t, const void*, std::uint32_t, std::uint8_t*,
                                            std::uint32_t) {
    return 0;
}

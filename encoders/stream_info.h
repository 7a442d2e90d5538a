// Stream descriptions: what AVIFile writes about one stream (the strh chunk and the strf payload), plus the
// running counters (length, suggested buffer size) that the writer raises and rewrites at close.
#pragma once

#include <bit>
#include <cstdint>
#include <memory>

#include "platform/win_types.h"

static_assert(std::endian::native == std::endian::little, "AVI structures are written straight from memory");

#pragma pack(push, 1)
// The whole strh chunk as it appears in the file: chunk id, chunk size, then the 56-byte stream header.
struct StreamHeaderChunk {
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t fccType;
    std::uint32_t fccHandler;
    std::uint32_t dwFlags;
    std::uint16_t wPriority;
    std::uint16_t wLanguage;
    std::uint32_t dwInitialFrames;
    std::uint32_t dwScale;
    std::uint32_t dwRate;
    std::uint32_t dwStart;
    std::uint32_t dwLength;
    std::uint32_t dwSuggestedBufferSize;
    std::uint32_t dwQuality;
    std::uint32_t dwSampleSize;
    std::int16_t rcFrame[4];
};
#pragma pack(pop)
static_assert(sizeof(StreamHeaderChunk) == 64);

class StreamInfo {
public:
    StreamInfo(); // zeroed header carrying "strh" and 56
    virtual ~StreamInfo();
    StreamInfo(const StreamInfo&) = delete;
    StreamInfo& operator=(const StreamInfo&) = delete;

    virtual const void* GetFormat() const = 0;
    virtual std::uint32_t GetFormatSize() const = 0;
    // A new description rebuilt from the stored format, carrying this one's header (and so its counters).
    virtual std::unique_ptr<StreamInfo> Clone() const = 0;

    StreamHeaderChunk& Header() { return header_; }
    const StreamHeaderChunk& Header() const { return header_; }

protected:
    StreamHeaderChunk header_;
};

class VideoStreamInfo : public StreamInfo {
public:
    explicit VideoStreamInfo(const VIDEOINFOHEADER& format);

    const void* GetFormat() const override { return &format_.bmiHeader; }
    std::uint32_t GetFormatSize() const override { return sizeof(BITMAPINFOHEADER); }
    std::unique_ptr<StreamInfo> Clone() const override;

    const VIDEOINFOHEADER& VideoFormat() const { return format_; }

private:
    VIDEOINFOHEADER format_;
};

class AudioStreamInfo : public StreamInfo {
public:
    // format points at a WAVEFORMATEX, or at a WAVEFORMATEXTENSIBLE when its tag is 0xFFFE.
    explicit AudioStreamInfo(const WAVEFORMATEX* format);

    const void* GetFormat() const override { return &format_; }
    std::uint32_t GetFormatSize() const override;
    std::unique_ptr<StreamInfo> Clone() const override;

    const WAVEFORMATEX& AudioFormat() const { return format_.Format; }

private:
    WAVEFORMATEXTENSIBLE format_;
};

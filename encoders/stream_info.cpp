#include "encoders/stream_info.h"

#include <cstring>

#include "encoders/fourcc.h"

StreamInfo::StreamInfo() {
    std::memset(&header_, 0, sizeof(header_));
    header_.fcc = QVN::MakeFourCC("strh");
    header_.cb = 56;
}

StreamInfo::~StreamInfo() = default;

namespace {

struct RateForDuration {
    std::int64_t above;
    std::int64_t below;
    std::uint32_t rate;
    std::uint32_t scale;
};

// The frame rates the capture cards play back; a duration is matched within a few 100-ns units because
// hosts round it differently (333666 and 333667 are both 29.97).
constexpr RateForDuration kRates[] = {
    {417081, 417085, 24000, 1001}, {416665, 416669, 24, 1}, {399998, 400002, 25, 1},
    {333665, 333669, 30000, 1001}, {333331, 333335, 30, 1}, {199998, 200002, 50, 1},
    {166831, 166835, 60000, 1001}, {166665, 166669, 60, 1},
};

} // namespace

VideoStreamInfo::VideoStreamInfo(const VIDEOINFOHEADER& format) : format_(format) {
    const BITMAPINFOHEADER& bmi = format_.bmiHeader;
    header_.fccType = QVN::MakeFourCC("vids");
    header_.fccHandler = bmi.biCompression;
    header_.dwSampleSize = bmi.biSizeImage;
    header_.dwSuggestedBufferSize = (bmi.biSizeImage + 4095u) & ~4095u;
    header_.dwQuality = bmi.biWidth < 1001 ? 9000 : 9800;
    const std::int64_t d = format_.AvgTimePerFrame;
    for (const RateForDuration& r : kRates) {
        if (d > r.above && d < r.below) {
            header_.dwRate = r.rate;
            header_.dwScale = r.scale;
            break;
        }
    }
}

std::unique_ptr<StreamInfo> VideoStreamInfo::Clone() const {
    auto copy = std::make_unique<VideoStreamInfo>(format_);
    copy->header_ = header_;
    return copy;
}

AudioStreamInfo::AudioStreamInfo(const WAVEFORMATEX* format) {
    std::memset(&format_, 0, sizeof(format_));
    const std::size_t bytes =
        format->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX);
    std::memcpy(&format_, format, bytes);
    header_.fccType = QVN::MakeFourCC("auds");
    header_.fccHandler = 0;
    header_.dwScale = 1;
    header_.dwRate = format_.Format.nSamplesPerSec;
    header_.dwSampleSize = format_.Format.nBlockAlign;
    header_.dwSuggestedBufferSize = format_.Format.nAvgBytesPerSec;
    header_.dwQuality = 0;
}

std::uint32_t AudioStreamInfo::GetFormatSize() const {
    return format_.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE ? sizeof(WAVEFORMATEXTENSIBLE)
                                                               : sizeof(WAVEFORMATEX);
}

std::unique_ptr<StreamInfo> AudioStreamInfo::Clone() const {
    auto copy = std::make_unique<AudioStreamInfo>(&format_.Format);
    copy->header_ = header_;
    return copy;
}

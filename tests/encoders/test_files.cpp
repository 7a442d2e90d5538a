#include "test_files.h"

#include <cstring>
#include <vector>

#include "encoders/simple_avi_encoder.h"

namespace avitest {

std::uint32_t FrameBytes(const char* fourcc, std::int32_t width, std::int32_t height) {
    const std::string f(fourcc);
    const auto w = static_cast<std::uint32_t>(width), h = static_cast<std::uint32_t>(height);
    if (f == "v210")
        return (w + 47) / 48 * 128 * h;
    if (f == "r210")
        return (w + 63) / 64 * 256 * h;
    return w * 2 * h; // UYVY, HDYC
}

ExportResult WriteExport(const std::filesystem::path& path, const ExportConfig& c) {
    ExportResult result;
    auto keep = [&result](std::uint32_t status) {
        if (status != 0 && result.status == 0)
            result.status = status;
    };
    const std::uint32_t fourcc = Fcc(c.fourcc);
    CSimpleAviEncoder encoder(fourcc);
    const BITMAPINFOHEADER bmi = Video(c.fourcc, c.width, c.height, c.frameBytes, 20).bmiHeader;
    const bool video = c.width > 0;
    keep(encoder.Initialise(nullptr, &bmi, 0, c.rate, c.scale, video ? 4 : 0, c.frameBytes, nullptr));
    BufferList free;
    encoder.GetFreeBuffers(free);
    if (c.channels)
        keep(encoder.SetAudioFormat(c.channels, c.sampleRate, c.bits, 1));
    keep(encoder.Open(video, c.channels != 0, 0x7FFFFFFF, path.wstring().c_str()));
    const std::uint32_t blockAlign = c.channels * c.bits / 8u;
    std::vector<std::uint8_t> samples;
    for (std::uint32_t frame = 0; frame < c.frames; ++frame) {
        if (video) {
            BufferList back;
            encoder.ReclaimBuffers(back);
            free.insert(free.end(), back.begin(), back.end());
            auto* buffer = static_cast<std::uint8_t*>(free.back());
            free.pop_back();
            std::memset(buffer, static_cast<int>(0x40 + frame % 64), c.frameBytes);
            std::memcpy(buffer, &frame, sizeof(frame));
            keep(encoder.WriteVideo(buffer, c.frameBytes));
        }
        if (c.channels) {
            const std::uint32_t n = encoder.AudioSamplesForNextFrame(1);
            samples.assign(static_cast<std::size_t>(n) * blockAlign, 0);
            for (std::size_t i = 0; i < samples.size(); ++i)
                samples[i] = static_cast<std::uint8_t>((i * 13 + frame) & 0x7F);
            keep(encoder.WriteAudio(samples.data(), static_cast<std::uint32_t>(samples.size())));
            result.samples += n;
        }
    }
    keep(encoder.Finish());
    return result;
}

} // namespace avitest

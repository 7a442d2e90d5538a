#include "test_files.h"

#include "encoders/simple_avi_encoder.h"

#ifndef _WIN32
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace avitest {

ExportResult WriteExport(const std::filesystem::path& path, const ExportConfig& c) {
    ExportResult result;
    auto keep = [&result](std::uint32_t status) {
        if (status != 0 && result.status == 0)
            result.status = status;
    };
    const bool video = c.width > 0;
    // Bytes per frame of the codecs the cards play, as the readers expect them.
    const auto w = static_cast<std::uint32_t>(c.width), h = static_cast<std::uint32_t>(c.height);
    const std::string fourcc = video ? c.fourcc : "v210";
    const std::uint32_t frameBytes = fourcc == "v210"   ? (w + 47) / 48 * 128 * h
                                     : fourcc == "r210" ? (w + 63) / 64 * 256 * h
                                                        : w * 2 * h; // UYVY, HDYC
    CSimpleAviEncoder encoder(Fcc(fourcc));
    const BITMAPINFOHEADER bmi = Video(fourcc.c_str(), c.width, c.height, frameBytes, 20).bmiHeader;
    keep(encoder.Initialise(nullptr, &bmi, 0, c.rate, 1001, video ? 4 : 0, frameBytes, nullptr));
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
            std::memset(buffer, static_cast<int>(0x40 + frame % 64), frameBytes);
            std::memcpy(buffer, &frame, sizeof(frame));
            keep(encoder.WriteVideo(buffer, frameBytes));
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

#ifndef _WIN32
CommandResult Shell(const std::string& command) {
    static std::atomic<int> counter{0};
    const auto err = std::filesystem::temp_directory_path() /
                     ("qvn-avi-run-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".err");
    CommandResult r;
    FILE* pipe = ::popen((command + " 2>" + err.string()).c_str(), "r");
    char buffer[4096];
    for (std::size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        r.output.append(buffer, n);
    const int status = pipe ? ::pclose(pipe) : -1;
    r.exitCode = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(err, std::ios::binary);
    r.errors.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::filesystem::remove(err);
    return r;
}
#endif

} // namespace avitest

// How close CSimpleAviEncoder comes to the disk: 1080p v210 frames written through the encoder (with and
// without audio) against a raw sequential unbuffered write of the same frame bytes, in the same run and to
// the same folder. Bytes per second count frame payload only, so the two figures compare directly.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "encoders/simple_avi_encoder.h"
#include "platform/file.h"
#include "platform/virtual_memory.h"

namespace {

constexpr std::int32_t kWidth = 1920, kHeight = 1080;
constexpr std::uint32_t kFrameBytes = (kWidth + 47) / 48 * 128 * kHeight; // v210: 5,529,600
constexpr std::uint32_t kFrames = 300;                                    // 1.66 GB per pass

std::filesystem::path Output(const char* name) {
    const char* dir = std::getenv("QVN_BENCH_DIR");
    return std::filesystem::path(dir ? dir : std::filesystem::temp_directory_path().string()) / name;
}

void ReportPeakMemory(benchmark::State& state) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void RawUnbufferedWrite(benchmark::State& state) {
    const auto path = Output("qvn-bench-raw.bin");
    auto* frame = static_cast<unsigned char*>(QVN::CommitPages(kFrameBytes));
    std::memset(frame, 0x5A, kFrameBytes);
    bool unbuffered = true;
    for (auto _ : state) {
        QVN::CFile file;
        if (FAILED(file.Open(path.string().c_str(), QVN::FileCreation::kCreateAlways,
                             QVN::FileBuffering::kUnbuffered))) {
            state.SkipWithError("cannot create the output file");
            break;
        }
        unbuffered = unbuffered && file.IsUnbuffered();
        for (std::uint32_t i = 0; i < kFrames; ++i)
            file.Write(frame, kFrameBytes);
        file.Close();
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    QVN::ReleasePages(frame, kFrameBytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kFrames * kFrameBytes);
    state.counters["unbuffered"] = unbuffered ? 1 : 0;
    ReportPeakMemory(state);
}

// One export the way the export run drives the encoder: reclaim a buffer, hand it over, then the audio.
// Returns when the file is complete on disk.
bool Export(CAviEncoder& encoder, BufferList& free, const std::filesystem::path& path, bool audio,
            std::uint32_t frames) {
    if (encoder.Open(1, audio, 0x7FFFFFFF, path.wstring().c_str()) != 0)
        return false;
    std::vector<std::uint8_t> samples;
    for (std::uint32_t i = 0; i < frames; ++i) {
        BufferList back;
        encoder.ReclaimBuffers(back);
        free.insert(free.end(), back.begin(), back.end());
        void* frame = free.back();
        free.pop_back();
        encoder.WriteVideo(frame, kFrameBytes);
        if (audio) {
            samples.resize(encoder.AudioSamplesForNextFrame(1) * 4u);
            encoder.WriteAudio(samples.data(), static_cast<std::uint32_t>(samples.size()));
        }
    }
    encoder.Finish();
    return true;
}

class SimpleEncoder : public CSimpleAviEncoder {
public:
    SimpleEncoder() : CSimpleAviEncoder('v' | '2' << 8 | '1' << 16 | '0' << 24) {}
};

// Hands the frame over without copying it: shows what the writer path alone reaches, so that the cost of
// the payload copy (which frees the producer's buffer at once) can be told apart from the writer's.
class NoCopyEncoder : public CSimpleAviEncoder {
public:
    NoCopyEncoder() : CSimpleAviEncoder('v' | '2' << 8 | '1' << 16 | '0' << 24) {}
    std::uint32_t EncodeFrame(const void*, std::uint32_t size, std::uint8_t*, std::uint32_t) override {
        return size;
    }
};

template <class Encoder> void EncoderWrite(benchmark::State& state) {
    const bool audio = state.range(0) != 0;
    const auto path = Output("qvn-bench-encoder.avi");
    BITMAPINFOHEADER bmi{};
    bmi.biSize = 40;
    bmi.biWidth = kWidth;
    bmi.biHeight = kHeight;
    bmi.biPlanes = 1;
    bmi.biBitCount = 20;
    bmi.biSizeImage = kFrameBytes;
    // The export run's 30 rendered frame buffers, filled once: rendering is not what is measured.
    Encoder encoder;
    encoder.Initialise(nullptr, &bmi, 0, 30000, 1001, 30, kFrameBytes, nullptr);
    BufferList free;
    encoder.GetFreeBuffers(free);
    for (void* b : free)
        std::memset(b, 0x5A, kFrameBytes);
    if (audio)
        encoder.SetAudioFormat(2, 48000, 16, 1);
    // A short untimed export first: the payload pool's blocks are faulted in once per encoder, and the
    // sustained rate of a long export is what counts.
    Export(encoder, free, path, audio, 60);
    for (auto _ : state) {
        if (!Export(encoder, free, path, audio, kFrames)) {
            state.SkipWithError("cannot open the encoder");
            break;
        }
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    std::filesystem::remove(path);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kFrames * kFrameBytes);
    ReportPeakMemory(state);
}

} // namespace

BENCHMARK(RawUnbufferedWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(EncoderWrite<SimpleEncoder>)
    ->Name("EncoderWrite")
    ->ArgName("audio")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

BENCHMARK(EncoderWrite<NoCopyEncoder>)
    ->Name("EncoderWriteWithoutPayloadCopy")
    ->ArgName("audio")
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

BENCHMARK_MAIN();

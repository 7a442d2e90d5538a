// What the simulated sequence costs per frame, as qvnhost's render threads pay it for every frame of an
// export: a host frame from the registry (a recycled buffer after the first), the source drawing into it,
// and the disposal the module's PPix suite call makes. The end-to-end script (run_export_bench.sh) subtracts
// nothing; these figures say how much of an export's time is the host's and not the exporter's.
//
// Sources: "bars" (the default pattern) and "raw" (8-bit BGRA frames read from a file, as
// `qvnhost export --source raw:FILE` does; the file is written here, in $QVN_BENCH_DIR or the system
// temporary folder, cycled through, and removed at the end). "FrameOnly" is the allocation and disposal
// alone.
//
// fresh:0 is the steady state of one thread; fresh:1 hands the heap's free memory back to the system after
// each frame (malloc_trim), as the allocator did with 33 MB frames at 3840x2160 before the registry kept
// their buffers (about 40,000 minor page faults per frame). Frame and raw read buffers now stay in the
// registry's pool and the source, so the two should agree; a gap means something allocates per frame.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <vector>

#include "host/host_frame.h"
#include "host/sequence_source.h"

namespace {

constexpr std::int64_t kRawFrames = 8;

std::string BenchFolder() {
    const char* dir = std::getenv("QVN_BENCH_DIR");
    if (dir && *dir)
        return dir;
    const char* tmp = std::getenv("TMPDIR");
    return tmp && *tmp ? tmp : "/tmp";
}

std::string RawPath(std::int32_t w, std::int32_t h) {
    return BenchFolder() + "/export_source_bench_" + std::to_string(w) + "x" + std::to_string(h) + ".raw";
}

// kRawFrames frames of varied bytes, so no page is shared or all zero.
bool WriteRaw(const std::string& path, std::int32_t w, std::int32_t h) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    std::vector<std::uint8_t> frame(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    bool ok = true;
    for (std::int64_t n = 0; n < kRawFrames && ok; ++n) {
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = static_cast<std::uint8_t>(i * 7 + static_cast<std::size_t>(n) * 13);
        ok = std::fwrite(frame.data(), 1, frame.size(), f) == frame.size();
    }
    return std::fclose(f) == 0 && ok;
}

qvnhost::FrameLayout Layout(std::int32_t w, std::int32_t h) {
    qvnhost::FrameLayout layout;
    layout.format = prsdk::PrPixelFormat_BGRA_4444_8u;
    layout.width = w;
    layout.height = h;
    return layout;
}

void SetCounters(benchmark::State& state) {
    state.counters["frames_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// One frame as the host's render path makes it: Make, Render, Dispose.
void SourceRender(benchmark::State& state, qvnhost::SourceKind kind) {
    const auto w = static_cast<std::int32_t>(state.range(0));
    const auto h = static_cast<std::int32_t>(state.range(1));
    const bool fresh = state.range(2) != 0;
    qvnhost::SourceOptions options;
    options.kind = kind;
    std::string path;
    if (kind == qvnhost::SourceKind::Raw) {
        path = RawPath(w, h);
        if (!WriteRaw(path, w, h)) {
            state.SkipWithError(("cannot write " + path).c_str());
            return;
        }
        options.rawPath = path;
        options.rawWidth = w;
        options.rawHeight = h;
    }
    qvnhost::SequenceSource source;
    std::string error;
    if (!source.Open(options, &error)) {
        state.SkipWithError(error.c_str());
        std::remove(path.c_str());
        return;
    }
    auto& registry = qvnhost::FrameRegistry::Instance();
    const qvnhost::FrameLayout layout = Layout(w, h);
    std::int64_t n = 0;
    for (auto _ : state) {
        qvnhost::HostFrame* frame = registry.Make(layout);
        const std::int64_t index = kind == qvnhost::SourceKind::Raw ? n % kRawFrames : n;
        if (!frame || !source.Render(index, *frame, &error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        benchmark::DoNotOptimize(frame->pixels);
        registry.Dispose(frame->Handle());
        if (fresh)
            malloc_trim(0);
        ++n;
    }
    SetCounters(state);
    if (!path.empty())
        std::remove(path.c_str());
}

void Bars(benchmark::State& state) {
    SourceRender(state, qvnhost::SourceKind::Bars);
}
void Raw(benchmark::State& state) {
    SourceRender(state, qvnhost::SourceKind::Raw);
}

// A frame from the registry and its disposal alone.
void FrameOnly(benchmark::State& state) {
    auto& registry = qvnhost::FrameRegistry::Instance();
    const qvnhost::FrameLayout layout =
        Layout(static_cast<std::int32_t>(state.range(0)), static_cast<std::int32_t>(state.range(1)));
    const bool fresh = state.range(2) != 0;
    for (auto _ : state) {
        qvnhost::HostFrame* frame = registry.Make(layout);
        benchmark::DoNotOptimize(frame->pixels);
        registry.Dispose(frame->Handle());
        if (fresh)
            malloc_trim(0);
    }
    SetCounters(state);
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->ArgNames({"w", "h", "fresh"});
    for (const int fresh : {0, 1})
        b->Args({1920, 1080, fresh})->Args({3840, 2160, fresh});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace

BENCHMARK(FrameOnly)->Apply(Sizes);
BENCHMARK(Bars)->Apply(Sizes);
BENCHMARK(Raw)->Apply(Sizes);

BENCHMARK_MAIN();

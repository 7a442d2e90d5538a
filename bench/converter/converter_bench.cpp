// Converter throughput: each converter x depth x kernel (scalar, SSE2, AVX2) at 1080p and 2160p, hot and
// cold cache, beside libyuv's ARGBToUYVY, swscale to UYVY, swscale + libavcodec's v210 and r210
// encoders, and memcpy. Bytes per second count the frame's source plus destination bytes.
#include "converter/converter.h"
#include "converter/cpu_features.h"
#include "converter/kernels.h"

#include <benchmark/benchmark.h>
#include <emmintrin.h>
#include <libyuv.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>

namespace {

namespace cv = QVN::Converter::Video;
namespace detail = QVN::Converter::Video::detail;

struct FreeDeleter {
    void operator()(std::uint8_t* p) const { std::free(p); }
};
using Bytes = std::unique_ptr<std::uint8_t[], FreeDeleter>;

Bytes Allocate(std::size_t size) {
    Bytes b(static_cast<std::uint8_t*>(std::aligned_alloc(64, (size + 63) / 64 * 64)));
    std::memset(b.get(), 0, size);
    return b;
}

// Removes a buffer from every cache level, so that the next pass reads it from memory.
void Evict(const std::uint8_t* p, std::size_t size) {
    for (std::size_t i = 0; i < size; i += 64) {
        _mm_clflush(p + i);
    }
    _mm_mfence();
}

struct Size {
    int width, height;
};
constexpr Size kSizes[] = {{1920, 1080}, {3840, 2160}};
const char* const kDepthNames[] = {"8u", "16u", "32f"};
constexpr std::size_t kPixelBytes[] = {4, 8, 16};

Bytes SourceFrame(int depth, const Size& s) {
    const std::size_t bytes = static_cast<std::size_t>(s.width) * s.height * kPixelBytes[depth];
    Bytes b = Allocate(bytes);
    std::mt19937 rng(1);
    for (std::size_t i = 0; i < bytes / kPixelBytes[depth] * 4; ++i) {
        const auto v = static_cast<std::uint32_t>(rng() & 0xFF);
        if (depth == 0) {
            b[i] = static_cast<std::uint8_t>(v);
        } else if (depth == 1) {
            const auto w = static_cast<std::uint16_t>(v * 128);
            std::memcpy(b.get() + 2 * i, &w, 2);
        } else {
            const float f = static_cast<float>(v) / 255.0f;
            std::memcpy(b.get() + 4 * i, &f, 4);
        }
    }
    return b;
}

// Runs `convert` per iteration; when cold, source and destination are evicted first (not timed).
void Measure(benchmark::State& state, bool cold, const std::uint8_t* src, std::size_t srcBytes,
             const std::uint8_t* dst, std::size_t dstBytes, const std::function<void()>& convert) {
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            Evict(src, srcBytes);
            Evict(dst, dstBytes);
            state.ResumeTiming();
        }
        convert();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(srcBytes + dstBytes));
}

enum class Kernel { kScalar, kSse2, kAvx2 };

void ConverterBench(benchmark::State& state, const char* codec, int depth, Kernel kernel, Size s, bool cold) {
    const Bytes src = SourceFrame(depth, s);
    const std::size_t srcBytes = static_cast<std::size_t>(s.width) * s.height * kPixelBytes[depth];
    const auto srcRowBytes = static_cast<std::uint32_t>(s.width * kPixelBytes[depth]);
    const std::uint32_t dstRowBytes = codec[0] == 'v' ? static_cast<std::uint32_t>((s.width + 47) / 48 * 128)
                                      : codec[0] == 'r' ? static_cast<std::uint32_t>(s.width * 4)
                                                        : static_cast<std::uint32_t>(s.width * 2);
    const std::size_t dstBytes = static_cast<std::size_t>(dstRowBytes) * s.height;
    const Bytes dst = Allocate(dstBytes + 64);
    static const float kHd[9] = {0.183f, 0.614f, 0.062f, -0.101f, -0.338f, 0.439f, 0.439f, -0.399f, -0.040f};
    std::function<void()> run;
    if (codec[0] == 'r') {
        cv::r210::Init(cv::kPixelFormatBgra8u);
        const detail::RgbRowKernel k = kernel == Kernel::kScalar ? detail::kR210Scalar[depth]
                                       : kernel == Kernel::kSse2 ? detail::kR210Sse2.kernel[depth][1][1]
                                                                 : detail::kR210Avx2.kernel[depth][1][1];
        run = [&, k] { k(src.get(), srcRowBytes, dst.get(), dstRowBytes, s.width, s.height); };
    } else {
        const bool v210 = codec[0] == 'v';
        const detail::YuvRowKernel k =
            kernel == Kernel::kScalar ? (v210 ? detail::kV210Scalar : detail::kUyvyScalar)[depth]
            : kernel == Kernel::kSse2 ? (v210 ? detail::kV210Sse2 : detail::kUyvySse2).kernel[depth][1][1]
                                      : (v210 ? detail::kV210Avx2 : detail::kUyvyAvx2).kernel[depth][1][1];
        run = [&, k] { k(src.get(), srcRowBytes, dst.get(), dstRowBytes, s.width, s.height, kHd); };
    }
    Measure(state, cold, src.get(), srcBytes, dst.get(), dstBytes, run);
}

void LibyuvBench(benchmark::State& state, Size s, bool cold) {
    const Bytes src = SourceFrame(0, s);
    const std::size_t srcBytes = static_cast<std::size_t>(s.width) * s.height * 4, dstBytes = srcBytes / 2;
    const Bytes dst = Allocate(dstBytes);
    Measure(state, cold, src.get(), srcBytes, dst.get(), dstBytes,
            [&] { libyuv::ARGBToUYVY(src.get(), s.width * 4, dst.get(), s.width * 2, s.width, s.height); });
}

// swscale from BGRA to `format`, then, when `codec` is given, libavcodec's encoder for it.
void FfmpegBench(benchmark::State& state, AVPixelFormat format, AVCodecID codecId, Size s, bool cold) {
    const Bytes src = SourceFrame(0, s);
    const std::size_t srcBytes = static_cast<std::size_t>(s.width) * s.height * 4;
    SwsContext* sws = sws_getContext(s.width, s.height, AV_PIX_FMT_BGRA, s.width, s.height, format,
                                     SWS_BILINEAR, nullptr, nullptr, nullptr);
    AVFrame* frame = av_frame_alloc();
    frame->format = format;
    frame->width = s.width;
    frame->height = s.height;
    if (sws == nullptr || av_frame_get_buffer(frame, 64) < 0) {
        state.SkipWithError("swscale setup failed");
        return;
    }
    AVCodecContext* ctx = nullptr;
    AVPacket* packet = av_packet_alloc();
    if (codecId != AV_CODEC_ID_NONE) {
        const AVCodec* codec = avcodec_find_encoder(codecId);
        ctx = codec != nullptr ? avcodec_alloc_context3(codec) : nullptr;
        if (ctx == nullptr) {
            state.SkipWithError("encoder not found");
            return;
        }
        ctx->width = s.width;
        ctx->height = s.height;
        ctx->pix_fmt = format;
        ctx->time_base = AVRational{1, 25};
        if (avcodec_open2(ctx, codec, nullptr) < 0) {
            state.SkipWithError("encoder did not open");
            return;
        }
    }
    const std::size_t dstBytes = static_cast<std::size_t>(frame->linesize[0]) * s.height;
    const std::uint8_t* const srcPlanes[1] = {src.get()};
    const int srcStrides[1] = {s.width * 4};
    Measure(state, cold, src.get(), srcBytes, frame->data[0], dstBytes, [&] {
        sws_scale(sws, srcPlanes, srcStrides, 0, s.height, frame->data, frame->linesize);
        if (ctx != nullptr) {
            avcodec_send_frame(ctx, frame);
            while (avcodec_receive_packet(ctx, packet) == 0) {
                av_packet_unref(packet);
            }
        }
    });
    av_packet_free(&packet);
    avcodec_free_context(&ctx);
    av_frame_free(&frame);
    sws_freeContext(sws);
}

// memcpy of `bytes`; its bytes per second count the read and the write, as the converters' do.
void MemcpyBench(benchmark::State& state, std::size_t bytes, bool cold) {
    const Bytes src = Allocate(bytes), dst = Allocate(bytes);
    std::memset(src.get(), 1, bytes);
    Measure(state, cold, src.get(), bytes, dst.get(), bytes,
            [&] { std::memcpy(dst.get(), src.get(), bytes); });
}

} // namespace

int main(int argc, char** argv) {
    const bool avx2 = detail::CpuHasAvx2();
    for (bool cold : {false, true}) {
        const char* cache = cold ? "cold" : "hot";
        for (const Size& s : kSizes) {
            const std::string size = std::to_string(s.width) + "x" + std::to_string(s.height);
            for (const char* codec : {"uyvy", "v210", "r210"}) {
                for (int depth = 0; depth < 3; ++depth) {
                    for (Kernel k : {Kernel::kScalar, Kernel::kSse2, Kernel::kAvx2}) {
                        if (k == Kernel::kAvx2 && !avx2) {
                            continue;
                        }
                        const char* kernel = k == Kernel::kScalar ? "scalar"
                                             : k == Kernel::kSse2 ? "sse2"
                                                                  : "avx2";
                        benchmark::RegisterBenchmark((std::string(codec) + "/" + kDepthNames[depth] + "/" +
                                                      kernel + "/" + size + "/" + cache)
                                                         .c_str(),
                                                     ConverterBench, codec, depth, k, s, cold)
                            ->Unit(benchmark::kMillisecond)
                            ->UseRealTime();
                    }
                }
            }
            benchmark::RegisterBenchmark(("libyuv_ARGBToUYVY/8u/" + size + "/" + cache).c_str(), LibyuvBench,
                                         s, cold)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("swscale_uyvy422/8u/" + size + "/" + cache).c_str(), FfmpegBench,
                                         AV_PIX_FMT_UYVY422, AV_CODEC_ID_NONE, s, cold)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("swscale_yuv422p10+v210enc/8u/" + size + "/" + cache).c_str(),
                                         FfmpegBench, AV_PIX_FMT_YUV422P10, AV_CODEC_ID_V210, s, cold)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("swscale_gbrp10+r210enc/8u/" + size + "/" + cache).c_str(),
                                         FfmpegBench, AV_PIX_FMT_GBRP10, AV_CODEC_ID_R210, s, cold)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            const std::size_t frame8u = static_cast<std::size_t>(s.width) * s.height * 4;
            for (std::size_t bytes : {frame8u * 3 / 4, frame8u * 5 / 2}) {
                // The 8u converters' source + destination traffic, and 32f v210's (read 16, write ~2.7 per
                // pixel).
                benchmark::RegisterBenchmark(
                    ("memcpy/" + std::to_string(bytes >> 20) + "MiB/" + size + "/" + cache).c_str(),
                    MemcpyBench, bytes, cold)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

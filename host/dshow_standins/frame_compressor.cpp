#include "host/dshow_standins/frame_compressor.h"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace qvn_standins {

struct FrameCompressor::State {
    FrameCompressorSettings settings;
    AVCodecContext* codec = nullptr;
    SwsContext* scaler = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    int rowBytes = 0;

    ~State() {
        sws_freeContext(scaler);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
    }
};

FrameCompressor::FrameCompressor(std::unique_ptr<State> state) : state_(std::move(state)) {}
FrameCompressor::~FrameCompressor() = default;

int FrameCompressor::QuantiserForQuality(double quality) {
    if (!(quality >= 0.0)) { // NaN too
        quality = 0.0;
    }
    if (quality > 1.0) {
        quality = 1.0;
    }
    return 1 + static_cast<int>(std::lround((1.0 - quality) * 30.0));
}

std::unique_ptr<FrameCompressor> FrameCompressor::Create(const FrameCompressorSettings& settings) {
    using Codec = FrameCompressorSettings::Codec;
    if (settings.width <= 0 || settings.height <= 0 ||
        (settings.bitsPerPixel != 24 && settings.bitsPerPixel != 32)) {
        return nullptr;
    }
    auto s = std::make_unique<State>();
    s->settings = settings;
    s->rowBytes = (settings.width * (settings.bitsPerPixel / 8) + 3) & ~3;
    const bool dv = settings.codec != Codec::MotionJpeg;
    const AVCodec* encoder = avcodec_find_encoder(dv ? AV_CODEC_ID_DVVIDEO : AV_CODEC_ID_MJPEG);
    if (encoder == nullptr) {
        return nullptr;
    }
    s->codec = avcodec_alloc_context3(encoder);
    s->frame = av_frame_alloc();
    s->packet = av_packet_alloc();
    if (s->codec == nullptr || s->frame == nullptr || s->packet == nullptr) {
        return nullptr;
    }
    AVCodecContext* c = s->codec;
    c->width = settings.width;
    c->height = settings.height;
    c->thread_count = 1;
    c->sample_aspect_ratio = {1, 1};
    AVPixelFormat format = AV_PIX_FMT_YUV422P; // full range for JPEG: the range says so
    switch (settings.codec) {
    case Codec::DvNtsc: // 4:1:1, bottom field first, as DV at 525 lines is
        format = AV_PIX_FMT_YUV411P;
        c->time_base = {1001, 30000};
        break;
    case Codec::DvPal: // 4:2:0 at 625 lines
        format = AV_PIX_FMT_YUV420P;
        c->time_base = {1, 25};
        break;
    case Codec::MotionJpeg:
        c->time_base = {1, 25}; // JPEG frames stand alone; the rate is the file's business
        c->flags |= AV_CODEC_FLAG_QSCALE;
        c->global_quality = FF_QP2LAMBDA * settings.jpegQuantiser;
        break;
    }
    if (dv) {
        c->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
        c->field_order = AV_FIELD_BB;
    }
    c->pix_fmt = format;
    c->color_range = dv ? AVCOL_RANGE_MPEG : AVCOL_RANGE_JPEG;
    c->colorspace = AVCOL_SPC_BT470BG; // standard definition DV, and JPEG's own
    if (avcodec_open2(c, encoder, nullptr) < 0) {
        return nullptr;
    }
    s->frame->format = format;
    s->frame->width = settings.width;
    s->frame->height = settings.height;
    if (av_frame_get_buffer(s->frame, 32) < 0) {
        return nullptr;
    }
    s->scaler = sws_getContext(
        settings.width, settings.height, settings.bitsPerPixel == 32 ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_BGR24,
        settings.width, settings.height, format, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr,
        nullptr, nullptr);
    if (s->scaler == nullptr) {
        return nullptr;
    }
    const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(s->scaler, matrix, 1, matrix, dv ? 0 : 1, 0, 1 << 16, 1 << 16);
    return std::unique_ptr<FrameCompressor>(new FrameCompressor(std::move(s)));
}

std::int64_t FrameCompressor::SourceBytes() const {
    return static_cast<std::int64_t>(state_->rowBytes) * state_->settings.height;
}

std::int64_t FrameCompressor::Compress(const std::uint8_t* src, std::uint8_t* dst, std::int64_t capacity) {
    State& s = *state_;
    if (av_frame_make_writable(s.frame) < 0) {
        return -1;
    }
    const int height = s.settings.height;
    // A bottom-up picture's top row is the last in memory: walk up from it.
    const std::uint8_t* top =
        s.settings.bottomUp ? src + static_cast<std::ptrdiff_t>(height - 1) * s.rowBytes : src;
    const std::uint8_t* const planes[1] = {top};
    const int strides[1] = {s.settings.bottomUp ? -s.rowBytes : s.rowBytes};
    if (sws_scale(s.scaler, planes, strides, 0, height, s.frame->data, s.frame->linesize) != height) {
        return -1;
    }
    const bool dv = s.settings.codec != FrameCompressorSettings::Codec::MotionJpeg;
    s.frame->interlaced_frame = dv ? 1 : 0;
    s.frame->top_field_first = 0;
    s.frame->quality = s.codec->global_quality;
    if (avcodec_send_frame(s.codec, s.frame) < 0 || avcodec_receive_packet(s.codec, s.packet) < 0) {
        return -1;
    }
    const std::int64_t size = s.packet->size;
    if (size > capacity) {
        av_packet_unref(s.packet);
        return -1;
    }
    std::memcpy(dst, s.packet->data, static_cast<std::size_t>(size));
    av_packet_unref(s.packet);
    return size;
}

} // namespace qvn_standins

#include "host/dv_compressor.h"

#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libswscale/swscale.h>
}

namespace qvnhost {
namespace {

// The DIF block header's byte 1: FSP (bit 2) is 1 for channels 0-1 and 0 for channels 2-3. A 720p frame
// written on channels 2-3 is the second of a pair, and its macroblock rows are placed displaced.
constexpr std::uint8_t kFspBit = 0x04;
constexpr std::size_t kDifBlock = 80;

struct Encoder {
    AVCodecContext* codec = nullptr;
    SwsContext* scaler = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;

    ~Encoder() {
        sws_freeContext(scaler);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
    }
};

std::unique_ptr<Encoder> MakeEncoder(const DvFormat& format, std::int32_t fieldType, std::int32_t srcWidth,
                                     std::int32_t srcHeight) {
    auto e = std::make_unique<Encoder>();
    const AVCodec* dv = avcodec_find_encoder(AV_CODEC_ID_DVVIDEO);
    if (!dv)
        return nullptr;
    e->codec = avcodec_alloc_context3(dv);
    e->frame = av_frame_alloc();
    e->packet = av_packet_alloc();
    if (!e->codec || !e->frame || !e->packet)
        return nullptr;
    AVCodecContext* c = e->codec;
    c->width = format.width;
    c->height = format.height;
    c->pix_fmt = AV_PIX_FMT_YUV422P;
    // The profile of 960x720 (60 or 50 Hz) follows from the rate.
    c->time_base = {format.rateDenominator, format.rateNumerator};
    c->framerate = {format.rateNumerator, format.rateDenominator};
    c->sample_aspect_ratio = {1, 1};
    c->thread_count = 1; // the host's render threads already run in parallel
    if (fieldType != 0) {
        c->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
        c->field_order = fieldType == 2 ? AV_FIELD_BB : AV_FIELD_TT;
    } else {
        c->field_order = AV_FIELD_PROGRESSIVE;
    }
    c->color_range = AVCOL_RANGE_MPEG;
    c->colorspace = format.hd ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
    if (avcodec_open2(c, dv, nullptr) < 0)
        return nullptr;

    e->frame->format = AV_PIX_FMT_YUV422P;
    e->frame->width = format.width;
    e->frame->height = format.height;
    if (av_frame_get_buffer(e->frame, 32) < 0)
        return nullptr;
    e->scaler =
        sws_getContext(srcWidth, srcHeight, AV_PIX_FMT_BGRA, format.width, format.height, AV_PIX_FMT_YUV422P,
                       SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
    if (!e->scaler)
        return nullptr;
    const int* matrix = sws_getCoefficients(format.hd ? SWS_CS_ITU709 : SWS_CS_ITU601);
    // Full-range RGB in, studio-range YUV out.
    sws_setColorspaceDetails(e->scaler, matrix, 1, matrix, 0, 0, 1 << 16, 1 << 16);
    return e;
}

// Encoders are kept between frames, one per format, field order and source size; each is used by one
// render thread at a time.
struct Pool {
    struct Key {
        prsdk::PrPixelFormat format;
        std::int32_t fieldType;
        std::int32_t width;
        std::int32_t height;
        bool operator==(const Key&) const = default;
    };
    std::mutex mutex;
    std::vector<std::pair<Key, std::unique_ptr<Encoder>>> idle;

    std::unique_ptr<Encoder> Take(const Key& key) {
        std::lock_guard<std::mutex> hold(mutex);
        for (auto it = idle.begin(); it != idle.end(); ++it) {
            if (it->first == key) {
                std::unique_ptr<Encoder> e = std::move(it->second);
                idle.erase(it);
                return e;
            }
        }
        return nullptr;
    }
    void Give(const Key& key, std::unique_ptr<Encoder> e) {
        std::lock_guard<std::mutex> hold(mutex);
        idle.emplace_back(key, std::move(e));
    }
};

Pool& ThePool() {
    static Pool pool;
    return pool;
}

prsdk::prSuiteError Encode(Encoder& e, const DvFormat& format, const std::uint8_t* src,
                           std::int32_t srcHeight, std::int32_t srcRowBytes, std::int32_t channelOffset,
                           std::uint8_t* dst) {
    if (av_frame_make_writable(e.frame) < 0)
        return prsdk::suiteError_OutOfMemory;
    // The top row of the picture is the last in memory; walk up from it.
    const std::uint8_t* top = src + static_cast<std::ptrdiff_t>(srcHeight - 1) * srcRowBytes;
    const std::uint8_t* const planes[1] = {top};
    const int strides[1] = {-srcRowBytes};
    if (sws_scale(e.scaler, planes, strides, 0, srcHeight, e.frame->data, e.frame->linesize) != format.height)
        return prsdk::suiteError_Fail;
    e.frame->interlaced_frame = format.fieldType != 0;
    e.frame->top_field_first = e.codec->field_order == AV_FIELD_TT;
    // libavcodec writes a 720p frame as the second of a pair when it has made an odd number of frames
    // before; the count is set so that the caller's phase decides, whatever this encoder did before.
    const bool secondHalf = format.height == 720 && channelOffset == 2;
    e.codec->frame_number = secondHalf ? 1 : 0;
    if (avcodec_send_frame(e.codec, e.frame) < 0 || avcodec_receive_packet(e.codec, e.packet) < 0)
        return prsdk::suiteError_Fail;
    bool whole = e.packet->size == format.frameBytes;
    if (whole && format.height == 720) {
        for (std::size_t at = 0; whole && at < static_cast<std::size_t>(format.frameBytes); at += kDifBlock)
            whole = ((e.packet->data[at + 1] & kFspBit) == 0) == secondHalf;
    }
    if (whole)
        std::memcpy(dst, e.packet->data, static_cast<std::size_t>(format.frameBytes));
    av_packet_unref(e.packet);
    return whole ? prsdk::suiteError_NoError : prsdk::suiteError_Fail;
}

} // namespace

prsdk::prSuiteError CompressDv(const DvFormat& format, const std::uint8_t* src, std::int32_t srcWidth,
                               std::int32_t srcHeight, std::int32_t srcRowBytes, std::int32_t fieldType,
                               std::int32_t channelOffset, std::uint8_t* dst) {
    if (!src || !dst || srcWidth <= 0 || srcHeight <= 0 || srcRowBytes < srcWidth * 4 ||
        (channelOffset != 0 && channelOffset != 2))
        return prsdk::suiteError_InvalidParms;
    // 720p is progressive whatever the caller says.
    const std::int32_t field =
        (format.fieldType != 0 && (fieldType == 1 || fieldType == 2)) ? fieldType : format.fieldType;
    const Pool::Key key{format.format, field, srcWidth, srcHeight};
    std::unique_ptr<Encoder> e = ThePool().Take(key);
    if (!e)
        e = MakeEncoder(format, field, srcWidth, srcHeight);
    if (!e)
        return prsdk::suiteError_Fail;
    const prsdk::prSuiteError result = Encode(*e, format, src, srcHeight, srcRowBytes, channelOffset, dst);
    if (result == prsdk::suiteError_NoError)
        ThePool().Give(key, std::move(e));
    return result;
}

} // namespace qvnhost

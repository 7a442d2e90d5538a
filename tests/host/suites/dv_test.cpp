// DV compression through the Image Processing Suite, read back with libavcodec's own DV decoder.
#include <gtest/gtest.h>

#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "host/dv_formats.h"
#include "host/frame_stamp.h"
#include "host/image_processing_suite.h"
#include "host/sequence_source.h"

namespace qvnhost {
namespace {

// Decodes one DV frame; answers the luma plane (top-down, width x height) or an empty vector.
std::vector<std::uint8_t> DecodeLuma(const std::vector<std::uint8_t>& dv, int* width, int* height) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_DVVIDEO);
    AVCodecContext* c = avcodec_alloc_context3(codec);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> copy(dv.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    std::copy(dv.begin(), dv.end(), copy.begin());
    packet->data = copy.data();
    packet->size = static_cast<int>(dv.size());
    if (avcodec_open2(c, codec, nullptr) == 0 && avcodec_send_packet(c, packet) == 0 &&
        avcodec_receive_frame(c, frame) == 0) {
        *width = frame->width;
        *height = frame->height;
        for (int y = 0; y < frame->height; ++y)
            luma.insert(luma.end(), frame->data[0] + y * frame->linesize[0],
                        frame->data[0] + y * frame->linesize[0] + frame->width);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&c);
    return luma;
}

TEST(DvCompression, EveryFormatGivesWholeFramesThatDecodeToTheStampedPicture) {
    const prsdk::ImageProcessingSuite* suite = ImageProcessingSuiteTable();
    ASSERT_TRUE(HostCompressesDv());
    SequenceSource source;
    std::string error;
    ASSERT_TRUE(source.Open(SourceOptions{}, &error));
    for (const DvFormat& f : kDvFormats) {
        SCOPED_TRACE(f.code);
        prsdk::prBool compressed = 0;
        suite->FormatIsCompressed(f.format, &compressed);
        EXPECT_TRUE(compressed);
        prsdk::csSDK_uint32 rowBytes = 1;
        std::size_t size = 0;
        ASSERT_EQ(suite->GetSizeForPixelBuffer(f.format, 0, 0, &rowBytes, &size), 0);
        EXPECT_EQ(size, static_cast<std::size_t>(f.frameBytes));
        // A host frame of the format's own size, padded rows, stamped with a frame number per phase. The
        // phases come in an order that a counting encoder would get wrong (2, 2, 0, 0).
        for (const int phase : {2, 2, 0, 0}) {
            const std::int64_t number = 1000 + phase;
            std::unique_ptr<HostFrame> frame =
                NewHostFrame({prsdk::PrPixelFormat_BGRA_4444_8u, f.width, f.height, 64});
            ASSERT_TRUE(source.Render(number, *frame, &error));
            std::vector<std::uint8_t> dv(static_cast<std::size_t>(f.frameBytes) + 16, 0xA5);
            prsdk::prSuiteError r;
            if (f.height == 720)
                r = suite->CompressDV100720p(prsdk::PrPixelFormat_BGRA_4444_8u,
                                             static_cast<prsdk::csSDK_uint32>(f.width),
                                             static_cast<prsdk::csSDK_uint32>(f.height), frame->rowBytes,
                                             frame->pixels, f.format, f.frameBytes, dv.data(), phase, 3);
            else if (phase == 0) // the other formats have no phase
                r = suite->ScaleConvert(prsdk::PrPixelFormat_BGRA_4444_8u,
                                        static_cast<prsdk::csSDK_uint32>(f.width),
                                        static_cast<prsdk::csSDK_uint32>(f.height), frame->rowBytes, 0,
                                        frame->pixels, f.format, static_cast<prsdk::csSDK_uint32>(f.width),
                                        static_cast<prsdk::csSDK_uint32>(f.height), 0, 0, dv.data(), 3);
            else
                continue;
            ASSERT_EQ(r, prsdk::suiteError_NoError);
            // Exactly one frame: the bytes after it are untouched.
            for (std::size_t i = static_cast<std::size_t>(f.frameBytes); i < dv.size(); ++i)
                ASSERT_EQ(dv[i], 0xA5);
            dv.resize(static_cast<std::size_t>(f.frameBytes));
            if (f.height == 720) {
                // The phase is in every DIF block's FSP bit: 1 for channels 0-1, 0 for channels 2-3.
                for (std::size_t at = 0; at < dv.size(); at += 80)
                    ASSERT_EQ((dv[at + 1] & 0x04) != 0, phase == 0) << "block at " << at;
            }
            int w = 0, h = 0;
            const std::vector<std::uint8_t> luma = DecodeLuma(dv, &w, &h);
            ASSERT_EQ(w, f.width);
            ASSERT_EQ(h, f.height);
            EXPECT_EQ(DecodeFrameStamp(luma.data(), w, h, w), number);
        }
    }
}

TEST(DvCompression, RefusesWhatItCannotDo) {
    const prsdk::ImageProcessingSuite* suite = ImageProcessingSuiteTable();
    std::vector<std::uint8_t> src(960 * 720 * 8), dst(288000);
    const auto compress = [&](prsdk::PrPixelFormat from, prsdk::csSDK_uint32 w, prsdk::csSDK_uint32 h,
                              int pixel, const DvFormat& to, prsdk::csSDK_int32 size, int phase) {
        return suite->CompressDV100720p(from, w, h, static_cast<prsdk::csSDK_int32>(w) * pixel, src.data(),
                                        to.format, size, dst.data(), phase, 3);
    };
    const prsdk::PrPixelFormat k8u = prsdk::PrPixelFormat_BGRA_4444_8u;
    // 16-bit sources, a short destination, a phase other than 0 or 2, a non-720p format.
    EXPECT_EQ(compress(prsdk::PrPixelFormat_BGRA_4444_16u, 960, 720, 8, kDvFormats[4], 240000, 0),
              prsdk::suiteError_InvalidParms);
    EXPECT_EQ(compress(k8u, 960, 720, 4, kDvFormats[4], 239999, 0), prsdk::suiteError_InvalidParms);
    EXPECT_EQ(compress(k8u, 960, 720, 4, kDvFormats[4], 240000, 1), prsdk::suiteError_InvalidParms);
    EXPECT_EQ(compress(k8u, 720, 480, 4, kDvFormats[0], 240000, 0), prsdk::suiteError_InvalidParms);
    // ScaleConvert into a DV format at another size than the format's own.
    EXPECT_EQ(suite->ScaleConvert(k8u, 720, 480, 720 * 4, 0, src.data(), kDvFormats[0].format, 720, 486, 0, 0,
                                  dst.data(), 3),
              prsdk::suiteError_InvalidParms);
}

} // namespace
} // namespace qvnhost

// DV compression through the Image Processing Suite: one whole frame of each format, and the 720p field
// phase in every DIF block. That the frames decode to the stamped picture, each phase of 720p included, is
// pinned by the exports of every DVCPRO code read back by ffmpeg (tests/host/export), and across targets.
#include <gtest/gtest.h>

#include <vector>

#include "host/dv_formats.h"
#include "host/image_processing_suite.h"
#include "host/sequence_source.h"

namespace qvnhost {
namespace {

TEST(DvCompression, EveryFormatGivesOneWholeFrameWithThePhaseItIsGiven) {
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
        // A host frame of the format's own size with padded rows. The phases come in an order that a
        // counting encoder would get wrong (2, 2, 0, 0).
        for (const int phase : {2, 2, 0, 0}) {
            std::unique_ptr<HostFrame> frame =
                NewHostFrame({prsdk::PrPixelFormat_BGRA_4444_8u, f.width, f.height, 64});
            ASSERT_TRUE(source.Render(1000 + phase, *frame, &error));
            std::vector<std::uint8_t> dv(static_cast<std::size_t>(f.frameBytes) + 16, 0xA5);
            const auto w = static_cast<prsdk::csSDK_uint32>(f.width),
                       h = static_cast<prsdk::csSDK_uint32>(f.height);
            prsdk::prSuiteError r;
            if (f.height == 720)
                r = suite->CompressDV100720p(prsdk::PrPixelFormat_BGRA_4444_8u, w, h, frame->rowBytes,
                                             frame->pixels, f.format, f.frameBytes, dv.data(), phase, 3);
            else if (phase == 0) // the other formats have no phase
                r = suite->ScaleConvert(prsdk::PrPixelFormat_BGRA_4444_8u, w, h, frame->rowBytes, 0,
                                        frame->pixels, f.format, w, h, 0, 0, dv.data(), 3);
            else
                continue;
            ASSERT_EQ(r, prsdk::suiteError_NoError);
            // Exactly one frame: the bytes after it are untouched.
            for (std::size_t i = static_cast<std::size_t>(f.frameBytes); i < dv.size(); ++i)
                ASSERT_EQ(dv[i], 0xA5);
            EXPECT_NE(dv[0], 0xA5);
            // The phase is in every DIF block's FSP bit: 1 for channels 0-1, 0 for channels 2-3.
            for (std::size_t at = 0; f.height == 720 && at < static_cast<std::size_t>(f.frameBytes); at += 80)
                ASSERT_EQ((dv[at + 1] & 0x04) != 0, phase == 0) << "block at " << at;
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

// The r210 look-up tables, exhaustively, and the colour matrices with their selection.
#include "converter/converter.h"
#include "converter/lookup_tables.h"
#include "converter/matrix.h"
#include "reference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace detail = QVN::Converter::Video::detail;

std::string StderrOf(std::uint32_t format, std::int32_t& result) {
    ::testing::internal::CaptureStderr();
    result = cv::r210::Init(format);
    return ::testing::internal::GetCapturedStderr();
}

TEST(R210Tables, EveryEntryFollowsItsFormula) {
    std::int32_t result = -1;
    EXPECT_EQ(StderrOf(cv::kPixelFormatBgra16u, result), "");
    ASSERT_EQ(result, 0);
    const std::uint16_t* lut = detail::R210Lut();
    ASSERT_NE(lut, nullptr);
    for (unsigned i = 0; i <= 32768; ++i) {
        // 876 * i / 32768 rounded half up, written as one division of doubled terms.
        const unsigned expected = 64 + (2 * 876 * i + 32768) / 65536;
        ASSERT_EQ(lut[i], std::min(expected, 1019u)) << "index " << i;
    }
    EXPECT_EQ(lut[0], 64);
    EXPECT_EQ(lut[16384], 502);
    EXPECT_EQ(lut[32768], 940);
    for (unsigned code = 0; code < 1024; ++code) {
        const unsigned x = code > 64 ? code - 64 : 0;
        const unsigned q = (2 * x * 32768 + 876) / (2 * 876); // x * 32768 / 876 rounded half up
        const unsigned c16 = std::min(q, 32768u);
        ASSERT_EQ(detail::Component16uLut()[code], c16) << "code " << code;
        ASSERT_EQ(detail::Component8uLut()[code], q >= 32768 ? 255u : q / 128) << "code " << code;
        ASSERT_EQ(detail::Component32fLut()[code], static_cast<float>(c16) / 32768.0f) << "code " << code;
    }
    const auto components = [](unsigned code) {
        return std::make_tuple(detail::Component16uLut()[code], detail::Component8uLut()[code],
                               detail::Component32fLut()[code]);
    };
    EXPECT_EQ(components(64), std::make_tuple(std::uint16_t{0}, std::uint8_t{0}, 0.0f));
    EXPECT_EQ(components(940), std::make_tuple(std::uint16_t{32768}, std::uint8_t{255}, 1.0f));
    EXPECT_EQ(components(1023), std::make_tuple(std::uint16_t{32768}, std::uint8_t{255}, 1.0f));
    EXPECT_EQ(std::get<0>(components(502)), 16384);
    EXPECT_EQ(std::get<1>(components(502)), 128);
}

TEST(R210Tables, InitAcceptsHostFormatsAndTheV210Codes) {
    std::int32_t result = -1;
    for (std::uint32_t code : {cv::kPixelFormatBgra8u, cv::kPixelFormatBgra16u, cv::kPixelFormatBgra32f,
                               std::uint32_t{0x30313276} /* v210 */, std::uint32_t{0x31313276} /* v211 */}) {
        EXPECT_EQ(StderrOf(code, result), "");
        EXPECT_EQ(result, 0) << std::hex << code;
    }
    for (std::uint32_t code :
         {std::uint32_t{0x41524742} /* "BGRA" */, std::uint32_t{0}, std::uint32_t{0x78726762}}) {
        EXPECT_EQ(StderrOf(code, result),
                  "*** QVN::Converter::Video::r210::Init[341]: Unsupported pixel format\n");
        EXPECT_EQ(result, 22) << std::hex << code;
    }
}

// The matrices equal the reference's weights exactly (which the vector kernels' Q15 coefficients are derived
// from too); the width picks one unless the mode forces it.
TEST(ColourMatrix, ValuesAndSelectionByWidth) {
    detail::MatrixTable table;
    detail::BuildMatrixTable(table);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(table.standardDefinition[i], kSdMatrix[i]) << i;
        EXPECT_EQ(table.highDefinition[i], kHdMatrix[i]) << i;
    }
    const float* sd = table.standardDefinition;
    const float* hd = table.highDefinition;
    const std::tuple<std::uint32_t, std::int32_t, const float*> cases[] = {
        {0, 720, sd},  {0, 721, hd}, {0, 1, sd},   {0, 1920, hd},
        {1, 1920, sd}, {2, 720, hd}, {3, 720, sd}, {0xFFFFFFFFu, 3840, hd}};
    for (const auto& [mode, width, matrix] : cases)
        EXPECT_EQ(detail::SelectMatrix(table, mode, width), matrix) << "mode " << mode << ", width " << width;
}

} // namespace
} // namespace qvn_test

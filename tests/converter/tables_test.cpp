// The r210 look-up tables, exhaustively, and the colour matrices with their selection.
#include "converter/converter.h"
#include "converter/lookup_tables.h"
#include "converter/matrix.h"
#include "reference.h"

#include <gtest/gtest.h>

namespace qvn_test {
namespace {

namespace cv = QVN::Converter::Video;
namespace detail = QVN::Converter::Video::detail;

// Init's accepted and refused formats are checked through r210::CreateFrom (entry_points_test.cpp).
TEST(R210Tables, EveryEntryFollowsItsFormula) {
    ASSERT_EQ(cv::r210::Init(cv::kPixelFormatBgra16u), 0);
    const std::uint16_t* lut = detail::R210Lut();
    ASSERT_NE(lut, nullptr);
    for (unsigned i = 0; i <= 32768; ++i) // 876 * i / 32768 rounded half up, as one division of doubled terms
        ASSERT_EQ(lut[i], std::min(64 + (2 * 876 * i + 32768) / 65536, 1019u)) << "index " << i;
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
    for (const auto& [code, c16, c8, c32] :
         {std::tuple{64u, 0u, 0u, 0.0f}, std::tuple{502u, 16384u, 128u, 0.5f},
          std::tuple{940u, 32768u, 255u, 1.0f}, std::tuple{1023u, 32768u, 255u, 1.0f}}) {
        EXPECT_EQ(detail::Component16uLut()[code], c16) << code;
        EXPECT_EQ(detail::Component8uLut()[code], c8) << code;
        EXPECT_EQ(detail::Component32fLut()[code], c32) << code;
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

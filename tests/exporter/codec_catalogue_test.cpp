// What the export run reads from the codec catalogue: encoder route, conversion, what goes into the file
// header, and the host pixel formats asked for.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exporter/codec_catalogue.h"

namespace {

using QVN::EncoderRoute;
using QVN::FourCC;
using QVN::FrameConversion;

TEST(CodecCatalogue, WhatTheExportRunSwitchesOn) {
    struct Row {
        const char* code;
        EncoderRoute route;
        FrameConversion conversion;
        const char* written;
        std::int32_t bytes;
        std::int32_t bitCount;
        bool phase;
        std::vector<std::string> formats;
    };
    const std::vector<std::string> deep = {"BGra", "Bgra", "bgra"};
    const std::vector<std::string> eight = {"bgra"};
    const Row rows[] = {
        {"UYVY", EncoderRoute::Graph, FrameConversion::Uyvy, "UYVY", 0, 0, false, eight},
        {"HDYC", EncoderRoute::Graph, FrameConversion::Uyvy, "HDYC", 0, 0, false, eight},
        {"v210", EncoderRoute::Graph, FrameConversion::V210, "v210", 0, 0, false, deep},
        {"r210", EncoderRoute::Graph, FrameConversion::R210, "r210", 0, 0, false, deep},
        {"MJPG", EncoderRoute::Graph, FrameConversion::RowCopy, "MJPG", 0, 0, false, eight},
        {"dvn1", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dvh1", 480000, 16, false, eight},
        {"dvp1", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dvh1", 576000, 16, false, eight},
        {"dvn7", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dvh1", 240000, 16, true, eight},
        {"dvp7", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dvh1", 288000, 16, true, eight},
        {"dvn5", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dv50", 240000, 16, false, eight},
        {"dvp5", EncoderRoute::SimpleAvi, FrameConversion::HostDv, "dv50", 288000, 16, false, eight},
        {"dvsd", EncoderRoute::Graph, FrameConversion::RowCopy, "dvsd", 0, 0, false, eight},
    };
    const auto codecs = QVN::Codecs();
    ASSERT_EQ(codecs.size(), std::size(rows));
    for (std::size_t i = 0; i < codecs.size(); ++i) {
        const Row& r = rows[i];
        const QVN::CodecInfo& c = codecs[i];
        SCOPED_TRACE(r.code);
        EXPECT_EQ(std::string(c.code), r.code);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&c.fourcc), 4), r.code)
            << "first character lowest";
        EXPECT_EQ(c.route, r.route);
        EXPECT_EQ(c.conversion, r.conversion);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&c.writtenFourCC), 4), r.written);
        EXPECT_EQ(c.writtenFrameBytes, r.bytes);
        EXPECT_EQ(c.writtenBitCount, r.bitCount);
        EXPECT_EQ(c.alternatingFieldPhase, r.phase);
        std::vector<std::string> formats;
        for (std::uint32_t f : c.hostFormats)
            formats.emplace_back(reinterpret_cast<const char*>(&f), 4);
        EXPECT_EQ(formats, r.formats);
        EXPECT_EQ(QVN::FindCodec(c.fourcc), &c);
    }
    // The written codes and the other spellings the run accepts are not catalogue entries.
    for (std::uint32_t other : {FourCC("dvh1"), FourCC("dv50"), FourCC("uyvy"), 0u})
        EXPECT_EQ(QVN::FindCodec(other), nullptr);
    const QVN::CodecLimits& free = QVN::LimitsFor(0);
    EXPECT_EQ(free.fixedWidth, 0);
    EXPECT_EQ(free.fixedHeight, 0);
    EXPECT_EQ(free.aspects, 0x7F);
    EXPECT_EQ(free.rates, 0xFF);
    EXPECT_EQ(free.fields, 0x07);
}

TEST(CodecCatalogue, TicksPerFrameAndFieldNames) {
    // Division first: with a time base that is not a multiple of 24000 the order shows.
    EXPECT_EQ(QVN::TicksPerFrame(QVN::kFrameRates[0], 240240), 10010);
    EXPECT_EQ(QVN::TicksPerFrame(QVN::kFrameRates[3], 240240), 8008);
    EXPECT_EQ(QVN::TicksPerFrame(QVN::kFrameRates[6], 23999), 0);
    EXPECT_EQ(QVN::TicksPerFrame(QVN::kFrameRates[2], 254016000000), 10160640000);
    EXPECT_EQ(std::string(QVN::FieldTypeName(0)), "Progressive");
    EXPECT_EQ(std::string(QVN::FieldTypeName(1)), "Upper");
    EXPECT_EQ(std::string(QVN::FieldTypeName(2)), "Lower");
    EXPECT_EQ(std::string(QVN::FieldTypeName(-1)), "Unknown");
    EXPECT_EQ(std::string(QVN::FieldTypeName(3)), "Unknown");
}

} // namespace

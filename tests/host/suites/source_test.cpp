// The sequence source: patterns at every host depth, bottom-up rows with padding, the machine-readable
// frame number, motion, seeded noise, and raw frames from a file.
#include <gtest/gtest.h>

#include <chrono>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "host/frame_stamp.h"
#include "host/host_frame.h"
#include "host/sequence_source.h"

namespace qvnhost {
namespace {

std::unique_ptr<HostFrame> Draw(SequenceSource& source, std::int64_t n, prsdk::PrPixelFormat format, int w,
                                int h, int padding = 0, bool unaligned = false) {
    FrameLayout layout;
    layout.format = format;
    layout.width = w;
    layout.height = h;
    layout.rowPadding = padding;
    layout.unaligned = unaligned;
    std::unique_ptr<HostFrame> frame = NewHostFrame(layout);
    std::string error;
    EXPECT_TRUE(source.Render(n, *frame, &error)) << error;
    return frame;
}

// The green component of picture row y (top-down) of an 8-bit frame, as a plane for the stamp reader.
std::int64_t StampOf(HostFrame& f) {
    return DecodeFrameStamp(f.TopRow(0) + 1, f.layout.width, f.layout.height, -f.rowBytes, 4);
}

std::unique_ptr<SequenceSource> Opened(SourceKind kind, std::uint32_t seed = 1) {
    auto s = std::make_unique<SequenceSource>();
    SourceOptions o;
    o.kind = kind;
    o.seed = seed;
    std::string error;
    EXPECT_TRUE(s->Open(o, &error));
    return s;
}

TEST(SequenceSource, EveryDepthHoldsTheSamePictureAndRowsRunBottomUp) {
    for (const SourceKind kind : {SourceKind::Bars, SourceKind::Ramp, SourceKind::Noise}) {
        const auto owned = Opened(kind);
        SequenceSource& s = *owned;
        const int w = 120;
        const int h = 72;
        auto f8 = Draw(s, 7, prsdk::PrPixelFormat_BGRA_4444_8u, w, h, 12, true);
        auto f16 = Draw(s, 7, prsdk::PrPixelFormat_BGRA_4444_16u, w, h, 8);
        auto f32 = Draw(s, 7, prsdk::PrPixelFormat_BGRA_4444_32f, w, h);
        EXPECT_EQ(f8->rowBytes, w * 4 + 12);
        EXPECT_NE(reinterpret_cast<std::uintptr_t>(f8->pixels) % 16, 0u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(f16->pixels) % 16, 0u);
        bool full = false;
        for (int y = 0; y < h; ++y) {
            const std::uint8_t* p8 = f8->TopRow(y);
            const auto* p16 = reinterpret_cast<const std::uint16_t*>(f16->TopRow(y));
            const auto* p32 = reinterpret_cast<const float*>(f32->TopRow(y));
            for (int i = 0; i < w * 4; ++i) {
                // 16-bit components run 0..32768, float 0..1.
                ASSERT_EQ(p16[i], std::lround(p8[i] * 32768.0 / 255.0)) << "row " << y << " component " << i;
                ASSERT_FLOAT_EQ(p32[i], static_cast<float>(p8[i]) / 255.0f);
                full = full || p16[i] == 32768;
            }
            for (int pad = 0; pad < 12; ++pad)
                ASSERT_EQ(p8[w * 4 + pad], 0) << "padding stays as it was";
        }
        EXPECT_TRUE(full) << "opaque alpha is 32768";
        // Read bottom-up the stamp is there; read as if the rows ran top-down it is not.
        EXPECT_EQ(StampOf(*f8), 7);
        EXPECT_NE(DecodeFrameStamp(f8->pixels + 1, w, h, f8->rowBytes, 4), 7);
    }
}

TEST(SequenceSource, StampsReadBackAtEverySizeAndOnlyWhenPresent) {
    const auto owned = Opened(SourceKind::Bars);
    SequenceSource& s = *owned;
    for (const auto& [w, h] : {std::pair{24, 16}, {100, 40}, {720, 480}, {1920, 1080}}) {
        for (const std::int64_t n : {0LL, 1LL, 2LL, 0x5A5A5LL, (1LL << 20) - 1}) {
            auto f = Draw(s, n, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
            EXPECT_EQ(StampOf(*f), n) << w << "x" << h;
        }
    }
    // Beyond 20 bits the band wraps.
    auto big = Draw(s, (1LL << 20) + 3, prsdk::PrPixelFormat_BGRA_4444_8u, 240, 96);
    EXPECT_EQ(StampOf(*big), 3);
    // A black or a white picture is no frame number; nor is one wrong bit.
    std::vector<std::uint8_t> plane(240 * 96, 0);
    EXPECT_EQ(DecodeFrameStamp(plane.data(), 240, 96, 240), -1);
    std::fill(plane.begin(), plane.end(), 255);
    EXPECT_EQ(DecodeFrameStamp(plane.data(), 240, 96, 240), -1);
    auto f = Draw(s, 12345, prsdk::PrPixelFormat_BGRA_4444_8u, 240, 96);
    const int cell = 240 / kStampCells;
    for (int y = 0; y < StampBandHeight(96); ++y) // flip the least significant data bit
        for (int x = 19 * cell; x < 20 * cell; ++x)
            f->TopRow(y)[x * 4 + 1] ^= 0xFF;
    EXPECT_EQ(StampOf(*f), -1);
}

TEST(SequenceSource, PatternsMoveFromFrameToFrameAndNoiseFollowsTheSeed) {
    const auto barsOwned = Opened(SourceKind::Bars);
    SequenceSource& bars = *barsOwned;
    const int w = 320;
    const int h = 180;
    const int below = StampBandHeight(h) + 24 * (h / 72); // under the band and the digits
    const auto Differs = [&](HostFrame& a, HostFrame& b) {
        for (int y = below; y < h; ++y)
            if (std::memcmp(a.TopRow(y), b.TopRow(y), static_cast<std::size_t>(w) * 4) != 0)
                return true;
        return false;
    };
    auto a = Draw(bars, 40, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
    auto again = Draw(bars, 40, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
    auto next = Draw(bars, 41, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
    EXPECT_FALSE(Differs(*a, *again));
    EXPECT_TRUE(Differs(*a, *next)) << "the box moved";

    // Ramp: the grey band rises from 0 at the left to 255 at the right.
    const auto rampOwned = Opened(SourceKind::Ramp);
    SequenceSource& ramp = *rampOwned;
    auto r = Draw(ramp, 0, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
    const std::uint8_t* row = r->TopRow(h / 4 - 1);
    EXPECT_EQ(row[0], 0);
    EXPECT_EQ(row[(w - 1) * 4], 255);

    const auto n1Owned = Opened(SourceKind::Noise, 1);
    SequenceSource& n1 = *n1Owned;
    const auto n1bOwned = Opened(SourceKind::Noise, 1);
    SequenceSource& n1b = *n1bOwned;
    const auto n2Owned = Opened(SourceKind::Noise, 2);
    SequenceSource& n2 = *n2Owned;
    auto x = Draw(n1, 5, prsdk::PrPixelFormat_BGRA_4444_8u, w, h);
    EXPECT_FALSE(Differs(*x, *Draw(n1b, 5, prsdk::PrPixelFormat_BGRA_4444_8u, w, h)));
    EXPECT_TRUE(Differs(*x, *Draw(n2, 5, prsdk::PrPixelFormat_BGRA_4444_8u, w, h)));
    EXPECT_TRUE(Differs(*x, *Draw(n1, 6, prsdk::PrPixelFormat_BGRA_4444_8u, w, h)));
    EXPECT_EQ(StampOf(*x), 5);
}

TEST(SequenceSource, RawFramesArePresentedBottomUpAndScaled) {
    // Three 8x4 top-down BGRA frames; pixel (x, y) of frame k holds k, x, y, 200.
    const auto path = std::filesystem::temp_directory_path() /
                      ("qvn_source_test_" +
                       std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".raw");
    {
        std::FILE* f = std::fopen(path.string().c_str(), "wb");
        ASSERT_NE(f, nullptr);
        for (std::uint8_t k = 0; k < 3; ++k)
            for (std::uint8_t y = 0; y < 4; ++y)
                for (std::uint8_t x = 0; x < 8; ++x) {
                    const std::uint8_t px[4] = {k, x, y, 200};
                    std::fwrite(px, 1, 4, f);
                }
        std::fputc(0, f); // a partial frame at the end is not a frame
        std::fclose(f);
    }
    SequenceSource s;
    SourceOptions o;
    o.kind = SourceKind::Raw;
    o.rawPath = path.string();
    o.rawWidth = 8;
    o.rawHeight = 4;
    std::string error;
    ASSERT_TRUE(s.Open(o, &error)) << error;
    EXPECT_EQ(s.RawFrameCount(), 3);

    auto f = Draw(s, 2, prsdk::PrPixelFormat_BGRA_4444_8u, 8, 4, 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) {
            const std::uint8_t* px = f->TopRow(y) + x * 4;
            EXPECT_EQ(px[0], 2);
            EXPECT_EQ(px[1], x);
            EXPECT_EQ(px[2], y);
        }
    EXPECT_EQ(f->pixels[2], 3) << "the first row in memory is the picture's last";

    // Twice the size: each source pixel covers 2x2.
    auto big = Draw(s, 1, prsdk::PrPixelFormat_BGRA_4444_16u, 16, 8);
    const auto* px = reinterpret_cast<const std::uint16_t*>(big->TopRow(5) + 9 * 8);
    EXPECT_EQ(px[1], std::lround(4 * 32768.0 / 255.0));
    EXPECT_EQ(px[2], std::lround(2 * 32768.0 / 255.0));

    FrameLayout layout;
    layout.width = 8;
    layout.height = 4;
    auto past = NewHostFrame(layout);
    EXPECT_FALSE(s.Render(3, *past, &error));
    EXPECT_NE(error.find("past its end"), std::string::npos) << error;
    std::filesystem::remove(path);

    SourceOptions parsed;
    EXPECT_TRUE(ParseSourceName("raw:-", &parsed, &error));
    EXPECT_EQ(parsed.rawPath, "-");
    EXPECT_FALSE(ParseSourceName("raw:", &parsed, &error));
    EXPECT_FALSE(ParseSourceName("smpte", &parsed, &error));
}

// Every byte of frame n drawn into a recycled buffer, padding included, matches n drawn into zeroed memory,
// whatever the buffer held before: an earlier picture and a module's scribbles.
TEST(HostFrame, RecycledFramesShowNothingOfTheFrameBefore) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("qvn_recycle_test_" +
                       std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".raw");
    {
        // Two 40x24 frames: seeded bytes in the first, a solid grey in the second.
        std::FILE* f = std::fopen(path.string().c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::uint32_t state = 12345;
        for (int i = 0; i < 40 * 24 * 4; ++i) {
            state = state * 1664525u + 1013904223u;
            std::fputc(static_cast<int>(state >> 24), f);
        }
        for (int i = 0; i < 40 * 24 * 4; ++i)
            std::fputc(i % 4 == 3 ? 255 : 90, f);
        std::fclose(f);
    }
    SourceOptions rawOptions;
    rawOptions.kind = SourceKind::Raw;
    rawOptions.rawPath = path.string();
    rawOptions.rawWidth = 40;
    rawOptions.rawHeight = 24;

    FrameRegistry& registry = FrameRegistry::Instance();
    registry.Reset();
    for (const SourceKind kind : {SourceKind::Bars, SourceKind::Ramp, SourceKind::Noise, SourceKind::Raw}) {
        SequenceSource source;
        std::string error;
        ASSERT_TRUE(
            source.Open(kind == SourceKind::Raw ? rawOptions : SourceOptions{kind, "", 0, 0, 9}, &error))
            << error;
        struct Case {
            prsdk::PrPixelFormat format;
            int w, h, padding;
            bool unaligned;
        };
        // 40x24 is the raw frames' own size; 64x36 scales them.
        for (const Case c : {Case{prsdk::PrPixelFormat_BGRA_4444_8u, 40, 24, 12, true},
                             Case{prsdk::PrPixelFormat_BGRA_4444_8u, 64, 36, 0, false},
                             Case{prsdk::PrPixelFormat_BGRA_4444_16u, 40, 24, 8, false},
                             Case{prsdk::PrPixelFormat_BGRA_4444_32f, 64, 36, 4, true}}) {
            SCOPED_TRACE(testing::Message() << "source " << static_cast<int>(kind) << ", " << c.w << "x"
                                            << c.h << ", " << BytesPerPixel(c.format) << " bytes a pixel");
            FrameLayout layout;
            layout.format = c.format;
            layout.width = c.w;
            layout.height = c.h;
            layout.rowPadding = c.padding;
            layout.unaligned = c.unaligned;
            // Frame 0 then frame 1 in the same buffer, and back: the box, the stamp and the raw picture all
            // change between them.
            for (const auto& [before, after] : {std::pair<std::int64_t, std::int64_t>{0, 1}, {1, 0}}) {
                HostFrame* first = registry.Make(layout);
                ASSERT_NE(first, nullptr);
                ASSERT_TRUE(source.Render(before, *first, &error)) << error;
                // What a module may leave behind: anything, padding included.
                std::memset(first->pixels + first->Size() / 3, 0xA5, first->Size() / 3);
                for (int y = 0; y < c.h; ++y)
                    std::memset(first->TopRow(y) + (first->rowBytes - c.padding), 0x5A,
                                static_cast<std::size_t>(c.padding));
                unsigned char* const address = first->pixels;
                const std::uint64_t recycled = registry.Recycled();
                ASSERT_TRUE(registry.Dispose(first->Handle()));

                HostFrame* second = registry.Make(layout);
                ASSERT_NE(second, nullptr);
                EXPECT_EQ(registry.Recycled(), recycled + 1);
                EXPECT_EQ(second->pixels, address) << "the same buffer, placed the same way";
                EXPECT_EQ(reinterpret_cast<std::uintptr_t>(second->pixels) % 64, c.unaligned ? 4u : 0u);
                EXPECT_EQ(second->rowBytes, c.w * BytesPerPixel(c.format) + c.padding);
                ASSERT_TRUE(source.Render(after, *second, &error)) << error;
                std::unique_ptr<HostFrame> clean = NewHostFrame(layout);
                ASSERT_TRUE(source.Render(after, *clean, &error)) << error;
                ASSERT_EQ(second->Size(), clean->Size());
                for (int y = 0; y < c.h; ++y)
                    ASSERT_EQ(std::memcmp(second->TopRow(y), clean->TopRow(y),
                                          static_cast<std::size_t>(second->rowBytes)),
                              0)
                        << "row " << y << " of frame " << after << " after frame " << before;
                if (kind != SourceKind::Raw && c.format == prsdk::PrPixelFormat_BGRA_4444_8u) {
                    EXPECT_EQ(StampOf(*second), after);
                }
                ASSERT_TRUE(registry.Dispose(second->Handle()));
            }
        }
    }
    std::filesystem::remove(path);
    registry.Reset();
}

TEST(HostFrame, ThePoolKeepsOnlyWhatFitsItsLimits) {
    FrameRegistry& registry = FrameRegistry::Instance();
    registry.Reset();
    FrameLayout layout;
    layout.width = 64;
    layout.height = 32;
    const std::size_t size = 64 * 32 * 4;

    // Ten frames alive at once come back to a pool of four: the oldest returned are let go.
    registry.SetPoolLimits(4, std::size_t{1} << 30);
    std::vector<HostFrame*> frames;
    for (int i = 0; i < 10; ++i)
        frames.push_back(registry.Make(layout));
    EXPECT_EQ(registry.Recycled(), 0u);
    std::vector<unsigned char*> addresses;
    for (HostFrame* f : frames) {
        addresses.push_back(f->pixels);
        ASSERT_TRUE(registry.Dispose(f->Handle()));
        EXPECT_LE(registry.Pooled(), 4u);
    }
    EXPECT_EQ(registry.Pooled(), 4u);
    EXPECT_EQ(registry.PooledBytes(), 4 * size);
    EXPECT_EQ(registry.Live(), 0u);

    // The newest come out first; the fifth frame is a new buffer.
    frames.clear();
    for (int i = 0; i < 5; ++i)
        frames.push_back(registry.Make(layout));
    EXPECT_EQ(registry.Recycled(), 4u);
    EXPECT_EQ(registry.Pooled(), 0u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(frames[static_cast<std::size_t>(i)]->pixels, addresses[static_cast<std::size_t>(9 - i)]);
    for (HostFrame* f : frames)
        ASSERT_TRUE(registry.Dispose(f->Handle()));
    EXPECT_EQ(registry.Pooled(), 4u);

    // A byte budget for two frames trims the pool at once; a frame larger than the budget is not kept.
    registry.SetPoolLimits(100, 2 * size + 1);
    EXPECT_EQ(registry.Pooled(), 2u);
    EXPECT_EQ(registry.PooledBytes(), 2 * size);
    FrameLayout big = layout;
    big.height = 96;
    ASSERT_TRUE(registry.Dispose(registry.Make(big)->Handle()));
    EXPECT_EQ(registry.PooledBytes(), 2 * size);

    // Another size or placement takes no pooled buffer; returned, they push the older ones out.
    FrameLayout padded = layout;
    padded.rowPadding = 16;
    FrameLayout unaligned = layout;
    unaligned.unaligned = true;
    const std::uint64_t recycled = registry.Recycled();
    HostFrame* a = registry.Make(padded);
    HostFrame* b = registry.Make(unaligned);
    EXPECT_EQ(registry.Recycled(), recycled);
    EXPECT_EQ(registry.Pooled(), 2u);
    ASSERT_TRUE(registry.Dispose(a->Handle()));
    ASSERT_TRUE(registry.Dispose(b->Handle()));
    EXPECT_EQ(registry.Pooled(), 1u) << "a padded and two plain frames are over the budget";
    EXPECT_EQ(registry.PooledBytes(), size);
    HostFrame* again = registry.Make(unaligned);
    EXPECT_EQ(registry.Recycled(), recycled + 1) << "the newest, the unaligned frame's, is what is left";
    ASSERT_TRUE(registry.Dispose(again->Handle()));

    // A disposed handle stays dead though its buffer lives on in another frame.
    HostFrame* c = registry.Make(layout);
    const prsdk::PPixHand old = c->Handle();
    ASSERT_TRUE(registry.Dispose(old));
    HostFrame* d = registry.Make(layout);
    if (d->Handle() != old) {
        EXPECT_FALSE(registry.Dispose(old));
    }
    ASSERT_TRUE(registry.Dispose(d->Handle()));

    registry.Reset();
    EXPECT_EQ(registry.Pooled(), 0u);
    EXPECT_EQ(registry.PooledBytes(), 0u);
    EXPECT_EQ(registry.Recycled(), 0u);
}

} // namespace
} // namespace qvnhost

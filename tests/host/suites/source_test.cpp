// The sequence source: patterns at every host depth, bottom-up rows with padding, the machine-readable
// frame number, motion, seeded noise, raw frames from a file, and recycled frame buffers.
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

constexpr prsdk::PrPixelFormat k8u = prsdk::PrPixelFormat_BGRA_4444_8u,
                               k16u = prsdk::PrPixelFormat_BGRA_4444_16u,
                               k32f = prsdk::PrPixelFormat_BGRA_4444_32f;

std::unique_ptr<HostFrame> Draw(SequenceSource& source, std::int64_t n, FrameLayout layout) {
    std::unique_ptr<HostFrame> frame = NewHostFrame(layout);
    std::string error;
    EXPECT_TRUE(source.Render(n, *frame, &error)) << error;
    return frame;
}

// The green components of the picture, top row first, as a plane for the stamp reader.
std::int64_t StampOf(HostFrame& f) {
    return DecodeFrameStamp(f.TopRow(0) + 1, f.layout.width, f.layout.height, -f.rowBytes, 4);
}

std::unique_ptr<SequenceSource> Opened(SourceOptions o) {
    auto s = std::make_unique<SequenceSource>();
    std::string error;
    EXPECT_TRUE(s->Open(o, &error)) << error;
    return s;
}
std::unique_ptr<SequenceSource> Opened(SourceKind kind, std::uint32_t seed = 1) {
    return Opened(SourceOptions{kind, "", 0, 0, seed});
}

// A raw file of `frames` top-down BGRA frames of w x h, each byte from pixel(frame, x, y, component).
template <class Pixel> std::string RawFile(const char* name, int frames, int w, int h, Pixel pixel) {
    const auto path = std::filesystem::temp_directory_path() /
                      (name + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::FILE* f = std::fopen(path.string().c_str(), "wb");
    EXPECT_NE(f, nullptr);
    for (int k = 0; k < frames; ++k)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 4; ++c)
                    std::fputc(pixel(k, x, y, c), f);
    std::fputc(0, f); // a partial frame at the end is not a frame
    std::fclose(f);
    return path.string();
}

TEST(SequenceSource, EveryDepthHoldsTheSamePictureAndRowsRunBottomUp) {
    for (const SourceKind kind : {SourceKind::Bars, SourceKind::Ramp, SourceKind::Noise}) {
        const auto s = Opened(kind);
        const int w = 120, h = 72;
        auto f8 = Draw(*s, 7, {k8u, w, h, 12, true});
        auto f16 = Draw(*s, 7, {k16u, w, h, 8});
        auto f32 = Draw(*s, 7, {k32f, w, h});
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
    const auto s = Opened(SourceKind::Bars);
    for (const auto& [w, h] : {std::pair{24, 16}, {100, 40}, {720, 480}, {1920, 1080}})
        for (const std::int64_t n : {0LL, 1LL, 2LL, 0x5A5A5LL, (1LL << 20) - 1})
            EXPECT_EQ(StampOf(*Draw(*s, n, {k8u, w, h})), n) << w << "x" << h;
    EXPECT_EQ(StampOf(*Draw(*s, (1LL << 20) + 3, {k8u, 240, 96})), 3) << "beyond 20 bits the band wraps";
    // A black or a white picture is no frame number; nor is one wrong bit.
    std::vector<std::uint8_t> plane(240 * 96, 0);
    EXPECT_EQ(DecodeFrameStamp(plane.data(), 240, 96, 240), -1);
    std::fill(plane.begin(), plane.end(), 255);
    EXPECT_EQ(DecodeFrameStamp(plane.data(), 240, 96, 240), -1);
    auto f = Draw(*s, 12345, {k8u, 240, 96});
    const int cell = 240 / kStampCells;
    for (int y = 0; y < StampBandHeight(96); ++y) // flip the least significant data bit
        for (int x = 19 * cell; x < 20 * cell; ++x)
            f->TopRow(y)[x * 4 + 1] ^= 0xFF;
    EXPECT_EQ(StampOf(*f), -1);
}

TEST(SequenceSource, PatternsMoveFromFrameToFrameAndNoiseFollowsTheSeed) {
    const int w = 320, h = 180;
    const int below = StampBandHeight(h) + 24 * (h / 72); // under the band and the digits
    const auto differs = [&](const std::unique_ptr<HostFrame>& a, const std::unique_ptr<HostFrame>& b) {
        for (int y = below; y < h; ++y)
            if (std::memcmp(a->TopRow(y), b->TopRow(y), static_cast<std::size_t>(w) * 4) != 0)
                return true;
        return false;
    };
    const auto bars = Opened(SourceKind::Bars);
    auto a = Draw(*bars, 40, {k8u, w, h});
    EXPECT_FALSE(differs(a, Draw(*bars, 40, {k8u, w, h})));
    EXPECT_TRUE(differs(a, Draw(*bars, 41, {k8u, w, h}))) << "the box moved";
    // Ramp: the grey band rises from 0 at the left to 255 at the right.
    auto r = Draw(*Opened(SourceKind::Ramp), 0, {k8u, w, h});
    EXPECT_EQ(r->TopRow(h / 4 - 1)[0], 0);
    EXPECT_EQ(r->TopRow(h / 4 - 1)[(w - 1) * 4], 255);
    const auto n1 = Opened(SourceKind::Noise, 1);
    auto x = Draw(*n1, 5, {k8u, w, h});
    EXPECT_FALSE(differs(x, Draw(*Opened(SourceKind::Noise, 1), 5, {k8u, w, h})));
    EXPECT_TRUE(differs(x, Draw(*Opened(SourceKind::Noise, 2), 5, {k8u, w, h})));
    EXPECT_TRUE(differs(x, Draw(*n1, 6, {k8u, w, h})));
    EXPECT_EQ(StampOf(*x), 5);
}

TEST(SequenceSource, RawFramesAreScaledAndEndWhereTheFileDoes) {
    // Three 8x4 frames; pixel (x, y) of frame k holds k, x, y, 200. Their orientation is pinned end to end,
    // where piped bars come back from the file within a PSNR floor.
    const std::string path = RawFile("qvn_source_test_", 3, 8, 4, [](int k, int x, int y, int c) {
        return c == 0 ? k : c == 1 ? x : c == 2 ? y : 200;
    });
    const auto s = Opened(SourceOptions{SourceKind::Raw, path, 8, 4});
    EXPECT_EQ(s->RawFrameCount(), 3);
    // Twice the size: each source pixel covers 2x2.
    auto big = Draw(*s, 1, {k16u, 16, 8});
    const auto* px = reinterpret_cast<const std::uint16_t*>(big->TopRow(5) + 9 * 8);
    EXPECT_EQ(std::vector<long>(px, px + 3),
              (std::vector<long>{std::lround(32768.0 / 255.0), std::lround(4 * 32768.0 / 255.0),
                                 std::lround(2 * 32768.0 / 255.0)}));
    auto past = NewHostFrame({k8u, 8, 4});
    std::string error;
    EXPECT_FALSE(s->Render(3, *past, &error));
    EXPECT_NE(error.find("past its end"), std::string::npos) << error;
    std::filesystem::remove(path);
    SourceOptions parsed;
    EXPECT_FALSE(ParseSourceName("raw:", &parsed, &error));
    EXPECT_FALSE(ParseSourceName("smpte", &parsed, &error));
}

// Every byte of frame n drawn into a recycled buffer, padding included, matches n drawn into zeroed memory,
// whatever the buffer held before: an earlier picture and a module's scribbles. Then the pool's limits.
TEST(HostFrame, RecycledFramesShowNothingOfTheFrameBeforeAndThePoolKeepsToItsLimits) {
    std::uint32_t state = 12345; // frame 0: seeded bytes; frame 1: a solid grey
    const std::string path = RawFile("qvn_recycle_test_", 2, 40, 24, [&state](int k, int, int, int c) {
        state = state * 1664525u + 1013904223u;
        return k == 0 ? static_cast<int>(state >> 24) : c == 3 ? 255 : 90;
    });
    FrameRegistry& registry = FrameRegistry::Instance();
    registry.Reset();
    for (const SourceKind kind : {SourceKind::Bars, SourceKind::Ramp, SourceKind::Noise, SourceKind::Raw}) {
        const auto source = Opened(kind == SourceKind::Raw ? SourceOptions{kind, path, 40, 24}
                                                           : SourceOptions{kind, "", 0, 0, 9});
        // 40x24 is the raw frames' own size; 64x36 scales them.
        for (const FrameLayout layout :
             {FrameLayout{k8u, 40, 24, 12, true}, FrameLayout{k8u, 64, 36, 0, false},
              FrameLayout{k16u, 40, 24, 8, false}, FrameLayout{k32f, 64, 36, 4, true}}) {
            const int padding = layout.rowPadding;
            SCOPED_TRACE(testing::Message()
                         << "source " << static_cast<int>(kind) << ", " << layout.width << "x"
                         << layout.height << ", " << BytesPerPixel(layout.format) << " bytes a pixel");
            for (const auto& [before, after] : {std::pair<std::int64_t, std::int64_t>{0, 1}, {1, 0}}) {
                std::string error;
                HostFrame* first = registry.Make(layout);
                ASSERT_TRUE(source->Render(before, *first, &error)) << error;
                // What a module may leave behind: anything, padding included.
                std::memset(first->pixels + first->Size() / 3, 0xA5, first->Size() / 3);
                for (int y = 0; y < layout.height; ++y)
                    std::memset(first->TopRow(y) + (first->rowBytes - padding), 0x5A,
                                static_cast<std::size_t>(padding));
                unsigned char* const address = first->pixels;
                const std::uint64_t recycled = registry.Recycled();
                ASSERT_TRUE(registry.Dispose(first->Handle()));
                HostFrame* second = registry.Make(layout);
                EXPECT_EQ(registry.Recycled(), recycled + 1);
                EXPECT_EQ(second->pixels, address) << "the same buffer, placed the same way";
                EXPECT_EQ(reinterpret_cast<std::uintptr_t>(second->pixels) % 64, layout.unaligned ? 4u : 0u);
                EXPECT_EQ(second->rowBytes, layout.width * BytesPerPixel(layout.format) + padding);
                ASSERT_TRUE(source->Render(after, *second, &error)) << error;
                const std::unique_ptr<HostFrame> clean = Draw(*source, after, layout);
                for (int y = 0; y < layout.height; ++y)
                    ASSERT_EQ(std::memcmp(second->TopRow(y), clean->TopRow(y),
                                          static_cast<std::size_t>(second->rowBytes)),
                              0)
                        << "row " << y << " of frame " << after << " after frame " << before;
                EXPECT_TRUE(kind == SourceKind::Raw || layout.format != k8u || StampOf(*second) == after);
                ASSERT_TRUE(registry.Dispose(second->Handle()));
            }
        }
    }
    std::filesystem::remove(path);
    // Ten frames returned to a pool of four keep the newest four, which come out newest first.
    registry.Reset();
    const FrameLayout layout{k8u, 64, 32};
    const std::size_t size = 64 * 32 * 4;
    const auto dispose = [&registry](HostFrame* f) { ASSERT_TRUE(registry.Dispose(f->Handle())); };
    registry.SetPoolLimits(4, std::size_t{1} << 30);
    std::vector<HostFrame*> frames(10);
    for (HostFrame*& f : frames)
        f = registry.Make(layout);
    unsigned char* const last = frames[9]->pixels;
    for (HostFrame* f : frames)
        dispose(f);
    EXPECT_EQ(std::pair(registry.Pooled(), registry.PooledBytes()), std::pair(std::size_t{4}, 4 * size));
    HostFrame* newest = registry.Make(layout);
    EXPECT_EQ(newest->pixels, last);
    dispose(newest);
    // A byte budget for two frames trims the pool at once; a frame larger than the budget is not kept, and
    // another size or placement takes no pooled buffer.
    registry.SetPoolLimits(100, 2 * size + 1);
    EXPECT_EQ(std::pair(registry.Pooled(), registry.PooledBytes()), std::pair(std::size_t{2}, 2 * size));
    const std::uint64_t recycled = registry.Recycled();
    dispose(registry.Make({k8u, 64, 96}));
    EXPECT_EQ(registry.PooledBytes(), 2 * size);
    dispose(registry.Make({k8u, 64, 32, 16}));
    dispose(registry.Make({k8u, 64, 32, 0, true}));
    EXPECT_EQ(registry.Recycled(), recycled);
    EXPECT_EQ(std::pair(registry.Pooled(), registry.PooledBytes()), std::pair(std::size_t{1}, size))
        << "the oldest go first";
    // A disposed handle stays dead though its buffer lives on in another frame.
    const prsdk::PPixHand old = registry.Make(layout)->Handle();
    ASSERT_TRUE(registry.Dispose(old));
    HostFrame* d = registry.Make(layout);
    EXPECT_TRUE(d->Handle() == old || !registry.Dispose(old));
    dispose(d);
    registry.Reset();
    EXPECT_EQ(std::pair(registry.Pooled(), registry.Recycled()), std::pair(std::size_t{0}, std::uint64_t{0}));
}

} // namespace
} // namespace qvnhost

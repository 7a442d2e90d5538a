#include "host/sequence_source.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "host/frame_stamp.h"
#include "host/picture_writer.h"
#include "platform/console.h"

namespace qvnhost {
namespace {

constexpr Bgra8 Rgb(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    return {b, g, r, 255};
}

// 75% bars, their reverse strip, and the bottom row of -I, white, +Q, black and a pluge.
void DrawBars(PictureWriter& p) {
    const std::int32_t w = p.Width();
    const std::int32_t h = p.Height();
    constexpr Bgra8 kTop[7] = {Rgb(191, 191, 191), Rgb(191, 191, 0), Rgb(0, 191, 191), Rgb(0, 191, 0),
                               Rgb(191, 0, 191),   Rgb(191, 0, 0),   Rgb(0, 0, 191)};
    constexpr Bgra8 kBlack = Rgb(0, 0, 0);
    const Bgra8 kReverse[7] = {kTop[6], kBlack, kTop[4], kBlack, kTop[2], kBlack, kTop[0]};
    const std::int32_t topEnd = h * 2 / 3;
    const std::int32_t middleEnd = h * 3 / 4;
    for (std::int32_t i = 0; i < 7; ++i) {
        const std::int32_t x0 = i * w / 7;
        const std::int32_t x1 = (i + 1) * w / 7;
        p.FillRect(x0, 0, x1 - x0, topEnd, kTop[i]);
        p.FillRect(x0, topEnd, x1 - x0, middleEnd - topEnd, kReverse[i]);
    }
    const Bgra8 kBottom[4] = {Rgb(0, 63, 105), Rgb(255, 255, 255), Rgb(67, 0, 130), kBlack};
    for (std::int32_t i = 0; i < 4; ++i) {
        const std::int32_t x0 = i * 5 * w / 28;
        const std::int32_t x1 = (i + 1) * 5 * w / 28;
        p.FillRect(x0, middleEnd, x1 - x0, h - middleEnd, kBottom[i]);
    }
    const Bgra8 kPluge[3] = {Rgb(0, 0, 0), Rgb(10, 10, 10), Rgb(20, 20, 20)};
    for (std::int32_t i = 0; i < 3; ++i) {
        const std::int32_t x0 = 5 * w / 7 + i * w / 21;
        const std::int32_t x1 = 5 * w / 7 + (i + 1) * w / 21;
        p.FillRect(x0, middleEnd, x1 - x0, h - middleEnd, kPluge[i]);
    }
    p.FillRect(6 * w / 7, middleEnd, w - 6 * w / 7, h - middleEnd, kBlack);
}

// Four bands, top to bottom: grey, red, green and blue, each rising from 0 at the left to 255 at the right.
void DrawRamp(PictureWriter& p) {
    const std::int32_t w = p.Width();
    const std::int32_t h = p.Height();
    std::vector<std::uint8_t> row(static_cast<std::size_t>(w) * 4);
    for (std::int32_t band = 0; band < 4; ++band) {
        for (std::int32_t x = 0; x < w; ++x) {
            const auto v = static_cast<std::uint8_t>(w > 1 ? x * 255 / (w - 1) : 255);
            std::uint8_t* px = &row[static_cast<std::size_t>(x) * 4];
            px[0] = (band == 0 || band == 3) ? v : 0; // B
            px[1] = (band == 0 || band == 2) ? v : 0; // G
            px[2] = (band == 0 || band == 1) ? v : 0; // R
            px[3] = 255;
        }
        for (std::int32_t y = band * h / 4; y < (band + 1) * h / 4; ++y)
            p.StoreRow(0, y, row.data(), w);
    }
}

// A white square with a grey centre, moving right by about 1% of the width per frame and wrapping.
void DrawMovingBox(PictureWriter& p, std::int64_t n) {
    const std::int32_t w = p.Width();
    const std::int32_t h = p.Height();
    const std::int32_t size = std::max(4, h / 6);
    if (size >= w)
        return;
    const std::int64_t step = std::max(1, w / 100);
    const auto x = static_cast<std::int32_t>(((n * step) % (w - size) + (w - size)) % (w - size));
    const std::int32_t y = h / 3 - size / 2;
    p.FillRect(x, y, size, size, Rgb(255, 255, 255));
    p.FillRect(x + size / 4, y + size / 4, size / 2, size / 2, Rgb(128, 128, 128));
}

std::uint64_t SplitMix(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

void ScaleRow(const std::vector<std::uint8_t>& src, std::int32_t srcW, std::int32_t srcH, std::int32_t y,
              std::int32_t w, std::int32_t h, std::vector<std::uint8_t>* row) {
    const std::int64_t sy = static_cast<std::int64_t>(y) * srcH / h;
    const std::uint8_t* line = src.data() + sy * srcW * 4;
    for (std::int32_t x = 0; x < w; ++x) {
        const std::int64_t sx = static_cast<std::int64_t>(x) * srcW / w;
        std::memcpy(row->data() + static_cast<std::size_t>(x) * 4, line + sx * 4, 4);
    }
}

} // namespace

bool ParseSourceName(const std::string& text, SourceOptions* options, std::string* error) {
    if (text == "bars" || text == "ramp" || text == "noise") {
        options->kind = text == "bars"   ? SourceKind::Bars
                        : text == "ramp" ? SourceKind::Ramp
                                         : SourceKind::Noise;
        return true;
    }
    if (text.rfind("raw:", 0) == 0 && text.size() > 4) {
        options->kind = SourceKind::Raw;
        options->rawPath = text.substr(4);
        return true;
    }
    *error = "unknown source: " + text + " (choices: bars, ramp, noise, raw:FILE, raw:-)";
    return false;
}

bool SequenceSource::Open(const SourceOptions& options, std::string* error) {
    options_ = options;
    rawFrames_ = -1;
    if (options.kind != SourceKind::Raw)
        return true;
    if (options.rawWidth <= 0 || options.rawHeight <= 0) {
        *error = "raw input needs the frame size (--size WxH)";
        return false;
    }
    if (options.rawPath == "-") {
        QVN::SetStandardInputBinary();
        return true;
    }
    if (file_.OpenRead(options.rawPath.c_str()) < 0) {
        *error = "cannot open raw input: " + options.rawPath;
        return false;
    }
    std::uint64_t size = 0;
    file_.Size(&size);
    const auto frameBytes =
        static_cast<std::uint64_t>(options.rawWidth) * static_cast<std::uint64_t>(options.rawHeight) * 4;
    rawFrames_ = static_cast<std::int64_t>(size / frameBytes);
    return true;
}

std::shared_ptr<const std::vector<unsigned char>> SequenceSource::Background(const FrameLayout& layout) {
    const auto key = std::make_tuple(layout.width, layout.height, layout.format);
    {
        std::lock_guard<std::mutex> hold(mutex_);
        const auto it = backgrounds_.find(key);
        if (it != backgrounds_.end())
            return it->second;
    }
    // Drawn outside the lock: two threads may both draw it the first time, and one copy is kept.
    FrameLayout packed = layout;
    packed.rowPadding = 0;
    packed.unaligned = false;
    std::unique_ptr<HostFrame> frame = NewHostFrame(packed);
    PictureWriter writer(*frame);
    if (options_.kind == SourceKind::Bars)
        DrawBars(writer);
    else
        DrawRamp(writer);
    auto bytes =
        std::make_shared<const std::vector<unsigned char>>(frame->pixels, frame->pixels + frame->Size());
    std::lock_guard<std::mutex> hold(mutex_);
    return backgrounds_.emplace(key, bytes).first->second;
}

void SequenceSource::DrawNoise(std::int64_t n, HostFrame& frame) const {
    PictureWriter writer(frame);
    std::uint64_t state = (static_cast<std::uint64_t>(options_.seed) << 32) ^ static_cast<std::uint64_t>(n);
    SplitMix(state);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(writer.Width()) * 4);
    for (std::int32_t y = 0; y < writer.Height(); ++y) {
        for (std::size_t x = 0; x < row.size(); x += 4) {
            const std::uint64_t r = SplitMix(state);
            row[x] = static_cast<std::uint8_t>(r);
            row[x + 1] = static_cast<std::uint8_t>(r >> 8);
            row[x + 2] = static_cast<std::uint8_t>(r >> 16);
            row[x + 3] = 255;
        }
        writer.StoreRow(0, y, row.data(), writer.Width());
    }
}

bool SequenceSource::ReadRaw(std::int64_t n, std::vector<std::uint8_t>* pixels, std::string* error) {
    const std::size_t frameBytes =
        static_cast<std::size_t>(options_.rawWidth) * static_cast<std::size_t>(options_.rawHeight) * 4;
    std::lock_guard<std::mutex> hold(mutex_);
    if (options_.rawPath != "-") {
        if (n < 0 || n >= rawFrames_) {
            *error = "raw input has " + std::to_string(rawFrames_) + " frames; frame " + std::to_string(n) +
                     " is past its end";
            return false;
        }
        if (pixels->capacity() == 0)
            *pixels = TakeReadBuffer();
        pixels->resize(frameBytes);
        bool ok = file_.Seek(static_cast<std::uint64_t>(n) * frameBytes) >= 0;
        for (std::size_t done = 0, got = 0; ok && done < frameBytes; done += got)
            ok = file_.Read(pixels->data() + done, frameBytes - done, &got) >= 0 && got > 0;
        if (!ok)
            *error = "cannot read frame " + std::to_string(n) + " of " + options_.rawPath;
        return ok;
    }
    // Standard input: frame k of the stream is sequence frame k; those before the first frame are dropped.
    while (nextPipeFrame_ <= n && !pipeEnded_) {
        std::vector<std::uint8_t> buffer = TakeReadBuffer();
        buffer.resize(frameBytes);
        const std::size_t got = std::fread(buffer.data(), 1, frameBytes, stdin);
        if (got != frameBytes) {
            pipeEnded_ = true;
            ReturnReadBuffer(std::move(buffer));
            break;
        }
        if (nextPipeFrame_ >= firstFrame_)
            pipeFrames_.emplace(nextPipeFrame_, std::move(buffer));
        else
            ReturnReadBuffer(std::move(buffer));
        ++nextPipeFrame_;
    }
    const auto it = pipeFrames_.find(n);
    if (it == pipeFrames_.end()) {
        *error = n < nextPipeFrame_ && !pipeEnded_
                     ? "frame " + std::to_string(n) + " of standard input was read already"
                     : "standard input ended after " + std::to_string(nextPipeFrame_) + " frames";
        return false;
    }
    *pixels = std::move(it->second);
    pipeFrames_.erase(it);
    return true;
}

// Reusing the buffers spares every frame a new frame-sized block that the system maps and zeroes.
std::vector<std::uint8_t> SequenceSource::TakeReadBuffer() {
    if (spareReads_.empty())
        return {};
    std::vector<std::uint8_t> buffer = std::move(spareReads_.back());
    spareReads_.pop_back();
    return buffer;
}

void SequenceSource::ReturnReadBuffer(std::vector<std::uint8_t> buffer) {
    constexpr std::size_t kMostSpares = 8;
    if (buffer.capacity() != 0 && spareReads_.size() < kMostSpares)
        spareReads_.push_back(std::move(buffer));
}

bool SequenceSource::RenderRaw(std::int64_t n, HostFrame& frame, std::string* error) {
    std::vector<std::uint8_t> pixels;
    const bool read = ReadRaw(n, &pixels, error);
    if (read) {
        PictureWriter writer(frame);
        const std::int32_t w = writer.Width();
        const std::int32_t h = writer.Height();
        const bool sameSize = w == options_.rawWidth && h == options_.rawHeight;
        std::vector<std::uint8_t> row(sameSize ? 0 : static_cast<std::size_t>(w) * 4);
        for (std::int32_t y = 0; y < h; ++y) {
            if (sameSize) {
                writer.StoreRow(
                    0, y, pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(w) * 4, w);
            } else {
                ScaleRow(pixels, options_.rawWidth, options_.rawHeight, y, w, h, &row);
                writer.StoreRow(0, y, row.data(), w);
            }
        }
    }
    std::lock_guard<std::mutex> hold(mutex_);
    ReturnReadBuffer(std::move(pixels));
    return read;
}

bool SequenceSource::Render(std::int64_t n, HostFrame& frame, std::string* error) {
    if (options_.kind == SourceKind::Raw)
        return RenderRaw(n, frame, error);
    PictureWriter writer(frame);
    if (options_.kind == SourceKind::Noise)
        DrawNoise(n, frame);
    else
        writer.CopyPacked(Background(frame.layout)->data());
    DrawMovingBox(writer, n);
    DrawFrameStamp(writer, n);
    return true;
}

} // namespace qvnhost

// A frame the simulated host hands to the module: BGRA pixels in one of the host's 4:4:4:4 formats,
// stored bottom-up, with optional row padding and a start address that may be deliberately misaligned.
// The module sees it only as a PPixHand; the PPix suites answer for it and dispose of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "prsdk/prsdk.h"

namespace qvnhost {

// Bytes of one pixel in a host BGRA format (4, 8 or 16), or 0 for any other format.
int BytesPerPixel(prsdk::PrPixelFormat format);

struct FrameLayout {
    prsdk::PrPixelFormat format = prsdk::PrPixelFormat_BGRA_4444_8u;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t rowPadding = 0; // bytes after each row's pixels
    bool unaligned = false;      // the pixel address is 4 bytes past a 64-byte boundary
    std::int32_t parNumerator = 1;
    std::int32_t parDenominator = 1;
    std::int32_t fieldType = 0;
};

struct HostFrame {
    // The PPixHand is the address of this slot (the first member); the slot points back at the frame.
    HostFrame* self;
    FrameLayout layout;
    std::int32_t rowBytes;
    std::unique_ptr<unsigned char[]> storage;
    unsigned char* pixels; // first row in memory: the bottom row of the picture
    std::int32_t renderMilliseconds;
    std::uint64_t key; // unique per frame made

    prsdk::PPixHand Handle() { return reinterpret_cast<prsdk::PPixHand>(&self); }
    std::size_t Size() const {
        return static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(layout.height);
    }
    // Address of picture row y, counted from the top.
    unsigned char* TopRow(std::int32_t y) {
        return pixels + static_cast<std::ptrdiff_t>(layout.height - 1 - y) * rowBytes;
    }
};

// A frame with its pixels zeroed, owned by the caller; nullptr when the layout is not a BGRA format.
std::unique_ptr<HostFrame> NewHostFrame(const FrameLayout& layout);

// The live frames: every frame made here is alive until the module (or the host) disposes of it.
//
// Like Premiere, the registry recycles frame memory: a disposed frame's buffer waits in a small pool and
// the next frame of the same size and placement takes it, so an export does not fault in and zero a new
// frame-sized block for every frame. The pool is capped in buffers and bytes; the oldest go first.
class FrameRegistry {
public:
    static FrameRegistry& Instance();

    // A new frame; nullptr when the layout is not a BGRA format. Row padding is zero. The pixels are zero
    // in a new buffer but hold an earlier frame's picture in a recycled one: the caller draws every pixel.
    HostFrame* Make(const FrameLayout& layout);
    // The frame behind a handle, or nullptr for a handle that is not a live frame.
    HostFrame* Find(prsdk::PPixHand handle);
    // False for a handle that is not a live frame (never made, or disposed of already).
    bool Dispose(prsdk::PPixHand handle);

    std::size_t Live() const;
    std::uint64_t Made() const;
    // Disposals of handles that were not live frames.
    std::uint64_t BadDisposals() const;
    // Frames made in a recycled buffer.
    std::uint64_t Recycled() const;
    // Buffers waiting in the pool, and their bytes.
    std::size_t Pooled() const;
    std::size_t PooledBytes() const;
    // The most buffers and bytes the pool keeps (defaults: kPoolBuffers, kPoolBytes); trims it at once.
    void SetPoolLimits(std::size_t buffers, std::size_t bytes);
    // Disposes of every live frame, empties the pool, clears the counters and restores the pool limits.
    void Reset();

    // Enough for the frames a module holds between its render threads and its writer, at 2160p 8-bit.
    static constexpr std::size_t kPoolBuffers = 12;
    static constexpr std::size_t kPoolBytes = std::size_t{512} << 20;

private:
    struct PoolEntry {
        std::size_t size; // pixel bytes (Size() of the frames it fits)
        bool unaligned;
        std::unique_ptr<unsigned char[]> storage;
    };

    FrameRegistry() = default;
    std::map<HostFrame*, std::unique_ptr<HostFrame>>::iterator Lookup(prsdk::PPixHand handle);
    // With the lock held: moves the oldest buffers past the limits into *drop.
    void TrimPool(std::deque<PoolEntry>* drop);

    mutable std::mutex mutex_;
    std::map<HostFrame*, std::unique_ptr<HostFrame>> live_;
    std::deque<PoolEntry> pool_; // oldest first
    std::size_t pooledBytes_ = 0;
    std::size_t poolBuffers_ = kPoolBuffers;
    std::size_t poolBytes_ = kPoolBytes;
    std::uint64_t made_ = 0;
    std::uint64_t recycled_ = 0;
    std::uint64_t badDisposals_ = 0;
};

} // namespace qvnhost

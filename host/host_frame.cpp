#include "host/host_frame.h"

#include <cstring>
#include <iterator>

namespace qvnhost {

int BytesPerPixel(prsdk::PrPixelFormat format) {
    switch (format) {
    case prsdk::PrPixelFormat_BGRA_4444_8u:
    case prsdk::PrPixelFormat_BGRX_4444_8u:
        return 4;
    case prsdk::PrPixelFormat_BGRA_4444_16u:
    case prsdk::PrPixelFormat_BGRX_4444_16u:
        return 8;
    case prsdk::PrPixelFormat_BGRA_4444_32f:
    case prsdk::PrPixelFormat_BGRX_4444_32f:
        return 16;
    default:
        return 0;
    }
}

FrameRegistry& FrameRegistry::Instance() {
    static FrameRegistry registry;
    return registry;
}

namespace {

// Room to place the pixels on a 64-byte boundary, or deliberately 4 bytes past one.
constexpr std::size_t kSlack = 128;

// A frame with its layout and row bytes but no storage; nullptr for a layout the host cannot render.
std::unique_ptr<HostFrame> Shaped(const FrameLayout& layout) {
    const int bpp = BytesPerPixel(layout.format);
    if (bpp == 0 || layout.width <= 0 || layout.height <= 0 || layout.rowPadding < 0)
        return nullptr;
    auto frame = std::make_unique<HostFrame>();
    frame->self = frame.get();
    frame->layout = layout;
    frame->rowBytes = layout.width * bpp + layout.rowPadding;
    frame->renderMilliseconds = 0;
    frame->key = 0;
    return frame;
}

// Sets the pixel address inside the frame's storage, which has Size() + kSlack bytes.
void Place(HostFrame& frame) {
    const auto base = reinterpret_cast<std::uintptr_t>(frame.storage.get());
    const std::uintptr_t aligned = (base + 63) & ~std::uintptr_t{63};
    frame.pixels = frame.storage.get() + (aligned - base) + (frame.layout.unaligned ? 4 : 0);
}

} // namespace

std::unique_ptr<HostFrame> NewHostFrame(const FrameLayout& layout) {
    std::unique_ptr<HostFrame> frame = Shaped(layout);
    if (!frame)
        return nullptr;
    frame->storage.reset(new unsigned char[frame->Size() + kSlack]);
    Place(*frame);
    std::memset(frame->pixels, 0, frame->Size());
    return frame;
}

HostFrame* FrameRegistry::Make(const FrameLayout& layout) {
    std::unique_ptr<HostFrame> frame = Shaped(layout);
    if (!frame)
        return nullptr;
    const std::size_t size = frame->Size();
    {
        std::lock_guard<std::mutex> hold(mutex_);
        // The most recently returned buffer first: its pages are the likeliest to be in the cache.
        for (auto it = pool_.rbegin(); it != pool_.rend(); ++it) {
            if (it->size == size && it->unaligned == layout.unaligned) {
                frame->storage = std::move(it->storage);
                pooledBytes_ -= size;
                pool_.erase(std::next(it).base());
                ++recycled_;
                break;
            }
        }
    }
    // Filling happens outside the lock: other render threads make and dispose of frames meanwhile.
    if (frame->storage) {
        Place(*frame);
        // The sources draw every pixel but never the padding, which the module may read and must not see
        // an earlier frame in.
        const std::size_t pixelBytes = static_cast<std::size_t>(frame->rowBytes - layout.rowPadding);
        if (layout.rowPadding > 0) {
            for (std::int32_t row = 0; row < layout.height; ++row)
                std::memset(frame->pixels + static_cast<std::size_t>(row) * frame->rowBytes + pixelBytes, 0,
                            static_cast<std::size_t>(layout.rowPadding));
        }
    } else {
        frame->storage.reset(new unsigned char[size + kSlack]);
        Place(*frame);
        std::memset(frame->pixels, 0, size);
    }
    std::lock_guard<std::mutex> hold(mutex_);
    frame->key = ++made_;
    HostFrame* raw = frame.get();
    live_.emplace(raw, std::move(frame));
    return raw;
}

HostFrame* FrameRegistry::Find(prsdk::PPixHand handle) {
    if (!handle)
        return nullptr;
    std::lock_guard<std::mutex> hold(mutex_);
    const auto it = Lookup(handle);
    return it == live_.end() ? nullptr : it->first;
}

// The handle is the address of a frame's first member, so it is looked up by value and only dereferenced
// once it is known to be one of ours.
std::map<HostFrame*, std::unique_ptr<HostFrame>>::iterator FrameRegistry::Lookup(prsdk::PPixHand handle) {
    const auto it = live_.find(reinterpret_cast<HostFrame*>(handle));
    return (it != live_.end() && it->first->Handle() == handle) ? it : live_.end();
}

bool FrameRegistry::Dispose(prsdk::PPixHand handle) {
    // Freed after the lock is let go: returning a large block to the system takes a while.
    std::unique_ptr<HostFrame> frame;
    std::deque<PoolEntry> drop;
    std::lock_guard<std::mutex> hold(mutex_);
    const auto it = Lookup(handle);
    if (it == live_.end()) {
        ++badDisposals_;
        return false;
    }
    frame = std::move(it->second);
    live_.erase(it);
    const std::size_t size = frame->Size();
    if (poolBuffers_ > 0 && size <= poolBytes_) {
        pool_.push_back({size, frame->layout.unaligned, std::move(frame->storage)});
        pooledBytes_ += size;
        TrimPool(&drop);
    }
    return true;
}

void FrameRegistry::TrimPool(std::deque<PoolEntry>* drop) {
    while (!pool_.empty() && (pool_.size() > poolBuffers_ || pooledBytes_ > poolBytes_)) {
        pooledBytes_ -= pool_.front().size;
        drop->push_back(std::move(pool_.front()));
        pool_.pop_front();
    }
}

void FrameRegistry::SetPoolLimits(std::size_t buffers, std::size_t bytes) {
    std::deque<PoolEntry> drop;
    std::lock_guard<std::mutex> hold(mutex_);
    poolBuffers_ = buffers;
    poolBytes_ = bytes;
    TrimPool(&drop);
}

std::uint64_t FrameRegistry::Recycled() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return recycled_;
}

std::size_t FrameRegistry::Pooled() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return pool_.size();
}

std::size_t FrameRegistry::PooledBytes() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return pooledBytes_;
}

std::size_t FrameRegistry::Live() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return live_.size();
}

std::uint64_t FrameRegistry::Made() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return made_;
}

std::uint64_t FrameRegistry::BadDisposals() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return badDisposals_;
}

void FrameRegistry::Reset() {
    std::map<HostFrame*, std::unique_ptr<HostFrame>> live;
    std::deque<PoolEntry> pool;
    std::lock_guard<std::mutex> hold(mutex_);
    live.swap(live_);
    pool.swap(pool_);
    pooledBytes_ = 0;
    poolBuffers_ = kPoolBuffers;
    poolBytes_ = kPoolBytes;
    made_ = 0;
    recycled_ = 0;
    badDisposals_ = 0;
}

} // namespace qvnhost

#include "host/host_frame.h"

#include <cstring>

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

std::unique_ptr<HostFrame> NewHostFrame(const FrameLayout& layout) {
    const int bpp = BytesPerPixel(layout.format);
    if (bpp == 0 || layout.width <= 0 || layout.height <= 0 || layout.rowPadding < 0)
        return nullptr;
    auto frame = std::make_unique<HostFrame>();
    frame->self = frame.get();
    frame->layout = layout;
    frame->rowBytes = layout.width * bpp + layout.rowPadding;
    // Room to place the pixels on a 64-byte boundary, or deliberately 4 bytes past one.
    constexpr std::size_t kSlack = 128;
    const std::size_t size = frame->Size();
    frame->storage.reset(new unsigned char[size + kSlack]);
    const auto base = reinterpret_cast<std::uintptr_t>(frame->storage.get());
    const std::uintptr_t aligned = (base + 63) & ~std::uintptr_t{63};
    frame->pixels = frame->storage.get() + (aligned - base) + (layout.unaligned ? 4 : 0);
    std::memset(frame->pixels, 0, size);
    frame->renderMilliseconds = 0;
    frame->key = 0;
    return frame;
}

HostFrame* FrameRegistry::Make(const FrameLayout& layout) {
    std::unique_ptr<HostFrame> frame = NewHostFrame(layout);
    if (!frame)
        return nullptr;
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
    std::lock_guard<std::mutex> hold(mutex_);
    const auto it = Lookup(handle);
    if (it == live_.end()) {
        ++badDisposals_;
        return false;
    }
    live_.erase(it);
    return true;
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
    std::lock_guard<std::mutex> hold(mutex_);
    live_.clear();
    made_ = 0;
    badDisposals_ = 0;
}

} // namespace qvnhost

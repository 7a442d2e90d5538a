#include "encoders/aligned_buffer_pool.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// The 16 bytes in front of every handed-out buffer.
struct BlockHeader {
    void* raw;
    std::uint32_t classSize;
    std::uint32_t unused;
};
static_assert(sizeof(BlockHeader) == 16);

} // namespace

AlignedBufferPool::~AlignedBufferPool() {
    for (auto& [size, blocks] : classes_) {
        for (void* raw : blocks)
            std::free(raw);
    }
}

void* AlignedBufferPool::Allocate(std::uint32_t size) {
    const std::size_t classSize = ClassSize(size);
    void* raw = nullptr;
    try {
        QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
        std::vector<void*>& cache = classes_[classSize];
        if (!cache.empty()) {
            raw = cache.back();
            cache.pop_back();
        } else {
            raw = std::malloc(classSize);
        }
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    if (!raw)
        return nullptr;
    // The first multiple of the alignment strictly above raw + 15 leaves room for the header.
    const auto address = (reinterpret_cast<std::uintptr_t>(raw) + kAlignment + 15) / kAlignment * kAlignment;
    auto* buffer = reinterpret_cast<unsigned char*>(address);
    const BlockHeader header{raw, static_cast<std::uint32_t>(classSize), 0};
    std::memcpy(buffer - sizeof(BlockHeader), &header, sizeof(header));
    return buffer;
}

void AlignedBufferPool::Release(void* buffer) {
    if (!buffer)
        return;
    BlockHeader header;
    std::memcpy(&header, static_cast<unsigned char*>(buffer) - sizeof(BlockHeader), sizeof(header));
    try {
        QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
        std::vector<void*>& cache = classes_[header.classSize];
        if (cache.size() < kCacheLimit) {
            cache.push_back(header.raw);
            return;
        }
    } catch (const std::bad_alloc&) { // no room in the cache: free the block instead
    }
    std::free(header.raw);
}

std::size_t AlignedBufferPool::CachedBlocks(std::size_t classSize) {
    QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
    const auto it = classes_.find(classSize);
    return it == classes_.end() ? 0 : it->second.size();
}

// Payload buffers for the writer thread, aligned to 4096 bytes so that video payloads can go to the disk
// unbuffered, and recycled by size class so that a steady stream of equal frames allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/critical_section.h"

class AlignedBufferPool {
public:
    static constexpr std::size_t kAlignment = 4096;
    static constexpr std::size_t kCacheLimit = 16;

    AlignedBufferPool() = default;
    ~AlignedBufferPool(); // frees the cached blocks; blocks still handed out must have been released
    AlignedBufferPool(const AlignedBufferPool&) = delete;
    AlignedBufferPool& operator=(const AlignedBufferPool&) = delete;

    // A 4096-aligned buffer of at least size bytes; null when the heap is exhausted.
    void* Allocate(std::uint32_t size);
    // Gives a buffer from Allocate back (any thread).
    void Release(void* buffer);

    // The heap block size behind a request: room for the alignment and the 16-byte bookkeeping header.
    static std::size_t ClassSize(std::uint32_t size) {
        return (size + 2 * kAlignment + 15) / kAlignment * kAlignment;
    }
    std::size_t CachedBlocks(std::size_t classSize);

private:
    QVN::CW32CriticalSection lock_;
    std::map<std::size_t, std::vector<void*>> classes_; // class size -> cached raw blocks
};

// One payload on its way to the writer thread. A null WriteFrame* is the stop marker.
#pragma once

#include <cstdint>

class AlignedBufferPool;

struct WriteFrame {
    std::uint32_t stream;
    std::uint32_t sequence; // 1-based, consecutive per stream
    void* payload;
    std::uint32_t size;
    AlignedBufferPool* pool; // owns the payload
};

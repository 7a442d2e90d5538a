// A buffer whose end touches an inaccessible page, so that a kernel reading or writing past it faults.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvn_test {

class GuardedBuffer {
public:
    // `size` bytes ending at the guard page; the start is moved down to a multiple of 16 when `align16`
    // (leaving at most 15 unused bytes before the guard).
    GuardedBuffer(std::size_t size, bool align16);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    std::uint8_t* data() const { return data_; }

private:
    void* mapping_;
    std::size_t mappingBytes_;
    std::uint8_t* data_;
};

} // namespace qvn_test

// Buffers with canaries around and between destination rows, and random source frames.
#pragma once

#include "reference.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace qvn_test {

inline constexpr std::uint8_t kCanary = 0xA5;
inline constexpr std::size_t kGuardBytes = 128;

// `size` bytes at a 64-byte boundary plus `misalign`, with kGuardBytes of canary before and after.
class Buffer {
public:
    Buffer(std::size_t size, std::size_t misalign);
    std::uint8_t* data() { return data_; }
    const std::uint8_t* data() const { return data_; }
    std::size_t size() const { return size_; }
    const std::vector<std::uint8_t>& storage() const { return storage_; }
    std::size_t offset() const { return static_cast<std::size_t>(data_ - storage_.data()); }

private:
    std::vector<std::uint8_t> storage_;
    std::uint8_t* data_;
    std::size_t size_;
};

struct Frame {
    int depth;
    int width, height;
    std::uint32_t rowBytes;
    Buffer buffer;
    SourceView view() const { return {buffer.data(), rowBytes, depth, width, height}; }
};

// Random components: 8u every value, 16u mostly 0..32768 with the extremes and 65535, 32f mostly 0..1 with
// values outside the range, infinities and NaN.
Frame RandomFrame(int depth, int width, int height, std::uint32_t rowBytes, std::size_t misalign,
                  std::mt19937& rng);

// Every byte of `dst` (guards and row padding included) against canary-filled storage with the expected
// rows written over it in order, as the kernels write them.
::testing::AssertionResult FrameMatches(const Buffer& dst, std::uint32_t rowBytes,
                                        const std::vector<std::vector<std::uint8_t>>& rows);

inline std::uint32_t RoundUp16(std::size_t v) {
    return static_cast<std::uint32_t>((v + 15) / 16 * 16);
}

inline constexpr std::uint32_t kFormats[3] = {0x61726762, 0x61726742, 0x61724742}; // by Depth

} // namespace qvn_test

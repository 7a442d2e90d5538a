#include "test_frames.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace qvn_test {

Buffer::Buffer(std::size_t size, std::size_t misalign)
    : storage_(size + 2 * kGuardBytes + 64 + misalign, kCanary) {
    const auto base = reinterpret_cast<std::uintptr_t>(storage_.data()) + kGuardBytes;
    data_ = reinterpret_cast<std::uint8_t*>((base + 63) / 64 * 64 + misalign);
    size_ = size;
}

Frame RandomFrame(int depth, int width, int height, std::uint32_t rowBytes, std::size_t misalign,
                  std::mt19937& rng) {
    Frame f{depth, width, height, rowBytes, Buffer(static_cast<std::size_t>(rowBytes) * height, misalign)};
    std::uniform_int_distribution<int> byte(0, 255), pick(0, 15), u16(0, 32768);
    std::uniform_real_distribution<float> unit(-0.05f, 1.05f);
    for (int row = 0; row < height; ++row) {
        std::uint8_t* p = f.buffer.data() + static_cast<std::size_t>(row) * rowBytes;
        for (int i = 0; i < width * 4; ++i) {
            if (depth == k8u) {
                p[i] = static_cast<std::uint8_t>(byte(rng));
            } else if (depth == k16u) {
                const int k = pick(rng);
                const int v = k == 0 ? 0 : k == 1 ? 32768 : k == 2 ? 32767 : k == 3 ? 65535 : u16(rng);
                const auto w = static_cast<std::uint16_t>(v);
                std::memcpy(p + 2 * i, &w, 2);
            } else {
                const int k = pick(rng);
                const float v =
                    k == 0   ? 0.0f
                    : k == 1 ? 1.0f
                    : k == 2 ? std::numeric_limits<float>::quiet_NaN()
                    : k == 3 ? std::numeric_limits<float>::infinity() * (byte(rng) < 128 ? 1.0f : -1.0f)
                             : unit(rng);
                std::memcpy(p + 4 * i, &v, 4);
            }
        }
    }
    return f;
}

::testing::AssertionResult FrameMatches(const Buffer& dst, std::uint32_t rowBytes,
                                        const std::vector<std::vector<std::uint8_t>>& rows) {
    std::vector<std::uint8_t> expected(dst.storage().size(), kCanary);
    for (std::size_t n = 0; n < rows.size(); ++n)
        std::memcpy(expected.data() + dst.offset() + n * rowBytes, rows[n].data(), rows[n].size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (expected[i] != dst.storage()[i]) {
            const long rel = static_cast<long>(i) - static_cast<long>(dst.offset());
            return ::testing::AssertionFailure()
                   << "byte " << rel << " (row " << (rel >= 0 ? rel / static_cast<long>(rowBytes) : -1)
                   << ", column " << (rel >= 0 ? rel % static_cast<long>(rowBytes) : rel) << "): expected 0x"
                   << std::hex << int{expected[i]} << ", got 0x" << int{dst.storage()[i]};
        }
    }
    return ::testing::AssertionSuccess();
}

} // namespace qvn_test

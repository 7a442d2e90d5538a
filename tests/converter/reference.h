// Test-side restatements of the converters' arithmetic, written plainly from the formulas, one pixel at a
// time, without sharing any code with the converters.
#pragma once

#include <cstdint>
#include <vector>

namespace qvn_test {

enum Depth { k8u = 0, k16u = 1, k32f = 2 };

struct SourceView {
    const std::uint8_t* base; // first row in memory (bottom of the picture)
    std::uint32_t rowBytes;
    int depth;
    int width, height;
};

// BT.601 / BT.709 studio-range weights: Y, Cb, Cr from R, G, B.
extern const float kSdMatrix[9];
extern const float kHdMatrix[9];

// Expected output rows, top row first, each holding every byte the path writes for a whole row.
std::vector<std::vector<std::uint8_t>> ReferenceV210(const SourceView& src, const float* m, bool vectorPath);
std::vector<std::vector<std::uint8_t>> ReferenceUyvy(const SourceView& src, const float* m, bool vectorPath);
std::vector<std::vector<std::uint8_t>> ReferenceR210(const SourceView& src, bool vectorPath);

// Bytes per row that each path writes (the UYVY vector path writes less on the last row).
std::size_t V210RowExtent(int width, bool vectorPath);
std::size_t UyvyRowExtent(int width, bool vectorPath, bool lastRow);
std::size_t R210RowExtent(int width, int depth, bool vectorPath);

// The table entry for a 16u component, 0..32768.
unsigned R210Code(unsigned index);

} // namespace qvn_test

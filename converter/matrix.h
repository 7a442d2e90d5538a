// The two colour matrices of the YCbCr converters and their selection.
#pragma once

#include <cstdint>

namespace QVN::Converter::Video::detail {

// Slots 0..8: Y, Cb, Cr from R, G, B; the tenth slot of each row is never read.
struct MatrixTable {
    float standardDefinition[10];
    float highDefinition[10];
};

void BuildMatrixTable(MatrixTable& table);

// 1 standard definition, 2 high definition, otherwise by width: 720 or less is standard definition.
const float* SelectMatrix(const MatrixTable& table, std::uint32_t colorMatrix, std::int32_t width);

} // namespace QVN::Converter::Video::detail

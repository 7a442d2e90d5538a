#include "converter/matrix.h"

namespace QVN::Converter::Video::detail {

void BuildMatrixTable(MatrixTable& table) {
    // BT.601 and BT.709 weights scaled for studio range: Y weights sum to 219/255, colour-difference
    // weights peak at 224/510.
    static constexpr float kSd[9] = {0.257f, 0.504f, 0.098f,  -0.148f, -0.291f,
                                     0.439f, 0.439f, -0.368f, -0.071f};
    static constexpr float kHd[9] = {0.183f, 0.614f, 0.062f,  -0.101f, -0.338f,
                                     0.439f, 0.439f, -0.399f, -0.040f};
    for (int i = 0; i < 9; ++i) {
        table.standardDefinition[i] = kSd[i];
        table.highDefinition[i] = kHd[i];
    }
}

const float* SelectMatrix(const MatrixTable& table, std::uint32_t colorMatrix, std::int32_t width) {
    if (colorMatrix == 1) {
        return table.standardDefinition;
    }
    if (colorMatrix == 2) {
        return table.highDefinition;
    }
    return width <= 720 ? table.standardDefinition : table.highDefinition;
}

} // namespace QVN::Converter::Video::detail

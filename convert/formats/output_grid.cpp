#include "formats/output_grid.h"

#include <charconv>
#include <cmath>

namespace zulformats {

OutputGrid outputGrid(const zul_DataType& dataType, const zul_Header2& header, bool applied) {
    OutputGrid grid;
    const double step = dataType.quantizationStep;
    grid.step = step;
    const bool transformed = applied && header.enabled &&
                             (header.hasScaling || header.hasRotation || header.hasTranslation);
    if (!transformed) return grid;
    const double* m = header.transformation;
    const double scale = m[0];
    const bool diagonal = m[1] == 0 && m[2] == 0 && m[4] == 0 && m[6] == 0 && m[8] == 0 &&
                          m[9] == 0 && m[5] == scale && m[10] == scale && scale > 0;
    if (!diagonal) {
        // Rotated: the positions lie on no axis-aligned grid; the scaled step is the spacing.
        grid.step = step * std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
        return grid;
    }
    grid.step = step * scale;
    // (k * 1) * s + t is k * s + t: the terms of a zero element add nothing.
    grid.exact = step == 1.0;
    for (int axis = 0; axis < 3; ++axis) grid.offset[axis] = m[12 + axis];
    return grid;
}

std::string stepText(const zul_DataType& dataType, const zul_Header2& header) {
    const OutputGrid grid = outputGrid(dataType, header, true);
    if (grid.step == static_cast<double>(dataType.quantizationStep)) {
        return shortestDecimal(dataType.quantizationStep);
    }
    return shortestDecimal(grid.step);
}

std::string shortestDecimal(double value) {
    char text[400];
    const std::to_chars_result result =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    return std::string(text, result.ptr);
}

std::string shortestDecimal(float value) {
    char text[64];
    const std::to_chars_result result =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    return std::string(text, result.ptr);
}

int decimalsOfStep(double step) {
    const std::string text = shortestDecimal(step);
    const size_t point = text.find('.');
    return point == std::string::npos ? 0 : static_cast<int>(text.size() - point - 1);
}

}  // namespace zulformats

#include "decoder/normal_centres.h"

#include <cmath>

namespace zullib {

void computeNormalCentre(uint32_t cell, uint32_t row, float* normal) {
    const double t = (static_cast<double>(row) + 0.5) * 0.0078125;
    const double u = t < 1.0 ? t : 1.0;
    const double polar = u * 3.141592653589793;
    // Rows past the last have the last row's clamped angle, and so its count of cells.
    const int clampedRow =
        row < static_cast<uint32_t>(kNormalRows) ? static_cast<int>(row) : kNormalRows;
    const uint32_t cells = static_cast<uint32_t>(computeNormalRowCells(clampedRow));
    const double azimuth =
        (static_cast<double>(cell) + 0.5) / static_cast<double>(cells) * 6.283185307179586;
    const double s = std::sin(polar);
    // Longitude is measured from the -x side of the axis, so both horizontal parts are negated.
    normal[0] = static_cast<float>(-(std::cos(azimuth) * s));
    normal[1] = static_cast<float>(-(std::sin(azimuth) * s));
    normal[2] = static_cast<float>(std::cos(polar));
}

const NormalCentres& NormalCentres::instance() {
    static const NormalCentres table;
    return table;
}

NormalCentres::NormalCentres() {
    uint32_t total = 0;
    for (int row = 0; row < kNormalRows; ++row) {
        rowStart[row] = total;
        rowCells[row] = static_cast<uint32_t>(normalRowCells(row));
        total += rowCells[row];
    }
    centres.resize(3 * static_cast<size_t>(total));
    for (uint32_t row = 0; row < static_cast<uint32_t>(kNormalRows); ++row)
        for (uint32_t cell = 0; cell < rowCells[row]; ++cell)
            computeNormalCentre(cell, row,
                                &centres[3 * (static_cast<size_t>(rowStart[row]) + cell)]);
}

}  // namespace zullib

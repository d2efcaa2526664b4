// The centres of the cells of the spherical normal grid: the unit vector a decoded normal becomes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "frame/normal_grid.h"

namespace zullib {

// The centre of longitude cell `cell` of latitude row `row`, by the defining expressions, in
// double with one rounding to float at each store. Any pair gives a defined result: a row past
// the last one lies at the -z pole, and a cell past the row's end goes on round the circle.
void computeNormalCentre(uint32_t cell, uint32_t row, float* normal);

// The 21,950 centres of the grid, computed once by computeNormalCentre, so that decoding a normal
// costs a look-up instead of five sines and cosines. Pairs outside the grid, which only a damaged
// stream holds, are computed.
class NormalCentres {
public:
    // The one table, built on first use (thread-safe).
    static const NormalCentres& instance();

    void lookUp(uint32_t cell, uint32_t row, float* normal) const {
        if (row < static_cast<uint32_t>(kNormalRows) && cell < rowCells[row]) {
            const float* centre = &centres[3 * (static_cast<size_t>(rowStart[row]) + cell)];
            normal[0] = centre[0];
            normal[1] = centre[1];
            normal[2] = centre[2];
        } else {
            computeNormalCentre(cell, row, normal);
        }
    }

private:
    NormalCentres();

    uint32_t rowStart[kNormalRows];
    uint32_t rowCells[kNormalRows];
    std::vector<float> centres;
};

}  // namespace zullib

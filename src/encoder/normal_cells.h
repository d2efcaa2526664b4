// The cell of a unit direction on the spherical normal grid without atan2 per point. A cheap
// angle picks a candidate row and cell; the candidate is then proven with the boundaries' cosines
// and sines: the direction must lie on the inner side of each boundary of the candidate by a
// margin (1e-9 of the vector's length, the vector taken as it is, not normalised) far above every
// rounding error of this test and of the plain computation (floor of atan2 scaled to rows and
// cells, whose errors stay below 1e-13 of a row or cell). Where the proof fails (near a boundary,
// at a pole, on the meridian of +-pi, NaN, a tiny or huge vector) the caller computes the cell the
// plain way, so both give the same cell for every input.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/normal_grid.h"

namespace zullib {

class NormalCellFinder {
public:
    static const NormalCellFinder& instance();

    // x, y, z: the normal's float components, length: sqrt((x * x + y * y) + z * z), at least
    // 1e-6. True and the cell (longitude cell, latitude row) if proven, else false and nothing
    // written.
    bool find(double x, double y, double z, double length, int32_t (&cell)[2]) const;

private:
    NormalCellFinder();

    // Row boundary k (k = 0..128) lies at the latitude angle (0.5 - k / 128) pi.
    double rowCos_[kNormalRows + 1], rowSin_[kNormalRows + 1];
    // Row r's cell boundary j (j = 0..cells) at the longitude (j / cells - 0.5) 2 pi, from
    // first_[r] on.
    std::vector<double> cellCos_, cellSin_;
    int first_[kNormalRows];
    int cells_[kNormalRows];
};

}  // namespace zullib

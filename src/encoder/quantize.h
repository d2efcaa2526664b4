// The lossy step of the encoder, one value at a time: a position onto the grid of the step, a
// normal onto a cell of the spherical grid.
#pragma once

#include <cstdint>

#include "encoder/normal_cells.h"

namespace zullib {

// Rounds `value` to the nearest multiple of `step`, exact halves towards positive infinity:
// floor((step / 2 + value) / step) in double. A NaN, an infinity or a result beyond 64 bits
// gives INT64_MIN.
int64_t quantizeCoordinate(double value, double step);

// The cell of the normal (x, y, z at `normal`): cell[0] the longitude cell, cell[1] the latitude
// row. The vector need not be of unit length; false (and nothing written) if it is shorter than
// 1e-6. A NaN length passes.
// The cell comes from NormalCellFinder where it can prove it, else from atan2 as in
// quantizeNormalPlain, which gives the same cell for every input (the reference of the tests).
bool quantizeNormal(const float* normal, int32_t (&cell)[2]);
// The same with the finder at hand, for a loop over many normals.
bool quantizeNormal(const float* normal, int32_t (&cell)[2], const NormalCellFinder& finder);
bool quantizeNormalPlain(const float* normal, int32_t (&cell)[2]);

}  // namespace zullib

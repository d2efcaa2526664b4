// The box a decoder's points of a chunk lie in, from the chunk's box in grid units: each corner
// coordinate times the step, then, when the decoder transforms, the matrix's terms summed in the
// decoder's order. Every rounded step is monotonic in each of its inputs, so the smallest and the
// largest result come from the smallest and largest terms: the box holds every decoded point
// exactly, with no margin.
#pragma once

#include <cstdint>

#include "zul.h"

namespace zulbulk {

void outputBox(const int64_t gridMin[3], const int64_t gridMax[3], float step, const double* matrix,
               double min[3], double max[3]);

}  // namespace zulbulk

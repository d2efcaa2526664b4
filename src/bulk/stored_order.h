// The order in which the encoder stores a chunk's points: it sorts them by their grid positions
// in the chunk's slot order, ties as its sort leaves them. The same quantisation, and a sort of
// the points' numbers that the same comparisons decide, give that order without decoding the
// chunk.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/quantized_point.h"
#include "zul.h"

namespace zulbulk {

// Writes to `order[0 .. points.numPoints)` the number of the point of `points` that the chunk
// encoded from them (with `type`) stores k-th, for every k. `records` (the points' slots) and
// `scratch` are working memory kept from chunk to chunk. Returns true when no two points share a
// grid point: the order is then the only sorted one, and the points given to the encoder in it
// are stored as they come; false when some do (their order is that of the points as given).
bool storedOrder(const zul_DataType& type, const zul_PointData& points, uint32_t* order,
                 std::vector<zullib::zul_QuantizedPoint>& records,
                 std::vector<unsigned char>& scratch);

}  // namespace zulbulk

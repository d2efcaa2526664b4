// Strips: bands of a fixed width across one horizontal axis, each cut along its length into
// chunks of equal count. Sorted along its length, a thin strip visits its points as a scan line
// does, so consecutive points are neighbours in colour and reflection too.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

#include "base/limits.h"
#include "planner/cutting.h"
#include "zul.h"

namespace zulplan {

struct StripShape {
    int axis = 0;        // the strips are bands of position[axis]; they run along the other one
    double origin = 0;   // the lowest position[axis] of the block
    double width = 1;    // positive
    double inverse = 1;  // 1 / width
    size_t count = 1;    // bands from origin on, enough for every finite position of the block
    int chunk = zulbase::kDefaultChunkSize;  // most points a chunk
    double maxLength = 0;  // a chunk longer than this is cut further (while it keeps chunk / 8
                           // points); 0: no limit
};

// The band of a position: 0 .. count - 1, or count for a position that is not finite.
inline size_t stripOf(const StripShape& shape, const zul_Point& point) {
    if (!std::isfinite(point.position[0]) || !std::isfinite(point.position[1]) ||
        !std::isfinite(point.position[2]))
        return shape.count;
    // Its floor, taken by the conversion where it is at least 1 (and so is the floor's).
    const double band = (point.position[shape.axis] - shape.origin) * shape.inverse;
    // Positions below the origin or past the last band belong to no block this shape was made
    // for; they join the nearest band rather than index outside.
    if (!(band >= 1)) return 0;
    return band >= static_cast<double>(shape.count) ? shape.count - 1 : static_cast<size_t>(band);
}

// Working memory of cutStrips, kept between calls so that large blocks do not allocate afresh.
struct StripScratch {
    IndexVector bands, starts, next, order;
    std::vector<double> low, high;
};

// Cuts the points `indices` (of `points`, all within the shape's bands) into strips and each strip
// into chunks along its length, appending them to `cutting`. Points with a coordinate that is not
// finite form chunks of their own. With `finest`, the band of points[i] is finest[i] >> shift
// (UINT64_MAX: not finite) rather than worked out: the bands of a shape 2^shift times finer and
// otherwise alike, which fall on the shape's own.
void cutStrips(const zul_Point* points, const IndexVector& indices, const StripShape& shape,
               Cutting& cutting, StripScratch& scratch, const uint64_t* finest = nullptr,
               int shift = 0);

}  // namespace zulplan

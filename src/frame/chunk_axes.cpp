#include "frame/chunk_axes.h"

#include "frame/bit_length.h"
#include "frame/wrapping.h"

namespace zullib {

ChunkAxes chunkAxes(const BoundingBox3d<long long>& box) {
    const int64_t ex = wrappingSub(box.max[0], box.min[0]);
    const int64_t ey = wrappingSub(box.max[1], box.min[1]);
    const int64_t ez = wrappingSub(box.max[2], box.min[2]);

    ChunkAxes axes;
    int* remap = axes.axisRemap;
    if (ex < ey) {
        remap[0] = ey < ez ? 2 : 1;
        remap[1] = ex < ez ? 0 : 2;
    } else {
        remap[0] = ex < ez ? 2 : 0;
        remap[1] = ey < ez ? 1 : 2;
    }
    remap[2] = 3 - remap[0] - remap[1];

    // The slot box is built by extending the empty box with both corners, permuted. For a box
    // with points that is the min and max of each slot's axis; the empty box of a chunk without
    // points comes out as the whole 64-bit range.
    BoundingBox3d<long long> slots;
    const long long low[3] = {box.min[remap[0]], box.min[remap[1]], box.min[remap[2]]};
    const long long high[3] = {box.max[remap[0]], box.max[remap[1]], box.max[remap[2]]};
    slots.extend(low);
    slots.extend(high);
    for (int k = 0; k < 3; ++k) {
        axes.coordinateBits[k] =
            bitLength(static_cast<uint64_t>(slots.max[k]) - static_cast<uint64_t>(slots.min[k]));
        axes.slotMin[k] = slots.min[k];
    }
    return axes;
}

}  // namespace zullib

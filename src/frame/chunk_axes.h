// How a chunk's box lays out its coordinate slots. Neither the axis order nor the widths are
// stored: the encoder and the decoder both derive them from the box in the chunk header, so the
// rule, ties included, is part of the format.
#pragma once

#include <cstdint>

#include "frame/bounding_box.h"

namespace zullib {

struct ChunkAxes {
    int axisRemap[3];       // axisRemap[k]: the axis (0 x, 1 y, 2 z) held in slot k
    int coordinateBits[3];  // bits that hold every shifted value of slot k, 0 to 64
    int64_t slotMin[3];     // the box minimum of slot k, subtracted by the shift
};

// Slot 0 takes the axis of largest extent, slot 1 the axis of smallest extent, slot 2 the other.
// Extents are max - min, wrapping at 64 bits and compared as signed numbers.
ChunkAxes chunkAxes(const BoundingBox3d<long long>& box);

}  // namespace zullib

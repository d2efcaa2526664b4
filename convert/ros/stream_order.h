// The order in which a chunk's points come out of the stream. The encoder of the core sorts a
// chunk by its grid coordinates, the axis of largest extent first, then the smallest, then the
// other (ties between extents resolved as the stream format fixes them); points on the same grid
// position come out in no defined order. The message codec puts such points in the order of their
// colour and reflection, on both sides, so that the order of a chunk is known from its points.
#pragma once

#include <cstdint>
#include <vector>

namespace zul::ros {

struct OrderKey {
    int64_t slot[3];  // grid x, y, z on input
    uint32_t color;   // red << 16 | green << 8 | blue
    int32_t reflection;
    uint32_t local;  // place in the chunk's message order
};

// Sorts a chunk's keys into the order the decoder gives the points back.
void sortAsStored(std::vector<OrderKey>& keys);

// Puts points the decoder gave back on the same position into the order of their colour and
// reflection: `order` (0 to n - 1) is permuted within runs of equal positions. `colors` and
// `reflections` may be null when the stream lacks them. Returns false, with `order` untouched,
// when the order is 0 to n - 1 (no two points share a position, or there is nothing to order by).
bool settleTies(const double* positions, const uint8_t* colors, const int32_t* reflections,
                uint32_t n, std::vector<uint32_t>& order);

}  // namespace zul::ros

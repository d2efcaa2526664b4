// k-d cells: the points are halved again and again along the axis of largest extent, the first
// part always a whole number of chunks, until a part fits in one chunk. Square-ish cells suit
// dense clouds such as those of depth cameras. The splits work on a copy of the positions
// beside the indices (32 bytes a point).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "planner/cutting.h"
#include "planner/large_pages.h"
#include "zul.h"

namespace zulplan {

// A point's position beside its index: what the splits work on.
struct KdItem {
    double position[3];
    uint32_t index;
};

// Working memory of the cells, kept between calls so that large blocks do not allocate afresh.
using KdScratch = LargeVector<KdItem>;

// Orders `indices` (of `points`) so that every run of `chunk` (at least 1) points is one cell,
// only the last run shorter, and appends the runs to `cutting` as chunks. Deterministic.
void cutKdCells(const zul_Point* points, const IndexVector& indices, int chunk, Cutting& cutting,
                KdScratch& scratch);

// Whole subtrees of the cells of `indices`, about `parts` of them spread over the tree, each of
// at most `target` points unless one cell is larger, appended to `cutting` as their cells; returns
// the points they hold. The tree is split on every side down to `parts` branches, and each branch
// followed down one side, alternately the first and the second part. Their cells are those that
// cutKdCells makes of the same points; where a branch spans several chunks of 512 points or more,
// the branches are found on every 16th point and hold the points that lie where those did, at the
// block's full density, which is what a sample must show (about the same cells, a fraction of the
// passes over the block).
size_t kdSample(const zul_Point* points, const IndexVector& indices, int chunk, size_t target,
                size_t parts, Cutting& cutting, KdScratch& scratch);

// Reorders `points` in place so that points [k * chunk, (k + 1) * chunk) form one cell.
void orderForChunks(std::vector<zul_Point>& points, int chunk);

}  // namespace zulplan

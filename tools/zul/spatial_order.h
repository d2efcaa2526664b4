// Spatially compact chunks: the writer cuts a file into chunks of a fixed number of points in the
// order it is given them, and a chunk whose points lie close together codes its coordinates in
// fewer bits. Before writing, the points are ordered so that every run of `chunk` points is one
// cell of a k-d split: the points are halved again and again along the axis of largest extent,
// the first part always a whole number of chunks, until a part fits in one chunk.
#pragma once

#include <cstddef>
#include <vector>

#include "zul.h"

namespace zultool {

// Reorders `points` in place so that points [k * chunk, (k + 1) * chunk) form one cell; only the
// last run may be shorter. `chunk` is at least 1. Deterministic for a given input.
void orderForChunks(std::vector<zul_Point>& points, int chunk);

// How many points a block may hold within `budgetBytes`: a whole number of chunks, at least one.
size_t blockCapacity(size_t budgetBytes, int chunk);

}  // namespace zultool

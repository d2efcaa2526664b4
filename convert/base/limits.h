// The limits and defaults that the conversions, the planner, the command line, the Python package
// and the benchmarks share, each written once here.
#pragma once

#include <cstdint>

namespace zulbase {

// Points a chunk holds unless told otherwise: the library's own default (zul_out_) too.
constexpr int kDefaultChunkSize = 10000;
// The most points a chunk may hold (a chunk's count is a 32-bit integer the format reads back
// with one to spare).
constexpr int kMaxChunkSize = 2147483646;
// Whether `points` is a chunk size the conversions take: 1 to kMaxChunkSize.
constexpr bool chunkSizeValid(int64_t points) { return points >= 1 && points <= kMaxChunkSize; }

// Memory for a block of points being cut into chunks, in MiB, unless told otherwise.
constexpr int kDefaultOrderBudgetMiB = 256;

}  // namespace zulbase

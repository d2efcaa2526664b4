// The limits and defaults that the conversions, the planner, the command line, the Python package
// and the benchmarks share, each written once here.
#pragma once

#include <cstdint>

#include "zul.h"
#include "zul_bulk.h"

namespace zulbase {

// Points a chunk holds unless told otherwise: the library's own default (zul_out_).
constexpr int kDefaultChunkSize = ZUL_DEFAULT_CHUNK_SIZE;
// The most points a chunk may hold (a chunk's count is a 32-bit integer the format reads back
// with one to spare).
constexpr int kMaxChunkSize = ZUL_MAX_CHUNK_SIZE;
// Whether `points` is a chunk size the conversions take: 1 to kMaxChunkSize.
constexpr bool chunkSizeValid(int64_t points) { return points >= 1 && points <= kMaxChunkSize; }

// Memory for a block of points being cut into chunks, in MiB, unless told otherwise.
constexpr int kDefaultOrderBudgetMiB = 256;

// What a reader may allocate to decode one chunk, in MiB, unless told otherwise: the chunk index's
// own default (ZUL_BULK_DEFAULT_CHUNK_BUDGET). A chunk that claims more points is refused before
// anything is allocated; the largest budget taken is 1 TiB.
constexpr int64_t kDefaultChunkBudgetMiB = ZUL_BULK_DEFAULT_CHUNK_BUDGET >> 20;
constexpr int64_t kMaxChunkBudgetMiB = int64_t{1} << 20;
constexpr bool chunkBudgetValid(int64_t mib) { return mib >= 1 && mib <= kMaxChunkBudgetMiB; }

// Points a reader lets a file claim for each of its bytes beyond ZUL_BULK_DENSITY_ALLOWANCE,
// unless told otherwise (the chunk index's own default); 0 lifts the limit.
constexpr int64_t kDefaultPointDensity = ZUL_BULK_DEFAULT_POINT_DENSITY;
constexpr int64_t kMaxPointDensity = ZUL_BULK_MAX_POINT_DENSITY;
constexpr bool pointDensityValid(int64_t density) {
    return density >= 0 && density <= kMaxPointDensity;
}

}  // namespace zulbase

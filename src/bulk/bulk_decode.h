// Decoding a list of chunks into contiguous arrays on several threads.
#pragma once

#include <cstdint>

#include "bulk/chunk_index.h"

namespace zulbulk {

// The arguments are checked: every number is in the index's list, the arrays are there and have
// room for every point, `threads` is not negative. Returns the status of the first chunk of the
// list that failed, with its position in the list in `*failedAt`, or zul_STATUS_OK with -1;
// `*delivered` gets the points of the chunks before it.
zul_Status decodeChunks(const zul_idx_IndexStruct& index, const int64_t* chunks, int64_t numChunks,
                        int threads, const zul_bulk_Points& points, int64_t* failedAt,
                        int64_t* delivered);

}  // namespace zulbulk

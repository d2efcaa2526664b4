// Encoding planned chunks of contiguous arrays on several threads, delivered in plan order.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "zul_bulk.h"

namespace zulbulk {

// One chunk of the plan: its first point and its count.
struct PlannedChunk {
    int64_t first;
    int32_t count;
};

// Encodes every chunk of `plan` from `points` (arrays checked by the caller), encoder i on
// worker i (as many workers as encoders, at least one; all carry one stream's marker), and hands
// the chunks' bytes to `write` one after another in plan order. Returns the status of the first
// chunk that failed (zul_STATUS_WRITE_ERROR when `write` returns false), with its number in
// `*failedAt`, or zul_STATUS_OK with -1; the chunks before it were all written, none after it.
// A non-null `storedOrder` gets, at each chunk's first point, the order the chunk stores its
// points in (storedOrder, stored_order.h), for the chunks written; found before the chunk is
// encoded, it spares the encoder its sort where no two points share a grid point.
zul_Status encodeChunks(const std::vector<zul_enc_Context>& encoders, const zul_bulk_Points& points,
                        const std::vector<PlannedChunk>& plan,
                        const std::function<bool(const char*, size_t)>& write,
                        uint32_t* storedOrder, int64_t* failedAt);

}  // namespace zulbulk

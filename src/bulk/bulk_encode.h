// Encoding contiguous arrays into a file on several threads.
#pragma once

#include <cstdint>
#include <vector>

#include "zul_bulk.h"

namespace zulbulk {

// One chunk of the plan: its first point and its count.
struct PlannedChunk {
    int64_t first;
    int32_t count;
};

// The arguments are checked (the records are valid, the arrays are there, the plan covers every
// point once). Returns the status of the first chunk that failed, with its number in `*failedAt`,
// or zul_STATUS_OK with -1; the file holds the chunks before it.
zul_Status encodeFile(const char* path, const zul_DataType& dataType, const zul_Header2* header,
                      const zul_bulk_Points& points, const std::vector<PlannedChunk>& plan,
                      int threads, int64_t* failedAt);

}  // namespace zulbulk

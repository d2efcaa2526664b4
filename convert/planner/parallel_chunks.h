// The chunks of a cutting encoded on several threads, each with its own encoder, and handed on in
// order: the same bytes as one encoder makes for the same chunks. Every chunk carries the
// stream's one sync marker: an encoder draws its own, so the marker that opens each chunk is
// replaced with the stream's. At most two chunks a thread wait to be handed on.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "planner/chunk_encoding.h"
#include "planner/cutting.h"
#include "zul.h"

namespace zulplan {

// Bytes of the sync marker that opens a chunk.
constexpr size_t kSyncMarkerBytes = 16;

class ParallelChunks {
public:
    // `threads` encoders (2 or more) of streams of `type` with the optional sensor `header`,
    // writing `marker` (kSyncMarkerBytes) at the head of each chunk. The outcome of opening them is
    // status().
    ParallelChunks(const zul_DataType& type, const zul_Header2* header, int threads,
                   const char* marker);
    ~ParallelChunks();
    ParallelChunks(const ParallelChunks&) = delete;
    ParallelChunks& operator=(const ParallelChunks&) = delete;

    zul_Status status() const { return opened_; }

    // Encodes the chunks of `cutting` of `points` and hands each to `sink`, in order; stops at
    // the first failure of an encoder or of the sink and returns it.
    using Sink = std::function<zul_Status(const char* bytes, size_t size)>;
    zul_Status encode(const zul_Point* points, const Cutting& cutting, const Sink& sink);

private:
    std::vector<std::unique_ptr<ChunkEncoder>> encoders_;
    std::vector<char> marker_;
    zul_Status opened_ = zul_STATUS_OK;
};

}  // namespace zulplan

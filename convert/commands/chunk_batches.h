// The chunks of a zul file decoded through its chunk index, a batch at a time, on several
// threads: a few chunks a thread, so that memory stays bounded whatever the file's size, and the
// points in chunk order, the order a point-by-point reader gives them. With more than one thread
// the next batch decodes while the caller works on this one. A chunk that claims more
// points than a batch holds is decoded alone by the in-memory decoder, whose arrays grow only as
// points really decode: a forged count costs no memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/point_columns.h"
#include "base/worker_threads.h"
#include "zul_bulk.h"

namespace zulconvert {

// Owns an index and closes it.
struct IndexGuard {
    zul_idx_Index index = nullptr;
    IndexGuard() = default;
    IndexGuard(const IndexGuard&) = delete;
    IndexGuard& operator=(const IndexGuard&) = delete;
    ~IndexGuard() { zul_idx_close(&index); }
};

class ChunkBatches {
public:
    // Decodes `chunks` (numbers in `index`, in the order given) on `threads` threads (0: one a
    // core, as the bulk calls count them). `path` and `applyTransformation` are those the index
    // was opened with.
    ChunkBatches(const std::string& path, zul_idx_Index index, bool applyTransformation,
                 std::vector<int64_t> chunks, int threads);
    ~ChunkBatches();
    ChunkBatches(const ChunkBatches&) = delete;
    ChunkBatches& operator=(const ChunkBatches&) = delete;

    // Decodes the next batch; false when every chunk is done or a chunk failed before. After a
    // failure status() names it, and the batch holds the points of its chunks before it.
    bool next();

    zul_Status status() const { return status_; }
    // The number (in the index) of the chunk that failed, or -1.
    int64_t failedChunk() const { return failedChunk_; }
    // The points of the batch: numPoints of them, chunk after chunk.
    const zul_bulk_Points& points() const { return points_; }
    // The chunks of the batch and, with a failure, how many of them were delivered whole.
    const int64_t* batchChunks() const { return chunks_.data() + begin_; }
    size_t batchSize() const { return end_ - begin_; }
    size_t deliveredChunks() const;

private:
    struct Buffer {
        zulbase::PointColumns columns;
        zul_bulk_Points points = {};
        zul_Status status = zul_STATUS_OK;
        int64_t failedChunk = -1;
    };

    size_t beginOf(size_t batch) const { return batch == 0 ? 0 : ends_[batch - 1]; }
    bool alone(size_t batch) const;  // a chunk too large for a batch, decoded alone
    void decodeInto(size_t batch, Buffer& buffer);
    zul_Status decodeAlone(int64_t number);

    std::string path_;
    bool applyTransformation_;
    zulbase::PointColumns alone_;  // the points of a chunk decoded alone
    zul_idx_Index index_;
    std::vector<int64_t> chunks_;
    int threads_;
    std::vector<size_t> ends_;  // where each batch ends in chunks_
    size_t batch_ = 0, begin_ = 0, end_ = 0;
    zul_Status status_ = zul_STATUS_OK;
    int64_t failedChunk_ = -1;
    Buffer buffers_[2];  // batch b decodes into buffers_[b % 2]
    bool prefetch_ = false;
    zulbase::WorkerThreads pending_;  // decoding batch batch_ ahead of the caller
    size_t pendingBatch_ = SIZE_MAX;
    zul_bulk_Points points_ = {};
};

}  // namespace zulconvert

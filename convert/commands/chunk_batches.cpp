#include "commands/chunk_batches.h"

#include <algorithm>
#include <new>
#include <thread>

namespace zulconvert {

namespace {

// Chunks a thread decodes in a batch, and the points a batch holds beyond its first chunk: a few
// chunks a thread, tens of megabytes.
constexpr size_t kChunksPerThread = 6;
constexpr int64_t kBatchPoints = int64_t{1} << 21;

}  // namespace

ChunkBatches::ChunkBatches(const std::string& path, zul_idx_Index index, bool applyTransformation,
                           std::vector<int64_t> chunks, int threads)
    : path_(path),
      applyTransformation_(applyTransformation),
      index_(index),
      chunks_(std::move(chunks)),
      threads_(threads) {
    const size_t perBatch = kChunksPerThread * static_cast<size_t>(zulbase::threadsFor(threads));
    int64_t room = 0;
    for (size_t at = 0; at < chunks_.size();) {
        int64_t points = 0;
        size_t end = at;
        while (end < chunks_.size() && end - at < perBatch) {
            zul_idx_Chunk chunk;
            status_ = zul_idx_getChunk(index_, chunks_[end], &chunk);
            if (status_ != zul_STATUS_OK) return;
            if (end > at && points + chunk.numPoints > kBatchPoints) break;
            points += chunk.numPoints;
            ++end;
        }
        ends_.push_back(end);
        if (points <= kBatchPoints) room = std::max(room, points);
        at = end;
    }
    zul_DataType type;
    status_ = zul_idx_getDataType(index_, &type, nullptr);
    if (status_ != zul_STATUS_OK) return;
    prefetch_ = zulbase::threadsFor(threads) > 1 && ends_.size() > 1;
    const size_t n = static_cast<size_t>(room);
    for (Buffer& buffer : buffers_) {
        buffer.columns.resize(type, n);
        if (!prefetch_) break;
    }
}

bool ChunkBatches::alone(size_t batch) const {
    zul_idx_Chunk first = {};
    zul_idx_getChunk(index_, chunks_[beginOf(batch)], &first);
    return first.numPoints > kBatchPoints;
}

void ChunkBatches::decodeInto(size_t batch, Buffer& buffer) {
    zul_bulk_Points& points = buffer.points;
    zulbase::PointColumns& columns = buffer.columns;
    points.numPoints = static_cast<int64_t>(columns.size());
    points.positions = columns.positionData();
    points.colors = columns.colorData();
    points.reflections = columns.reflectionData();
    points.normals = columns.normalData();
    const size_t begin = beginOf(batch);
    buffer.status = zul_bulk_decodeChunks(index_, chunks_.data() + begin,
                                          static_cast<int64_t>(ends_[batch] - begin), threads_,
                                          &points, &buffer.failedChunk);
}

ChunkBatches::~ChunkBatches() {
    try {
        pending_.join();
    } catch (...) {  // nothing to hand on any more
    }
}

bool ChunkBatches::next() {
    if (status_ != zul_STATUS_OK || batch_ == ends_.size()) return false;
    pending_.join();
    begin_ = beginOf(batch_);
    end_ = ends_[batch_];
    if (alone(batch_)) {
        status_ = decodeAlone(chunks_[begin_]);
        failedChunk_ = status_ == zul_STATUS_OK ? -1 : chunks_[begin_];
    } else {
        Buffer& buffer = buffers_[prefetch_ ? batch_ % 2 : 0];
        if (pendingBatch_ != batch_) decodeInto(batch_, buffer);
        points_ = buffer.points;
        status_ = buffer.status;
        failedChunk_ = buffer.failedChunk;
    }
    ++batch_;
    if (prefetch_ && status_ == zul_STATUS_OK && batch_ < ends_.size() && !alone(batch_)) {
        // Without a thread to spare, the batch is decoded when it is due.
        const size_t batch = batch_;
        const bool started = pending_.start(0, 1, [this, batch](int) {
            decodeInto(batch, buffers_[batch % 2]);
        }) == 1;
        pendingBatch_ = started ? batch_ : SIZE_MAX;
    }
    return true;
}

zul_Status ChunkBatches::decodeAlone(int64_t number) {
    points_ = {};
    zul_idx_Chunk chunk = {};
    zul_Status status = zul_idx_getChunk(index_, number, &chunk);
    if (status != zul_STATUS_OK) return status;
    zul_DataType type;
    status = zul_idx_getDataType(index_, &type, nullptr);
    if (status != zul_STATUS_OK) return status;
    // The index listed the chunk within its budget: its claimed count may be allocated.
    try {
        alone_.resize(type, static_cast<size_t>(chunk.numPoints));
    } catch (const std::bad_alloc&) {
        return zul_STATUS_OUT_OF_MEMORY;
    }
    zul_bulk_Points points = {};
    points.numPoints = chunk.numPoints;
    points.positions = alone_.positionData();
    points.colors = alone_.colorData();
    points.reflections = alone_.reflectionData();
    points.normals = alone_.normalData();
    status = zul_bulk_decodeChunks(index_, &number, 1, 1, &points, nullptr);
    if (status == zul_STATUS_OK) points_ = points;
    return status;
}

size_t ChunkBatches::deliveredChunks() const {
    if (status_ == zul_STATUS_OK) return batchSize();
    const int64_t* first = batchChunks();
    return static_cast<size_t>(std::find(first, first + batchSize(), failedChunk_) - first);
}

}  // namespace zulconvert

// Workers take chunks from the list in order through one counter. Each reads a chunk by offset
// into a buffer of its own, checks its marker, and has its own decoder decode header and body
// straight into the chunk's place in the arrays, known in advance from the counts, refusing
// points outside the chunk's box. After a failure no chunk behind the failed one is started; the
// ones before it all complete. A failed allocation fails its chunk like damage does.
#include "bulk/bulk_decode.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "bulk/worker_threads.h"
#include "decoder/dec_context.h"
#include "frame/data_check.h"

namespace zulbulk {

namespace {

struct DecoderOwner {
    zul_dec_Context context = nullptr;
    ~DecoderOwner() { zul_dec_close(&context); }
};

class DecodeRun {
public:
    DecodeRun(const zul_idx_IndexStruct& index, const int64_t* chunks, int64_t numChunks,
              const zul_bulk_Points& points)
        : index_(index), chunks_(chunks), numChunks_(numChunks), points_(points) {
        firstPoint_.resize(static_cast<size_t>(numChunks) + 1);
        for (int64_t k = 0; k < numChunks; ++k)
            firstPoint_[k + 1] = firstPoint_[k] + index.chunks[chunks[k]].numPoints;
        failedAt_ = numChunks;
    }

    int64_t totalPoints() const { return firstPoint_.back(); }
    int64_t failedAt() const { return failedAt_; }
    zul_Status failure() const { return failure_; }
    int64_t delivered() const { return firstPoint_[failedAt_]; }

    void work() {
        DecoderOwner decoder;
        std::vector<char> buffer;
        zul_Status opened = zul_STATUS_OUT_OF_MEMORY;
        try {
            opened = index_.openDecoder(&decoder.context);
        } catch (const std::bad_alloc&) {
        }
        for (;;) {
            const int64_t k = next_.fetch_add(1);
            if (k >= numChunks_ || k > failedAt_.load()) return;
            zul_Status status = opened;
            if (opened == zul_STATUS_OK) {
                try {
                    status = decodeOne(decoder.context, buffer, k);
                } catch (const std::bad_alloc&) {
                    status = zul_STATUS_OUT_OF_MEMORY;
                }
            }
            if (status != zul_STATUS_OK) fail(k, status);
        }
    }

    // Stops at once: no new chunk is started (after an exception).
    void stop() { fail(0, zul_STATUS_READ_ERROR); }

private:
    void fail(int64_t k, zul_Status status) {
        std::lock_guard<std::mutex> lock(failureLock_);
        if (k < failedAt_.load() || failure_ == zul_STATUS_OK) {
            failedAt_ = k;
            failure_ = status;
        }
    }

    zul_Status decodeOne(zul_dec_Context decoder, std::vector<char>& buffer, int64_t k) {
        const zul_idx_Chunk& chunk = index_.chunks[chunks_[k]];
        if (buffer.size() < static_cast<size_t>(chunk.size))
            buffer.resize(static_cast<size_t>(chunk.size));
        zul_Status status = index_.source.read(chunk.offset, chunk.size, buffer.data());
        if (status != zul_STATUS_OK) return status;
        // The bytes are read again, so they are judged again: the file may have changed.
        ZUL_REFUSE_UNLESS(std::memcmp(buffer.data(), index_.syncMarker, ZUL_SYNC_MARKER_SIZE) == 0);
        int bodySize = 0;
        status =
            zul_dec_decodeChunkHeader(decoder, &bodySize, buffer.data() + ZUL_SYNC_MARKER_SIZE);
        if (status != zul_STATUS_OK) return status;
        const int64_t headSize = ZUL_SYNC_MARKER_SIZE + index_.chunkHeaderSize;
        ZUL_REFUSE_UNLESS(bodySize == chunk.size - headSize);
        // The room is the count listed (within the budget): the header read now must say the same.
        int numPoints = 0;
        zul_dec_getNumPointsInChunk(decoder, &numPoints);
        ZUL_REFUSE_UNLESS(numPoints == chunk.numPoints);
        const size_t first = static_cast<size_t>(firstPoint_[k]);
        const zul_PointData target = {numPoints, points_.positions + 3 * first,
                                      points_.colors ? points_.colors + 3 * first : nullptr,
                                      points_.reflections ? points_.reflections + first : nullptr,
                                      points_.normals ? points_.normals + 3 * first : nullptr};
        return decoder->decodeChunkBodyInto(target, buffer.data() + headSize,
                                            /*refuseOutsideBox=*/true);
    }

    const zul_idx_IndexStruct& index_;
    const int64_t* chunks_;
    int64_t numChunks_;
    zul_bulk_Points points_;
    std::vector<int64_t> firstPoint_;
    std::atomic<int64_t> next_{0};
    std::atomic<int64_t> failedAt_{0};
    std::mutex failureLock_;
    zul_Status failure_ = zul_STATUS_OK;
};

bool arraysMissing(const zul_DataType& type, const zul_bulk_Points& points) {
    return !points.positions || (type.colorMode != zul_COLOR_NONE && !points.colors) ||
           (type.reflectionMode != zul_REFLECTION_NONE && !points.reflections) ||
           (type.normalMode != zul_NORMAL_NONE && !points.normals);
}

}  // namespace

zul_Status decodeChunks(const zul_idx_IndexStruct& index, const int64_t* chunks, int64_t numChunks,
                        int threads, const zul_bulk_Points& points, int64_t* failedAt,
                        int64_t* delivered) {
    *failedAt = -1;
    *delivered = 0;
    DecodeRun run(index, chunks, numChunks, points);
    if (run.totalPoints() > points.numPoints) return zul_STATUS_INVALID_ARGUMENT;
    if (run.totalPoints() > 0 && arraysMissing(index.dataType, points))
        return zul_STATUS_INVALID_ARGUMENT;
    runWorkers(
        resolveThreads(threads, numChunks, run.totalPoints()), [&](int) { run.work(); },
        [&] { run.stop(); });
    *delivered = run.delivered();
    if (run.failure() == zul_STATUS_OK) return zul_STATUS_OK;
    *failedAt = run.failedAt();
    return run.failure();
}

}  // namespace zulbulk

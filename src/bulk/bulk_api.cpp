// The exported zul_bulk_ functions of reading: arguments are judged here, before any thread
// starts.
#include <memory>
#include <vector>

#include "bulk/bulk_decode.h"
#include "bulk/chunk_index.h"
#include "bulk/status_guard.h"
#include "zul_bulk.h"

namespace {

void setFailed(int64_t* failedChunk, int64_t value) {
    if (failedChunk) *failedChunk = value;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_bulk_allocate(zul_idx_Index index, int64_t numPoints,
                                     zul_bulk_Points* points) {
    if (!index || !points || numPoints < 0) return zul_STATUS_INVALID_ARGUMENT;
    if (!index->isOpen) return zul_STATUS_INVALID_STATE;
    const zul_DataType& type = index->dataType;
    // Three values a point must fit in a size_t byte count, else no allocation is tried.
    if (static_cast<uint64_t>(numPoints) > SIZE_MAX / (3 * sizeof(double)))
        return zul_STATUS_OUT_OF_MEMORY;
    const size_t n = static_cast<size_t>(numPoints);
    return zulbulk::guardStatus([&] {
        // Owned until every array is there, so that a failed allocation leaks nothing.
        std::unique_ptr<double[]> positions(new double[3 * n]);
        std::unique_ptr<uint8_t[]> colors(type.colorMode != zul_COLOR_NONE ? new uint8_t[3 * n]
                                                                           : nullptr);
        std::unique_ptr<int32_t[]> reflections(
            type.reflectionMode != zul_REFLECTION_NONE ? new int32_t[n] : nullptr);
        std::unique_ptr<float[]> normals(type.normalMode != zul_NORMAL_NONE ? new float[3 * n]
                                                                            : nullptr);
        *points = {numPoints, positions.release(), colors.release(), reflections.release(),
                   normals.release()};
        return zul_STATUS_OK;
    });
}

ZUL_API void zul_bulk_free(zul_bulk_Points* points) {
    if (!points) return;
    delete[] points->positions;
    delete[] points->colors;
    delete[] points->reflections;
    delete[] points->normals;
    *points = {};
}

ZUL_API zul_Status zul_bulk_decode(zul_idx_Index index, int threads, zul_bulk_Points* points,
                                   int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!index) return zul_STATUS_INVALID_ARGUMENT;
    std::vector<int64_t> all;
    const zul_Status listed = zulbulk::guardStatus([&] {
        all.resize(index->chunks.size());
        return zul_STATUS_OK;
    });
    if (listed != zul_STATUS_OK) return listed;
    for (size_t k = 0; k < all.size(); ++k) all[k] = static_cast<int64_t>(k);
    const zul_Status status = zul_bulk_decodeChunks(
        index, all.data(), static_cast<int64_t>(all.size()), threads, points, failedChunk);
    if (status != zul_STATUS_OK || index->damage == zul_STATUS_OK) return status;
    setFailed(failedChunk, static_cast<int64_t>(all.size()));
    return index->damage;
}

ZUL_API zul_Status zul_bulk_decodeChunks(zul_idx_Index index, const int64_t* chunks,
                                         int64_t numChunks, int threads, zul_bulk_Points* points,
                                         int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!index || !points || numChunks < 0 || (!chunks && numChunks > 0) || threads < 0)
        return zul_STATUS_INVALID_ARGUMENT;
    if (!index->isOpen) return zul_STATUS_INVALID_STATE;
    const int64_t listed = static_cast<int64_t>(index->chunks.size());
    for (int64_t k = 0; k < numChunks; ++k) {
        if (chunks[k] < 0 || chunks[k] >= listed) return zul_STATUS_INVALID_ARGUMENT;
    }
    int64_t failedAt = -1, delivered = 0;
    const zul_Status status = zulbulk::guardStatus([&] {
        return zulbulk::decodeChunks(*index, chunks, numChunks, threads, *points, &failedAt,
                                     &delivered);
    });
    if (status == zul_STATUS_INVALID_ARGUMENT) return status;
    points->numPoints = delivered;
    if (failedAt >= 0) setFailed(failedChunk, chunks[failedAt]);
    return status;
}

}  // extern "C"

// The exported zul_bulk_ functions: arguments are judged here, before any thread starts.
#include <memory>
#include <vector>

#include "bulk/bulk_decode.h"
#include "bulk/bulk_encode.h"
#include "bulk/chunk_index.h"
#include "frame/data_type.h"
#include "frame/header2.h"
#include "zul_bulk.h"

namespace {

// The file writer's default and largest chunk sizes.
const int32_t kDefaultChunkSize = 10000;
const int32_t kMaxChunkSize = 2147483646;

void setFailed(int64_t* failedChunk, int64_t value) {
    if (failedChunk) *failedChunk = value;
}

bool arraysMissing(const zul_DataType& type, const zul_bulk_Points& points) {
    return !points.positions || (type.colorMode != zul_COLOR_NONE && !points.colors) ||
           (type.reflectionMode != zul_REFLECTION_NONE && !points.reflections) ||
           (type.normalMode != zul_NORMAL_NONE && !points.normals);
}

// Cuts the points into chunks as the arguments say; false for a plan that breaks the rules.
bool makePlan(int64_t numPoints, const int32_t* chunkSizes, int64_t numChunks, int32_t chunkSize,
              std::vector<zulbulk::PlannedChunk>& plan) {
    if (chunkSizes) {
        int64_t first = 0;
        plan.reserve(static_cast<size_t>(numChunks));
        for (int64_t k = 0; k < numChunks; ++k) {
            const int32_t count = chunkSizes[k];
            if (count < 1 || count > kMaxChunkSize || count > numPoints - first) return false;
            plan.push_back({first, count});
            first += count;
        }
        return first == numPoints;
    }
    if (numChunks != 0 || chunkSize < 0 || chunkSize > kMaxChunkSize) return false;
    const int32_t size = chunkSize == 0 ? kDefaultChunkSize : chunkSize;
    plan.reserve(static_cast<size_t>((numPoints + size - 1) / size));
    for (int64_t first = 0; first < numPoints; first += size)
        plan.push_back({first, static_cast<int32_t>(std::min<int64_t>(size, numPoints - first))});
    return true;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_bulk_allocate(zul_idx_Index index, int64_t numPoints,
                                     zul_bulk_Points* points) {
    if (!index || !points || numPoints < 0) return zul_STATUS_INVALID_ARGUMENT;
    if (!index->isOpen) return zul_STATUS_INVALID_STATE;
    const zul_DataType& type = index->dataType;
    const size_t n = static_cast<size_t>(numPoints);
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
    std::vector<int64_t> all(index->chunks.size());
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
    const zul_Status status =
        zulbulk::decodeChunks(*index, chunks, numChunks, threads, *points, &failedAt, &delivered);
    if (status == zul_STATUS_INVALID_ARGUMENT) return status;
    points->numPoints = delivered;
    if (failedAt >= 0) setFailed(failedChunk, chunks[failedAt]);
    return status;
}

ZUL_API zul_Status zul_bulk_encodeFile(const char* path, const zul_DataType* dataType,
                                       const zul_Header2* header, const zul_bulk_Points* points,
                                       const int32_t* chunkSizes, int64_t numChunks,
                                       int32_t chunkSize, int threads, int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!path || !dataType || !points || !zullib::DataType::isValid(*dataType) ||
        (header && !zullib::Header2::isValid(*header, true)) || points->numPoints < 0 ||
        numChunks < 0 || threads < 0 || (!chunkSizes && numChunks > 0) ||
        (points->numPoints > 0 && arraysMissing(*dataType, *points)))
        return zul_STATUS_INVALID_ARGUMENT;
    std::vector<zulbulk::PlannedChunk> plan;
    if (!makePlan(points->numPoints, chunkSizes, numChunks, chunkSize, plan))
        return zul_STATUS_INVALID_ARGUMENT;
    int64_t failedAt = -1;
    const zul_Status status =
        zulbulk::encodeFile(path, *dataType, header, *points, plan, threads, &failedAt);
    setFailed(failedChunk, failedAt);
    return status;
}

}  // extern "C"

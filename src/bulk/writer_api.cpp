// The exported writer functions: arguments are judged here, before a file is touched or a thread
// started; the writer does the rest.
#include <algorithm>
#include <cerrno>
#include <vector>

#include "bulk/bulk_writer.h"
#include "bulk/encoded_chunks.h"
#include "bulk/status_guard.h"
#include "frame/data_type.h"
#include "frame/header2.h"
#include "zul_bulk.h"

using zulbulk::PlannedChunk;

namespace {

void setFailed(int64_t* failedChunk, int64_t value) {
    if (failedChunk) *failedChunk = value;
}

bool arraysMissing(const zul_DataType& type, const zul_bulk_Points& points) {
    return !points.positions || (type.colorMode != zul_COLOR_NONE && !points.colors) ||
           (type.reflectionMode != zul_REFLECTION_NONE && !points.reflections) ||
           (type.normalMode != zul_NORMAL_NONE && !points.normals);
}

// The chunks of the list, each 1 to ZUL_MAX_CHUNK_SIZE points; false unless they cover the
// points exactly.
bool planFromSizes(int64_t numPoints, const int32_t* chunkSizes, int64_t numChunks,
                   std::vector<PlannedChunk>& plan) {
    int64_t first = 0;
    plan.reserve(static_cast<size_t>(numChunks));
    for (int64_t k = 0; k < numChunks; ++k) {
        const int32_t count = chunkSizes[k];
        if (count < 1 || count > ZUL_MAX_CHUNK_SIZE || count > numPoints - first) return false;
        plan.push_back({first, count});
        first += count;
    }
    return first == numPoints;
}

// Chunks of `chunkSize` points (0: the default) and a last partial one.
bool planEvenly(int64_t numPoints, int32_t chunkSize, std::vector<PlannedChunk>& plan) {
    if (chunkSize < 0 || chunkSize > ZUL_MAX_CHUNK_SIZE) return false;
    const int32_t size = chunkSize == 0 ? ZUL_DEFAULT_CHUNK_SIZE : chunkSize;
    plan.reserve(static_cast<size_t>((numPoints + size - 1) / size));
    for (int64_t first = 0; first < numPoints; first += size)
        plan.push_back({first, static_cast<int32_t>(std::min<int64_t>(size, numPoints - first))});
    return true;
}

bool recordsValid(const zul_DataType* dataType, const zul_Header2* header) {
    return dataType && zullib::DataType::isValid(*dataType) &&
           (!header || zullib::Header2::isValid(*header, true));
}

zul_Status writePlan(zul_bulk_Writer writer, const zul_bulk_Points& points,
                     const std::vector<PlannedChunk>& plan, uint32_t* storedOrder,
                     int64_t* failedChunk) {
    if (writer->failed) return zul_STATUS_INVALID_STATE;
    int64_t failedAt = -1;
    const zul_Status status = writer->write(points, plan, storedOrder, &failedAt);
    setFailed(failedChunk, failedAt);
    return status;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_bulk_openWriter(zul_bulk_Writer* writer, const char* path,
                                       const zul_DataType* dataType, const zul_Header2* header,
                                       const char* syncMarker, int threads, int mode) {
    if (!writer) return zul_STATUS_INVALID_ARGUMENT;
    *writer = nullptr;
    return zulbulk::guardStatus([&] {
        *writer = new zul_bulk_WriterStruct();
        if (!path || !recordsValid(dataType, header) || threads < 0 ||
            (mode != ZUL_BULK_WRITE_REPLACE && mode != ZUL_BULK_WRITE_PUBLISH))
            return zul_STATUS_INVALID_ARGUMENT;
        const zul_Status status = (*writer)->open(path, *dataType, header, syncMarker, threads,
                                                  mode == ZUL_BULK_WRITE_PUBLISH);
        if (status == zul_STATUS_WRITE_ERROR) errno = (*writer)->file.error();
        return status;
    });
}

ZUL_API zul_Status zul_bulk_writeChunks(zul_bulk_Writer writer, const zul_bulk_Points* points,
                                        const int32_t* chunkSizes, int64_t numChunks,
                                        int64_t* failedChunk) {
    return zul_bulk_writeChunksOrdered(writer, points, chunkSizes, numChunks, nullptr, failedChunk);
}

ZUL_API zul_Status zul_bulk_writeChunksOrdered(zul_bulk_Writer writer,
                                               const zul_bulk_Points* points,
                                               const int32_t* chunkSizes, int64_t numChunks,
                                               uint32_t* storedOrder, int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!writer || !points || numChunks < 0 || (!chunkSizes && numChunks > 0) ||
        points->numPoints < 0)
        return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed) return zul_STATUS_INVALID_STATE;
    if (points->numPoints > 0 && arraysMissing(writer->dataType, *points))
        return zul_STATUS_INVALID_ARGUMENT;
    // A failure inside the writing (an exception included) leaves the writer failed.
    return zulbulk::guardStatus([&] {
        std::vector<PlannedChunk> plan;
        if (!planFromSizes(points->numPoints, chunkSizes, numChunks, plan))
            return zul_STATUS_INVALID_ARGUMENT;
        const zul_Status status = writePlan(writer, *points, plan, storedOrder, failedChunk);
        if (status == zul_STATUS_WRITE_ERROR) errno = writer->file.error();
        return status;
    });
}

ZUL_API zul_Status zul_bulk_writeEncodedChunks(zul_bulk_Writer writer, const char* const* chunks,
                                               const int64_t* chunkBytes, int64_t numChunks,
                                               int64_t* failedChunk) {
    return zul_bulk_writeEncodedChunksOrdered(writer, chunks, chunkBytes, numChunks, nullptr,
                                              nullptr, failedChunk);
}

ZUL_API zul_Status zul_bulk_writeEncodedChunksOrdered(zul_bulk_Writer writer,
                                                      const char* const* chunks,
                                                      const int64_t* chunkBytes, int64_t numChunks,
                                                      const zul_bulk_Points* points,
                                                      uint32_t* storedOrder, int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!writer || numChunks < 0 || (numChunks > 0 && (!chunks || !chunkBytes)) ||
        (storedOrder && (!points || points->numPoints < 0)))
        return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed) return zul_STATUS_INVALID_STATE;
    if (storedOrder && points->numPoints > 0 && arraysMissing(writer->dataType, *points))
        return zul_STATUS_INVALID_ARGUMENT;
    for (int64_t k = 0; k < numChunks; ++k)
        if (!zulbulk::encodedChunkWhole(writer->dataType, chunks[k], chunkBytes[k]))
            return zul_STATUS_INVALID_ARGUMENT;
    return zulbulk::guardStatus([&] {
        if (storedOrder) {
            // The chunks' counts, from their fronts, cut the points.
            std::vector<PlannedChunk> plan;
            plan.reserve(static_cast<size_t>(numChunks));
            int64_t first = 0;
            for (int64_t k = 0; k < numChunks; ++k) {
                const int64_t count = zulbulk::encodedChunkPoints(chunks[k]);
                if (count > points->numPoints - first) return zul_STATUS_INVALID_ARGUMENT;
                plan.push_back({first, static_cast<int32_t>(count)});
                first += count;
            }
            if (first != points->numPoints) return zul_STATUS_INVALID_ARGUMENT;
            writer->orderChunks(*points, plan, storedOrder);
        }
        int64_t failedAt = -1;
        const zul_Status status = writer->writeEncoded(chunks, chunkBytes, numChunks, &failedAt);
        setFailed(failedChunk, failedAt);
        if (status == zul_STATUS_WRITE_ERROR) errno = writer->file.error();
        return status;
    });
}

ZUL_API zul_Status zul_bulk_closeWriter(zul_bulk_Writer* writer) {
    if (!writer) return zul_STATUS_INVALID_ARGUMENT;
    if (!*writer) return zul_STATUS_OK;
    const zul_Status status =
        (*writer)->failed ? zul_STATUS_INVALID_STATE : (*writer)->file.finish();
    const int error = (*writer)->file.error();
    delete *writer;  // abandons what is still open
    if (status == zul_STATUS_WRITE_ERROR) errno = error;
    *writer = nullptr;
    return status;
}

ZUL_API void zul_bulk_abortWriter(zul_bulk_Writer* writer) {
    if (!writer || !*writer) return;
    delete *writer;
    *writer = nullptr;
}

ZUL_API zul_Status zul_bulk_encodeFile(const char* path, const zul_DataType* dataType,
                                       const zul_Header2* header, const zul_bulk_Points* points,
                                       const int32_t* chunkSizes, int64_t numChunks,
                                       int32_t chunkSize, int threads, int64_t* failedChunk) {
    setFailed(failedChunk, -1);
    if (!path || !points || !recordsValid(dataType, header) || points->numPoints < 0 ||
        numChunks < 0 || threads < 0 || (!chunkSizes && numChunks > 0) ||
        (points->numPoints > 0 && arraysMissing(*dataType, *points)))
        return zul_STATUS_INVALID_ARGUMENT;
    return zulbulk::guardStatus([&] {
        std::vector<PlannedChunk> plan;
        const bool planned = chunkSizes
                                 ? planFromSizes(points->numPoints, chunkSizes, numChunks, plan)
                                 : numChunks == 0 && planEvenly(points->numPoints, chunkSize, plan);
        if (!planned) return zul_STATUS_INVALID_ARGUMENT;
        zul_bulk_WriterStruct writer;
        zul_Status status =
            writer.open(path, *dataType, header, nullptr, threads, /*publish=*/false);
        if (status == zul_STATUS_OK)
            status = writePlan(&writer, *points, plan, nullptr, failedChunk);
        // The chunks before a failed one stay in the file, as they always have.
        const zul_Status closed = writer.file.finish();
        return status != zul_STATUS_OK ? status : closed;
    });
}

}  // extern "C"

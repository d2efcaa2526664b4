// The exported zul_idx_ functions: arguments are judged here, the index does the rest.
#include <new>

#include "bulk/chunk_index.h"
#include "bulk/status_guard.h"
#include "zul_bulk.h"

namespace {

zul_Status openIndex(zul_idx_Index* index, const zul_dec_Params* params, const char* path,
                     int64_t start, const void* bytes, size_t size, bool fromFile) {
    if (!index) return zul_STATUS_INVALID_ARGUMENT;
    *index = nullptr;
    *index = new (std::nothrow) zul_idx_IndexStruct();
    if (!*index) return zul_STATUS_OUT_OF_MEMORY;
    if (fromFile ? !path || start < 0 : (!bytes && size > 0)) return zul_STATUS_INVALID_ARGUMENT;
    if (params && params->applyTransformation != 0 && params->applyTransformation != 1)
        return zul_STATUS_INVALID_ARGUMENT;
    if (fromFile) {
        const zul_Status status = (*index)->source.openFile(path, start);
        if (status != zul_STATUS_OK) return status;
    } else {
        (*index)->source.openBuffer(bytes, size);
    }
    const zul_Status status = zulbulk::guardStatus([&] { return (*index)->open(params); });
    if (status != zul_STATUS_OK) (*index)->isOpen = false;
    return status;
}

// The index's state: zul_STATUS_OK when it can answer.
zul_Status usable(zul_idx_Index index) {
    if (!index) return zul_STATUS_INVALID_ARGUMENT;
    return index->isOpen ? zul_STATUS_OK : zul_STATUS_INVALID_STATE;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_idx_openFile(zul_idx_Index* index, const char* path,
                                    const zul_dec_Params* params) {
    return openIndex(index, params, path, 0, nullptr, 0, true);
}

ZUL_API zul_Status zul_idx_openFileAt(zul_idx_Index* index, const char* path, int64_t start,
                                      const zul_dec_Params* params) {
    return openIndex(index, params, path, start, nullptr, 0, true);
}

ZUL_API zul_Status zul_idx_openBuffer(zul_idx_Index* index, const void* bytes, size_t size,
                                      const zul_dec_Params* params) {
    return openIndex(index, params, nullptr, 0, bytes, size, false);
}

ZUL_API zul_Status zul_idx_getDataType(zul_idx_Index index, zul_DataType* dataType,
                                       zul_Header2* header) {
    const zul_Status status = usable(index);
    if (status != zul_STATUS_OK) return status;
    if (!dataType) return zul_STATUS_INVALID_ARGUMENT;
    *dataType = index->dataType;
    if (header) *header = index->header2;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_getCounts(zul_idx_Index index, int64_t* numChunks, int64_t* numPoints) {
    const zul_Status status = usable(index);
    if (status != zul_STATUS_OK) return status;
    if (numChunks) *numChunks = static_cast<int64_t>(index->chunks.size());
    if (numPoints) *numPoints = index->numPoints;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_getChunk(zul_idx_Index index, int64_t chunk, zul_idx_Chunk* info) {
    const zul_Status status = usable(index);
    if (status != zul_STATUS_OK) return status;
    if (!info || chunk < 0 || chunk >= static_cast<int64_t>(index->chunks.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    *info = index->chunks[static_cast<size_t>(chunk)];
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_getDamage(zul_idx_Index index, zul_Status* status, int64_t* chunk,
                                     int64_t* offset) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (status) *status = index->damage;
    if (chunk) *chunk = static_cast<int64_t>(index->chunks.size());
    if (offset) *offset = index->damageOffset;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_setChunkBudget(zul_idx_Index index, int64_t bytes) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (bytes < 1) return zul_STATUS_INVALID_ARGUMENT;
    return zulbulk::guardStatus([&] { return index->setBudget(bytes); });
}

ZUL_API zul_Status zul_idx_setPointDensity(zul_idx_Index index, int64_t pointsPerByte) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (pointsPerByte < 0 || pointsPerByte > ZUL_BULK_MAX_POINT_DENSITY)
        return zul_STATUS_INVALID_ARGUMENT;
    return zulbulk::guardStatus([&] { return index->setDensity(pointsPerByte); });
}

ZUL_API zul_Status zul_idx_getStreamSizes(zul_idx_Index index, int64_t chunk, int64_t sizes[4]) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (!sizes || chunk < 0 || chunk >= static_cast<int64_t>(index->chunks.size()))
        return zul_STATUS_INVALID_ARGUMENT;
    const zul_idx_IndexStruct::StreamSizes& found = index->streamSizes[static_cast<size_t>(chunk)];
    for (int stream = 0; stream < 4; ++stream) sizes[stream] = found.bytes[stream];
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_selectBox(zul_idx_Index index, const double min[3], const double max[3],
                                     int64_t* chunks, int64_t capacity, int64_t* numSelected) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (!min || !max || !numSelected || capacity < 0 || (!chunks && capacity > 0))
        return zul_STATUS_INVALID_ARGUMENT;
    for (int axis = 0; axis < 3; ++axis) {
        // A NaN fails this comparison too.
        if (!(min[axis] <= max[axis])) return zul_STATUS_INVALID_ARGUMENT;
    }
    int64_t found = 0;
    for (size_t i = 0; i < index->chunks.size(); ++i) {
        const zul_idx_Chunk& chunk = index->chunks[i];
        bool meets = true;
        for (int axis = 0; axis < 3; ++axis)
            meets = meets && chunk.min[axis] <= max[axis] && chunk.max[axis] >= min[axis];
        if (!meets) continue;
        if (found < capacity) chunks[found] = static_cast<int64_t>(i);
        ++found;
    }
    *numSelected = found;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_idx_countPoints(zul_idx_Index index, const int64_t* chunks,
                                       int64_t numChunks, int64_t* numPoints) {
    const zul_Status state = usable(index);
    if (state != zul_STATUS_OK) return state;
    if (!numPoints || numChunks < 0 || (!chunks && numChunks > 0))
        return zul_STATUS_INVALID_ARGUMENT;
    const int64_t listed = static_cast<int64_t>(index->chunks.size());
    int64_t sum = 0;
    for (int64_t k = 0; k < numChunks; ++k) {
        if (chunks[k] < 0 || chunks[k] >= listed) return zul_STATUS_INVALID_ARGUMENT;
        sum += index->chunks[static_cast<size_t>(chunks[k])].numPoints;
    }
    *numPoints = sum;
    return zul_STATUS_OK;
}

ZUL_API void zul_idx_close(zul_idx_Index* index) {
    if (!index || !*index) return;
    delete *index;
    *index = nullptr;
}

}  // extern "C"

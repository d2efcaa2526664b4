// The writer's members: the chunk arrays, collecting points, and writing chunks out.
#include "file/out_context.h"

#include <algorithm>
#include <cstring>

#include "frame/data_type.h"

namespace {

// A new array for `capacity` points of `components` values each, holding the first `kept` points
// of the old one.
template <class T>
void regrow(std::unique_ptr<T[]>& array, size_t components, size_t capacity, size_t kept) {
    std::unique_ptr<T[]> grown(new T[components * capacity]);
    if (array) std::copy(array.get(), array.get() + components * kept, grown.get());
    array = std::move(grown);
}

}  // namespace

zul_out_ContextStruct::~zul_out_ContextStruct() { zul_enc_close(&encoder); }

void zul_out_ContextStruct::resizeArrays(int32_t newCapacity) {
    const size_t n = static_cast<size_t>(newCapacity);
    const size_t kept = static_cast<size_t>(points.numPoints);
    // An allocation that throws leaves every array at least as large as `capacity` says.
    regrow(positions, 3, n, kept);
    const zullib::ChunkStreams streams(dataType);
    if (streams.color) regrow(colors, 3, n, kept);
    if (streams.reflection) regrow(reflections, 1, n, kept);
    if (streams.normals) regrow(normals, 3, n, kept);
    points.positions = positions.get();
    points.colors = colors.get();
    points.reflections = reflections.get();
    points.normals = normals.get();
    capacity = newCapacity;
}

void zul_out_ContextStruct::freeArrays() {
    capacity = 0;
    positions.reset();
    colors.reset();
    reflections.reset();
    normals.reset();
    points.positions = nullptr;
    points.colors = nullptr;
    points.reflections = nullptr;
    points.normals = nullptr;
}

zul_Status zul_out_ContextStruct::open(const char* path, const zul_DataType& type,
                                       const zul_Header2* header) {
    file.open(path, std::ios::binary | std::ios::out | std::ios::trunc);
    if (!file.is_open()) return zul_STATUS_WRITE_ERROR;
    // Both records were checked before the file was touched, so this cannot fail.
    zul_enc_open2(&encoder, &type, header);
    dataType = type;
    resizeArrays(std::min(chunkSize, kUpFrontPoints));
    isOpen = true;
    return zul_STATUS_OK;
}

zul_Status zul_out_ContextStruct::setChunkSize(int32_t size) {
    if (!encoder || headerWritten || points.numPoints > 0) return zul_STATUS_INVALID_STATE;
    if (size < 1 || size > kMaxChunkSize) return zul_STATUS_INVALID_ARGUMENT;
    freeArrays();
    chunkSize = size;
    resizeArrays(std::min(chunkSize, kUpFrontPoints));
    return zul_STATUS_OK;
}

zul_Status zul_out_ContextStruct::writePoint(const zul_Point* point) {
    if (!isOpen || !encoder) return zul_STATUS_INVALID_STATE;
    if (!point) return zul_STATUS_INVALID_ARGUMENT;
    if (points.numPoints == capacity) {
        resizeArrays(static_cast<int32_t>(std::min<int64_t>(2 * int64_t{capacity}, chunkSize)));
    }
    const size_t i = static_cast<size_t>(points.numPoints);
    std::memcpy(points.positions + 3 * i, point->position, sizeof point->position);
    if (points.colors) std::memcpy(points.colors + 3 * i, point->color, sizeof point->color);
    if (points.reflections) points.reflections[i] = point->reflection;
    if (points.normals) std::memcpy(points.normals + 3 * i, point->normal, sizeof point->normal);
    ++points.numPoints;
    return points.numPoints < chunkSize ? zul_STATUS_OK : flushChunk();
}

zul_Status zul_out_ContextStruct::flushChunk() {
    zul_Status result = zul_STATUS_OK;
    if (!isOpen || !encoder || file.fail()) {
        result = zul_STATUS_INVALID_STATE;
    } else {
        const char* bytes = nullptr;
        int size = 0;
        if (!headerWritten) {
            zul_enc_createFileSignature(encoder, &bytes);
            file.write(bytes, 8);
            if (file.good()) {
                zul_enc_encodeFileHeader(encoder, &bytes, &size);
                file.write(bytes, size);
            }
            if (file.fail()) result = zul_STATUS_WRITE_ERROR;
            headerWritten = true;
        }
        if (result == zul_STATUS_OK && points.numPoints > 0) {
            result = zul_enc_encodeChunk(encoder, &bytes, &size, &points);
            if (result == zul_STATUS_OK) {
                file.write(bytes, size);
                if (file.fail()) result = zul_STATUS_WRITE_ERROR;
            }
        }
    }
    points.numPoints = 0;
    if (result != zul_STATUS_OK) isOpen = false;
    return result;
}

zul_Status zul_out_ContextStruct::close() {
    const bool failedBefore = encoder && !isOpen;
    zul_Status result = zul_STATUS_OK;
    if (encoder && file.is_open() && (!headerWritten || points.numPoints >= 1)) {
        result = flushChunk();
    }
    if (file.is_open()) {
        // Bytes still in the stream's buffer reach the file only here. Losing them is reported,
        // unless the writer had failed already and said so.
        file.close();
        if (file.fail() && result == zul_STATUS_OK && !failedBefore) {
            result = zul_STATUS_WRITE_ERROR;
        }
    }
    freeArrays();
    zul_enc_close(&encoder);
    isOpen = false;
    return result;
}

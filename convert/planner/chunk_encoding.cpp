#include "planner/chunk_encoding.h"

#include <climits>

namespace zulplan {

ChunkEncoder::ChunkEncoder(const zul_DataType& type, const zul_Header2* header)
    : type_(type), opened_(zul_enc_open2(&encoder_, &type, header)) {}

namespace {

// The arrays of `columns`, sized for `count` points of `type`.
zul_PointData dataOf(zulbase::PointColumns& columns, const zul_DataType& type, size_t count) {
    columns.resize(type, count);
    return {static_cast<int32_t>(count), columns.positionData(), columns.colorData(),
            columns.reflectionData(), columns.normalData()};
}

// points[indices[0 .. to.numPoints)] into the arrays of `to`.
void gather(const zul_Point* points, const uint32_t* indices, const zul_PointData& to) {
    const size_t count = static_cast<size_t>(to.numPoints);
    double* positions = to.positions;
    uint8_t* colors = to.colors;
    int32_t* reflections = to.reflections;
    float* normals = to.normals;
    // The points of a chunk lie anywhere in the block: ask for them well before they are needed.
    const size_t ahead = 12;
    for (size_t i = 0; i < count; ++i) {
        if (i + ahead < count) {
            const char* next = reinterpret_cast<const char*>(points + indices[i + ahead]);
            __builtin_prefetch(next);
            __builtin_prefetch(next + sizeof(zul_Point) - 1);
        }
        const zul_Point& p = points[indices[i]];
        for (int k = 0; k < 3; ++k) positions[3 * i + k] = p.position[k];
        if (colors)
            for (int k = 0; k < 3; ++k) colors[3 * i + k] = p.color[k];
        if (reflections) reflections[i] = p.reflection;
        if (normals)
            for (int k = 0; k < 3; ++k) normals[3 * i + k] = p.normal[k];
    }
}

// The `count` values of `width` elements at `from` in `order`, to `to`.
template <size_t width, class T>
void permuteValues(const T* from, const uint32_t* order, size_t count, T* to) {
    for (size_t k = 0; k < count; ++k)
        for (size_t c = 0; c < width; ++c) to[width * k + c] = from[width * order[k] + c];
}

// The points of `from` in `order` into the arrays of `to`, an array at a time (the chunk's
// arrays stay in the cache, and no point asks which attributes there are).
void permute(const zul_PointData& from, const uint32_t* order, const zul_PointData& to) {
    const size_t count = static_cast<size_t>(from.numPoints);
    permuteValues<3>(from.positions, order, count, to.positions);
    if (to.colors) permuteValues<3>(from.colors, order, count, to.colors);
    if (to.reflections) permuteValues<1>(from.reflections, order, count, to.reflections);
    if (to.normals) permuteValues<3>(from.normals, order, count, to.normals);
}

}  // namespace

zul_Status ChunkEncoder::encode(const zul_Point* points, const uint32_t* indices, size_t count,
                                const char** bytes, int* size) {
    if (opened_ != zul_STATUS_OK) return opened_;
    if (count > static_cast<size_t>(INT_MAX)) return zul_STATUS_INVALID_ARGUMENT;
    const zul_PointData data = dataOf(columns_, type_, count);
    gather(points, indices, data);
    return zul_enc_encodeChunk(encoder_, bytes, size, &data);
}

zul_Status ChunkEncoder::encodeStored(const zul_Point* points, const uint32_t* indices,
                                      size_t count, const zul_PointData& out, uint32_t* stored,
                                      const char** bytes, int* size) {
    if (opened_ != zul_STATUS_OK) return opened_;
    if (count > static_cast<size_t>(INT_MAX)) return zul_STATUS_INVALID_ARGUMENT;
    if (orderer_ == nullptr) {
        const zul_Status opened = zul_bulk_openOrderer(&orderer_, &type_);
        if (opened != zul_STATUS_OK) return opened;
    }
    zul_PointData given = out;
    given.numPoints = static_cast<int32_t>(count);
    gather(points, indices, given);
    int unique = 0;
    const zul_Status ordered = zul_bulk_orderChunk(orderer_, &given, stored, &unique);
    if (ordered != zul_STATUS_OK) return ordered;
    if (!unique) return zul_enc_encodeChunk(encoder_, bytes, size, &given);
    const zul_PointData sorted = dataOf(sorted_, type_, count);
    permute(given, stored, sorted);
    return zul_enc_encodeChunk(encoder_, bytes, size, &sorted);
}

zul_Status ChunkEncoder::measure(const zul_Point* points, const Cutting& cutting, uint64_t& total,
                                 ChunkSubset subset) {
    const std::atomic<uint64_t> unbounded{UINT64_MAX};
    bool over = false;
    return measure(points, cutting, total, unbounded, 1.0, over, subset);
}

zul_Status ChunkEncoder::measure(const zul_Point* points, const Cutting& cutting, uint64_t& total,
                                 const std::atomic<uint64_t>& bound, double scale, bool& over,
                                 ChunkSubset subset) {
    over = false;
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        if (!subset.has(c)) continue;
        const char* bytes = nullptr;
        int size = 0;
        const size_t begin = cutting.begin(c);
        const zul_Status status =
            encode(points, cutting.order.data() + begin, cutting.ends[c] - begin, &bytes, &size);
        if (status != zul_STATUS_OK) return status;
        total += static_cast<uint64_t>(size);
        // A whole byte of margin past the bound: the rounding of the scaled total cannot undo it.
        if (static_cast<double>(total) * scale >
            static_cast<double>(bound.load(std::memory_order_relaxed)) + 1.0) {
            over = true;
            return zul_STATUS_OK;
        }
    }
    return zul_STATUS_OK;
}

}  // namespace zulplan

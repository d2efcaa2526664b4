#include "planner/chunk_encoding.h"

#include <climits>

namespace zulplan {

ChunkEncoder::ChunkEncoder(const zul_DataType& type, const zul_Header2* header)
    : type_(type), opened_(zul_enc_open2(&encoder_, &type, header)) {}

zul_Status ChunkEncoder::encode(const zul_Point* points, const uint32_t* indices, size_t count,
                                const char** bytes, int* size) {
    if (opened_ != zul_STATUS_OK) return opened_;
    if (count > static_cast<size_t>(INT_MAX)) return zul_STATUS_INVALID_ARGUMENT;
    columns_.resize(type_, count);
    double* positions = columns_.positionData();
    uint8_t* colors = columns_.colorData();
    int32_t* reflections = columns_.reflectionData();
    float* normals = columns_.normalData();
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
    zul_PointData data;
    data.numPoints = static_cast<int32_t>(count);
    data.positions = positions;
    data.colors = colors;
    data.reflections = reflections;
    data.normals = normals;
    return zul_enc_encodeChunk(encoder_, bytes, size, &data);
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

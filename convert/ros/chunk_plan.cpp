#include "chunk_plan.h"

#include <numeric>
#include <string>

#include "ros_error.h"

namespace zul::ros {

namespace {

// The stream points among `n` consecutive message points.
uint32_t countIn(const uint8_t* inStream, uint64_t from, uint32_t n) {
    if (inStream == nullptr) return n;
    uint32_t count = 0;
    for (uint32_t i = 0; i < n; ++i) count += inStream[from + i];
    return count;
}

}  // namespace

ChunkPlan planChunks(uint32_t height, uint32_t width, const uint8_t* inStream, size_t total,
                     uint32_t chunkPoints, uint32_t tileColumns, bool listPoints) {
    ChunkPlan plan;
    if (tileColumns == 0) {
        if (listPoints) {
            plan.sequence.resize(total);
            std::iota(plan.sequence.begin(), plan.sequence.end(), 0u);
        }
        for (size_t first = 0; first < total; first += chunkPoints) plan.starts.push_back(first);
        plan.starts.push_back(total);
        return plan;
    }
    if (uint64_t(tileColumns) * height > 65536)
        throw Error("a tile of " + std::to_string(tileColumns) + " columns x " +
                    std::to_string(height) + " rows could hold more than 65536 points");
    // The stream points of a row's part of a band are numbered consecutively (the numbers follow
    // message order): each row's next number, from the band's first column on.
    std::vector<uint32_t> next(height);
    uint32_t numbered = 0;
    for (uint32_t r = 0; r < height; ++r) {
        next[r] = numbered;
        numbered += countIn(inStream, uint64_t(r) * width, width);
    }
    if (listPoints) plan.sequence.reserve(total);
    size_t placed = 0;
    for (uint32_t first = 0; first < width; first += tileColumns) {
        const uint32_t columns = width - first < tileColumns ? width - first : tileColumns;
        const size_t start = placed;
        for (uint32_t r = 0; r < height; ++r) {
            const uint32_t k = countIn(inStream, uint64_t(r) * width + first, columns);
            if (listPoints)
                for (uint32_t q = 0; q < k; ++q) plan.sequence.push_back(next[r] + q);
            next[r] += k;
            placed += k;
        }
        if (placed > start) plan.starts.push_back(start);
    }
    plan.starts.push_back(placed);
    return plan;
}

}  // namespace zul::ros

#include "chunk_plan.h"

#include <numeric>
#include <string>

#include "ros_error.h"

namespace zul::ros {

ChunkPlan planChunks(uint32_t height, uint32_t width, const uint32_t* inside, size_t total,
                     uint32_t chunkPoints, uint32_t tileColumns) {
    ChunkPlan plan;
    if (tileColumns == 0) {
        plan.sequence.resize(total);
        std::iota(plan.sequence.begin(), plan.sequence.end(), 0u);
        for (size_t first = 0; first < total; first += chunkPoints) plan.starts.push_back(first);
        plan.starts.push_back(total);
        return plan;
    }
    if (uint64_t(tileColumns) * height > 65536)
        throw Error("a tile of " + std::to_string(tileColumns) + " columns x " +
                    std::to_string(height) + " rows could hold more than 65536 points");
    // The stream number of each message point, or none.
    const uint64_t points = uint64_t(height) * width;
    std::vector<uint32_t> number(points, UINT32_MAX);
    for (size_t s = 0; s < total; ++s) number[inside[s]] = uint32_t(s);
    plan.sequence.reserve(total);
    for (uint32_t first = 0; first < width; first += tileColumns) {
        const uint32_t last = width - first < tileColumns ? width : first + tileColumns;
        const size_t start = plan.sequence.size();
        for (uint32_t r = 0; r < height; ++r)
            for (uint32_t c = first; c < last; ++c)
                if (number[uint64_t(r) * width + c] != UINT32_MAX)
                    plan.sequence.push_back(number[uint64_t(r) * width + c]);
        if (plan.sequence.size() > start) plan.starts.push_back(start);
    }
    plan.starts.push_back(plan.sequence.size());
    return plan;
}

}  // namespace zul::ros

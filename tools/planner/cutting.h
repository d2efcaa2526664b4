// A cutting of a block of points into chunks: which points, in which order, and where each chunk
// ends. The points themselves stay where they are; a cutting refers to them by index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zulplan {

struct Cutting {
    std::vector<uint32_t> order;  // indices into the block
    std::vector<uint32_t> ends;   // end of each chunk in `order`, increasing, the last order.size()

    size_t chunks() const { return ends.size(); }
    size_t begin(size_t chunk) const { return chunk == 0 ? 0 : ends[chunk - 1]; }
    // Appends the chunk [begin, order.size()) unless it is empty.
    void closeChunk() {
        const uint32_t end = static_cast<uint32_t>(order.size());
        if (end > (ends.empty() ? 0 : ends.back())) ends.push_back(end);
    }
};

// Cuts `run` (indices, in their order) into chunks of `chunk` points and a shorter last one,
// appending them to `cutting`.
inline void cutInRuns(const std::vector<uint32_t>& run, int chunk, Cutting& cutting) {
    size_t inChunk = 0;
    for (uint32_t index : run) {
        cutting.order.push_back(index);
        if (++inChunk == static_cast<size_t>(chunk)) {
            cutting.closeChunk();
            inChunk = 0;
        }
    }
    cutting.closeChunk();
}

}  // namespace zulplan

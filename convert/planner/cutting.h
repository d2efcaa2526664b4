// A cutting of a block of points into chunks: which points, in which order, and where each chunk
// ends. The points themselves stay where they are; a cutting refers to them by index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "planner/large_pages.h"
#include "zul.h"

namespace zulplan {

// Indices of points in a block.
using IndexVector = LargeVector<uint32_t>;

// The points of a block, wherever they are held.
class PointSpan {
public:
    PointSpan(const zul_Point* points, size_t count) : points_(points), count_(count) {}
    template <class Allocator>
    PointSpan(const std::vector<zul_Point, Allocator>& points)  // NOLINT: a view of any vector
        : points_(points.data()), count_(points.size()) {}
    const zul_Point* data() const { return points_; }
    size_t size() const { return count_; }
    const zul_Point& operator[](size_t i) const { return points_[i]; }
    const zul_Point* begin() const { return points_; }
    const zul_Point* end() const { return points_ + count_; }

private:
    const zul_Point* points_;
    size_t count_;
};

struct Cutting {
    IndexVector order;  // indices into the block
    IndexVector ends;   // end of each chunk in `order`, increasing, the last order.size()

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
inline void cutInRuns(const IndexVector& run, int chunk, Cutting& cutting) {
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

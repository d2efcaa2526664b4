#include "planner/strip_cells.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zulplan {

namespace {

// Cuts one strip, order[begin, end), into `pieces` runs of equal count along `along`.
void cutAlong(const zul_Point* points, IndexVector& order, size_t begin, size_t end, size_t pieces,
              int along, Cutting& cutting) {
    // (begin, end, pieces) still to cut; the first piece on top.
    struct Part {
        size_t begin, end, pieces;
    };
    std::vector<Part> parts = {{begin, end, pieces}};
    while (!parts.empty()) {
        const Part part = parts.back();
        parts.pop_back();
        if (part.pieces <= 1) {
            cutting.order.insert(cutting.order.end(),
                                 order.begin() + static_cast<std::ptrdiff_t>(part.begin),
                                 order.begin() + static_cast<std::ptrdiff_t>(part.end));
            cutting.closeChunk();
            continue;
        }
        // The first half of the pieces takes its share of the points, the larger ones first.
        const size_t count = part.end - part.begin, first = part.pieces / 2;
        const size_t small = count / part.pieces, larger = count % part.pieces;
        const size_t middle = part.begin + first * small + std::min(first, larger);
        std::nth_element(order.begin() + static_cast<std::ptrdiff_t>(part.begin),
                         order.begin() + static_cast<std::ptrdiff_t>(middle),
                         order.begin() + static_cast<std::ptrdiff_t>(part.end),
                         [points, along](uint32_t a, uint32_t b) {
                             return points[a].position[along] < points[b].position[along];
                         });
        parts.push_back({middle, part.end, part.pieces - first});
        parts.push_back({part.begin, middle, first});
    }
}

}  // namespace

void cutStrips(const zul_Point* points, const IndexVector& indices, const StripShape& shape,
               Cutting& cutting, StripScratch& scratch, const uint64_t* finest, int shift) {
    // A counting sort by band keeps the given order within each band.
    IndexVector& bands = scratch.bands;
    IndexVector& starts = scratch.starts;
    IndexVector& order = scratch.order;
    const int along = shape.axis == 0 ? 1 : 0;
    bands.resize(indices.size());
    starts.assign(shape.count + 2, 0);
    // The extent of each band along its length, gathered in the same pass.
    scratch.low.assign(shape.count + 1, INFINITY);
    scratch.high.assign(shape.count + 1, -INFINITY);
    for (size_t i = 0; i < indices.size(); ++i) {
        const zul_Point& p = points[indices[i]];
        const size_t band = finest == nullptr ? stripOf(shape, p)
                            : finest[indices[i]] == UINT64_MAX
                                ? shape.count
                                : std::min<uint64_t>(finest[indices[i]] >> shift, shape.count - 1);
        bands[i] = static_cast<uint32_t>(band);
        ++starts[band + 1];
        scratch.low[band] = std::min(scratch.low[band], p.position[along]);
        scratch.high[band] = std::max(scratch.high[band], p.position[along]);
    }
    for (size_t b = 1; b < starts.size(); ++b) starts[b] += starts[b - 1];
    order.resize(indices.size());
    scratch.next.assign(starts.begin(), starts.end() - 1);
    for (size_t i = 0; i < indices.size(); ++i) order[scratch.next[bands[i]]++] = indices[i];
    const size_t chunk = static_cast<size_t>(std::max(shape.chunk, 1));
    for (size_t b = 0; b + 1 < starts.size(); ++b) {
        const size_t begin = starts[b], end = starts[b + 1];
        if (begin == end) continue;
        const size_t count = end - begin;
        size_t pieces = (count + chunk - 1) / chunk;
        if (b == shape.count) {
            // Not finite: runs in the given order.
            IndexVector run(order.begin() + static_cast<std::ptrdiff_t>(begin),
                            order.begin() + static_cast<std::ptrdiff_t>(end));
            cutInRuns(run, shape.chunk, cutting);
            continue;
        }
        if (shape.maxLength > 0 && count > chunk / 8) {
            const double byLength = std::ceil((scratch.high[b] - scratch.low[b]) / shape.maxLength);
            const size_t most = count / std::max<size_t>(chunk / 8, 1);
            if (byLength > static_cast<double>(pieces))
                pieces = std::min(most, static_cast<size_t>(std::min(byLength, 1e9)));
            pieces = std::max<size_t>(pieces, (count + chunk - 1) / chunk);
        }
        cutAlong(points, order, begin, end, pieces, along, cutting);
    }
}

}  // namespace zulplan

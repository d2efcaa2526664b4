#include "kd_cells.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zulplan {

namespace {

using Iterator = std::vector<uint32_t>::iterator;

// The axis along which the finite coordinates of [first, last) spread the most.
int widestAxis(const zul_Point* points, Iterator first, Iterator last) {
    double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
    for (auto i = first; i != last; ++i) {
        for (int k = 0; k < 3; ++k) {
            const double v = points[*i].position[k];
            if (!std::isfinite(v)) continue;
            low[k] = std::min(low[k], v);
            high[k] = std::max(high[k], v);
        }
    }
    int widest = 0;
    double extent[3];
    for (int k = 0; k < 3; ++k) extent[k] = high[k] >= low[k] ? high[k] - low[k] : 0;
    for (int k = 1; k < 3; ++k)
        if (extent[k] > extent[widest]) widest = k;
    return widest;
}

// Splits [begin, end) of `indices` as the cells do and returns the middle, or `end` for a part
// that fits in one chunk.
size_t split(const zul_Point* points, std::vector<uint32_t>& indices, size_t begin, size_t end,
             size_t size) {
    const size_t count = end - begin;
    if (count <= size) return end;
    const size_t chunks = (count + size - 1) / size;
    const size_t middle = begin + (chunks + 1) / 2 * size;
    const Iterator first = indices.begin() + static_cast<std::ptrdiff_t>(begin);
    const Iterator last = indices.begin() + static_cast<std::ptrdiff_t>(end);
    const int axis = widestAxis(points, first, last);
    // Whatever is not a number goes after every number, so the order stays strict.
    std::nth_element(first, indices.begin() + static_cast<std::ptrdiff_t>(middle), last,
                     [points, axis](uint32_t a, uint32_t b) {
                         const double u = points[a].position[axis], v = points[b].position[axis];
                         return std::isnan(v) ? !std::isnan(u) : u < v;
                     });
    return middle;
}

}  // namespace

void cutKdCells(const zul_Point* points, std::vector<uint32_t> indices, int chunk,
                Cutting& cutting) {
    const size_t size = static_cast<size_t>(std::max(chunk, 1));
    // Parts still to split, as index ranges; a stack rather than recursion, first part on top.
    std::vector<std::pair<size_t, size_t>> parts = {{0, indices.size()}};
    while (!parts.empty()) {
        const auto [begin, end] = parts.back();
        parts.pop_back();
        const size_t middle = split(points, indices, begin, end, size);
        if (middle == end) {
            for (size_t i = begin; i < end; ++i) cutting.order.push_back(indices[i]);
            cutting.closeChunk();
            continue;
        }
        parts.emplace_back(middle, end);
        parts.emplace_back(begin, middle);
    }
}

std::vector<std::vector<uint32_t>> kdSubtrees(const zul_Point* points,
                                              std::vector<uint32_t> indices, int chunk,
                                              size_t target, size_t parts) {
    const size_t size = static_cast<size_t>(std::max(chunk, 1));
    std::vector<std::vector<uint32_t>> found;
    struct Part {
        size_t begin, end, want;
    };
    std::vector<Part> stack = {{0, indices.size(), std::max<size_t>(parts, 1)}};
    while (!stack.empty()) {
        Part part = stack.back();
        stack.pop_back();
        if (part.want > 1) {
            const size_t middle = split(points, indices, part.begin, part.end, size);
            if (middle != part.end) {
                stack.push_back({middle, part.end, part.want - part.want / 2});
                stack.push_back({part.begin, middle, part.want / 2});
                continue;
            }
        }
        for (bool second = false; part.end - part.begin > target; second = !second) {
            const size_t middle = split(points, indices, part.begin, part.end, size);
            if (middle == part.end) break;
            if (second) part.begin = middle;
            else part.end = middle;
        }
        found.emplace_back(indices.begin() + static_cast<std::ptrdiff_t>(part.begin),
                           indices.begin() + static_cast<std::ptrdiff_t>(part.end));
    }
    return found;
}

void orderForChunks(std::vector<zul_Point>& points, int chunk) {
    std::vector<uint32_t> indices(points.size());
    for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<uint32_t>(i);
    Cutting cutting;
    cutKdCells(points.data(), std::move(indices), chunk, cutting);
    std::vector<zul_Point> ordered;
    ordered.reserve(points.size());
    for (uint32_t i : cutting.order) ordered.push_back(points[i]);
    points.swap(ordered);
}

}  // namespace zulplan

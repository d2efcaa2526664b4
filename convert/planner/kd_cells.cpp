#include "planner/kd_cells.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zulplan {

namespace {

// A point's position beside its index: the splits move these rather than reach into the block
// at random.
using Item = KdItem;

// The points of `indices` into `items`, whose memory is reused.
LargeVector<Item>& itemsOf(const zul_Point* points, const IndexVector& indices,
                           LargeVector<Item>& items) {
    items.resize(indices.size());
    for (size_t i = 0; i < indices.size(); ++i) {
        const zul_Point& p = points[indices[i]];
        items[i] = {{p.position[0], p.position[1], p.position[2]}, indices[i]};
    }
    return items;
}

using Iterator = LargeVector<Item>::iterator;

// The axis along which the finite coordinates of [first, last) spread the most.
int widestAxis(Iterator first, Iterator last) {
    double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
    for (auto i = first; i != last; ++i) {
        for (int k = 0; k < 3; ++k) {
            const double v = i->position[k];
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

// Splits [begin, end) of `items` as the cells do and returns the middle, or `end` for a part
// that fits in one chunk.
size_t split(LargeVector<Item>& items, size_t begin, size_t end, size_t size) {
    const size_t count = end - begin;
    if (count <= size) return end;
    const size_t chunks = (count + size - 1) / size;
    const size_t middle = begin + (chunks + 1) / 2 * size;
    const Iterator first = items.begin() + static_cast<std::ptrdiff_t>(begin);
    const Iterator last = items.begin() + static_cast<std::ptrdiff_t>(end);
    const int axis = widestAxis(first, last);
    // Whatever is not a number goes after every number, so the order stays strict.
    std::nth_element(first, items.begin() + static_cast<std::ptrdiff_t>(middle), last,
                     [axis](const Item& a, const Item& b) {
                         const double u = a.position[axis], v = b.position[axis];
                         return std::isnan(v) ? !std::isnan(u) : u < v;
                     });
    return middle;
}

void appendCells(LargeVector<Item>& items, size_t begin, size_t end, size_t size,
                 Cutting& cutting) {
    // Parts still to split, as index ranges; a stack rather than recursion, first part on top.
    std::vector<std::pair<size_t, size_t>> parts = {{begin, end}};
    while (!parts.empty()) {
        const auto [from, to] = parts.back();
        parts.pop_back();
        const size_t middle = split(items, from, to, size);
        if (middle == to) {
            for (size_t i = from; i < to; ++i) cutting.order.push_back(items[i].index);
            cutting.closeChunk();
            continue;
        }
        parts.emplace_back(middle, to);
        parts.emplace_back(from, middle);
    }
}

}  // namespace

void cutKdCells(const zul_Point* points, const IndexVector& indices, int chunk, Cutting& cutting,
                KdScratch& scratch) {
    LargeVector<Item>& items = itemsOf(points, indices, scratch);
    appendCells(items, 0, items.size(), static_cast<size_t>(std::max(chunk, 1)), cutting);
}

size_t kdSample(const zul_Point* points, const IndexVector& indices, int chunk, size_t target,
                size_t parts, Cutting& cutting, KdScratch& scratch) {
    const size_t size = static_cast<size_t>(std::max(chunk, 1));
    LargeVector<Item>& items = itemsOf(points, indices, scratch);
    size_t sampled = 0;
    struct Part {
        size_t begin, end, want;
    };
    std::vector<Part> stack = {{0, items.size(), std::max<size_t>(parts, 1)}};
    while (!stack.empty()) {
        Part part = stack.back();
        stack.pop_back();
        if (part.want > 1) {
            const size_t middle = split(items, part.begin, part.end, size);
            if (middle != part.end) {
                stack.push_back({middle, part.end, part.want - part.want / 2});
                stack.push_back({part.begin, middle, part.want / 2});
                continue;
            }
        }
        for (bool second = false; part.end - part.begin > target; second = !second) {
            const size_t middle = split(items, part.begin, part.end, size);
            if (middle == part.end) break;
            if (second)
                part.begin = middle;
            else
                part.end = middle;
        }
        sampled += part.end - part.begin;
        appendCells(items, part.begin, part.end, size, cutting);
    }
    return sampled;
}

void orderForChunks(std::vector<zul_Point>& points, int chunk) {
    IndexVector indices(points.size());
    for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<uint32_t>(i);
    Cutting cutting;
    KdScratch scratch;
    cutKdCells(points.data(), indices, chunk, cutting, scratch);
    std::vector<zul_Point> ordered;
    ordered.reserve(points.size());
    for (uint32_t i : cutting.order) ordered.push_back(points[i]);
    points.swap(ordered);
}

}  // namespace zulplan

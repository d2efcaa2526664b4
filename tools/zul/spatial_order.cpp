#include "spatial_order.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zultool {

namespace {

// The axis along which the points of [first, last) spread the most.
int widestAxis(std::vector<zul_Point>::iterator first, std::vector<zul_Point>::iterator last) {
    double low[3], high[3];
    for (int k = 0; k < 3; ++k) low[k] = high[k] = first->position[k];
    for (auto p = first; p != last; ++p) {
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], p->position[k]);
            high[k] = std::max(high[k], p->position[k]);
        }
    }
    int widest = 0;
    for (int k = 1; k < 3; ++k)
        if (high[k] - low[k] > high[widest] - low[widest]) widest = k;
    return widest;
}

}  // namespace

void orderForChunks(std::vector<zul_Point>& points, int chunk) {
    const size_t size = static_cast<size_t>(chunk < 1 ? 1 : chunk);
    // Parts still to split, as index ranges; a stack rather than recursion.
    std::vector<std::pair<size_t, size_t>> parts = {{0, points.size()}};
    while (!parts.empty()) {
        const auto [begin, end] = parts.back();
        parts.pop_back();
        const size_t count = end - begin;
        if (count <= size) continue;
        const size_t chunks = (count + size - 1) / size;
        const size_t middle = begin + (chunks + 1) / 2 * size;
        const auto first = points.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = points.begin() + static_cast<std::ptrdiff_t>(end);
        const int axis = widestAxis(first, last);
        // NaN (kept with --keep-invalid) goes after every number, so the order stays strict.
        std::nth_element(first, points.begin() + static_cast<std::ptrdiff_t>(middle), last,
                         [axis](const zul_Point& a, const zul_Point& b) {
                             const double u = a.position[axis], v = b.position[axis];
                             return std::isnan(v) ? !std::isnan(u) : u < v;
                         });
        parts.emplace_back(middle, end);
        parts.emplace_back(begin, middle);
    }
}

size_t blockCapacity(size_t budgetBytes, int chunk) {
    const size_t size = static_cast<size_t>(chunk < 1 ? 1 : chunk);
    const size_t chunks = budgetBytes / sizeof(zul_Point) / size;
    return std::max<size_t>(chunks, 1) * size;
}

}  // namespace zultool

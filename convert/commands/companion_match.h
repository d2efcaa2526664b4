// Which input point a stored point is: compress keeps each input point's grid point as it hands
// it to the planner; once the stream is written, each stored point (decoded on the same integers)
// takes the first input point on its grid point not yet taken.
#pragma once

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace zulconvert {

// Input points by grid point: each stored point takes the first input point of its grid point
// not yet taken (points on one grid point are interchangeable: each keeps its own fields).
class PointMatcher {
public:
    PointMatcher(const std::vector<int64_t>& keys, const std::vector<uint8_t>& kept) : keys_(keys) {
        for (size_t i = 0; i < kept.size(); ++i) {
            if (kept[i]) sorted_.push_back(i);
        }
        std::sort(sorted_.begin(), sorted_.end(), [&](uint64_t a, uint64_t b) {
            return std::lexicographical_compare(&keys_[3 * a], &keys_[3 * a + 3], &keys_[3 * b],
                                                &keys_[3 * b + 3]) ||
                   (std::equal(&keys_[3 * a], &keys_[3 * a + 3], &keys_[3 * b]) && a < b);
        });
    }

    // The input point at grid point `g` (or, failing that, at a neighbouring one: a position
    // halfway between two grid points may round either way); -1 when none is left.
    int64_t take(const int64_t g[3]) {
        int64_t found = takeAt(g);
        for (int d = 0; found < 0 && d < 27; ++d) {
            const int64_t n[3] = {g[0] + d % 3 - 1, g[1] + (d / 3) % 3 - 1, g[2] + d / 9 - 1};
            found = takeAt(n);
        }
        return found;
    }

private:
    int64_t takeAt(const int64_t g[3]) {
        const auto less = [&](uint64_t a, const int64_t* key) {
            return std::lexicographical_compare(&keys_[3 * a], &keys_[3 * a + 3], key, key + 3);
        };
        const size_t start = static_cast<size_t>(
            std::lower_bound(sorted_.begin(), sorted_.end(), g, less) - sorted_.begin());
        if (start == sorted_.size() || !std::equal(g, g + 3, &keys_[3 * sorted_[start]])) return -1;
        size_t& next = taken_.try_emplace(start, start).first->second;
        if (next == sorted_.size() || !std::equal(g, g + 3, &keys_[3 * sorted_[next]])) return -1;
        return static_cast<int64_t>(sorted_[next++]);
    }

    const std::vector<int64_t>& keys_;
    std::vector<uint64_t> sorted_;
    std::unordered_map<size_t, size_t> taken_;  // first point of a grid point -> next untaken
};

}  // namespace zulconvert

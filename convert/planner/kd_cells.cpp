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

// The extent of the finite coordinates of some items.
struct Bounds {
    double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};

    void add(const Item& item) {
        for (int k = 0; k < 3; ++k) {
            const double v = item.position[k];
            if (!std::isfinite(v)) continue;
            low[k] = std::min(low[k], v);
            high[k] = std::max(high[k], v);
        }
    }
    void add(Iterator first, Iterator last) {
        for (auto i = first; i != last; ++i) add(*i);
    }
    // As add, but an infinite coordinate counts: cheaper, and the same wherever exact() holds.
    void addAny(const Item& item) {
        for (int k = 0; k < 3; ++k) {
            const double v = item.position[k];  // not a number: neither comparison holds
            low[k] = v < low[k] ? v : low[k];
            high[k] = v > high[k] ? v : high[k];
        }
    }
    void addAny(Iterator first, Iterator last) {
        for (auto i = first; i != last; ++i) addAny(*i);
    }
    // Whether every bound is a finite coordinate: then addAny saw no infinite one.
    bool exact() const {
        for (int k = 0; k < 3; ++k)
            if (!std::isfinite(low[k]) || !std::isfinite(high[k])) return false;
        return true;
    }
    // The axis along which they spread the most, the first on ties.
    int widest() const {
        int axis = 0;
        double extent[3];
        for (int k = 0; k < 3; ++k) extent[k] = high[k] >= low[k] ? high[k] - low[k] : 0;
        for (int k = 1; k < 3; ++k)
            if (extent[k] > extent[axis]) axis = k;
        return axis;
    }
};

// The axis along which the finite coordinates of [first, last) spread the most.
int widestAxis(Iterator first, Iterator last) {
    Bounds bounds;
    bounds.addAny(first, last);
    if (!bounds.exact()) {
        bounds = Bounds();
        bounds.add(first, last);
    }
    return bounds.widest();
}

// The order of the splits: whatever is not a number goes after every number, so it stays strict.
bool before(double u, double v) { return std::isnan(v) ? !std::isnan(u) : u < v; }

// A part of the items still to split, and the axis it is split along once known (else -1).
struct Part {
    size_t begin, end;
    int axis;
};

// Parts at least this large find their middle from a sample: two values that bound it closely
// are drawn from the sample, two passes put the items below, between and above them in place and
// learn the extent of either half, and only the few between are ordered further.
const size_t kSampledSplit = 8192;

// Puts the items of [begin, end) whose coordinate along `axis` meets `first` before the others,
// swapping only those on the wrong side, and adds them to `met` and the others to `failed`
// (either may be null); returns where the others begin.
template <class Test>
size_t partition(LargeVector<Item>& items, size_t begin, size_t end, int axis, Test first,
                 Bounds* met, Bounds* failed) {
    size_t i = begin, j = end;
    for (;;) {
        for (; i < j && first(items[i].position[axis]); ++i)
            if (met != nullptr) met->addAny(items[i]);
        for (; i < j && !first(items[j - 1].position[axis]); --j)
            if (failed != nullptr) failed->addAny(items[j - 1]);
        // Either i == j, or items[i] fails and items[j - 1] meets the test, and i + 1 < j.
        if (i == j) return i;
        std::swap(items[i], items[j - 1]);
        if (met != nullptr) met->addAny(items[i]);
        if (failed != nullptr) failed->addAny(items[j - 1]);
        ++i;
        --j;
    }
}

// Puts the `middle`th smallest of [begin, end) along `axis` at `middle`, the smaller before it and
// the larger after; sets axes[0] and axes[1] to the axes of the two halves where it learns them.
void select(LargeVector<Item>& items, size_t begin, size_t middle, size_t end, int axis,
            int axes[2]) {
    const auto at = [&items](size_t i) { return items.begin() + static_cast<std::ptrdiff_t>(i); };
    const auto less = [axis](const Item& a, const Item& b) {
        return before(a.position[axis], b.position[axis]);
    };
    const size_t count = end - begin;
    if (count < kSampledSplit) {
        std::nth_element(at(begin), at(middle), at(end), less);
        return;
    }
    // A sample of about count^(2/3) items spread evenly; the middle lies between its ranks
    // `rank` +- two standard deviations or so.
    const double root = std::cbrt(static_cast<double>(count));
    const size_t m = static_cast<size_t>(root * root);
    std::vector<double> sample(m);
    for (size_t j = 0; j < m; ++j)
        sample[j] = items[begin + (2 * j + 1) * count / (2 * m)].position[axis];
    const double rank =
        static_cast<double>(middle - begin) * static_cast<double>(m) / static_cast<double>(count);
    const double spread = 2 * std::sqrt(static_cast<double>(m));
    const double lowRank = std::floor(rank - spread), highRank = std::ceil(rank + spread);
    const bool hasLow = lowRank >= 0, hasHigh = highRank < static_cast<double>(m);
    double low = 0, high = 0;
    size_t from = 0;
    if (hasLow) {
        from = static_cast<size_t>(lowRank);
        std::nth_element(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(from),
                         sample.end(), before);
        low = sample[from];
        ++from;
    }
    if (hasHigh) {
        const size_t to = static_cast<size_t>(highRank);
        std::nth_element(sample.begin() + static_cast<std::ptrdiff_t>(from),
                         sample.begin() + static_cast<std::ptrdiff_t>(to), sample.end(), before);
        high = sample[to];
    }
    // A bound that is not a number leaves its side empty; with numbers for bounds, `before`
    // comes down to one comparison.
    const bool below = hasLow && !std::isnan(low), above = hasHigh && !std::isnan(high);
    // [begin, lt) before `low`, [gt, end) after `high`, the rest between.
    Bounds lower, upper;
    const size_t lt =
        below ? partition(
                    items, begin, end, axis, [low](double v) { return v < low; }, &lower, nullptr)
              : begin;
    const size_t gt =
        above ? partition(
                    items, lt, end, axis, [high](double v) { return v <= high; }, nullptr, &upper)
              : end;
    if (middle < lt) {
        std::nth_element(at(begin), at(middle), at(lt), less);
    } else if (middle > gt) {
        std::nth_element(at(gt), at(middle), at(end), less);
    } else {
        if (middle < gt) std::nth_element(at(lt), at(middle), at(gt), less);
        lower.addAny(at(lt), at(middle));
        upper.addAny(at(middle), at(gt));
        axes[0] = lower.exact() ? lower.widest() : -1;
        axes[1] = upper.exact() ? upper.widest() : -1;
    }
}

// Splits `part` of `items` as the cells do and returns the middle, or its end for a part that
// fits in one chunk. The halves are [begin, middle) and [middle, end), their axes in `halves`;
// the axis split along goes to `along` where it is not null.
size_t split(LargeVector<Item>& items, const Part& part, size_t size, Part halves[2],
             int* along = nullptr) {
    const size_t count = part.end - part.begin;
    if (count <= size) return part.end;
    const size_t chunks = (count + size - 1) / size;
    const size_t middle = part.begin + (chunks + 1) / 2 * size;
    const int axis = part.axis >= 0
                         ? part.axis
                         : widestAxis(items.begin() + static_cast<std::ptrdiff_t>(part.begin),
                                      items.begin() + static_cast<std::ptrdiff_t>(part.end));
    int axes[2] = {-1, -1};
    select(items, part.begin, middle, part.end, axis, axes);
    if (along != nullptr) *along = axis;
    halves[0] = {part.begin, middle, axes[0]};
    halves[1] = {middle, part.end, axes[1]};
    return middle;
}

void appendCells(LargeVector<Item>& items, const Part& whole, size_t size, Cutting& cutting) {
    // Parts still to split; a stack rather than recursion, first part on top.
    std::vector<Part> parts = {whole};
    while (!parts.empty()) {
        const Part part = parts.back();
        parts.pop_back();
        Part halves[2];
        if (split(items, part, size, halves) == part.end) {
            for (size_t i = part.begin; i < part.end; ++i) cutting.order.push_back(items[i].index);
            cutting.closeChunk();
            continue;
        }
        parts.push_back(halves[1]);
        parts.push_back(halves[0]);
    }
}

}  // namespace

void cutKdCells(const zul_Point* points, const IndexVector& indices, int chunk, Cutting& cutting,
                KdScratch& scratch) {
    LargeVector<Item>& items = itemsOf(points, indices, scratch);
    appendCells(items, {0, items.size(), -1}, static_cast<size_t>(std::max(chunk, 1)), cutting);
}

namespace {

// A branch to sample, and how many branches are still to take out of it.
struct Branch {
    Part part;
    size_t want;
};

// Follows `part` down one side, alternately the first and the second, while it holds more than
// `target` points.
Part followDown(LargeVector<Item>& items, Part part, size_t size, size_t target) {
    Part halves[2];
    for (bool second = false; part.end - part.begin > target; second = !second) {
        if (split(items, part, size, halves) == part.end) break;
        part = halves[second ? 1 : 0];
    }
    return part;
}

// The samples of the splits themselves: the branches down to `parts`, each followed down.
size_t sampleSplitting(LargeVector<Item>& items, size_t size, size_t target, size_t parts,
                       Cutting& cutting) {
    size_t sampled = 0;
    std::vector<Branch> stack = {{{0, items.size(), -1}, parts}};
    while (!stack.empty()) {
        const Branch branch = stack.back();
        stack.pop_back();
        Part halves[2];
        if (branch.want > 1 && split(items, branch.part, size, halves) != branch.part.end) {
            stack.push_back({halves[1], branch.want - branch.want / 2});
            stack.push_back({halves[0], branch.want / 2});
            continue;
        }
        const Part part = followDown(items, branch.part, size, target);
        sampled += part.end - part.begin;
        appendCells(items, part, size, cutting);
    }
    return sampled;
}

// Large blocks find the branches on every kThinning-th point: the splits of the thinned points
// make a small tree of planes, and one pass puts each point into the branch it falls in, if any.
const size_t kThinning = 16;
// ... where a branch spans this many chunks at least, and a thinned chunk this many points.
const size_t kThinnedChunks = 4;
const size_t kThinnedChunk = 32;

// A plane of the tree, and what lies before `at` along `axis` and what does not: a node (0 or
// more), nothing (kNowhere) or a branch (kNowhere - 1 - its number).
struct Plane {
    int axis;
    double at;
    int32_t next[2];
};
const int32_t kNowhere = -1;

// The planes of the thinned `items` down to `want` branches, each then followed down while it
// holds more than `target`; returns the root's reference.
int32_t planesOf(LargeVector<Item>& items, const Part& part, size_t want, size_t size,
                 size_t target, std::vector<Plane>& planes, int32_t& branches) {
    Part halves[2];
    int axis = 0;
    if (want > 1) {
        const size_t middle = split(items, part, size, halves, &axis);
        if (middle != part.end) {
            const int32_t node = static_cast<int32_t>(planes.size());
            planes.push_back({axis, items[middle].position[axis], {kNowhere, kNowhere}});
            const int32_t first =
                planesOf(items, halves[0], want / 2, size, target, planes, branches);
            const int32_t second =
                planesOf(items, halves[1], want - want / 2, size, target, planes, branches);
            planes[static_cast<size_t>(node)].next[0] = first;
            planes[static_cast<size_t>(node)].next[1] = second;
            return node;
        }
    }
    // Down one side: a chain of planes, the side not taken leading nowhere.
    int32_t head = kNowhere - 1 - branches++;
    int32_t last = -1;  // the node whose taken side is still to point on
    int side = 0;
    Part down = part;
    for (bool second = false; down.end - down.begin > target; second = !second) {
        const size_t middle = split(items, down, size, halves, &axis);
        if (middle == down.end) break;
        const int32_t node = static_cast<int32_t>(planes.size());
        planes.push_back({axis, items[middle].position[axis], {kNowhere, kNowhere}});
        if (last < 0)
            head = node;
        else
            planes[static_cast<size_t>(last)].next[side] = node;
        last = node;
        side = second ? 1 : 0;
        down = halves[side];
    }
    if (last >= 0) planes[static_cast<size_t>(last)].next[side] = kNowhere - branches;
    return head;
}

}  // namespace

size_t kdSample(const zul_Point* points, const IndexVector& indices, int chunk, size_t target,
                size_t parts, Cutting& cutting, KdScratch& scratch) {
    const size_t size = static_cast<size_t>(std::max(chunk, 1));
    const size_t want = std::max<size_t>(parts, 1);
    const size_t n = indices.size();
    if (size / kThinning < kThinnedChunk || n / want / size < kThinnedChunks) {
        return sampleSplitting(itemsOf(points, indices, scratch), size, target, want, cutting);
    }
    LargeVector<Item>& items = scratch;
    items.resize(n / kThinning);
    for (size_t k = 0; k < items.size(); ++k) {
        const uint32_t i = indices[k * kThinning + kThinning / 2];
        const double* p = points[i].position;
        items[k] = {{p[0], p[1], p[2]}, i};
    }
    std::vector<Plane> planes;
    int32_t branches = 0;
    const int32_t root = planesOf(items, {0, items.size(), -1}, want, size / kThinning,
                                  std::max<size_t>(target / kThinning, 1), planes, branches);
    // A plane at a coordinate that is not a number (the splits put those last) is taken to lie at
    // infinity: the regions of a sample need only be close to the branches.
    for (Plane& plane : planes)
        if (std::isnan(plane.at)) plane.at = INFINITY;
    std::vector<std::vector<Item>> found(static_cast<size_t>(branches));
    for (const uint32_t i : indices) {
        const double* p = points[i].position;
        int32_t at = root;
        while (at >= 0) {
            const Plane& plane = planes[static_cast<size_t>(at)];
            at = plane.next[p[plane.axis] < plane.at ? 0 : 1];
        }
        if (at != kNowhere)
            found[static_cast<size_t>(kNowhere - 1 - at)].push_back({{p[0], p[1], p[2]}, i});
    }
    size_t sampled = 0;
    for (const std::vector<Item>& branch : found) {
        items.assign(branch.begin(), branch.end());
        const Part part = followDown(items, {0, items.size(), -1}, size, target);
        sampled += part.end - part.begin;
        appendCells(items, part, size, cutting);
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

#include "bulk/stored_order.h"

#include <algorithm>
#include <climits>

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "encoder/quantize.h"
#include "frame/bit_length.h"
#include "frame/bounding_box.h"
#include "frame/chunk_axes.h"
#include "frame/wrapping.h"

namespace zulbulk {

namespace {

// The encoder sorts a chunk's records by their slots with std::sort wherever two share a
// position, and std::sort's moves follow from the outcomes of its comparisons alone: the same
// comparisons over the same number of items in the same given order make the same permutation,
// whatever the items are. So the order is found here over point numbers compared as the slots
// are; where no two points share a position the order is unique, and a bucket sort finds it.

// Slots packed into one key of at most 64 bits, which compares as they do.
struct KeyLess {
    const uint64_t* keys;
    bool operator()(uint32_t a, uint32_t b) const { return keys[a] < keys[b]; }
};

// Wider slots (or a slot of 2^63 or more, which the encoder compares as a signed value).
struct SlotsLess {
    const zullib::zul_QuantizedPoint* records;
    bool operator()(uint32_t a, uint32_t b) const {
        const int64_t* p = records[a].coordinates;
        const int64_t* q = records[b].coordinates;
        if (p[0] != q[0]) return p[0] < q[0];
        if (p[1] != q[1]) return p[1] < q[1];
        return p[2] < q[2];
    }
};

// Below this many points a comparison sort costs no more than the buckets.
constexpr size_t kBucketsFrom = 256;
// Where no bucket holds more than this many words, one insertion pass sorts them all.
constexpr size_t kFew = 16;

// Sorts the n words of `words` (each a key of `keyBits` bits above `low` bits of point number,
// no two alike) into `sorted`: into at most n buckets by the key's leading bits, then by
// comparison within each bucket. `starts` has room for n + 1 counts.
void bucketSort(const uint64_t* words, uint64_t* sorted, uint32_t* starts, size_t n, int low,
                int keyBits) {
    const int bits = std::min(keyBits, zullib::bitLength(n) - 1);  // at most n buckets
    const int shift = low + keyBits - bits;
    const size_t buckets = size_t{1} << bits;
    std::fill(starts, starts + buckets + 1, 0);
    for (size_t i = 0; i < n; ++i) ++starts[(words[i] >> shift) + 1];
    uint32_t most = 0;
    for (size_t b = 1; b <= buckets; ++b) {
        most = std::max(most, starts[b]);
        starts[b] += starts[b - 1];
    }
    for (size_t i = 0; i < n; ++i) sorted[starts[words[i] >> shift]++] = words[i];
    if (most <= kFew) {
        // Every word is out of place only within its bucket, by a few places at most: one
        // insertion pass over them all, whose comparisons nearly all come out the same way.
        for (size_t j = 1; j < n; ++j) {
            const uint64_t word = sorted[j];
            size_t h = j;
            for (; h > 0 && sorted[h - 1] > word; --h) sorted[h] = sorted[h - 1];
            sorted[h] = word;
        }
        return;
    }
    // Each bucket now ends where the next began.
    size_t begin = 0;
    for (size_t b = 0; b < buckets; ++b) {
        const size_t end = starts[b];
        if (end - begin > 1) std::sort(sorted + begin, sorted + end);
        begin = end;
    }
}

// The integer `v` truncates to, and whether it is `v`. Where the processor's conversion is at hand
// it is used as it is: a value beyond 64 bits (or a NaN) gives -2^63, which is no whole number
// below 2^52 either (the caller checks the range on the integers).
inline bool truncatesToItself(double v, long long& g) {
#if defined(__x86_64__) && defined(__SSE2__)
    g = _mm_cvttsd_si64(_mm_set_sd(v));
#else
    constexpr double kWide = 9223372036854775808.0;  // 2^63
    g = v > -kWide && v < kWide ? static_cast<long long>(v) : LLONG_MIN;
#endif
    return static_cast<double>(g) == v;
}

// On a step of 1, where every coordinate of the chunk is a whole number below 2^52 in size (as a
// rule: the tool hands the grid points of LAS records), each is its own grid point (value + 0.5
// is exact, and its floor the value). Sets the box of the `n` points at `positions` and returns
// true when they all are; false at the first that is not.
bool wholeBox(const double* positions, size_t n, zullib::BoundingBox3d<long long>& box) {
    constexpr long long kExact = 4503599627370496;  // 2^52
    long long low[3] = {LLONG_MAX, LLONG_MAX, LLONG_MAX};
    long long high[3] = {LLONG_MIN, LLONG_MIN, LLONG_MIN};
    for (size_t i = 0; i < n; ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            long long g;
            if (!truncatesToItself(positions[3 * i + axis], g)) return false;
            low[axis] = std::min(low[axis], g);
            high[axis] = std::max(high[axis], g);
        }
    }
    for (int axis = 0; axis < 3; ++axis) {
        if (low[axis] <= -kExact || high[axis] >= kExact) return false;
        box.min[axis] = low[axis], box.max[axis] = high[axis];
    }
    return true;
}

}  // namespace

bool storedOrder(const zul_DataType& type, const zul_PointData& points, uint32_t* order,
                 std::vector<zullib::zul_QuantizedPoint>& records,
                 std::vector<unsigned char>& scratch) {
    const size_t n = static_cast<size_t>(points.numPoints);
    if (n == 0) return true;
    const double* const positions = points.positions;
    // The encoder's own steps: each position onto the grid, the slots laid out by the chunk's
    // box and shifted to its minimum. Only the coordinates decide the order.
    const double step = type.quantizationStep;
    zullib::BoundingBox3d<long long> box;
    // Where every position is its own grid point, the grid points are not kept: the keys are
    // made from the positions again.
    const bool whole = step == 1.0 && wholeBox(positions, n, box);
    if (!whole) {
        // Grown, never shrunk: a smaller chunk before a larger one would zero the rest again.
        if (records.size() < n) records.resize(n);
        // On a step of 1, a whole number below 2^52 is its own grid point (value + 0.5 is
        // exact, and its floor the value): the rounding is called only for the others.
        const bool unit = step == 1.0;
        constexpr double kExact = 4503599627370496.0;  // 2^52
        for (size_t i = 0; i < n; ++i) {
            long long grid[3];
            for (int axis = 0; axis < 3; ++axis) {
                const double value = positions[3 * i + axis];
                const bool wholeValue = unit && value > -kExact && value < kExact &&
                                        static_cast<double>(static_cast<long long>(value)) == value;
                grid[axis] = wholeValue ? static_cast<long long>(value)
                                        : zullib::quantizeCoordinate(value, step);
                records[i].coordinates[axis] = grid[axis];
            }
            box.extend(grid);
        }
    }
    const zullib::ChunkAxes axes = zullib::chunkAxes(box);
    // A slot's values run from 0 (its minimum's point) to its span (its maximum's): the bits of
    // the span are the bits its values take.
    const int* const width = axes.coordinateBits;
    const int* const remap = axes.axisRemap;
    for (size_t i = 0; i < n; ++i) order[i] = static_cast<uint32_t>(i);
    const int keyBits = width[0] + width[1] + width[2];
    if (keyBits > 64 || width[0] == 64 || width[1] == 64 || width[2] == 64) {
        if (whole) {
            if (records.size() < n) records.resize(n);
            for (size_t i = 0; i < n; ++i)
                for (int axis = 0; axis < 3; ++axis)
                    records[i].coordinates[axis] = static_cast<long long>(positions[3 * i + axis]);
        }
        for (size_t i = 0; i < n; ++i) {
            zullib::zul_QuantizedPoint& record = records[i];
            const int64_t grid[3] = {record.coordinates[0], record.coordinates[1],
                                     record.coordinates[2]};
            for (int k = 0; k < 3; ++k) {
                record.coordinates[k] = zullib::wrappingSub(grid[remap[k]], axes.slotMin[k]);
            }
        }
        const SlotsLess less{records.data()};
        std::sort(order, order + n, less);
        // Sorted: two points share a grid point exactly when two neighbours do.
        for (size_t k = 1; k < n; ++k)
            if (!less(order[k - 1], order[k])) return false;
        return true;
    }
    // The keys: axis a's slot (its value less the slot's minimum) at its place in the key, that
    // of slot k above the slots after it. A slot of no width holds only 0.
    uint64_t minimum[3] = {0, 0, 0};
    int shift[3] = {0, 0, 0};
    for (int k = 0, above = keyBits; k < 3; ++k) {
        above -= width[k];
        minimum[remap[k]] = static_cast<uint64_t>(axes.slotMin[k]);
        shift[remap[k]] = width[k] > 0 ? above : 0;
    }
    // Then, where a key and a point number fit in one word, those words and the same sorted, and
    // the buckets' counts.
    const int low = zullib::bitLength(n);
    const bool buckets = n >= kBucketsFrom && keyBits + low <= 64;
    const size_t need = n * sizeof(uint64_t) * (buckets ? 3 : 1) + (n + 2) * sizeof(uint32_t);
    if (scratch.size() < need) scratch.resize(need);
    uint64_t* keys = reinterpret_cast<uint64_t*>(scratch.data());
    uint64_t* words = keys + n;
    bool neighboursTie = false;
    uint64_t previous = 0;
    for (size_t i = 0; i < n; ++i) {
        uint64_t grid[3];
        for (int axis = 0; axis < 3; ++axis) {
            grid[axis] =
                whole ? static_cast<uint64_t>(static_cast<long long>(positions[3 * i + axis]))
                      : static_cast<uint64_t>(records[i].coordinates[axis]);
        }
        const uint64_t key = (grid[0] - minimum[0]) << shift[0] |
                             (grid[1] - minimum[1]) << shift[1] |
                             (grid[2] - minimum[2]) << shift[2];
        keys[i] = key;
        if (buckets) words[i] = key << low | i;
        neighboursTie |= i > 0 && key == previous;
        previous = key;
    }
    if (buckets && !neighboursTie) {
        uint64_t* sorted = words + n;
        bucketSort(words, sorted, reinterpret_cast<uint32_t*>(sorted + n), n, low, keyBits);
        const uint64_t mask = (uint64_t{1} << low) - 1;
        // Two words of one key differ only below `low`: the smallest difference above it is 0.
        uint64_t apart = ~uint64_t{0}, before = ~sorted[0];
        for (size_t k = 0; k < n; ++k) {
            const uint64_t word = sorted[k];
            order[k] = static_cast<uint32_t>(word & mask);
            apart = std::min(apart, (word ^ before) >> low);
            before = word;
        }
        if (apart != 0) return true;
        for (size_t i = 0; i < n; ++i) order[i] = static_cast<uint32_t>(i);
    }
    std::sort(order, order + n, KeyLess{keys});
    if (neighboursTie) return false;
    for (size_t k = 1; k < n; ++k)
        if (keys[order[k - 1]] == keys[order[k]]) return false;
    return true;
}

}  // namespace zulbulk

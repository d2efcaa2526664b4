#include "bulk/stored_order.h"

#include <algorithm>

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

}  // namespace

void storedOrder(const zul_DataType& type, const zul_PointData& points, uint32_t* order,
                 std::vector<zullib::zul_QuantizedPoint>& records,
                 std::vector<unsigned char>& scratch) {
    const size_t n = static_cast<size_t>(points.numPoints);
    // Grown, never shrunk: a smaller chunk before a larger one would zero the rest again.
    if (records.size() < n) records.resize(n);
    // The encoder's own steps: each position onto the grid, the slots laid out by the chunk's
    // box and shifted to its minimum. Only the coordinates decide the order.
    const double step = type.quantizationStep;
    // On a step of 1, a whole number below 2^52 is its own grid point (value + 0.5 is exact, and
    // its floor the value): the rounding is called only for the others.
    const bool unit = step == 1.0;
    constexpr double kExact = 4503599627370496.0;  // 2^52
    zullib::BoundingBox3d<long long> box;
    for (size_t i = 0; i < n; ++i) {
        long long grid[3];
        for (int axis = 0; axis < 3; ++axis) {
            const double value = points.positions[3 * i + axis];
            const bool whole = unit && value > -kExact && value < kExact &&
                               static_cast<double>(static_cast<long long>(value)) == value;
            grid[axis] =
                whole ? static_cast<long long>(value) : zullib::quantizeCoordinate(value, step);
            records[i].coordinates[axis] = grid[axis];
        }
        box.extend(grid);
    }
    if (n == 0) return;
    const zullib::ChunkAxes axes = zullib::chunkAxes(box);
    // A slot's values run from 0 (its minimum's point) to its span (its maximum's): the bits of
    // the span are the bits its values take.
    const int* const width = axes.coordinateBits;
    const int* const remap = axes.axisRemap;
    const uint64_t minimum[3] = {static_cast<uint64_t>(axes.slotMin[0]),
                                 static_cast<uint64_t>(axes.slotMin[1]),
                                 static_cast<uint64_t>(axes.slotMin[2])};
    for (size_t i = 0; i < n; ++i) order[i] = static_cast<uint32_t>(i);
    const int keyBits = width[0] + width[1] + width[2];
    if (keyBits > 64 || width[0] == 64 || width[1] == 64 || width[2] == 64) {
        for (size_t i = 0; i < n; ++i) {
            zullib::zul_QuantizedPoint& record = records[i];
            const int64_t grid[3] = {record.coordinates[0], record.coordinates[1],
                                     record.coordinates[2]};
            for (int k = 0; k < 3; ++k) {
                record.coordinates[k] = zullib::wrappingSub(grid[remap[k]], axes.slotMin[k]);
            }
        }
        std::sort(order, order + n, SlotsLess{records.data()});
        return;
    }
    // The keys; then, where a key and a point number fit in one word, those words and the same
    // sorted, and the buckets' counts.
    const int low = zullib::bitLength(n);
    const bool buckets = n >= kBucketsFrom && keyBits + low <= 64;
    const size_t need = n * sizeof(uint64_t) * (buckets ? 3 : 1) + (n + 2) * sizeof(uint32_t);
    if (scratch.size() < need) scratch.resize(need);
    uint64_t* keys = reinterpret_cast<uint64_t*>(scratch.data());
    bool neighboursTie = false;
    for (size_t i = 0; i < n; ++i) {
        const int64_t* grid = records[i].coordinates;
        uint64_t slot[3];
        for (int k = 0; k < 3; ++k) slot[k] = static_cast<uint64_t>(grid[remap[k]]) - minimum[k];
        uint64_t key = slot[0];
        key = width[1] > 0 ? key << width[1] | slot[1] : key;
        key = width[2] > 0 ? key << width[2] | slot[2] : key;
        keys[i] = key;
        neighboursTie |= i > 0 && key == keys[i - 1];
    }
    if (buckets && !neighboursTie) {
        uint64_t* words = keys + n;
        uint64_t* sorted = words + n;
        for (size_t i = 0; i < n; ++i) words[i] = keys[i] << low | i;
        bucketSort(words, sorted, reinterpret_cast<uint32_t*>(sorted + n), n, low, keyBits);
        const uint64_t mask = (uint64_t{1} << low) - 1;
        bool tied = false;
        for (size_t k = 0; k < n; ++k) {
            order[k] = static_cast<uint32_t>(sorted[k] & mask);
            tied |= k > 0 && sorted[k] >> low == sorted[k - 1] >> low;
        }
        if (!tied) return;
        for (size_t i = 0; i < n; ++i) order[i] = static_cast<uint32_t>(i);
    }
    std::sort(order, order + n, KeyLess{keys});
}

}  // namespace zulbulk

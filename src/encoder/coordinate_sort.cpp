#include "encoder/coordinate_sort.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "frame/bit_length.h"

namespace zullib {

namespace {

struct CoordinatesBefore {
    bool operator()(const zul_QuantizedPoint& a, const zul_QuantizedPoint& b) const {
        if (a.coordinates[0] != b.coordinates[0]) return a.coordinates[0] < b.coordinates[0];
        if (a.coordinates[1] != b.coordinates[1]) return a.coordinates[1] < b.coordinates[1];
        return a.coordinates[2] < b.coordinates[2];
    }
};

struct Keyed {
    uint64_t key;
    uint32_t index;
};

struct KeyBefore {
    bool operator()(const Keyed& a, const Keyed& b) const { return a.key < b.key; }
};

const int kDigitBits = 11;
const size_t kDigits = size_t{1} << kDigitBits;

// The pairs of the records in their given order, each key the three slots side by side.
void makePairs(const std::vector<zul_QuantizedPoint>& points, const int (&width)[3], Keyed* pairs) {
    for (size_t i = 0; i < points.size(); ++i) {
        const int64_t* c = points[i].coordinates;
        uint64_t key = static_cast<uint64_t>(c[0]);
        key = width[1] > 0 ? key << width[1] | static_cast<uint64_t>(c[1]) : key;
        key = width[2] > 0 ? key << width[2] | static_cast<uint64_t>(c[2]) : key;
        new (&pairs[i]) Keyed{key, static_cast<uint32_t>(i)};
    }
}

// Stable LSD radix sort of n pairs on the low `keyBits` bits of their keys, between the two
// arrays; returns the one that holds the result.
Keyed* radixSort(Keyed* pairs, Keyed* other, size_t n, int keyBits, uint32_t* counts) {
    for (int shift = 0; shift < keyBits; shift += kDigitBits) {
        std::fill(counts, counts + kDigits, 0);
        for (size_t i = 0; i < n; ++i) ++counts[(pairs[i].key >> shift) & (kDigits - 1)];
        uint32_t start = 0;
        for (size_t d = 0; d < kDigits; ++d) {
            const uint32_t count = counts[d];
            counts[d] = start;
            start += count;
        }
        for (size_t i = 0; i < n; ++i)
            new (&other[counts[(pairs[i].key >> shift) & (kDigits - 1)]++]) Keyed(pairs[i]);
        std::swap(pairs, other);
    }
    return pairs;
}

// Moves every record to its place in the order, following the cycles of the permutation; an
// index that has been dealt with is set to its own position.
void permute(std::vector<zul_QuantizedPoint>& points, Keyed* order) {
    for (size_t start = 0; start < points.size(); ++start) {
        if (order[start].index == start) continue;
        const zul_QuantizedPoint first = points[start];
        size_t at = start;
        while (order[at].index != start) {
            const size_t from = order[at].index;
            points[at] = points[from];
            order[at].index = static_cast<uint32_t>(at);
            at = from;
        }
        points[at] = first;
        order[at].index = static_cast<uint32_t>(at);
    }
}

}  // namespace

void sortByCoordinates(std::vector<zul_QuantizedPoint>& points,
                       std::vector<unsigned char>& scratch) {
    const size_t n = points.size();
    uint64_t used[3] = {0, 0, 0};
    for (const zul_QuantizedPoint& p : points)
        for (int k = 0; k < 3; ++k) used[k] |= static_cast<uint64_t>(p.coordinates[k]);
    const int width[3] = {bitLength(used[0]), bitLength(used[1]), bitLength(used[2])};
    // A negative slot (a span of 2^63 or more) or slots too wide for one key: sort the records.
    if (width[0] + width[1] + width[2] > 64 || width[0] == 64 || width[1] == 64 || width[2] == 64 ||
        n > UINT32_MAX) {
        std::sort(points.begin(), points.end(), CoordinatesBefore());
        return;
    }
    // Two arrays of pairs and the digit counts, in the caller's buffer.
    const size_t need = 2 * n * sizeof(Keyed) + kDigits * sizeof(uint32_t);
    if (scratch.size() < need) scratch.resize(need);
    Keyed* pairs = reinterpret_cast<Keyed*>(scratch.data());
    Keyed* other = pairs + n;
    uint32_t* counts = new (other + n) uint32_t[kDigits];
    makePairs(points, width, pairs);
    Keyed* sorted = radixSort(pairs, other, n, width[0] + width[1] + width[2], counts);
    bool tied = false;
    for (size_t i = 1; i < n && !tied; ++i) tied = sorted[i].key == sorted[i - 1].key;
    if (tied) {
        makePairs(points, width, pairs);
        std::sort(pairs, pairs + n, KeyBefore());
        sorted = pairs;
    }
    permute(points, sorted);
}

}  // namespace zullib

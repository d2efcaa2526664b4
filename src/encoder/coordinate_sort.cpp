#include "encoder/coordinate_sort.h"

#include <algorithm>
#include <cstdint>

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

// Stable LSD radix sort of the pairs on the low `keyBits` bits of their keys.
void radixSort(std::vector<Keyed>& pairs, int keyBits) {
    std::vector<Keyed> other(pairs.size());
    std::vector<uint32_t> counts(kDigits);
    for (int shift = 0; shift < keyBits; shift += kDigitBits) {
        std::fill(counts.begin(), counts.end(), 0);
        for (const Keyed& p : pairs) ++counts[(p.key >> shift) & (kDigits - 1)];
        uint32_t start = 0;
        for (uint32_t& count : counts) {
            const uint32_t n = count;
            count = start;
            start += n;
        }
        for (const Keyed& p : pairs) other[counts[(p.key >> shift) & (kDigits - 1)]++] = p;
        pairs.swap(other);
    }
}

}  // namespace

void sortByCoordinates(std::vector<zul_QuantizedPoint>& points) {
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
    std::vector<Keyed> pairs(n);
    for (size_t i = 0; i < n; ++i) {
        const int64_t* c = points[i].coordinates;
        uint64_t key = static_cast<uint64_t>(c[0]);
        key = width[1] > 0 ? key << width[1] | static_cast<uint64_t>(c[1]) : key;
        key = width[2] > 0 ? key << width[2] | static_cast<uint64_t>(c[2]) : key;
        pairs[i] = {key, static_cast<uint32_t>(i)};
    }
    std::vector<Keyed> sorted = pairs;
    radixSort(sorted, width[0] + width[1] + width[2]);
    bool tied = false;
    for (size_t i = 1; i < n && !tied; ++i) tied = sorted[i].key == sorted[i - 1].key;
    if (tied) {
        std::sort(pairs.begin(), pairs.end(), KeyBefore());
        sorted.swap(pairs);
    }
    std::vector<zul_QuantizedPoint> ordered(n);
    for (size_t i = 0; i < n; ++i) ordered[i] = points[sorted[i].index];
    points.swap(ordered);
}

}  // namespace zullib

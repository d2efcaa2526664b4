#include "stream_order.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace zul::ros {

namespace {

// The stream format's choice of axes from a chunk's extents: the largest first, the smallest
// second, the remaining one last.
void axisOrder(const int64_t extent[3], int remap[3]) {
    const int64_t ex = extent[0], ey = extent[1], ez = extent[2];
    remap[0] = ex < ey ? (ey < ez ? 2 : 1) : (ex < ez ? 2 : 0);
    remap[1] = ex < ey ? (ex < ez ? 0 : 2) : (ey < ez ? 1 : 2);
    remap[2] = 3 - remap[0] - remap[1];
}

// Sorts values whose order is nearly right: each moves back past the few before it that are
// larger.
void insertionSort(uint64_t* values, size_t n) {
    for (size_t i = 1; i < n; ++i) {
        const uint64_t value = values[i];
        size_t j = i;
        for (; j > 0 && values[j - 1] > value; --j) values[j] = values[j - 1];
        values[j] = value;
    }
}

// Sorts `values`, which differ in their low bits (the key's place) and agree above bit `high`,
// by buckets of their top bits below `high`; buckets of at most 32 values (the common case) are
// then finished by one insertion sort over them all, larger ones alike on the bits below, down to
// small buckets that a comparison sort finishes. Two passes over most values where a radix sort
// from the least significant digit makes one a digit of the whole key. `spare` holds n values.
void bucketSort(uint64_t* values, uint64_t* spare, size_t n, int high, int low) {
    if (n <= 48 || high <= low) {
        std::sort(values, values + n);
        return;
    }
    constexpr int kMaxBits = 11;
    const int bits = std::min(high - low, kMaxBits);
    const int shift = high - bits;
    const uint64_t mask = (uint64_t{1} << bits) - 1;
    uint32_t starts[(1u << kMaxBits) + 1];
    std::fill_n(starts, mask + 2, 0u);
    for (size_t i = 0; i < n; ++i) ++starts[((values[i] >> shift) & mask) + 1];
    uint32_t largest = 0;
    for (uint64_t d = 0; d < mask + 1; ++d) {
        largest = std::max(largest, starts[d + 1]);
        starts[d + 1] += starts[d];
    }
    uint32_t next[1u << kMaxBits];
    std::copy_n(starts, mask + 1, next);
    for (size_t i = 0; i < n; ++i) spare[next[(values[i] >> shift) & mask]++] = values[i];
    std::copy_n(spare, n, values);
    if (largest <= 32) {
        insertionSort(values, n);
        return;
    }
    for (uint64_t d = 0; d <= mask; ++d) {
        const uint32_t size = starts[d + 1] - starts[d];
        if (size > 1) bucketSort(values + starts[d], spare, size, shift, low);
    }
}

}  // namespace

void sortAsStored(std::vector<OrderKey>& keys) {
    if (keys.empty()) return;
    int64_t low[3], high[3];
    for (int k = 0; k < 3; ++k) low[k] = high[k] = keys[0].slot[k];
    for (const OrderKey& key : keys) {
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], key.slot[k]);
            high[k] = std::max(high[k], key.slot[k]);
        }
    }
    int64_t extent[3];
    for (int k = 0; k < 3; ++k) extent[k] = high[k] - low[k];
    int remap[3];
    axisOrder(extent, remap);
    // Points on one grid position by colour, reflection and message order.
    auto sameSlotBefore = [](const OrderKey& a, const OrderKey& b) {
        if (a.color != b.color) return a.color < b.color;
        if (a.reflection != b.reflection) return a.reflection < b.reflection;
        return a.local < b.local;
    };
    // Each key's slots less their smallest, in axis order, and its place packed in one number,
    // when they fit; sorted as numbers, then runs of one slot by the rest of the order.
    int bits[3];
    for (int k = 0; k < 3; ++k) {
        const uint64_t span = uint64_t(extent[remap[k]]);
        bits[k] = 0;
        while (bits[k] < 64 && (span >> bits[k]) != 0) ++bits[k];
    }
    const int placeBits = 16;
    if (keys.size() > (size_t{1} << placeBits) || bits[0] + bits[1] + bits[2] + placeBits > 64) {
        std::sort(keys.begin(), keys.end(), [&](const OrderKey& a, const OrderKey& b) {
            for (int k = 0; k < 3; ++k)
                if (a.slot[remap[k]] != b.slot[remap[k]])
                    return a.slot[remap[k]] < b.slot[remap[k]];
            return sameSlotBefore(a, b);
        });
        return;
    }
    // The shift of each input axis (an axis of one slot, all zeros, below 64).
    int shift[3];
    shift[remap[0]] = std::min(bits[1] + bits[2] + placeBits, 63);
    shift[remap[1]] = std::min(bits[2] + placeBits, 63);
    shift[remap[2]] = placeBits;
    thread_local std::vector<uint64_t> packed;
    thread_local std::vector<OrderKey> sorted;
    packed.resize(keys.size());
    for (size_t j = 0; j < keys.size(); ++j) {
        const OrderKey& key = keys[j];
        packed[j] = j | uint64_t(key.slot[0] - low[0]) << shift[0] |
                    uint64_t(key.slot[1] - low[1]) << shift[1] |
                    uint64_t(key.slot[2] - low[2]) << shift[2];
    }
    // Ties of the slots stay in place order, as a sort of the whole numbers leaves them.
    thread_local std::vector<uint64_t> spare;
    spare.resize(keys.size());
    bucketSort(packed.data(), spare.data(), packed.size(), placeBits + bits[0] + bits[1] + bits[2],
               placeBits);
    sorted.resize(keys.size());
    const uint64_t place = (uint64_t{1} << placeBits) - 1;
    for (size_t j = 0; j < keys.size(); ++j) sorted[j] = keys[packed[j] & place];
    // Runs of one slot are rare: found by a scan for neighbours that share it.
    const size_t n = sorted.size();
    const uint64_t* key = packed.data();
    for (size_t j = 0;;) {
        while (j + 1 < n && ((key[j] ^ key[j + 1]) >> placeBits) != 0) ++j;
        if (j + 1 >= n) break;
        size_t end = j + 2;
        while (end < n && ((key[end] ^ key[j]) >> placeBits) == 0) ++end;
        std::sort(sorted.begin() + std::ptrdiff_t(j), sorted.begin() + std::ptrdiff_t(end),
                  sameSlotBefore);
        j = end;
    }
    keys.swap(sorted);
}

bool settleTies(const double* positions, const uint8_t* colors, const int32_t* reflections,
                uint32_t n, std::vector<uint32_t>& order) {
    if (colors == nullptr && reflections == nullptr) return false;
    auto samePlace = [&](uint32_t a, uint32_t b) {
        return positions[3 * a] == positions[3 * b] &&
               positions[3 * a + 1] == positions[3 * b + 1] &&
               positions[3 * a + 2] == positions[3 * b + 2];
    };
    // Most chunks have no two points on one position.
    uint32_t i = 0;
    while (i + 1 < n && !samePlace(i, i + 1)) ++i;
    if (i + 1 >= n) return false;
    order.resize(n);
    std::iota(order.begin(), order.end(), 0u);
    auto before = [&](uint32_t a, uint32_t b) {
        const uint32_t ca =
            colors ? uint32_t(colors[3 * a]) << 16 | colors[3 * a + 1] << 8 | colors[3 * a + 2] : 0;
        const uint32_t cb =
            colors ? uint32_t(colors[3 * b]) << 16 | colors[3 * b + 1] << 8 | colors[3 * b + 2] : 0;
        if (ca != cb) return ca < cb;
        return reflections ? reflections[a] < reflections[b] : false;
    };
    while (i + 1 < n) {
        uint32_t end = i + 1;
        while (end < n && samePlace(i, end)) ++end;
        if (end - i > 1) std::stable_sort(order.begin() + i, order.begin() + end, before);
        i = end;
    }
    return true;
}

}  // namespace zul::ros

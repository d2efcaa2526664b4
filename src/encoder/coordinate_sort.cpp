#include "encoder/coordinate_sort.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>

#include "frame/bit_length.h"
#include "frame/compiler.h"

namespace zullib {

namespace {

struct CoordinatesBefore {
    bool operator()(const zul_QuantizedPoint& a, const zul_QuantizedPoint& b) const {
        if (a.coordinates[0] != b.coordinates[0]) return a.coordinates[0] < b.coordinates[0];
        if (a.coordinates[1] != b.coordinates[1]) return a.coordinates[1] < b.coordinates[1];
        return a.coordinates[2] < b.coordinates[2];
    }
};

// A record's sort key and its index in the given order. Keys of up to 32 bits travel packed
// with the index in one word (key above, index below); wider ones in a pair.
struct Keyed {
    uint64_t key;
    uint32_t index;
    static Keyed make(uint64_t key, uint32_t index) { return {key, index}; }
    uint64_t sortKey() const { return key; }
    uint32_t position() const { return index; }
    void setPosition(uint32_t i) { index = i; }
};

struct Packed {
    uint64_t word;
    static Packed make(uint64_t key, uint32_t index) { return {key << 32 | index}; }
    uint64_t sortKey() const { return word >> 32; }
    uint32_t position() const { return static_cast<uint32_t>(word); }
    void setPosition(uint32_t i) { word = (word & ~uint64_t{0xFFFFFFFF}) | i; }
};

// The comparison looks at keys alone, so equal keys compare equal, as equal positions do in the
// comparison of records.
template <class Element>
struct KeyBefore {
    bool operator()(const Element& a, const Element& b) const { return a.sortKey() < b.sortKey(); }
};

const int kDigitBits = 11;
const size_t kDigits = size_t{1} << kDigitBits;
const size_t kRadixFrom = 2048;

// The elements of the records in their given order, each key the three slots side by side.
// True if two records next to each other share a position: then the order has ties for sure.
// `ascending` tells whether every key is above the one before: the records are then in their
// sorted order already, the only one there is.
template <class Element>
bool makeElements(const std::vector<zul_QuantizedPoint>& points, const int (&width)[3],
                  Element* elements, bool& ascending) {
    // A slot of width 0 holds only zeros, and a shift by 0 leaves the key as it is.
    const auto keyOf = [&](const zul_QuantizedPoint& point) {
        const int64_t* c = point.coordinates;
        return (static_cast<uint64_t>(c[0]) << width[1] | static_cast<uint64_t>(c[1])) << width[2] |
               static_cast<uint64_t>(c[2]);
    };
    const size_t n = points.size();
    uint64_t previous = n > 0 ? keyOf(points[0]) : 0;
    if (n > 0) new (&elements[0]) Element(Element::make(previous, 0));
    bool neighboursTie = false, notAbove = false;
    ZUL_UNROLL_4
    for (size_t i = 1; i < n; ++i) {
        const uint64_t key = keyOf(points[i]);
        new (&elements[i]) Element(Element::make(key, static_cast<uint32_t>(i)));
        neighboursTie |= key == previous;
        notAbove |= key <= previous;
        previous = key;
    }
    ascending = !notAbove;
    return neighboursTie;
}

// The digit counts of every pass of the radix sort over `keyBits`, in one sweep of the
// elements: counts + p * kDigits for pass p.
template <class Element>
void countDigits(const Element* elements, size_t n, int keyBits, uint32_t* counts) {
    const int passes = (keyBits + kDigitBits - 1) / kDigitBits;
    std::fill(counts, counts + passes * kDigits, 0);
    ZUL_UNROLL_4
    for (size_t i = 0; i < n; ++i) {
        const uint64_t key = elements[i].sortKey();
        for (int p = 0; p < passes; ++p)
            ++counts[p * kDigits + ((key >> (p * kDigitBits)) & (kDigits - 1))];
    }
}

// Stable LSD radix sort of n elements on the low `keyBits` bits of their keys, between the two
// arrays; returns the one that holds the result. `counts` holds each pass's digit counts, as
// countDigits makes them; a pass whose digit is the same for every element moves nothing and is
// skipped.
template <class Element>
Element* radixSort(Element* elements, Element* other, size_t n, int keyBits, uint32_t* counts) {
    for (int shift = 0; shift < keyBits; shift += kDigitBits, counts += kDigits) {
        // Every element shares the digit exactly when the first element's digit counts them all.
        if (counts[(elements[0].sortKey() >> shift) & (kDigits - 1)] == n) continue;
        // The last pass may take fewer bits than a digit holds; digits beyond them count none.
        const size_t digits =
            keyBits - shift < kDigitBits ? size_t{1} << (keyBits - shift) : kDigits;
        uint32_t start = 0;
        ZUL_UNROLL_4
        for (size_t d = 0; d < digits; ++d) {
            const uint32_t count = counts[d];
            counts[d] = start;
            start += count;
        }
        ZUL_UNROLL_4
        for (size_t i = 0; i < n; ++i)
            new (&other[counts[(elements[i].sortKey() >> shift) & (kDigits - 1)]++])
                Element(elements[i]);
        std::swap(elements, other);
    }
    return elements;
}

// The records in the order of the elements, one after another: what the gather below copies
// from, so that the vector sizes its storage once and copies without checking its room a record.
template <class Element>
class OrderedRecords {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = zul_QuantizedPoint;
    using difference_type = std::ptrdiff_t;
    using pointer = const zul_QuantizedPoint*;
    using reference = const zul_QuantizedPoint&;

    OrderedRecords(const zul_QuantizedPoint* records, const Element* order)
        : records_(records), order_(order) {}
    reference operator*() const { return records_[order_->position()]; }
    OrderedRecords& operator++() {
        ++order_;
        return *this;
    }
    OrderedRecords operator++(int) {
        OrderedRecords before = *this;
        ++order_;
        return before;
    }
    bool operator==(const OrderedRecords& other) const { return order_ == other.order_; }
    bool operator!=(const OrderedRecords& other) const { return order_ != other.order_; }

private:
    const zul_QuantizedPoint* records_;
    const Element* order_;
};

// The records in the order of the elements, gathered into `spare`, which then trades places with
// `points`.
template <class Element>
void permute(std::vector<zul_QuantizedPoint>& points, const Element* order,
             std::vector<zul_QuantizedPoint>& spare) {
    const size_t n = points.size();
    spare.assign(OrderedRecords<Element>(points.data(), order),
                 OrderedRecords<Element>(points.data(), order + n));
    points.swap(spare);
}

// Radix sort, and where two records share a position the comparison sort over the elements of
// the given order instead. Two arrays of elements and the digit counts live in `scratch`.
template <class Element>
void sortElements(std::vector<zul_QuantizedPoint>& points, const int (&width)[3],
                  std::vector<unsigned char>& scratch, std::vector<zul_QuantizedPoint>& spare) {
    const size_t n = points.size();
    const int keyBits = width[0] + width[1] + width[2];
    const size_t passes = std::max((keyBits + kDigitBits - 1) / kDigitBits, 1);
    const size_t need = 2 * n * sizeof(Element) + passes * kDigits * sizeof(uint32_t);
    if (scratch.size() < need) scratch.resize(need);
    Element* elements = reinterpret_cast<Element*>(scratch.data());
    Element* other = elements + n;
    uint32_t* counts = new (other + n) uint32_t[passes * kDigits];
    bool ascending = false;
    const bool neighboursTie = makeElements(points, width, elements, ascending);
    if (ascending) return;
    // Below a few thousand records the digit counts cost more than comparing; and where two
    // neighbours share a position, the radix sort's order would be thrown away.
    Element* sorted = elements;
    bool tied = true;
    if (n >= kRadixFrom && !neighboursTie) {
        countDigits(elements, n, keyBits, counts);
        sorted = radixSort(elements, other, n, keyBits, counts);
        tied = false;
        for (size_t i = 1; i < n && !tied; ++i)
            tied = sorted[i].sortKey() == sorted[i - 1].sortKey();
        // The passes have overwritten the elements in their given order.
        if (tied) makeElements(points, width, elements, ascending);
    }
    if (tied) {
        std::sort(elements, elements + n, KeyBefore<Element>());
        sorted = elements;
    }
    permute(points, sorted, spare);
}

}  // namespace

void sortByCoordinates(std::vector<zul_QuantizedPoint>& points,
                       std::vector<unsigned char>& scratch) {
    std::vector<zul_QuantizedPoint> spare;
    sortByCoordinates(points, scratch, spare);
}

void sortByCoordinates(std::vector<zul_QuantizedPoint>& points, std::vector<unsigned char>& scratch,
                       std::vector<zul_QuantizedPoint>& spare) {
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
    if (width[0] + width[1] + width[2] <= 32)
        sortElements<Packed>(points, width, scratch, spare);
    else
        sortElements<Keyed>(points, width, scratch, spare);
}

}  // namespace zullib

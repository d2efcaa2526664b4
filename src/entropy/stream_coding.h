// What the writer and the reader of a data stream set up alike before the first point: a range
// table per component, the index of its last prefix, and the value before the first point.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/cvr.h"

namespace zullib {

template <class Accessor>
struct StreamCoding {
    static constexpr int kComponents = Accessor::kNumComponents;

    StreamCoding(const int* absoluteBits, const std::vector<int>* tables) {
        for (int c = 0; c < kComponents; ++c) {
            CVR::buildRangeLookupTable(lookup[c], tables[c], absoluteBits[c],
                                       Accessor::nonNegative(c));
            lastPrefix[c] = static_cast<int>(tables[c].size()) - 1;
            previous[c] = Accessor::predecessor(c);
        }
    }

    CVR::LookupTable lookup[kComponents];
    int lastPrefix[kComponents];
    int64_t previous[kComponents];  // the last value of each component, before any cut
};

}  // namespace zullib

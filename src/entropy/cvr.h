// Range tables of delta coding. A component's prefix table (ascending payload bit lengths, 255 as
// the last entry for the absolute escape) becomes two lists of delta ranges. A prefix's range
// begins where the previous prefix's range ended, so no payload pattern is spent on a delta that
// a shorter prefix already covers.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

namespace zullib {

class ZUL_API CVR {
public:
    // The range of one prefix in one direction. An escape entry has both bounds at INT64_MAX and
    // the absolute width as numBits.
    struct RangeEntry {
        int numBits;
        int64_t minDelta;
        int64_t maxDelta;
    };

    struct LookupTable {
        std::vector<RangeEntry> positiveRanges;  // deltas >= 0; entry i belongs to prefix i
        std::vector<RangeEntry> negativeRanges;  // deltas < 0; empty for a non-negative component
    };

    // Appends the ranges of `bitLengths` to `table`. A signed prefix of b bits spends one payload
    // bit on the direction; a non-negative one reaches 2^b deltas. Lengths above 63 (only a
    // corrupt stream holds them) build meaningless ranges without undefined behaviour.
    static void buildRangeLookupTable(LookupTable& table, const std::vector<int>& bitLengths,
                                      int absoluteBits, bool nonNegative);

    // Finds the first range that holds `delta`: gives its prefix, its payload width and the
    // payload (delta minus the range start, or the two's complement offset below a negative
    // range's end). An escape gives `absoluteValue`. With no matching entry the outputs are
    // prefixIndex = number of entries, numBits 0, value INT64_MAX.
    static void encodeDeltaOrAbsolute(int64_t& value, int& prefixIndex, int& numBits,
                                      const LookupTable& table, int64_t absoluteValue,
                                      int64_t delta);

    // Inverts encodeDeltaOrAbsolute for a sign-extended payload of a non-escape prefix. A prefix
    // outside the list it selects (only a corrupt stream gives one) decodes to the payload itself.
    static void decodeDelta(int64_t& delta, const LookupTable& table, int64_t payload,
                            int prefixIndex);
};

}  // namespace zullib

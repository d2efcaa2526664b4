#include "entropy/cvr.h"

#include "frame/wrapping.h"

namespace zullib {

namespace {
const int kEscape = 255;
const int64_t kEscapeBound = INT64_MAX;

// Range arithmetic wraps at 64 bits: bounds built from corrupt lengths may overflow. 2^w for
// w >= 64 wraps to 0.
uint64_t powerOfTwo(int w) { return w >= 0 && w < 64 ? uint64_t{1} << w : 0; }

CVR::RangeEntry escapeEntry(int absoluteBits) { return {absoluteBits, kEscapeBound, kEscapeBound}; }
}  // namespace

void CVR::buildRangeLookupTable(LookupTable& table, const std::vector<int>& bitLengths,
                                int absoluteBits, bool nonNegative) {
    table.positiveRanges.reserve(table.positiveRanges.size() + bitLengths.size());
    if (!nonNegative) table.negativeRanges.reserve(table.negativeRanges.size() + bitLengths.size());
    int64_t upper = -1;
    for (int b : bitLengths) {
        if (b == kEscape) {
            table.positiveRanges.push_back(escapeEntry(absoluteBits));
            upper = kEscapeBound;
        } else if (b == 0 && !nonNegative) {
            table.positiveRanges.push_back({0, 0, 0});
            upper = 0;
        } else {
            const uint64_t span = powerOfTwo(nonNegative ? b : b - 1);
            table.positiveRanges.push_back(
                {b, wrappingAdd(upper, 1), wrappingAdd(upper, static_cast<int64_t>(span))});
            upper = wrappingAdd(upper, static_cast<int64_t>(span));
        }
    }
    if (nonNegative) return;

    int64_t lower = 0;
    for (int b : bitLengths) {
        if (b == 0) {
            // Keeps the indices of the two lists aligned; no negative delta matches it.
            table.negativeRanges.push_back({0, 0, 0});
        } else if (b == kEscape) {
            table.negativeRanges.push_back(escapeEntry(absoluteBits));
            lower = kEscapeBound;
        } else {
            const uint64_t span = powerOfTwo(b - 1);
            table.negativeRanges.push_back(
                {b, wrappingSub(lower, static_cast<int64_t>(span)), wrappingSub(lower, 1)});
            lower = wrappingSub(lower, static_cast<int64_t>(span));
        }
    }
}

void CVR::encodeDeltaOrAbsolute(int64_t& value, int& prefixIndex, int& numBits,
                                const LookupTable& table, int64_t absoluteValue, int64_t delta) {
    value = kEscapeBound;
    numBits = 0;
    prefixIndex = 0;
    const bool positive = delta >= 0;
    for (const RangeEntry& entry : positive ? table.positiveRanges : table.negativeRanges) {
        if (entry.maxDelta == kEscapeBound) {
            numBits = entry.numBits;
            value = absoluteValue;
            return;
        }
        if (positive ? delta <= entry.maxDelta : delta >= entry.minDelta) {
            numBits = entry.numBits;
            value = positive ? wrappingSub(delta, entry.minDelta)
                             : wrappingSub(wrappingSub(delta, entry.maxDelta), 1);
            return;
        }
        ++prefixIndex;
    }
}

void CVR::decodeDelta(int64_t& delta, const LookupTable& table, int64_t payload, int prefixIndex) {
    const std::vector<RangeEntry>& ranges =
        payload >= 0 ? table.positiveRanges : table.negativeRanges;
    if (prefixIndex < 0 || static_cast<size_t>(prefixIndex) >= ranges.size()) {
        delta = payload;
        return;
    }
    delta = payload >= 0 ? wrappingAdd(ranges[prefixIndex].minDelta, payload)
                         : wrappingAdd(wrappingAdd(payload, 1), ranges[prefixIndex].maxDelta);
}

}  // namespace zullib

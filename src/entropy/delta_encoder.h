// The range search of the writer over fixed arrays: for a delta, the prefix, payload width and
// payload that CVR::encodeDeltaOrAbsolute gives, without walking vectors. Built once per stream
// component from its range tables.
#pragma once

#include <cstdint>

#include "entropy/cvr.h"
#include "frame/wrapping.h"

namespace zullib {

class DeltaEncoder {
public:
    static constexpr int kMaxEntries = 8;

    DeltaEncoder() = default;
    // `usable()` is false for a table of more entries than the arrays hold; the caller then
    // searches with CVR itself.
    explicit DeltaEncoder(const CVR::LookupTable& table) {
        const auto copy = [](const std::vector<CVR::RangeEntry>& ranges, Side& side) {
            side.count = static_cast<int>(ranges.size());
            for (int i = 0; i < side.count && i < kMaxEntries; ++i) {
                side.escape[i] = ranges[i].maxDelta == INT64_MAX;
                side.minDelta[i] = ranges[i].minDelta;
                side.maxDelta[i] = ranges[i].maxDelta;
                side.numBits[i] = ranges[i].numBits;
            }
        };
        copy(table.positiveRanges, positive_);
        copy(table.negativeRanges, negative_);
    }

    bool usable() const { return positive_.count <= kMaxEntries && negative_.count <= kMaxEntries; }

    // The widest payload any entry can ask for (an escape's absolute width included).
    int widestPayload() const {
        int widest = 0;
        for (const Side* side : {&positive_, &negative_})
            for (int i = 0; i < side->count; ++i)
                widest = side->numBits[i] > widest ? side->numBits[i] : widest;
        return widest;
    }

    // The first range holding `delta`, as CVR::encodeDeltaOrAbsolute finds it, with the same
    // outputs when none does.
    void encode(int64_t delta, int64_t absoluteValue, int64_t& value, int& prefixIndex,
                int& numBits) const {
        if (delta >= 0) {
            for (int i = 0; i < positive_.count; ++i) {
                if (positive_.escape[i])
                    return escape(positive_, i, absoluteValue, value, prefixIndex, numBits);
                if (delta <= positive_.maxDelta[i]) {
                    prefixIndex = i;
                    numBits = positive_.numBits[i];
                    value = wrappingSub(delta, positive_.minDelta[i]);
                    return;
                }
            }
            return none(positive_, value, prefixIndex, numBits);
        }
        for (int i = 0; i < negative_.count; ++i) {
            if (negative_.escape[i])
                return escape(negative_, i, absoluteValue, value, prefixIndex, numBits);
            if (delta >= negative_.minDelta[i]) {
                prefixIndex = i;
                numBits = negative_.numBits[i];
                value = wrappingSub(wrappingSub(delta, negative_.maxDelta[i]), 1);
                return;
            }
        }
        none(negative_, value, prefixIndex, numBits);
    }

private:
    struct Side {
        int count = 0;
        bool escape[kMaxEntries] = {};
        int64_t minDelta[kMaxEntries] = {};
        int64_t maxDelta[kMaxEntries] = {};
        int numBits[kMaxEntries] = {};
    };

    static void escape(const Side& side, int i, int64_t absoluteValue, int64_t& value,
                       int& prefixIndex, int& numBits) {
        prefixIndex = i;
        numBits = side.numBits[i];
        value = absoluteValue;
    }
    static void none(const Side& side, int64_t& value, int& prefixIndex, int& numBits) {
        prefixIndex = side.count;
        numBits = 0;
        value = INT64_MAX;
    }

    Side positive_, negative_;
};

}  // namespace zullib

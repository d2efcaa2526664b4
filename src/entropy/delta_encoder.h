// The range search of the writer over fixed arrays: for a delta, the prefix, payload width and
// payload that CVR::encodeDeltaOrAbsolute gives, without walking vectors. Built once per stream
// component from its range tables.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

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
        // `stop` is the bound a delta passes on its way to a later range: the end of a positive
        // range, the start of a negative one, and for an escape (which takes every delta that
        // reaches it) and past the last entry the extreme that no delta passes.
        const auto copy = [](const std::vector<CVR::RangeEntry>& ranges, Side& side,
                             bool positive) {
            side.count = static_cast<int>(ranges.size());
            const int64_t extreme = positive ? INT64_MAX : INT64_MIN;
            for (int i = 0; i < side.count && i < kMaxEntries; ++i) {
                side.escape[i] = ranges[i].maxDelta == INT64_MAX;
                side.minDelta[i] = ranges[i].minDelta;
                side.maxDelta[i] = ranges[i].maxDelta;
                side.numBits[i] = ranges[i].numBits;
                side.stop[i] = side.escape[i] ? extreme
                               : positive     ? ranges[i].maxDelta
                                              : ranges[i].minDelta;
            }
            side.stop[side.count < kMaxEntries ? side.count : kMaxEntries] = extreme;
        };
        copy(table.positiveRanges, positive_, true);
        copy(table.negativeRanges, negative_, false);
    }

    bool usable() const { return positive_.count <= kMaxEntries && negative_.count <= kMaxEntries; }

    // The last delta, going outward from 0, that range `range` of the side takes: its bound
    // nearest the extreme of the side, or the extreme for an escape or past the last range.
    int64_t reach(bool positiveSide, int range) const {
        return (positiveSide ? positive_ : negative_).stop[range];
    }

    // The widest payload any entry can ask for (an escape's absolute width included).
    int widestPayload() const {
        int widest = 0;
        for (const Side* side : {&positive_, &negative_})
            for (int i = 0; i < side->count; ++i)
                widest = side->numBits[i] > widest ? side->numBits[i] : widest;
        return widest;
    }

    // The first range holding `delta`, as CVR::encodeDeltaOrAbsolute finds it, with the same
    // outputs when none does. True if that range is the escape to the absolute value. Only for a
    // usable() encoder.
    bool encode(int64_t delta, int64_t absoluteValue, int64_t& value, int& prefixIndex,
                int& numBits) const {
        return encodeFrom(0, delta, absoluteValue, value, prefixIndex, numBits);
    }
    // The same with the search on the delta's side starting at range `first`, which gives the
    // same as encode() where every range before `first` is one that encode() passes for this
    // delta: where `first` is what encode() found for a delta nearer 0 on the same side (each
    // bound a smaller positive delta passes, a larger one passes too).
    bool encodeFrom(int first, int64_t delta, int64_t absoluteValue, int64_t& value,
                    int& prefixIndex, int& numBits) const {
        if (delta >= 0) {
            int i = first;
            while (delta > positive_.stop[i]) ++i;
            if (i == positive_.count) return none(positive_, value, prefixIndex, numBits);
            if (positive_.escape[i])
                return escape(positive_, i, absoluteValue, value, prefixIndex, numBits);
            prefixIndex = i;
            numBits = positive_.numBits[i];
            value = wrappingSub(delta, positive_.minDelta[i]);
            return false;
        }
        int i = first;
        while (delta < negative_.stop[i]) ++i;
        if (i == negative_.count) return none(negative_, value, prefixIndex, numBits);
        if (negative_.escape[i])
            return escape(negative_, i, absoluteValue, value, prefixIndex, numBits);
        prefixIndex = i;
        numBits = negative_.numBits[i];
        value = wrappingSub(wrappingSub(delta, negative_.maxDelta[i]), 1);
        return false;
    }

private:
    struct Side {
        int count = 0;
        bool escape[kMaxEntries] = {};
        int64_t minDelta[kMaxEntries] = {};
        int64_t maxDelta[kMaxEntries] = {};
        int numBits[kMaxEntries] = {};
        int64_t stop[kMaxEntries + 1] = {};
    };

    static bool escape(const Side& side, int i, int64_t absoluteValue, int64_t& value,
                       int& prefixIndex, int& numBits) {
        prefixIndex = i;
        numBits = side.numBits[i];
        value = absoluteValue;
        return true;
    }
    static bool none(const Side& side, int64_t& value, int& prefixIndex, int& numBits) {
        prefixIndex = side.count;
        numBits = 0;
        value = INT64_MAX;
        return false;
    }

    Side positive_, negative_;
};

// Whole codes for the small deltas of a component, looked up instead of searched: the deltas in
// (-2^w, 2^w) for a window of w bits, at most kMaxWidth. A component of at most w bits takes no
// other deltas; a wider one searches for the rest. An entry holds the prefix and payload bits of
// its delta as one field; an escape entry holds the prefix and the width of the absolute value
// that follows it.
class DeltaCodeTable {
public:
    static constexpr int kMaxWidth = 10;

    DeltaCodeTable() = default;
    // Empty (every code() false) if the window is too wide or a code too long for one field.
    DeltaCodeTable(const DeltaEncoder& encoder, int lastPrefix, int windowBits) {
        if (windowBits > kMaxWidth) return;
        bound_ = (int64_t{1} << windowBits) - 1;
        // Left unset here: the ranges below cover every entry of the window.
        entries_.reset(new Entry[static_cast<size_t>(2 * bound_ + 1)]);
        // Outward from 0 on each side, a range at a time: the deltas of one range share their
        // prefix and width, and their payloads step by one with them.
        int range = 0;
        for (int64_t delta = 0; delta <= bound_ && range >= 0;) {
            range = fill(encoder, lastPrefix, range, delta, bound_);
            delta = range >= 0 ? std::min(encoder.reach(true, range), bound_) + 1 : delta;
        }
        for (int64_t delta = -1, first = 0; delta >= -bound_ && range >= 0; first = range) {
            range = fill(encoder, lastPrefix, static_cast<int>(first), delta, -bound_);
            delta = range >= 0 ? std::max(encoder.reach(false, range), -bound_) - 1 : delta;
        }
        if (range < 0) {
            entries_.reset();
            bound_ = -1;
            return;
        }
        size_ = static_cast<uint64_t>(2 * bound_ + 1);
    }

    // The field for `delta` of a value `current`, with its width; false if `delta` lies outside
    // the table or the table is empty (then the caller searches).
    bool code(int64_t delta, int64_t current, uint64_t& field, int& numBits) const {
        // One unsigned comparison: deltas below -bound_ wrap to above the table's size.
        const uint64_t index = static_cast<uint64_t>(delta) + static_cast<uint64_t>(bound_);
        if (index >= size_) return false;
        const Entry& entry = entries_[index];
        const uint64_t absolute = static_cast<uint64_t>(current) & entry.absoluteMask;
        field = entry.code | absolute << entry.bits;
        numBits = entry.totalBits;
        return true;
    }

private:
    // Trivial, so that a table's storage is not zeroed before fill() writes it.
    struct Entry {
        uint64_t code;
        uint64_t absoluteMask;  // the bits of an escape's absolute value
        uint8_t bits;           // prefix, and payload unless an escape
        uint8_t totalBits;      // with an escape's absolute value
    };

    // The entries from `delta` outward to the end of its range or to `limit` (-bound_ or bound_),
    // the range searched from `first`; returns the range, or -1 if its codes are too long for
    // one field.
    int fill(const DeltaEncoder& encoder, int lastPrefix, int first, int64_t delta, int64_t limit) {
        int64_t value;
        int prefix, numBits;
        const bool escape = encoder.encodeFrom(first, delta, 0, value, prefix, numBits);
        const int prefixBits = prefix < lastPrefix ? prefix + 1 : prefix;
        if (prefix >= 56 || prefixBits + numBits > 56) return -1;
        Entry entry{};
        entry.code = (uint64_t{1} << prefix) - 1;
        entry.bits = static_cast<uint8_t>(prefixBits);
        entry.totalBits = static_cast<uint8_t>(prefixBits + numBits);
        const bool payload = !escape && numBits > 0;
        if (escape) entry.absoluteMask = (uint64_t{1} << numBits) - 1;
        if (payload) entry.bits = entry.totalBits;
        const uint64_t mask = payload ? (uint64_t{1} << numBits) - 1 : 0;
        const uint64_t ones = entry.code;
        const bool up = delta >= 0;
        const int64_t end = up ? std::min(encoder.reach(true, prefix), limit)
                               : std::max(encoder.reach(false, prefix), limit);
        // The payload of each later delta is one more (upward) or one less (downward): entry k
        // of the run lies k entries from the first, outward.
        const uint64_t payload0 = static_cast<uint64_t>(value);
        const int64_t count = up ? end - delta + 1 : delta - end + 1;
        Entry* const at = entries_.get() + (delta + bound_);
        if (up) {
            for (int64_t k = 0; k < count; ++k) {
                entry.code = ones | ((payload0 + static_cast<uint64_t>(k)) & mask) << prefixBits;
                at[k] = entry;
            }
        } else {
            for (int64_t k = 0; k < count; ++k) {
                entry.code = ones | ((payload0 - static_cast<uint64_t>(k)) & mask) << prefixBits;
                at[-k] = entry;
            }
        }
        return prefix;
    }

    std::unique_ptr<Entry[]> entries_;
    uint64_t size_ = 0;  // entries in entries_
    int64_t bound_ = -1;
};

}  // namespace zullib

// The reader's side of the range tables over fixed arrays: a payload and its prefix back to the
// delta, as CVR::decodeDelta gives it, without walking vectors. Built once per stream component.
#pragma once

#include <cstdint>

#include "entropy/cvr.h"
#include "frame/wrapping.h"

namespace zullib {

class DeltaDecoder {
public:
    static constexpr int kMaxEntries = 8;

    DeltaDecoder() = default;
    explicit DeltaDecoder(const CVR::LookupTable& table)
        : positiveCount_(static_cast<int>(table.positiveRanges.size())),
          negativeCount_(static_cast<int>(table.negativeRanges.size())) {
        for (int i = 0; i < positiveCount_ && i < kMaxEntries; ++i)
            positiveStart_[i] = table.positiveRanges[static_cast<size_t>(i)].minDelta;
        for (int i = 0; i < negativeCount_ && i < kMaxEntries; ++i)
            negativeEnd_[i] = table.negativeRanges[static_cast<size_t>(i)].maxDelta;
    }

    // False for tables longer than the arrays; the caller then decodes with CVR.
    bool usable() const { return positiveCount_ <= kMaxEntries && negativeCount_ <= kMaxEntries; }

    int64_t decode(int64_t payload, int prefixIndex) const {
        if (payload >= 0) {
            return prefixIndex < positiveCount_ ? wrappingAdd(positiveStart_[prefixIndex], payload)
                                                : payload;
        }
        return prefixIndex < negativeCount_
                   ? wrappingAdd(wrappingAdd(payload, 1), negativeEnd_[prefixIndex])
                   : payload;
    }

private:
    int positiveCount_ = 0, negativeCount_ = 0;
    int64_t positiveStart_[kMaxEntries] = {};
    int64_t negativeEnd_[kMaxEntries] = {};
};

}  // namespace zullib

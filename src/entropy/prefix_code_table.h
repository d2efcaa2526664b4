// Decoding any code of a component without a branch on its kind: the prefix, counted with one
// count-trailing-ones, indexes a small table that says how many bits the prefix and the payload
// take, how to extend the payload's sign, and what to add to it to get the delta. An escape
// carries the value itself. Gives what the range tables give (DeltaDecoder) for codes that fit in
// the register; built per stream component.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "entropy/delta_decoder.h"
#include "frame/compiler.h"
#include "frame/wrapping.h"

namespace zullib {

class PrefixCodeTable {
public:
    // Tables of writers fit: at most 8 ranges on either side, an escape and the empty range.
    static constexpr int kMaxPrefixes = 32;
    // Indexed by the count of leading ones in the register, at most 63: every count from the last
    // prefix on stands for the last prefix, so the count needs no clamping.
    static constexpr int kCounts = 64;

    struct Code {
        uint64_t payloadMask;
        uint64_t signBit;        // the payload's top bit if it is a signed delta, else 0
        int64_t positiveOffset;  // added to a payload that is not negative
        int64_t negativeOffset;  // added to a negative payload
        uint8_t prefixBits;
        uint8_t codeBits;
        bool escape;

        // The payload of this code at the start of `bits`, sign-extended if it is a signed
        // delta's; an escape's is the value itself.
        int64_t payload(uint64_t bits) const {
            return static_cast<int64_t>((((bits >> prefixBits) & payloadMask) ^ signBit) - signBit);
        }
        // The delta that a payload of a code other than an escape stands for.
        int64_t delta(int64_t payload) const {
            return wrappingAdd(payload, payload < 0 ? negativeOffset : positiveOffset);
        }
    };

    // Unusable until built; the codes are written only by build().
    PrefixCodeTable() {}
    PrefixCodeTable(const std::vector<int>& table, int lastPrefix, int absoluteBits,
                    bool nonNegative, const DeltaDecoder& decoder) {
        build(table, lastPrefix, absoluteBits, nonNegative, decoder);
    }

    // Usable only if the table has at most kMaxPrefixes entries, and every payload at most 56
    // bits. Builds in place: the table is large, and a reader builds one per component and chunk.
    void build(const std::vector<int>& table, int lastPrefix, int absoluteBits, bool nonNegative,
               const DeltaDecoder& decoder) {
        usable_ = lastPrefix >= 0 && lastPrefix < kMaxPrefixes;
        for (int prefix = 0; usable_ && prefix <= lastPrefix; ++prefix) {
            const int length = table[static_cast<size_t>(prefix)];
            Code& code = codes_[prefix];
            code.escape = length == 255;
            const int payloadBits = code.escape ? absoluteBits : length;
            usable_ = payloadBits <= 56;
            code.payloadMask = (uint64_t{1} << payloadBits) - 1;
            // An empty payload is 0 either way.
            code.signBit =
                code.escape || nonNegative || length == 0 ? 0 : uint64_t{1} << (length - 1);
            code.prefixBits = static_cast<uint8_t>(prefix < lastPrefix ? prefix + 1 : prefix);
            code.codeBits = static_cast<uint8_t>(code.prefixBits + payloadBits);
            // The decoder adds its range's bound to the payload, so the offset is what it gives
            // for a payload of 0 on either side.
            code.positiveOffset = code.escape ? 0 : decoder.decode(0, prefix);
            code.negativeOffset =
                code.escape
                    ? 0
                    : static_cast<int64_t>(static_cast<uint64_t>(decoder.decode(-1, prefix)) + 1);
        }
        // Every count from the last prefix on stands for the last prefix.
        if (usable_) std::fill(codes_ + lastPrefix + 1, codes_ + kCounts, codes_[lastPrefix]);
    }

    bool usable() const { return usable_; }
    const Code* codes() const { return codes_; }

    // The count of ones before the first zero of `bits`, at most 63.
    static int count(uint64_t bits) { return countTrailingZeros(~bits | uint64_t{1} << 63); }

private:
    bool usable_ = false;
    Code codes_[kCounts];
};

}  // namespace zullib

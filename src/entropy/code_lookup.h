// Decoding a whole short code with one look-up: the next kPeekBits bits of the stream index a
// table that gives the code's width and its delta (if it fits in 24 bits), for every code (prefix
// and payload) that fits in those bits; if asked, escapes that fit too, marked as such, with their
// value in place of the delta. Longer codes (and escapes not asked for) are marked with width 0
// and decoded the long way. Built per stream component from its prefix table, only for chunks long
// enough to repay it.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/delta_decoder.h"

namespace zullib {

class CodeLookup {
public:
    static constexpr int kPeekBits = 10;
    static constexpr uint64_t kPeekMask = (uint64_t{1} << kPeekBits) - 1;

    // One word: the delta above the code's width in its low 6 bits (0: not decodable from this
    // entry), so that one load gives both; bit 7 marks an escape, whose value stands in place of
    // the delta.
    struct Entry {
        static constexpr int32_t kMaxDelta = (int32_t{1} << 23) - 1;
        static constexpr int32_t kMinDelta = -kMaxDelta - 1;
        static constexpr uint32_t kEscape = 0x80;
        uint32_t word;
        int bits() const { return static_cast<int>(word & 0x3F); }
        int32_t delta() const { return static_cast<int32_t>(word) >> 8; }
        bool escape() const { return (word & kEscape) != 0; }
        // All ones, but 0 for an escape: what of the previous value a delta of this entry keeps.
        int64_t keep() const { return static_cast<int64_t>((word >> 7) & 1) - 1; }
    };

    CodeLookup() = default;
    // `escapeBits`: the width of an escape's value, for a table that holds the escapes that fit;
    // negative: no escapes.
    CodeLookup(const std::vector<int>& table, int lastPrefix, bool nonNegative,
               const DeltaDecoder& decoder, int escapeBits = -1)
        : entries_(size_t{1} << kPeekBits, Entry{0}) {
        // Each code that fits fills every pattern that starts with it.
        for (int prefix = 0; prefix <= lastPrefix; ++prefix) {
            const int prefixBits = prefix < lastPrefix ? prefix + 1 : prefix;
            const int length = table[static_cast<size_t>(prefix)];
            const uint64_t ones = (uint64_t{1} << prefix) - 1;
            if (length == 255) {
                const int codeBits = prefixBits + escapeBits;
                if (escapeBits < 0 || codeBits > kPeekBits || codeBits == 0) continue;
                hasEscapes_ = true;
                for (uint64_t raw = 0; raw < (uint64_t{1} << escapeBits); ++raw)
                    fill(ones | raw << prefixBits, codeBits,
                         {static_cast<uint32_t>(raw) << 8 | Entry::kEscape |
                          static_cast<uint32_t>(codeBits)});
                continue;
            }
            if (prefixBits + length > kPeekBits) continue;
            const int codeBits = prefixBits + length;
            for (uint64_t raw = 0; raw < (uint64_t{1} << length); ++raw) {
                uint64_t payload = raw;
                if (!nonNegative && length > 0 && ((payload >> (length - 1)) & 1) != 0)
                    payload |= ~uint64_t{0} << length;
                const int64_t delta = decoder.decode(static_cast<int64_t>(payload), prefix);
                if (delta < Entry::kMinDelta || delta > Entry::kMaxDelta) continue;
                fill(ones | raw << prefixBits, codeBits,
                     {static_cast<uint32_t>(delta) << 8 | static_cast<uint32_t>(codeBits)});
            }
        }
    }

    // The table, indexed by the next kPeekBits bits; null if none was built.
    const Entry* entries() const { return entries_.empty() ? nullptr : entries_.data(); }
    // Whether it holds escapes.
    bool hasEscapes() const { return hasEscapes_; }

private:
    // Every pattern that starts with `code`, of `codeBits` bits.
    void fill(uint64_t code, int codeBits, Entry entry) {
        for (; code <= kPeekMask; code += uint64_t{1} << codeBits) entries_[code] = entry;
    }

    std::vector<Entry> entries_;
    bool hasEscapes_ = false;
};

// Two short codes with one look-up: the codes of two components that follow each other in a
// stream, from the tables of both. An entry gives the first code as CodeLookup does and, where the
// second code fits in the bits left, the width of both and the second delta.
class CodePairLookup {
public:
    struct Entry {
        // Bits 0-7 the first code's width (0: not decodable), 8-15 the width of both (255: the
        // second not decodable), 16-39 the first delta, 40-63 the second.
        uint64_t word;
        int firstBits() const { return static_cast<int>(word & 0xFF); }
        int bothBits() const { return static_cast<int>((word >> 8) & 0xFF); }
        int32_t first() const {
            return static_cast<int32_t>(static_cast<int64_t>(word << 24) >> 40);
        }
        int32_t second() const { return static_cast<int32_t>(static_cast<int64_t>(word) >> 40); }
    };
    static constexpr int kNotBoth = 255;

    CodePairLookup() = default;
    // Escapes are left to the look-ups of one code.
    CodePairLookup(const CodeLookup& firstCodes, const CodeLookup& secondCodes)
        : entries_(size_t{1} << CodeLookup::kPeekBits) {
        const CodeLookup::Entry* first = firstCodes.entries();
        const CodeLookup::Entry* second = secondCodes.entries();
        for (uint64_t pattern = 0; pattern <= CodeLookup::kPeekMask; ++pattern) {
            CodeLookup::Entry one = first[pattern];
            if (one.escape()) one.word = 0;
            // The bits after the first code, as many as the pattern has.
            CodeLookup::Entry two = second[pattern >> one.bits()];
            if (two.escape()) two.word = 0;
            const int both = one.bits() + two.bits();
            const bool pair = one.bits() != 0 && two.bits() != 0 && both <= CodeLookup::kPeekBits;
            entries_[pattern].word =
                static_cast<uint64_t>(one.bits()) |
                static_cast<uint64_t>(pair ? both : kNotBoth) << 8 |
                (static_cast<uint64_t>(static_cast<uint32_t>(one.delta())) & 0xFFFFFF) << 16 |
                static_cast<uint64_t>(static_cast<uint32_t>(pair ? two.delta() : 0)) << 40;
        }
    }

    // The table, indexed by the next kPeekBits bits; null if none was built.
    const Entry* entries() const { return entries_.empty() ? nullptr : entries_.data(); }

private:
    std::vector<Entry> entries_;
};

}  // namespace zullib

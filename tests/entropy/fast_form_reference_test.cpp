// Each fast form of the stream coding against the plain form it replaces: the range search over
// fixed arrays (DeltaEncoder) and the whole-code table (DeltaCodeTable) against CVR's search and
// field-by-field writing, the decoding look-ups (CodeLookup, and CodePairLookup for two codes)
// against reading codes bit by bit, the word-at-a-time bit writer and reader against BitStreamOut
// and BitStreamIn, and the branch-free decoding of a whole code (PrefixCodeTable) against the
// range tables, an escape's value as it stands.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <vector>

#include "entropy/bit_packer.h"
#include "entropy/bit_stream_in.h"
#include "entropy/bit_stream_out.h"
#include "entropy/bit_unpacker.h"
#include "entropy/code_lookup.h"
#include "entropy/cvr.h"
#include "entropy/delta_decoder.h"
#include "entropy/delta_encoder.h"
#include "entropy/prefix_code_table.h"

using namespace zullib;

namespace {

struct TableCase {
    std::vector<int> table;
    int absoluteBits;
    bool nonNegative;
};

void PrintTo(const TableCase& c, std::ostream* os) {
    *os << "table {";
    for (int length : c.table) *os << " " << length;
    *os << " }, " << c.absoluteBits << " bits" << (c.nonNegative ? ", non-negative" : "");
}

class FastForms : public ::testing::TestWithParam<TableCase> {
protected:
    void SetUp() override {
        const TableCase& c = GetParam();
        lastPrefix = static_cast<int>(c.table.size()) - 1;
        CVR::buildRangeLookupTable(lookup, c.table, c.absoluteBits, c.nonNegative);
    }
    // Range bounds and their neighbours, the extremes, and random deltas of every width.
    std::vector<int64_t> deltas() const {
        std::vector<int64_t> out = {0, 1, -1, INT64_MIN, INT64_MAX};
        for (const auto* side : {&lookup.positiveRanges, &lookup.negativeRanges})
            for (const CVR::RangeEntry& e : *side)
                for (int64_t d : {e.minDelta, e.maxDelta})
                    for (int64_t step : {-1, 0, 1})
                        if ((step < 0 && d > INT64_MIN) || (step > 0 && d < INT64_MAX) || !step)
                            out.push_back(d + step);
        std::mt19937_64 random(11);
        for (int i = 0; i < 300; ++i)
            out.push_back(static_cast<int64_t>(random()) >> (random() % 64));
        return out;
    }
    CVR::LookupTable lookup;
    int lastPrefix = 0;
};

// The plain writer: prefix ones closed by a zero unless last, then the payload, one field each.
std::vector<unsigned char> plainCode(const CVR::LookupTable& lookup, int lastPrefix, int64_t delta,
                                     int64_t current, int& bits) {
    int64_t value;
    int prefix, numBits;
    CVR::encodeDeltaOrAbsolute(value, prefix, numBits, lookup, current, delta);
    std::vector<unsigned char> buffer;
    BitStreamOut out(buffer, 0);
    out.writeBits((uint64_t{1} << prefix) - 1, prefix < lastPrefix ? prefix + 1 : prefix);
    out.writeBits(static_cast<uint64_t>(value), numBits);
    bits = static_cast<int>(out.bytePosition * 8 + out.bitPosition);
    out.alignToByte();
    buffer.resize(static_cast<size_t>(out.bytePosition));
    return buffer;
}

// A payload of `length` bits as the reader sees it: the top bit is the sign of a signed delta.
int64_t signedPayload(uint64_t raw, int length, bool nonNegative) {
    if (!nonNegative && length > 0 && ((raw >> (length - 1)) & 1) != 0)
        raw |= ~uint64_t{0} << length;
    return static_cast<int64_t>(raw);
}

// The plain reader: the prefix bit by bit, then the payload, sign-extended if signed; the delta,
// unless the code is an escape.
bool readPlainCode(BitStreamIn& in, const TableCase& table, const CVR::LookupTable& ranges,
                   int64_t& delta) {
    const int last = static_cast<int>(table.table.size()) - 1;
    int prefix = 0;
    while (prefix < last && in.readBits(1) == 1) ++prefix;
    const int length = table.table[static_cast<size_t>(prefix)];
    if (length == 255) return false;
    const uint64_t raw = in.readBits(length);
    CVR::decodeDelta(delta, ranges, signedPayload(raw, length, table.nonNegative), prefix);
    return true;
}

int bitsRead(const BitStreamIn& in) {
    return static_cast<int>(in.bytePosition * 8 + in.bitPosition);
}

TEST_P(FastForms, DeltaEncoderFindsTheRangesCvrFinds) {
    const DeltaEncoder encoder(lookup);
    ASSERT_TRUE(encoder.usable());
    for (int64_t delta : deltas()) {
        int64_t value, expectedValue;
        int prefix, numBits, expectedPrefix, expectedBits;
        const bool escape = encoder.encode(delta, 12345, value, prefix, numBits);
        CVR::encodeDeltaOrAbsolute(expectedValue, expectedPrefix, expectedBits, lookup, 12345,
                                   delta);
        SCOPED_TRACE(::testing::Message() << "delta " << delta);
        EXPECT_EQ(prefix, expectedPrefix);
        EXPECT_EQ(numBits, expectedBits);
        EXPECT_EQ(value, expectedValue);
        const auto& side = delta >= 0 ? lookup.positiveRanges : lookup.negativeRanges;
        EXPECT_EQ(escape, static_cast<size_t>(prefix) < side.size() &&
                              side[static_cast<size_t>(prefix)].maxDelta == INT64_MAX);
    }
}

TEST_P(FastForms, DeltaCodeTableWritesThePlainCodes) {
    const TableCase& c = GetParam();
    uint64_t field;
    int numBits;
    EXPECT_FALSE(DeltaCodeTable(DeltaEncoder(lookup), lastPrefix, DeltaCodeTable::kMaxWidth + 1)
                     .code(0, 0, field, numBits));
    // The window of a wide component is at most that of the widest table, narrower for a small
    // chunk; its other deltas are searched.
    const int widest = std::min(c.absoluteBits, DeltaCodeTable::kMaxWidth);
    for (const int window : {0, widest / 2, widest}) {
        const DeltaCodeTable codes(DeltaEncoder(lookup), lastPrefix, window);
        // Deltas of the window, with values of the component's whole width.
        const int64_t bound = (int64_t{1} << window) - 1;
        const uint64_t valueMask = (uint64_t{1} << c.absoluteBits) - 1;
        std::mt19937_64 random(5);
        for (int i = 0; i < 98; ++i) {
            const int64_t current = static_cast<int64_t>(i == 0 ? valueMask : random() & valueMask);
            for (int64_t delta = -bound; delta <= bound; ++delta) {
                if (c.nonNegative && delta < 0) continue;
                int expectedBits;
                ASSERT_TRUE(codes.code(delta, current, field, numBits));
                const std::vector<unsigned char> expected =
                    plainCode(lookup, lastPrefix, delta, current, expectedBits);
                std::vector<unsigned char> buffer;
                BitStreamOut out(buffer, 0);
                out.writeBits(field, numBits);
                out.alignToByte();
                buffer.resize(static_cast<size_t>(out.bytePosition));
                ASSERT_EQ(numBits, expectedBits) << "delta " << delta << ", value " << current;
                ASSERT_EQ(buffer, expected) << "delta " << delta << ", value " << current;
            }
        }
        EXPECT_FALSE(codes.code(bound + 1, 0, field, numBits));
        EXPECT_FALSE(codes.code(-bound - 1, 0, field, numBits));
    }
}

// Without escapes, and with those that fit (their value in place of the delta).
TEST_P(FastForms, CodeLookupReadsThePlainCodes) {
    const TableCase& c = GetParam();
    for (const bool escapes : {false, true}) {
        const CodeLookup codes(c.table, lastPrefix, c.nonNegative, DeltaDecoder(lookup),
                               escapes ? c.absoluteBits : -1);
        bool anyEscape = false;
        for (uint64_t pattern = 0; pattern <= CodeLookup::kPeekMask; ++pattern) {
            const unsigned char bytes[8] = {static_cast<unsigned char>(pattern),
                                            static_cast<unsigned char>(pattern >> 8)};
            BitStreamIn in(bytes, 8, 0);
            const CodeLookup::Entry& entry = codes.entries()[pattern];
            SCOPED_TRACE(::testing::Message()
                         << "pattern " << pattern << (escapes ? ", escapes" : ""));
            int64_t delta = 0;
            const bool isDelta = readPlainCode(in, c, lookup, delta);
            if (!isDelta) {
                const int64_t value = static_cast<int64_t>(in.readBits(c.absoluteBits));
                const int used = bitsRead(in);
                if (!escapes || used > CodeLookup::kPeekBits || used == 0) {
                    EXPECT_EQ(entry.bits(), 0);
                    continue;
                }
                anyEscape = true;
                EXPECT_EQ(entry.bits(), used);
                EXPECT_TRUE(entry.escape());
                EXPECT_EQ(entry.keep(), 0);
                EXPECT_EQ(entry.delta(), value);
                continue;
            }
            const int used = bitsRead(in);
            if (used > CodeLookup::kPeekBits || delta < CodeLookup::Entry::kMinDelta ||
                delta > CodeLookup::Entry::kMaxDelta) {
                EXPECT_EQ(entry.bits(), 0);
                continue;
            }
            EXPECT_EQ(entry.bits(), used);
            EXPECT_FALSE(entry.escape());
            EXPECT_EQ(entry.keep(), -1);
            EXPECT_EQ(entry.delta(), delta);
        }
        EXPECT_EQ(codes.hasEscapes(), anyEscape);
    }
}

// Two codes from one look-up: this case's component, then one of short codes (or this one again).
TEST_P(FastForms, CodePairLookupReadsTwoPlainCodes) {
    const TableCase& c = GetParam();
    const std::vector<int> shortTable = {1, 3, 255};
    CVR::LookupTable shortLookup;
    CVR::buildRangeLookupTable(shortLookup, shortTable, 8, false);
    // From look-ups with escapes, which the pairs leave out.
    const CodeLookup firstCodes(c.table, lastPrefix, c.nonNegative, DeltaDecoder(lookup),
                                c.absoluteBits);
    for (const bool again : {false, true}) {
        const TableCase second = again ? c : TableCase{shortTable, 8, false};
        const CVR::LookupTable& secondLookup = again ? lookup : shortLookup;
        const int secondLast = static_cast<int>(second.table.size()) - 1;
        const CodePairLookup pairs(firstCodes,
                                   CodeLookup(second.table, secondLast, second.nonNegative,
                                              DeltaDecoder(secondLookup), second.absoluteBits));
        for (uint64_t pattern = 0; pattern <= CodeLookup::kPeekMask; ++pattern) {
            const unsigned char bytes[8] = {static_cast<unsigned char>(pattern),
                                            static_cast<unsigned char>(pattern >> 8)};
            BitStreamIn in(bytes, 8, 0);
            const CodePairLookup::Entry& entry = pairs.entries()[pattern];
            SCOPED_TRACE(::testing::Message() << "pattern " << pattern << (again ? ", again" : ""));
            int64_t firstDelta = 0, secondDelta = 0;
            const bool firstIsDelta = readPlainCode(in, c, lookup, firstDelta);
            const int firstUsed = bitsRead(in);
            // A code of no bits is left to the long way, as CodeLookup leaves it.
            if (!firstIsDelta || firstUsed == 0 || firstUsed > CodeLookup::kPeekBits ||
                firstDelta < CodeLookup::Entry::kMinDelta ||
                firstDelta > CodeLookup::Entry::kMaxDelta) {
                EXPECT_EQ(entry.firstBits(), 0);
                EXPECT_EQ(entry.bothBits(), CodePairLookup::kNotBoth);
                continue;
            }
            EXPECT_EQ(entry.firstBits(), firstUsed);
            EXPECT_EQ(entry.first(), firstDelta);
            const bool secondIsDelta = readPlainCode(in, second, secondLookup, secondDelta);
            const int bothUsed = bitsRead(in);
            if (!secondIsDelta || bothUsed == firstUsed || bothUsed > CodeLookup::kPeekBits ||
                secondDelta < CodeLookup::Entry::kMinDelta ||
                secondDelta > CodeLookup::Entry::kMaxDelta) {
                EXPECT_EQ(entry.bothBits(), CodePairLookup::kNotBoth);
                continue;
            }
            EXPECT_EQ(entry.bothBits(), bothUsed);
            EXPECT_EQ(entry.second(), secondDelta);
        }
    }
}

TEST_P(FastForms, PrefixCodeTableGivesTheRangeTablesDeltas) {
    const TableCase& param = GetParam();
    const DeltaDecoder decoder(lookup);
    ASSERT_TRUE(decoder.usable());
    const PrefixCodeTable codes(param.table, lastPrefix, param.absoluteBits, param.nonNegative,
                                decoder);
    ASSERT_TRUE(codes.usable());

    std::mt19937_64 random(7);
    for (int prefix = 0; prefix <= lastPrefix; ++prefix) {
        const int length = param.table[static_cast<size_t>(prefix)];
        const bool escape = length == 255;
        const int payloadBits = escape ? param.absoluteBits : length;
        const int prefixBits = prefix < lastPrefix ? prefix + 1 : prefix;
        const uint64_t mask = (uint64_t{1} << payloadBits) - 1;
        // The extremes of the payload, its sign bit alone, and random ones.
        std::vector<uint64_t> raws = {0, mask, mask >> 1, (mask >> 1) + 1, 1};
        for (int i = 0; i < 50; ++i) raws.push_back(random() & mask);
        for (uint64_t raw : raws) {
            raw &= mask;
            // The code, then bits of whatever follows it.
            const uint64_t ones = (uint64_t{1} << prefix) - 1;
            const uint64_t following = random() << (prefixBits + payloadBits);
            const uint64_t bits =
                ones | raw << prefixBits | (prefixBits + payloadBits < 64 ? following : 0);
            const PrefixCodeTable::Code& code = codes.codes()[PrefixCodeTable::count(bits)];
            SCOPED_TRACE(::testing::Message() << "prefix " << prefix << ", payload " << raw);
            EXPECT_EQ(code.escape, escape);
            EXPECT_EQ(code.codeBits, prefixBits + payloadBits);
            if (escape) {
                EXPECT_EQ(code.payload(bits), static_cast<int64_t>(raw));
                continue;
            }
            int64_t expected = 0;
            CVR::decodeDelta(expected, lookup, signedPayload(raw, length, param.nonNegative),
                             prefix);
            EXPECT_EQ(code.delta(code.payload(bits)), expected);
        }
    }
}

// Signed and unsigned components, escapes, empty payloads (one delta, or the slot-0 run of equal
// values), one-entry tables, codes longer than the look-up's bits, components too wide for the
// code table, a table as long as the arrays hold.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Tables, FastForms, ::testing::Values(
    TableCase{{0, 2, 4, 255}, 8, false}, TableCase{{0, 1, 3, 255}, 8, true},
    TableCase{{0, 2, 4, 8, 255}, 12, false}, TableCase{{0, 2, 4, 8, 255}, 12, true},
    TableCase{{0, 0, 3, 5, 255}, 20, true}, TableCase{{2, 6}, 6, false}, TableCase{{3}, 8, false},
    TableCase{{0}, 5, true}, TableCase{{0}, 5, false}, TableCase{{255}, 7, false},
    TableCase{{1, 2, 3, 4, 5, 6, 9, 255}, 10, false}, TableCase{{0, 3, 8, 255}, 10, true},
    TableCase{{2, 5, 11, 17, 255}, 40, false}, TableCase{{2, 5, 11, 17, 255}, 48, false},
    TableCase{{4, 16, 32, 255}, 24, true}));
// clang-format on

TEST(PrefixCodeTable, CountsLeadingOnesUpToSixtyThree) {
    EXPECT_EQ(PrefixCodeTable::count(0), 0);
    EXPECT_EQ(PrefixCodeTable::count(0b0111), 3);
    EXPECT_EQ(PrefixCodeTable::count(~uint64_t{0}), 63);
}

TEST(PrefixCodeTable, RefusesTablesItCannotHold) {
    CVR::LookupTable lookup;
    const std::vector<int> wide = {4, 60};
    CVR::buildRangeLookupTable(lookup, wide, 64, false);
    EXPECT_FALSE(PrefixCodeTable(wide, 1, 64, false, DeltaDecoder(lookup)).usable());
    const std::vector<int> escapeTooWide = {4, 255};
    CVR::buildRangeLookupTable(lookup, escapeTooWide, 60, false);
    EXPECT_FALSE(PrefixCodeTable(escapeTooWide, 1, 60, false, DeltaDecoder(lookup)).usable());
}

// Field widths to draw from: narrow fields, any width the word takes, and wide ones.
class BitForms : public ::testing::TestWithParam<int> {};

TEST_P(BitForms, PackerWritesTheBytesOfTheBitWriter) {
    const int widest = GetParam();
    std::mt19937_64 random(static_cast<uint64_t>(widest));
    for (int offset : {0, 3}) {
        // The bytes before the start are kept; stale bytes after it are overwritten.
        std::vector<unsigned char> plain(offset, 0xAB), fast(plain);
        fast.resize(200, 0xCD);
        BitStreamOut reference(plain, offset), out(fast, offset);
        BitPacker packer(out, 4000);
        for (int i = 0; i < 400; ++i) {
            const int numBits = static_cast<int>(random() % (widest + 1));
            const uint64_t value = random();
            reference.writeBits(value, numBits);
            if (numBits <= 56)
                packer.put(numBits ? value & (~uint64_t{0} >> (64 - numBits)) : 0, numBits);
            else
                packer.putWide(value, numBits);
        }
        reference.alignToByte();
        packer.finish();
        ASSERT_EQ(out.bytePosition, reference.bytePosition);
        fast.resize(static_cast<size_t>(out.bytePosition));
        plain.resize(static_cast<size_t>(reference.bytePosition));
        EXPECT_EQ(fast, plain);
    }
}

TEST_P(BitForms, UnpackerReadsTheFieldsOfTheBitReader) {
    const int widest = GetParam();
    std::mt19937_64 random(static_cast<uint64_t>(widest) + 100);
    std::vector<unsigned char> bytes;
    BitStreamOut out(bytes, 0);
    for (int i = 0; i < 2000; ++i) out.writeBits(random(), 64);
    bytes.resize(static_cast<size_t>(out.bytePosition));
    BitStreamIn plain(bytes.data(), static_cast<int64_t>(bytes.size()), 1);
    plain.readBits(5);
    BitUnpacker fast(plain);
    // Fields, prefixes and peeked bits in turn, while the reader's room allows.
    while (fast.room(16)) {
        const int numBits = static_cast<int>(random() % (widest + 1));
        switch (random() % 3) {
            case 0:
                ASSERT_EQ(fast.read(numBits), plain.readBits(numBits));
                break;
            case 1: {
                const int limit = 1 + static_cast<int>(random() % 56);
                int expected = 0;
                while (expected < limit && plain.readBits(1) == 1) ++expected;
                ASSERT_EQ(fast.prefix(limit), expected);
                break;
            }
            default: {
                const int used = numBits > 56 ? 56 : numBits;
                const uint64_t mask = used ? ~uint64_t{0} >> (64 - used) : 0;
                ASSERT_EQ(fast.peek() & mask, plain.readBits(used));
                fast.skip(used);
            }
        }
    }
    BitStreamIn handedBack(bytes.data(), static_cast<int64_t>(bytes.size()), 0);
    fast.finish(handedBack);
    EXPECT_EQ(handedBack.bytePosition, plain.bytePosition);
    EXPECT_EQ(handedBack.bitPosition, plain.bitPosition);
    EXPECT_FALSE(plain.errorFlag);
}

INSTANTIATE_TEST_SUITE_P(Widths, BitForms, ::testing::Values(1, 8, 33, 56, 64));

}  // namespace

// The branch-free decoding of a code from its prefix table must give, for every prefix and
// payload, the width and the delta that the range tables give (CVR::decodeDelta), and an escape's
// value as it stands.
#include "entropy/prefix_code_table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "entropy/cvr.h"
#include "entropy/delta_decoder.h"

using zullib::CVR;
using zullib::DeltaDecoder;
using zullib::PrefixCodeTable;

namespace {

struct TableCase {
    std::vector<int> table;
    int absoluteBits;
    bool nonNegative;
};

class PrefixCodes : public ::testing::TestWithParam<TableCase> {};

// A payload of `length` bits as the reader sees it: the top bit is the sign of a signed delta.
int64_t signedPayload(uint64_t raw, int length, bool nonNegative) {
    if (!nonNegative && length > 0 && ((raw >> (length - 1)) & 1) != 0)
        raw |= ~uint64_t{0} << length;
    return static_cast<int64_t>(raw);
}

TEST_P(PrefixCodes, GiveTheRangeTablesDeltas) {
    const TableCase& param = GetParam();
    const int lastPrefix = static_cast<int>(param.table.size()) - 1;
    CVR::LookupTable lookup;
    CVR::buildRangeLookupTable(lookup, param.table, param.absoluteBits, param.nonNegative);
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
// values), a one-entry table, and a table as long as the arrays hold.
INSTANTIATE_TEST_SUITE_P(Tables, PrefixCodes,
                         ::testing::Values(TableCase{{0, 2, 4, 8, 255}, 12, false},
                                           TableCase{{0, 2, 4, 8, 255}, 12, true},
                                           TableCase{{0, 0, 3, 5, 255}, 20, true},
                                           TableCase{{3}, 8, false}, TableCase{{255}, 8, false},
                                           TableCase{{0}, 5, false},
                                           TableCase{{1, 2, 3, 4, 5, 6, 9, 255}, 40, false},
                                           TableCase{{2, 5, 11, 17, 255}, 48, false},
                                           TableCase{{4, 16, 32, 255}, 24, true}));

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

}  // namespace

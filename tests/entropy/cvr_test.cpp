#include "entropy/cvr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "support/test_names.h"

using zullib::CVR;

namespace {

const int64_t kMax = INT64_MAX, kMin = INT64_MIN;

// A range entry as its bits, smallest and largest delta.
using Range = std::tuple<int, int64_t, int64_t>;

std::vector<Range> ranges(const std::vector<CVR::RangeEntry>& entries) {
    std::vector<Range> out;
    for (const CVR::RangeEntry& e : entries) out.push_back({e.numBits, e.minDelta, e.maxDelta});
    return out;
}

CVR::LookupTable build(const std::vector<int>& bitLengths, int absoluteBits, bool nonNegative) {
    CVR::LookupTable table;
    CVR::buildRangeLookupTable(table, bitLengths, absoluteBits, nonNegative);
    return table;
}

struct TableCase {
    const char* name;
    std::vector<int> bitLengths;
    int absoluteBits;
    bool nonNegative;
    std::vector<Range> positive, negative;
};

class RangeTables : public ::testing::TestWithParam<TableCase> {};

TEST_P(RangeTables, AreContiguousFromTheOrigin) {
    const TableCase& c = GetParam();
    const CVR::LookupTable table = build(c.bitLengths, c.absoluteBits, c.nonNegative);
    EXPECT_EQ(ranges(table.positiveRanges), c.positive);
    EXPECT_EQ(ranges(table.negativeRanges), c.negative);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(CVR, RangeTables, ::testing::Values(
    TableCase{"worked table, signed", {0, 2, 5, 255}, 12, false,
              {{0, 0, 0}, {2, 1, 2}, {5, 3, 18}, {12, kMax, kMax}}, {{0, 0, 0}, {2, -2, -1}, {5, -18, -3}, {12, kMax, kMax}}},
    TableCase{"worked table, non-negative", {0, 2, 5, 255}, 12, true, {{0, 0, 0}, {2, 1, 4}, {5, 5, 36}, {12, kMax, kMax}}, {}},
    TableCase{"no leading zero reaches one further below", {3, 6, 255}, 9, false,
              {{3, 0, 3}, {6, 4, 35}, {9, kMax, kMax}}, {{3, -4, -1}, {6, -36, -5}, {9, kMax, kMax}}},
    TableCase{"first entry 1 tells 0 from -1", {1, 3}, 0, false, {{1, 0, 0}, {3, 1, 4}}, {{1, -1, -1}, {3, -5, -2}}},
    TableCase{"only zero", {0}, 5, false, {{0, 0, 0}}, {{0, 0, 0}}},
    TableCase{"only escape", {255}, 7, false, {{7, kMax, kMax}}, {{7, kMax, kMax}}},
    TableCase{"empty", {}, 7, false, {}, {}},
    TableCase{"non-negative first entry", {4, 255}, 20, true, {{4, 0, 15}, {20, kMax, kMax}}, {}},
    TableCase{"non-negative zero further down is one delta", {3, 0, 5}, 30, true, {{3, 0, 7}, {0, 8, 8}, {5, 9, 40}}, {}},
    TableCase{"widest span is 2^63", {63, 255}, 64, true, {{63, 0, kMax}, {64, kMax, kMax}}, {}},
    TableCase{"signed span of 2^63 wraps", {0, 64}, 64, false, {{0, 0, 0}, {64, 1, kMin}}, {{0, 0, 0}, {64, kMin, -1}}}),
    NameOfCase());
// clang-format on

// A delta's prefix index, width and payload; a delta no entry takes leaves the markers.
TEST(CVR, EncodesDeltasByTheirRange) {
    const struct {
        std::vector<int> lengths;
        int64_t delta;
        int prefixIndex, numBits;
        int64_t value;
    } cases[] = {
        {{0, 2, 5, 255}, 0, 0, 0, 0},
        {{0, 2, 5, 255}, 2, 1, 2, 1},
        {{0, 2, 5, 255}, -2, 1, 2, -2},
        {{0, 2, 5, 255}, 7, 2, 5, 4},
        {{0, 2, 5, 255}, -7, 2, 5, -5},
        {{0, 2, 5, 255}, 19, 3, 12, 99},
        {{0, 2, 5, 255}, -19, 3, 12, 99},
        {{255}, 0, 0, 12, 99},
        {{255}, kMax, 0, 12, 99},
        {{255}, kMin, 0, 12, 99},
        {{}, 100, 0, 0, kMax},
        {{0, 2}, 100, 2, 0, kMax},
    };
    for (const auto& c : cases) {
        int64_t value = 5;
        int prefixIndex = 5, numBits = 5;
        CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, build(c.lengths, 12, false), 99,
                                   c.delta);
        EXPECT_EQ(prefixIndex, c.prefixIndex) << c.delta;
        EXPECT_EQ(numBits, c.numBits) << c.delta;
        EXPECT_EQ(value, c.value) << c.delta;
    }
}

// Damaged lengths build and code without undefined behaviour (the sanitizer builds check), and
// a prefix index beyond the table gives the payload as it stands.
TEST(CVR, DamagedTablesAreSafe) {
    const std::vector<int> lengths = {10, 62, 63, 64, 65, 100, 200, 254};
    for (bool nonNegative : {false, true}) {
        const CVR::LookupTable table = build(lengths, 64, nonNegative);
        EXPECT_EQ(table.positiveRanges.size(), lengths.size());
        int64_t value, delta;
        int prefixIndex, numBits;
        for (int64_t d : {int64_t{0}, int64_t{-1}, kMax, kMin, int64_t{1} << 62})
            CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, 0, d);
        for (int index = 0; index < 10; ++index) {
            CVR::decodeDelta(delta, table, kMin, index);
            CVR::decodeDelta(delta, table, kMax, index);
        }
        CVR::decodeDelta(delta, table, 77, 8);
        EXPECT_EQ(delta, 77);
    }
    const CVR::LookupTable table = build({63}, 64, true);
    int64_t delta = 1;
    CVR::decodeDelta(delta, table, -5, 0);  // no negative ranges at all
    EXPECT_EQ(delta, -5);
}

}  // namespace

#include "entropy/cvr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/test_names.h"

using zullib::CVR;

namespace {

const int64_t kMax = INT64_MAX;

struct Range {
    int numBits;
    int64_t minDelta, maxDelta;
    bool operator==(const Range& o) const {
        return numBits == o.numBits && minDelta == o.minDelta && maxDelta == o.maxDelta;
    }
};

std::vector<Range> ranges(const std::vector<CVR::RangeEntry>& entries) {
    std::vector<Range> out;
    for (const CVR::RangeEntry& e : entries) out.push_back({e.numBits, e.minDelta, e.maxDelta});
    return out;
}

void PrintTo(const Range& r, std::ostream* os) {
    *os << "{" << r.numBits << ", " << r.minDelta << ", " << r.maxDelta << "}";
}

struct TableCase {
    const char* name;
    std::vector<int> bitLengths;
    int absoluteBits;
    bool nonNegative;
    std::vector<Range> positive, negative;
};

CVR::LookupTable build(const std::vector<int>& bitLengths, int absoluteBits, bool nonNegative) {
    CVR::LookupTable table;
    CVR::buildRangeLookupTable(table, bitLengths, absoluteBits, nonNegative);
    return table;
}

class RangeTables : public ::testing::TestWithParam<TableCase> {};

TEST_P(RangeTables, AreContiguousFromTheOrigin) {
    const TableCase& c = GetParam();
    const CVR::LookupTable table = build(c.bitLengths, c.absoluteBits, c.nonNegative);
    EXPECT_EQ(ranges(table.positiveRanges), c.positive) << c.name;
    EXPECT_EQ(ranges(table.negativeRanges), c.negative) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    CVR, RangeTables,
    ::testing::Values(
        TableCase{"worked table, signed",
                  {0, 2, 5, 255},
                  12,
                  false,
                  {{0, 0, 0}, {2, 1, 2}, {5, 3, 18}, {12, kMax, kMax}},
                  {{0, 0, 0}, {2, -2, -1}, {5, -18, -3}, {12, kMax, kMax}}},
        TableCase{"worked table, non-negative",
                  {0, 2, 5, 255},
                  12,
                  true,
                  {{0, 0, 0}, {2, 1, 4}, {5, 5, 36}, {12, kMax, kMax}},
                  {}},
        TableCase{"no leading zero reaches one further below",
                  {3, 6, 255},
                  9,
                  false,
                  {{3, 0, 3}, {6, 4, 35}, {9, kMax, kMax}},
                  {{3, -4, -1}, {6, -36, -5}, {9, kMax, kMax}}},
        TableCase{"first entry 1 tells 0 from -1",
                  {1, 3},
                  0,
                  false,
                  {{1, 0, 0}, {3, 1, 4}},
                  {{1, -1, -1}, {3, -5, -2}}},
        TableCase{"reflection example",
                  {1, 3, 4, 255},
                  8,
                  false,
                  {{1, 0, 0}, {3, 1, 4}, {4, 5, 12}, {8, kMax, kMax}},
                  {{1, -1, -1}, {3, -5, -2}, {4, -13, -6}, {8, kMax, kMax}}},
        TableCase{"only zero", {0}, 5, false, {{0, 0, 0}}, {{0, 0, 0}}},
        TableCase{"only escape", {255}, 7, false, {{7, kMax, kMax}}, {{7, kMax, kMax}}},
        TableCase{"empty", {}, 7, false, {}, {}},
        TableCase{
            "non-negative first entry", {4, 255}, 20, true, {{4, 0, 15}, {20, kMax, kMax}}, {}},
        TableCase{"non-negative zero further down is one delta",
                  {3, 0, 5},
                  30,
                  true,
                  {{3, 0, 7}, {0, 8, 8}, {5, 9, 40}},
                  {}}),
    NameOfCase());

struct Coded {
    int64_t delta;
    int prefixIndex;
    int numBits;
    int64_t value;
};

TEST(CVR, WorkedDeltasGivePrefixWidthAndPayload) {
    const CVR::LookupTable table = build({0, 2, 5, 255}, 12, false);
    const int64_t absolute = 0xABC;
    for (Coded c : {Coded{0, 0, 0, 0}, Coded{2, 1, 2, 1}, Coded{-2, 1, 2, -2}, Coded{7, 2, 5, 4},
                    Coded{-7, 2, 5, -5}, Coded{19, 3, 12, absolute}, Coded{-19, 3, 12, absolute}}) {
        int64_t value;
        int prefixIndex, numBits;
        CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, absolute, c.delta);
        EXPECT_EQ(prefixIndex, c.prefixIndex) << c.delta;
        EXPECT_EQ(numBits, c.numBits) << c.delta;
        EXPECT_EQ(value, c.value) << c.delta;
    }
}

TEST(CVR, EscapeAloneTakesEveryDeltaZeroIncluded) {
    const CVR::LookupTable table = build({255}, 7, false);
    for (int64_t delta : {int64_t{0}, int64_t{1}, int64_t{-1}, kMax, INT64_MIN}) {
        int64_t value;
        int prefixIndex, numBits;
        CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, 99, delta);
        EXPECT_EQ(prefixIndex, 0);
        EXPECT_EQ(numBits, 7);
        EXPECT_EQ(value, 99);
    }
}

TEST(CVR, NoMatchingEntryLeavesTheMarkers) {
    for (const std::vector<int>& lengths : {std::vector<int>{}, std::vector<int>{0, 2}}) {
        const CVR::LookupTable table = build(lengths, 7, false);
        int64_t value = 5;
        int prefixIndex = 5, numBits = 5;
        CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, 1, 100);
        EXPECT_EQ(prefixIndex, static_cast<int>(lengths.size()));
        EXPECT_EQ(numBits, 0);
        EXPECT_EQ(value, kMax);
    }
}

// Sign-extends the low `numBits` of `value`, as a reader of a signed component does.
int64_t signExtend(uint64_t field, int numBits) {
    if (numBits == 0) return 0;
    const uint64_t sign = uint64_t{1} << (numBits - 1);
    return static_cast<int64_t>((field ^ sign) - sign);
}

struct InverseCase {
    std::vector<int> bitLengths;
    bool nonNegative;
};

class DecodeInvertsEncode : public ::testing::TestWithParam<InverseCase> {};

TEST_P(DecodeInvertsEncode, ForEveryDeltaOfEveryRange) {
    const InverseCase& c = GetParam();
    const CVR::LookupTable table = build(c.bitLengths, 30, c.nonNegative);
    int64_t lowest = 0, highest = 0;
    for (const CVR::RangeEntry& e : table.positiveRanges)
        if (e.maxDelta != kMax) highest = e.maxDelta;
    for (const CVR::RangeEntry& e : table.negativeRanges)
        if (e.maxDelta != kMax && e.numBits > 0) lowest = e.minDelta;
    for (int64_t delta = lowest; delta <= highest; ++delta) {
        int64_t value;
        int prefixIndex, numBits;
        CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, 0, delta);
        ASSERT_LE(numBits, 30);
        // Only the low numBits of the payload reach the stream.
        const uint64_t field =
            static_cast<uint64_t>(value) & ((numBits == 64 ? 0 : uint64_t{1} << numBits) - 1);
        const int64_t payload =
            c.nonNegative ? static_cast<int64_t>(field) : signExtend(field, numBits);
        int64_t decoded;
        CVR::decodeDelta(decoded, table, payload, prefixIndex);
        ASSERT_EQ(decoded, delta) << "prefix " << prefixIndex;
    }
}

INSTANTIATE_TEST_SUITE_P(
    CVR, DecodeInvertsEncode,
    ::testing::Values(InverseCase{{0, 2, 5, 255}, false}, InverseCase{{0, 2, 5, 255}, true},
                      InverseCase{{3, 6, 255}, false}, InverseCase{{1, 3}, false},
                      InverseCase{{0, 1, 2, 3, 4, 5, 255}, false},
                      InverseCase{{0, 1, 2, 3, 4, 5, 12}, true}, InverseCase{{11}, false}));

TEST(CVR, CorruptLengthsBuildWithoutUndefinedBehaviour) {
    const std::vector<int> lengths = {10, 62, 63, 64, 65, 100, 200, 254};
    for (bool nonNegative : {false, true}) {
        const CVR::LookupTable table = build(lengths, 64, nonNegative);
        EXPECT_EQ(table.positiveRanges.size(), lengths.size());
        int64_t value, delta;
        int prefixIndex, numBits;
        for (int64_t d : {int64_t{0}, int64_t{-1}, kMax, INT64_MIN, int64_t{1} << 62})
            CVR::encodeDeltaOrAbsolute(value, prefixIndex, numBits, table, 0, d);
        for (int index = 0; index < 10; ++index) {
            CVR::decodeDelta(delta, table, INT64_MIN, index);
            CVR::decodeDelta(delta, table, kMax, index);
        }
    }
}

TEST(CVR, NegativePayloadInANonNegativeTableDecodesWithoutReadingOutside) {
    const CVR::LookupTable table = build({63}, 64, true);
    ASSERT_TRUE(table.negativeRanges.empty());
    int64_t delta = 1;
    CVR::decodeDelta(delta, table, -5, 0);
    EXPECT_EQ(delta, -5);
}

}  // namespace

#include "entropy/prefix_optimizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "support/test_names.h"

using zullib::PrefixOptimizer;

namespace {

// The array form of lengths 0 to 64 and their counts.
zullib::BitLengthCounts countsOf(const std::map<int, int>& frequencies) {
    zullib::BitLengthCounts counts = {};
    for (const auto& entry : frequencies) counts[static_cast<size_t>(entry.first)] = entry.second;
    return counts;
}

struct SearchCase {
    const char* name;
    std::map<int, int> frequencies;
    int absoluteBits;
    int prefixLimit;
    std::vector<int> table;
    int64_t cost;
};

class PrefixSearch : public ::testing::TestWithParam<SearchCase> {};

TEST_P(PrefixSearch, FindsTheCheapestTableFirstInLexicographicOrder) {
    const SearchCase& c = GetParam();
    std::vector<int> table;
    const int64_t cost = PrefixOptimizer::findBestBitLengthsForPrefixes(
        table, c.frequencies, c.absoluteBits, c.prefixLimit);
    EXPECT_EQ(table, c.table);
    EXPECT_EQ(cost, c.cost);
    // The same lengths counted in an array.
    std::vector<int> fromCounts;
    EXPECT_EQ(PrefixOptimizer::findBestBitLengthsForPrefixes(fromCounts, countsOf(c.frequencies),
                                                             c.absoluteBits, c.prefixLimit),
              c.cost);
    EXPECT_EQ(fromCounts, c.table);
}

const std::map<int, int> kExample = {{0, 10}, {2, 5}, {3, 1}, {5, 1}};

// clang-format off
INSTANTIATE_TEST_SUITE_P(PrefixOptimizer, PrefixSearch, ::testing::Values(
    SearchCase{"worked example", kExample, 20, 3, {0, 2, 5}, 44},
    SearchCase{"longer table of equal cost is met first", kExample, 20, 7, {0, 2, 3, 5}, 44},
    SearchCase{"last entry at the absolute width escapes", kExample, 5, 3, {0, 2, 255}, 44},
    SearchCase{"limit of one takes the largest length", kExample, 20, 1, {5}, 85},
    SearchCase{"limit of one at the width escapes", kExample, 5, 1, {255}, 85},
    SearchCase{"all deltas zero", {{0, 7}}, 9, 7, {0}, 0},
    SearchCase{"all deltas zero at width zero", {{0, 7}}, 0, 7, {255}, 0},
    SearchCase{"single key has no prefix code", {{6, 4}}, 10, 7, {6}, 24},
    SearchCase{"keys above the width fold into it", {{3, 4}, {9, 2}, {30, 1}}, 12, 7, {3, 9, 255}, 52},
    SearchCase{"a length equal to the width escapes", {{2, 3}, {8, 1}}, 8, 6, {2, 255}, 18},
    SearchCase{"reflection deltas 5 -1 2 3 0 191", {{0, 1}, {1, 1}, {3, 2}, {4, 1}, {9, 1}}, 8, 6, {1, 3, 4, 255}, 32},
    SearchCase{"empty map", {}, 8, 6, {}, INT64_MAX}),
    NameOfCase());
// clang-format on

}  // namespace

namespace zullib {
// The exhaustive search that defines the result, run level by level from the empty table.
struct PrefixOptimizerReference {
    static int64_t search(std::vector<int>& table, const std::map<int, int>& frequencies,
                          int absoluteBits, int prefixLimit) {
        std::map<int, int> clamped, cumulative;
        for (const auto& entry : frequencies)
            clamped[std::min(entry.first, absoluteBits)] += entry.second;
        int running = 0;
        for (const auto& entry : clamped) cumulative[entry.first] = running += entry.second;
        std::vector<int> candidate;
        int64_t cost = INT64_MAX;
        PrefixOptimizer::tryNextPrefix(cost, table, candidate, cumulative, 0, prefixLimit - 1, 0,
                                       0);
        if (!table.empty() && table.back() == absoluteBits) table.back() = 255;
        return cost;
    }
};
}  // namespace zullib

namespace {

TEST(PrefixOptimizer, FindsTheTableOfTheExhaustiveSearch) {
    std::mt19937 random(20261123);
    for (int round = 0; round < 400; ++round) {
        const int absoluteBits = std::uniform_int_distribution<int>(1, 64)(random);
        const int limit = std::uniform_int_distribution<int>(1, 7)(random);
        // Few keys and large counts, or many keys (up to 30) and ties made likely by equal counts.
        const bool many = round % 2 == 1;
        std::map<int, int> frequencies;
        const int numKeys = std::uniform_int_distribution<int>(1, many ? 30 : 8)(random);
        for (int i = 0; i < numKeys; ++i)
            frequencies[std::uniform_int_distribution<int>(0, 64)(random)] +=
                many ? 1 + round % 3 : std::uniform_int_distribution<int>(1, 1000)(random);
        if (frequencies.size() == 1 && frequencies.begin()->first == 0) continue;

        std::vector<int> expected;
        const int64_t expectedCost =
            zullib::PrefixOptimizerReference::search(expected, frequencies, absoluteBits, limit);
        std::vector<int> table;
        const int64_t cost =
            PrefixOptimizer::findBestBitLengthsForPrefixes(table, frequencies, absoluteBits, limit);
        ASSERT_EQ(table, expected) << "round " << round;
        ASSERT_EQ(cost, expectedCost) << "round " << round;
        std::vector<int> fromCounts;
        ASSERT_EQ(PrefixOptimizer::findBestBitLengthsForPrefixes(fromCounts, countsOf(frequencies),
                                                                 absoluteBits, limit),
                  expectedCost)
            << "round " << round;
        ASSERT_EQ(fromCounts, expected) << "round " << round;
        ASSERT_LE(static_cast<int>(table.size()), limit);
    }
}

}  // namespace

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
}

const std::map<int, int> kExample = {{0, 10}, {2, 5}, {3, 1}, {5, 1}};

INSTANTIATE_TEST_SUITE_P(
    PrefixOptimizer, PrefixSearch,
    ::testing::Values(
        SearchCase{"worked example", kExample, 20, 3, {0, 2, 5}, 44},
        SearchCase{"longer table of equal cost is met first", kExample, 20, 7, {0, 2, 3, 5}, 44},
        SearchCase{"last entry at the absolute width escapes", kExample, 5, 3, {0, 2, 255}, 44},
        SearchCase{"limit of one takes the largest length", kExample, 20, 1, {5}, 85},
        SearchCase{"limit of one at the width escapes", kExample, 5, 1, {255}, 85},
        SearchCase{"all deltas zero", {{0, 7}}, 9, 7, {0}, 0},
        SearchCase{"all deltas zero at width zero", {{0, 7}}, 0, 7, {255}, 0},
        SearchCase{"single key has no prefix code", {{6, 4}}, 10, 7, {6}, 24},
        SearchCase{
            "keys above the width fold into it", {{3, 4}, {9, 2}, {30, 1}}, 12, 7, {3, 9, 255}, 52},
        SearchCase{"a length equal to the width escapes", {{2, 3}, {8, 1}}, 8, 6, {2, 255}, 18},
        SearchCase{"reflection deltas 5 -1 2 3 0 191",
                   {{0, 1}, {1, 1}, {3, 2}, {4, 1}, {9, 1}},
                   8,
                   6,
                   {1, 3, 4, 255},
                   32},
        SearchCase{"empty map", {}, 8, 6, {}, INT64_MAX}),
    NameOfCase());

// An independent reference: every strictly ascending subset of the clamped keys that ends on the
// largest, in lexicographic order, scored by the cost model; the first minimum wins.
void enumerate(const std::vector<int>& keys, std::vector<int>& candidate, size_t from, int limit,
               const std::map<int, int>& clamped, int64_t& bestCost, std::vector<int>& best) {
    for (size_t k = from; k < keys.size(); ++k) {
        candidate.push_back(keys[k]);
        const bool isLast = k + 1 == keys.size();
        if (isLast) {
            int64_t cost = 0;
            for (const auto& entry : clamped) {
                const size_t cls =
                    std::lower_bound(candidate.begin(), candidate.end(), entry.first) -
                    candidate.begin();
                const int prefixBits = static_cast<int>(cls) + (cls + 1 < candidate.size() ? 1 : 0);
                cost += int64_t{prefixBits + candidate[cls]} * entry.second;
            }
            if (cost < bestCost) {
                bestCost = cost;
                best = candidate;
            }
        } else if (static_cast<int>(candidate.size()) < limit) {
            enumerate(keys, candidate, k + 1, limit, clamped, bestCost, best);
        }
        candidate.pop_back();
    }
}

TEST(PrefixOptimizer, AgreesWithTheReferenceOnRandomHistograms) {
    std::mt19937 random(20261123);
    for (int round = 0; round < 300; ++round) {
        const int absoluteBits = std::uniform_int_distribution<int>(1, 64)(random);
        const int limit = std::uniform_int_distribution<int>(1, 7)(random);
        std::map<int, int> frequencies;
        const int numKeys = std::uniform_int_distribution<int>(1, 14)(random);
        for (int i = 0; i < numKeys; ++i)
            frequencies[std::uniform_int_distribution<int>(0, 64)(random)] +=
                std::uniform_int_distribution<int>(1, 1000)(random);
        if (frequencies.size() == 1 && frequencies.begin()->first == 0) continue;

        std::map<int, int> clamped;
        for (const auto& entry : frequencies)
            clamped[std::min(entry.first, absoluteBits)] += entry.second;
        std::vector<int> keys;
        for (const auto& entry : clamped) keys.push_back(entry.first);
        std::vector<int> candidate, expected;
        int64_t expectedCost = INT64_MAX;
        enumerate(keys, candidate, 0, limit, clamped, expectedCost, expected);
        if (expected.back() == absoluteBits) expected.back() = 255;

        std::vector<int> table;
        const int64_t cost =
            PrefixOptimizer::findBestBitLengthsForPrefixes(table, frequencies, absoluteBits, limit);
        ASSERT_EQ(table, expected) << "round " << round;
        ASSERT_EQ(cost, expectedCost) << "round " << round;
        ASSERT_LE(static_cast<int>(table.size()), limit);
    }
}

}  // namespace

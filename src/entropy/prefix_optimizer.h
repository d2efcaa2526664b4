// Chooses the prefix table of one component of one chunk: out of every way to cut the delta bit
// lengths that occur into at most `prefixLimit` classes, the one with the fewest prefix and
// payload bits. The result is defined by an exhaustive search in lexicographic order that keeps
// the first table of least cost; it is computed by dynamic programming, which finds the same
// table in time quadratic in the number of lengths instead of exponential.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "zul.h"

namespace zullib {

// How many deltas need each bit length, 0 to 64: the statistics of one stream component.
using BitLengthCounts = std::array<int, 65>;

class ZUL_API PrefixOptimizer {
public:
    // Fills `table` (empty on entry) with strictly ascending payload lengths, ending on the
    // largest length that occurs; a last entry equal to `absoluteBits` becomes the escape 255.
    // Lengths above `absoluteBits` count as `absoluteBits`. Returns the table's cost in bits over
    // all deltas of `frequencies` (bit length -> count), or INT64_MAX for an empty map, which
    // leaves the table empty. Of two tables of equal cost the lexicographically smaller wins.
    static int64_t findBestBitLengthsForPrefixes(std::vector<int>& table,
                                                 const std::map<int, int>& frequencies,
                                                 int absoluteBits, int prefixLimit);
    // The same for counts by bit length, a length of count 0 being one that does not occur: what
    // the map holding the lengths of non-zero count gives.
    static int64_t findBestBitLengthsForPrefixes(std::vector<int>& table,
                                                 const BitLengthCounts& counts, int absoluteBits,
                                                 int prefixLimit);

private:
    friend struct PrefixOptimizerReference;  // the tests' way to the exhaustive search

    // One level of the exhaustive search that defines the result: fixes entry `prefixIndex` of
    // `candidate` to each length that occurs above the previous entry, and recurses or, at the
    // largest length, scores the table. The tests hold the fast search to it.
    static void tryNextPrefix(int64_t& bestCost, std::vector<int>& bestTable,
                              std::vector<int>& candidate, const std::map<int, int>& cumulative,
                              int prefixIndex, int lastIndex, int coveredCount, int64_t cost);
};

}  // namespace zullib

#include "entropy/prefix_optimizer.h"

#include <algorithm>

namespace zullib {

namespace {
const int kEscape = 255;
}

int64_t PrefixOptimizer::findBestBitLengthsForPrefixes(std::vector<int>& table,
                                                       const std::map<int, int>& frequencies,
                                                       int absoluteBits, int prefixLimit) {
    int64_t bestCost = INT64_MAX;
    if (frequencies.size() == 1 && frequencies.begin()->first == 0) {
        // Every delta is 0: one prefix without code and without payload.
        table.assign(1, 0);
        bestCost = 0;
    } else {
        std::map<int, int> cumulative;
        {
            // Lengths from the absolute width upward collapse into the width: such deltas go out
            // as absolute values of that width, whatever their own length is.
            std::map<int, int> clamped;
            for (const auto& entry : frequencies)
                clamped[std::min(entry.first, absoluteBits)] += entry.second;
            int runningCount = 0;
            for (const auto& entry : clamped) {
                runningCount += entry.second;
                cumulative[entry.first] = runningCount;
            }
        }
        if (!cumulative.empty()) {
            std::vector<int> candidate;
            tryNextPrefix(bestCost, table, candidate, cumulative, 0, prefixLimit - 1, 0, 0);
        }
    }
    // Lengths ascend, so only the last entry can reach the absolute width.
    for (int& entry : table)
        if (entry == absoluteBits) entry = kEscape;
    return bestCost;
}

void PrefixOptimizer::tryNextPrefix(int64_t& bestCost, std::vector<int>& bestTable,
                                    std::vector<int>& candidate,
                                    const std::map<int, int>& cumulative, int prefixIndex,
                                    int lastIndex, int coveredCount, int64_t cost) {
    const int maxKey = cumulative.rbegin()->first;
    const int previous = candidate.empty() ? -1 : candidate.back();
    candidate.push_back(0);
    // The table may only end on the largest length, and at the deepest level nothing else is
    // tried. Ascending lengths at each level, depth first: the tables are met in lexicographic
    // order, and only a strictly smaller cost replaces the best, so the first of equals wins.
    const int first = prefixIndex == lastIndex ? maxKey : previous + 1;
    for (int length = first; length <= maxKey; ++length) {
        candidate.back() = length;
        const auto found = cumulative.find(length);
        if (found == cumulative.end()) continue;
        const int count = found->second;
        const bool isLast = length == maxKey;
        const int codeBits = prefixIndex + (isLast ? 0 : 1) + length;
        const int64_t total = static_cast<int64_t>(codeBits) * (count - coveredCount) + cost;
        if (isLast) {
            if (total < bestCost) {
                bestCost = total;
                bestTable = candidate;
            }
        } else {
            tryNextPrefix(bestCost, bestTable, candidate, cumulative, prefixIndex + 1, lastIndex,
                          count, total);
        }
    }
    candidate.pop_back();
}

}  // namespace zullib

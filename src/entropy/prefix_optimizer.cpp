#include "entropy/prefix_optimizer.h"

#include <algorithm>

namespace zullib {

namespace {
const int kEscape = 255;

// The cheapest table by dynamic programming over (prefix index, keys covered so far). It finds
// the very table that the exhaustive search finds: the search meets tables in lexicographic
// order and keeps the first of equal cost, and the walk below takes, level by level, the
// smallest key that still reaches the least cost. `keys` ascend; `cumulative[j]` counts the
// deltas of keys 0..j. Returns the cost; `table` receives the lengths.
int64_t cheapestTable(std::vector<int>& table, const std::vector<int>& keys,
                      const std::vector<int>& cumulative, int prefixLimit) {
    const int numKeys = static_cast<int>(keys.size());
    // A strictly ascending table has at most one entry per key. With no usable limit the
    // exhaustive search goes as deep as the keys allow, which is the same.
    const int levels = prefixLimit < 1 || prefixLimit > numKeys ? numKeys : prefixLimit;
    const int last = numKeys - 1;
    // rest[i * (numKeys + 1) + (j + 1)]: least cost of the entries from prefix index i on, when
    // the earlier entries cover keys 0..j (j = -1: none).
    std::vector<int64_t> rest(static_cast<size_t>(levels) * (numKeys + 1), INT64_MAX);
    auto restAt = [&](int i, int j) -> int64_t& {
        return rest[static_cast<size_t>(i) * (numKeys + 1) + (j + 1)];
    };
    auto covered = [&](int j) { return j < 0 ? 0 : cumulative[j]; };
    // The cost of entry i ending on key `next` after key `j`, plus the best rest, or INT64_MAX if
    // that entry may not stand at level i (only the largest key may end a table, and the deepest
    // level takes nothing else).
    auto through = [&](int i, int j, int next) -> int64_t {
        const bool isLast = next == last;
        if (!isLast && i == levels - 1) return INT64_MAX;
        const int64_t entry = static_cast<int64_t>(i + (isLast ? 0 : 1) + keys[next]) *
                              (cumulative[next] - covered(j));
        if (isLast) return entry;
        const int64_t after = restAt(i + 1, next);
        return after == INT64_MAX ? INT64_MAX : entry + after;
    };
    // The least of through(i, j, next) over every next, as the walk below recomputes it: the
    // entries that do not end the table (none at the deepest level), then the one that does.
    for (int i = levels - 1; i >= 0; --i) {
        const int64_t* after = i + 1 < levels ? &restAt(i + 1, -1) + 1 : nullptr;
        for (int j = -1; j < last; ++j) {
            const int64_t before = covered(j);
            int64_t best = INT64_MAX;
            for (int next = j + 1; after != nullptr && next < last; ++next) {
                if (after[next] == INT64_MAX) continue;
                const int64_t entry =
                    static_cast<int64_t>(i + 1 + keys[next]) * (cumulative[next] - before);
                best = std::min(best, entry + after[next]);
            }
            const int64_t ending =
                static_cast<int64_t>(i + keys[last]) * (cumulative[last] - before);
            restAt(i, j) = std::min(best, ending);
        }
    }

    table.clear();
    const int64_t best = restAt(0, -1);
    for (int i = 0, j = -1; j < last; ++i) {
        int next = j + 1;
        while (through(i, j, next) != restAt(i, j)) ++next;
        table.push_back(keys[next]);
        j = next;
    }
    return best;
}
// Lengths ascend, so only the last entry can reach the absolute width.
void markEscape(std::vector<int>& table, int absoluteBits) {
    for (int& entry : table)
        if (entry == absoluteBits) entry = kEscape;
}
}  // namespace

int64_t PrefixOptimizer::findBestBitLengthsForPrefixes(std::vector<int>& table,
                                                       const BitLengthCounts& counts,
                                                       int absoluteBits, int prefixLimit) {
    // Lengths ascend, so the clamped ones arrive in order, those at the width last.
    std::vector<int> keys, cumulative;
    int runningCount = 0;
    for (int length = 0; length < static_cast<int>(counts.size()); ++length) {
        if (counts[static_cast<size_t>(length)] == 0) continue;
        const int key = std::min(length, absoluteBits);
        runningCount += counts[static_cast<size_t>(length)];
        if (!keys.empty() && keys.back() == key) {
            cumulative.back() = runningCount;
        } else {
            keys.push_back(key);
            cumulative.push_back(runningCount);
        }
    }
    if (keys.empty()) return INT64_MAX;
    const int64_t cost = cheapestTable(table, keys, cumulative, prefixLimit);
    markEscape(table, absoluteBits);
    return cost;
}

int64_t PrefixOptimizer::findBestBitLengthsForPrefixes(std::vector<int>& table,
                                                       const std::map<int, int>& frequencies,
                                                       int absoluteBits, int prefixLimit) {
    int64_t bestCost = INT64_MAX;
    if (frequencies.size() == 1 && frequencies.begin()->first == 0) {
        // Every delta is 0: one prefix without code and without payload.
        table.assign(1, 0);
        bestCost = 0;
    } else if (!frequencies.empty()) {
        // Lengths from the absolute width upward collapse into the width: such deltas go out as
        // absolute values of that width, whatever their own length is.
        std::map<int, int> clamped;
        for (const auto& entry : frequencies)
            clamped[std::min(entry.first, absoluteBits)] += entry.second;
        std::vector<int> keys, cumulative;
        int runningCount = 0;
        for (const auto& entry : clamped) {
            runningCount += entry.second;
            keys.push_back(entry.first);
            cumulative.push_back(runningCount);
        }
        bestCost = cheapestTable(table, keys, cumulative, prefixLimit);
    }
    markEscape(table, absoluteBits);
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

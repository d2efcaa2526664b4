// Bit counts of deltas: the statistics that choose prefix tables and the widths of absolute values.
#pragma once

#include <cstdint>

namespace zullib {

// 0 for 0, else the index of the highest set bit plus 1: 1 -> 1, 3 -> 2, 2^63 -> 64.
inline int bitLength(uint64_t value) { return value == 0 ? 0 : 64 - __builtin_clzll(value); }

// The width of the smallest two's complement field that holds `value`, except that 0 takes no
// bit: -1 -> 1, 1 -> 2, -2 -> 2, 3 -> 3, INT64_MIN and INT64_MAX -> 64.
inline int signedBitLength(int64_t value) {
    if (value == 0) return 0;
    // ~value is -value - 1 without overflow for negative values.
    const uint64_t magnitude = static_cast<uint64_t>(value < 0 ? ~value : value);
    return bitLength(magnitude) + 1;
}

}  // namespace zullib

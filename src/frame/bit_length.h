// Bit counts of deltas: the statistics that choose prefix tables and the widths of absolute values.
#pragma once

#include <cstdint>

#include "frame/compiler.h"

namespace zullib {

// 0 for 0, else the index of the highest set bit plus 1: 1 -> 1, 3 -> 2, 2^63 -> 64. Without a
// branch: the statistics take it for every delta, and zero deltas come and go unpredictably.
inline int bitLength(uint64_t value) {
    return 64 - countLeadingZeros(value | 1) - static_cast<int>(value == 0);
}

// The width of the smallest two's complement field that holds `value`, except that 0 takes no
// bit: -1 -> 1, 1 -> 2, -2 -> 2, 3 -> 3, INT64_MIN and INT64_MAX -> 64.
inline int signedBitLength(int64_t value) {
    // The magnitude is ~value for negative values (-value - 1, without overflow), below 2^63, and
    // one bit more than it takes is the sign: twice it plus one has exactly that many bits.
    const uint64_t sign = static_cast<uint64_t>(value < 0 ? -1 : 0);
    const uint64_t magnitude = static_cast<uint64_t>(value) ^ sign;
    return 64 - countLeadingZeros(magnitude << 1 | 1) - static_cast<int>(value == 0);
}

}  // namespace zullib

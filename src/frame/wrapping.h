// Two's complement arithmetic that wraps at 64 bits. Grid coordinates and deltas wrap by the
// format's definition; doing it on unsigned values keeps signed overflow out of the library.
#pragma once

#include <cstdint>

namespace zullib {

inline int64_t wrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

inline int64_t wrappingSub(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace zullib

// The signed bit length of every difference of two bytes (-255 to 255), as signedBitLength gives
// it, in a table: the colour statistics take one load a channel instead of a bit scan.
#pragma once

#include <cstdint>

namespace zullib {

class ByteDeltaLengths {
public:
    constexpr ByteDeltaLengths() : lengths_{} {
        for (int delta = -255; delta <= 255; ++delta) {
            // The bits of the magnitude (-delta - 1 for a negative delta) and one for the sign;
            // 0 takes none.
            int magnitude = delta < 0 ? -delta - 1 : delta;
            int bits = delta == 0 ? 0 : 1;
            for (; magnitude > 0; magnitude >>= 1) ++bits;
            lengths_[delta + 255] = static_cast<uint8_t>(bits);
        }
    }
    // Only for -255 <= delta <= 255.
    int of(int64_t delta) const { return lengths_[delta + 255]; }

private:
    uint8_t lengths_[511];
};

inline constexpr ByteDeltaLengths kByteDeltaLengths;

}  // namespace zullib

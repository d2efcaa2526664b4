// RGB888 colours from the records to the planar output, four bytes a point: one load and one
// store. The fourth byte (the record's padding) lands on the next point's first byte, which that
// point then writes; the last point takes three, so nothing is written past the output's end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "entropy/quantized_point.h"

namespace zullib {

inline void copyRgb888(uint8_t* colors, const zul_QuantizedPoint* records, size_t n) {
    if (n == 0) return;
    constexpr size_t kRgb = offsetof(zul_QuantizedPoint, rgb);
    static_assert(offsetof(zul_QuantizedPoint, reflection) >= kRgb + 4,
                  "a byte follows the colour in the record");
    for (size_t i = 0; i + 1 < n; ++i) {
        unsigned char word[4];
        std::memcpy(word, reinterpret_cast<const unsigned char*>(records + i) + kRgb, 4);
        std::memcpy(colors + 3 * i, word, 4);
    }
    std::memcpy(colors + 3 * (n - 1), records[n - 1].rgb, 3);
}

}  // namespace zullib

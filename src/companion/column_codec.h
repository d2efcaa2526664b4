// One column of one chunk as a segment of its block: a transform (delta or XOR of each value with
// the one before), byte planes, then zstd; and back, checking every size.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulx {

// Codes `count` values of `width` bytes at `values` with `coding` (format.h) and appends the
// segment (its 8-byte header and bytes) to `out`. The transform must be none for widths other
// than 1, 2, 4 and 8.
void encodeSegment(const void* values, int64_t count, int32_t width, uint8_t coding, int level,
                   std::vector<uint8_t>& out);

// Codes the values with each coding the type may use and appends the smallest segment.
void encodeBestSegment(const void* values, int64_t count, int32_t width, int32_t type,
                       std::vector<uint8_t>& out);

// Decodes a segment's `stored` bytes, coded with `coding`, into exactly `count` values of `width`
// bytes at `out`. Returns zul_STATUS_OK or zul_STATUS_CORRUPT_DATA.
zul_Status decodeSegment(uint8_t coding, const uint8_t* stored, size_t storedSize, int64_t count,
                         int32_t width, void* out);

}  // namespace zulx

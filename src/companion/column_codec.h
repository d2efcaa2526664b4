// One column of one chunk as a segment of its block: optionally in the input's order, a transform
// (delta or XOR of each value with the one before), byte planes, then zstd; and back, checking
// every size.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulx {

// Codes `count` values of `width` bytes at `values` with `coding` (format.h; kInputOrder plays no
// part here: the caller has put the values in that order) and appends the segment (its 8-byte
// header and bytes) to `out`. The transform must be none for widths other than 1, 2, 4 and 8.
void encodeSegment(const void* values, int64_t count, int32_t width, uint8_t coding, int level,
                   std::vector<uint8_t>& out);

// The stored positions of a chunk's points in the input's order: `indices` (each stored point's
// input index) sorted, ties in stored order.
std::vector<uint32_t> inputOrderOf(const uint64_t* indices, int64_t count);

// A column's coding as its last trials chose it, kept from chunk to chunk of one writer.
struct CodingChoice {
    uint8_t coding = 0;        // 0: no trials yet
    int64_t valuesLeft = 0;    // values still coded with it without trials
    double bytesPerValue = 0;  // what it made of the chunk the trials ran on
};

// Codes the values, in stored order or, when `inputOrder` is not null, also in the input's order,
// and appends the segment: with the coding that makes the fewest bytes of them (of a sample of
// them in a large chunk). A small chunk's choice is kept in `choice` for the column's next small
// chunks, which are coded with it without trials until they hold a number of values or it makes
// notably more bytes a value.
void encodeBestSegment(const void* values, int64_t count, int32_t width, int32_t type,
                       const std::vector<uint32_t>* inputOrder, CodingChoice& choice,
                       std::vector<uint8_t>& out);

// Decodes a segment's `stored` bytes, coded with `coding`, into exactly `count` values of `width`
// bytes at `out`, in stored order; a segment in the input's order needs `inputOrder` (else it is
// damage). Returns zul_STATUS_OK or zul_STATUS_CORRUPT_DATA.
zul_Status decodeSegment(uint8_t coding, const uint8_t* stored, size_t storedSize, int64_t count,
                         int32_t width, const std::vector<uint32_t>* inputOrder, void* out);

}  // namespace zulx

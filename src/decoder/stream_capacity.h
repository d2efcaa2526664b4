// A bound on the points a data stream can hold, checked before the decoder allocates anything
// for a chunk. A damaged point count cannot then make it allocate beyond what the body's bytes
// could carry, unless every component is coded in zero bits, which is how a chunk of identical
// points looks.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/data_stream_reader.h"

namespace zullib {

// The fewest bits any value of a component can take: the cheapest prefix with its payload.
int64_t fewestBitsPerValue(const std::vector<int>& table, int absoluteBits);

// True unless the stream declared at [start, end) of `body` certainly cannot hold `numPoints`
// points: its tables are malformed, or its bytes after the tables are fewer than the cheapest
// codes of that many points. A stream that decodes and ends at `end` always passes, so refusing
// on false changes no outcome but the allocation.
template <class Accessor>
bool streamCanHold(const unsigned char* body, int64_t start, int64_t end, const int* absoluteBits,
                   int64_t numPoints) {
    BitStreamIn in(body, end, start);
    std::vector<int> tables[Accessor::kNumComponents];
    if (readStreamTables<Accessor>(in, tables) != zul_STATUS_OK) return false;
    int64_t bitsPerPoint = 0;
    for (int c = 0; c < Accessor::kNumComponents; ++c)
        bitsPerPoint += fewestBitsPerValue(tables[c], absoluteBits[c]);
    return bitsPerPoint == 0 || numPoints <= (end - in.bytePosition) * 8 / bitsPerPoint;
}

}  // namespace zullib

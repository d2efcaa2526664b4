// Bounds on the points a data stream can hold, checked before the decoder allocates anything for
// a chunk. A damaged point count cannot then make it allocate beyond what the body's bytes could
// carry, unless every component is coded in zero bits and the streams are their tables alone,
// which is how a chunk of identical points looks.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/data_stream_reader.h"

namespace zullib {

// The fewest and the most bits a value of a component can take: its cheapest and its dearest
// prefix with the payload.
struct CodeLengths {
    int64_t fewest;
    int64_t most;
};
CodeLengths codeLengths(const std::vector<int>& table, int absoluteBits);

// True unless the stream declared at [start, end) of `body` certainly does not hold `numPoints`
// points: its tables are malformed, or the bytes after its tables are fewer than the cheapest
// codes of that many points need, or more than the dearest codes fill. A stream that decodes and
// ends at `end` always passes, so refusing on false changes no outcome but the allocation.
template <class Accessor>
bool streamCanHold(const unsigned char* body, int64_t start, int64_t end, const int* absoluteBits,
                   int64_t numPoints) {
    BitStreamIn in(body, end, start);
    std::vector<int> tables[Accessor::kNumComponents];
    if (readStreamTables<Accessor>(in, tables) != zul_STATUS_OK) return false;
    int64_t fewest = 0, most = 0;
    for (int c = 0; c < Accessor::kNumComponents; ++c) {
        const CodeLengths lengths = codeLengths(tables[c], absoluteBits[c]);
        fewest += lengths.fewest;
        most += lengths.most;
    }
    // At most 3 x 509 bits a point and fewer than 2^31 points: no product overflows.
    const int64_t bodyBits = (end - in.bytePosition) * 8;
    return numPoints * fewest <= bodyBits && bodyBits <= numPoints * most + 7;
}

}  // namespace zullib

// Writing one data stream of a chunk: the prefix table of each component in plain bytes, then,
// point after point and component after component, a truncated unary prefix and a payload, and
// zero bits up to the next byte boundary.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/bit_stream_out.h"
#include "entropy/cvr.h"
#include "entropy/quantized_point.h"
#include "entropy/stream_coding.h"

namespace zullib {

// Each table as its entry count and its entries, one byte each. `out` stands on a byte boundary.
void writeStreamTables(BitStreamOut& out, const std::vector<int>* tables, int numTables);

// The codes of every point's components, given tables built from these very deltas, so that every
// delta finds its range. Ends on a byte boundary.
template <class Accessor>
void writeStreamBody(BitStreamOut& out, const std::vector<zul_QuantizedPoint>& points,
                     const int (&absoluteBits)[Accessor::kNumComponents],
                     const std::vector<int> (&tables)[Accessor::kNumComponents]) {
    StreamCoding<Accessor> coding(absoluteBits, tables);
    int64_t* previous = coding.previous;
    for (const zul_QuantizedPoint& point : points) {
        for (int c = 0; c < Accessor::kNumComponents; ++c) {
            const int64_t current = Accessor::get(point, c);
            const int64_t delta = Accessor::delta(c, previous[c], current);
            previous[c] = current;
            int64_t value;
            int prefix, numBits;
            CVR::encodeDeltaOrAbsolute(value, prefix, numBits, coding.lookup[c], current, delta);
            // Prefix i is i one-bits, closed by a zero-bit unless it is the last prefix.
            const uint64_t ones = prefix < 64 ? (uint64_t{1} << prefix) - 1 : ~uint64_t{0};
            out.writeBits(ones, prefix < coding.lastPrefix[c] ? prefix + 1 : prefix);
            out.writeBits(static_cast<uint64_t>(value), numBits);
        }
    }
    out.alignToByte();
}

}  // namespace zullib

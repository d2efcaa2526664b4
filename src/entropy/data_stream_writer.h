// Writing one data stream of a chunk: the prefix table of each component in plain bytes, then,
// point after point and component after component, a truncated unary prefix and a payload, and
// zero bits up to the next byte boundary.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "entropy/bit_packer.h"
#include "entropy/bit_stream_out.h"
#include "entropy/cvr.h"
#include "entropy/delta_encoder.h"
#include "entropy/quantized_point.h"
#include "entropy/stream_coding.h"
#include "frame/bit_length.h"
#include "frame/compiler.h"

namespace zullib {

// Each table as its entry count and its entries, one byte each. `out` stands on a byte boundary.
void writeStreamTables(BitStreamOut& out, const std::vector<int>* tables, int numTables);

// The codes of every point's components, given tables built from these very deltas, so that every
// delta finds its range. Ends on a byte boundary. `out` stands on a byte boundary.
template <class Accessor>
void writeStreamBody(BitStreamOut& out, const std::vector<zul_QuantizedPoint>& points,
                     const int (&absoluteBits)[Accessor::kNumComponents],
                     const std::vector<int> (&tables)[Accessor::kNumComponents]) {
    constexpr int kComponents = Accessor::kNumComponents;
    StreamCoding<Accessor> coding(absoluteBits, tables);
    int64_t* previous = coding.previous;
    // The fast path needs small tables and a byte boundary; the general loop below writes the
    // same bits one field at a time.
    bool fast = out.bitPosition == 0;
    int64_t bitsPerPoint = 0;
    DeltaEncoder encoders[kComponents];
    DeltaCodeTable codeTables[kComponents];
    for (int c = 0; c < kComponents; ++c) {
        encoders[c] = DeltaEncoder(coding.lookup[c]);
        // The small deltas of a component by table, all of them if it is narrow; a table pays
        // for itself over a chunk of at least its positive half's size, so a small chunk takes a
        // narrower window.
        const int chunkBits = bitLength(static_cast<uint64_t>(points.size())) - 1;
        const int window = std::min({absoluteBits[c], int{DeltaCodeTable::kMaxWidth}, chunkBits});
        if (encoders[c].usable() && window >= 0)
            codeTables[c] = DeltaCodeTable(encoders[c], coding.lastPrefix[c], window);
        fast = fast && encoders[c].usable() && encoders[c].widestPayload() <= 64;
        bitsPerPoint += DeltaEncoder::kMaxEntries + encoders[c].widestPayload();
    }
    if (fast) {
        BitPacker packer(out, static_cast<int64_t>(points.size()) * ((bitsPerPoint + 7) / 8));
        // A point's fields gather in one word while they fit, so that the packer takes a point's
        // codes in one step rather than one a component. Where a whole point fits in the word
        // (at most kMaxEntries prefix bits and the widest payload a component), no field asks;
        // where two surely fit, the word gathers the codes of as many points as it can and goes
        // to the packer only before a point that might not fit.
        struct Gathered {
            uint64_t word = 0;
            int bits = 0;
        };
        const auto flush = [&](Gathered& gathered) {
            packer.put(gathered.word, gathered.bits);
            gathered = Gathered();
        };
        const auto writePoint = [&](const zul_QuantizedPoint& point, Gathered& gathered,
                                    auto pointFits) {
            constexpr bool kPointFits = decltype(pointFits)::value;
            const auto add = [&](uint64_t field, int fieldBits) {
                if (!kPointFits && gathered.bits + fieldBits > 56) flush(gathered);
                gathered.word |= field << gathered.bits;
                gathered.bits += fieldBits;
            };
            ZUL_UNROLL_4
            for (int c = 0; c < kComponents; ++c) {
                const int64_t current = Accessor::get(point, c);
                const int64_t delta = Accessor::delta(c, previous[c], current);
                previous[c] = current;
                uint64_t field;
                int fieldBits;
                if (codeTables[c].code(delta, current, field, fieldBits)) {
                    add(field, fieldBits);
                    continue;
                }
                int64_t value;
                int prefix, numBits;
                encoders[c].encode(delta, current, value, prefix, numBits);
                // Prefix i is i one-bits, closed by a zero-bit unless it is the last prefix.
                const uint64_t ones = (uint64_t{1} << prefix) - 1;
                const int prefixBits = prefix < coding.lastPrefix[c] ? prefix + 1 : prefix;
                const uint64_t payload =
                    numBits < 64 ? static_cast<uint64_t>(value) & ((uint64_t{1} << numBits) - 1)
                                 : static_cast<uint64_t>(value);
                if (kPointFits || prefixBits + numBits <= 56) {
                    add(ones | payload << prefixBits, prefixBits + numBits);
                } else {
                    flush(gathered);
                    packer.put(ones, prefixBits);
                    packer.putWide(payload, numBits);
                }
            }
        };
        const auto eachPoint = [&](auto pointFits) {
            for (const zul_QuantizedPoint& point : points) {
                Gathered gathered;
                writePoint(point, gathered, pointFits);
                flush(gathered);
            }
        };
        if (bitsPerPoint <= 28) {
            const int pointBits = static_cast<int>(bitsPerPoint);
            Gathered gathered;
            ZUL_UNROLL_4
            for (const zul_QuantizedPoint& point : points) {
                if (gathered.bits + pointBits > 56) flush(gathered);
                writePoint(point, gathered, std::true_type{});
            }
            flush(gathered);
        } else if (bitsPerPoint <= 56) {
            eachPoint(std::true_type{});
        } else {
            eachPoint(std::false_type{});
        }
        packer.finish();
        return;
    }
    for (const zul_QuantizedPoint& point : points) {
        for (int c = 0; c < kComponents; ++c) {
            const int64_t current = Accessor::get(point, c);
            const int64_t delta = Accessor::delta(c, previous[c], current);
            previous[c] = current;
            int64_t value;
            int prefix, numBits;
            CVR::encodeDeltaOrAbsolute(value, prefix, numBits, coding.lookup[c], current, delta);
            const uint64_t ones = prefix < 64 ? (uint64_t{1} << prefix) - 1 : ~uint64_t{0};
            out.writeBits(ones, prefix < coding.lastPrefix[c] ? prefix + 1 : prefix);
            out.writeBits(static_cast<uint64_t>(value), numBits);
        }
    }
    out.alignToByte();
}

}  // namespace zullib

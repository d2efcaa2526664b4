// Reading one data stream of a chunk into the records of its points. Everything that comes from
// the stream is untrusted: malformed tables are refused, reads past the end give 0 and raise the
// cursor's sticky flag, which is looked at once, when the stream is done.
#pragma once

#include <cstdint>
#include <type_traits>
#include <vector>

#include "entropy/bit_stream_in.h"
#include "entropy/bit_unpacker.h"
#include "entropy/cvr.h"
#include "entropy/delta_decoder.h"
#include "entropy/quantized_point.h"
#include "entropy/stream_coding.h"
#include "frame/data_check.h"

namespace zullib {

// Fills one table per component. A count of 0 means the single escape entry. Refused: an escape
// before the last entry, a 0 after the first one (but in the table of coordinate slot 0, where a
// later 0 is a range of one delta), and a header that runs past the end of the data.
template <class Accessor>
zul_Status readStreamTables(BitStreamIn& in, std::vector<int>* tables) {
    const bool isCoordinates =
        std::is_same<Accessor, zul_QuantizedPoint::CoordinateAccessor>::value;
    for (int c = 0; c < Accessor::kNumComponents; ++c) {
        std::vector<int>& table = tables[c];
        table.clear();
        const int count = in.readByteAlignedUInt8();
        if (count == 0) {
            table.push_back(255);
            continue;
        }
        for (int j = 0; j < count; ++j) {
            const int entry = in.readByteAlignedUInt8();
            ZUL_REFUSE_UNLESS(entry != 255 || j == count - 1);
            ZUL_REFUSE_UNLESS(entry != 0 || j == 0 || (isCoordinates && c == 0));
            table.push_back(entry);
        }
    }
    ZUL_REFUSE_UNLESS(!in.errorFlag);
    return zul_STATUS_OK;
}

// Fills the accessor's fields of `points`, which holds one record per point already. Bit lengths
// above 64 (only a corrupt stream has them) read their bits and decode to some value; the caller's
// check of the declared stream end refuses such a stream.
template <class Accessor>
zul_Status readStreamBody(BitStreamIn& in, std::vector<zul_QuantizedPoint>& points,
                          const int* absoluteBits, const std::vector<int>* tables) {
    constexpr int kComponents = Accessor::kNumComponents;
    StreamCoding<Accessor> coding(absoluteBits, tables);
    int64_t* previous = coding.previous;
    size_t next = 0;
    // The fast path takes points while a whole point's widest codes fit before the end of the
    // data, for tables of the sizes writers make; what is left goes through the checked loop.
    bool fast = !in.errorFlag && in.bytePosition >= 0;
    DeltaDecoder decoders[kComponents];
    for (int c = 0; c < kComponents; ++c) {
        decoders[c] = DeltaDecoder(coding.lookup[c]);
        fast = fast && decoders[c].usable() && absoluteBits[c] <= 64;
        for (int length : tables[c]) fast = fast && (length <= 64 || length == 255);
    }
    if (fast) {
        BitUnpacker unpacker(in);
        const int64_t pointRoom = 9 * kComponents + 16;
        for (; next < points.size() && unpacker.room(pointRoom); ++next) {
            zul_QuantizedPoint& point = points[next];
            for (int c = 0; c < kComponents; ++c) {
                const int prefix = unpacker.prefix(coding.lastPrefix[c]);
                const int length = tables[c][static_cast<size_t>(prefix)];
                int64_t value;
                if (length == 255) {
                    value = static_cast<int64_t>(unpacker.read(absoluteBits[c]));
                } else {
                    uint64_t payload = unpacker.read(length);
                    if (!Accessor::nonNegative(c) && length > 0 && length < 64 &&
                        ((payload >> (length - 1)) & 1) != 0)
                        payload |= ~uint64_t{0} << length;
                    const int64_t delta = decoders[c].decode(static_cast<int64_t>(payload), prefix);
                    value = Accessor::undoDelta(c, previous[c], delta);
                }
                Accessor::set(point, c, value);
                previous[c] = value;
            }
        }
        unpacker.finish();
    }
    for (; next < points.size(); ++next) {
        zul_QuantizedPoint& point = points[next];
        for (int c = 0; c < kComponents; ++c) {
            int prefix = 0;
            while (prefix < coding.lastPrefix[c] && !in.errorFlag && in.readBits(1) == 1) ++prefix;
            const int length = tables[c][prefix];
            int64_t value;
            if (length == 255) {
                value = static_cast<int64_t>(in.readBits(absoluteBits[c]));
            } else {
                uint64_t payload = in.readBits(length);
                // A signed payload carries its sign in its top bit.
                if (!Accessor::nonNegative(c) && length > 0 && length < 64 &&
                    ((payload >> (length - 1)) & 1) != 0)
                    payload |= ~uint64_t{0} << length;
                int64_t delta;
                CVR::decodeDelta(delta, coding.lookup[c], static_cast<int64_t>(payload), prefix);
                value = Accessor::undoDelta(c, previous[c], delta);
            }
            Accessor::set(point, c, value);
            previous[c] = value;
        }
    }
    in.alignToByte();
    ZUL_REFUSE_UNLESS(!in.errorFlag);
    return zul_STATUS_OK;
}

}  // namespace zullib

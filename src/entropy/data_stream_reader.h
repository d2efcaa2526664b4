// Reading one data stream of a chunk into the records of its points. Everything that comes from
// the stream is untrusted: malformed tables are refused, reads past the end give 0 and raise the
// cursor's sticky flag, which is looked at once, when the stream is done.
//
// How a component's code is decoded: the first form that applies.
// clang-format off
//   form                         used when                               limits
//   CodeLookup: one look-up      fast step; chunk of 4 x 2^10 points     codes of 10 bits at most,
//                                or more                                 deltas in 24 bits; escapes
//                                                                        in attribute streams only
//   PrefixCodeTable: no branch   fast step; the component's longest      32 prefixes at most
//                                code fits in a refilled register
//   DeltaDecoder, prefix/read    fast step; longer codes                 payloads of 64 bits at most
//   CVR over BitStreamIn         checked step: near the end of the       none: every read checked
//                                data, more than 8 ranges a side, or
//                                lengths over 64
// clang-format on
// A fast step needs room for its codes and the loads behind them (hasRoom). Where every
// component of every stream read side by side has a look-up table, or every one decodes from the
// register, a chunk's fast steps take a form of their own (readInRegister) that tests only the
// data: no per-code test of which form applies, and the register topped up at every group of
// components without a test (a branch on the widths of the codes would go wrong too often).
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "entropy/bit_stream_in.h"
#include "entropy/bit_unpacker.h"
#include "entropy/code_lookup.h"
#include "entropy/cvr.h"
#include "entropy/delta_decoder.h"
#include "entropy/prefix_code_table.h"
#include "entropy/quantized_point.h"
#include "entropy/stream_coding.h"
#include "frame/compiler.h"
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
        table.reserve(static_cast<size_t>(count));
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

// The forms of a fast step, from the most general: see StreamBodyReader::form().
enum FastForm { kGeneralForm, kRegisterForm, kTabledForm };

// Points a run of fast steps takes at most between checks of the room left; towards the end of
// the data the runs shrink by kRunShrink (256, 16, 1 points), so that few points are left to the
// checked steps.
const size_t kFastRun = 256;
const size_t kRunShrink = 16;

// Reads the body of one data stream point by point. A fast step (readFast) serves while
// hasRoom() says a whole point's widest codes fit before the end of the data, for tables of the
// sizes writers make; a checked step (readChecked) serves everywhere, with BitStreamIn's checks.
// Both give the same values and positions. Several readers over different streams of a chunk can
// step in turn, so that their independent work overlaps.
template <class Accessor>
class StreamBodyReader {
public:
    static constexpr int kComponents = Accessor::kNumComponents;
    // Whether the look-ups decode escapes too: in the attribute streams, where noisy values make
    // escapes as frequent as deltas (a branch on them would go wrong that often); coordinates
    // seldom escape and keep the shorter step.
    static constexpr bool kEscapesInLookups =
        !std::is_same<Accessor, zul_QuantizedPoint::CoordinateAccessor>::value;

    StreamBodyReader(BitStreamIn& in, const int* absoluteBits, const std::vector<int>* tables,
                     size_t numPoints)
        : in_(in),
          absoluteBits_(absoluteBits),
          tables_(tables),
          coding_(absoluteBits, tables),
          unpacker_(in) {
        fast_ = !in.errorFlag && in.bytePosition >= 0;
        for (int c = 0; c < kComponents; ++c) {
            decoders_[c] = DeltaDecoder(coding_.lookup[c]);
            fast_ = fast_ && decoders_[c].usable() && absoluteBits[c] <= 64;
            for (int length : tables[c]) fast_ = fast_ && (length <= 64 || length == 255);
            // A look-up table repays its building only over a long chunk.
            if (fast_ && numPoints >= 4 * (size_t{1} << CodeLookup::kPeekBits))
                lookups_[c] = CodeLookup(tables[c], coding_.lastPrefix[c], Accessor::nonNegative(c),
                                         decoders_[c], kEscapesInLookups ? absoluteBits[c] : -1);
            // The longest code of the component: the whole prefix and the widest payload.
            int widest = 0;
            for (int length : tables[c])
                widest = std::max(widest, length == 255 ? absoluteBits[c] : length);
            componentBits_[c] = coding_.lastPrefix[c] + widest;
            pointBits_ += componentBits_[c];
            // A component whose longest code fits in the register decodes from it. Its table is
            // usable: the decoder's arrays hold at most 8 prefixes, and its payloads fit too.
            if (fast_ && componentBits_[c] <= BitUnpacker::kRefilledBits)
                prefixCodes_[c].build(tables[c], coding_.lastPrefix[c], absoluteBits[c],
                                      Accessor::nonNegative(c), decoders_[c]);
        }
        pointInOneLoad_ = pointBits_ <= BitUnpacker::kRefilledBits;
        // Groups of components whose longest codes fit in the register together: the register
        // is topped up at the start of a group when it holds fewer bits than the group can take.
        form_ = kTabledForm;
        int group = 0;
        for (int c = 0; c < kComponents; ++c) {
            if (!prefixCodes_[c].usable()) form_ = kGeneralForm;
            if (form_ == kTabledForm && lookups_[c].entries() == nullptr) form_ = kRegisterForm;
            if (c == 0 || refillBits_[group] + componentBits_[c] > BitUnpacker::kRefilledBits)
                group = c;
            refillBits_[group] += componentBits_[c];
        }
        if (!fast_) form_ = kGeneralForm;
        // Pairs leave escapes out: where an escape fits a look-up (it is then frequent), the
        // pair's test would fail as often.
        if (form_ == kTabledForm && kComponents > 1 && !lookups_[0].hasEscapes() &&
            !lookups_[1].hasEscapes())
            pairs_ = CodePairLookup(lookups_[0], lookups_[1]);
        bitless_ = true;
        for (int c = 0; c < kComponents; ++c) {
            bitless_ = bitless_ && tables[c].size() == 1 &&
                       (tables[c][0] == 0 || (tables[c][0] == 255 && absoluteBits[c] == 0));
        }
    }

    // Whether the points take no bit of the stream: each component has a single code, with no
    // prefix and no payload (the same delta for every point, or an escape of no bits, 0).
    bool bitless() const { return bitless_; }

    // For a bitless stream, the points from `first` on: what checked steps give them, a
    // component at a time, with no bit read.
    void readBitless(std::vector<zul_QuantizedPoint>& records, size_t first) {
        // In locals: a byte stored to a record could alias the vector's own fields.
        zul_QuantizedPoint* const begin = records.data() + first;
        zul_QuantizedPoint* const end = records.data() + records.size();
        int64_t value[kComponents], delta[kComponents];
        bool escape[kComponents];
        for (int c = 0; c < kComponents; ++c) {
            value[c] = coding_.previous[c];
            delta[c] = 0;
            escape[c] = tables_[c][0] == 255;
            if (!escape[c]) CVR::decodeDelta(delta[c], coding_.lookup[c], 0, 0);
        }
        for (zul_QuantizedPoint* point = begin; point != end; ++point) {
            ZUL_UNROLL_4
            for (int c = 0; c < kComponents; ++c) {
                value[c] = escape[c] ? 0 : Accessor::undoDelta(c, value[c], delta[c]);
                Accessor::set(*point, c, value[c]);
            }
        }
        if (begin != end)
            for (int c = 0; c < kComponents; ++c) coding_.previous[c] = value[c];
    }

    // Which step serves every point of the chunk: readFast, or readInRegister with or without
    // look-ups, which tests nothing but the data.
    int form() const { return form_; }

    // What fast steps change, held by the caller in locals between cursor() and keep().
    // The tables it reads ride along, so that stores to the records (bytes may alias anything)
    // do not make the loop fetch them again.
    struct Cursor {
        BitUnpacker bits;
        int64_t previous[kComponents];
        const CodeLookup::Entry* lookup[kComponents];
        const PrefixCodeTable::Code*
            prefixCodes[kComponents];  // null: codes longer than the register
        int lastPrefix[kComponents];
        int componentBits[kComponents];
        int refillBits[kComponents];         // readInRegister: the bits a group takes at most, or 0
        const CodePairLookup::Entry* pairs;  // components 0 and 1 together
        bool pointInOneLoad;
    };
    Cursor cursor() const {
        Cursor cursor{unpacker_, {}, {}, {}, {}, {}, {}, pairs_.entries(), pointInOneLoad_};
        for (int c = 0; c < kComponents; ++c) {
            cursor.previous[c] = coding_.previous[c];
            cursor.lookup[c] = lookups_[c].entries();
            cursor.prefixCodes[c] = prefixCodes_[c].usable() ? prefixCodes_[c].codes() : nullptr;
            cursor.lastPrefix[c] = coding_.lastPrefix[c];
            cursor.componentBits[c] = componentBits_[c];
            cursor.refillBits[c] = refillBits_[c];
        }
        return cursor;
    }
    void keep(const Cursor& cursor) {
        unpacker_ = cursor.bits;
        for (int c = 0; c < kComponents; ++c) coding_.previous[c] = cursor.previous[c];
    }

    // Whether `points` more points can take fast steps: their longest codes, and the loads that
    // reach past them, fit before the end.
    bool hasRoom(size_t points) const {
        const int64_t codeBytes = (static_cast<int64_t>(points) * pointBits_ + 7) / 8;
        return fast_ && unpacker_.room(codeBytes + BitUnpacker::kLoadReach);
    }

    ZUL_ALWAYS_INLINE void readFast(zul_QuantizedPoint& point, Cursor& cursor) const {
        BitUnpacker& bits = cursor.bits;
        int64_t* previous = cursor.previous;
        // Where a whole point's codes fit in one register load, one refill serves the point;
        // else a component whose longest code fits in one load tops up only when the bits left
        // fall short of it. Either way the fields come from the register without loads of their
        // own, which would lengthen the chain from one field to the next.
        if (cursor.pointInOneLoad) bits.refill();
        ZUL_UNROLL_4
        for (int c = 0; c < kComponents; ++c) {
            const bool inRegister = cursor.prefixCodes[c] != nullptr;
            if (!cursor.pointInOneLoad && inRegister && bits.available() < cursor.componentBits[c])
                bits.refill();
            if (cursor.lookup[c] != nullptr) {
                const CodeLookup::Entry& entry =
                    cursor.lookup[c][(inRegister ? bits.buffered() : bits.peek()) &
                                     CodeLookup::kPeekMask];
                if (entry.bits() != 0) {
                    bits.skip(entry.bits());
                    const int64_t value = lookedUp(c, previous[c], entry);
                    Accessor::set(point, c, value);
                    previous[c] = value;
                    continue;
                }
            }
            if (inRegister) {
                // Every kind of code the same way: no branch that depends on the data.
                const uint64_t buffered = bits.buffered();
                const PrefixCodeTable::Code& code =
                    cursor.prefixCodes[c][PrefixCodeTable::count(buffered)];
                const int64_t payload = code.payload(buffered);
                const int64_t value =
                    code.escape ? payload
                                : Accessor::undoDelta(c, previous[c], code.delta(payload));
                bits.skip(code.codeBits);
                Accessor::set(point, c, value);
                previous[c] = value;
                continue;
            }
            // A code too long for the register: its prefix and payload load their own bits.
            const int prefix = bits.prefix(cursor.lastPrefix[c]);
            const int length = tables_[c][static_cast<size_t>(prefix)];
            const int payloadBits = length == 255 ? absoluteBits_[c] : length;
            const uint64_t payload = bits.read(payloadBits);
            int64_t value;
            if (length == 255) {
                value = static_cast<int64_t>(payload);
            } else {
                const int64_t delta =
                    decoders_[c].decode(signedPayload(c, payload, length), prefix);
                value = Accessor::undoDelta(c, previous[c], delta);
            }
            Accessor::set(point, c, value);
            previous[c] = value;
        }
    }

    // A fast step for a chunk whose every component decodes from the register (form() is
    // kRegisterForm, or kTabledForm with Lookups): no test but of the data, and the register
    // topped up once a group of components. With look-ups, components 0 and 1 take one look-up
    // for both codes where they fit in it.
    template <bool Lookups>
    ZUL_ALWAYS_INLINE void readInRegister(zul_QuantizedPoint& point, Cursor& cursor) const {
        readInRegisterFrom<Lookups, 0>(point, cursor);
    }

    // Ends the fast steps: the checked reader takes over the position.    // Ends the fast steps:
    // the checked reader takes over the position.
    void stopFast() {
        if (fast_) unpacker_.finish(in_);
        fast_ = false;
    }

    void readChecked(zul_QuantizedPoint& point) {
        int64_t* previous = coding_.previous;
        for (int c = 0; c < kComponents; ++c) {
            int prefix = 0;
            while (prefix < coding_.lastPrefix[c] && !in_.errorFlag && in_.readBits(1) == 1)
                ++prefix;
            const int length = tables_[c][prefix];
            int64_t value;
            if (length == 255) {
                value = static_cast<int64_t>(in_.readBits(absoluteBits_[c]));
            } else {
                int64_t delta;
                CVR::decodeDelta(delta, coding_.lookup[c],
                                 signedPayload(c, in_.readBits(length), length), prefix);
                value = Accessor::undoDelta(c, previous[c], delta);
            }
            Accessor::set(point, c, value);
            previous[c] = value;
        }
    }

    // After the last point: the stream ends on a byte boundary, and no read failed.
    zul_Status finish() {
        stopFast();
        in_.alignToByte();
        ZUL_REFUSE_UNLESS(!in_.errorFlag);
        return zul_STATUS_OK;
    }

private:
    // Component C and those after it.
    template <bool Lookups, int C>
    ZUL_ALWAYS_INLINE void readInRegisterFrom(zul_QuantizedPoint& point, Cursor& cursor) const {
        if constexpr (C < kComponents) {
            BitUnpacker& bits = cursor.bits;
            int64_t* previous = cursor.previous;
            // With look-ups every group tops up: a test of the bits left would go either way as
            // the codes' widths do, and a wrong guess costs more than the refill. Short chunks
            // without them keep the test, which their codes' steadier widths predict well.
            if constexpr (Lookups) {
                if (cursor.refillBits[C] != 0) bits.refill();
            } else {
                if (bits.available() < cursor.refillBits[C]) bits.refill();
            }
            const uint64_t buffered = bits.buffered();
            const uint64_t pattern = buffered & CodeLookup::kPeekMask;
            int64_t value;
            if constexpr (Lookups && C == 0 && kComponents > 1) {
                if (cursor.pairs == nullptr) {
                    value = readOneCode<Lookups, C>(buffered, pattern, cursor);
                    Accessor::set(point, C, value);
                    previous[C] = value;
                    readInRegisterFrom<Lookups, C + 1>(point, cursor);
                    return;
                }
                const CodePairLookup::Entry pair = cursor.pairs[pattern];
                // Both codes must lie in the bits that belong to the position.
                if (__builtin_expect(pair.bothBits() <= bits.available(), 1)) {
                    bits.skip(pair.bothBits());
                    const int64_t firstValue = Accessor::undoDelta(0, previous[0], pair.first());
                    Accessor::set(point, 0, firstValue);
                    previous[0] = firstValue;
                    const int64_t secondValue = Accessor::undoDelta(1, previous[1], pair.second());
                    Accessor::set(point, 1, secondValue);
                    previous[1] = secondValue;
                    // What component 1 would have topped up, for those after it.
                    if (cursor.refillBits[1] != 0) bits.refill();
                    readInRegisterFrom<Lookups, 2>(point, cursor);
                    return;
                }
                if (pair.firstBits() != 0) {
                    bits.skip(pair.firstBits());
                    value = Accessor::undoDelta(C, previous[C], pair.first());
                } else {
                    value = readPrefixCode(C, buffered, cursor);
                }
            } else {
                value = readOneCode<Lookups, C>(buffered, pattern, cursor);
            }
            Accessor::set(point, C, value);
            previous[C] = value;
            readInRegisterFrom<Lookups, C + 1>(point, cursor);
        }
    }

    // Component C's code from the bits loaded, with its look-up if Lookups; consumes it.
    template <bool Lookups, int C>
    ZUL_ALWAYS_INLINE static int64_t readOneCode(uint64_t buffered, uint64_t pattern,
                                                 Cursor& cursor) {
        const CodeLookup::Entry entry = Lookups ? cursor.lookup[C][pattern] : CodeLookup::Entry{0};
        if (Lookups && __builtin_expect(entry.bits() != 0, 1)) {
            cursor.bits.skip(entry.bits());
            return lookedUp(C, cursor.previous[C], entry);
        }
        return readPrefixCode(C, buffered, cursor);
    }

    // The value of a look-up's entry: an escape's own, else the previous one and the delta.
    ZUL_ALWAYS_INLINE static int64_t lookedUp(int c, int64_t previous,
                                              const CodeLookup::Entry entry) {
        if constexpr (kEscapesInLookups) previous &= entry.keep();
        return Accessor::undoDelta(c, previous, entry.delta());
    }

    // Any code of component c that fits in the register, from the bits loaded; consumes it.
    ZUL_ALWAYS_INLINE static int64_t readPrefixCode(int c, uint64_t buffered, Cursor& cursor) {
        const PrefixCodeTable::Code& code = cursor.prefixCodes[c][PrefixCodeTable::count(buffered)];
        const int64_t payload = code.payload(buffered);
        const int64_t value =
            code.escape ? payload : Accessor::undoDelta(c, cursor.previous[c], code.delta(payload));
        cursor.bits.skip(code.codeBits);
        return value;
    }

    // A signed payload carries its sign in its top bit.
    static int64_t signedPayload(int c, uint64_t payload, int length) {
        if (!Accessor::nonNegative(c) && length > 0 && length < 64 &&
            ((payload >> (length - 1)) & 1) != 0)
            payload |= ~uint64_t{0} << length;
        return static_cast<int64_t>(payload);
    }

    BitStreamIn& in_;
    const int* absoluteBits_;
    const std::vector<int>* tables_;
    StreamCoding<Accessor> coding_;
    BitUnpacker unpacker_;
    bool fast_ = false;
    int64_t pointBits_ = 0;  // the most bits one point can take in this stream
    bool pointInOneLoad_ = false;
    int componentBits_[kComponents] = {};  // the longest code of each component
    int refillBits_[kComponents] = {};     // see Cursor
    int form_ = kGeneralForm;
    bool bitless_ = false;
    CodePairLookup pairs_;
    DeltaDecoder decoders_[kComponents];
    CodeLookup lookups_[kComponents];
    PrefixCodeTable prefixCodes_[kComponents];
};

// A place for a reader left empty: always room, nothing to step.
struct NoReader {
    struct Cursor {};
    bool hasRoom(size_t) const { return true; }
    Cursor cursor() const { return {}; }
    void keep(const Cursor&) {}
    int form() const { return kTabledForm; }
};

// One fast step of `reader` in the given form.
template <int Form, class Reader>
ZUL_ALWAYS_INLINE void fastStep(const Reader& reader, zul_QuantizedPoint& point,
                                typename Reader::Cursor& cursor) {
    if (Form == kGeneralForm)
        reader.readFast(point, cursor);
    else
        reader.template readInRegister<Form == kTabledForm>(point, cursor);
}
template <int Form>
ZUL_ALWAYS_INLINE void fastStep(const NoReader&, zul_QuantizedPoint&, NoReader::Cursor&) {}

// `run` fast steps of each reader in the form all of them allow, point after point.
template <int Form, class R0, class R1, class R2, class R3>
void fastRun(zul_QuantizedPoint* point, size_t run, R0& r0, R1& r1, R2& r2, R3& r3) {
    auto c0 = r0.cursor();
    auto c1 = r1.cursor();
    auto c2 = r2.cursor();
    auto c3 = r3.cursor();
    for (zul_QuantizedPoint* const end = point + run; point != end; ++point) {
        fastStep<Form>(r0, *point, c0);
        fastStep<Form>(r1, *point, c1);
        fastStep<Form>(r2, *point, c2);
        fastStep<Form>(r3, *point, c3);
    }
    r0.keep(c0);
    r1.keep(c1);
    r2.keep(c2);
    r3.keep(c3);
}

// Fast steps of up to four readers side by side, point after point:
// runs of points with every reader's cursor in a local of its own for the length of a run, as
// long as every reader has room. Readers over different streams step in turn, so that their
// independent work overlaps; places left empty cost nothing, so that which readers take part is
// fixed at compile time and the loop neither tests it nor loads anything again after the bytes
// stored to the records. Starts at record `first`; returns the index of the first record it did
// not read, for more fast steps of fewer readers or for checked steps.
template <class R0, class R1 = NoReader, class R2 = NoReader, class R3 = NoReader>
size_t readFastRuns(std::vector<zul_QuantizedPoint>& records, size_t first, R0& r0, R1&& r1 = R1(),
                    R2&& r2 = R2(), R3&& r3 = R3()) {
    const int form = std::min({r0.form(), r1.form(), r2.form(), r3.form()});
    size_t next = first;
    for (size_t run = kFastRun; run > 0; run /= kRunShrink) {
        while (records.size() - next >= run && r0.hasRoom(run) && r1.hasRoom(run) &&
               r2.hasRoom(run) && r3.hasRoom(run)) {
            zul_QuantizedPoint* const point = records.data() + next;
            if (form == kTabledForm)
                fastRun<kTabledForm>(point, run, r0, r1, r2, r3);
            else if (form == kRegisterForm)
                fastRun<kRegisterForm>(point, run, r0, r1, r2, r3);
            else
                fastRun<kGeneralForm>(point, run, r0, r1, r2, r3);
            next += run;
        }
    }
    return next;
}

// Fills the accessor's fields of `points`, which holds one record per point already. Bit lengths
// above 64 (only a corrupt stream has them) read their bits and decode to some value; the caller's
// check of the declared stream end refuses such a stream.
template <class Accessor>
zul_Status readStreamBody(BitStreamIn& in, std::vector<zul_QuantizedPoint>& points,
                          const int* absoluteBits, const std::vector<int>* tables) {
    StreamBodyReader<Accessor> reader(in, absoluteBits, tables, points.size());
    if (reader.bitless()) {
        reader.readBitless(points, 0);
        return reader.finish();
    }
    size_t next = readFastRuns(points, 0, reader);
    reader.stopFast();
    for (; next < points.size(); ++next) reader.readChecked(points[next]);
    return reader.finish();
}

}  // namespace zullib

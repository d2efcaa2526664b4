// The data streams of a chunk body read side by side. Each stream has its own cursor from its
// declared start, and the points are filled one after another, every stream adding its fields
// before the next point: the streams' work is independent, so the processor overlaps it. What is
// refused is what the stream-after-stream reading refuses: a bad table, a read past the data, a
// stream that does not end exactly where the chunk header says (which is where the next begins).
#include <optional>
#include <type_traits>

#include "decoder/dec_context.h"
#include "entropy/attribute_widths.h"
#include "entropy/data_stream_reader.h"
#include "frame/data_check.h"
#include "frame/data_type.h"

using zullib::BitStreamIn;
using zullib::zul_QuantizedPoint;

namespace {

template <class StreamAccessor>
struct Lane {
    using Accessor = StreamAccessor;
    Lane(const unsigned char* body, int64_t bodySize, int64_t start, int64_t end, bool present)
        : in(body, bodySize, start), end(end), present(present) {}

    // The points from `next` on: fast steps of this stream alone while it has room (the side by
    // side steps stop for the first stream that has none), then checked steps; then the stream's
    // end.
    zul_Status finish(std::vector<zul_QuantizedPoint>& records, size_t next) {
        if (!present) return zul_STATUS_OK;
        if (!bitless) {
            next = zullib::readFastRuns(records, next, *reader);
            reader->stopFast();
            for (; next < records.size(); ++next) reader->readChecked(records[next]);
        }
        const zul_Status status = reader->finish();
        if (status != zul_STATUS_OK) return status;
        ZUL_REFUSE_UNLESS(in.bytePosition == end);
        return zul_STATUS_OK;
    }

    BitStreamIn in;
    int64_t end;
    bool present;
    bool bitless = false;  // read whole (readBitless), not in the side by side steps
    std::vector<int> tables[Accessor::kNumComponents];
    std::optional<zullib::StreamBodyReader<Accessor>> reader;
};

// Calls f with the readers of the present lanes that take bits, in order: which lanes take part in
// the fast steps is then fixed at compile time.
template <class F>
size_t withPresentReaders(F&& f) {
    return f();
}
template <class F, class FirstLane, class... Lanes>
size_t withPresentReaders(F&& f, FirstLane& lane, Lanes&... lanes) {
    if (!lane.present || lane.bitless) return withPresentReaders(f, lanes...);
    return withPresentReaders([&](auto&... readers) { return f(*lane.reader, readers...); },
                              lanes...);
}

}  // namespace

zul_Status zul_dec_ContextStruct::readStreamsInLockstep(const unsigned char* body,
                                                        QuantizedPoints& records,
                                                        const int* coordinateBits) {
    const zullib::AttributeWidths widths(dataType);
    const zullib::ChunkStreams streams(dataType);
    // Each present stream starts where the one before it is declared to end.
    const int64_t colorStart = coordinateStreamEnd;
    const int64_t reflectionStart = streams.color ? colorStreamEnd : colorStart;
    const int64_t normalStart = streams.reflection ? reflectionStreamEnd : reflectionStart;
    Lane<zul_QuantizedPoint::CoordinateAccessor> coordinates(body, chunkBodySize, 0,
                                                             coordinateStreamEnd, true);
    Lane<zul_QuantizedPoint::RGBAccessor> colors(body, chunkBodySize, colorStart, colorStreamEnd,
                                                 streams.color);
    Lane<zul_QuantizedPoint::ReflectionAccessor> reflections(
        body, chunkBodySize, reflectionStart, reflectionStreamEnd, streams.reflection);
    Lane<zul_QuantizedPoint::NormalAccessor> normals(body, chunkBodySize, normalStart,
                                                     normalStreamEnd, streams.normals);

    zul_Status status = zul_STATUS_OK;
    const auto open = [&](auto& lane, const int* absoluteBits) {
        using Accessor = typename std::remove_reference_t<decltype(lane)>::Accessor;
        if (status != zul_STATUS_OK || !lane.present) return;
        status = readDataStreamHeader<Accessor>(lane.in, lane.tables);
        if (status == zul_STATUS_OK)
            lane.reader.emplace(lane.in, absoluteBits, lane.tables, records.size());
    };
    open(coordinates, coordinateBits);
    open(colors, widths.rgbBits);
    open(reflections, widths.reflectionBits);
    open(normals, widths.normalBits);
    if (status != zul_STATUS_OK) return status;
    // A stream whose points take no bits (a constant colour) is filled whole, outside the steps.
    const auto fillBitless = [&](auto& lane) {
        lane.bitless = lane.present && lane.reader->bitless();
        if (lane.bitless) lane.reader->readBitless(records, 0);
    };
    fillBitless(colors);
    fillBitless(reflections);
    fillBitless(normals);

    const size_t next = withPresentReaders(
        [&](auto&... readers) {
            return zullib::readFastRuns(records, 0, *coordinates.reader, readers...);
        },
        colors, reflections, normals);
    for (zul_Status laneStatus :
         {coordinates.finish(records, next), colors.finish(records, next),
          reflections.finish(records, next), normals.finish(records, next)}) {
        if (laneStatus != zul_STATUS_OK) return laneStatus;
    }
    return zul_STATUS_OK;
}

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

    using Reader = zullib::StreamBodyReader<Accessor>;
    bool hasRoom(size_t points) const { return !present || reader->hasRoom(points); }
    typename Reader::Cursor cursor() const {
        return present ? reader->cursor() : typename Reader::Cursor{};
    }
    void keep(const typename Reader::Cursor& cursor) {
        if (present) reader->keep(cursor);
    }
    // The points from `next` on through the checked reader, then the stream's end.
    zul_Status finish(std::vector<zul_QuantizedPoint>& records, size_t next) {
        if (!present) return zul_STATUS_OK;
        reader->stopFast();
        for (; next < records.size(); ++next) reader->readChecked(records[next]);
        const zul_Status status = reader->finish();
        if (status != zul_STATUS_OK) return status;
        ZUL_REFUSE_UNLESS(in.bytePosition == end);
        return zul_STATUS_OK;
    }

    BitStreamIn in;
    int64_t end;
    bool present;
    std::vector<int> tables[Accessor::kNumComponents];
    std::optional<zullib::StreamBodyReader<Accessor>> reader;
};

// Calls f with std::true_type or std::false_type, as `flag` says.
template <class F>
size_t withFlag(bool flag, F&& f) {
    return flag ? f(std::true_type{}) : f(std::false_type{});
}

// Runs of points in lockstep, every lane's cursor in locals for the length of a run; runs get
// shorter towards the end of the data. Which lanes are present is fixed at compile time, so that
// the loop neither tests it for every point nor loads it again after the bytes stored to the
// records. Returns the number of points read.
template <bool kColors, bool kReflections, bool kNormals, class Coordinates, class Colors,
          class Reflections, class Normals>
size_t readFastRuns(Coordinates& coordinates, Colors& colors, Reflections& reflections,
                    Normals& normals, std::vector<zul_QuantizedPoint>& records) {
    size_t next = 0;
    for (size_t run = zullib::kFastRun; run > 0; run /= 16) {
        while (records.size() - next >= run && coordinates.hasRoom(run) && colors.hasRoom(run) &&
               reflections.hasRoom(run) && normals.hasRoom(run)) {
            auto coordinateCursor = coordinates.cursor();
            auto colorCursor = colors.cursor();
            auto reflectionCursor = reflections.cursor();
            auto normalCursor = normals.cursor();
            zul_QuantizedPoint* point = records.data() + next;
            for (zul_QuantizedPoint* const end = point + run; point != end; ++point) {
                coordinates.reader->readFast(*point, coordinateCursor);
                if constexpr (kColors) colors.reader->readFast(*point, colorCursor);
                if constexpr (kReflections) reflections.reader->readFast(*point, reflectionCursor);
                if constexpr (kNormals) normals.reader->readFast(*point, normalCursor);
            }
            next += run;
            coordinates.keep(coordinateCursor);
            colors.keep(colorCursor);
            reflections.keep(reflectionCursor);
            normals.keep(normalCursor);
        }
    }
    return next;
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

    const size_t next = withFlag(streams.color, [&](auto colorsOn) {
        return withFlag(streams.reflection, [&](auto reflectionsOn) {
            return withFlag(streams.normals, [&](auto normalsOn) {
                return readFastRuns<decltype(colorsOn)::value, decltype(reflectionsOn)::value,
                                    decltype(normalsOn)::value>(coordinates, colors, reflections,
                                                                normals, records);
            });
        });
    });
    for (zul_Status laneStatus :
         {coordinates.finish(records, next), colors.finish(records, next),
          reflections.finish(records, next), normals.finish(records, next)}) {
        if (laneStatus != zul_STATUS_OK) return laneStatus;
    }
    return zul_STATUS_OK;
}

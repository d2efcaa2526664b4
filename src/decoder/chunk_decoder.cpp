// One chunk body from bytes to zul_PointData: read the data streams into records, check that each
// ends where the chunk header says, then dequantise into the output arrays and transform.
#include <cstdint>

#include "decoder/dec_context.h"
#include "decoder/stream_capacity.h"
#include "entropy/attribute_widths.h"
#include "entropy/data_stream_reader.h"
#include "frame/chunk_axes.h"
#include "frame/data_check.h"
#include "frame/data_type.h"

using zullib::BitStreamIn;
using zullib::zul_QuantizedPoint;

namespace {
// From 2^30 points on, twice the count no longer fits in the 32 bits in which the capacity grows,
// so such a chunk cannot be served. No writer of this library makes one (it would need tens of
// gigabytes of working memory), so it is taken as damage rather than tried.
const int32_t kMaxChunkPoints = ZUL_MAX_DECODED_CHUNK_POINTS + 1;
}  // namespace

zul_Status zul_dec_ContextStruct::decodeChunkBody(zul_PointData* points, const char* chunkBody) {
    if (!points || !chunkBody) return zul_STATUS_INVALID_ARGUMENT;
    int axisToSlot[3];
    const zul_Status status = readBody(chunkBody, records, axisToSlot);
    // Up to here the output arrays are untouched: a damaged body leaves the last result intact.
    if (status != zul_STATUS_OK) return status;
    ensureChunkPointsCapacity();
    finishPoints(chunkPoints, records, axisToSlot);
    *points = chunkPoints;
    return zul_STATUS_OK;
}

zul_Status zul_dec_ContextStruct::decodeChunkBodyInto(const zul_PointData& target,
                                                      const char* chunkBody,
                                                      bool refuseOutsideBox) {
    if (!chunkBody) return zul_STATUS_INVALID_ARGUMENT;
    if (state == zul_dec_STATE_CHUNK_HEADER_READ) {
        const zullib::ChunkStreams streams(dataType);
        if (target.numPoints != chunkPoints.numPoints || !target.positions ||
            (streams.color && !target.colors) || (streams.reflection && !target.reflections) ||
            (streams.normals && !target.normals))
            return zul_STATUS_INVALID_ARGUMENT;
    }
    int axisToSlot[3];
    const zul_Status status = readBody(chunkBody, records, axisToSlot);
    if (status != zul_STATUS_OK) return status;
    ZUL_REFUSE_UNLESS(!refuseOutsideBox || recordsInsideBox(records, axisToSlot));
    zul_PointData out = target;
    finishPoints(out, records, axisToSlot);
    return zul_STATUS_OK;
}

zul_Status zul_dec_ContextStruct::readBody(const char* chunkBody, QuantizedPoints& records,
                                           int (&axisToSlot)[3]) {
    if (state != zul_dec_STATE_CHUNK_HEADER_READ || chunkPoints.numPoints < 1)
        return zul_STATUS_INVALID_STATE;
    // A body gets one attempt, whatever the outcome: it cannot be retried without its header.
    state = zul_dec_STATE_READY_FOR_CHUNK;
    const int32_t numPoints = chunkPoints.numPoints;
    ZUL_REFUSE_UNLESS(numPoints < kMaxChunkPoints);

    const zullib::ChunkAxes axes = zullib::chunkAxes(chunkBoundingBox);
    for (int slot = 0; slot < 3; ++slot) axisToSlot[axes.axisRemap[slot]] = slot;
    const zullib::AttributeWidths widths(dataType);
    const zullib::ChunkStreams streams(dataType);

    // Calls step(accessor, absolute widths, declared start, declared end) for each stream of the
    // body in order, as long as the steps return true.
    const auto forEachStream = [&](auto&& step) {
        int64_t start = 0;
        const auto next = [&](auto accessor, bool present, const int* absoluteBits, int64_t end) {
            if (!present) return true;
            const bool goOn = step(accessor, absoluteBits, start, end);
            start = end;
            return goOn;
        };
        return next(zul_QuantizedPoint::CoordinateAccessor{}, true, axes.coordinateBits,
                    coordinateStreamEnd) &&
               next(zul_QuantizedPoint::RGBAccessor{}, streams.color, widths.rgbBits,
                    colorStreamEnd) &&
               next(zul_QuantizedPoint::ReflectionAccessor{}, streams.reflection,
                    widths.reflectionBits, reflectionStreamEnd) &&
               next(zul_QuantizedPoint::NormalAccessor{}, streams.normals, widths.normalBits,
                    normalStreamEnd);
    };

    // Before anything is allocated: could the declared streams hold that many points at all?
    const unsigned char* body = reinterpret_cast<const unsigned char*>(chunkBody);
    const bool streamsCanHoldTheCount =
        forEachStream([&](auto accessor, const int* bits, int64_t start, int64_t end) {
            return zullib::streamCanHold<decltype(accessor)>(body, start, end, bits, numPoints);
        });
    ZUL_REFUSE_UNLESS(streamsCanHoldTheCount);

    // A body of coordinates alone is one stream; with attributes the streams are read side by
    // side. Either way every stream must end exactly at its declared end.
    records.resize(static_cast<size_t>(numPoints));
    zul_Status status = zul_STATUS_OK;
    if (streams.color || streams.reflection || streams.normals) {
        status = readStreamsInLockstep(body, records, axes.coordinateBits);
    } else {
        BitStreamIn in(body, chunkBodySize, 0);
        status = readStream<zul_QuantizedPoint::CoordinateAccessor>(
            in, records, axes.coordinateBits, coordinateStreamEnd);
    }
    return status;
}

bool zul_dec_ContextStruct::recordsInsideBox(const QuantizedPoints& records,
                                             const int (&axisToSlot)[3]) const {
    // A slot holds the offset from the box minimum: inside means 0 to the box's extent, which
    // is exact in unsigned arithmetic since the header's minimum is at most its maximum.
    uint64_t extent[3];
    for (int axis = 0; axis < 3; ++axis)
        extent[axisToSlot[axis]] = static_cast<uint64_t>(chunkBoundingBox.max[axis]) -
                                   static_cast<uint64_t>(chunkBoundingBox.min[axis]);
    for (const zul_QuantizedPoint& record : records)
        for (int slot = 0; slot < 3; ++slot)
            if (static_cast<uint64_t>(record.coordinates[slot]) > extent[slot]) return false;
    return true;
}

void zul_dec_ContextStruct::finishPoints(zul_PointData& out, const QuantizedPoints& records,
                                         const int (&axisToSlot)[3]) const {
    dequantizeRemapAndShiftPoints(out, records, dataType, axisToSlot, chunkBoundingBox);
    if (transformPositions) transformPointPositions(out, header2.transformation);
    if (transformNormals) transformPointNormals(out, normalTransformation);
}

template <class Accessor>
zul_Status zul_dec_ContextStruct::readStream(BitStreamIn& in, QuantizedPoints& points,
                                             const int* absoluteBits, int64_t end) {
    std::vector<int> tables[Accessor::kNumComponents];
    zul_Status status = readDataStreamHeader<Accessor>(in, tables);
    if (status == zul_STATUS_OK)
        status = readDataStreamBody<Accessor>(in, points, absoluteBits, tables);
    if (status != zul_STATUS_OK) return status;
    // The sizes in the chunk header are exact, not hints: ending early is as wrong as late.
    ZUL_REFUSE_UNLESS(in.bytePosition == end);
    return zul_STATUS_OK;
}

template <class Accessor>
zul_Status zul_dec_ContextStruct::readDataStreamHeader(BitStreamIn& in, std::vector<int>* tables) {
    return zullib::readStreamTables<Accessor>(in, tables);
}

template <class Accessor>
zul_Status zul_dec_ContextStruct::readDataStreamBody(BitStreamIn& in, QuantizedPoints& points,
                                                     const int* absoluteBits,
                                                     const std::vector<int>* tables) {
    return zullib::readStreamBody<Accessor>(in, points, absoluteBits, tables);
}

#define ZUL_DECODER_STREAM(Accessor)                                                              \
    template zul_Status zul_dec_ContextStruct::readDataStreamHeader<Accessor>(BitStreamIn&,       \
                                                                              std::vector<int>*); \
    template zul_Status zul_dec_ContextStruct::readDataStreamBody<Accessor>(                      \
        BitStreamIn&, QuantizedPoints&, const int*, const std::vector<int>*);
ZUL_DECODER_STREAM(zul_QuantizedPoint::CoordinateAccessor)
ZUL_DECODER_STREAM(zul_QuantizedPoint::RGBAccessor)
ZUL_DECODER_STREAM(zul_QuantizedPoint::ReflectionAccessor)
ZUL_DECODER_STREAM(zul_QuantizedPoint::NormalAccessor)
#undef ZUL_DECODER_STREAM

// One chunk from zul_PointData to bytes: quantise, sort, count, choose the prefix tables, write the
// streams behind a reserved front, then fill in the front (sync marker and chunk header).
#include <cstdint>

#include "encoder/enc_context.h"
#include "entropy/attribute_widths.h"
#include "entropy/data_stream_writer.h"
#include "entropy/prefix_optimizer.h"
#include "frame/data_type.h"

using zullib::BitStreamOut;
using zullib::PrefixOptimizer;
using zullib::zul_QuantizedPoint;

namespace {

// Most entries a prefix table may have, per stream. RGB565 keeps 5 on all three channels, the
// 6-bit green included.
const int kCoordinatePrefixLimit = 7;
int rgbPrefixLimit(const zul_DataType& dataType) {
    return dataType.colorMode == zul_COLOR_RGB565 ? 5 : 6;
}
const int kReflectionPrefixLimit = 6;
const int kNormalPrefixLimit = 6;

template <int N>
void chooseTables(std::vector<int> (&tables)[N], const zullib::BitLengthCounts (&frequencies)[N],
                  const int (&absoluteBits)[N], int prefixLimit) {
    for (int c = 0; c < N; ++c)
        PrefixOptimizer::findBestBitLengthsForPrefixes(tables[c], frequencies[c], absoluteBits[c],
                                                       prefixLimit);
}

}  // namespace

zul_Status zul_enc_ContextStruct::encodeChunk(const char** bytes, int* size,
                                              const zul_PointData* pointData) {
    *bytes = nullptr;
    *size = 0;
    const zullib::AttributeWidths widths(dataType);
    const zullib::ChunkStreams streams(dataType);

    QuantizedPoints points;
    zullib::BoundingBox3d<long long> box;
    int axisRemap[3];
    int coordinateBits[3];
    const zul_Status status =
        quantizeRemapAndShiftPoints(points, axisRemap, coordinateBits, box, pointData);
    // A refused chunk leaves chunkBuffer as it was.
    if (status != zul_STATUS_OK) return status;
    sortQuantizedPoints(points);

    Frequencies coordinateFrequencies[3] = {}, rgbFrequencies[3] = {},
                reflectionFrequencies[1] = {}, normalFrequencies[2] = {};
    countDeltaBitLengthFrequencies(points, coordinateFrequencies, rgbFrequencies,
                                   reflectionFrequencies, normalFrequencies);

    std::vector<int> coordinateTables[3], rgbTables[3], reflectionTables[1], normalTables[2];
    chooseTables(coordinateTables, coordinateFrequencies, coordinateBits, kCoordinatePrefixLimit);
    if (streams.color)
        chooseTables(rgbTables, rgbFrequencies, widths.rgbBits, rgbPrefixLimit(dataType));
    if (streams.reflection)
        chooseTables(reflectionTables, reflectionFrequencies, widths.reflectionBits,
                     kReflectionPrefixLimit);
    if (streams.normals)
        chooseTables(normalTables, normalFrequencies, widths.normalBits, kNormalPrefixLimit);

    // The front (sync marker and chunk header) holds the stream sizes, so it is left open and
    // written last; the streams follow one another through one writer. chunkBuffer keeps its
    // length from the last chunk: the writer overwrites every byte it reaches, so stale bytes
    // beyond the chunk do no harm and no chunk pays for zeroing the buffer.
    const int bodyOffset =
        zullib::zul_SyncMarker::kSize + zullib::DataType::getChunkHeaderSize(dataType);
    BitStreamOut body(chunkBuffer, bodyOffset);
    uint32_t streamSizes[4];
    int numStreams = 0;
    const auto writeStream = [&](auto accessor, const auto& tables, const auto& absoluteBits) {
        using Accessor = decltype(accessor);
        const int64_t start = body.bytePosition;
        writeDataStreamHeader(body, tables, Accessor::kNumComponents);
        writeDataStreamBody<Accessor>(body, points, absoluteBits, tables);
        streamSizes[numStreams++] = static_cast<uint32_t>(body.bytePosition - start);
    };
    writeStream(zul_QuantizedPoint::CoordinateAccessor{}, coordinateTables, coordinateBits);
    if (streams.color) writeStream(zul_QuantizedPoint::RGBAccessor{}, rgbTables, widths.rgbBits);
    if (streams.reflection)
        writeStream(zul_QuantizedPoint::ReflectionAccessor{}, reflectionTables,
                    widths.reflectionBits);
    if (streams.normals)
        writeStream(zul_QuantizedPoint::NormalAccessor{}, normalTables, widths.normalBits);

    // The length goes out as an int: a chunk of 2^31 bytes or more (tens of millions of points
    // in one call) is refused rather than handed out with a wrapped size.
    if (body.bytePosition > INT32_MAX) return zul_STATUS_INVALID_ARGUMENT;

    BitStreamOut front(chunkBuffer, 0);
    front.writeByteAligned(reinterpret_cast<const unsigned char*>(syncMarker.bytes),
                           zullib::zul_SyncMarker::kSize);
    for (long long corner : box.min) front.writeByteAlignedUInt64(static_cast<uint64_t>(corner));
    for (long long corner : box.max) front.writeByteAlignedUInt64(static_cast<uint64_t>(corner));
    front.writeByteAlignedUInt32(static_cast<uint32_t>(pointData->numPoints));
    for (int s = 0; s < numStreams; ++s) front.writeByteAlignedUInt32(streamSizes[s]);

    *bytes = reinterpret_cast<const char*>(chunkBuffer.data());
    *size = static_cast<int>(body.bytePosition);
    return zul_STATUS_OK;
}

void zul_enc_ContextStruct::writeDataStreamHeader(BitStreamOut& out, const std::vector<int>* tables,
                                                  int numTables) {
    zullib::writeStreamTables(out, tables, numTables);
}

template <class Accessor>
void zul_enc_ContextStruct::writeDataStreamBody(
    BitStreamOut& out, const QuantizedPoints& points,
    const int (&absoluteBits)[Accessor::kNumComponents],
    const std::vector<int> (&tables)[Accessor::kNumComponents]) {
    zullib::writeStreamBody<Accessor>(out, points, absoluteBits, tables);
}

template void zul_enc_ContextStruct::writeDataStreamBody<zul_QuantizedPoint::CoordinateAccessor>(
    BitStreamOut&, const QuantizedPoints&, const int (&)[3], const std::vector<int> (&)[3]);
template void zul_enc_ContextStruct::writeDataStreamBody<zul_QuantizedPoint::RGBAccessor>(
    BitStreamOut&, const QuantizedPoints&, const int (&)[3], const std::vector<int> (&)[3]);
template void zul_enc_ContextStruct::writeDataStreamBody<zul_QuantizedPoint::ReflectionAccessor>(
    BitStreamOut&, const QuantizedPoints&, const int (&)[1], const std::vector<int> (&)[1]);
template void zul_enc_ContextStruct::writeDataStreamBody<zul_QuantizedPoint::NormalAccessor>(
    BitStreamOut&, const QuantizedPoints&, const int (&)[2], const std::vector<int> (&)[2]);

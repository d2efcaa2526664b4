// The two headers a decoder reads before any point: the file header once, then one chunk header
// per chunk. Neither touches the output arrays of an earlier body.
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "decoder/dec_context.h"
#include "frame/data_check.h"
#include "frame/data_type.h"
#include "frame/transformation_check.h"

zul_Status zul_dec_ContextStruct::decodeFileHeader(zul_DataType* dataTypeOut,
                                                   zul_Header2* header2Out, int* chunkHeaderSizeOut,
                                                   const char** syncMarkerOut,
                                                   const char* fileHeader) {
    if (!dataTypeOut || !chunkHeaderSizeOut || !syncMarkerOut || !fileHeader)
        return zul_STATUS_INVALID_ARGUMENT;
    if (state != zul_dec_STATE_SIGNATURE_READ) return zul_STATUS_INVALID_STATE;

    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(fileHeader);
    if (version == 1)
        std::memcpy(fileHeaderV1, bytes, sizeof fileHeaderV1);
    else
        std::memcpy(fileHeaderV2, bytes, sizeof fileHeaderV2);
    const zul_Status status = zullib::readFileHeader(bytes, version, dataType, header2, syncMarker);
    if (status != zul_STATUS_OK) return status;
    if (header2Out) *header2Out = header2;

    // A version 1 stream has the disabled header, whose flags are all clear, so its points are
    // never transformed.
    const bool apply = params.applyTransformation != 0;
    transformPositions =
        apply && (header2.hasScaling || header2.hasRotation || header2.hasTranslation);
    // Only a rotation moves a normal; a scale or a translation leaves it as it is.
    transformNormals = apply && header2.hasRotation && zullib::ChunkStreams(dataType).normals;
    if (transformNormals) {
        std::memcpy(normalTransformation, header2.transformation, sizeof normalTransformation);
        const double inverseScale = 1.0 / zullib::matrixScale(normalTransformation);
        for (int i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) normalTransformation[i] *= inverseScale;
    }
    chunkHeaderSize = zullib::DataType::getChunkHeaderSize(dataType);

    *dataTypeOut = dataType;
    *chunkHeaderSizeOut = chunkHeaderSize;
    *syncMarkerOut = syncMarker.bytes;
    state = zul_dec_STATE_READY_FOR_CHUNK;
    return zul_STATUS_OK;
}

zul_Status zul_dec_ContextStruct::decodeChunkHeader(int* chunkBodySizeOut, const char* chunkHeader,
                                                    long long* numPointsOut) {
    if (!chunkBodySizeOut || !chunkHeader) return zul_STATUS_INVALID_ARGUMENT;
    if (state != zul_dec_STATE_READY_FOR_CHUNK && state != zul_dec_STATE_CHUNK_HEADER_READ)
        return zul_STATUS_INVALID_STATE;

    // What belongs to the chunk starts over; the arrays of the last body stay readable.
    chunkPoints.numPoints = 0;
    chunkBoundingBox = zullib::BoundingBox3d<long long>();
    chunkBodySize = 0;
    coordinateStreamEnd = colorStreamEnd = reflectionStreamEnd = normalStreamEnd = 0;

    zullib::BitStreamIn in(chunkHeader, chunkHeaderSize, 0);
    long long low[3], high[3];
    for (long long& corner : low) corner = static_cast<long long>(in.readByteAlignedUInt64());
    for (long long& corner : high) corner = static_cast<long long>(in.readByteAlignedUInt64());
    for (int axis = 0; axis < 3; ++axis) ZUL_REFUSE_UNLESS(low[axis] <= high[axis]);
    chunkBoundingBox.extend(low);
    chunkBoundingBox.extend(high);

    chunkPoints.numPoints = static_cast<int32_t>(in.readByteAlignedUInt32());
    ZUL_REFUSE_UNLESS(chunkPoints.numPoints >= 1);

    int64_t end = in.readByteAlignedUInt32();
    coordinateStreamEnd = end;
    const zullib::ChunkStreams streams(dataType);
    if (streams.color) colorStreamEnd = end += in.readByteAlignedUInt32();
    if (streams.reflection) reflectionStreamEnd = end += in.readByteAlignedUInt32();
    if (streams.normals) normalStreamEnd = end += in.readByteAlignedUInt32();
    // The body's size goes out as an int, and no writer makes a chunk it could not hand out: a
    // body of 2^31 bytes or more is damage. The count is dropped with it, so that no body and no
    // count is served for this header.
    if (end > INT32_MAX) {
        chunkPoints.numPoints = 0;
        return ZUL_REFUSE("end <= INT32_MAX");
    }
    chunkBodySize = end;

    *chunkBodySizeOut = static_cast<int>(chunkBodySize);
    if (numPointsOut) *numPointsOut = chunkPoints.numPoints;
    state = zul_dec_STATE_CHUNK_HEADER_READ;
    return zul_STATUS_OK;
}

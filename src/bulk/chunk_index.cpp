// Opening an index: the signature and the file header go through a decoder, then every chunk
// header in turn, with its sync marker compared, its header parsed by the decoder and its body
// measured against the stream's end and its decoded size against the budget.
#include "bulk/chunk_index.h"

#include <cstring>
#include <new>

#include "bulk/output_box.h"
#include "decoder/dec_context.h"
#include "frame/data_check.h"
#include "frame/data_type.h"

namespace {

struct DecoderOwner {
    zul_dec_Context context = nullptr;
    ~DecoderOwner() { zul_dec_close(&context); }
};

}  // namespace

int64_t zul_idx_IndexStruct::decodedBytesPerPoint(const zul_DataType& type) {
    const zullib::ChunkStreams streams(type);
    return ZUL_BULK_DECODED_BYTES_PER_POINT + 3 * sizeof(double) +
           (streams.color ? 3 * sizeof(uint8_t) : 0) + (streams.reflection ? sizeof(int32_t) : 0) +
           (streams.normals ? 3 * sizeof(float) : 0);
}

zul_Status zul_idx_IndexStruct::openDecoder(zul_dec_Context* decoder) const {
    int fileHeaderSize = 0;
    zul_Status status = zul_dec_open2(decoder, &fileHeaderSize, signature, &params);
    if (status != zul_STATUS_OK) return status;
    zul_DataType type;
    int headerSize = 0;
    const char* marker = nullptr;
    return zul_dec_decodeFileHeader(*decoder, &type, &headerSize, &marker, fileHeader.data());
}

zul_Status zul_idx_IndexStruct::open(const zul_dec_Params* given) {
    if (given) {
        params = *given;
    } else {
        params.applyTransformation = 1;
    }
    zul_Status status = source.read(0, sizeof signature, signature);
    if (status != zul_STATUS_OK) return status;
    DecoderOwner decoder;
    int fileHeaderSize = 0;
    status = zul_dec_open2(&decoder.context, &fileHeaderSize, signature, &params);
    if (status != zul_STATUS_OK) return status;
    fileHeader.resize(static_cast<size_t>(fileHeaderSize));
    status = source.read(sizeof signature, fileHeaderSize, fileHeader.data());
    if (status != zul_STATUS_OK) return status;
    const char* marker = nullptr;
    int headerSize = 0;
    status = zul_dec_decodeFileHeader2(decoder.context, &dataType, &header2, &headerSize, &marker,
                                       fileHeader.data());
    if (status != zul_STATUS_OK) return status;
    chunkHeaderSize = headerSize;
    std::memcpy(syncMarker, marker, sizeof syncMarker);
    isOpen = true;
    walk(decoder.context, static_cast<int64_t>(sizeof signature) + fileHeaderSize);
    return zul_STATUS_OK;
}

zul_Status zul_idx_IndexStruct::setBudget(int64_t bytes) {
    chunkBudget = bytes;
    return walkOn();
}

zul_Status zul_idx_IndexStruct::setDensity(int64_t pointsPerByte) {
    pointDensity = pointsPerByte;
    return walkOn();
}

zul_Status zul_idx_IndexStruct::walkOn() {
    if (damage != zul_STATUS_OVER_BUDGET) return zul_STATUS_OK;
    DecoderOwner decoder;
    const zul_Status status = openDecoder(&decoder.context);
    if (status != zul_STATUS_OK) return status;
    damage = zul_STATUS_OK;
    walk(decoder.context, damageOffset);
    return zul_STATUS_OK;
}

void zul_idx_IndexStruct::walk(zul_dec_Context decoder, int64_t offset) {
    // Positions go through the matrix exactly when the decoder's would.
    const bool transforms = params.applyTransformation != 0 &&
                            (header2.hasScaling || header2.hasRotation || header2.hasTranslation);
    const double* matrix = transforms ? header2.transformation : nullptr;
    while (offset < source.size()) {
        zul_Status status = zul_STATUS_OUT_OF_MEMORY;
        try {
            status = listChunk(decoder, offset, matrix);
        } catch (const std::bad_alloc&) {
            // The list holds the chunks before this one, each with its sizes.
        }
        if (status != zul_STATUS_OK) {
            damage = status;
            damageOffset = offset;
            return;
        }
        offset += chunks.back().size;
    }
}

zul_Status zul_idx_IndexStruct::listChunk(zul_dec_Context decoder, int64_t offset,
                                          const double* matrix) {
    char head[ZUL_SYNC_MARKER_SIZE + ZUL_CHUNK_HEADER_SIZE_MAX];
    char* const chunkHeader = head + ZUL_SYNC_MARKER_SIZE;
    const int64_t headSize = ZUL_SYNC_MARKER_SIZE + chunkHeaderSize;
    // The marker is judged before the header is read, as the file reader does: a wrong marker
    // in front of a cut header is damage, not a cut. Both in one read where the source holds them.
    const bool whole = headSize <= source.size() - offset;
    zul_Status status = source.read(offset, whole ? headSize : ZUL_SYNC_MARKER_SIZE, head);
    if (status != zul_STATUS_OK) return status;
    ZUL_REFUSE_UNLESS(std::memcmp(head, syncMarker, sizeof syncMarker) == 0);
    if (!whole) status = source.read(offset + ZUL_SYNC_MARKER_SIZE, chunkHeaderSize, chunkHeader);
    if (status != zul_STATUS_OK) return status;
    int bodySize = 0;
    status = zul_dec_decodeChunkHeader(decoder, &bodySize, chunkHeader);
    if (status != zul_STATUS_OK) return status;
    zul_idx_Chunk chunk = {};
    zul_dec_getNumPointsInChunk(decoder, &chunk.numPoints);
    ZUL_REFUSE_UNLESS(bodySize >= 0);
    chunk.offset = offset;
    chunk.size = headSize + bodySize;
    // As the file reader finds them: first a body cut short, then a count it cannot serve; then
    // what this reader will not take on.
    if (chunk.size > source.size() - offset) return zul_STATUS_TRUNCATED;
    ZUL_REFUSE_UNLESS(chunk.numPoints <= ZUL_MAX_DECODED_CHUNK_POINTS);
    if (chunk.numPoints * decodedBytesPerPoint(dataType) > chunkBudget)
        return zul_STATUS_OVER_BUDGET;
    // The density limit: the points listed with this chunk against the bytes up to its end, so
    // that a small stream cannot claim more points than take long to decode.
    if (pointDensity > 0 && numPoints + chunk.numPoints >
                                ZUL_BULK_DENSITY_ALLOWANCE + pointDensity * (offset + chunk.size))
        return zul_STATUS_OVER_BUDGET;
    // The box and the stream ends as the decoder read them from the header.
    const zul_dec_ContextStruct& parsed = *decoder;
    for (int axis = 0; axis < 3; ++axis) {
        chunk.gridMin[axis] = parsed.chunkBoundingBox.min[axis];
        chunk.gridMax[axis] = parsed.chunkBoundingBox.max[axis];
    }
    const int64_t ends[4] = {parsed.coordinateStreamEnd, parsed.colorStreamEnd,
                             parsed.reflectionStreamEnd, parsed.normalStreamEnd};
    StreamSizes sizes = {};
    int64_t start = 0;
    for (int stream = 0; stream < 4; ++stream) {
        if (ends[stream] == 0 && stream > 0) continue;  // an attribute the stream lacks
        sizes.bytes[stream] = ends[stream] - start;
        start = ends[stream];
    }
    zulbulk::outputBox(chunk.gridMin, chunk.gridMax, dataType.quantizationStep, matrix, chunk.min,
                       chunk.max);
    streamSizes.push_back(sizes);
    try {
        chunks.push_back(chunk);
    } catch (const std::bad_alloc&) {
        streamSizes.pop_back();
        throw;
    }
    numPoints += chunk.numPoints;
    return zul_STATUS_OK;
}

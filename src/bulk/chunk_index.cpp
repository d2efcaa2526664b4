// Opening an index: the signature and the file header go through a decoder, then every chunk
// header in turn, with its sync marker compared and its body measured against the stream's end.
#include "bulk/chunk_index.h"

#include <cstring>

#include "bulk/output_box.h"
#include "frame/data_check.h"

namespace {

// From this count on a decoder refuses a chunk's body, so the index refuses its header.
const int32_t kMaxChunkPoints = int32_t{1} << 30;

int64_t readInt64(const char* bytes) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return static_cast<int64_t>(value);
}

struct DecoderOwner {
    zul_dec_Context context = nullptr;
    ~DecoderOwner() { zul_dec_close(&context); }
};

}  // namespace

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

    // Positions go through the matrix exactly when the decoder's would.
    const bool transforms = params.applyTransformation != 0 &&
                            (header2.hasScaling || header2.hasRotation || header2.hasTranslation);
    const double* matrix = transforms ? header2.transformation : nullptr;
    int64_t offset = static_cast<int64_t>(sizeof signature) + fileHeaderSize;
    while (offset < source.size()) {
        status = listChunk(decoder.context, offset, matrix);
        if (status != zul_STATUS_OK) {
            damage = status;
            damageOffset = offset;
            break;
        }
        offset += chunks.back().size;
    }
    return zul_STATUS_OK;
}

zul_Status zul_idx_IndexStruct::listChunk(zul_dec_Context decoder, int64_t offset,
                                          const double* matrix) {
    char head[16 + 68];
    const int64_t headSize = 16 + chunkHeaderSize;
    // The marker is judged before the header is read, as the file reader does: a wrong marker
    // in front of a cut header is damage, not a cut.
    zul_Status status = source.read(offset, sizeof syncMarker, head);
    if (status != zul_STATUS_OK) return status;
    ZUL_REFUSE_UNLESS(std::memcmp(head, syncMarker, sizeof syncMarker) == 0);
    status = source.read(offset + 16, chunkHeaderSize, head + 16);
    if (status != zul_STATUS_OK) return status;
    int bodySize = 0;
    status = zul_dec_decodeChunkHeader(decoder, &bodySize, head + 16);
    if (status != zul_STATUS_OK) return status;
    zul_idx_Chunk chunk = {};
    zul_dec_getNumPointsInChunk(decoder, &chunk.numPoints);
    ZUL_REFUSE_UNLESS(bodySize >= 0);
    chunk.offset = offset;
    chunk.size = headSize + bodySize;
    // As the file reader finds them: first a body cut short, then a count it cannot serve.
    if (chunk.size > source.size() - offset) return zul_STATUS_TRUNCATED;
    ZUL_REFUSE_UNLESS(chunk.numPoints < kMaxChunkPoints);
    for (int axis = 0; axis < 3; ++axis) {
        chunk.gridMin[axis] = readInt64(head + 16 + 8 * axis);
        chunk.gridMax[axis] = readInt64(head + 40 + 8 * axis);
    }
    zulbulk::outputBox(chunk.gridMin, chunk.gridMax, dataType.quantizationStep, matrix, chunk.min,
                       chunk.max);
    chunks.push_back(chunk);
    numPoints += chunk.numPoints;
    return zul_STATUS_OK;
}

// The WebAssembly face of the decoder: a stream is read piece by piece, as the in-memory decoder
// of zul.h wants it, by JavaScript that holds the bytes (a buffer, a stream still arriving, or
// range reads). One zulweb_Stream a stream; its calls run on one thread (the page's worker).
// Records cross to JavaScript as fixed layouts of 8-byte words (see web/src/zul_wasm.js).
#include <cstdint>
#include <cstring>
#include <new>

#include "bulk/output_box.h"
#include "zul.h"

#define ZULWEB_API extern "C" __attribute__((visibility("default"), used))

namespace {

int64_t readInt64(const char* bytes) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return static_cast<int64_t>(value);
}

// A decoder refuses a body of this many points or more.
const int32_t kMaxChunkPoints = int32_t{1} << 30;

}  // namespace

struct zulweb_Stream {
    zul_dec_Context decoder = nullptr;
    int fileHeaderSize = 0;
    int chunkHeaderSize = 0;
    char syncMarker[16] = {};
    bool transforms = false;
    zul_DataType dataType = {};
    zul_Header2 header2 = {};
    // What the last call hands out; JavaScript reads it through zulweb_record.
    //  after the file header: [0] step, [1] colour mode, [2] reflection mode, [3] max reflection,
    //    [4] normal mode, [5] chunk header size, [6] version 2 header enabled, [7..22] matrix
    //  after a chunk head: [0] points, [1] body size, [2..4] grid min, [5..7] grid max,
    //    [8..10] min, [11..13] max (the decoder's coordinates)
    double record[24] = {};
    zul_PointData points = {};
};

ZULWEB_API zulweb_Stream* zulweb_new(int applyTransformation) {
    auto* stream = new (std::nothrow) zulweb_Stream;
    if (!stream) return nullptr;
    stream->transforms = applyTransformation != 0;
    return stream;
}

ZULWEB_API void zulweb_free(zulweb_Stream* stream) {
    if (!stream) return;
    zul_dec_close(&stream->decoder);
    delete stream;
}

ZULWEB_API double* zulweb_record(zulweb_Stream* stream) { return stream->record; }
ZULWEB_API char* zulweb_syncMarker(zulweb_Stream* stream) { return stream->syncMarker; }

// On the 8 signature bytes: the status; the file header's size goes to record[0].
ZULWEB_API int zulweb_open(zulweb_Stream* stream, const char* signature) {
    zul_dec_Params params = {};
    params.applyTransformation = stream->transforms ? 1 : 0;
    const zul_Status status =
        zul_dec_open2(&stream->decoder, &stream->fileHeaderSize, signature, &params);
    stream->record[0] = stream->fileHeaderSize;
    return status;
}

ZULWEB_API int zulweb_fileHeader(zulweb_Stream* stream, const char* bytes) {
    const char* marker = nullptr;
    const zul_Status status =
        zul_dec_decodeFileHeader2(stream->decoder, &stream->dataType, &stream->header2,
                                  &stream->chunkHeaderSize, &marker, bytes);
    if (status != zul_STATUS_OK) return status;
    std::memcpy(stream->syncMarker, marker, sizeof stream->syncMarker);
    const zul_Header2& h = stream->header2;
    stream->transforms = stream->transforms && (h.hasScaling || h.hasRotation || h.hasTranslation);
    double* r = stream->record;
    r[0] = stream->dataType.quantizationStep;
    r[1] = stream->dataType.colorMode;
    r[2] = stream->dataType.reflectionMode;
    r[3] = stream->dataType.maxReflection;
    r[4] = stream->dataType.normalMode;
    r[5] = stream->chunkHeaderSize;
    r[6] = h.enabled ? 1 : 0;
    for (int k = 0; k < 16; ++k) r[7 + k] = h.transformation[k];
    return status;
}

// On the sync marker and chunk header (16 + chunk header size bytes): checks the marker, decodes
// the header and hands out the chunk's count, body size and boxes. Nothing is allocated.
ZULWEB_API int zulweb_chunkHead(zulweb_Stream* stream, const char* bytes) {
    if (std::memcmp(bytes, stream->syncMarker, 16) != 0) return zul_STATUS_CORRUPT_DATA;
    int bodySize = 0;
    zul_Status status = zul_dec_decodeChunkHeader(stream->decoder, &bodySize, bytes + 16);
    if (status != zul_STATUS_OK) return status;
    int numPoints = 0;
    zul_dec_getNumPointsInChunk(stream->decoder, &numPoints);
    if (bodySize < 0 || numPoints >= kMaxChunkPoints) return zul_STATUS_CORRUPT_DATA;
    double* r = stream->record;
    r[0] = numPoints;
    r[1] = bodySize;
    int64_t gridMin[3], gridMax[3];
    for (int axis = 0; axis < 3; ++axis) {
        gridMin[axis] = readInt64(bytes + 16 + 8 * axis);
        gridMax[axis] = readInt64(bytes + 40 + 8 * axis);
        r[2 + axis] = static_cast<double>(gridMin[axis]);
        r[5 + axis] = static_cast<double>(gridMax[axis]);
    }
    zulbulk::outputBox(gridMin, gridMax, stream->dataType.quantizationStep,
                       stream->transforms ? stream->header2.transformation : nullptr, r + 8,
                       r + 11);
    return status;
}

// On the chunk body of the head decoded last: decodes it; the arrays stay in the decoder until
// the next body (zulweb_positions and the others hand out their addresses).
ZULWEB_API int zulweb_chunkBody(zulweb_Stream* stream, const char* bytes) {
    return zul_dec_decodeChunkBody(stream->decoder, &stream->points, bytes);
}

ZULWEB_API double* zulweb_positions(zulweb_Stream* stream) { return stream->points.positions; }
ZULWEB_API uint8_t* zulweb_colors(zulweb_Stream* stream) { return stream->points.colors; }
ZULWEB_API int32_t* zulweb_reflections(zulweb_Stream* stream) { return stream->points.reflections; }
ZULWEB_API float* zulweb_normals(zulweb_Stream* stream) { return stream->points.normals; }

// Fields of a companion file will be read by functions beside these, on the same stream record.

// The companion's checksum: XXH3-64, seed 0, of `size` bytes at `bytes`, stored little-endian at
// `out` (8 bytes), the module handing out no 64-bit integers to JavaScript.
#define XXH_INLINE_ALL
#include <xxhash.h>

ZULWEB_API void zulweb_xxh3(const void* bytes, size_t size, unsigned char* out) {
    const uint64_t hash = XXH3_64bits(bytes, size);
    for (int i = 0; i < 8; ++i) out[i] = static_cast<unsigned char>(hash >> (8 * i));
}

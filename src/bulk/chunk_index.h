// The index behind zul_idx_Index: the stream's head, kept to open a decoder on, and the list of
// its chunks, made once from the chunk headers when the index opens and read only afterwards.
#pragma once

#include <cstdint>
#include <vector>

#include "bulk/byte_source.h"
#include "zul_bulk.h"

struct zul_idx_IndexStruct {
    zul_idx_IndexStruct() = default;
    zul_idx_IndexStruct(const zul_idx_IndexStruct&) = delete;
    zul_idx_IndexStruct& operator=(const zul_idx_IndexStruct&) = delete;

    // Reads the stream's head from `source` (already open) and walks the chunk headers.
    zul_Status open(const zul_dec_Params* params);
    // Opens a decoder that stands where a chunk header is due. The caller closes it.
    zul_Status openDecoder(zul_dec_Context* decoder) const;
    // Sets the budget, or the density limit (0: none), and, if the walk stopped at a chunk over
    // the old limits, walks on.
    zul_Status setBudget(int64_t bytes);
    zul_Status setDensity(int64_t pointsPerByte);
    // Bytes that decoding takes a point of the type: working record and output arrays.
    static int64_t decodedBytesPerPoint(const zul_DataType& type);

    // The byte sizes of a chunk's coordinate, colour, reflection and normal streams.
    struct StreamSizes {
        int64_t bytes[4];
    };

    zulbulk::ByteSource source;
    bool isOpen = false;
    zul_dec_Params params = {};
    char signature[8] = {};
    std::vector<char> fileHeader;
    int32_t chunkHeaderSize = 0;
    char syncMarker[ZUL_SYNC_MARKER_SIZE] = {};
    zul_DataType dataType = {};
    zul_Header2 header2 = {};
    std::vector<zul_idx_Chunk> chunks;
    std::vector<StreamSizes> streamSizes;  // one a listed chunk
    int64_t chunkBudget = ZUL_BULK_DEFAULT_CHUNK_BUDGET;
    int64_t pointDensity = ZUL_BULK_DEFAULT_POINT_DENSITY;  // 0: no limit
    int64_t numPoints = 0;
    zul_Status damage = zul_STATUS_OK;
    int64_t damageOffset = 0;

private:
    // Walks on from a chunk refused as over the old limits.
    zul_Status walkOn();
    // Lists the chunks from `offset` on, with a decoder where a chunk header is due, until the
    // stream ends or a chunk cannot be listed (noted as the damage).
    void walk(zul_dec_Context decoder, int64_t offset);
    // Lists the chunk at `offset`, or says why it cannot be listed.
    zul_Status listChunk(zul_dec_Context decoder, int64_t offset, const double* matrix);
};

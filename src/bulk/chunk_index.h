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

    zulbulk::ByteSource source;
    bool isOpen = false;
    zul_dec_Params params = {};
    char signature[8] = {};
    std::vector<char> fileHeader;
    int32_t chunkHeaderSize = 0;
    char syncMarker[16] = {};
    zul_DataType dataType = {};
    zul_Header2 header2 = {};
    std::vector<zul_idx_Chunk> chunks;
    int64_t numPoints = 0;
    zul_Status damage = zul_STATUS_OK;
    int64_t damageOffset = 0;

private:
    // Lists the chunk at `offset`, or says why it cannot be listed.
    zul_Status listChunk(zul_dec_Context decoder, int64_t offset, const double* matrix);
};

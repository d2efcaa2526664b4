// The encoder context behind zul_enc_Context. It turns records into the bytes of a stream and
// does no input or output: every piece it hands out lives in the context.
#pragma once

#include <vector>

#include "frame/file_header.h"
#include "frame/file_signature.h"
#include "frame/sync_marker.h"
#include "zul.h"

struct ZUL_API zul_enc_ContextStruct {
    // Copies both records, builds the signature of the version that `header.enabled` selects and
    // draws the stream's sync marker. Validates nothing: zul_enc_open2 has done that.
    zul_enc_ContextStruct(const zul_DataType& dataType, const zul_Header2& header);
    // Gives back chunkBuffer.
    ~zul_enc_ContextStruct();

    // The address of the eight signature bytes, valid until the context is closed.
    const char* getFileSignature() const;
    // Fills the file header of the stream's version and hands out its address and size (28 or
    // 164); the same bytes on every call.
    void encodeFileHeader(const char** bytes, int* size);

    zul_DataType dataType;
    zul_Header2 header;
    zullib::zul_FileSignature fileSignature;
    unsigned char fileHeaderV1[zullib::kFileHeaderSizeV1];
    unsigned char fileHeaderV2[zullib::kFileHeaderSizeV2];
    zullib::zul_SyncMarker syncMarker;
    std::vector<unsigned char> chunkBuffer;
};

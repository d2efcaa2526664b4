// A whole stream held in memory, decoded as a caller would split it: the signature, the file
// header, then chunk after chunk of sync marker, chunk header and body. Every step also checks the
// decoder's state machine: the calls that must be refused at that point are made and must be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulfuzz {

struct DecodedStream {
    // The status of zul_dec_open2, or else of the file header; zul_STATUS_TRUNCATED if the bytes
    // end inside either.
    zul_Status openStatus = zul_STATUS_OK;
    // How the chunks ended: zul_STATUS_END_OF_FILE at a chunk boundary, zul_STATUS_TRUNCATED
    // inside a chunk, or the status of the call that refused a marker, header or body.
    zul_Status endStatus = zul_STATUS_END_OF_FILE;
    zul_DataType dataType{};
    zul_Header2 header2{};
    // Every point of the chunks decoded, in stream order; absent attributes are zero.
    std::vector<zul_Point> points;
    // The chunks ended in a body: cut short or refused by the decoder.
    bool endedInBody = false;
    // Points in the chunk headers read, decoded or not.
    int64_t pointsDeclared = 0;
    // A chunk held more points than the budget and was skipped.
    bool skippedChunk = false;
};

DecodedStream decodeInMemory(const uint8_t* data, size_t size, int applyTransformation);

}  // namespace zulfuzz

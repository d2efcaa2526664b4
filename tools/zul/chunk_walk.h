// A zul file chunk by chunk, as the file reader finds the chunks: its head, then for every chunk
// its place, size, point count, stream sizes and box, and where the first damage lies. Kept in
// one place so that `info`, `verify` and `decompress --salvage` agree on what is intact.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "status_text.h"
#include "zul.h"

namespace zultool {

// What the signature and the file header say.
struct ZulFileHead {
    uint64_t fileBytes = 0;
    int version = 0;
    zul_DataType dataType = {};
    zul_Header2 header = {};
    // Streams present: coordinates, colour, reflection, normals.
    bool present[4] = {true, false, false, false};
};

struct ChunkEntry {
    uint64_t index = 0;
    uint64_t offset = 0;  // of its sync marker, in bytes from the start of the file
    uint64_t bytes = 0;   // sync marker, chunk header and body
    int64_t points = 0;
    uint64_t streamBytes[4] = {};              // zero for a stream the file lacks
    int64_t gridMin[3] = {}, gridMax[3] = {};  // the box in grid units, as stored
};

// Where the walk stopped: zul_STATUS_OK after the last chunk of an intact file, else the first
// failure and the place of the chunk (or, at stage Open, of the file header) it lies in.
struct WalkEnd {
    zul_Status status = zul_STATUS_OK;
    ZulStage stage = ZulStage::Open;
    uint64_t damagedChunk = 0;  // index of the chunk that failed
    uint64_t offset = 0;        // its byte offset
    uint64_t intactChunks = 0;
    int64_t intactPoints = 0;
};

// Walks the chunks of `path`, handing each intact one to `onChunk`. With `decodeBodies` every
// body is decoded too, so that a chunk counts as intact exactly when a reader gets its points;
// without, only the framing and the chunk headers are checked. Never throws for damage: the
// failure is in the result.
WalkEnd walkChunks(const std::string& path, bool decodeBodies, ZulFileHead& head,
                   const std::function<void(const ChunkEntry&)>& onChunk);

// The box of a chunk in the coordinates a reader gets: grid units times the step, and for a
// version 2 file the box of the corners brought through its matrix.
void readerBox(const ZulFileHead& head, const ChunkEntry& chunk, double min[3], double max[3]);

// The damage in words: "damaged at chunk 3 (byte 61234): 15000 points in 3 chunks before it are
// intact; the file ends inside a chunk (truncated)", or the status alone for a file whose head
// cannot be read.
std::string damageText(const WalkEnd& end);

}  // namespace zultool

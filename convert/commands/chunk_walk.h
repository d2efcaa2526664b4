// A zul file chunk by chunk, through its chunk index: its head, then for every chunk its place,
// size, point count, stream sizes and box, and where the first damage lies. Kept in one place so
// that `info`, `verify` and `decompress --salvage` agree on what is intact.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/limits.h"
#include "commands/chunk_batches.h"
#include "commands/status_text.h"
#include "zul.h"

namespace zulconvert {

// What the signature and the file header say.
struct ZulFileHead {
    uint64_t start = 0;      // byte offset of the stream in the file (not 0 for a later stream)
    uint64_t fileBytes = 0;  // of the stream: up to the next stream or the end of the file
    int version = 0;
    zul_DataType dataType = {};
    zul_Header2 header = {};
    // Streams present: coordinates, colour, reflection, normals.
    bool present[4] = {true, false, false, false};
    bool applyTransformation = true;                       // as the index was opened
    int64_t budgetMiB = zulbase::kDefaultChunkBudgetMiB;   // what one chunk may take decoded
    int64_t pointDensity = zulbase::kDefaultPointDensity;  // points a byte the file may claim
    // The chunks a reader may decode: those the index lists, up to the first one over a budget
    // or density limit below the index's default (which the index listed before they were known).
    int64_t usableChunks = 0;
};

struct ChunkEntry {
    uint64_t index = 0;
    uint64_t offset = 0;  // of its sync marker, in bytes from the start of the file
    uint64_t bytes = 0;   // sync marker, chunk header and body
    int64_t points = 0;
    uint64_t streamBytes[4] = {};     // zero for a stream the file lacks
    double min[3] = {}, max[3] = {};  // the box in the coordinates a reader gets
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
    // For zul_STATUS_OVER_BUDGET: the points the chunk claims, its bytes, and the budget or the
    // density limit it passes.
    int64_t claimedPoints = -1, claimedMiB = -1, chunkBytes = -1;
    int64_t budgetMiB = zulbase::kDefaultChunkBudgetMiB;
    // In a file of several streams one after another (or one whose second stream has a damaged
    // head): the stream the damage lies in, from 1, and its byte offset; 0 for a file of one
    // stream. The counts above are then those of the whole file before the damage.
    size_t stream = 0;
    uint64_t streamStart = 0;
    bool streamHead = false;  // the damage lies in the stream's signature or file header
    int64_t pointDensity = zulbase::kDefaultPointDensity;
};

// Finishes `head` for an index just opened: the budget and the density limit (counted from the
// start of the file, behind the `pointsBefore` points of the streams before this one), the data
// type, the chunks usable under both; `start` is the caller's to set before, `fileBytes` and
// `version` after.
zul_Status readHead(zul_idx_Index index, bool applyTransformation, int64_t budgetMiB,
                    int64_t pointDensity, int64_t pointsBefore, ZulFileHead& head);

// Opens the chunk index of `path`, its boxes in the coordinates a reader gets with or without the
// sensor header's matrix, with a budget of `budgetMiB` a chunk decoded and a density limit of
// `pointDensity` points a byte (0: none), and reads the file's head. Returns the status of the
// opening.
zul_Status openIndex(const std::string& path, bool applyTransformation, int64_t budgetMiB,
                     int64_t pointDensity, IndexGuard& index, ZulFileHead& head);

// Where the index of `path` stopped listing (zul_idx_getDamage), with the count a chunk over
// the budget claims. The status is zul_STATUS_OK for a file that ends after its last chunk.
WalkEnd indexEnd(const std::string& path, zul_idx_Index index, const ZulFileHead& head);

// Throws FormatError naming `path` and the damage (and the stream, in a file of several), unless
// the status is zul_STATUS_OK.
void checkWalkEnd(const std::string& path, const WalkEnd& end);

// Walks the chunks of an opened index, handing each intact one to `onChunk`. With `decodeBodies`
// every body is decoded too (on `threads` threads, 0: one a core), so that a chunk counts as
// intact exactly when a reader gets its points; without, only the framing and the chunk headers
// are checked. Never throws for damage: the failure is in the result.
WalkEnd walkIndex(const std::string& path, zul_idx_Index index, const ZulFileHead& head,
                  bool decodeBodies, int threads,
                  const std::function<void(const ChunkEntry&)>& onChunk);

// The damage in words: "damaged at chunk 3 (byte 61234): 15000 points in 3 chunks before it are
// intact; the file ends inside a chunk (truncated)", or the status alone for a file whose head
// cannot be read. In a file of several streams, "stream 2 (byte 6120), damaged at chunk 3 ...",
// the chunk counted within its stream, the bytes and the intact points within the file.
std::string damageText(const WalkEnd& end);

}  // namespace zulconvert

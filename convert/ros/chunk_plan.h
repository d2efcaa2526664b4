// Which stream points each chunk takes. By default a chunk takes the next `chunkPoints` stream
// points in message order. An organised cloud may instead be cut into tiles of `tileColumns`
// columns over all its rows, a chunk a tile (its points row by row), which keeps a chunk's points
// close together in space. Encoder and decoder plan the same way from the head and the mask.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zul::ros {

struct ChunkPlan {
    std::vector<uint32_t> sequence;  // stream point numbers (message order) in chunk order
    std::vector<size_t> starts;      // where each chunk starts in `sequence`, then its size
};

// `inStream` holds one byte a message point, 1 for a stream point and 0 for another (null: every
// point is one); `total` is the number of stream points. `sequence` is left empty unless
// `listPoints`. Throws Error for a tile that could hold more than 65536 points.
ChunkPlan planChunks(uint32_t height, uint32_t width, const uint8_t* inStream, size_t total,
                     uint32_t chunkPoints, uint32_t tileColumns, bool listPoints);

}  // namespace zul::ros

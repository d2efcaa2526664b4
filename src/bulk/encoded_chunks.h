// Chunks an encoder made before the writer sees them (zul_bulk_writeEncodedChunks): each is
// checked against the stream's data type, given the stream's sync marker in place of its own and
// appended to the file as it is.
#pragma once

#include <cstdint>
#include <functional>

#include "zul.h"

namespace zulbulk {

// Whether `size` bytes at `bytes` are one whole chunk of `type` as far as its front tells: the
// sync marker and chunk header fit, the point count is 1 to ZUL_MAX_CHUNK_SIZE, and the front and
// the streams it lists take exactly `size` bytes.
bool encodedChunkWhole(const zul_DataType& type, const char* bytes, int64_t size);

// The point count in the front of a chunk that encodedChunkWhole accepted.
int64_t encodedChunkPoints(const char* bytes);

// Hands the chunks to `write` in order, each behind `marker` (ZUL_SYNC_MARKER_SIZE bytes) instead
// of its own first bytes, a few chunks at a time. Returns the number of chunks all of whose bytes
// were written: `count` unless `write` returned false.
int64_t appendEncoded(const char* marker, const char* const* chunks, const int64_t* sizes,
                      int64_t count, const std::function<bool(const char*, size_t)>& write);

}  // namespace zulbulk

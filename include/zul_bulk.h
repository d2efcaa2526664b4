/*
 * zul_bulk: whole clouds at once, on all cores, beside the four families of zul.h.
 *
 * The chunk index lists the chunks of a stream (a file or a buffer) from their headers alone: where
 * each lies, how many points it holds and its box, in grid units and in the coordinates a reader
 * gets. A box query picks the chunks that meet an axis-aligned box. The bulk decoder decodes all or
 * some chunks straight into contiguous arrays, on several threads, each with its own zul_dec_
 * context; the bulk encoder encodes contiguous arrays into a file, on several threads, each with
 * its own zul_enc_ context, and writes the same bytes as the file writer of zul.h.
 *
 * Unlike zul.h, these functions start threads: a bulk call starts its threads and joins them
 * before it returns; nothing runs between calls. `threads` is the number of threads of a call,
 * the calling thread included: 0 means one a core of the machine, but no more than one for each
 * 65536 points (a small cloud is coded on the calling thread alone), a negative number is
 * refused, and no more threads are started than there are chunks.
 *
 * Threads: an index is read only after zul_idx_open*, so any number of threads may query it and
 * run bulk decodes on it at the same time; zul_idx_close must come after all of them. The bulk
 * encoder shares nothing between calls.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef ZUL_BULK_H
#define ZUL_BULK_H

#include "zul.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One chunk of a stream, as its header describes it. */
typedef struct zul_idx_Chunk {
    int64_t offset;     /* byte offset of the chunk (its sync marker) from the stream's start */
    int64_t size;       /* bytes of the chunk: sync marker, chunk header and body */
    int32_t numPoints;  /* points in the chunk, 1 to 2^30 - 1 */
    uint32_t reserved;  /* 0 */
    int64_t gridMin[3]; /* smallest x, y, z in grid units (steps), as stored */
    int64_t gridMax[3]; /* largest x, y, z in grid units */
    double min[3];      /* smallest x, y, z a decoder hands out for the chunk's box: grid units */
    double max[3];      /* times the step, then, for a version 2 stream decoded with the
                           transformation, the box of the eight corners brought through the
                           matrix, computed as the decoder computes each point */
} zul_idx_Chunk;

/* Contiguous arrays of points, as the bulk calls read and write them: point i of a
 * three-component array is at elements 3i, 3i+1, 3i+2. Arrays of attributes the stream lacks are
 * not used and may be null. */
typedef struct zul_bulk_Points {
    int64_t numPoints;    /* see each function */
    double* positions;    /* x, y, z a point */
    uint8_t* colors;      /* red, green, blue a point */
    int32_t* reflections; /* one a point */
    float* normals;       /* x, y, z a point */
} zul_bulk_Points;

typedef struct zul_idx_IndexStruct* zul_idx_Index; /* chunk index of one stream */

/* ---------------------------------------------------------------------------------------------
 * Chunk index.
 * ------------------------------------------------------------------------------------------- */

/* Opens `path`, reads its signature and file header and walks its chunk headers, skipping the
 * bodies. The file stays open until zul_idx_close, for the bulk decoder to read by offset. `params`
 * may be null (applyTransformation 1) and decides the coordinates of zul_idx_Chunk.min/max. A new
 * index is stored in `*index` before anything is checked, so unless `index` is null the caller
 * must pass it to zul_idx_close even when this fails. Returns zul_STATUS_OK when the signature and
 * the file header are good: the index then lists every chunk up to the first damaged one, which
 * zul_idx_getDamage describes. Otherwise the index accepts nothing but zul_idx_close, and the
 * status is zul_STATUS_INVALID_ARGUMENT (null argument or bad params), zul_STATUS_READ_ERROR (the
 * file cannot be opened or read), zul_STATUS_TRUNCATED (the file ends inside the signature or the
 * file header), zul_STATUS_BAD_SIGNATURE, zul_STATUS_BAD_VERSION or zul_STATUS_CORRUPT_DATA.
 * Thread rule: the new index is the caller's alone until the call returns. */
ZUL_API zul_Status zul_idx_openFile(zul_idx_Index* index, const char* path,
                                    const zul_dec_Params* params);

/* As zul_idx_openFile, on `size` bytes at `bytes`, which the index reads but does not copy: they
 * must stay unchanged until zul_idx_close. `bytes` may be null only when `size` is 0. */
ZUL_API zul_Status zul_idx_openBuffer(zul_idx_Index* index, const void* bytes, size_t size,
                                      const zul_dec_Params* params);

/* Hands back the stream's data type and, if `header` is not null, its sensor header (disabled for
 * a version 1 stream). Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `index` or
 * `dataType`; zul_STATUS_INVALID_STATE for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_getDataType(zul_idx_Index index, zul_DataType* dataType,
                                       zul_Header2* header);

/* Hands back the number of chunks listed and the sum of their points; either pointer may be null.
 * Returns zul_STATUS_OK, zul_STATUS_INVALID_ARGUMENT for a null `index`, zul_STATUS_INVALID_STATE
 * for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_getCounts(zul_idx_Index index, int64_t* numChunks, int64_t* numPoints);

/* Hands back listed chunk number `chunk` (0 is the first). Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null argument or a number outside the list;
 * zul_STATUS_INVALID_STATE for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_getChunk(zul_idx_Index index, int64_t chunk, zul_idx_Chunk* info);

/* Says where the walk over the chunk headers stopped. `*status` gets zul_STATUS_OK for a stream
 * that ends cleanly after its last chunk; otherwise the status of the first chunk that could not be
 * listed: zul_STATUS_TRUNCATED (the stream ends inside its sync marker, header or body),
 * zul_STATUS_CORRUPT_DATA (a sync marker that is not the stream's, or a header no writer makes,
 * or 2^30 points or more, which no decoder serves) or zul_STATUS_READ_ERROR. `*chunk` gets that
 * chunk's number (the number of chunks listed), `*offset` its byte offset. Null out-pointers are
 * skipped. Returns zul_STATUS_OK, zul_STATUS_INVALID_ARGUMENT for a null `index`,
 * zul_STATUS_INVALID_STATE for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_getDamage(zul_idx_Index index, zul_Status* status, int64_t* chunk,
                                     int64_t* offset);

/* Selects the listed chunks whose box (zul_idx_Chunk.min/max) meets the closed box [min, max], in
 * stream order: their numbers go to `chunks`, at most `capacity` of them, and their count to
 * `*numSelected` (which may exceed `capacity`: call again with more room; `chunks` may be null when
 * `capacity` is 0). Decoding the selected chunks and keeping the points p with min <= p <= max on
 * every axis gives exactly the points of a full decode that lie in the box, for every stream
 * whose points lie in their chunk's box (every stream a writer makes). Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null argument, a negative capacity, a NaN, or min above max on
 * an axis; zul_STATUS_INVALID_STATE for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_selectBox(zul_idx_Index index, const double min[3], const double max[3],
                                     int64_t* chunks, int64_t capacity, int64_t* numSelected);

/* Closes the file of the index, frees it and sets `*index` to null; does nothing for a null pointer
 * or handle. No other call on the index may run at the same time or later. */
ZUL_API void zul_idx_close(zul_idx_Index* index);

/* ---------------------------------------------------------------------------------------------
 * Bulk decoder.
 * ------------------------------------------------------------------------------------------- */

/* Sums the points of the listed chunks `chunks[0 .. numChunks)`, which may repeat. Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `index` or `numPoints`, a null `chunks`
 * with a positive count, a negative count, or a number outside the list; zul_STATUS_INVALID_STATE
 * for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_countPoints(zul_idx_Index index, const int64_t* chunks,
                                       int64_t numChunks, int64_t* numPoints);

/* Allocates arrays for `numPoints` points (0 or more) of the index's data type: positions always,
 * the attributes the stream has, null for the others; sets points->numPoints to `numPoints`.
 * Release them with zul_bulk_free. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * argument or a negative count; zul_STATUS_INVALID_STATE for an index whose open failed. A count
 * the machine cannot hold ends in std::bad_alloc, as every failed allocation of the library: a
 * caller with a memory budget compares zul_idx_countPoints with it first (a chunk of identical
 * points holds up to 2^30 - 1 of them in a few bytes). Any thread. */
ZUL_API zul_Status zul_bulk_allocate(zul_idx_Index index, int64_t numPoints,
                                     zul_bulk_Points* points);

/* Frees arrays of zul_bulk_allocate and sets the record to zeros; does nothing for null. */
ZUL_API void zul_bulk_free(zul_bulk_Points* points);

/* Decodes every listed chunk into the caller's arrays, as zul_bulk_decodeChunks with the list
 * 0, 1, ..., numChunks - 1; but if the index stopped at a damaged chunk, that chunk's status
 * (zul_idx_getDamage) is returned after all listed chunks are delivered, with its number in
 * `*failedChunk`. */
ZUL_API zul_Status zul_bulk_decode(zul_idx_Index index, int threads, zul_bulk_Points* points,
                                   int64_t* failedChunk);

/* Decodes the listed chunks `chunks[0 .. numChunks)`, in that order, into the arrays of `points`:
 * the points of chunks[0] first, each chunk's in stored order, the very values zul_in_readNextPoint
 * gives. On entry points->numPoints is the room of the arrays in points and the arrays of the
 * stream's attributes must not be null unless the room is 0; on return it is the number of
 * points written. `threads` threads (0: one a core) decode chunk after chunk, each with its own
 * decoder and buffer, reading by offset. `failedChunk` may be null; it gets -1, or the number (in
 * the index) of a chunk that failed. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * `index` or `points`, a null `chunks` with a positive count, a negative count, a chunk number
 * outside the list, a negative thread count, a missing array or too little room (then nothing is
 * written); zul_STATUS_INVALID_STATE for an index whose open failed; for a chunk that cannot be
 * read or decoded, zul_STATUS_READ_ERROR, zul_STATUS_TRUNCATED (the file shrank) or
 * zul_STATUS_CORRUPT_DATA: the first such chunk of the list is named, the points of the chunks
 * before it are delivered whole and counted, nothing after them is promised. Thread rule: any
 * number of these calls may run on one index at once, on arrays of their own. */
ZUL_API zul_Status zul_bulk_decodeChunks(zul_idx_Index index, const int64_t* chunks,
                                         int64_t numChunks, int threads, zul_bulk_Points* points,
                                         int64_t* failedChunk);

/* ---------------------------------------------------------------------------------------------
 * Bulk encoder.
 * ------------------------------------------------------------------------------------------- */

/* Encodes points->numPoints points of `points` (arrays as zul_bulk_decodeChunks fills them; those
 * of attributes `dataType` lacks are not read) into a new file at `path`, replacing one that
 * exists. Chunks are cut by the plan: `chunkSizes[0 .. numChunks)` points each, in order, each 1
 * to 2147483646, summing to points->numPoints; or, with a null `chunkSizes` and `numChunks` 0,
 * `chunkSize` points each (1 to 2147483646; 0 means 10000, the file writer's default) and a last
 * partial chunk. An enabled `header` (may be null) makes a version 2 stream. `threads` threads
 * (0: one a core) encode, each with its own encoder; all carry the one sync marker drawn for the
 * stream, and the chunks are written in order as they complete, while at most two chunks a
 * thread wait. The file is byte for byte what zul_out_ writes for the same chunks (and, with
 * zul_test_useFixedRandomSeed, the same seed); for 0 points it holds the signature and the file
 * header. `failedChunk` may be null; it gets -1 or the number of a chunk that failed. Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `path`, `dataType` or `points`, an invalid
 * `dataType` or `header`, a negative point count, a missing array, a plan that breaks the rules
 * above or a negative thread count (no file is touched), and for a chunk with a normal shorter
 * than 1e-6 (named in `*failedChunk`; the chunks before it are in the file, nothing after);
 * zul_STATUS_WRITE_ERROR if the file cannot be created or written. Thread rule: calls share
 * nothing; the arrays are only read, and must not change during the call. */
ZUL_API zul_Status zul_bulk_encodeFile(const char* path, const zul_DataType* dataType,
                                       const zul_Header2* header, const zul_bulk_Points* points,
                                       const int32_t* chunkSizes, int64_t numChunks,
                                       int32_t chunkSize, int threads, int64_t* failedChunk);

#ifdef __cplusplus
} /* extern "C" */
#endif

#if defined(__cplusplus)
static_assert(sizeof(zul_idx_Chunk) == 120, "zul_idx_Chunk layout");
static_assert(sizeof(zul_bulk_Points) == 40, "zul_bulk_Points layout");
#endif

#endif /* ZUL_BULK_H */

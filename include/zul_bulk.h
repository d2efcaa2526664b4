/*
 * zul_bulk: whole clouds at once, on all cores, beside the four families of zul.h.
 *
 * The chunk index lists the chunks of a stream (a file or a buffer) from their headers alone: where
 * each lies, how many points it holds and its box, in grid units and in the coordinates a reader
 * gets. A box query picks the chunks that meet an axis-aligned box. The bulk decoder decodes all or
 * some chunks straight into contiguous arrays, on several threads, each with its own zul_dec_
 * context. The bulk writer encodes contiguous arrays, cut into chunks as the caller says, into a
 * file, on several threads, each with its own zul_enc_ context, and writes the same bytes as the
 * file writer of zul.h for the same chunks.
 *
 * Statuses: those of zul.h and this layer's two, zul_STATUS_OVER_BUDGET and
 * zul_STATUS_OUT_OF_MEMORY. Unlike the families of zul.h, no function here lets an exception
 * out: a failed allocation, or a thread or lock the system refuses, is zul_STATUS_OUT_OF_MEMORY.
 *
 * Memory: an index never lists, and so the bulk decoder never decodes, a chunk whose decoded size
 * passes the index's chunk budget (256 MiB unless zul_idx_setChunkBudget changes it): the
 * chunk's claimed count, read from its header, times the bytes a point takes. Such a chunk is
 * refused before anything is allocated, as zul_STATUS_OVER_BUDGET. What a whole decode takes is
 * the caller's to judge from zul_idx_countPoints before allocating.
 *
 * Time: an index lists no chunk that brings the points claimed past its density limit (about 4
 * points a byte of the stream, zul_idx_setPointDensity), so a small stream cannot claim more
 * points than decode in a moment.
 *
 * Unlike zul.h, these functions start threads: a bulk call starts its threads and joins them
 * before it returns; nothing runs between calls. `threads` is the number of threads of a call,
 * the calling thread included: 0 means one a core of the machine, but no more than one for each
 * 65536 points (a small cloud is coded on the calling thread alone), a negative number is
 * refused, and no more threads are started than there are chunks. A thread the system will not
 * start leaves its work to the others (at worst the calling thread does it all).
 *
 * Threads: an index is read only after zul_idx_open* (and zul_idx_setChunkBudget), so any number
 * of threads may query it and run bulk decodes on it at the same time; zul_idx_close must come
 * after all of them. A writer is used by one thread at a time; writers share nothing.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef ZUL_BULK_H
#define ZUL_BULK_H

#include "zul.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The statuses of this layer beyond zul.h's. */
/* A chunk claims more points than the budget lets a reader decode (zul_idx_setChunkBudget), or
 * more than the density limit lets the stream claim (zul_idx_setPointDensity). */
#define zul_STATUS_OVER_BUDGET ((zul_Status)100)
/* Memory (or a thread or lock) the call needs cannot be had; nothing is left half done but
 * what the function names. */
#define zul_STATUS_OUT_OF_MEMORY ((zul_Status)101)

/* The budget of a new index: the decoded bytes one chunk may take, 256 MiB. */
#define ZUL_BULK_DEFAULT_CHUNK_BUDGET ((int64_t)256 << 20)
/* The density limit of a new index: the chunks listed, each with those before it, claim no more
 * than ZUL_BULK_DENSITY_ALLOWANCE points plus this many for each byte of the stream up to the
 * chunk's end (zul_idx_setPointDensity). */
#define ZUL_BULK_DEFAULT_POINT_DENSITY 4
/* The points any stream may claim whatever its size, under any density limit. */
#define ZUL_BULK_DENSITY_ALLOWANCE ((int64_t)1 << 20)
/* The largest density limit zul_idx_setPointDensity takes. */
#define ZUL_BULK_MAX_POINT_DENSITY ((int64_t)1 << 20)
/* Working bytes a reader takes for each point of a chunk it decodes, beside the output arrays. */
#define ZUL_BULK_DECODED_BYTES_PER_POINT 40

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

typedef struct zul_idx_IndexStruct* zul_idx_Index;       /* chunk index of one stream */
typedef struct zul_bulk_WriterStruct* zul_bulk_Writer;   /* bulk writer of one file */
typedef struct zul_bulk_OrdererStruct* zul_bulk_Orderer; /* stored orders of one data type */

/* ---------------------------------------------------------------------------------------------
 * Chunk index.
 * ------------------------------------------------------------------------------------------- */

/* Opens `path`, reads its signature and file header and walks its chunk headers, skipping the
 * bodies; a chunk whose decoded size passes ZUL_BULK_DEFAULT_CHUNK_BUDGET, or that brings the
 * points past the density limit, ends the list as damage would (zul_idx_setChunkBudget and
 * zul_idx_setPointDensity raise them and list on). The file stays open until
 * zul_idx_close, for the bulk decoder to read by offset. `params`
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

/* As zul_idx_openFile, on the stream that begins at byte `start` of the file (a later one of
 * several streams written one after another): every offset the index gives counts from `start`.
 * zul_STATUS_INVALID_ARGUMENT for a negative `start`, zul_STATUS_TRUNCATED for one past the end. */
ZUL_API zul_Status zul_idx_openFileAt(zul_idx_Index* index, const char* path, int64_t start,
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
 * or 2^30 points or more, which no decoder serves), zul_STATUS_READ_ERROR, or
 * zul_STATUS_OVER_BUDGET (a chunk whose decoded size passes the budget, or past the density
 * limit: zul_idx_setChunkBudget, zul_idx_setPointDensity list on) or zul_STATUS_OUT_OF_MEMORY (the
 * list could not grow). `*chunk` gets that chunk's number (the number of chunks listed), `*offset`
 * its byte offset. Null out-pointers are skipped. Returns zul_STATUS_OK,
 * zul_STATUS_INVALID_ARGUMENT for a null `index`, zul_STATUS_INVALID_STATE for an index whose open
 * failed. Any thread. */
ZUL_API zul_Status zul_idx_getDamage(zul_idx_Index index, zul_Status* status, int64_t* chunk,
                                     int64_t* offset);

/* Sets the budget of the index: the decoded bytes one chunk may take, a chunk of n points taking
 * n * (ZUL_BULK_DECODED_BYTES_PER_POINT + 24 + 3 with colours + 4 with reflections + 12 with
 * normals). If the walk over the chunk headers stopped at a chunk over the old budget, it goes on
 * from there with the new one: the list only grows. A lower budget removes no listed chunk (their
 * decoded sizes are known from zul_idx_getChunk). Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null `index` or a budget below 1; zul_STATUS_INVALID_STATE
 * for an index whose open failed; zul_STATUS_OUT_OF_MEMORY. Thread rule: as zul_idx_open*, no
 * other call on the index may run at the same time. */
ZUL_API zul_Status zul_idx_setChunkBudget(zul_idx_Index index, int64_t bytes);

/* Sets the density limit of the index: points claimed for each byte of the stream. A chunk is
 * listed only if the points of the chunks before it and its own are at most
 * ZUL_BULK_DENSITY_ALLOWANCE plus `pointsPerByte` times the bytes from the stream's start to the
 * chunk's end; 0 lifts the limit. A chunk of identical points codes in next to no bits, so a
 * stream of a few kilobytes could otherwise claim billions of points, each of which costs
 * decoding time and memory. The default, ZUL_BULK_DEFAULT_POINT_DENSITY, is above what real
 * clouds take (scans 1 point a byte or fewer, a solid lattice sampled at its step 2.6; only a flat
 * plane sampled at its step, about 5, passes it, and only beyond 5 million points) and keeps a
 * stream of 1 MB to about 5.2 million points. A chunk past the limit ends the list as
 * zul_STATUS_OVER_BUDGET; as with zul_idx_setChunkBudget, a new limit walks on from it and a
 * lower one removes no listed chunk. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * `index` or a limit below 0 or above ZUL_BULK_MAX_POINT_DENSITY; zul_STATUS_INVALID_STATE for an
 * index whose open failed; zul_STATUS_OUT_OF_MEMORY. Thread rule: as zul_idx_setChunkBudget. */
ZUL_API zul_Status zul_idx_setPointDensity(zul_idx_Index index, int64_t pointsPerByte);

/* Hands back the byte sizes of the data streams of listed chunk number `chunk`, as its header
 * declares them: sizes[0] the coordinates, sizes[1] the colours, sizes[2] the reflections,
 * sizes[3] the normals, 0 for an attribute the stream lacks. Their sum is the body's size, the
 * chunk's size less ZUL_SYNC_MARKER_SIZE and the chunk header. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null argument or a number outside the list;
 * zul_STATUS_INVALID_STATE for an index whose open failed. Any thread. */
ZUL_API zul_Status zul_idx_getStreamSizes(zul_idx_Index index, int64_t chunk, int64_t sizes[4]);

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
 * argument or a negative count; zul_STATUS_INVALID_STATE for an index whose open failed;
 * zul_STATUS_OUT_OF_MEMORY (nothing allocated, `*points` untouched) for a count the machine
 * cannot hold. Every listed chunk is within the budget, but their sum is the caller's to judge:
 * compare zul_idx_countPoints with what may be allocated first. Any thread. */
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
 * number of these calls may run on one index at once, on arrays of their own.
 * A chunk whose points would lie outside its header's box (zul_idx_Chunk.gridMin/gridMax: a body
 * damaged in a way its streams cannot show) is zul_STATUS_CORRUPT_DATA here, although the
 * families of zul.h hand such points out: so a box query never misses a point a full decode
 * gives. A failed allocation is zul_STATUS_OUT_OF_MEMORY, named like a chunk that failed.
 * To decode one chunk by its place in the list (where it lies is in zul_idx_getChunk), pass its
 * number alone: no caller needs to parse a chunk header. */
ZUL_API zul_Status zul_bulk_decodeChunks(zul_idx_Index index, const int64_t* chunks,
                                         int64_t numChunks, int threads, zul_bulk_Points* points,
                                         int64_t* failedChunk);

/* ---------------------------------------------------------------------------------------------
 * Bulk writer. A host opens a file, hands over chunks, as many a call as it likes, each as the
 * caller cut it, and closes it:
 *   zul_bulk_openWriter -> zul_bulk_writeChunks ... -> zul_bulk_closeWriter (or abortWriter).
 * The file is byte for byte the stream zul_out_ writes for the same chunks and the same sync
 * marker (and, without a given marker, with zul_test_useFixedRandomSeed, the same seed).
 * A zul_STATUS_WRITE_ERROR of zul_bulk_openWriter, zul_bulk_writeChunks or zul_bulk_closeWriter
 * leaves the system's reason in errno on the calling thread (that of the first open, write, close
 * or rename that failed, whichever thread wrote), for a message such as "No space left on device".
 * ------------------------------------------------------------------------------------------- */

/* Where a writer writes (the `mode` of zul_bulk_openWriter). */
/* Into `path` itself, created or emptied at open (as zul_out_open2). */
#define ZUL_BULK_WRITE_REPLACE 0
/* Into a new file of a unique name in the folder of `path` (".NAME.partial-..."), created
 * exclusively, and renamed over `path` by a successful zul_bulk_closeWriter: `path` never holds a
 * partial stream, and writers of one path at once each publish their own whole file (the last
 * rename wins). The temporary file is removed by zul_bulk_abortWriter and by a zul_bulk_closeWriter
 * that does not publish; only a process that dies leaves it behind. */
#define ZUL_BULK_WRITE_PUBLISH 1

/* Opens a writer of a stream of `dataType` at `path`; an enabled `header` (may be null) makes a
 * version 2 stream. `syncMarker` may be null (the marker is drawn at random, as zul_out_ draws
 * it) or point to ZUL_SYNC_MARKER_SIZE bytes that every chunk will carry: the same points, chunks
 * and marker then give the same bytes, whatever the threads. `threads` is the thread count of
 * each zul_bulk_writeChunks (0: one a core, see the top of this header). `mode` is
 * ZUL_BULK_WRITE_REPLACE or ZUL_BULK_WRITE_PUBLISH. The signature and the file header are
 * written here. A new writer is stored in `*writer` unless `writer` is null, also when this
 * fails, and must be given to zul_bulk_closeWriter or zul_bulk_abortWriter. Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `writer`, `path` or `dataType`, an
 * invalid `dataType` or `header`, a negative thread count or an unknown mode (no file touched);
 * zul_STATUS_WRITE_ERROR if the file cannot be created or written; zul_STATUS_OUT_OF_MEMORY. A
 * writer whose open failed accepts nothing but closing. Thread rule: the new writer is the
 * caller's alone. */
ZUL_API zul_Status zul_bulk_openWriter(zul_bulk_Writer* writer, const char* path,
                                       const zul_DataType* dataType, const zul_Header2* header,
                                       const char* syncMarker, int threads, int mode);

/* Encodes the points of `points` (arrays as zul_bulk_decodeChunks fills them; those of
 * attributes the data type lacks are not read) as `numChunks` chunks of `chunkSizes[0 ..
 * numChunks)` points, in order, each 1 to ZUL_MAX_CHUNK_SIZE, summing to points->numPoints, and
 * appends them to the file in that order. The writer's threads encode, each with its own encoder
 * kept from call to call, while at most two chunks a thread wait to be written. `failedChunk`
 * may be null; it gets -1, or the number (in this call's list) of the chunk that failed. Returns
 * zul_STATUS_OK (0 chunks write nothing); zul_STATUS_INVALID_ARGUMENT for a null `writer` or
 * `points`, a negative count, a null `chunkSizes` with chunks, a missing array or a list that
 * breaks the rules above (nothing written, the writer goes on), and for a chunk with a normal
 * shorter than 1e-6; zul_STATUS_WRITE_ERROR if writing fails; zul_STATUS_OUT_OF_MEMORY;
 * zul_STATUS_INVALID_STATE for a writer that failed before. Any failure but a refused argument
 * fails the writer: the chunks before the one named are in the file, none after it, and only
 * closing is accepted. Thread rule: one call on a writer at a time; the arrays are only read and
 * must not change during the call. */
ZUL_API zul_Status zul_bulk_writeChunks(zul_bulk_Writer writer, const zul_bulk_Points* points,
                                        const int32_t* chunkSizes, int64_t numChunks,
                                        int64_t* failedChunk);

/* As zul_bulk_writeChunks, and tells in what order each chunk stores its points (a chunk's
 * points go into the stream sorted by their grid positions): `storedOrder` (null: not asked for)
 * has room for points->numPoints numbers, and for each chunk written, whose first point is point
 * `first` of `points`, storedOrder[first + k] gets the number (0 to its size - 1) of the chunk's
 * point that is its k-th in the stream, the k-th a decoder hands out. The numbers of a chunk that
 * was not written are undefined. The order is found before each chunk is encoded, on the
 * writer's threads: a chunk none of whose points share a grid point is handed to the encoder in
 * it, which then does not sort, and costs about a copy of its points more than
 * zul_bulk_writeChunks; any other, about a sort more. */
ZUL_API zul_Status zul_bulk_writeChunksOrdered(zul_bulk_Writer writer,
                                               const zul_bulk_Points* points,
                                               const int32_t* chunkSizes, int64_t numChunks,
                                               uint32_t* storedOrder, int64_t* failedChunk);

/* Appends `numChunks` chunks that were encoded before, as they are, in order: chunk k is the
 * `chunkBytes[k]` bytes at `chunks[k]` that zul_enc_encodeChunk handed out, of an encoder of the
 * writer's data type (of any sync marker and sensor header: the writer puts its stream's marker
 * in place of each chunk's first ZUL_SYNC_MARKER_SIZE bytes). The file is then byte for byte
 * what zul_bulk_writeChunks of the same points and chunks writes, without encoding them again.
 * `failedChunk` as for zul_bulk_writeChunks. Returns zul_STATUS_OK (0 chunks write nothing);
 * zul_STATUS_INVALID_ARGUMENT for a null `writer`, a negative count, null lists with chunks, or
 * a chunk whose front does not fit its size and the data type (nothing written, the writer goes
 * on); zul_STATUS_WRITE_ERROR if writing fails (which fails the writer); zul_STATUS_OUT_OF_MEMORY;
 * zul_STATUS_INVALID_STATE for a writer that failed before. */
ZUL_API zul_Status zul_bulk_writeEncodedChunks(zul_bulk_Writer writer, const char* const* chunks,
                                               const int64_t* chunkBytes, int64_t numChunks,
                                               int64_t* failedChunk);

/* As zul_bulk_writeEncodedChunks, and, with a `storedOrder` (null: not asked for), tells in what
 * order each chunk stores its points as zul_bulk_writeChunksOrdered does. `points` are then the
 * points the chunks were encoded from, chunk after chunk (each chunk's count as its front gives
 * it; the counts sum to points->numPoints), and the order is worked out again from them on the
 * writer's threads, about a sort of the points. zul_STATUS_INVALID_ARGUMENT also for a
 * `storedOrder` without `points`, a missing array, or counts that do not sum to
 * points->numPoints (nothing written, the writer goes on). */
ZUL_API zul_Status zul_bulk_writeEncodedChunksOrdered(zul_bulk_Writer writer,
                                                      const char* const* chunks,
                                                      const int64_t* chunkBytes, int64_t numChunks,
                                                      const zul_bulk_Points* points,
                                                      uint32_t* storedOrder, int64_t* failedChunk);

/* Completes the file, frees the writer and sets `*writer` to null. With ZUL_BULK_WRITE_PUBLISH
 * the file is renamed over the path. Returns zul_STATUS_OK when the file holds the stream whole:
 * every chunk written and the file closed (and published); zul_STATUS_WRITE_ERROR if closing or
 * renaming fails; zul_STATUS_INVALID_STATE for a writer that failed before (or whose open failed):
 * then it does what zul_bulk_abortWriter does. zul_STATUS_INVALID_ARGUMENT for a null `writer`;
 * a null `*writer` is zul_STATUS_OK. After a failure here, the temporary file of
 * ZUL_BULK_WRITE_PUBLISH is removed; a file written in place stays as it is. */
ZUL_API zul_Status zul_bulk_closeWriter(zul_bulk_Writer* writer);

/* Gives the writing up: closes the file, frees the writer and sets `*writer` to null; does
 * nothing for a null pointer or handle. Removes only what the writer itself created beside the
 * path: the temporary file of ZUL_BULK_WRITE_PUBLISH (`path` keeps what it held). A file written
 * in place with ZUL_BULK_WRITE_REPLACE is left as written: signature, file header and the chunks
 * written whole, a valid stream of those chunks. */
ZUL_API void zul_bulk_abortWriter(zul_bulk_Writer* writer);

/* Encodes points->numPoints points of `points` into a new file at `path`, replacing one that
 * exists, as zul_bulk_openWriter (ZUL_BULK_WRITE_REPLACE, a marker drawn at random),
 * zul_bulk_writeChunks and zul_bulk_closeWriter. Chunks are cut by the plan:
 * `chunkSizes[0 .. numChunks)` points each; or, with a null `chunkSizes` and `numChunks` 0,
 * `chunkSize` points each (1 to ZUL_MAX_CHUNK_SIZE; 0 means ZUL_DEFAULT_CHUNK_SIZE, the file
 * writer's default) and a last partial chunk. For 0 points the file holds the signature and the
 * file header. `failedChunk` may be null; it gets -1 or the number of a chunk that failed.
 * Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `path`, `dataType` or `points`,
 * an invalid `dataType` or `header`, a negative point count, a missing array, a plan that breaks
 * the rules or a negative thread count (no file is touched), and for a chunk with a normal
 * shorter than 1e-6 (named in `*failedChunk`; the chunks before it are in the file, nothing
 * after); zul_STATUS_WRITE_ERROR if the file cannot be created or written;
 * zul_STATUS_OUT_OF_MEMORY. Thread rule: calls share nothing; the arrays are only read, and must
 * not change during the call. */
ZUL_API zul_Status zul_bulk_encodeFile(const char* path, const zul_DataType* dataType,
                                       const zul_Header2* header, const zul_bulk_Points* points,
                                       const int32_t* chunkSizes, int64_t numChunks,
                                       int32_t chunkSize, int threads, int64_t* failedChunk);

/* ---------------------------------------------------------------------------------------------
 * Stored order: the order in which a chunk stores its points, found without encoding it.
 * ------------------------------------------------------------------------------------------- */

/* Opens an orderer of chunks of `dataType`, which keeps its working memory from chunk to chunk.
 * A new orderer is stored in `*orderer` unless `orderer` is null, also when this fails, and must
 * be given to zul_bulk_closeOrderer. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a
 * null `orderer` or `dataType` or an invalid `dataType`; zul_STATUS_OUT_OF_MEMORY. Thread rule:
 * an orderer is used by one thread at a time. */
ZUL_API zul_Status zul_bulk_openOrderer(zul_bulk_Orderer* orderer, const zul_DataType* dataType);

/* Tells in what order the chunk that zul_enc_encodeChunk makes of `points` (with an encoder of
 * the orderer's data type) stores them: order[k] gets the number (0 to points->numPoints - 1) of
 * the point stored k-th, for every k, as zul_bulk_writeChunksOrdered tells it; about a sort of
 * the points. `*unique` (may be null) gets 1 when no two of the points lie on one grid point:
 * that order is then the only sorted one, and the points handed to zul_enc_encodeChunk in it
 * make the same chunk, byte for byte, which the encoder takes as it comes instead of sorting it
 * again; 0 when some do, and the order holds for the points in the order given only. Returns
 * zul_STATUS_OK (0 points: nothing written); zul_STATUS_INVALID_ARGUMENT for a null `orderer`,
 * `points` or `order`, a negative count or null positions with points (nothing written);
 * zul_STATUS_OUT_OF_MEMORY. Only the positions are read. */
ZUL_API zul_Status zul_bulk_orderChunk(zul_bulk_Orderer orderer, const zul_PointData* points,
                                       uint32_t* order, int* unique);

/* Frees an orderer and sets `*orderer` to null; does nothing for a null pointer or handle. */
ZUL_API void zul_bulk_closeOrderer(zul_bulk_Orderer* orderer);

#ifdef __cplusplus
} /* extern "C" */
#endif

#if defined(__cplusplus)
static_assert(sizeof(zul_idx_Chunk) == 120, "zul_idx_Chunk layout");
static_assert(sizeof(zul_bulk_Points) == 40, "zul_bulk_Points layout");
#endif

#endif /* ZUL_BULK_H */

/*
 * zul_companion: the companion file NAME.zulx that keeps beside a stream NAME.zul what the stream
 * cannot hold. It lives in its own library, libzul_companion.so, over the public API of libzul.so,
 * with zstd and xxHash.
 *
 * A companion holds:
 *   - its binding to one stream: the stream's sync marker, its size, its chunk count and, for every
 *     chunk, its offset, size, point count, box and an XXH3-64 checksum of its bytes (sync marker,
 *     chunk header and body). A companion bound to another stream is refused; a verify call names
 *     every chunk whose bytes changed and every chunk the stream lost;
 *   - the chunk index, at the start of the file with the field directory, so that a reader far
 *     from the file plans with one read of the head (zul_xin_getHeadSize);
 *   - named, typed columns of per-point fields: one block a chunk, holding that chunk's values in
 *     the chunk's stored order (the order zul_dec_decodeChunkBody hands out), decodable alone;
 *   - optionally the input's order: for every stored point its index in the input;
 *   - the source's own header (opaque bytes with a kind), the input's format and its conventions
 *     (key and value strings).
 * docs/companion.md describes the bytes.
 *
 * Statuses: the functions return a zul_Status of zul.h, or one of the two below. Damaged companion
 * bytes give zul_STATUS_TRUNCATED (the file ends inside a part its head declares),
 * zul_STATUS_BAD_SIGNATURE (not a companion), zul_STATUS_BAD_VERSION or zul_STATUS_CORRUPT_DATA
 * (a checksum or a value no writer makes); never a crash, and no allocation larger than the bytes
 * at hand or the caller's own buffers. A failed allocation leaves as std::bad_alloc, as in zul.h.
 *
 * Threads: a writer is used by one thread at a time. A reader is read-only after its open and
 * bind calls: any number of threads may then read columns, order and metadata and verify at the
 * same time; zul_xin_close comes after all of them. Different handles are independent.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef ZUL_COMPANION_H
#define ZUL_COMPANION_H

#include "zul_bulk.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The companion belongs to another stream: another sync marker, chunk count, stream size, or a
 * chunk at another offset, of another size, point count or box. */
#define zul_STATUS_COMPANION_MISMATCH ((zul_Status)2000)
/* The stream's bytes are not those the companion was made for: a chunk's checksum differs, or the
 * stream lost chunks at its end (zul_xin_verify* names them). */
#define zul_STATUS_STREAM_CHANGED ((zul_Status)2001)

/* The type of a column's values, stored little-endian. */
typedef ZUL_ENUM(zul_FieldType){
    zul_FIELD_U8 = 1,  zul_FIELD_I8 = 2,   zul_FIELD_U16 = 3, zul_FIELD_I16 = 4,
    zul_FIELD_U32 = 5, zul_FIELD_I32 = 6,  zul_FIELD_U64 = 7, zul_FIELD_I64 = 8,
    zul_FIELD_F32 = 9, zul_FIELD_F64 = 10, zul_FIELD_RAW = 11 /* `width` bytes a point, kept as they
                                                                 are (LAS extra bytes, padding) */
} zul_FieldType;

/* What the source header bytes are. */
typedef ZUL_ENUM(zul_SourceKind){
    zul_SOURCE_NONE = 0, /* no source header */
    zul_SOURCE_LAS = 1,  /* LAS public header, VLRs and EVLRs as the file had them */
    zul_SOURCE_PCD = 2,  /* PCD header text up to and including the DATA line */
    zul_SOURCE_PLY = 3,  /* PLY header text up to and including end_header */
    zul_SOURCE_OTHER = 4 /* bytes whose meaning the format convention says */
} zul_SourceKind;

/* Longest field name in bytes (UTF-8, no NUL inside). */
#define ZUL_FIELD_NAME_MAX 47

/* One column of the companion. */
typedef struct zul_FieldInfo {
    char name[ZUL_FIELD_NAME_MAX + 1]; /* NUL-terminated */
    zul_FieldType type;
    int32_t width; /* bytes a value: 1, 2, 4 or 8 by type; for zul_FIELD_RAW 1 to 65535 */
} zul_FieldInfo;

/* What the head of a companion says of itself and of its stream. */
typedef struct zul_CompanionInfo {
    int64_t numChunks;
    int64_t numPoints;  /* sum over the chunks */
    int32_t numFields;  /* columns, not counting the order */
    int32_t hasOrder;   /* 1 when every chunk carries its points' input indices */
    int64_t streamSize; /* bytes of the stream: its head and every chunk */
    int64_t headSize;   /* bytes from the start of the companion that hold its head */
    int64_t fileSize;   /* bytes of the companion */
    uint8_t syncMarker[16];
} zul_CompanionInfo;

/* One chunk as the companion binds it. */
typedef struct zul_CompanionChunk {
    zul_idx_Chunk chunk; /* offset, size, point count and box, as zul_idx_getChunk gives them
                            with applyTransformation 1 */
    uint64_t checksum;   /* XXH3-64 of the chunk's bytes */
    int64_t blockOffset; /* where the chunk's columns lie in the companion */
    int64_t blockSize;
} zul_CompanionChunk;

typedef struct zul_xout_WriterStruct* zul_xout_Writer; /* companion writer */
typedef struct zul_xin_ReaderStruct* zul_xin_Reader;   /* companion reader */

/* ---------------------------------------------------------------------------------------------
 * Helpers.
 * ------------------------------------------------------------------------------------------- */

/* The checksum the companion keeps of a chunk: XXH3-64 (seed 0) of `size` bytes at `bytes` (the
 * chunk's sync marker, header and body). `bytes` may be null only when `size` is 0. Any thread. */
ZUL_API uint64_t zul_x_checksum(const void* bytes, size_t size);

/* A short English text for a status of zul.h or of this header; never null. Any thread. */
ZUL_API const char* zul_x_statusText(zul_Status status);

/* ---------------------------------------------------------------------------------------------
 * Writer. In this order:
 *   1. zul_xout_open;
 *   2. zul_xout_addField for each column, zul_xout_keepOrder if the order is kept, the source
 *      header, format and conventions (these three may also come later, up to step 5);
 *   3. the binding: zul_xout_bindStreamBuffer or zul_xout_bindStreamFile for a stream that is
 *      written, or zul_xout_beginStream and then zul_xout_addChunkBytes (or zul_xout_addChunk)
 *      for each chunk as it is made;
 *   4. for each chunk in order, once its binding is added: zul_xout_writeColumn for every field
 *      and zul_xout_writeOrder if kept, in any order among themselves;
 *   5. zul_xout_finish, which writes the file or hands out the bytes; zul_xout_close.
 * A call out of this order returns zul_STATUS_INVALID_STATE; a refused call changes nothing (a
 * refused binding may be tried again), except zul_xout_finish's zul_STATUS_WRITE_ERROR, after
 * which the writer accepts zul_xout_close only. Memory: the coded blocks are kept until
 * zul_xout_finish (3 to 4 bytes a point for the fields of the shared airborne LAS files), and the
 * columns of the chunk being written as they were given (on threads, zul_xout_setThreads: those of
 * the chunks not yet coded, until they hold 2^17 points).
 * ------------------------------------------------------------------------------------------- */

/* Opens a writer that writes the companion to `path` at zul_xout_finish, or, for a null `path`,
 * keeps it in memory. A new writer is stored in `*writer`. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null `writer` (nothing is stored). */
ZUL_API zul_Status zul_xout_open(zul_xout_Writer* writer, const char* path);

/* Declares column number `*field` (0, 1, ... in the order of the calls; `field` may be null).
 * `width` is the bytes of a zul_FIELD_RAW value (1 to 65535) and is ignored for the other types.
 * Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null writer or name, a name of 0 or more
 * than ZUL_FIELD_NAME_MAX bytes or one that is already declared, an unknown type or a bad width;
 * zul_STATUS_INVALID_STATE after the first binding call or after 4096 fields. */
ZUL_API zul_Status zul_xout_addField(zul_xout_Writer writer, const char* name, zul_FieldType type,
                                     int32_t width, int32_t* field);

/* Says that every chunk will carry its points' input indices (zul_xout_writeOrder). Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null writer; zul_STATUS_INVALID_STATE after the
 * first binding call. */
ZUL_API zul_Status zul_xout_keepOrder(zul_xout_Writer writer);

/* Codes the blocks' columns on up to `threads` threads, the caller's among them (1, the default:
 * each chunk's columns on the caller's thread as they come). With more, the columns of the chunks
 * written are copied and coded a batch of chunks at a time, each column on one thread: the bytes
 * are the same. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null writer or `threads`
 * below 1; zul_STATUS_INVALID_STATE after the binding. */
ZUL_API zul_Status zul_xout_setThreads(zul_xout_Writer writer, int32_t threads);

/* Sets the source header: `size` bytes at `bytes` (copied; may be null when `size` is 0) of kind
 * `kind`, replacing an earlier one. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * writer, a null `bytes` with a positive size or an unknown kind; zul_STATUS_INVALID_STATE after
 * zul_xout_finish. */
ZUL_API zul_Status zul_xout_setSource(zul_xout_Writer writer, zul_SourceKind kind,
                                      const void* bytes, size_t size);

/* Sets the input's format as a short text (copied), e.g. "las 1.2 format 3". Returns as
 * zul_xout_setSource; also zul_STATUS_INVALID_ARGUMENT for a null `format`. */
ZUL_API zul_Status zul_xout_setFormat(zul_xout_Writer writer, const char* format);

/* Adds a convention of the input, a key and a value (both copied, NUL-terminated), e.g.
 * "colour scale" = "256". Returns as zul_xout_setSource; zul_STATUS_INVALID_ARGUMENT also for a
 * null or empty key or a key already added. */
ZUL_API zul_Status zul_xout_addConvention(zul_xout_Writer writer, const char* key,
                                          const char* value);

/* Sets the rows the stream lacks (points it could not hold, e.g. with NaN coordinates): `count`
 * rows of `width` bytes at `rows`, the i-th the input's record number `indices[i]` (strictly
 * ascending); copied and coded at once. A count of 0 removes them. A companion with rows is of
 * version 2. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null writer, null arrays
 * with a positive count, a count above 2^40, a width outside 1 .. 2^20 or indices not ascending;
 * zul_STATUS_INVALID_STATE after zul_xout_finish. */
ZUL_API zul_Status zul_xout_setRows(zul_xout_Writer writer, const uint64_t* indices,
                                    const void* rows, int64_t count, int32_t width);

/* Binds the companion to the stream of `size` bytes at `bytes`: reads its sync marker, lists its
 * chunks with zul_idx_openBuffer and checksums each. Returns zul_STATUS_OK; a status of
 * zul_idx_openBuffer for a stream it refuses, or the status of its first damaged chunk (no
 * companion is made of a damaged stream); zul_STATUS_INVALID_ARGUMENT for a null writer or a null
 * `bytes` with a positive size; zul_STATUS_INVALID_STATE after an earlier binding call. */
ZUL_API zul_Status zul_xout_bindStreamBuffer(zul_xout_Writer writer, const void* bytes,
                                             size_t size);

/* As zul_xout_bindStreamBuffer, on the stream file at `path`, read a chunk at a time. */
ZUL_API zul_Status zul_xout_bindStreamFile(zul_xout_Writer writer, const char* path);

/* Starts a binding by parts, for a stream whose chunks are made one by one: `headSize` bytes at
 * `head`, the stream's signature and file header (36 or 172 bytes, as zul_enc_createFileSignature
 * and zul_enc_encodeFileHeader give them), which hold the sync marker. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null argument; a status of zul_dec_open2 or
 * zul_dec_decodeFileHeader2 for a head they refuse (zul_STATUS_TRUNCATED for too few bytes);
 * zul_STATUS_INVALID_STATE after an earlier binding call. */
ZUL_API zul_Status zul_xout_beginStream(zul_xout_Writer writer, const void* head, size_t headSize);

/* Adds the next chunk of a binding by parts: `chunk` as zul_idx_getChunk gives it and the
 * zul_x_checksum of its bytes. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * argument, a point count outside 1 .. 2^30 - 1, a chunk that does not start where the one before
 * ended (the first: at the head's end), a size below 16 or a box with a minimum above its
 * maximum; zul_STATUS_INVALID_STATE unless zul_xout_beginStream came first. */
ZUL_API zul_Status zul_xout_addChunk(zul_xout_Writer writer, const zul_idx_Chunk* chunk,
                                     uint64_t checksum);

/* Adds the next chunk of a binding by parts from its `size` bytes (sync marker, chunk header and
 * body, as zul_enc_encodeChunk gives them): its size, point count and box are read from its
 * header as zul_idx_getChunk gives them, its checksum computed. Returns zul_STATUS_OK; a status
 * of the chunk index for bytes that are not one whole chunk of the stream (zul_STATUS_TRUNCATED,
 * zul_STATUS_CORRUPT_DATA); zul_STATUS_INVALID_ARGUMENT for a null argument;
 * zul_STATUS_INVALID_STATE unless zul_xout_beginStream came first. */
ZUL_API zul_Status zul_xout_addChunkBytes(zul_xout_Writer writer, const void* chunk, size_t size);

/* Writes column `field` of chunk number `chunk`: `numValues` values of the field's type at
 * `values` (width bytes each, host order), which must be the chunk's point count, in the chunk's
 * stored order. The values are copied; the chunk's block is coded when its last column (or its
 * order) arrives: with the order kept, each column in stored order or in the input's order,
 * whichever codes smaller. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT
 * for a null argument, an unknown field, a column already written, or another count;
 * zul_STATUS_INVALID_STATE for a chunk before the one being written, a chunk after it while it
 * lacks columns, or a chunk not yet bound. */
ZUL_API zul_Status zul_xout_writeColumn(zul_xout_Writer writer, int64_t chunk, int32_t field,
                                        const void* values, int64_t numValues);

/* Writes the input indices of chunk `chunk`'s points in stored order (any 64-bit values; a tool
 * gives each point's position in the input). Returns as zul_xout_writeColumn;
 * zul_STATUS_INVALID_STATE also without zul_xout_keepOrder. */
ZUL_API zul_Status zul_xout_writeOrder(zul_xout_Writer writer, int64_t chunk,
                                       const uint64_t* indices, int64_t numValues);

/* Completes the companion: every bound chunk must have all its columns. A path writer writes the
 * file (replacing one that exists) and `bytes`/`size` may be null; a memory writer hands out the
 * bytes in `*bytes` and `*size`, valid until zul_xout_close. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null writer, or null `bytes` or `size` for a memory writer;
 * zul_STATUS_INVALID_STATE without a binding, with a chunk whose columns are missing, or after an
 * earlier finish; zul_STATUS_WRITE_ERROR when the file cannot be written (a partial file is
 * removed). */
ZUL_API zul_Status zul_xout_finish(zul_xout_Writer writer, const void** bytes, size_t* size);

/* Frees the writer and sets `*writer` to null; nothing for null. A companion not finished is not
 * written. */
ZUL_API void zul_xout_close(zul_xout_Writer* writer);

/* ---------------------------------------------------------------------------------------------
 * Reader. Open a companion (a file, its bytes, or only its head), bind it to its stream (or not,
 * for a reader that trusts the pairing: columns can be read unbound), then read.
 * ------------------------------------------------------------------------------------------- */

/* From the first `size` bytes of a companion (at least 96), tells how many bytes its head holds:
 * one range read of that many bytes from the start gives zul_xin_openHead all it needs. Returns
 * zul_STATUS_OK; zul_STATUS_TRUNCATED for fewer than 96 bytes; zul_STATUS_BAD_SIGNATURE,
 * zul_STATUS_BAD_VERSION or zul_STATUS_CORRUPT_DATA for bytes no writer makes;
 * zul_STATUS_INVALID_ARGUMENT for a null argument. */
ZUL_API zul_Status zul_xin_getHeadSize(const void* bytes, size_t size, int64_t* headSize);

/* Opens the companion file at `path` and checks its head and its metadata (the columns are
 * checked as they are read). A new reader is stored in `*reader` before anything is checked, so
 * unless `reader` is null the caller passes it to zul_xin_close even when this fails. Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null argument; zul_STATUS_READ_ERROR when the
 * file cannot be opened or read; zul_STATUS_TRUNCATED, zul_STATUS_BAD_SIGNATURE,
 * zul_STATUS_BAD_VERSION or zul_STATUS_CORRUPT_DATA for a damaged companion. The file stays open
 * until zul_xin_close. */
ZUL_API zul_Status zul_xin_openFile(zul_xin_Reader* reader, const char* path);

/* As zul_xin_openFile, on `size` bytes at `bytes`, read but not copied: they stay unchanged until
 * zul_xin_close. `bytes` may be null only when `size` is 0. */
ZUL_API zul_Status zul_xin_openBuffer(zul_xin_Reader* reader, const void* bytes, size_t size);

/* As zul_xin_openBuffer, on the head alone (its first zul_xin_getHeadSize bytes, or more) of a
 * companion of `fileSize` bytes: for a reader that fetches blocks itself by range reads and hands
 * them to zul_xin_readColumnFromBlock. The source header, format and conventions lie after the
 * blocks and are not available (zul_STATUS_INVALID_STATE). */
ZUL_API zul_Status zul_xin_openHead(zul_xin_Reader* reader, const void* bytes, size_t size,
                                    int64_t fileSize);

/* Binds the reader to the stream of `size` bytes at `bytes` (read during the call only): its sync
 * marker, size, chunk count and every chunk's offset, size, point count and grid box must be those
 * the companion holds. Checksums are not compared (zul_xin_verifyBuffer does). Returns
 * zul_STATUS_OK; zul_STATUS_COMPANION_MISMATCH; a status of zul_idx_openBuffer for a stream whose
 * head it refuses; zul_STATUS_INVALID_ARGUMENT for a null reader or null bytes with a positive
 * size; zul_STATUS_INVALID_STATE for a reader whose open failed. A stream damaged or cut after its
 * head is a mismatch. */
ZUL_API zul_Status zul_xin_bindStreamBuffer(zul_xin_Reader reader, const void* bytes, size_t size);

/* As zul_xin_bindStreamBuffer, on the stream file at `path`; zul_STATUS_READ_ERROR when it cannot
 * be read. */
ZUL_API zul_Status zul_xin_bindStreamFile(zul_xin_Reader reader, const char* path);

/* As zul_xin_bindStreamBuffer, on a chunk index already open (zul_bulk.h): the sync marker and the
 * stream size are not compared, the index not knowing them. */
ZUL_API zul_Status zul_xin_bindIndex(zul_xin_Reader reader, zul_idx_Index index);

/* Hands back what the head says. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * argument; zul_STATUS_INVALID_STATE for a reader whose open failed. Any thread. */
ZUL_API zul_Status zul_xin_getInfo(zul_xin_Reader reader, zul_CompanionInfo* info);

/* Hands back chunk number `chunk` of the companion's index. Returns as zul_xin_getInfo;
 * zul_STATUS_INVALID_ARGUMENT also for a number outside 0 .. numChunks - 1. Any thread. */
ZUL_API zul_Status zul_xin_getChunk(zul_xin_Reader reader, int64_t chunk, zul_CompanionChunk* info);

/* Hands back column number `field`. Returns as zul_xin_getChunk. Any thread. */
ZUL_API zul_Status zul_xin_getField(zul_xin_Reader reader, int32_t field, zul_FieldInfo* info);

/* Finds the column named `name`: its number in `*field`, or -1 when there is none (still
 * zul_STATUS_OK). Returns as zul_xin_getInfo. Any thread. */
ZUL_API zul_Status zul_xin_findField(zul_xin_Reader reader, const char* name, int32_t* field);

/* Hands back the source header: its kind and `*size` bytes at `*bytes`, owned by the reader and
 * valid until zul_xin_close (null with size 0 when there is none). Returns as zul_xin_getInfo;
 * zul_STATUS_INVALID_STATE also for a reader of zul_xin_openHead. Any thread. */
ZUL_API zul_Status zul_xin_getSource(zul_xin_Reader reader, zul_SourceKind* kind,
                                     const void** bytes, size_t* size);

/* Hands back the input's format text (empty when none was set), owned by the reader. Returns as
 * zul_xin_getSource. Any thread. */
ZUL_API zul_Status zul_xin_getFormat(zul_xin_Reader reader, const char** format);

/* Hands back the number of conventions. Returns as zul_xin_getSource. Any thread. */
ZUL_API zul_Status zul_xin_getConventionCount(zul_xin_Reader reader, int32_t* count);

/* Hands back convention number `i` (in the order they were added), owned by the reader. Returns as
 * zul_xin_getSource; zul_STATUS_INVALID_ARGUMENT also for a number out of range. Any thread. */
ZUL_API zul_Status zul_xin_getConvention(zul_xin_Reader reader, int32_t i, const char** key,
                                         const char** value);

/* The rows the stream lacks (zul_xout_setRows): their number (0 without) and bytes a row. Returns
 * zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null argument; zul_STATUS_INVALID_STATE for a
 * reader not open or opened on the head alone. */
ZUL_API zul_Status zul_xin_getRowInfo(zul_xin_Reader reader, int64_t* count, int32_t* width);

/* Decodes the rows the stream lacks into `indices` (their record numbers, ascending) and `rows`
 * (count times width bytes), both of room for `capacity` rows. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null argument or a capacity below the count;
 * zul_STATUS_CORRUPT_DATA for damaged rows; zul_STATUS_INVALID_STATE as zul_xin_getRowInfo. */
ZUL_API zul_Status zul_xin_readRows(zul_xin_Reader reader, uint64_t* indices, void* rows,
                                    int64_t capacity);

/* Reads column `field` of chunk `chunk` into `values`, room for `capacity` values of the field's
 * width: the chunk's point count of them, in stored order. Reads and checks that chunk's block
 * only. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null argument, a chunk or field
 * out of range or too little room (nothing is written); zul_STATUS_INVALID_STATE for a reader
 * whose open failed or one of zul_xin_openHead; zul_STATUS_READ_ERROR when the file cannot be read;
 * zul_STATUS_TRUNCATED (the file shrank) or zul_STATUS_CORRUPT_DATA for a damaged block (the
 * values are then unspecified). Any thread. */
ZUL_API zul_Status zul_xin_readColumn(zul_xin_Reader reader, int64_t chunk, int32_t field,
                                      void* values, int64_t capacity);

/* Reads chunk `chunk`'s input indices, as zul_xin_readColumn; zul_STATUS_INVALID_STATE also for a
 * companion without order. Any thread. */
ZUL_API zul_Status zul_xin_readOrder(zul_xin_Reader reader, int64_t chunk, uint64_t* indices,
                                     int64_t capacity);

/* As zul_xin_readColumn, from the block's bytes fetched by the caller: `size` bytes at `block`
 * (blockSize of zul_xin_getChunk, from blockOffset). `field` -1 reads the order (into uint64_t
 * values). Works on every open reader. Any thread. */
ZUL_API zul_Status zul_xin_readColumnFromBlock(zul_xin_Reader reader, int64_t chunk, int32_t field,
                                               const void* block, size_t size, void* values,
                                               int64_t capacity);

/* Reads all of chunk `chunk`'s columns at once, as zul_xin_readColumn reads one: its block is read
 * and checked once, and the order decoded once for every column coded in the input's order, where
 * reading column by column does both for every column. `values` holds `numFields` pointers (the
 * companion's numFields: may be null when it is 0), pointer f room for `capacity` values of field
 * f's width, or null for a column not wanted; `indices` room for `capacity` input indices, or null
 * when the order is not wanted. Each column wanted gets the chunk's point count of values, in
 * stored order, exactly as zul_xin_readColumn gives them; the order as zul_xin_readOrder. Returns
 * as zul_xin_readColumn; zul_STATUS_INVALID_ARGUMENT also for another `numFields` or a null
 * `values` with fields; zul_STATUS_INVALID_STATE also for a non-null `indices` in a companion
 * without order. Any thread. */
ZUL_API zul_Status zul_xin_readChunk(zul_xin_Reader reader, int64_t chunk, void* const* values,
                                     int32_t numFields, uint64_t* indices, int64_t capacity);

/* As zul_xin_readChunk, from the block's bytes fetched by the caller, as
 * zul_xin_readColumnFromBlock. Works on every open reader. Any thread. */
ZUL_API zul_Status zul_xin_readChunkFromBlock(zul_xin_Reader reader, int64_t chunk,
                                              const void* block, size_t size, void* const* values,
                                              int32_t numFields, uint64_t* indices,
                                              int64_t capacity);

/* Checks chunk `chunk`'s block of columns against its checksum. Returns zul_STATUS_OK,
 * zul_STATUS_CORRUPT_DATA or the statuses of zul_xin_readColumn. Any thread. */
ZUL_API zul_Status zul_xin_checkBlock(zul_xin_Reader reader, int64_t chunk);

/* Compares the stream of `size` bytes at `bytes` with the binding, chunk by chunk, by offset:
 * names in `bad` (room for `capacity` numbers; may be null when it is 0), in order, -1 when the
 * stream's head (signature and file header) changed, every chunk whose bytes changed or lie past
 * the stream's end (a stream cut on a chunk boundary names the chunks it lost), and numChunks when
 * bytes follow the last chunk; their count goes to `*numBad` (which may exceed `capacity`).
 * Returns zul_STATUS_OK when nothing is named; zul_STATUS_STREAM_CHANGED otherwise;
 * zul_STATUS_COMPANION_MISMATCH when the stream's sync marker is another; zul_STATUS_TRUNCATED
 * when the stream ends inside its head; zul_STATUS_INVALID_ARGUMENT for a null argument (`bad`
 * with a positive capacity) or a negative capacity; zul_STATUS_INVALID_STATE for a reader whose
 * open failed. Any thread. */
ZUL_API zul_Status zul_xin_verifyBuffer(zul_xin_Reader reader, const void* bytes, size_t size,
                                        int64_t* bad, int64_t capacity, int64_t* numBad);

/* As zul_xin_verifyBuffer, on the stream file at `path`, read a chunk at a time;
 * zul_STATUS_READ_ERROR when it cannot be opened or read. */
ZUL_API zul_Status zul_xin_verifyFile(zul_xin_Reader reader, const char* path, int64_t* bad,
                                      int64_t capacity, int64_t* numBad);

/* Closes the file, frees the reader and sets `*reader` to null; nothing for null. */
ZUL_API void zul_xin_close(zul_xin_Reader* reader);

/* ---------------------------------------------------------------------------------------------
 * One blob: a stream and its companion in one buffer (a message's payload). 24 bytes of frame,
 * then the stream, then the companion (docs/companion.md).
 * ------------------------------------------------------------------------------------------- */

/* Packs `streamSize` bytes of stream and `companionSize` bytes of companion (0: none) into `out`,
 * room for `capacity` bytes; `*size` gets the blob's size (24 + both), also when `out` is null
 * with capacity 0, to ask for the room. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a
 * null `size`, a null input with a positive size, or too little room (nothing is written). */
ZUL_API zul_Status zul_xblob_pack(const void* stream, size_t streamSize, const void* companion,
                                  size_t companionSize, void* out, size_t capacity, size_t* size);

/* Finds the stream and the companion in the `size` bytes of a blob: pointers into it (the
 * companion's null with size 0 when there is none). Returns zul_STATUS_OK;
 * zul_STATUS_TRUNCATED for fewer bytes than the frame declares; zul_STATUS_BAD_SIGNATURE,
 * zul_STATUS_BAD_VERSION, or zul_STATUS_CORRUPT_DATA for more bytes than it declares or a reserved
 * field not 0; zul_STATUS_INVALID_ARGUMENT for a null argument. */
ZUL_API zul_Status zul_xblob_unpack(const void* blob, size_t size, const void** stream,
                                    size_t* streamSize, const void** companion,
                                    size_t* companionSize);

#ifdef __cplusplus
} /* extern "C" */
#endif

#if defined(__cplusplus)
static_assert(sizeof(zul_FieldInfo) == 56, "zul_FieldInfo layout");
static_assert(sizeof(zul_CompanionInfo) == 64, "zul_CompanionInfo layout");
static_assert(sizeof(zul_CompanionChunk) == 144, "zul_CompanionChunk layout");
#endif

#endif /* ZUL_COMPANION_H */

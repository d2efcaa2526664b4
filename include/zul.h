/*
 * zul: compression of 3-D point clouds from sensors.
 *
 * A point has a position in double precision and up to three optional attributes: a colour, an
 * integer reflection value and a unit normal. zul quantises positions to a fixed step, reduces the
 * attributes, and stores the points in a chunked, self-describing stream: eight signature bytes,
 * one file header, then independent chunks. Its only loss is quantisation: no point is dropped or
 * merged, but the points of a chunk come back in stored (sorted) order, not in the order given.
 *
 * What zul does not do: it has no messages, no log, no configuration and no threads. Every
 * function that can fail returns a zul_Status and nothing else. A failed allocation leaves the
 * library as a C++ exception (std::bad_alloc); there is no status for exhausted memory.
 *
 * Threads: the library starts no thread and takes no lock. A single context is not safe to use by
 * multiple threads concurrently. However, different threads may use different contexts
 * concurrently. The one process-wide setting is zul_test_useFixedRandomSeed, which is to be set
 * before contexts are opened.
 *
 * Ownership: records and arrays given to the library are read during the call and copied if they
 * are needed later. What the library hands out (signature, file header, chunks, decoded arrays)
 * belongs to the context that handed it out and is never freed by the caller.
 *
 * Beside this header: zul_bulk.h (the chunk index, box queries, and decoding and writing whole
 * clouds on threads, within a memory budget) and zul.hpp (C++ classes over both).
 *
 * This header compiles as C99 and as C++.
 */
#ifndef ZUL_H
#define ZUL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

/* Platforms: the library is built and tested on Linux (x86-64) with GCC 12 and Clang 14, and
 * needs GCC or Clang (their builtins, attributes and pragmas, gathered in src/frame/compiler.h).
 * Hosts include this header as C99 or C++17 with any compiler; the Windows branch of ZUL_API
 * below is kept for hosts there, but no Windows build of the library is made or tested. */
#if defined(_WIN32)
#if defined(ZUL_BUILDING_LIBRARY)
#define ZUL_API __declspec(dllexport)
#else
#define ZUL_API __declspec(dllimport)
#endif
#else
#define ZUL_API __attribute__((visibility("default")))
#endif

/* A host may store any 32-bit value in an enumeration field (the library refuses what is out of
 * range). In C++ the enumerations therefore get a fixed 32-bit base, so that such a value is a
 * valid value of the type; in C an enumeration is an int-sized integer anyway. */
#ifdef __cplusplus
#define ZUL_ENUM(name) enum name : int32_t
#else
#define ZUL_ENUM(name) enum name
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------
 * Status codes. Below 1000 a status is about data or files; from 1000 about a misuse of the API.
 * ------------------------------------------------------------------------------------------- */
typedef ZUL_ENUM(zul_Status){
    /* Success. */
    zul_STATUS_OK = 0,
    /* The file ends exactly at a chunk boundary: the normal end of a read loop. */
    zul_STATUS_END_OF_FILE = 1,
    /* The file cannot be opened for reading, or a read fails before the end of the file. */
    zul_STATUS_READ_ERROR = 2,
    /* The file ends inside the signature, the file header, a sync marker, a chunk header or a
     * chunk body. */
    zul_STATUS_TRUNCATED = 3,
    /* The file cannot be created, or writing to it fails. */
    zul_STATUS_WRITE_ERROR = 4,
    /* The eight signature bytes are not this format's. */
    zul_STATUS_BAD_SIGNATURE = 5,
    /* The signature is this format's, but its version byte is neither 1 nor 2. */
    zul_STATUS_BAD_VERSION = 6,
    /* A file header, sync marker, chunk header or chunk body holds what no writer produces. */
    zul_STATUS_CORRUPT_DATA = 7,
    /* A required pointer is null, or a value is outside what the function accepts. */
    zul_STATUS_INVALID_ARGUMENT = 1000,
    /* The call comes at the wrong time for the context. */
    zul_STATUS_INVALID_STATE = 1001} zul_Status;

/* ---------------------------------------------------------------------------------------------
 * Attribute modes.
 * ------------------------------------------------------------------------------------------- */
typedef ZUL_ENUM(zul_ColorMode){
    zul_COLOR_NONE = 0,   /* no colour */
    zul_COLOR_RGB565 = 1, /* red, green, blue kept at 5, 6 and 5 bits */
    zul_COLOR_RGB888 = 2  /* 8 bits a channel */
} zul_ColorMode;

typedef ZUL_ENUM(zul_ReflectionMode){
    zul_REFLECTION_NONE = 0,   /* no reflection value */
    zul_REFLECTION_CLAMPED = 1 /* one integer a point, clamped to 0 .. maxReflection */
} zul_ReflectionMode;

typedef ZUL_ENUM(zul_NormalMode){
    zul_NORMAL_NONE = 0,     /* no normal */
    zul_NORMAL_SPHERICAL = 1 /* a latitude row of 7 bits and a longitude cell of up to 8 bits */
} zul_NormalMode;

/* How the sensor was mounted. The library validates, stores and returns the number and attaches
 * no meaning to it. Valid: 0, 10 to 13, 20 to 22, 30 to 32. */
typedef ZUL_ENUM(zul_SensorMount){
    zul_SENSOR_MOUNT_DEFAULT = 0, zul_SENSOR_MOUNT_10 = 10, zul_SENSOR_MOUNT_11 = 11,
    zul_SENSOR_MOUNT_12 = 12,     zul_SENSOR_MOUNT_13 = 13, zul_SENSOR_MOUNT_20 = 20,
    zul_SENSOR_MOUNT_21 = 21,     zul_SENSOR_MOUNT_22 = 22, zul_SENSOR_MOUNT_30 = 30,
    zul_SENSOR_MOUNT_31 = 31,     zul_SENSOR_MOUNT_32 = 32} zul_SensorMount;

/* Which kind of sensor, handled like zul_SensorMount. Valid: 0 to 10. */
typedef ZUL_ENUM(zul_SensorType){
    zul_SENSOR_TYPE_DEFAULT = 0, zul_SENSOR_TYPE_1 = 1,  zul_SENSOR_TYPE_2 = 2,
    zul_SENSOR_TYPE_3 = 3,       zul_SENSOR_TYPE_4 = 4,  zul_SENSOR_TYPE_5 = 5,
    zul_SENSOR_TYPE_6 = 6,       zul_SENSOR_TYPE_7 = 7,  zul_SENSOR_TYPE_8 = 8,
    zul_SENSOR_TYPE_9 = 9,       zul_SENSOR_TYPE_10 = 10} zul_SensorType;

/* ---------------------------------------------------------------------------------------------
 * Records. They carry no version or size word: host and library share the layout declared here.
 * ------------------------------------------------------------------------------------------- */

/* What a stream stores for each point. Fixed when a stream is opened, for all its chunks. */
typedef struct zul_DataType {
    float quantizationStep;            /* grid step of positions, 9.9e-10 .. 10.0; default 0.0001 */
    zul_ColorMode colorMode;           /* zul_COLOR_* */
    zul_ReflectionMode reflectionMode; /* zul_REFLECTION_* */
    int32_t maxReflection;             /* largest stored reflection, >= 1; 0 without reflection */
    zul_NormalMode normalMode;         /* zul_NORMAL_* */
    uint32_t reserved[5];              /* must be 0 */
} zul_DataType;

/* The optional sensor header. Enabled, it makes the stream a version 2 stream and carries a
 * rigid transformation with an optional uniform scale that takes stored positions to their final
 * place. `transformation` is a 4x4 matrix stored column after column: x' = m[0]x + m[4]y + m[8]z +
 * m[12], and so on; the bottom row m[3], m[7], m[11], m[15] must be 0, 0, 0, 1. A flag that is
 * true permits (a scale, a rotation, a translation); it does not demand. */
typedef struct zul_Header2 {
    bool enabled;                /* true: in force, the stream is of version 2 */
    uint8_t reservedBytes[3];    /* zero */
    zul_SensorMount sensorMount; /* stored, never acted on */
    zul_SensorType sensorType;   /* stored, never acted on */
    bool hasScaling;             /* the matrix may carry a uniform scale other than 1 */
    bool hasUnsupportedScaling;  /* always false; a record or file with it set is refused */
    bool hasRotation;            /* the matrix may carry a rotation */
    bool hasTranslation;         /* the matrix may carry a translation */
    double transformation[16];   /* column-major 4x4 matrix */
    uint64_t reservedWords[2];   /* zero; copied with the record, never stored in a file */
} zul_Header2;

/* The points of one chunk as parallel packed arrays: point i of a three-component array is at
 * elements 3i, 3i+1, 3i+2. Arrays of attributes the zul_DataType lacks are not read (input) and
 * are null (output). */
typedef struct zul_PointData {
    int32_t numPoints;    /* number of points */
    double* positions;    /* x, y, z a point; always present */
    uint8_t* colors;      /* red, green, blue a point, 0..255 whatever the colour mode */
    int32_t* reflections; /* one a point */
    float* normals;       /* x, y, z a point */
} zul_PointData;

/* One point, as the file layer passes it. Fields of attributes the stream lacks are neither read
 * on writing nor written on reading. */
typedef struct zul_Point {
    double position[3]; /* x, y, z */
    uint8_t color[3];   /* red, green, blue */
    int32_t reflection; /* reflection value */
    float normal[3];    /* x, y, z */
} zul_Point;

/* Decoder options. */
typedef struct zul_dec_Params {
    int32_t applyTransformation; /* 1 (the default): bring decoded points through the version 2
                                    header's matrix; 0: leave them in the stored frame */
    uint32_t reserved[4];        /* copied, never read */
} zul_dec_Params;

/* ---------------------------------------------------------------------------------------------
 * Handles: one opaque context type a family.
 * ------------------------------------------------------------------------------------------- */
typedef struct zul_enc_ContextStruct* zul_enc_Context; /* encoder, in memory */
typedef struct zul_dec_ContextStruct* zul_dec_Context; /* decoder, in memory */
typedef struct zul_out_ContextStruct* zul_out_Context; /* file writer */
typedef struct zul_in_ContextStruct* zul_in_Context;   /* file reader */

/* ---------------------------------------------------------------------------------------------
 * Version of the library (not of the file format). Safe from any thread. The three macros are
 * the one place the version is written: CMake, the package files and the Python package read it
 * from here.
 * ------------------------------------------------------------------------------------------- */

#define ZUL_VERSION_MAJOR 1
#define ZUL_VERSION_MINOR 1
#define ZUL_VERSION_PATCH 0

/* Returns the major version of the library the program runs with: ZUL_VERSION_MAJOR of its
 * build. */
ZUL_API int zul_libversion_major(void);
/* Returns the minor version of the library: ZUL_VERSION_MINOR of its build. */
ZUL_API int zul_libversion_minor(void);
/* Returns the patch version of the library: ZUL_VERSION_PATCH of its build. */
ZUL_API int zul_libversion_patch(void);

/* ---------------------------------------------------------------------------------------------
 * Sizes and limits of the stream, for hosts that store or check its pieces. A stream is the
 * signature, the file header, then chunks: each a sync marker, a chunk header and a body.
 * ------------------------------------------------------------------------------------------- */

/* Bytes of the pieces: the signature; the file header of version 1 and of version 2 (with a
 * sensor header); the sync marker, which ends the file header and starts every chunk; a chunk
 * header without attributes and with all three (4 bytes an attribute). */
#define ZUL_SIGNATURE_SIZE 8
#define ZUL_FILE_HEADER_SIZE_V1 28
#define ZUL_FILE_HEADER_SIZE_V2 164
#define ZUL_SYNC_MARKER_SIZE 16
#define ZUL_CHUNK_HEADER_SIZE_MIN 56
#define ZUL_CHUNK_HEADER_SIZE_MAX 68
/* Points a chunk of the file writer by default, and at most (zul_out_setChunkSize). */
#define ZUL_DEFAULT_CHUNK_SIZE 10000
#define ZUL_MAX_CHUNK_SIZE 2147483646
/* The largest count a decoder serves, 2^30 - 1; a chunk header claiming more is refused. */
#define ZUL_MAX_DECODED_CHUNK_POINTS 1073741823

/* What a claimed count costs. A chunk header claims its point count, and a chunk of identical
 * points codes in a few bytes whatever the count: a file of 250 bytes may claim 2^30 - 1 points.
 * Decoding a body of n points takes n working records of 40 bytes and output arrays of 24 bytes
 * a point (a position), plus 3 (colour), 4 (reflection) and 12 (normal) for the attributes the
 * data type has, and the arrays a decoder hands out grow to twice the largest count: up to about
 * 130 bytes a claimed point, some 140 GB for the largest count.
 * The families here keep no budget: a host that must cap memory reads the count after
 * zul_dec_decodeChunkHeader (zul_dec_getNumPointsInChunk) and skips the body or stops when the
 * count passes its budget; the bulk layer of zul_bulk.h does so by itself. */

/* ---------------------------------------------------------------------------------------------
 * Starting records and the reproducible sync marker.
 * ------------------------------------------------------------------------------------------- */

/* Fills the starting records; a null pointer leaves that record alone. `dataType` becomes the
 * default (step 0.0001, no attributes), `header` an enabled header with the identity matrix,
 * mount 0 and type 0 (passing it on gives a version 2 stream). Returns nothing. */
ZUL_API void zul_init_headers(zul_DataType* dataType, zul_Header2* header);

/* With `useFixedSeed` true, every sync marker drawn afterwards in this process comes from `seed`,
 * so streams become reproducible; false goes back to the platform's random device and leaves the
 * stored seed as it was. Not synchronised: call it while no context is being opened. */
ZUL_API void zul_test_useFixedRandomSeed(bool useFixedSeed, unsigned int seed);

/* ---------------------------------------------------------------------------------------------
 * Encoder (in memory). A caller stores, in this order, what createFileSignature (8 bytes),
 * encodeFileHeader (28 or 164 bytes) and encodeChunk (once a chunk) hand back; the concatenation
 * is the stream. Output pointers point into the context: the signature and file header stay
 * valid until zul_enc_close, a chunk until the next chunk. One context is used by one thread at a
 * time.
 * ------------------------------------------------------------------------------------------- */

/* Opens an encoder for a version 1 stream, as zul_enc_open2 with a null header. */
ZUL_API zul_Status zul_enc_open(zul_enc_Context* context, const zul_DataType* dataType);

/* Opens an encoder; an enabled `header` (may be null) makes a version 2 stream. Returns
 * zul_STATUS_OK and stores the handle; zul_STATUS_INVALID_ARGUMENT for a null `context` (nothing
 * written), or for a null or invalid `dataType` or an invalid enabled `header` (stores null in
 * `*context`). The records are copied. */
ZUL_API zul_Status zul_enc_open2(zul_enc_Context* context, const zul_DataType* dataType,
                                 const zul_Header2* header);

/* Stores the address of the stream's 8 signature bytes in `*signature`. Returns zul_STATUS_OK, or
 * zul_STATUS_INVALID_ARGUMENT for a null argument. */
ZUL_API zul_Status zul_enc_createFileSignature(zul_enc_Context context, const char** signature);

/* Builds the file header (28 bytes in version 1, 164 in version 2, with the stream's sync
 * marker) and stores its address and size. Returns zul_STATUS_OK, or zul_STATUS_INVALID_ARGUMENT
 * for a null argument. Repeated calls give the same bytes. */
ZUL_API zul_Status zul_enc_encodeFileHeader(zul_enc_Context context, const char** bytes, int* size);

/* Encodes the points into one chunk (sync marker, chunk header, body) and stores its address and
 * length; the bytes stay valid until the next zul_enc_encodeChunk or zul_enc_close. The points
 * come back from a decoder sorted, not in the order given here; none is dropped or merged. A
 * chunk to store holds at least 1 point (a chunk of 0 points is encoded, but no reader accepts
 * it). Returns zul_STATUS_OK; or zul_STATUS_INVALID_ARGUMENT, with `*bytes` and `*size`
 * untouched, for a null argument, a negative numPoints, or a null array that the data type needs
 * for a positive numPoints; or zul_STATUS_INVALID_ARGUMENT, with `*bytes` null and `*size` 0, for
 * a normal shorter than 1e-6 (the last chunk's bytes stay valid) or for a chunk that would take
 * 2^31 bytes or more. The context can go on with other points. */
ZUL_API zul_Status zul_enc_encodeChunk(zul_enc_Context context, const char** bytes, int* size,
                                       const zul_PointData* points);

/* Frees the encoder and sets `*context` to null; does nothing for a null pointer or handle. */
ZUL_API void zul_enc_close(zul_enc_Context* context);

/* ---------------------------------------------------------------------------------------------
 * Decoder (in memory). The caller reads the stream and hands it over one piece at a time; each
 * step names the size of the next piece, and a buffer must hold at least that many bytes:
 *   1. zul_dec_open2 on the 8 signature bytes           -> size of the file header (28 or 164)
 *   2. zul_dec_decodeFileHeader2 on the file header     -> data type, chunk header size (56 to
 *                                                          68), address of the sync marker
 *   3. per chunk: compare the 16 sync marker bytes yourself, then zul_dec_decodeChunkHeader on
 *      the chunk header                                 -> size of the chunk body
 *   4. skip the body and go on with 3, or zul_dec_decodeChunkBody on it -> the points
 *   5. zul_dec_close.
 * Any status but zul_STATUS_OK leaves the out-parameters of the call untouched. After a
 * zul_STATUS_CORRUPT_DATA the context is still usable: a refused file header may be offered
 * again, and after a refused chunk header or body the next chunk header may follow. A call out
 * of this order returns zul_STATUS_INVALID_STATE and changes nothing. One context is used by one
 * thread at a time; different contexts are independent.
 * ------------------------------------------------------------------------------------------- */

/* Opens a decoder that transforms the points of a version 2 stream, as zul_dec_open2 with null
 * params. */
ZUL_API zul_Status zul_dec_open(zul_dec_Context* context, int* fileHeaderSize,
                                const char* signature);

/* Opens a decoder on the 8 signature bytes. `params` may be null (applyTransformation 1). A new
 * context is stored in `*context` before anything is checked, so unless `context` is null the
 * caller must pass it to zul_dec_close even when this fails. Returns zul_STATUS_OK and the size of
 * the file header in `*fileHeaderSize`; zul_STATUS_INVALID_ARGUMENT for a null argument or an
 * applyTransformation other than 0 or 1 (judged before the signature); zul_STATUS_BAD_SIGNATURE
 * for bytes that are not this format's; zul_STATUS_BAD_VERSION for a version other than 1 or 2.
 * A failed open cannot be repeated on the same context. */
ZUL_API zul_Status zul_dec_open2(zul_dec_Context* context, int* fileHeaderSize,
                                 const char* signature, const zul_dec_Params* params);

/* As zul_dec_decodeFileHeader2 without handing back the sensor header; a version 2 stream's
 * points are transformed all the same. */
ZUL_API zul_Status zul_dec_decodeFileHeader(zul_dec_Context context, zul_DataType* dataType,
                                            int* chunkHeaderSize, const char** syncMarker,
                                            const char* fileHeader);

/* Decodes the file header. Hands back the data type, the sensor header if `header2` is not null
 * (for a version 1 stream one with `enabled` false and the identity matrix), the size of every
 * chunk header, and the address of the stream's 16 sync marker bytes, valid until zul_dec_close.
 * Returns zul_STATUS_OK; zul_STATUS_CORRUPT_DATA for a data type or (version 2) a matrix that no
 * writer produces, after which the call may be made again; zul_STATUS_INVALID_ARGUMENT for a null
 * argument other than `header2`; zul_STATUS_INVALID_STATE unless it follows a successful open. */
ZUL_API zul_Status zul_dec_decodeFileHeader2(zul_dec_Context context, zul_DataType* dataType,
                                             zul_Header2* header2, int* chunkHeaderSize,
                                             const char** syncMarker, const char* fileHeader);

/* Decodes a chunk header (the bytes after the sync marker) and hands back the size of the body.
 * May be called again without decoding the body, which skips the chunk. Returns zul_STATUS_OK;
 * zul_STATUS_CORRUPT_DATA for a box whose minimum exceeds its maximum, a point count below 1, or
 * stream sizes that add up to 2^31 bytes or more (no writer makes such a chunk); after a failure
 * no body and no count is served until a chunk header succeeds. zul_STATUS_INVALID_ARGUMENT for a
 * null argument; zul_STATUS_INVALID_STATE before the file header. The arrays of the last decoded
 * body stay valid. */
ZUL_API zul_Status zul_dec_decodeChunkHeader(zul_dec_Context context, int* chunkBodySize,
                                             const char* chunkHeader);

/* Hands back the point count of the last successful chunk header, also after its body has been
 * decoded. Returns zul_STATUS_INVALID_ARGUMENT for a null argument and zul_STATUS_INVALID_STATE
 * when no chunk header has succeeded since the file header or since the last refused one. */
ZUL_API zul_Status zul_dec_getNumPointsInChunk(zul_dec_Context context, int* numPoints);

/* Decodes the body of the chunk whose header came last and hands out the points: `numPoints`
 * and arrays that belong to the context, in stored (sorted) order. Arrays of attributes the data
 * type lacks are null. Positions and normals of a version 2 stream come out transformed unless
 * applyTransformation is 0. The arrays stay valid until zul_dec_close or the next successful
 * zul_dec_decodeChunkBody. A body is decoded once: any outcome but zul_STATUS_INVALID_ARGUMENT
 * or zul_STATUS_INVALID_STATE makes a chunk header due next. Returns zul_STATUS_OK;
 * zul_STATUS_CORRUPT_DATA for a damaged body, whose failure leaves the arrays of the last good
 * chunk as they were, and for a chunk of 2^30 points or more, which cannot be served;
 * zul_STATUS_INVALID_ARGUMENT for a null argument; zul_STATUS_INVALID_STATE without a fresh chunk
 * header. `chunkBody` must hold the size that zul_dec_decodeChunkHeader gave; nothing beyond it
 * is read. */
ZUL_API zul_Status zul_dec_decodeChunkBody(zul_dec_Context context, zul_PointData* points,
                                           const char* chunkBody);

/* Frees the decoder and its arrays and sets `*context` to null; does nothing for a null pointer
 * or handle. */
ZUL_API void zul_dec_close(zul_dec_Context* context);

/* ---------------------------------------------------------------------------------------------
 * File writer. A host opens a file, hands over one point at a time and closes it:
 *   zul_out_open2 -> [zul_out_setChunkSize] -> zul_out_writePoint ... -> zul_out_close.
 * Points are collected into chunks of the chunk size (10000 by default); a full chunk is encoded
 * and appended inside the zul_out_writePoint that completes it, the last partial chunk at close.
 * The signature and the file header reach the file with the first chunk, or at close if no point
 * was given. The file is byte for byte the stream the encoder would hand out. Memory is bounded
 * by one chunk; the file is written sequentially. After any failure of a flush the writer is
 * failed: the points collected for that chunk are lost, what reached the file before stays, and
 * every zul_out_writePoint returns zul_STATUS_INVALID_STATE. One context is used by one thread at
 * a time.
 * ------------------------------------------------------------------------------------------- */

/* Opens a writer for a version 1 stream, as zul_out_open2 with a null header. */
ZUL_API zul_Status zul_out_open(zul_out_Context* context, const char* path,
                                const zul_DataType* dataType);

/* Creates `path` (replacing a file that exists; it stays empty until the first chunk or close)
 * for a stream of `dataType`; an enabled `header` (may be null) makes a version 2 stream.
 * Returns zul_STATUS_OK and stores the handle; zul_STATUS_INVALID_ARGUMENT for a null `context`
 * (nothing written), or for a null `path` or `dataType` or an invalid `dataType` or `header`
 * (stores null in `*context`, touches no file); zul_STATUS_WRITE_ERROR if the file cannot be
 * created, in which case `*context` holds a writer that accepts nothing but zul_out_close. */
ZUL_API zul_Status zul_out_open2(zul_out_Context* context, const char* path,
                                 const zul_DataType* dataType, const zul_Header2* header);

/* As zul_out_open, with a wide-character path (opened as UTF-8 on this platform). */
ZUL_API zul_Status zul_out_open_w(zul_out_Context* context, const wchar_t* path,
                                  const zul_DataType* dataType);

/* As zul_out_open2, with a wide-character path (opened as UTF-8 on this platform). A path that
 * holds no valid character sequence cannot be created: zul_STATUS_WRITE_ERROR. */
ZUL_API zul_Status zul_out_open2_w(zul_out_Context* context, const wchar_t* path,
                                   const zul_DataType* dataType, const zul_Header2* header);

/* Sets the number of points a chunk is filled to, 1 to 2147483646, any number of times before
 * the first point. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null `context` or a
 * size out of bounds (the old size stays); zul_STATUS_INVALID_STATE once a point has been given
 * or anything written, and for a writer whose file could not be created. Memory for a large size
 * is taken as points arrive, not at once. */
ZUL_API zul_Status zul_out_setChunkSize(zul_out_Context context, int chunkSize);

/* Copies the point (the fields of attributes the data type lacks are not read) into the chunk
 * being collected, and writes the chunk out when it is full. Returns zul_STATUS_OK;
 * zul_STATUS_INVALID_ARGUMENT for a null `context` or `point`, or, from the call that flushes, for
 * a point of the chunk whose normal is shorter than 1e-6 (nothing of the chunk is written);
 * zul_STATUS_WRITE_ERROR if writing fails; zul_STATUS_INVALID_STATE for a writer that is failed
 * or has no file. */
ZUL_API zul_Status zul_out_writePoint(zul_out_Context context, const zul_Point* point);

/* Writes what is due (the signature and file header if nothing was written yet, the last partial
 * chunk; never an empty chunk), closes the file, frees the writer and sets `*context` to null.
 * Returns zul_STATUS_OK, or the status of that last flush as zul_out_writePoint describes it, or
 * zul_STATUS_WRITE_ERROR if the file cannot be completed on closing. A failure reported before is
 * not reported again: closing a failed writer returns zul_STATUS_OK. zul_STATUS_INVALID_ARGUMENT
 * for a null `context`; a null `*context` is zul_STATUS_OK. */
ZUL_API zul_Status zul_out_close(zul_out_Context* context);

/* ---------------------------------------------------------------------------------------------
 * File reader. A host opens a file and takes its points one at a time until
 * zul_STATUS_END_OF_FILE, which is the clean end of a file at a chunk boundary:
 *   zul_in_open2 -> [zul_in_getNumPoints] -> zul_in_readNextPoint ... -> zul_in_close.
 * The points of a chunk come in stored (sorted) order. Memory is bounded by the largest chunk.
 * Any status but zul_STATUS_OK from zul_in_readNextPoint or zul_in_getNumPoints (other than for a
 * null argument) ends the reader: every later call but zul_in_close returns
 * zul_STATUS_INVALID_STATE; points handed out before stay valid. A chunk whose sync marker is
 * not the stream's is zul_STATUS_CORRUPT_DATA; there is no search for the next chunk. One context
 * is used by one thread at a time.
 * ------------------------------------------------------------------------------------------- */

/* Opens a reader that transforms the points of a version 2 file, as zul_in_open2 with a null
 * header and null params. */
ZUL_API zul_Status zul_in_open(zul_in_Context* context, zul_DataType* dataType, const char* path);

/* Opens `path` and reads its signature and file header. Hands back the data type and, if
 * `header` is not null, the sensor header as zul_dec_decodeFileHeader2 does. `params` may be null
 * (applyTransformation 1). A new context is stored in `*context` before anything is checked, so
 * unless `context` is null the caller must pass it to zul_in_close even when this fails; a failed
 * reader accepts nothing else. Returns zul_STATUS_OK; zul_STATUS_INVALID_ARGUMENT for a null
 * argument other than `header` and `params`, or bad `params`; zul_STATUS_READ_ERROR if the file
 * cannot be opened or read; zul_STATUS_TRUNCATED if it ends inside the signature or the file
 * header; zul_STATUS_BAD_SIGNATURE, zul_STATUS_BAD_VERSION or zul_STATUS_CORRUPT_DATA (then
 * `*dataType` and `*header` are not written) as the decoder judges them. */
ZUL_API zul_Status zul_in_open2(zul_in_Context* context, zul_DataType* dataType,
                                zul_Header2* header, const char* path,
                                const zul_dec_Params* params);

/* As zul_in_open, with a wide-character path (opened as UTF-8 on this platform). */
ZUL_API zul_Status zul_in_open_w(zul_in_Context* context, zul_DataType* dataType,
                                 const wchar_t* path);

/* As zul_in_open2, with a wide-character path (opened as UTF-8 on this platform). A path that
 * holds no valid character sequence cannot be opened: zul_STATUS_READ_ERROR. */
ZUL_API zul_Status zul_in_open2_w(zul_in_Context* context, zul_DataType* dataType,
                                  zul_Header2* header, const wchar_t* path,
                                  const zul_dec_Params* params);

/* Hands back the number of points in the whole file, however many have been read. The first call
 * reads the chunk headers of the rest of the file, skipping the bodies, and decodes nothing;
 * later calls give the same count at once. Reading goes on undisturbed. Returns zul_STATUS_OK
 * (a last chunk whose body is cut short counts in full: only reading it finds the cut);
 * zul_STATUS_INVALID_ARGUMENT for a null argument; zul_STATUS_INVALID_STATE for a reader that
 * has ended; zul_STATUS_TRUNCATED, zul_STATUS_READ_ERROR or zul_STATUS_CORRUPT_DATA for a file
 * cut inside a sync marker or a chunk header, unreadable, or damaged, which ends the reader. */
ZUL_API zul_Status zul_in_getNumPoints(zul_in_Context context, int64_t* numPoints);

/* Hands back the next point; decodes the next chunk when the last one is used up. The fields of
 * attributes the file lacks keep what the caller had in them. Returns zul_STATUS_OK;
 * zul_STATUS_END_OF_FILE after the last point of a file that ends cleanly after a chunk;
 * zul_STATUS_TRUNCATED for a file cut inside a chunk; zul_STATUS_CORRUPT_DATA for a damaged
 * chunk; zul_STATUS_READ_ERROR for a failed read; zul_STATUS_INVALID_ARGUMENT for a null
 * argument; zul_STATUS_INVALID_STATE for a reader that has ended. */
ZUL_API zul_Status zul_in_readNextPoint(zul_in_Context context, zul_Point* point);

/* Closes the file, frees the reader and sets `*context` to null; does nothing for a null pointer
 * or handle. */
ZUL_API void zul_in_close(zul_in_Context* context);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* The record layouts are part of the interface: a host compiled against this header and the
 * library must agree byte for byte. The WebAssembly decoder (web/) is a 32-bit build of its own
 * that no host links: its records stay inside it. */
#if defined(__wasm32__)
#elif defined(__cplusplus)
#define ZUL_LAYOUT_CHECK(cond, what) static_assert(cond, what)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define ZUL_LAYOUT_CHECK(cond, what) _Static_assert(cond, what)
#endif
#ifdef ZUL_LAYOUT_CHECK
ZUL_LAYOUT_CHECK(sizeof(void*) == 8, "zul is built for 64-bit hosts");
ZUL_LAYOUT_CHECK(sizeof(zul_Status) == 4, "zul_Status is 32 bits");
ZUL_LAYOUT_CHECK(sizeof(zul_ColorMode) == 4, "zul_ColorMode is 32 bits");
ZUL_LAYOUT_CHECK(sizeof(zul_SensorMount) == 4, "zul_SensorMount is 32 bits");
ZUL_LAYOUT_CHECK(sizeof(bool) == 1, "bool fields are 8 bits");
ZUL_LAYOUT_CHECK(sizeof(zul_DataType) == 40, "zul_DataType layout");
ZUL_LAYOUT_CHECK(offsetof(zul_DataType, maxReflection) == 12, "zul_DataType layout");
ZUL_LAYOUT_CHECK(offsetof(zul_DataType, reserved) == 20, "zul_DataType layout");
ZUL_LAYOUT_CHECK(sizeof(zul_Header2) == 160, "zul_Header2 layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Header2, sensorMount) == 4, "zul_Header2 layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Header2, hasScaling) == 12, "zul_Header2 layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Header2, transformation) == 16, "zul_Header2 layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Header2, reservedWords) == 144, "zul_Header2 layout");
ZUL_LAYOUT_CHECK(sizeof(zul_PointData) == 40, "zul_PointData layout");
ZUL_LAYOUT_CHECK(offsetof(zul_PointData, positions) == 8, "zul_PointData layout");
ZUL_LAYOUT_CHECK(sizeof(zul_Point) == 48, "zul_Point layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Point, color) == 24, "zul_Point layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Point, reflection) == 28, "zul_Point layout");
ZUL_LAYOUT_CHECK(offsetof(zul_Point, normal) == 32, "zul_Point layout");
ZUL_LAYOUT_CHECK(sizeof(zul_dec_Params) == 20, "zul_dec_Params layout");
#undef ZUL_LAYOUT_CHECK
#endif

#endif /* ZUL_H */

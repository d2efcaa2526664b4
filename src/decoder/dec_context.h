// The decoder context behind zul_dec_Context. It turns the bytes of a stream, handed over one
// piece at a time by the caller, into planar point arrays that it owns. It does no input or
// output of its own: each step tells the caller how many bytes the next one needs.
#pragma once

#include <cstdint>
#include <vector>

#include "entropy/bit_stream_in.h"
#include "entropy/quantized_point.h"
#include "frame/bounding_box.h"
#include "frame/compiler.h"
#include "frame/file_header.h"
#include "frame/sync_marker.h"
#include "zul.h"

// Where a context stands: which piece of the stream it expects next.
enum zul_dec_State : int32_t {
    zul_dec_STATE_NEW = 0,               // no signature accepted yet
    zul_dec_STATE_SIGNATURE_READ = 1,    // the file header is due
    zul_dec_STATE_READY_FOR_CHUNK = 2,   // the next chunk header is due
    zul_dec_STATE_CHUNK_HEADER_READ = 3  // a body may follow, or another chunk header
};

struct ZUL_API zul_dec_ContextStruct {
    zul_dec_ContextStruct();
    // Releases the output arrays.
    ~zul_dec_ContextStruct();
    zul_dec_ContextStruct(const zul_dec_ContextStruct&) = delete;
    zul_dec_ContextStruct& operator=(const zul_dec_ContextStruct&) = delete;

    // Takes the params (null: applyTransformation 1) and the eight signature bytes; hands back
    // the size of the file header that follows, 28 or 164.
    zul_Status open(int* fileHeaderSize, const char* signature, const zul_dec_Params* params);
    // Reads the file header; `header2` may be null. Hands back the data type, the size of a chunk
    // header and the address of the sync marker's sixteen bytes. Writes no out-parameter on
    // failure.
    zul_Status decodeFileHeader(zul_DataType* dataType, zul_Header2* header2, int* chunkHeaderSize,
                                const char** syncMarker, const char* fileHeader);
    // Reads a chunk header (without its sync marker) and hands back the size of the body, and
    // the number of points if `numPoints` is not null.
    zul_Status decodeChunkHeader(int* chunkBodySize, const char* chunkHeader, long long* numPoints);
    zul_Status getNumPointsInChunk(int& numPoints);
    // Decodes the body of the chunk whose header came last into the context's arrays and hands
    // out their addresses. One attempt a body, whatever its outcome.
    zul_Status decodeChunkBody(zul_PointData* points, const char* chunkBody);
    // As decodeChunkBody, into the caller's arrays instead of the context's: `target` has room
    // for exactly the chunk's count (target.numPoints, else zul_STATUS_INVALID_ARGUMENT with the
    // header still due for its body) and an array for every attribute of the data type. Nothing
    // is allocated for the output, and a refused body leaves the arrays untouched. With
    // `refuseOutsideBox`, a point that would lie outside the chunk header's box (a body that
    // decodes cleanly but holds what no writer makes) is zul_STATUS_CORRUPT_DATA too. Used by
    // the bulk decoder; not exported.
    ZUL_INTERNAL zul_Status decodeChunkBodyInto(const zul_PointData& target, const char* chunkBody,
                                                bool refuseOutsideBox);

    // Writes the output arrays from the records: undoes the shift by the box minimum (x, y, z
    // order) and the slot permutation, and brings each attribute back to the public record's
    // domain. `axisToSlot[a]` is the slot that holds axis a.
    static void dequantizeRemapAndShiftPoints(
        zul_PointData& points, const std::vector<zullib::zul_QuantizedPoint>& records,
        zul_DataType dataType, const int* axisToSlot, const zullib::BoundingBox3d<long long>& box);
    // Brings positions through a column-major 4x4 matrix, in place.
    static void transformPointPositions(zul_PointData& points, const double* matrix);
    // Brings normals through the linear part of a matrix whose scale is already taken out, in
    // place; no translation, no renormalisation.
    static void transformPointNormals(zul_PointData& points, const double* matrix);

    int32_t state;
    zul_DataType dataType;
    zul_Header2 header2;
    bool transformPositions;
    bool transformNormals;
    double normalTransformation[16];
    zul_dec_Params params;
    int32_t version;
    unsigned char fileHeaderV1[zullib::kFileHeaderSizeV1];
    unsigned char fileHeaderV2[zullib::kFileHeaderSizeV2];
    zullib::zul_SyncMarker syncMarker;
    int32_t chunkHeaderSize;
    zul_PointData chunkPoints;
    int64_t chunkPointsCapacity;
    zullib::BoundingBox3d<long long> chunkBoundingBox;
    int64_t chunkBodySize;
    int64_t coordinateStreamEnd;
    int64_t colorStreamEnd;
    int64_t reflectionStreamEnd;
    int64_t normalStreamEnd;

private:
    using QuantizedPoints = std::vector<zullib::zul_QuantizedPoint>;

    // The records of the last chunk body, kept so that the next body of no more points reuses
    // them without allocating and zeroing: every field a body's streams hold is written before
    // it is read.
    QuantizedPoints records;

    // The part of a body's decoding that writes no output: checks the state and the count,
    // reads every stream into `records` and hands back the slot of each axis.
    ZUL_INTERNAL zul_Status readBody(const char* chunkBody, QuantizedPoints& records,
                                     int (&axisToSlot)[3]);
    // True if every record lies in the chunk header's box.
    ZUL_INTERNAL bool recordsInsideBox(const QuantizedPoints& records,
                                       const int (&axisToSlot)[3]) const;
    // Writes the records as points into `out` and transforms them as the params say.
    ZUL_INTERNAL void finishPoints(zul_PointData& out, const QuantizedPoints& records,
                                   const int (&axisToSlot)[3]) const;
    // Releases the four output arrays and sets the capacity to 0; numPoints stays.
    void freeChunkPoints();
    // Makes room for chunkPoints.numPoints points, at twice that count when it must grow.
    void ensureChunkPointsCapacity();
    template <class Accessor>
    zul_Status readDataStreamHeader(zullib::BitStreamIn& in, std::vector<int>* tables);
    template <class Accessor>
    zul_Status readDataStreamBody(zullib::BitStreamIn& in, QuantizedPoints& points,
                                  const int* absoluteBits, const std::vector<int>* tables);
    // Reads every data stream of a body with attributes, side by side, into the records.
    zul_Status readStreamsInLockstep(const unsigned char* body, QuantizedPoints& records,
                                     const int* coordinateBits);
    // Reads the stream of one accessor and checks that it ends at `end`.
    template <class Accessor>
    zul_Status readStream(zullib::BitStreamIn& in, QuantizedPoints& points, const int* absoluteBits,
                          int64_t end);
};

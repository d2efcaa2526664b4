// The encoder context behind zul_enc_Context. It turns records into the bytes of a stream and
// does no input or output: every piece it hands out lives in the context.
#pragma once

#include <vector>

#include "entropy/bit_stream_out.h"
#include "entropy/prefix_optimizer.h"
#include "entropy/quantized_point.h"
#include "frame/bounding_box.h"
#include "frame/compiler.h"
#include "frame/file_header.h"
#include "frame/file_signature.h"
#include "frame/sync_marker.h"
#include "zul.h"

struct ZUL_API zul_enc_ContextStruct {
    // Copies both records, builds the signature of the version that `header.enabled` selects and
    // draws the stream's sync marker. Validates nothing: zul_enc_open2 has done that.
    zul_enc_ContextStruct(const zul_DataType& dataType, const zul_Header2& header);
    // As above, with the stream's sync marker given instead of drawn: encoders that make the
    // chunks of one stream on several threads all carry the same marker. Not exported.
    ZUL_INTERNAL zul_enc_ContextStruct(const zul_DataType& dataType, const zul_Header2& header,
                                       const zullib::zul_SyncMarker& syncMarker);
    // Gives back chunkBuffer.
    ~zul_enc_ContextStruct();

    // The address of the eight signature bytes, valid until the context is closed.
    const char* getFileSignature() const;
    // Fills the file header of the stream's version and hands out its address and size (28 or
    // 164); the same bytes on every call.
    void encodeFileHeader(const char** bytes, int* size);
    // Encodes the points into one chunk (sync marker, chunk header, body) in chunkBuffer and hands
    // out its address and length, valid until the next call or close. On failure *bytes is null,
    // *size is 0: a normal shorter than 1e-6 is zul_STATUS_INVALID_ARGUMENT and leaves
    // chunkBuffer as it was; a chunk of 2^31 bytes or more is refused the same way. The arrays of
    // `points` are trusted to be there.
    zul_Status encodeChunk(const char** bytes, int* size, const zul_PointData* points);

    zul_DataType dataType;
    zul_Header2 header;
    zullib::zul_FileSignature fileSignature;
    unsigned char fileHeaderV1[zullib::kFileHeaderSizeV1];
    unsigned char fileHeaderV2[zullib::kFileHeaderSizeV2];
    zullib::zul_SyncMarker syncMarker;
    std::vector<unsigned char> chunkBuffer;

private:
    using QuantizedPoints = std::vector<zullib::zul_QuantizedPoint>;
    using Frequencies = zullib::BitLengthCounts;

    // The records' storage that the sort gathers into, kept from chunk to chunk.
    QuantizedPoints sortSpare;

    // Makes one integer record per input point, in input order: positions on the grid of the
    // step, colour, reflection and normal reduced by their modes. Then permutes the coordinate
    // slots by extent and subtracts the box minimum. Hands out the box in x, y, z grid units.
    zul_Status quantizeRemapAndShiftPoints(QuantizedPoints& points, int (&axisRemap)[3],
                                           int (&coordinateBits)[3],
                                           zullib::BoundingBox3d<long long>& box,
                                           const zul_PointData* pointData);
    // Lexicographic order on the three slots, signed; attributes travel with their coordinates.
    void sortQuantizedPoints(QuantizedPoints& points);
    // Adds, per stream component, how many deltas need how many bits (the counts start at 0).
    void countDeltaBitLengthFrequencies(const QuantizedPoints& points,
                                        Frequencies (&coordinateFrequencies)[3],
                                        Frequencies (&rgbFrequencies)[3],
                                        Frequencies (&reflectionFrequencies)[1],
                                        Frequencies (&normalFrequencies)[2]);
    void writeDataStreamHeader(zullib::BitStreamOut& out, const std::vector<int>* tables,
                               int numTables);
    template <class Accessor>
    void writeDataStreamBody(zullib::BitStreamOut& out, const QuantizedPoints& points,
                             const int (&absoluteBits)[Accessor::kNumComponents],
                             const std::vector<int> (&tables)[Accessor::kNumComponents]);
};

// The output arrays of the decoder: allocated on demand, kept from chunk to chunk, released at
// close. The caller gets pointers into them, never copies.
#include "decoder/dec_context.h"
#include "frame/data_type.h"

void zul_dec_ContextStruct::freeChunkPoints() {
    chunkPointsCapacity = 0;
    delete[] chunkPoints.positions;
    delete[] chunkPoints.colors;
    delete[] chunkPoints.reflections;
    delete[] chunkPoints.normals;
    chunkPoints.positions = nullptr;
    chunkPoints.colors = nullptr;
    chunkPoints.reflections = nullptr;
    chunkPoints.normals = nullptr;
}

void zul_dec_ContextStruct::ensureChunkPointsCapacity() {
    if (chunkPointsCapacity >= chunkPoints.numPoints) return;
    // The old arrays go first, so that their contents are never carried over and the peak stays
    // at one set of arrays.
    freeChunkPoints();
    // Twice the count fits in 32 bits: decodeChunkBody refuses chunks of 2^30 points or more.
    const int32_t capacity = chunkPoints.numPoints * 2;
    const size_t n = static_cast<size_t>(capacity);
    // If an allocation throws, the capacity stays 0 and the arrays made so far are released by
    // the next growth or at close.
    chunkPoints.positions = new double[3 * n];
    const zullib::ChunkStreams streams(dataType);
    if (streams.color) chunkPoints.colors = new uint8_t[3 * n];
    if (streams.reflection) chunkPoints.reflections = new int32_t[n];
    if (streams.normals) chunkPoints.normals = new float[3 * n];
    chunkPointsCapacity = capacity;
}

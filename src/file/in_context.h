// The file reader behind zul_in_Context. It walks a stream from the front: the signature and the
// file header when opened, then a whole chunk (sync marker, header, body) whenever the points of
// the last one are used up. Its decoder does the decoding; the reader reads the file, compares
// the sync markers and turns the conditions of its file stream into statuses.
#pragma once

#include <cstdint>
#include <fstream>
#include <vector>

#include "frame/sync_marker.h"
#include "zul.h"

struct zul_in_ContextStruct {
    zul_in_ContextStruct() = default;
    // Closes the decoder; the file stream closes itself.
    ~zul_in_ContextStruct();
    zul_in_ContextStruct(const zul_in_ContextStruct&) = delete;
    zul_in_ContextStruct& operator=(const zul_in_ContextStruct&) = delete;

    // Opens `path`, reads the signature and the file header, and hands out the data type and, if
    // `header` is not null, the sensor header. Leaves the file at the first chunk.
    zul_Status open(zul_DataType* dataType, zul_Header2* header, const char* path,
                    const zul_dec_Params* params);
    zul_Status readNextPoint(zul_Point* point);
    // The points of the whole file, counted once from the chunk headers; reading goes on as if
    // the count had never been made.
    zul_Status getNumPoints(int64_t* numPoints);

    bool isOpen = false;
    std::ifstream file;
    zul_dec_Context decoder = nullptr;
    int32_t chunkHeaderSize = 0;
    zullib::zul_SyncMarker syncMarker;
    char markerBuffer[zullib::zul_SyncMarker::kSize] = {};
    std::vector<char> chunkHeader;
    std::vector<char> chunkBody;
    zul_PointData points = {};
    int64_t pointIndex = 0;
    int64_t totalPoints = -1;
    int64_t pointsDecoded = 0;

private:
    // Reads the next chunk: its marker and header always; then either its body is skipped
    // (`headerOnly`) or decoded into `points`. `numPoints`, if not null, gets the chunk's count.
    zul_Status readNextChunk(bool headerOnly, int* numPoints);
    // Reads `size` bytes of a body into chunkBody.
    zul_Status readChunkBody(int32_t size);
    // The status of what has just been done to the file: `delivered` says that a read got every
    // byte it asked for (a seek passes true).
    zul_Status streamStatus(bool delivered) const;
    // The status of a read of `size` bytes that has just been made.
    zul_Status readStatus(std::streamsize size) const;
    // The status of a read of the sixteen marker bytes, where a file may end cleanly.
    zul_Status markerStatus() const;
};

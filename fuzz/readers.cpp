// The two readers a target compares the library with: the in-memory decoder, which splits a
// stream as a caller would, and the file reader on the scratch file.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>

#include "fuzz_support.h"

namespace zulfuzz {
namespace {

const size_t kSignatureSize = ZUL_SIGNATURE_SIZE;
const size_t kMarkerSize = ZUL_SYNC_MARKER_SIZE;

// No chunk header is in force: there is neither a count nor a body to decode.
void checkNoChunkHeader(zul_dec_Context decoder, const char* bytes) {
    int numPoints = -1;
    zul_PointData chunk{};
    FUZZ_CHECK(zul_dec_getNumPointsInChunk(decoder, &numPoints) == zul_STATUS_INVALID_STATE);
    FUZZ_CHECK(zul_dec_decodeChunkBody(decoder, &chunk, bytes) == zul_STATUS_INVALID_STATE);
}

// Decodes the chunks from `offset` on, until the bytes end or a chunk is refused.
zul_Status decodeChunks(zul_dec_Context decoder, const uint8_t* data, size_t size, size_t offset,
                        size_t chunkHeaderSize, const char* syncMarker, bool transformed,
                        DecodedStream& out) {
    zul_PointData last{};  // the arrays of the last decoded body, which stay valid
    int64_t chunks = 0;    // chunk headers accepted
    for (;;) {
        if (offset == size) return zul_STATUS_END_OF_FILE;
        if (size - offset < kMarkerSize) return zul_STATUS_TRUNCATED;
        if (std::memcmp(data + offset, syncMarker, kMarkerSize) != 0)
            return zul_STATUS_CORRUPT_DATA;
        offset += kMarkerSize;
        if (size - offset < chunkHeaderSize) return zul_STATUS_TRUNCATED;
        const char* chunkHeader = reinterpret_cast<const char*>(data + offset);
        offset += chunkHeaderSize;

        int bodySize = -1, numPoints = -1, countAfter = -1;
        const zul_Status headerStatus = zul_dec_decodeChunkHeader(decoder, &bodySize, chunkHeader);
        if (headerStatus != zul_STATUS_OK) {
            FUZZ_CHECK(headerStatus == zul_STATUS_CORRUPT_DATA);
            checkNoChunkHeader(decoder, chunkHeader);
            return headerStatus;
        }
        FUZZ_CHECK(bodySize >= 0);
        FUZZ_CHECK(zul_dec_getNumPointsInChunk(decoder, &numPoints) == zul_STATUS_OK);
        FUZZ_CHECK(numPoints >= 1);
        out.pointsDeclared += numPoints;
        if (size - offset < static_cast<size_t>(bodySize)) {
            out.endedInBody = true;
            return zul_STATUS_TRUNCATED;
        }
        const char* body = reinterpret_cast<const char*>(data + offset);
        offset += static_cast<size_t>(bodySize);
        const bool overLimits = overReaderLimits(static_cast<int64_t>(out.points.size()), numPoints,
                                                 static_cast<int64_t>(offset), out.dataType);
        if (overLimits && out.overBudgetChunk < 0) out.overBudgetChunk = chunks;
        ++chunks;
        if (overLimits) {
            // Skipped as a host over its budget would: the next header simply follows.
            out.skippedChunk = true;
            continue;
        }

        zul_PointData chunk{};
        const zul_Status bodyStatus = zul_dec_decodeChunkBody(decoder, &chunk, body);
        // One attempt a body, whatever its outcome; the count stays that of the header.
        FUZZ_CHECK(zul_dec_decodeChunkBody(decoder, &chunk, body) == zul_STATUS_INVALID_STATE);
        FUZZ_CHECK(zul_dec_getNumPointsInChunk(decoder, &countAfter) == zul_STATUS_OK);
        FUZZ_CHECK(countAfter == numPoints);
        if (bodyStatus != zul_STATUS_OK) {
            out.endedInBody = true;
            FUZZ_CHECK(bodyStatus == zul_STATUS_CORRUPT_DATA);
            // The points of the body before, if any, are still readable.
            std::vector<zul_Point> earlier;
            if (last.numPoints > 0) appendPoints(last, out.dataType, transformed, earlier);
            return bodyStatus;
        }
        FUZZ_CHECK(chunk.numPoints == numPoints);
        appendPoints(chunk, out.dataType, transformed, out.points);
        last = chunk;
    }
}

}  // namespace

DecodedStream decodeInMemory(const uint8_t* data, size_t size, int applyTransformation) {
    DecodedStream out;
    const zul_dec_Params params{applyTransformation, {}};
    int fileHeaderSize = 0, chunkHeaderSize = 0;
    out.openStatus = zul_STATUS_TRUNCATED;
    if (size < kSignatureSize) return out;
    DecoderHandle decoder;
    const char* bytes = reinterpret_cast<const char*>(data);
    // Without parameters the decoder transforms: zul_dec_open is that case.
    out.openStatus = applyTransformation == 1
                         ? zul_dec_open(&decoder.value, &fileHeaderSize, bytes)
                         : zul_dec_open2(&decoder.value, &fileHeaderSize, bytes, &params);
    // A failed open leaves a context behind too, for the caller to close.
    FUZZ_CHECK(decoder.value != nullptr);
    if (out.openStatus != zul_STATUS_OK) {
        FUZZ_CHECK(out.openStatus == zul_STATUS_BAD_SIGNATURE ||
                   out.openStatus == zul_STATUS_BAD_VERSION);
        return out;
    }
    FUZZ_CHECK(fileHeaderSize == 28 || fileHeaderSize == 164);
    FUZZ_CHECK(data[3] == (fileHeaderSize == 28 ? 1 : 2));

    out.openStatus = zul_STATUS_TRUNCATED;
    if (size - kSignatureSize < static_cast<size_t>(fileHeaderSize)) return out;
    const char* fileHeader = bytes + kSignatureSize;
    const char* syncMarker = nullptr;
    out.openStatus = zul_dec_decodeFileHeader2(decoder.value, &out.dataType, &out.header2,
                                               &chunkHeaderSize, &syncMarker, fileHeader);
    // A refused file header may be offered again, and is refused again; an accepted one not.
    FUZZ_CHECK(zul_dec_decodeFileHeader(decoder.value, &out.dataType, &chunkHeaderSize, &syncMarker,
                                        fileHeader) ==
               (out.openStatus == zul_STATUS_OK ? zul_STATUS_INVALID_STATE : out.openStatus));
    if (out.openStatus != zul_STATUS_OK) {
        FUZZ_CHECK(out.openStatus == zul_STATUS_CORRUPT_DATA);
        return out;
    }
    FUZZ_CHECK(syncMarker != nullptr);
    FUZZ_CHECK(chunkHeaderSize >= 56 && chunkHeaderSize <= 72 && chunkHeaderSize % 4 == 0);
    FUZZ_CHECK(out.header2.enabled == (fileHeaderSize == 164));
    checkNoChunkHeader(decoder.value, bytes);

    const bool transformed = applyTransformation == 1 && out.header2.enabled;
    out.endStatus =
        decodeChunks(decoder.value, data, size, kSignatureSize + fileHeaderSize,
                     static_cast<size_t>(chunkHeaderSize), syncMarker, transformed, out);
    return out;
}

void appendPoints(const zul_PointData& chunk, const zul_DataType& type, bool transformed,
                  std::vector<zul_Point>& points) {
    FUZZ_CHECK(chunk.positions != nullptr);
    FUZZ_CHECK((chunk.colors != nullptr) == (type.colorMode != zul_COLOR_NONE));
    FUZZ_CHECK((chunk.reflections != nullptr) == (type.reflectionMode != zul_REFLECTION_NONE));
    FUZZ_CHECK((chunk.normals != nullptr) == (type.normalMode != zul_NORMAL_NONE));
    for (int32_t i = 0; i < chunk.numPoints; ++i) {
        zul_Point point{};
        std::memcpy(point.position, chunk.positions + 3 * i, sizeof point.position);
        if (chunk.colors) std::memcpy(point.color, chunk.colors + 3 * i, sizeof point.color);
        if (chunk.reflections) point.reflection = chunk.reflections[i];
        if (chunk.normals) std::memcpy(point.normal, chunk.normals + 3 * i, sizeof point.normal);
        if (!transformed) {
            // A grid index times a step of at most 10 is always finite, and a normal comes from
            // the centre of a cell of the unit sphere.
            for (double v : point.position) FUZZ_CHECK(std::isfinite(v));
            if (chunk.normals) {
                const double x = point.normal[0], y = point.normal[1], z = point.normal[2];
                FUZZ_CHECK(std::fabs(std::sqrt(x * x + y * y + z * z) - 1.0) < 1e-5);
            }
        }
        // Five and six bits come back in the middle of the range they stand for.
        if (type.colorMode == zul_COLOR_RGB565)
            FUZZ_CHECK((point.color[0] & 7) == 4 && (point.color[1] & 3) == 2 &&
                       (point.color[2] & 7) == 4);
        points.push_back(point);
    }
}

ReaderRun readScratch(int way) {
    ReaderRun run;
    ReaderHandle reader;
    const zul_dec_Params params{way == 0 ? 0 : 1, {}};
    const std::string& path = scratchPath();
    const std::wstring widePath(path.begin(), path.end());
    run.opened =
        way <= 1   ? zul_in_open2(&reader.value, &run.type, &run.header, path.c_str(), &params)
        : way == 2 ? zul_in_open(&reader.value, &run.type, path.c_str())
                   : zul_in_open2_w(&reader.value, &run.type, nullptr, widePath.c_str(), nullptr);
    FUZZ_CHECK(reader.value != nullptr);
    zul_Point point{};
    run.counted = zul_in_getNumPoints(reader.value, &run.count);
    if (run.opened != zul_STATUS_OK) FUZZ_CHECK(run.counted == zul_STATUS_INVALID_STATE);
    if (run.counted != zul_STATUS_OK)
        FUZZ_CHECK(zul_in_readNextPoint(reader.value, &point) == zul_STATUS_INVALID_STATE);
    // Past the density limit, a caller would not read on.
    if (run.counted != zul_STATUS_OK ||
        run.count > densityBound(static_cast<int64_t>(std::filesystem::file_size(path))))
        return run;
    run.read = true;
    while ((run.end = zul_in_readNextPoint(reader.value, &point)) == zul_STATUS_OK) {
        run.points.push_back(point);
        // A second count in the middle of the reading answers the same without a scan.
        int64_t again = -1;
        if (run.points.size() == 1)
            FUZZ_CHECK(zul_in_getNumPoints(reader.value, &again) == zul_STATUS_OK &&
                       again == run.count);
    }
    FUZZ_CHECK(zul_in_readNextPoint(reader.value, &point) == zul_STATUS_INVALID_STATE);
    return run;
}

}  // namespace zulfuzz

// The reader's members: opening, chunks read whole or skipped, points handed out one at a time,
// and the count made from chunk headers alone.
#include "file/in_context.h"

#include <algorithm>
#include <cstring>

#include "frame/data_check.h"
#include "frame/file_header.h"

namespace {

const std::streamsize kSignatureSize = 8;
// The first piece of a body that is read before the buffer grows any further.
const size_t kFirstBodyPiece = size_t{1} << 20;

}  // namespace

zul_in_ContextStruct::~zul_in_ContextStruct() { zul_dec_close(&decoder); }

zul_Status zul_in_ContextStruct::streamStatus(bool delivered) const {
    if (file.good() && delivered) return zul_STATUS_OK;
    if (file.eof() && !file.bad()) return zul_STATUS_TRUNCATED;
    return zul_STATUS_READ_ERROR;
}

zul_Status zul_in_ContextStruct::readStatus(std::streamsize size) const {
    return streamStatus(file.gcount() == size);
}

zul_Status zul_in_ContextStruct::markerStatus() const {
    // A file may end in front of a chunk, but not inside its marker.
    if (file.eof() && !file.bad() && file.gcount() == 0) return zul_STATUS_END_OF_FILE;
    return readStatus(zullib::zul_SyncMarker::kSize);
}

zul_Status zul_in_ContextStruct::open(zul_DataType* dataType, zul_Header2* header, const char* path,
                                      const zul_dec_Params* params) {
    if (!dataType || !path) return zul_STATUS_INVALID_ARGUMENT;
    file.open(path, std::ios::binary | std::ios::in);
    if (!file.is_open()) return zul_STATUS_READ_ERROR;
    char signature[kSignatureSize];
    file.read(signature, kSignatureSize);
    zul_Status status = readStatus(kSignatureSize);
    if (status != zul_STATUS_OK) return status;
    int fileHeaderSize = 0;
    status = zul_dec_open2(&decoder, &fileHeaderSize, signature, params);
    if (status != zul_STATUS_OK) return status;
    // The decoder names one of the two sizes, so the larger buffer always holds the header.
    char fileHeader[zullib::kFileHeaderSizeV2];
    file.read(fileHeader, fileHeaderSize);
    status = readStatus(fileHeaderSize);
    if (status != zul_STATUS_OK) return status;
    const char* marker = nullptr;
    int headerSize = 0;
    status = zul_dec_decodeFileHeader2(decoder, dataType, header, &headerSize, &marker, fileHeader);
    if (status != zul_STATUS_OK) return status;
    chunkHeaderSize = headerSize;
    syncMarker.setBytes(marker);
    chunkHeader.resize(static_cast<size_t>(chunkHeaderSize));
    isOpen = true;
    return zul_STATUS_OK;
}

zul_Status zul_in_ContextStruct::readChunkBody(int32_t size) {
    const size_t want = static_cast<size_t>(size);
    // Even an empty body is handed to the decoder as an address, for it to judge.
    if (chunkBody.empty()) chunkBody.resize(1);
    size_t have = 0;
    while (have < want) {
        if (chunkBody.size() < want) {
            // The buffer grows towards twice the body's size, but no faster than the body's
            // bytes arrive: a size damaged to gigabytes in a short file costs at most a piece
            // more than the file holds.
            const size_t grown = std::max({chunkBody.size(), 2 * have, kFirstBodyPiece});
            chunkBody.resize(std::min(grown, 2 * want));
        }
        const size_t piece = std::min(want, chunkBody.size()) - have;
        file.read(chunkBody.data() + have, static_cast<std::streamsize>(piece));
        const zul_Status status = readStatus(static_cast<std::streamsize>(piece));
        if (status != zul_STATUS_OK) return status;
        have += piece;
    }
    return zul_STATUS_OK;
}

zul_Status zul_in_ContextStruct::readNextChunk(bool headerOnly, int* numPoints) {
    if (numPoints) *numPoints = 0;
    file.read(markerBuffer, zullib::zul_SyncMarker::kSize);
    zul_Status status = markerStatus();
    if (status != zul_STATUS_OK) return status;
    // A chunk that does not begin with the stream's marker ends the reading: there is no search
    // for the next one.
    ZUL_REFUSE_UNLESS(syncMarker.equals(markerBuffer));
    file.read(chunkHeader.data(), chunkHeaderSize);
    status = readStatus(chunkHeaderSize);
    if (status != zul_STATUS_OK) return status;
    int bodySize = 0;
    status = zul_dec_decodeChunkHeader(decoder, &bodySize, chunkHeader.data());
    if (status != zul_STATUS_OK) return status;
    // The decoder refuses sizes that add up to 2^31 or more, so the size is never negative; if
    // it ever were, it would be refused here rather than become a seek backwards, which would
    // make the count go round for ever.
    ZUL_REFUSE_UNLESS(bodySize >= 0);
    if (numPoints) zul_dec_getNumPointsInChunk(decoder, numPoints);
    if (headerOnly) {
        // Seeking past the end of the file is no failure: the next marker read finds the end.
        file.seekg(bodySize, std::ios::cur);
        return streamStatus(true);
    }
    status = readChunkBody(bodySize);
    if (status != zul_STATUS_OK) return status;
    status = zul_dec_decodeChunkBody(decoder, &points, chunkBody.data());
    if (status != zul_STATUS_OK) return status;
    pointsDecoded += points.numPoints;
    return zul_STATUS_OK;
}

zul_Status zul_in_ContextStruct::readNextPoint(zul_Point* point) {
    if (!isOpen) return zul_STATUS_INVALID_STATE;
    if (pointIndex >= points.numPoints) {
        pointIndex = 0;
        const zul_Status status = readNextChunk(false, nullptr);
        if (status != zul_STATUS_OK) {
            isOpen = false;
            return status;
        }
    }
    const size_t i = static_cast<size_t>(pointIndex++);
    std::memcpy(point->position, points.positions + 3 * i, sizeof point->position);
    if (points.colors) std::memcpy(point->color, points.colors + 3 * i, sizeof point->color);
    if (points.reflections) point->reflection = points.reflections[i];
    if (points.normals) std::memcpy(point->normal, points.normals + 3 * i, sizeof point->normal);
    return zul_STATUS_OK;
}

zul_Status zul_in_ContextStruct::getNumPoints(int64_t* numPoints) {
    if (!isOpen) return zul_STATUS_INVALID_STATE;
    if (!numPoints) return zul_STATUS_INVALID_ARGUMENT;
    if (totalPoints < 0) {
        // The scan starts behind the current chunk, whose points are already in pointsDecoded,
        // and reads chunk headers only: neither `points` nor the decoder's arrays are touched,
        // so a chunk being read out stays as it is.
        const std::streampos position = file.tellg();
        if (position == std::streampos(-1)) {
            isOpen = false;
            return zul_STATUS_READ_ERROR;
        }
        int64_t count = pointsDecoded;
        int chunkPoints = 0;
        zul_Status status;
        while ((status = readNextChunk(true, &chunkPoints)) == zul_STATUS_OK) count += chunkPoints;
        file.clear();
        file.seekg(position);
        if (status != zul_STATUS_END_OF_FILE) {
            isOpen = false;
            return status;
        }
        if (file.fail()) {
            isOpen = false;
            return zul_STATUS_READ_ERROR;
        }
        totalPoints = count;
    }
    *numPoints = totalPoints;
    return zul_STATUS_OK;
}

// The parts of a companion as records, and their bytes: the head (header, chunk table, field
// directory) and the metadata after the blocks. Writing them, and reading them with every check.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "format.h"

namespace zulx {

struct Field {
    std::string name;
    int32_t type = 0;
    int32_t width = 0;
};

struct ChunkEntry {
    zul_idx_Chunk chunk = {};
    uint64_t checksum = 0;
    int64_t blockOffset = 0;
    int64_t blockSize = 0;
    uint64_t blockChecksum = 0;
};

struct Head {
    uint16_t version = kVersion;
    bool hasOrder = false;
    uint8_t marker[16] = {};
    int64_t numPoints = 0;
    int64_t streamHeadSize = 0;
    uint64_t streamHeadChecksum = 0;
    int64_t streamSize = 0;
    int64_t headSize = 0;
    int64_t metaOffset = 0;
    int64_t metaSize = 0;
    uint64_t metaChecksum = 0;
    std::vector<ChunkEntry> chunks;
    std::vector<Field> fields;

    int segments() const { return static_cast<int>(fields.size()) + (hasOrder ? 1 : 0); }
};

// A coded segment inside the metadata (the rows' indices or bytes): its coding and bytes.
struct MetaSegment {
    uint8_t coding = 0;
    std::vector<uint8_t> bytes;
};

struct Meta {
    int32_t sourceKind = zul_SOURCE_NONE;
    std::vector<uint8_t> source;
    std::string format;
    std::vector<std::pair<std::string, std::string>> conventions;
    // Rows the stream lacks (version 2 only): their count, width, indices and bytes, coded.
    int64_t rowCount = 0;
    int32_t rowWidth = 0;
    MetaSegment rowIndices, rowBytes;
};

int64_t headSizeOf(int64_t numChunks, int64_t numFields);

// The head's bytes; every field of `head` is set, its checksum is computed here.
std::vector<uint8_t> writeHead(const Head& head);
std::vector<uint8_t> writeMeta(const Meta& meta, uint16_t version);

// From the first bytes of a companion: checks magic, version, flags and counts, and gives the
// head size. zul_STATUS_TRUNCATED for fewer than kHeaderSize bytes.
zul_Status peekHeadSize(const uint8_t* bytes, size_t size, int64_t& headSize);

// Reads a whole head (`size` bytes, at least its head size) of a companion of `fileSize` bytes,
// checking every value against the others and against the file size.
zul_Status readHead(const uint8_t* bytes, size_t size, int64_t fileSize, Head& head);

zul_Status readMeta(const uint8_t* bytes, size_t size, uint16_t version, Meta& meta);

}  // namespace zulx

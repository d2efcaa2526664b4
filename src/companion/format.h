// The companion's byte layout (docs/companion.md): sizes, offsets, codings and the little-endian
// reads and writes of its fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "zul_companion.h"

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the companion's columns are copied as they lie in memory: a little-endian host is needed"
#endif

namespace zulx {

constexpr uint8_t kMagic[8] = {0x89, 'Z', 'U', 'L', 'X', 0x0D, 0x0A, 0x1A};
// Version 1 without rows the stream lacks, 2 with them (the metadata's last part).
constexpr uint16_t kVersion = 1;
constexpr uint16_t kVersionRows = 2;
// Bytes a row the stream lacks, at most.
constexpr int32_t kMaxRowWidth = 1 << 20;
constexpr uint16_t kFlagOrder = 1;

constexpr size_t kHeaderSize = 112;
constexpr size_t kChunkEntrySize = 152;
constexpr size_t kFieldEntrySize = 64;
constexpr size_t kSegmentHeaderSize = 8;
constexpr int32_t kMaxFields = 4096;
constexpr int64_t kMaxChunkPoints = (int64_t{1} << 30) - 1;

// Offsets in the header.
enum HeaderOffset : size_t {
    kHdrVersion = 8,
    kHdrFlags = 10,
    kHdrNumFields = 12,
    kHdrNumChunks = 16,
    kHdrNumPoints = 24,
    kHdrMarker = 32,
    kHdrStreamHeadSize = 48,
    kHdrStreamHeadChecksum = 56,
    kHdrStreamSize = 64,
    kHdrHeadSize = 72,
    kHdrMetaOffset = 80,
    kHdrMetaSize = 88,
    kHdrMetaChecksum = 96,
    kHdrHeadChecksum = 104
};

// Offsets in a chunk entry.
enum ChunkOffset : size_t {
    kChkOffset = 0,
    kChkSize = 8,
    kChkNumPoints = 16,
    kChkReserved = 20,
    kChkChecksum = 24,
    kChkGridMin = 32,
    kChkGridMax = 56,
    kChkMin = 80,
    kChkMax = 104,
    kChkBlockOffset = 128,
    kChkBlockSize = 136,
    kChkBlockChecksum = 144
};

// The coding byte of a segment: a transform in the low two bits, then three flags.
enum Coding : uint8_t {
    kTransformNone = 0,
    kTransformDelta = 1,
    kTransformXor = 2,
    kTransformMask = 3,
    kBytePlanes = 4,
    kZstd = 8,
    kInputOrder = 16,  // the values in the input's order (that of the order segment's indices)
    kCodingMask = 31
};

// Stream heads of version 1 and 2: signature and file header.
constexpr int64_t kStreamHeadV1 = 36, kStreamHeadV2 = 172;

inline int32_t typeWidth(int32_t type) {
    switch (type) {
        case zul_FIELD_U8:
        case zul_FIELD_I8:
            return 1;
        case zul_FIELD_U16:
        case zul_FIELD_I16:
            return 2;
        case zul_FIELD_U32:
        case zul_FIELD_I32:
        case zul_FIELD_F32:
            return 4;
        case zul_FIELD_U64:
        case zul_FIELD_I64:
        case zul_FIELD_F64:
            return 8;
        default:
            return 0;
    }
}
inline bool isFloat(int32_t type) { return type == zul_FIELD_F32 || type == zul_FIELD_F64; }

template <typename T>
T load(const uint8_t* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}
template <typename T>
void store(uint8_t* p, T value) {
    std::memcpy(p, &value, sizeof value);
}
template <typename T>
void append(std::vector<uint8_t>& out, T value) {
    const size_t at = out.size();
    out.resize(at + sizeof value);
    std::memcpy(out.data() + at, &value, sizeof value);
}
inline void appendBytes(std::vector<uint8_t>& out, const void* bytes, size_t size) {
    if (size)
        out.insert(out.end(), static_cast<const uint8_t*>(bytes),
                   static_cast<const uint8_t*>(bytes) + size);
}

uint64_t checksum(const void* bytes, size_t size);

// Compares a checksum the companion stores of its own bytes with the one computed. Fuzzing builds
// take every such checksum as good, so that mutated inputs reach the checks behind them.
inline bool checksumMatches(uint64_t stored, uint64_t computed) {
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    (void)stored, (void)computed;
    return true;
#else
    return stored == computed;
#endif
}

// The header's checksum: of the head's bytes with the checksum field taken as zero.
uint64_t headChecksum(const uint8_t* head, size_t headSize);

}  // namespace zulx

// The framing of compressed_data (docs/ros.md): a fixed head, the zul stream, then the column
// container; and the list of columns that a cloud's layout gives, which encoder and decoder build
// the same way.
#pragma once

#include <cstdint>
#include <vector>

#include "cloud_layout.h"
#include "column_pack.h"

namespace zul::ros {

inline constexpr uint8_t kBlobMagic[4] = {'Z', 'U', 'L', 'R'};
inline constexpr uint8_t kBlobVersion = 1;
inline constexpr size_t kBlobHeadSize = 40;

enum BlobFlag : uint8_t {
    kIntensityInStream = 1,  // the intensity field is in the stream's reflection values
    kMaskPresent = 2,        // some points are outside the stream: the "valid" column says which
    kCompanion = 4,          // the stream's points' other fields are in a companion beside it
    kPredicted = 8,  // some companion columns hold differences to a prediction ("predictions")
};

struct BlobHead {
    uint8_t flags = 0;
    uint8_t trailingMessageBytes = 0;  // zero bytes after the message's last field
    uint32_t chunkPoints = 0;          // stream points a chunk (all but the last chunk)
    uint32_t tileColumns = 0;          // an organised cloud's chunks: tiles this wide (0: none)
    uint64_t trailingDataBytes = 0;    // data bytes after height x row_step
    uint64_t streamSize = 0;           // bytes of the zul stream that follows the head
    uint64_t checksum = 0;             // of the cloud's layout and the bytes after the head
};

// The checksum of a compressed_data (at least a head long): XXH3 (64 bits) of the bytes after the
// head, seeded with the XXH3 of the head's first 32 bytes, itself seeded with the XXH3 of the
// fields that lay out the cloud (height, width, fields, is_bigendian, point_step, row_step), so
// that a change to any of them is found.
uint64_t blobChecksum(const CloudDescription& cloud, const uint8_t* blob, size_t size);

void writeBlobHead(const BlobHead& head, std::vector<uint8_t>& out);
// Throws Error for a short blob, another magic or version, unknown flags or a stream that
// runs past the blob. The checksum is read, not checked.
BlobHead readBlobHead(const uint8_t* bytes, size_t size);

// The columns after "valid" and "order", sized for the counts, in container order: the record's
// column ranges over all points, the stream's fields over the points outside the stream, the
// bytes after each row's points, the bytes after the rows.
std::vector<Column> recordColumns(const CloudLayout& layout, uint64_t outsidePoints,
                                  uint64_t rowTailBytes, uint64_t trailingDataBytes);

// The columns after "valid" when a companion holds the stream points' other fields: the whole
// records of the points outside the stream, the bytes after each row's points, the bytes after
// the rows.
std::vector<Column> companionModeColumns(const CloudLayout& layout, uint32_t pointStep,
                                         uint64_t outsidePoints, uint64_t rowTailBytes,
                                         uint64_t trailingDataBytes);

// The stream's fields (x, y, z, colour, intensity) in the order their columns take them.
std::vector<StreamField> streamFields(const CloudLayout& layout);

// Column coding of a datatype: differences for integers, XOR for floating-point values.
ColumnCoding codingOf(uint8_t datatype);

}  // namespace zul::ros

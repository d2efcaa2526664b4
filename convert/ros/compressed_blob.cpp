#include "compressed_blob.h"

#include <xxhash.h>

#include <cstring>

#include "ros_error.h"
#include "zul_ros.h"

namespace zul::ros {

namespace {

void put(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int b = 0; b < bytes; ++b) out.push_back(uint8_t(value >> (8 * b)));
}

uint64_t get(const uint8_t* p, int bytes) {
    uint64_t value = 0;
    for (int b = 0; b < bytes; ++b) value |= uint64_t(p[b]) << (8 * b);
    return value;
}

}  // namespace

void writeBlobHead(const BlobHead& head, std::vector<uint8_t>& out) {
    out.insert(out.end(), kBlobMagic, kBlobMagic + 4);
    out.push_back(kBlobVersion);
    out.push_back(head.flags);
    out.push_back(head.trailingMessageBytes);
    out.push_back(0);
    put(out, head.chunkPoints, 4);
    put(out, head.tileColumns, 4);
    put(out, head.trailingDataBytes, 8);
    put(out, head.streamSize, 8);
    put(out, head.checksum, 8);
}

uint64_t blobChecksum(const CloudDescription& cloud, const uint8_t* blob, size_t size) {
    std::vector<uint8_t> layout;
    put(layout, cloud.height, 4);
    put(layout, cloud.width, 4);
    for (const PointField& field : cloud.fields) {
        put(layout, field.name.size(), 4);
        layout.insert(layout.end(), field.name.begin(), field.name.end());
        put(layout, field.offset, 4);
        put(layout, field.datatype, 1);
        put(layout, field.count, 4);
    }
    put(layout, cloud.isBigendian, 1);
    put(layout, cloud.pointStep, 4);
    put(layout, cloud.rowStep, 4);
    const uint64_t head = XXH3_64bits_withSeed(blob, 32, XXH3_64bits(layout.data(), layout.size()));
    return XXH3_64bits_withSeed(blob + kBlobHeadSize, size - kBlobHeadSize, head);
}

BlobHead readBlobHead(const uint8_t* bytes, size_t size) {
    if (size < kBlobHeadSize)
        throw Error("compressed_data holds " + std::to_string(size) + " bytes, less than its " +
                    std::to_string(kBlobHeadSize) + "-byte head");
    if (std::memcmp(bytes, kBlobMagic, 4) != 0)
        throw Error("compressed_data does not start with the zul message signature");
    if (bytes[4] != kBlobVersion)
        throw Error("compressed_data is of version " + std::to_string(bytes[4]) +
                    "; this library reads version " + std::to_string(kBlobVersion));
    BlobHead head;
    head.flags = bytes[5];
    head.trailingMessageBytes = bytes[6];
    head.chunkPoints = uint32_t(get(bytes + 8, 4));
    head.tileColumns = uint32_t(get(bytes + 12, 4));
    head.trailingDataBytes = get(bytes + 16, 8);
    head.streamSize = get(bytes + 24, 8);
    head.checksum = get(bytes + 32, 8);
    if ((head.flags & ~(kIntensityInStream | kMaskPresent | kCompanion | kPredicted)) != 0 ||
        bytes[7] != 0 || ((head.flags & kPredicted) && !(head.flags & kCompanion)))
        throw Error("compressed_data's head has flags or reserved bytes no writer sets");
    if (head.trailingMessageBytes > 3)
        throw Error("compressed_data's head claims " + std::to_string(head.trailingMessageBytes) +
                    " trailing message bytes (at most 3)");
    if (head.chunkPoints < 1 || head.chunkPoints > 65536)
        throw Error("compressed_data's head claims " + std::to_string(head.chunkPoints) +
                    " points a chunk (1 to 65536)");
    if (head.streamSize > size - kBlobHeadSize)
        throw Error("compressed_data's stream of " + std::to_string(head.streamSize) +
                    " bytes runs past its end");
    return head;
}

ColumnCoding codingOf(uint8_t datatype) {
    return datatype == kFloat32 || datatype == kFloat64 ? ColumnCoding::Xor : ColumnCoding::Delta;
}

std::vector<StreamField> streamFields(const CloudLayout& layout) {
    std::vector<StreamField> fields;
    if (!layout.hasPositions) return fields;
    for (const StreamField& axis : layout.position) fields.push_back(axis);
    if (layout.color.field >= 0) fields.push_back(layout.color);
    if (layout.intensity.field >= 0) fields.push_back(layout.intensity);
    return fields;
}

std::vector<Column> recordColumns(const CloudLayout& layout, uint64_t outsidePoints,
                                  uint64_t rowTailBytes, uint64_t trailingDataBytes) {
    std::vector<Column> columns;
    for (const ColumnRange& range : layout.columns) {
        Column column;
        column.name = range.name;
        column.datatype = range.datatype;
        column.valuesPerPoint = range.count;
        column.coding = range.padding ? ColumnCoding::Raw : codingOf(range.datatype);
        column.bytes.resize(layout.points * range.valueSize * range.count);
        columns.push_back(std::move(column));
    }
    const std::vector<StreamField> fields = streamFields(layout);
    for (size_t i = 0; i < fields.size(); ++i) {
        Column column;
        column.name = std::string(fields[i].role) + ".outside";
        column.datatype = fields[i].datatype;
        column.coding = codingOf(fields[i].datatype);
        column.bytes.resize(outsidePoints * datatypeSize(fields[i].datatype));
        columns.push_back(std::move(column));
    }
    Column tails;
    tails.name = "row_tails";
    tails.bytes.resize(rowTailBytes);
    columns.push_back(std::move(tails));
    Column trailing;
    trailing.name = "trailing_data";
    trailing.bytes.resize(trailingDataBytes);
    columns.push_back(std::move(trailing));
    return columns;
}

std::vector<Column> companionModeColumns(const CloudLayout&, uint32_t pointStep,
                                         uint64_t outsidePoints, uint64_t rowTailBytes,
                                         uint64_t trailingDataBytes) {
    std::vector<Column> columns(3);
    columns[0].name = "outside_records";
    columns[0].bytes.resize(outsidePoints * pointStep);
    columns[1].name = "row_tails";
    columns[1].bytes.resize(rowTailBytes);
    columns[2].name = "trailing_data";
    columns[2].bytes.resize(trailingDataBytes);
    return columns;
}

std::vector<DataPart> describeCompressedData(const uint8_t* bytes, size_t size) {
    const BlobHead head = readBlobHead(bytes, size);
    const char* stream = head.flags & kCompanion ? "stream+companion" : "stream";
    std::vector<DataPart> parts{{"head", kBlobHeadSize, kBlobHeadSize},
                                {stream, head.streamSize, head.streamSize}};
    size_t pos = kBlobHeadSize + head.streamSize;
    auto get = [&](int n) {
        if (size_t(n) > size - pos) throw Error("the column container ends inside a column");
        uint64_t value = 0;
        for (int b = 0; b < n; ++b) value |= uint64_t(bytes[pos + b]) << (8 * b);
        pos += size_t(n);
        return value;
    };
    const uint64_t count = get(4);
    for (uint64_t c = 0; c < count; ++c) {
        DataPart part;
        const size_t nameSize = size_t(get(2));
        if (nameSize > size - pos) throw Error("the column container ends inside a column name");
        part.name.assign(reinterpret_cast<const char*>(bytes + pos), nameSize);
        pos += nameSize;
        get(6);
        part.rawBytes = get(8);
        part.codedBytes = get(8);
        if (part.codedBytes > size - pos)
            throw Error("the column container ends inside column '" + part.name + "'");
        pos += size_t(part.codedBytes);
        parts.push_back(part);
    }
    return parts;
}

}  // namespace zul::ros

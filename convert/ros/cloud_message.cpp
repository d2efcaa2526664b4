#include "cloud_message.h"

#include <cstring>
#include <utility>

namespace zul::ros {

namespace {

// The fields before `data` / `compressed_data`.
void readHead(WireReader& in, CloudDescription& cloud) {
    cloud.wire = in.wire();
    cloud.cdrOptions = in.cdrOptions();
    if (!isCdr(cloud.wire)) cloud.header.seq = in.u32("header.seq");
    cloud.header.sec = in.u32("header.stamp.sec");
    cloud.header.nanosec = in.u32("header.stamp.nanosec");
    cloud.header.frameId = in.string("header.frame_id");
    cloud.height = in.u32("height");
    cloud.width = in.u32("width");
    // A field takes at least 10 bytes: an empty name's length, offset, datatype, count.
    const uint32_t n = in.count(10, "fields");
    cloud.fields.resize(n);
    for (PointField& field : cloud.fields) {
        field.name = in.string("a field's name");
        field.offset = in.u32("a field's offset");
        field.datatype = in.u8("a field's datatype");
        field.count = in.u32("a field's count");
    }
    cloud.isBigendian = in.u8("is_bigendian");
    cloud.pointStep = in.u32("point_step");
    cloud.rowStep = in.u32("row_step");
}

void writeHead(WireWriter& out, const CloudDescription& cloud) {
    if (!isCdr(cloud.wire)) out.u32(cloud.header.seq);
    out.u32(cloud.header.sec);
    out.u32(cloud.header.nanosec);
    out.string(cloud.header.frameId);
    out.u32(cloud.height);
    out.u32(cloud.width);
    out.u32(uint32_t(cloud.fields.size()));
    for (const PointField& field : cloud.fields) {
        out.string(field.name);
        out.u32(field.offset);
        out.u8(field.datatype);
        out.u32(field.count);
    }
    out.u8(cloud.isBigendian);
    out.u32(cloud.pointStep);
    out.u32(cloud.rowStep);
}

}  // namespace

PointCloud2View viewPointCloud2(const uint8_t* bytes, size_t size, Serialization family) {
    WireReader in(bytes, size, family, "PointCloud2 message");
    PointCloud2View message;
    readHead(in, message.cloud);
    message.data = in.bytes(message.size, "data");
    message.cloud.isDense = in.u8("is_dense");
    message.cloud.trailingBytes = in.finish();
    return message;
}

PointCloud2 readPointCloud2(const uint8_t* bytes, size_t size, Serialization family) {
    PointCloud2View view = viewPointCloud2(bytes, size, family);
    PointCloud2 message;
    message.cloud = std::move(view.cloud);
    message.data.assign(view.data, view.data + view.size);
    return message;
}

CompressedPointCloud2View viewCompressedPointCloud2(const uint8_t* bytes, size_t size,
                                                    Serialization family) {
    WireReader in(bytes, size, family, "CompressedPointCloud2 message");
    CompressedPointCloud2View message;
    readHead(in, message.cloud);
    message.data = in.bytes(message.size, "compressed_data");
    message.cloud.isDense = in.u8("is_dense");
    message.format = in.string("format");
    message.cloud.trailingBytes = in.finish();
    return message;
}

CompressedPointCloud2 readCompressedPointCloud2(const uint8_t* bytes, size_t size,
                                                Serialization family) {
    CompressedPointCloud2View view = viewCompressedPointCloud2(bytes, size, family);
    CompressedPointCloud2 message;
    message.cloud = std::move(view.cloud);
    message.compressedData.assign(view.data, view.data + view.size);
    message.format = std::move(view.format);
    return message;
}

std::vector<uint8_t> writePointCloud2Room(const CloudDescription& cloud, size_t dataBytes,
                                          size_t& dataOffset) {
    WireWriter out(cloud.wire, cloud.cdrOptions, dataBytes + 64 * cloud.fields.size());
    writeHead(out, cloud);
    dataOffset = out.zeroBytes(dataBytes);
    out.u8(cloud.isDense);
    out.pad(cloud.trailingBytes);
    return out.take();
}

std::vector<uint8_t> writePointCloud2(const PointCloud2& message) {
    size_t at = 0;
    std::vector<uint8_t> out = writePointCloud2Room(message.cloud, message.data.size(), at);
    if (!message.data.empty())
        std::memcpy(out.data() + at, message.data.data(), message.data.size());
    return out;
}

std::vector<uint8_t> writeCompressedPointCloud2(
    const CloudDescription& cloud, const std::string& format, size_t reserve,
    const std::function<void(std::vector<uint8_t>&)>& fill) {
    WireWriter out(cloud.wire, cloud.cdrOptions, reserve + 64 * cloud.fields.size());
    writeHead(out, cloud);
    const size_t lengthAt = out.beginBytes();
    fill(out.output());
    out.endBytes(lengthAt);
    out.u8(cloud.isDense);
    out.string(format);
    return out.take();
}

std::vector<uint8_t> writeCompressedPointCloud2(const CompressedPointCloud2& message) {
    const std::vector<uint8_t>& data = message.compressedData;
    return writeCompressedPointCloud2(
        message.cloud, message.format, data.size(),
        [&](std::vector<uint8_t>& out) { out.insert(out.end(), data.begin(), data.end()); });
}

}  // namespace zul::ros

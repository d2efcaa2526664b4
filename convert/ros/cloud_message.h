// sensor_msgs/PointCloud2 and point_cloud_interfaces/msg/CompressedPointCloud2 as plain records,
// read from and written to their serialised bytes in either serialisation. Reading checks only
// the framing (lengths, strings, what follows the last field); cloud_layout.h judges the fields.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "wire.h"

namespace zul::ros {

// std_msgs/Header of either version: ROS 1 has `seq` and an unsigned `sec`; ROS 2 has no `seq`
// and a signed `sec`, kept here by its bits.
struct MessageHeader {
    uint32_t seq = 0;
    uint32_t sec = 0;
    uint32_t nanosec = 0;
    std::string frameId;
};

// sensor_msgs/PointField. Datatypes: INT8 1, UINT8 2, INT16 3, UINT16 4, INT32 5, UINT32 6,
// FLOAT32 7, FLOAT64 8.
struct PointField {
    std::string name;
    uint32_t offset = 0;
    uint8_t datatype = 0;
    uint32_t count = 0;
};

// What both messages share before and after their data; the booleans are kept as the bytes they
// were, and the serialisation as the message came.
struct CloudDescription {
    Wire wire = Wire::Ros1;
    uint16_t cdrOptions = 0;
    uint8_t trailingBytes = 0;  // zero bytes after the last field (CDR padding), 0 to 3
    MessageHeader header;
    uint32_t height = 0, width = 0;
    std::vector<PointField> fields;
    uint8_t isBigendian = 0;
    uint32_t pointStep = 0, rowStep = 0;
    uint8_t isDense = 0;
};

struct PointCloud2 {
    CloudDescription cloud;
    std::vector<uint8_t> data;
};

// A PointCloud2 whose data lies in its serialised bytes, read without copying them.
struct PointCloud2View {
    CloudDescription cloud;
    const uint8_t* data = nullptr;
    size_t size = 0;
};

struct CompressedPointCloud2 {
    CloudDescription cloud;
    std::vector<uint8_t> compressedData;
    std::string format;
};

// A CompressedPointCloud2 whose compressed_data lies in its serialised bytes.
struct CompressedPointCloud2View {
    CloudDescription cloud;
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::string format;
};

// Parse a serialised message; a message that is cut short, claims more than it holds or has bytes
// after its last field throws Error.
PointCloud2 readPointCloud2(const uint8_t* bytes, size_t size, Serialization family);
// The same with the data left where it is: valid while `bytes` are.
PointCloud2View viewPointCloud2(const uint8_t* bytes, size_t size, Serialization family);
CompressedPointCloud2 readCompressedPointCloud2(const uint8_t* bytes, size_t size,
                                                Serialization family);
// The same with compressed_data left where it is: valid while `bytes` are.
CompressedPointCloud2View viewCompressedPointCloud2(const uint8_t* bytes, size_t size,
                                                    Serialization family);

// Serialise in the record's own serialisation (cloud.wire).
std::vector<uint8_t> writePointCloud2(const PointCloud2& message);
// The same with `dataBytes` zero bytes of data, which start at `dataOffset`, to be filled there.
std::vector<uint8_t> writePointCloud2Room(const CloudDescription& cloud, size_t dataBytes,
                                          size_t& dataOffset);
std::vector<uint8_t> writeCompressedPointCloud2(const CompressedPointCloud2& message);
// The same with compressed_data appended to the output by `fill` (about `reserve` bytes), in place.
std::vector<uint8_t> writeCompressedPointCloud2(
    const CloudDescription& cloud, const std::string& format, size_t reserve,
    const std::function<void(std::vector<uint8_t>&)>& fill);

}  // namespace zul::ros

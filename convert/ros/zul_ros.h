// zul for robots: a serialised sensor_msgs/PointCloud2 in, the fields of a
// point_cloud_interfaces/msg/CompressedPointCloud2 out (format "zul"), and back, free of ROS.
//
// x, y and z (FLOAT32 or FLOAT64) go into a zul stream at the caller's step, as do a packed rgb or
// rgba colour and an intensity whose values the stream holds exactly; every other field, the
// padding between fields and after them, the colour's fourth byte, the points the stream cannot
// hold (NaN or too far out), the message order and the organised layout go into columns beside
// the stream. Decompressing gives the message back with the same header, fields, offsets,
// point_step, row_step, height, width, is_dense and serialisation, every byte of its data equal
// but those of the positions, which lie within half a step of the originals. docs/ros.md
// describes compressed_data byte by byte.
//
// Every failure throws zul::ros::Error with a text that names what is wrong. The functions keep
// no state between calls; different threads may call them at the same time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cloud_message.h"
#include "ros_error.h"

namespace zul::ros {

struct EncodeOptions {
    double step = 0.001;  // grid step of positions, 9.9e-10 to 10 (stored as a float)
    // Stream points a chunk, 1 to 65536. With both this and tileColumns 0, the plan is chosen by
    // the cloud's shape: an organised cloud of at most 128 rows (a lidar) in chunks of 256
    // points (with a companion: in tiles of 2048 / height columns), a taller one (a camera) in
    // chunks of 512 (with a companion: of 4096), a flat one in chunks of 1024.
    uint32_t chunkPoints = 0;
    // An organised cloud (height > 1) cut into tiles of this many columns over all rows, a chunk a
    // tile (height x tileColumns at most 65536); 0: chunks of consecutive points.
    uint32_t tileColumns = 0;
    int zstdLevel = 1;  // of the columns
    // The stream's points' other fields and their message order in a companion
    // (zul_companion.h) beside the stream, the two as its one blob; false: in columns of the
    // message's own container.
    bool companion = true;
    // With a companion: fields that an earlier point of the message predicts well (measured on a
    // sample) sent as their differences to that prediction (docs/ros.md).
    bool predict = true;
    // With `predict`: a whole-number field that follows from the position (a lidar's range) also
    // predicted from the point's distance to the origin. Measured on the generated lidar: 6.4%
    // smaller, decoded about 5% slower.
    bool radialPrediction = false;
};

struct DecodeOptions {
    // The largest data a compressed message may claim; more is refused before anything is
    // allocated.
    uint64_t maxDataBytes = uint64_t(1) << 32;
};

// The format name that CompressedPointCloud2.format carries.
inline const char* formatName() { return "zul"; }

CompressedPointCloud2 compressCloud(const PointCloud2& message, const EncodeOptions& options = {});
PointCloud2 decompressCloud(const CompressedPointCloud2& message,
                            const DecodeOptions& options = {});

// The same on serialised messages: a PointCloud2 in the serialisation `family` (ROS 2: either byte
// order, as its encapsulation header says) to a CompressedPointCloud2 in the same serialisation,
// and back.
std::vector<uint8_t> compressMessage(const uint8_t* bytes, size_t size, Serialization family,
                                     const EncodeOptions& options = {});
std::vector<uint8_t> decompressMessage(const uint8_t* bytes, size_t size, Serialization family,
                                       const DecodeOptions& options = {});

// The parts of a compressed_data, for figures: "head", "stream" (or "stream+companion", the one
// blob of both), then each column of the message's own container by
// name, with the bytes it holds uncoded and coded. Reads the framing only; throws Error for a
// compressed_data whose framing is damaged.
struct DataPart {
    std::string name;
    uint64_t rawBytes = 0, codedBytes = 0;
};
std::vector<DataPart> describeCompressedData(const uint8_t* bytes, size_t size);

}  // namespace zul::ros

// The ROS message codec on any bytes. The first byte picks the serialisation (bit 0: ROS 2) and
// what the rest is:
//  - bit 1 clear: a CompressedPointCloud2. Unless bit 2 is set its checksum is made afresh, so that
//    the checks behind it are reached. Decompressing it either throws zul::ros::Error or gives a
//    PointCloud2 that serialises and compresses again, to the same data.
//  - bit 1 set: a PointCloud2. Compressing it (with bit 2 set also predicting whole numbers from
//    the position) either throws Error or gives a message that decompresses to the original,
//    positions within half a step, all else byte for byte.
// A compressed message may claim at most 16 MiB of data.
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "ros/compressed_blob.h"
#include "ros/sample/cloud_compare.h"
#include "ros/zul_ros.h"

using namespace zul::ros;

namespace {

const uint64_t kMaxData = uint64_t(16) << 20;

void checkCompressed(const uint8_t* data, size_t size, Serialization family, bool keepChecksum) {
    CompressedPointCloud2 compressed;
    try {
        compressed = readCompressedPointCloud2(data, size, family);
    } catch (const Error&) {
        return;
    }
    std::vector<uint8_t>& blob = compressed.compressedData;
    if (!keepChecksum && blob.size() >= kBlobHeadSize) {
        const uint64_t sum = blobChecksum(compressed.cloud, blob.data(), blob.size());
        for (int b = 0; b < 8; ++b) blob[32 + b] = uint8_t(sum >> (8 * b));
    }
    PointCloud2 restored;
    DecodeOptions options;
    options.maxDataBytes = kMaxData;
    try {
        restored = decompressCloud(compressed, options);
    } catch (const Error&) {
        return;
    }
    FUZZ_CHECK(restored.data.size() <= kMaxData);
    // What came out is a cloud the codec takes again, and gives back the same.
    const std::vector<uint8_t> bytes = writePointCloud2(restored);
    const PointCloud2 reread = readPointCloud2(bytes.data(), bytes.size(), family);
    FUZZ_CHECK(reread.data == restored.data);
    const PointCloud2 again = decompressCloud(compressCloud(reread), options);
    FUZZ_CHECK(zul::ros::testing::differenceOf(reread, again, 0.001).empty());
}

void checkCloud(const uint8_t* data, size_t size, Serialization family, bool radial) {
    PointCloud2 cloud;
    CompressedPointCloud2 compressed;
    try {
        cloud = readPointCloud2(data, size, family);
        EncodeOptions options;
        options.radialPrediction = radial;
        compressed = compressCloud(cloud, options);
    } catch (const Error&) {
        return;
    }
    const std::vector<uint8_t> bytes = writeCompressedPointCloud2(compressed);
    const std::vector<uint8_t> back = writePointCloud2(
        decompressCloud(readCompressedPointCloud2(bytes.data(), bytes.size(), family)));
    const PointCloud2 restored = readPointCloud2(back.data(), back.size(), family);
    const std::string difference = zul::ros::testing::differenceOf(cloud, restored, 0.001);
    if (!difference.empty()) std::fprintf(stderr, "%s\n", difference.c_str());
    FUZZ_CHECK(difference.empty());
}

void check(const uint8_t* data, size_t size) {
    if (size == 0) return;
    const uint8_t mode = data[0];
    const Serialization family = mode & 1 ? Serialization::Ros2 : Serialization::Ros1;
    if (mode & 2)
        checkCloud(data + 1, size - 1, family, (mode & 4) != 0);
    else
        checkCompressed(data + 1, size - 1, family, (mode & 4) != 0);
}

}  // namespace

FUZZ_TARGET(check)

// ROS 2 bags of the SQLite storage (.db3): the PointCloud2 topics of a bag through the message
// codec, every other topic and every other table copied as it is.
//
// Compressing writes a copy of the bag in which each topic of type sensor_msgs/msg/PointCloud2
// becomes NAME/zul of type point_cloud_interfaces/msg/CompressedPointCloud2, its messages
// compressed in place (same ids and timestamps); decompressing turns such topics back. A message
// that cannot be converted stays as it was under its old topic, and is named in the result; the
// old topic goes only when it is empty. The bag's metadata.yaml, if any, is not rewritten
// (`ros2 bag reindex` makes it anew).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "zul_ros.h"

namespace zul::ros {

inline const char* kPointCloud2Type = "sensor_msgs/msg/PointCloud2";
inline const char* kCompressedType = "point_cloud_interfaces/msg/CompressedPointCloud2";

struct BagTopic {
    std::string name, type;
    uint64_t messages = 0, bytes = 0;  // bytes: the messages' serialised data
};

struct BagResult {
    uint64_t converted = 0;  // messages converted
    std::vector<std::string>
        problems;  // "topic /points, message 17 at 1700000000000000000 ns: ..."
    bool interrupted = false;
};

// Runs `convert`, which writes the bag `out`, and removes `out` when it throws or is interrupted:
// a bag is converted whole or not at all.
template <typename Convert>
BagResult wholeOrNothing(const std::string& out, Convert&& convert) {
    BagResult result;
    try {
        result = convert();
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(out, ignored);
        throw;
    }
    if (result.interrupted) {
        std::error_code ignored;
        std::filesystem::remove(out, ignored);
    }
    return result;
}

// Called after each message with the number converted so far and the number to convert; returning
// false stops the conversion, and nothing is written.
using BagProgress = std::function<bool(uint64_t done, uint64_t total)>;

// Every topic of the bag with its message count and bytes. Throws Error naming the file if it is
// not an SQLite bag.
std::vector<BagTopic> listSqliteBag(const std::string& path);

// Writes `out` (replaced if it exists) from `in`. Throws Error for a file that cannot be read or
// written or is not an SQLite bag; a message that cannot be converted is a problem of the result.
BagResult compressSqliteBag(const std::string& in, const std::string& out,
                            const EncodeOptions& options = {}, const BagProgress& progress = {});
BagResult decompressSqliteBag(const std::string& in, const std::string& out,
                              const DecodeOptions& options = {}, const BagProgress& progress = {});

}  // namespace zul::ros

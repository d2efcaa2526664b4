// ROS 1 bags (format 2.0), read and written record by record, a chunk at a time: the PointCloud2
// topics of a bag through the message codec, every other topic copied as it is.
//
// Compressing writes a bag in which each connection of type sensor_msgs/PointCloud2 becomes one on
// NAME/zul of type point_cloud_interfaces/CompressedPointCloud2 (its definition and MD5 sum made
// as ROS makes them; the original type, MD5 sum and definition kept in the connection header's
// fields zul_type, zul_md5sum and zul_message_definition), its messages compressed; decompressing
// turns them back. The output's chunks are uncompressed (the clouds are compressed already); its
// index (index data, connections, chunk infos) is written anew. Input chunks may be uncompressed,
// bz2 or lz4. A message that cannot be converted is kept as it was, on its old connection, and
// named in the result; a bag cut short, or damaged in a record, gives the messages before the
// damage, and the damage is named.
#pragma once

#include <string>
#include <vector>

#include "sqlite_bag.h"

namespace zul::ros {

inline const char* kRos1PointCloud2Type = "sensor_msgs/PointCloud2";
inline const char* kRos1CompressedType = "point_cloud_interfaces/CompressedPointCloud2";

// Every topic of the bag (by connection), with its message count and bytes.
std::vector<BagTopic> listRos1Bag(const std::string& path);

BagResult compressRos1Bag(const std::string& in, const std::string& out,
                          const EncodeOptions& options = {}, const BagProgress& progress = {});
BagResult decompressRos1Bag(const std::string& in, const std::string& out,
                            const DecodeOptions& options = {}, const BagProgress& progress = {});

}  // namespace zul::ros

// zul compress, decompress and info on ROS bags (NAME.bag of ROS 1, NAME.db3 of ROS 2): each
// PointCloud2 topic to NAME/zul and back through convert/ros, every other topic as it was.
#pragma once

#include <string>

#include "commands/commands.h"

namespace zulconvert {

// Whether a file is a bag by its name.
bool isBag(const std::string& path);
// The output name of a bag beside its input: scan.bag -> scan.zul.bag, and back.
std::string compressedBagOutput(const std::string& input);
std::string restoredBagOutput(const std::string& input);

int runCompressBag(const CompressOptions& options);
int runDecompressBag(const DecompressOptions& options);
// Prints the bag's topics, the cloud topics marked, with message counts and sizes; with `json`
// one JSON object (no newline after it). Throws FormatError for a bag that cannot be read.
void printBagInfo(const std::string& path, bool json);

}  // namespace zulconvert

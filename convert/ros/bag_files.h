// Bags of either ROS by their file name: NAME.bag is a ROS 1 bag (format 2.0), NAME.db3 a ROS 2
// SQLite bag. The tool and the Python package call these.
#pragma once

#include <string>
#include <vector>

#include "ros1_bag.h"
#include "sqlite_bag.h"

namespace zul::ros {

enum class BagKind { None, Ros1, Sqlite };

// By the extension, in any case: .bag or .db3; None for any other name.
BagKind bagKindOf(const std::string& path);

// As compressRos1Bag / compressSqliteBag and the others, for the kind of `in`; throws Error for a
// file that is neither. The output is of the same kind.
std::vector<BagTopic> listBag(const std::string& path);
BagResult compressBag(const std::string& in, const std::string& out,
                      const EncodeOptions& options = {}, const BagProgress& progress = {});
BagResult decompressBag(const std::string& in, const std::string& out,
                        const DecodeOptions& options = {}, const BagProgress& progress = {});

// The name a compressed bag gets beside its input: scan.bag -> scan.zul.bag; and back:
// scan.zul.bag -> scan.bag, any other -> NAME.restored.EXT.
std::string compressedBagName(const std::string& path);
std::string restoredBagName(const std::string& path);

}  // namespace zul::ros

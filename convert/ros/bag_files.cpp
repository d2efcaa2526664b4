#include "bag_files.h"

#include <algorithm>
#include <filesystem>

namespace zul::ros {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

BagKind kindOrThrow(const std::string& path) {
    const BagKind kind = bagKindOf(path);
    if (kind == BagKind::None)
        throw Error(path + ": not a bag by its name (a ROS 1 .bag or a ROS 2 .db3)");
    return kind;
}

}  // namespace

BagKind bagKindOf(const std::string& path) {
    const std::string extension = lower(std::filesystem::path(path).extension().string());
    if (extension == ".bag") return BagKind::Ros1;
    if (extension == ".db3") return BagKind::Sqlite;
    return BagKind::None;
}

std::vector<BagTopic> listBag(const std::string& path) {
    return kindOrThrow(path) == BagKind::Ros1 ? listRos1Bag(path) : listSqliteBag(path);
}

BagResult compressBag(const std::string& in, const std::string& out, const EncodeOptions& options,
                      const BagProgress& progress) {
    return kindOrThrow(in) == BagKind::Ros1 ? compressRos1Bag(in, out, options, progress)
                                            : compressSqliteBag(in, out, options, progress);
}

BagResult decompressBag(const std::string& in, const std::string& out, const DecodeOptions& options,
                        const BagProgress& progress) {
    return kindOrThrow(in) == BagKind::Ros1 ? decompressRos1Bag(in, out, options, progress)
                                            : decompressSqliteBag(in, out, options, progress);
}

std::string compressedBagName(const std::string& path) {
    std::filesystem::path p(path);
    return (p.parent_path() / (p.stem().string() + ".zul" + p.extension().string())).string();
}

std::string restoredBagName(const std::string& path) {
    std::filesystem::path p(path);
    const std::string stem = p.stem().string();
    if (stem.size() > 4 && lower(stem.substr(stem.size() - 4)) == ".zul")
        return (p.parent_path() / (stem.substr(0, stem.size() - 4) + p.extension().string()))
            .string();
    return (p.parent_path() / (stem + ".restored" + p.extension().string())).string();
}

}  // namespace zul::ros

#include "commands/bag_command.h"

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/json_text.h"
#include "commands/output_file.h"
#include "commands/progress_bar.h"
#include "formats/cloud.h"
#include "ros/bag_files.h"

namespace zulconvert {

using zulformats::FormatError;

namespace {

bool isCloudType(const std::string& type) {
    return type == zul::ros::kPointCloud2Type || type == zul::ros::kCompressedType ||
           type == zul::ros::kRos1PointCloud2Type || type == zul::ros::kRos1CompressedType;
}

// Runs a bag conversion into `output`'s temporary file with a progress bar, reports what could
// not be converted, and commits the output.
template <typename Convert>
int convertBag(const std::string& input, const std::string& output, bool force, bool quiet,
               const char* verb, Convert convert) {
    OutputFile file(output, force);
    std::unique_ptr<ProgressBar> bar;
    zul::ros::BagResult result;
    const uint64_t before = std::filesystem::file_size(input);
    try {
        result = convert(file.temporaryPath(), [&](uint64_t done, uint64_t total) {
            if (!bar) bar = std::make_unique<ProgressBar>(input, total, quiet);
            bar->update(done);
            return true;
        });
    } catch (const zul::ros::Error& error) {
        throw FormatError(error.what());
    }
    if (bar) bar->finish();
    bar.reset();
    file.commit();
    for (const std::string& problem : result.problems) std::cerr << "zul: " << problem << "\n";
    if (!quiet) {
        std::cerr << "zul: " << input << " -> " << output << ": " << result.converted
                  << " cloud messages " << verb << ", " << before << " -> "
                  << std::filesystem::file_size(output) << " bytes\n";
    }
    return result.problems.empty() ? 0 : 1;
}

}  // namespace

bool isBag(const std::string& path) { return zul::ros::bagKindOf(path) != zul::ros::BagKind::None; }

std::string compressedBagOutput(const std::string& input) {
    return std::filesystem::path(zul::ros::compressedBagName(input)).filename().string();
}

std::string restoredBagOutput(const std::string& input) {
    return std::filesystem::path(zul::ros::restoredBagName(input)).filename().string();
}

int runCompressBag(const CompressOptions& options) {
    if (zul::ros::bagKindOf(options.output) != zul::ros::bagKindOf(options.input))
        throw FormatError(options.output + ": a compressed bag keeps its input's kind; name it " +
                          compressedBagOutput(options.input));
    zul::ros::EncodeOptions encode;
    if (options.step > 0) encode.step = options.step;
    return convertBag(options.input, options.output, options.force, options.quiet, "compressed",
                      [&](const std::string& out, const zul::ros::BagProgress& progress) {
                          return zul::ros::compressBag(options.input, out, encode, progress);
                      });
}

int runDecompressBag(const DecompressOptions& options) {
    if (zul::ros::bagKindOf(options.output) != zul::ros::bagKindOf(options.input))
        throw FormatError(options.output + ": a restored bag keeps its input's kind; name it " +
                          restoredBagOutput(options.input));
    return convertBag(options.input, options.output, options.force, options.quiet, "decompressed",
                      [&](const std::string& out, const zul::ros::BagProgress& progress) {
                          return zul::ros::decompressBag(options.input, out, {}, progress);
                      });
}

void printBagInfo(const std::string& path, bool json) {
    std::vector<zul::ros::BagTopic> topics;
    try {
        topics = zul::ros::listBag(path);
    } catch (const zul::ros::Error& error) {
        throw FormatError(error.what());
    }
    const char* kind =
        zul::ros::bagKindOf(path) == zul::ros::BagKind::Ros1 ? "ROS 1 bag" : "ROS 2 SQLite bag";
    if (json) {
        std::printf("{\"file\": %s, \"kind\": \"%s\", \"topics\": [", jsonString(path).c_str(),
                    kind);
        for (size_t i = 0; i < topics.size(); ++i) {
            const zul::ros::BagTopic& t = topics[i];
            std::printf("%s{\"name\": %s, \"type\": %s, \"cloud\": %s, \"messages\": %" PRIu64
                        ", \"bytes\": %" PRIu64 "}",
                        i ? ", " : "", jsonString(t.name).c_str(), jsonString(t.type).c_str(),
                        isCloudType(t.type) ? "true" : "false", t.messages, t.bytes);
        }
        std::printf("]}");
        return;
    }
    std::printf("%s: %s, %zu topics\n", path.c_str(), kind, topics.size());
    for (const zul::ros::BagTopic& t : topics) {
        std::printf("  %s %-24s %-46s %8" PRIu64 " messages %14" PRIu64 " bytes\n",
                    isCloudType(t.type) ? "cloud" : "     ", t.name.c_str(), t.type.c_str(),
                    t.messages, t.bytes);
    }
}

}  // namespace zulconvert

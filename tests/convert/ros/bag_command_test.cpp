// The zul tool on bags: compress, info and decompress of a ROS 1 and a ROS 2 bag by their names,
// the restored clouds compared message by message; an existing output is not replaced without -f.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ros/bag_files.h"
#include "ros/ros1_bag_records.h"
#include "ros/sample/cloud_compare.h"
#include "ros/sample/sensor_messages.h"
#include "support/temp_folder.h"

namespace zul::ros {
namespace {

namespace fs = std::filesystem;

struct ToolRun {
    int status;
    std::string output;  // stdout and stderr
};

ToolRun runTool(const std::string& arguments, const fs::path& folder) {
    const fs::path log = folder / "tool.log";
    const std::string command = "cd '" + folder.string() + "' && '" ZUL_TOOL_PATH "' " + arguments +
                                " > '" + log.string() + "' 2>&1";
    const int raw = std::system(command.c_str());
    std::ifstream in(log);
    std::stringstream text;
    text << in.rdbuf();
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, text.str()};
}

// A ROS 1 bag of three lidar messages; their serialised bytes in `clouds`.
void writeRos1Bag(const fs::path& path, std::vector<std::vector<uint8_t>>& clouds) {
    BagWriter writer(path.string());
    BagFields header;
    header.set("topic", "/points");
    header.set("type", kRos1PointCloud2Type);
    header.set("md5sum", "1158d486dd51d683ce2f1be655c3c181");
    writer.connection(0, "/points", header);
    for (uint32_t i = 0; i < 3; ++i) {
        clouds.push_back(writePointCloud2(testing::makeSensorMessage(
            {testing::Sensor::OrganisedLidar, 16, 128}, Wire::Ros1, false, i)));
        writer.message(0, 10 + i, clouds.back().data(), clouds.back().size());
    }
    writer.close();
}

using BagCommand = TempFolderTest;

TEST_F(BagCommand, CompressInfoDecompress) {
    std::vector<std::vector<uint8_t>> clouds;
    writeRos1Bag(folder / "scan.bag", clouds);
    ToolRun run = runTool("compress scan.bag", folder);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("scan.bag -> scan.zul.bag: 3 cloud messages compressed"),
              std::string::npos)
        << run.output;
    run = runTool("info --json scan.zul.bag", folder);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("{\"name\": \"/points/zul\", \"type\": "
                              "\"point_cloud_interfaces/CompressedPointCloud2\", \"cloud\": true, "
                              "\"messages\": 3"),
              std::string::npos)
        << run.output;
    // The restored bag would be scan.bag, which is there.
    run = runTool("decompress scan.zul.bag", folder);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("scan.bag: exists already"), std::string::npos) << run.output;
    run = runTool("decompress -q scan.zul.bag back.bag", folder);
    ASSERT_EQ(run.status, 0) << run.output;
    BagReader reader((folder / "back.bag").string());
    BagRecord record;
    size_t message = 0;
    while (reader.next(record)) {
        if (record.op != kOpMessage) continue;
        ASSERT_LT(message, clouds.size());
        const std::vector<uint8_t>& original = clouds[message++];
        EXPECT_EQ(testing::differenceOf(
                      readPointCloud2(original.data(), original.size(), Serialization::Ros1),
                      readPointCloud2(record.data.data(), record.data.size(), Serialization::Ros1),
                      0.001),
                  "");
    }
    EXPECT_EQ(message, 3u);
}

TEST_F(BagCommand, DamagedBagsAreNamed) {
    std::vector<std::vector<uint8_t>> clouds;
    writeRos1Bag(folder / "scan.bag", clouds);
    fs::resize_file(folder / "scan.bag", fs::file_size(folder / "scan.bag") - 100);
    ToolRun run = runTool("compress scan.bag", folder);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("scan.bag: record at byte"), std::string::npos) << run.output;
    { std::ofstream(folder / "notes.db3") << "no database"; }
    run = runTool("info notes.db3", folder);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("notes.db3"), std::string::npos) << run.output;
    EXPECT_FALSE(fs::exists(folder / "notes.zul.db3"));
}

}  // namespace
}  // namespace zul::ros

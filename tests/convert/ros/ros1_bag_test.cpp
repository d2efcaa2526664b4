// ROS 1 bags written here of sensor-shaped clouds and another topic: compressed, listed, restored
// and compared message by message; a bag cut short keeps the chunks before the cut and names it.
// (python/tests/test_ros.py checks the bags against Debian's rosbag.)
#include "ros/ros1_bag.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "ros/ros1_bag_records.h"
#include "ros/sample/cloud_compare.h"
#include "ros/sample/sensor_messages.h"
#include "support/temp_folder.h"

namespace zul::ros {
namespace {

namespace fs = std::filesystem;
using testing::Sensor;

BagFields connectionHeader(const std::string& topic, const std::string& type) {
    BagFields header;
    header.set("topic", topic);
    header.set("type", type);
    header.set("md5sum", type == kRos1PointCloud2Type ? "1158d486dd51d683ce2f1be655c3c181" : "*");
    header.set("message_definition", "the definition of " + type);
    header.set("callerid", "/driver");
    return header;
}

// All messages by (topic, message number).
std::map<std::pair<std::string, int>, std::vector<uint8_t>> readAll(const fs::path& path) {
    BagReader reader(path.string());
    std::map<uint32_t, std::string> topics;
    std::map<std::string, int> numbers;
    std::map<std::pair<std::string, int>, std::vector<uint8_t>> out;
    BagRecord record;
    while (reader.next(record)) {
        const uint32_t id = record.header.u32("conn");
        if (record.op == kOpConnection) {
            topics[id] = parseFields(record.data.data(), record.data.size(), "").text("topic");
        } else {
            const std::string& topic = topics.at(id);
            out[{topic, numbers[topic]++}] = record.data;
        }
    }
    return out;
}

class Ros1Bag : public TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        BagWriter writer((folder / "scan.bag").string());
        writer.connection(0, "/points", connectionHeader("/points", kRos1PointCloud2Type));
        writer.connection(1, "/odom", connectionHeader("/odom", "nav_msgs/Odometry"));
        for (uint32_t i = 0; i < 12; ++i) {
            const PointCloud2 cloud = testing::makeSensorMessage(
                {i % 2 ? Sensor::FlatLidar : Sensor::OrganisedLidar, 16, i % 2 ? 4096u : 256u},
                Wire::Ros1, false, i);
            clouds_.push_back(writePointCloud2(cloud));
            writer.message(0, uint64_t(100 + i) | uint64_t(i) << 32, clouds_.back().data(),
                           clouds_.back().size());
            const std::vector<uint8_t> odom(40, uint8_t(i));
            writer.message(1, uint64_t(100 + i), odom.data(), odom.size());
        }
        std::vector<uint8_t> damaged = clouds_[0];
        damaged[40] = 0xff;  // the frame_id's length runs past the message
        writer.message(0, 200, damaged.data(), damaged.size());
        writer.close();
    }
    std::vector<std::vector<uint8_t>> clouds_;
};

TEST_F(Ros1Bag, CloudTopicsCompressAndComeBack) {
    const fs::path bag = folder / "scan.bag", packed = folder / "scan.zul.bag",
                   back = folder / "back.bag";
    const BagResult result = compressRos1Bag(bag.string(), packed.string());
    EXPECT_EQ(result.converted, 12u);
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_NE(result.problems[0].find("topic /points, message 12 at 200.0 s: PointCloud2 message:"),
              std::string::npos)
        << result.problems[0];
    std::map<std::string, BagTopic> topics;
    for (const BagTopic& t : listRos1Bag(packed.string())) topics[t.name] = t;
    EXPECT_EQ(topics["/points/zul"].messages, 12u);
    EXPECT_EQ(topics["/points/zul"].type, kRos1CompressedType);
    EXPECT_EQ(topics["/points"].messages, 1u);
    EXPECT_EQ(topics["/odom"].messages, 12u);
    EXPECT_LT(fs::file_size(packed), fs::file_size(bag) / 2);

    EXPECT_EQ(decompressRos1Bag(packed.string(), back.string()).converted, 12u);
    const auto before = readAll(bag), after = readAll(back);
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [key, bytes] : before) {
        ASSERT_EQ(after.count(key), 1u) << key.first << " " << key.second;
        if (key.first == "/odom" || key.second == 12) {
            EXPECT_EQ(after.at(key), bytes);
            continue;
        }
        const std::vector<uint8_t>& restored = after.at(key);
        EXPECT_EQ(
            testing::differenceOf(
                readPointCloud2(bytes.data(), bytes.size(), Serialization::Ros1),
                readPointCloud2(restored.data(), restored.size(), Serialization::Ros1), 0.001),
            "");
    }
    // The restored connection is the original's, header field for field.
    BagReader reader(back.string());
    BagRecord record;
    while (reader.next(record) && record.op != kOpConnection) {
    }
    EXPECT_EQ(parseFields(record.data.data(), record.data.size(), "").fields,
              connectionHeader("/points", kRos1PointCloud2Type).fields);
}

TEST_F(Ros1Bag, CutBagKeepsWhatComesBeforeTheCut) {
    const fs::path bag = folder / "scan.bag", cut = folder / "cut.bag", packed = folder / "out.bag";
    fs::copy_file(bag, cut);
    fs::resize_file(cut, fs::file_size(bag) * 2 / 3);
    const BagResult result = compressRos1Bag(cut.string(), packed.string());
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_NE(result.problems[0].find(cut.string() + ": record at byte"), std::string::npos)
        << result.problems[0];
    EXPECT_NE(result.problems[0].find("the bag ends inside its data"), std::string::npos)
        << result.problems[0];
    EXPECT_GT(result.converted, 0u);
    EXPECT_GT(listRos1Bag(packed.string()).size(), 0u);

    EXPECT_THROW(compressRos1Bag((folder / "none.bag").string(), packed.string()), Error);
    EXPECT_FALSE(fs::exists(packed));
}

}  // namespace
}  // namespace zul::ros

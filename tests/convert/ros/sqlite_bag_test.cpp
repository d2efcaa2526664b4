// ROS 2 SQLite bags of sensor-shaped clouds and other topics: compressed, listed, restored and
// compared message by message; a damaged message is named and left as it was.
#include "ros/sqlite_bag.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "ros/sample/cloud_compare.h"
#include "ros/sample/sensor_messages.h"
#include "support/temp_folder.h"

namespace zul::ros {
namespace {

namespace fs = std::filesystem;
using testing::Sensor;

struct BagMessage {
    int64_t topic, stamp;
    std::vector<uint8_t> data;
};

const char* kSchema =
    "CREATE TABLE schema(schema_version INTEGER PRIMARY KEY, ros_distro TEXT NOT NULL);"
    "INSERT INTO schema VALUES (3, 'humble');"
    "CREATE TABLE topics(id INTEGER PRIMARY KEY, name TEXT NOT NULL, type TEXT NOT NULL,"
    " serialization_format TEXT NOT NULL, offered_qos_profiles TEXT NOT NULL);"
    "CREATE TABLE messages(id INTEGER PRIMARY KEY, topic_id INTEGER NOT NULL,"
    " timestamp INTEGER NOT NULL, data BLOB NOT NULL);"
    "CREATE INDEX timestamp_idx ON messages (timestamp ASC);"
    "INSERT INTO topics VALUES (1, '/points', 'sensor_msgs/msg/PointCloud2', 'cdr', 'qos: a');"
    "INSERT INTO topics VALUES (2, '/tf', 'tf2_msgs/msg/TFMessage', 'cdr', '');"
    "INSERT INTO topics VALUES (3, '/camera/points', 'sensor_msgs/msg/PointCloud2', 'cdr', '');";

void writeBag(const fs::path& path, const std::vector<BagMessage>& messages) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO messages (topic_id, timestamp, data) VALUES (?, ?, ?)", -1,
                       &insert, nullptr);
    for (const BagMessage& m : messages) {
        sqlite3_reset(insert);
        sqlite3_bind_int64(insert, 1, m.topic);
        sqlite3_bind_int64(insert, 2, m.stamp);
        sqlite3_bind_blob(insert, 3, m.data.data(), int(m.data.size()), SQLITE_STATIC);
        ASSERT_EQ(sqlite3_step(insert), SQLITE_DONE);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
}

// Message data by (topic name, timestamp).
std::map<std::pair<std::string, int64_t>, std::vector<uint8_t>> readBag(const fs::path& path) {
    std::map<std::pair<std::string, int64_t>, std::vector<uint8_t>> out;
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT t.name, m.timestamp, m.data FROM messages m JOIN topics t ON "
                       "t.id = m.topic_id",
                       -1, &s, nullptr);
    while (sqlite3_step(s) == SQLITE_ROW) {
        const auto* bytes = static_cast<const uint8_t*>(sqlite3_column_blob(s, 2));
        out[{reinterpret_cast<const char*>(sqlite3_column_text(s, 0)),
             sqlite3_column_int64(s, 1)}] =
            std::vector<uint8_t>(bytes, bytes + sqlite3_column_bytes(s, 2));
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return out;
}

using SqliteBag = TempFolderTest;

TEST_F(SqliteBag, CloudTopicsCompressAndComeBack) {
    std::vector<BagMessage> messages;
    std::vector<PointCloud2> clouds;
    for (int i = 0; i < 3; ++i) {
        clouds.push_back(testing::makeSensorMessage(
            {Sensor::OrganisedLidar, 16, 128}, i == 1 ? Wire::CdrBig : Wire::CdrLittle, false, i));
        messages.push_back({1, 1000 + i, writePointCloud2(clouds.back())});
        messages.push_back({2, 1000 + i, {1, 2, 3, uint8_t(i)}});
    }
    clouds.push_back(
        testing::makeSensorMessage({Sensor::RgbCamera, 24, 32}, Wire::CdrLittle, false, 9));
    messages.push_back({3, 2000, writePointCloud2(clouds.back())});
    std::vector<uint8_t> damaged = messages[0].data;
    damaged.resize(damaged.size() / 2);
    messages.push_back({1, 3000, damaged});
    const fs::path bag = folder / "scan.db3", packed = folder / "scan.zul.db3",
                   back = folder / "back.db3";
    writeBag(bag, messages);

    uint64_t calls = 0;
    const BagResult result = compressSqliteBag(bag, packed, {}, [&](uint64_t done, uint64_t total) {
        EXPECT_EQ(total, 5u);
        EXPECT_EQ(done, ++calls);
        return true;
    });
    EXPECT_EQ(result.converted, 4u);
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_NE(result.problems[0].find(
                  "topic /points, message 8 at 3000 ns: PointCloud2 message: data claims"),
              std::string::npos)
        << result.problems[0];

    std::map<std::string, BagTopic> topics;
    for (const BagTopic& t : listSqliteBag(packed)) topics[t.name] = t;
    ASSERT_EQ(topics.size(), 4u);
    EXPECT_EQ(topics["/points/zul"].type, kCompressedType);
    EXPECT_EQ(topics["/points/zul"].messages, 3u);
    EXPECT_EQ(topics["/points"].messages, 1u);  // the damaged one, as it was
    EXPECT_EQ(topics["/camera/points/zul"].messages, 1u);
    EXPECT_EQ(topics["/tf"].messages, 3u);
    EXPECT_LT(fs::file_size(packed), fs::file_size(bag) / 2);

    decompressSqliteBag(packed, back);
    const auto before = readBag(bag), after = readBag(back);
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [key, bytes] : before) {
        ASSERT_EQ(after.count(key), 1u) << key.first << " " << key.second;
        const std::vector<uint8_t>& restored = after.at(key);
        if (key.first == "/tf" || key.second == 3000) {
            EXPECT_EQ(restored, bytes);
            continue;
        }
        EXPECT_EQ(restored.size(), bytes.size());
        EXPECT_EQ(
            testing::differenceOf(
                readPointCloud2(bytes.data(), bytes.size(), Serialization::Ros2),
                readPointCloud2(restored.data(), restored.size(), Serialization::Ros2), 0.001),
            "");
    }
}

TEST_F(SqliteBag, InterruptedWritesNothingAndOtherFilesAreNamed) {
    const fs::path bag = folder / "scan.db3", packed = folder / "out.db3";
    writeBag(bag, {{1, 1,
                    writePointCloud2(testing::makeSensorMessage({Sensor::FlatLidar, 1, 100},
                                                                Wire::CdrLittle, false, 1))},
                   {1, 2,
                    writePointCloud2(testing::makeSensorMessage({Sensor::FlatLidar, 1, 100},
                                                                Wire::CdrLittle, false, 2))}});
    const BagResult result =
        compressSqliteBag(bag, packed, {}, [](uint64_t, uint64_t) { return false; });
    EXPECT_TRUE(result.interrupted);
    EXPECT_FALSE(fs::exists(packed));

    const fs::path text = folder / "notes.db3";
    {
        std::ofstream(text)
            << "not a database at all, but long enough to be read as a header......";
    }
    try {
        compressSqliteBag(text, packed);
        ADD_FAILURE() << "a text file was taken for a bag";
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find(text.string()), std::string::npos) << error.what();
    }
    EXPECT_FALSE(fs::exists(packed));
}

}  // namespace
}  // namespace zul::ros

// The bulk encoder writes byte for byte what the file writer writes for the same chunks and seed,
// at every thread count, and what one encoder makes for a plan of uneven chunks; bad arguments
// and a chunk the encoder refuses are reported.
#include <gtest/gtest.h>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"

using namespace bulktest;

namespace {

const unsigned kSeed = 1234;

struct FixedSeed {
    FixedSeed() { zul_test_useFixedRandomSeed(true, kSeed); }
    ~FixedSeed() { zul_test_useFixedRandomSeed(false, 0); }
};

struct EncodeCase {
    zul_ColorMode color;
    bool reflection, normals, turned;
    int64_t points;
    int chunk;
};

class BulkEncodeTest : public TempFolderTest, public ::testing::WithParamInterface<EncodeCase> {};

TEST_P(BulkEncodeTest, WritesTheWritersBytes) {
    const EncodeCase c = GetParam();
    const FixedSeed seed;
    const zul_DataType type = dataType(c.color, c.reflection, c.normals);
    const zul_Header2 header = turningHeader();
    const zul_Header2* h = c.turned ? &header : nullptr;
    Arrays cloud = makeCloud(type, c.points, 21);
    const std::string reference = path("writer.zul"), bulk = path("bulk.zul");
    writeWithWriter(reference, cloud, type, h, c.chunk);
    const std::vector<char> expected = fileBytes(reference);
    const zul_bulk_Points points = cloud.view();
    for (int threads : {1, 2, 3, 0}) {
        SCOPED_TRACE(threads);
        int64_t failed = 9;
        ASSERT_EQ(zul_bulk_encodeFile(bulk.c_str(), &type, h, &points, nullptr, 0, c.chunk, threads,
                                      &failed),
                  zul_STATUS_OK);
        EXPECT_EQ(failed, -1);
        EXPECT_TRUE(fileBytes(bulk) == expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, BulkEncodeTest,
    ::testing::Values(EncodeCase{zul_COLOR_NONE, false, false, false, 5000, 300},
                      EncodeCase{zul_COLOR_RGB565, true, false, false, 3001, 1000},
                      EncodeCase{zul_COLOR_RGB888, true, true, true, 4000, 250},
                      EncodeCase{zul_COLOR_NONE, false, true, true, 777, 10000},
                      EncodeCase{zul_COLOR_RGB888, false, false, false, 0, 100}));

class BulkEncodePlanTest : public TempFolderTest {};

// Chunks of uneven sizes: the bytes one encoder makes for them, one after the other.
TEST_F(BulkEncodePlanTest, FollowsThePlan) {
    const FixedSeed seed;
    const zul_DataType type = dataType(zul_COLOR_RGB888, true, false);
    Arrays cloud = makeCloud(type, 2000, 4);
    const std::vector<int32_t> plan = {1, 999, 300, 650, 50};
    std::vector<char> expected;
    zul_enc_Context encoder = nullptr;
    ASSERT_EQ(zul_enc_open(&encoder, &type), zul_STATUS_OK);
    const char* bytes;
    int size;
    zul_enc_createFileSignature(encoder, &bytes);
    expected.insert(expected.end(), bytes, bytes + 8);
    zul_enc_encodeFileHeader(encoder, &bytes, &size);
    expected.insert(expected.end(), bytes, bytes + size);
    zul_bulk_Points all = cloud.view();
    int64_t first = 0;
    for (int32_t count : plan) {
        zul_PointData chunk = {count, all.positions + 3 * first, all.colors + 3 * first,
                               all.reflections + first, nullptr};
        ASSERT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &chunk), zul_STATUS_OK);
        expected.insert(expected.end(), bytes, bytes + size);
        first += count;
    }
    zul_enc_close(&encoder);
    const std::string file = path("plan.zul");
    for (int threads : {1, 3}) {
        ASSERT_EQ(zul_bulk_encodeFile(file.c_str(), &type, nullptr, &all, plan.data(),
                                      static_cast<int64_t>(plan.size()), 0, threads, nullptr),
                  zul_STATUS_OK);
        EXPECT_TRUE(fileBytes(file) == expected) << threads << " threads";
    }
}

// Without the fixed seed every encoder draws a marker of its own; the chunks of all threads must
// carry the stream's one marker, or the index stops at the first chunk of another thread.
TEST_F(BulkEncodePlanTest, EveryChunkCarriesTheStreamsMarker) {
    const zul_DataType type = dataType(zul_COLOR_NONE, false, false);
    Arrays cloud = makeCloud(type, 60000, 8);
    const zul_bulk_Points points = cloud.view();
    const std::string file = path("markers.zul");
    ASSERT_EQ(
        zul_bulk_encodeFile(file.c_str(), &type, nullptr, &points, nullptr, 0, 1500, 3, nullptr),
        zul_STATUS_OK);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    zul_Status damage;
    int64_t chunks = 0;
    ASSERT_EQ(zul_idx_getDamage(handle.index, &damage, &chunks, nullptr), zul_STATUS_OK);
    EXPECT_EQ(damage, zul_STATUS_OK);
    EXPECT_EQ(chunks, 40);
}

// A normal too short to encode in chunk 2 of 4: that chunk is named and the file holds the two
// before it, as the reader finds.
TEST_F(BulkEncodePlanTest, NamesTheChunkTheEncoderRefuses) {
    const zul_DataType type = dataType(zul_COLOR_NONE, false, true);
    Arrays cloud = makeCloud(type, 400, 4);
    cloud.normals[3 * 250] = cloud.normals[3 * 250 + 1] = cloud.normals[3 * 250 + 2] = 0.0f;
    const zul_bulk_Points points = cloud.view();
    const std::string file = path("refused.zul");
    for (int threads : {1, 2, 3}) {
        int64_t failed = -1;
        EXPECT_EQ(zul_bulk_encodeFile(file.c_str(), &type, nullptr, &points, nullptr, 0, 100,
                                      threads, &failed),
                  zul_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(failed, 2);
        zul_Status end;
        EXPECT_EQ(readWithReader(file, &end).size(), 200u);
        EXPECT_EQ(end, zul_STATUS_END_OF_FILE);
    }
}

TEST_F(BulkEncodePlanTest, RefusesBadArguments) {
    const zul_DataType type = dataType(zul_COLOR_RGB888, false, false);
    zul_DataType badType = type;
    badType.quantizationStep = 0.0f;
    Arrays cloud = makeCloud(type, 100, 4);
    const zul_bulk_Points points = cloud.view();
    zul_bulk_Points noColors = points;
    noColors.colors = nullptr;
    const std::string file = path("never.zul");
    const char* f = file.c_str();
    const int32_t shortPlan[] = {50, 49}, longPlan[] = {50, 51}, zeroPlan[] = {0, 100};
    const struct {
        const char* name;
        zul_Status got;
    } cases[] = {
        {"null path",
         zul_bulk_encodeFile(nullptr, &type, nullptr, &points, nullptr, 0, 0, 1, nullptr)},
        {"invalid type",
         zul_bulk_encodeFile(f, &badType, nullptr, &points, nullptr, 0, 0, 1, nullptr)},
        {"missing colours",
         zul_bulk_encodeFile(f, &type, nullptr, &noColors, nullptr, 0, 0, 1, nullptr)},
        {"negative threads",
         zul_bulk_encodeFile(f, &type, nullptr, &points, nullptr, 0, 0, -2, nullptr)},
        {"negative chunk size",
         zul_bulk_encodeFile(f, &type, nullptr, &points, nullptr, 0, -1, 1, nullptr)},
        {"plan too short",
         zul_bulk_encodeFile(f, &type, nullptr, &points, shortPlan, 2, 0, 1, nullptr)},
        {"plan too long",
         zul_bulk_encodeFile(f, &type, nullptr, &points, longPlan, 2, 0, 1, nullptr)},
        {"empty chunk in plan",
         zul_bulk_encodeFile(f, &type, nullptr, &points, zeroPlan, 2, 0, 1, nullptr)},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, zul_STATUS_INVALID_ARGUMENT) << c.name;
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(zul_bulk_encodeFile(path("no/such/folder.zul").c_str(), &type, nullptr, &points,
                                  nullptr, 0, 0, 1, nullptr),
              zul_STATUS_WRITE_ERROR);
}

}  // namespace

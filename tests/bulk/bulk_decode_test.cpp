// The bulk calls against the file writer and reader, for every attribute combination and thread
// count: the bulk encoder writes the writer's bytes, the bulk decoder gives what the reader
// gives, and a box query decodes exactly the points of a full decode in the box.
#include <gtest/gtest.h>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"

using namespace bulktest;

namespace {

struct Combination {
    zul_ColorMode color;
    bool reflection, normals;
    int64_t points;
    int chunk;
};

// Every combination, the sensor header with the normals; a few rows of uneven, single and no
// chunks.
std::vector<Combination> allCombinations() {
    std::vector<Combination> all;
    for (zul_ColorMode color : {zul_COLOR_NONE, zul_COLOR_RGB565, zul_COLOR_RGB888})
        for (bool reflection : {false, true})
            for (bool normals : {false, true})
                all.push_back({color, reflection, normals, 2300, 500});
    all[1].points = 777, all[1].chunk = 10000;
    all[4].points = 3001, all[4].chunk = 1000;
    all[6].points = 0;
    return all;
}

class BulkRoundTrip : public TempFolderTest, public ::testing::WithParamInterface<Combination> {};

TEST_P(BulkRoundTrip, EncodesTheWritersBytesAndDecodesWhatTheReaderReads) {
    const Combination c = GetParam();
    const zul_DataType type = makeDataType(0.001f, c.color, c.reflection ? 4000 : 0, c.normals);
    const zul_Header2 header = turningHeader();
    const zul_Header2* h = c.normals ? &header : nullptr;
    Arrays cloud = makeCloud(type, c.points, 11);
    const std::string file = path("cloud.zul"), bulk = path("bulk.zul");
    zul_test_useFixedRandomSeed(true, 1234);
    writeWithWriter(file, cloud, type, h, c.chunk);
    const std::string bytes = readFile(file);
    const zul_bulk_Points given = cloud.view();
    for (int threads : {1, 2, 3, 0}) {
        SCOPED_TRACE(threads);
        int64_t failed = 9;
        ASSERT_EQ(zul_bulk_encodeFile(bulk.c_str(), &type, h, &given, nullptr, 0, c.chunk, threads,
                                      &failed),
                  zul_STATUS_OK);
        EXPECT_EQ(failed, -1);
        EXPECT_TRUE(readFile(bulk) == bytes);
    }
    zul_test_useFixedRandomSeed(false, 0);

    if (c.points == 0) return;
    zul_Status end;
    const std::vector<zul_Point> expected = readWithReader(file, &end);
    ASSERT_EQ(end, zul_STATUS_END_OF_FILE);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    for (int threads : {1, 2, 3, 0}) {
        SCOPED_TRACE(threads);
        Arrays out;
        out.resize(type, c.points);
        zul_bulk_Points points = out.view();
        int64_t failed = 7;
        ASSERT_EQ(zul_bulk_decode(handle.index, threads, &points, &failed), zul_STATUS_OK);
        EXPECT_EQ(failed, -1);
        ASSERT_EQ(points.numPoints, c.points);
        for (int64_t i = 0; i < c.points; ++i)
            ASSERT_TRUE(samePoint(out.point(i), expected[static_cast<size_t>(i)])) << "point " << i;
    }

    // Boxes around points of the cloud, from small to the whole.
    const double sizes[] = {0.5, 8.0, 1e9};
    for (size_t b = 0; b < 3; ++b) {
        const double* centre = expected[(b * 997) % expected.size()].position;
        const double min[3] = {centre[0] - sizes[b], centre[1] - sizes[b], centre[2] - 0.5};
        const double max[3] = {centre[0] + sizes[b], centre[1] + sizes[b], centre[2] + 0.5};
        std::vector<int64_t> chunks(5);
        int64_t count = -1, total = 0;
        ASSERT_EQ(zul_idx_selectBox(handle.index, min, max, chunks.data(), 5, &count),
                  zul_STATUS_OK);
        EXPECT_TRUE(b != 0 || c.points != 2300 || count < 5);  // a small box leaves chunks out
        ASSERT_EQ(zul_idx_countPoints(handle.index, chunks.data(), count, &total), zul_STATUS_OK);
        zul_bulk_Points points{};
        ASSERT_EQ(zul_bulk_allocate(handle.index, total, &points), zul_STATUS_OK);
        ASSERT_EQ(zul_bulk_decodeChunks(handle.index, chunks.data(), count, 2, &points, nullptr),
                  zul_STATUS_OK);
        const auto inside = [&](const double* p) {
            return p[0] >= min[0] && p[0] <= max[0] && p[1] >= min[1] && p[1] <= max[1] &&
                   p[2] >= min[2] && p[2] <= max[2];
        };
        std::vector<const double*> selected, full;
        for (int64_t i = 0; i < points.numPoints; ++i)
            if (inside(points.positions + 3 * i)) selected.push_back(points.positions + 3 * i);
        for (const zul_Point& p : expected)
            if (inside(p.position)) full.push_back(p.position);
        ASSERT_EQ(selected.size(), full.size());
        EXPECT_GT(full.size(), 0u);
        for (size_t i = 0; i < full.size(); ++i)
            ASSERT_EQ(std::memcmp(selected[i], full[i], 3 * sizeof(double)), 0);
        zul_bulk_free(&points);
        EXPECT_EQ(points.positions, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryAttribute, BulkRoundTrip, ::testing::ValuesIn(allCombinations()));

class BulkEncodePlanTest : public TempFolderTest {};

// Chunks of uneven sizes: the bytes one encoder makes for them, one after the other.
TEST_F(BulkEncodePlanTest, FollowsThePlan) {
    zul_test_useFixedRandomSeed(true, 1234);
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 4000, false);
    Arrays cloud = makeCloud(type, 2000, 4);
    const std::vector<int32_t> plan = {1, 999, 300, 650, 50};
    std::string expected;
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
        EXPECT_TRUE(readFile(file) == expected) << threads << " threads";
    }
    zul_test_useFixedRandomSeed(false, 0);
}

// Without the fixed seed every encoder draws a marker of its own; the chunks of all threads must
// carry the stream's one marker, or the index stops at the first chunk of another thread.
TEST_F(BulkEncodePlanTest, EveryChunkCarriesTheStreamsMarker) {
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_NONE, 0, false);
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

}  // namespace

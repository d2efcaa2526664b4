// The bulk decoder gives exactly what the file reader gives, for every attribute combination and
// thread count; a box query decodes exactly the points of a full decode in the box; a damaged
// chunk is named and the chunks before it are delivered whole; bad arguments are refused.
#include <gtest/gtest.h>

#include <cmath>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"

using namespace bulktest;

namespace {

const int kChunk = 500;
const int64_t kPoints = 2300;

struct Combination {
    zul_ColorMode color;
    bool reflection;
    bool normals;
    bool turned;  // version 2 with a matrix
};

std::vector<Combination> allCombinations() {
    std::vector<Combination> all;
    for (zul_ColorMode color : {zul_COLOR_NONE, zul_COLOR_RGB565, zul_COLOR_RGB888})
        for (bool reflection : {false, true})
            for (bool normals : {false, true}) all.push_back({color, reflection, normals, normals});
    return all;
}

class BulkDecodeTest : public TempFolderTest, public ::testing::WithParamInterface<Combination> {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        const Combination c = GetParam();
        type = dataType(c.color, c.reflection, c.normals);
        const zul_Header2 header = turningHeader();
        file = path("cloud.zul");
        writeWithWriter(file, makeCloud(type, kPoints, 11), type, c.turned ? &header : nullptr,
                        kChunk);
        zul_Status end;
        expected = readWithReader(file, &end);
        ASSERT_EQ(end, zul_STATUS_END_OF_FILE);
    }

    zul_DataType type;
    std::string file;
    std::vector<zul_Point> expected;
};

TEST_P(BulkDecodeTest, GivesWhatTheReaderGives) {
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    for (int threads : {1, 2, 3, 0}) {
        SCOPED_TRACE(threads);
        Arrays out;
        out.resize(type, kPoints);
        zul_bulk_Points points = out.view();
        int64_t failed = 7;
        ASSERT_EQ(zul_bulk_decode(handle.index, threads, &points, &failed), zul_STATUS_OK);
        EXPECT_EQ(failed, -1);
        ASSERT_EQ(points.numPoints, kPoints);
        for (int64_t i = 0; i < kPoints; ++i)
            expectSamePoint(out.point(i), expected[static_cast<size_t>(i)], type, i);
    }
}

TEST_P(BulkDecodeTest, BoxQueryKeepsThePointsOfAFullDecodeInTheBox) {
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    // Boxes around points of the cloud, from small to the whole.
    const double sizes[] = {0.5, 3.0, 8.0, 1e9};
    for (size_t b = 0; b < 4; ++b) {
        const double* centre = expected[(b * 997) % expected.size()].position;
        const double min[3] = {centre[0] - sizes[b], centre[1] - sizes[b], centre[2] - 0.5};
        const double max[3] = {centre[0] + sizes[b], centre[1] + sizes[b], centre[2] + 0.5};
        std::vector<int64_t> chunks(5);
        int64_t count = -1, total = 0;
        ASSERT_EQ(zul_idx_selectBox(handle.index, min, max, chunks.data(), 5, &count),
                  zul_STATUS_OK);
        EXPECT_TRUE(b != 0 || count < 5);  // a small box leaves chunks out
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

INSTANTIATE_TEST_SUITE_P(EveryAttribute, BulkDecodeTest, ::testing::ValuesIn(allCombinations()));

class BulkDecodeDamageTest : public TempFolderTest {};

// A damaged body in chunk 3: chunks 0 to 2 come whole, chunk 3 is named, at every thread count;
// a cut inside the last chunk is the index's damage, reported after the chunks before it.
TEST_F(BulkDecodeDamageTest, NamesTheFirstBadChunkAndDeliversTheOnesBefore) {
    const zul_DataType type = dataType(zul_COLOR_RGB888, true, true);
    const std::string good = path("good.zul"), bad = path("bad.zul");
    writeWithWriter(good, makeCloud(type, kPoints, 5), type, nullptr, kChunk);
    zul_Status end;
    const std::vector<zul_Point> expected = readWithReader(good, &end);
    std::vector<char> bytes = fileBytes(good);
    IndexHandle goodIndex;
    ASSERT_EQ(zul_idx_openFile(&goodIndex.index, good.c_str(), nullptr), zul_STATUS_OK);
    zul_idx_Chunk third;
    ASSERT_EQ(zul_idx_getChunk(goodIndex.index, 3, &third), zul_STATUS_OK);
    // The table of the coordinate stream's first component: a 255 before the last entry.
    bytes[static_cast<size_t>(third.offset + 16 + 68 + 1)] = static_cast<char>(0xff);
    writeBytes(bad, bytes);
    struct Case {
        std::vector<char> stream;
        zul_Status status;
        int64_t failed;
    };
    std::vector<char> cut = fileBytes(good);
    cut.resize(cut.size() - 10);
    for (const Case& c :
         {Case{bytes, zul_STATUS_CORRUPT_DATA, 3}, Case{cut, zul_STATUS_TRUNCATED, 4}}) {
        IndexHandle handle;
        ASSERT_EQ(zul_idx_openBuffer(&handle.index, c.stream.data(), c.stream.size(), nullptr),
                  zul_STATUS_OK);
        for (int threads : {1, 2, 3}) {
            SCOPED_TRACE(threads);
            Arrays out;
            out.resize(type, kPoints);
            zul_bulk_Points points = out.view();
            int64_t failed = -1;
            EXPECT_EQ(zul_bulk_decode(handle.index, threads, &points, &failed), c.status);
            EXPECT_EQ(failed, c.failed);
            ASSERT_EQ(points.numPoints, c.failed * kChunk);
            for (int64_t i = 0; i < points.numPoints; ++i)
                expectSamePoint(out.point(i), expected[static_cast<size_t>(i)], type, i);
        }
    }
}

TEST_F(BulkDecodeDamageTest, RefusesBadArguments) {
    const zul_DataType type = dataType(zul_COLOR_RGB888, false, false);
    const std::string file = path("cloud.zul");
    writeWithWriter(file, makeCloud(type, 1000, 5), type, nullptr, kChunk);
    IndexHandle handle, failed;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_idx_openFile(&failed.index, path("missing.zul").c_str(), nullptr),
              zul_STATUS_READ_ERROR);
    Arrays out;
    out.resize(type, 1000);
    const double nan = std::nan(""), low[3] = {0, 0, 0}, high[3] = {1, 1, 1};
    const double upside[3] = {1, -1, 1}, withNan[3] = {0, nan, 0};
    const int64_t outside[1] = {2};
    int64_t n = 0;
    zul_bulk_Points points = out.view();
    zul_bulk_Points noColors = out.view();
    noColors.colors = nullptr;
    zul_bulk_Points small = out.view();
    small.numPoints = 999;
    zul_dec_Params params{};
    params.applyTransformation = 2;
    IndexHandle badParams, nullPath;
    const struct {
        const char* name;
        zul_Status got, expected;
    } cases[] = {
        {"null index", zul_bulk_decode(nullptr, 1, &points, nullptr), zul_STATUS_INVALID_ARGUMENT},
        {"negative threads", zul_bulk_decode(handle.index, -1, &points, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
        {"null points", zul_bulk_decode(handle.index, 1, nullptr, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
        {"missing colours", zul_bulk_decode(handle.index, 1, &noColors, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
        {"too little room", zul_bulk_decode(handle.index, 1, &small, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
        {"chunk outside", zul_bulk_decodeChunks(handle.index, outside, 1, 1, &points, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
        {"failed index", zul_bulk_decode(failed.index, 1, &points, nullptr),
         zul_STATUS_INVALID_STATE},
        {"box upside down", zul_idx_selectBox(handle.index, low, upside, nullptr, 0, &n),
         zul_STATUS_INVALID_ARGUMENT},
        {"box with NaN", zul_idx_selectBox(handle.index, withNan, high, nullptr, 0, &n),
         zul_STATUS_INVALID_ARGUMENT},
        {"box of a failed index", zul_idx_selectBox(failed.index, low, high, nullptr, 0, &n),
         zul_STATUS_INVALID_STATE},
        {"negative allocation", zul_bulk_allocate(handle.index, -1, &points),
         zul_STATUS_INVALID_ARGUMENT},
        {"bad params", zul_idx_openFile(&badParams.index, file.c_str(), &params),
         zul_STATUS_INVALID_ARGUMENT},
        {"null path", zul_idx_openFile(&nullPath.index, nullptr, nullptr),
         zul_STATUS_INVALID_ARGUMENT},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.expected) << c.name;
    EXPECT_EQ(points.numPoints, 1000);  // refused calls leave the record alone
}

}  // namespace

// What the bulk layer refuses that the families of zul.h take: a chunk whose claimed count passes
// the budget (the decompression bomb: a chunk of identical points claiming 2^30 - 1 of them in a
// file of some 150 bytes) or the density limit, and a body whose points leave the chunk's box. And
// what it offers so that no caller parses a chunk header: the streams' sizes.
#include <gtest/gtest.h>

#include <functional>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"
#include "support/test_names.h"

using namespace bulktest;

namespace {

const zul_DataType kType = makeDataType(0.5f, zul_COLOR_NONE, 0, false);
const int64_t kHead = ZUL_SIGNATURE_SIZE + ZUL_FILE_HEADER_SIZE_V1;
const int64_t kChunkHead = ZUL_SYNC_MARKER_SIZE + ZUL_CHUNK_HEADER_SIZE_MIN;

// Signature and file header, then one chunk a cloud, as one encoder makes them.
std::string stream(std::vector<PointCloud> clouds, const zul_DataType& type = kType) {
    const EncodedStream pieces = encodeStream(type, nullptr, clouds);
    std::string bytes = pieces.signature + pieces.fileHeader;
    for (size_t k = 0; k < clouds.size(); ++k)
        bytes += pieces.markers[k] + pieces.chunkHeaders[k] + pieces.bodies[k];
    return bytes;
}

PointCloud identical(int n) {
    PointCloud cloud;
    for (int i = 0; i < n; ++i) cloud.add(1.5, -2.0, 0.5);
    return cloud;
}

PointCloud line(int n) {
    PointCloud cloud;
    for (int i = 0; i < n; ++i) cloud.add(0.5 * i, 0.5 * (i % 5), 0.0);
    return cloud;
}

void putLE(std::string& bytes, int64_t at, uint64_t value, int size) {
    for (int i = 0; i < size; ++i)
        bytes[static_cast<size_t>(at + i)] = static_cast<char>(value >> (8 * i));
}

const uint32_t kLargestCount = ZUL_MAX_DECODED_CHUNK_POINTS;

// A stream of one chunk of two identical points forged to claim `count`.
std::string claiming(int64_t count) {
    std::string b = stream({identical(2)});
    putLE(b, kHead + kChunkHead - 8, static_cast<uint64_t>(count), 4);
    return b;
}

// The most points the density limit lets that stream claim.
const int64_t kDensest =
    ZUL_BULK_DENSITY_ALLOWANCE +
    ZUL_BULK_DEFAULT_POINT_DENSITY * static_cast<int64_t>(stream({identical(2)}).size());

struct RefusalCase {
    const char* name;
    std::function<std::string()> bytes;
    zul_Status damage;      // where the index stops, with the default budget
    int64_t listed;         // chunks listed
    zul_Status decoded;     // of zul_bulk_decode
    int64_t failedChunk;    // named by zul_bulk_decode
    int64_t pointsDecoded;  // delivered by zul_bulk_decode
};

const RefusalCase kRefusals[] = {
    {"bomb", [] { return claiming(kLargestCount); }, zul_STATUS_OVER_BUDGET, 0,
     zul_STATUS_OVER_BUDGET, 0, 0},
    {"bomb behind a good chunk",
     [] {
         std::string b = stream({line(10), identical(2)});
         // The second chunk starts where the first ends: found by its marker.
         const std::string marker = b.substr(kHead, ZUL_SYNC_MARKER_SIZE);
         const size_t at = b.find(marker, static_cast<size_t>(kHead + 1));
         putLE(b, static_cast<int64_t>(at) + kChunkHead - 8, kLargestCount, 4);
         return b;
     },
     zul_STATUS_OVER_BUDGET, 1, zul_STATUS_OVER_BUDGET, 1, 10},
    // The box's largest x one step short of the points: the body decodes, the points do not fit.
    {"points outside the box",
     [] {
         std::string b = stream({line(10), line(20)});
         const int64_t maxX = kHead + ZUL_SYNC_MARKER_SIZE + 24;
         putLE(b, maxX, 8, 8);  // 9 steps of 0.5 in the line of 10
         return b;
     },
     zul_STATUS_OK, 2, zul_STATUS_CORRUPT_DATA, 0, 0},
    // Within the budget: a million points decode in a moment, a few more than the stream's
    // bytes allow are refused from the header.
    {"at the density limit", [] { return claiming(kDensest); }, zul_STATUS_OK, 1, zul_STATUS_OK, -1,
     kDensest},
    {"past the density limit", [] { return claiming(kDensest + 1); }, zul_STATUS_OVER_BUDGET, 0,
     zul_STATUS_OVER_BUDGET, 0, 0},
};

class BulkRefusalTest : public TempFolderTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(BulkRefusalTest, RefusesBeforeAllocating) {
    const RefusalCase& c = GetParam();
    const std::string bytes = c.bytes();
    ASSERT_LE(bytes.size(), 250u);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openBuffer(&handle.index, bytes.data(), bytes.size(), nullptr),
              zul_STATUS_OK);
    zul_Status damage = zul_STATUS_OK;
    int64_t chunk = -1, listed = -1, numPoints = -1;
    ASSERT_EQ(zul_idx_getDamage(handle.index, &damage, &chunk, nullptr), zul_STATUS_OK);
    ASSERT_EQ(zul_idx_getCounts(handle.index, &listed, &numPoints), zul_STATUS_OK);
    EXPECT_EQ(damage, c.damage);
    EXPECT_EQ(listed, c.listed);
    EXPECT_EQ(chunk, c.listed);

    Arrays out;
    out.resize(kType, numPoints);
    zul_bulk_Points points = out.view();
    int64_t failed = -2;
    EXPECT_EQ(zul_bulk_decode(handle.index, 2, &points, &failed), c.decoded);
    EXPECT_EQ(failed, c.failedChunk);
    EXPECT_EQ(points.numPoints, c.pointsDecoded);

    // The file reader of zul.h hands out every point the bulk layer refuses.
    if (c.damage == zul_STATUS_OK) {
        const std::string file = path("refused.zul");
        writeFile(file, bytes);
        zul_Status end;
        EXPECT_EQ(static_cast<int64_t>(readWithReader(file, &end).size()), numPoints);
        EXPECT_EQ(end, zul_STATUS_END_OF_FILE);
    }
}

INSTANTIATE_TEST_SUITE_P(Hostile, BulkRefusalTest, ::testing::ValuesIn(kRefusals), NameOfCase());

// A raised budget lists the chunks behind the one that stopped the walk (the density limit
// lifted); nothing is decoded.
TEST(ChunkBudget, RaisedBudgetListsOn) {
    std::string bytes = stream({identical(2), line(3)});
    putLE(bytes, kHead + kChunkHead - 8, kLargestCount, 4);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openBuffer(&handle.index, bytes.data(), bytes.size(), nullptr),
              zul_STATUS_OK);
    ASSERT_EQ(zul_idx_setPointDensity(handle.index, 0), zul_STATUS_OK);
    EXPECT_EQ(zul_idx_setChunkBudget(handle.index, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_idx_setChunkBudget(nullptr, 1), zul_STATUS_INVALID_ARGUMENT);
    const int64_t needed = int64_t{kLargestCount} * (ZUL_BULK_DECODED_BYTES_PER_POINT + 24);
    ASSERT_EQ(zul_idx_setChunkBudget(handle.index, needed - 1), zul_STATUS_OK);
    zul_Status damage = zul_STATUS_OK;
    EXPECT_EQ(zul_idx_getDamage(handle.index, &damage, nullptr, nullptr), zul_STATUS_OK);
    EXPECT_EQ(damage, zul_STATUS_OVER_BUDGET);
    ASSERT_EQ(zul_idx_setChunkBudget(handle.index, needed), zul_STATUS_OK);
    int64_t listed = 0, numPoints = 0;
    EXPECT_EQ(zul_idx_getDamage(handle.index, &damage, nullptr, nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_idx_getCounts(handle.index, &listed, &numPoints), zul_STATUS_OK);
    EXPECT_EQ(damage, zul_STATUS_OK);
    EXPECT_EQ(listed, 2);
    EXPECT_EQ(numPoints, int64_t{kLargestCount} + 3);
    // What no machine holds is a status, not an exception.
    zul_bulk_Points points{};
    EXPECT_EQ(zul_bulk_allocate(handle.index, INT64_MAX / 2, &points), zul_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(points.positions, nullptr);
}

// The streams' sizes add up to the body: the chunk less its marker and header.
TEST(StreamSizes, AddUpToTheBody) {
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB565, 0, true);
    std::vector<PointCloud> clouds;
    for (int k = 1; k <= 3; ++k) {
        PointCloud cloud;
        for (int i = 0; i < 40 * k; ++i)
            cloud.add(0.01 * i, 0.3 * k, 0.002 * i * i, {uint8_t(i), 7, 9}, 0, {0.6f, 0.0f, 0.8f});
        clouds.push_back(cloud);
    }
    const EncodedStream pieces = encodeStream(type, nullptr, clouds);
    const std::string bytes = stream(clouds, type);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openBuffer(&handle.index, bytes.data(), bytes.size(), nullptr),
              zul_STATUS_OK);
    for (int64_t k = 0; k < 3; ++k) {
        int64_t sizes[4] = {-1, -1, -1, -1};
        zul_idx_Chunk chunk;
        ASSERT_EQ(zul_idx_getStreamSizes(handle.index, k, sizes), zul_STATUS_OK);
        ASSERT_EQ(zul_idx_getChunk(handle.index, k, &chunk), zul_STATUS_OK);
        EXPECT_GT(sizes[0], 0);
        EXPECT_GT(sizes[1], 0);
        EXPECT_EQ(sizes[2], 0);  // no reflections
        EXPECT_GT(sizes[3], 0);
        EXPECT_EQ(sizes[0] + sizes[1] + sizes[3], static_cast<int64_t>(pieces.bodies[k].size()));
        EXPECT_EQ(chunk.size,
                  static_cast<int64_t>(ZUL_SYNC_MARKER_SIZE + ZUL_CHUNK_HEADER_SIZE_MIN + 8 +
                                       pieces.bodies[k].size()));
    }
    int64_t sizes[4];
    EXPECT_EQ(zul_idx_getStreamSizes(handle.index, 3, sizes), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_idx_getStreamSizes(handle.index, 0, nullptr), zul_STATUS_INVALID_ARGUMENT);
}

// A density limit raised to the count, or lifted, lists the chunk past the default one; one
// point short still refuses it. The limit must be 0 to ZUL_BULK_MAX_POINT_DENSITY.
struct DensityCase {
    const char* name;
    int64_t density;
    zul_Status set;
    int64_t listed;
};

void PrintTo(const DensityCase& c, std::ostream* out) { *out << c.name; }

const int64_t kForged = 4000000;  // within the budget
const int64_t kStreamBytes = static_cast<int64_t>(stream({identical(2)}).size());
const int64_t kNeeded = (kForged - ZUL_BULK_DENSITY_ALLOWANCE + kStreamBytes - 1) / kStreamBytes;

const DensityCase kDensities[] = {
    {"raised to the count", kNeeded, zul_STATUS_OK, 1},
    {"raised one short", kNeeded - 1, zul_STATUS_OK, 0},
    {"lifted", 0, zul_STATUS_OK, 1},
    {"negative", -1, zul_STATUS_INVALID_ARGUMENT, 0},
    {"past the largest", ZUL_BULK_MAX_POINT_DENSITY + 1, zul_STATUS_INVALID_ARGUMENT, 0},
};

class PointDensityTest : public ::testing::TestWithParam<DensityCase> {};

TEST_P(PointDensityTest, ListsOnWhenRaised) {
    const DensityCase& c = GetParam();
    const std::string bytes = claiming(kForged);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openBuffer(&handle.index, bytes.data(), bytes.size(), nullptr),
              zul_STATUS_OK);
    EXPECT_EQ(zul_idx_setPointDensity(handle.index, c.density), c.set);
    EXPECT_EQ(zul_idx_setPointDensity(nullptr, c.density), zul_STATUS_INVALID_ARGUMENT);
    int64_t listed = -1, numPoints = -1;
    zul_Status damage = zul_STATUS_OK;
    ASSERT_EQ(zul_idx_getCounts(handle.index, &listed, &numPoints), zul_STATUS_OK);
    ASSERT_EQ(zul_idx_getDamage(handle.index, &damage, nullptr, nullptr), zul_STATUS_OK);
    EXPECT_EQ(listed, c.listed);
    EXPECT_EQ(numPoints, c.listed * kForged);
    EXPECT_EQ(damage, c.listed == 1 ? zul_STATUS_OK : zul_STATUS_OVER_BUDGET);
}

INSTANTIATE_TEST_SUITE_P(Limits, PointDensityTest, ::testing::ValuesIn(kDensities), NameOfCase());

}  // namespace

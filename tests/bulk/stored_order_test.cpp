// The stored order found without encoding (zul_bulk_orderChunk) is the encoder's, point for point,
// on each of its paths: few points, keys packed with the point number or not, one bucket of many,
// positions shared by neighbours or apart or all alike, slots too wide for one key, a span of 2^63
// or more. It is unique exactly when no two points share a grid point; and the bulk writer, which
// then hands the encoder the points in it, writes the bytes it writes without the order.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "encoder/quantize.h"
#include "support/point_cloud.h"
#include "support/stream_codec.h"
#include "support/temp_folder.h"
#include "zul_bulk.h"

namespace {

struct OrderCase {
    const char* name;
    int count;
    double step;
    // Point i's position, from a random draw r in [0, 1).
    void (*place)(int i, double r, double* p);
};

const OrderCase kCases[] = {
    {"few_sharing", 300, 0.5, [](int i, double, double* p) { p[0] = i % 7, p[1] = i % 3; }},
    {"narrow_key", 3000, 1,
     [](int i, double, double* p) { p[0] = (i * 37) % 3001, p[1] = i % 5, p[2] = 1; }},
    {"wide_key", 5000, 0.001,
     [](int, double r, double* p) { p[0] = 2000 * r, p[1] = std::fmod(1e6 * r, 700), p[2] = r; }},
    {"crowded_bucket", 3000, 1,
     [](int i, double, double* p) { p[0] = i < 2900 ? i % 3 : i * 1000, p[1] = i; }},
    {"sharing_apart", 3000, 1,
     [](int i, double, double* p) { p[0] = (i * 37) % 2000, p[1] = 4, p[2] = -9; }},
    {"sharing_neighbours", 3000, 1, [](int i, double, double* p) { p[0] = i / 2, p[2] = i % 9; }},
    {"key_and_number_too_wide", 3000, 1,
     [](int, double r, double* p) {
         p[0] = r * 1e6, p[1] = std::fmod(r * 1e12, 1e6), p[2] = std::fmod(r * 1e15, 1e6);
     }},
    {"slots_too_wide", 3000, 1,
     [](int i, double r, double* p) { p[0] = r * 1e9, p[1] = i * 1e5, p[2] = i % 2 * 1e9; }},
    {"span_of_2_63", 2000, 1,
     [](int i, double r, double* p) { p[0] = i < 2 ? 4.7e18 - i * 9.4e18 : (r - 0.5) * 9e18; }},
    {"halves", 2500, 2,
     [](int i, double, double* p) { p[0] = (i % 1000) - 0.5 * (i % 3), p[1] = -(i % 7) - 1; }},
    {"few_apart", 200, 1, [](int i, double, double* p) { p[0] = (i * 7) % 200, p[1] = i % 3; }},
    {"all_on_one_point", 3000, 1, [](int, double, double* p) { p[0] = 5, p[1] = -2, p[2] = 1; }},
};

// Whether two points of the cloud lie on one grid point of `step`.
bool shareGridPoints(const PointCloud& cloud, double step) {
    std::set<std::array<int64_t, 3>> seen;
    for (int i = 0; i < cloud.size(); ++i) {
        std::array<int64_t, 3> grid;
        for (int axis = 0; axis < 3; ++axis)
            grid[axis] = zullib::quantizeCoordinate(cloud.positions[3 * i + axis], step);
        if (!seen.insert(grid).second) return true;
    }
    return false;
}

class StoredOrderOf : public TempFolderTest, public ::testing::WithParamInterface<OrderCase> {
protected:
    // The cloud written by the bulk writer as one chunk; with `order`, the stored order is asked
    // for.
    Bytes written(const zul_DataType& type, PointCloud& cloud, uint32_t* order) {
        const std::string file = path("cloud.zul");
        const char marker[ZUL_SYNC_MARKER_SIZE + 1] = "a-stored-order-m";
        zul_bulk_Writer writer = nullptr;
        EXPECT_EQ(zul_bulk_openWriter(&writer, file.c_str(), &type, nullptr, marker, 1,
                                      ZUL_BULK_WRITE_REPLACE),
                  zul_STATUS_OK);
        const zul_bulk_Points points = {cloud.size(), cloud.positions.data(), nullptr,
                                        cloud.reflections.data(), nullptr};
        const int32_t size = cloud.size();
        EXPECT_EQ(zul_bulk_writeChunksOrdered(writer, &points, &size, 1, order, nullptr),
                  zul_STATUS_OK);
        EXPECT_EQ(zul_bulk_closeWriter(&writer), zul_STATUS_OK);
        return readFile(file);
    }
};

TEST_P(StoredOrderOf, IsTheEncodersOrder) {
    const OrderCase& c = GetParam();
    std::mt19937 random(11);
    std::uniform_real_distribution<double> draw(0, 1);
    std::vector<PointCloud> clouds(1);
    for (int i = 0; i < c.count; ++i) {
        double p[3] = {0, 0, 0};
        c.place(i, draw(random), p);
        clouds[0].add(p[0], p[1], p[2], {0, 0, 0}, i);  // each point's number as its reflection
    }
    zul_DataType type = {};
    type.quantizationStep = c.step;
    type.reflectionMode = zul_REFLECTION_CLAMPED;
    type.maxReflection = c.count;
    const EncodedStream stream = encodeStream(type, nullptr, clouds);
    Decoder decoder;
    decoder.start(stream);
    ASSERT_EQ(decoder.chunk(stream, 0), zul_STATUS_OK);
    ASSERT_EQ(decoder.points.numPoints, c.count);

    std::vector<uint32_t> order(static_cast<size_t>(c.count));
    zul_bulk_Orderer orderer = nullptr;
    ASSERT_EQ(zul_bulk_openOrderer(&orderer, &type), zul_STATUS_OK);
    const zul_PointData data = clouds[0].data();
    int unique = -1;
    EXPECT_EQ(zul_bulk_orderChunk(orderer, &data, order.data(), &unique), zul_STATUS_OK);
    zul_bulk_closeOrderer(&orderer);
    EXPECT_EQ(unique, shareGridPoints(clouds[0], c.step) ? 0 : 1);
    for (int k = 0; k < c.count; ++k) {
        ASSERT_EQ(order[static_cast<size_t>(k)],
                  static_cast<uint32_t>(decoder.points.reflections[k]))
            << k;
    }
    // The writer finds the same order, and the bytes are those written without it.
    std::vector<uint32_t> told(order.size(), UINT32_MAX);
    EXPECT_TRUE(written(type, clouds[0], told.data()) == written(type, clouds[0], nullptr));
    EXPECT_EQ(told, order);
}

TEST(StoredOrder, RefusesBadArguments) {
    zul_DataType type = {};
    type.quantizationStep = 1;
    zul_bulk_Orderer orderer = nullptr;
    EXPECT_EQ(zul_bulk_openOrderer(nullptr, &type), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_bulk_openOrderer(&orderer, nullptr), zul_STATUS_INVALID_ARGUMENT);
    zul_bulk_closeOrderer(&orderer);
    type.quantizationStep = -1;
    EXPECT_EQ(zul_bulk_openOrderer(&orderer, &type), zul_STATUS_INVALID_ARGUMENT);
    zul_bulk_closeOrderer(&orderer);
    type.quantizationStep = 1;
    ASSERT_EQ(zul_bulk_openOrderer(&orderer, &type), zul_STATUS_OK);
    double position[3] = {1, 2, 3};
    uint32_t order[1] = {7};
    zul_PointData points = {1, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zul_bulk_orderChunk(orderer, &points, order, nullptr), zul_STATUS_INVALID_ARGUMENT);
    points.positions = position;
    EXPECT_EQ(zul_bulk_orderChunk(nullptr, &points, order, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_bulk_orderChunk(orderer, nullptr, order, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_bulk_orderChunk(orderer, &points, nullptr, nullptr), zul_STATUS_INVALID_ARGUMENT);
    points.numPoints = -1;
    EXPECT_EQ(zul_bulk_orderChunk(orderer, &points, order, nullptr), zul_STATUS_INVALID_ARGUMENT);
    points.numPoints = 0;
    EXPECT_EQ(zul_bulk_orderChunk(orderer, &points, order, nullptr), zul_STATUS_OK);
    EXPECT_EQ(order[0], 7u);
    zul_bulk_closeOrderer(&orderer);
    EXPECT_EQ(orderer, nullptr);
    zul_bulk_closeOrderer(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Paths, StoredOrderOf, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<OrderCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace

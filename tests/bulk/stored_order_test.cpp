// The stored order found without encoding is the encoder's, point for point, on each of its
// paths: few points, keys packed with the point number or not, one bucket of many, positions shared
// by neighbours or apart, slots too wide for one key, a span of 2^63 or more.
#include "bulk/stored_order.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/point_cloud.h"
#include "support/stream_codec.h"

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
};

class StoredOrderOf : public ::testing::TestWithParam<OrderCase> {};

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
    std::vector<zullib::zul_QuantizedPoint> records;
    std::vector<unsigned char> scratch;
    zulbulk::storedOrder(type, clouds[0].data(), order.data(), records, scratch);
    for (int k = 0; k < c.count; ++k) {
        ASSERT_EQ(order[static_cast<size_t>(k)],
                  static_cast<uint32_t>(decoder.points.reflections[k]))
            << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, StoredOrderOf, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<OrderCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace

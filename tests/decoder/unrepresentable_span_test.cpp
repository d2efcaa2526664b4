// Found by the write-and-read fuzz target: a chunk whose grid indices span 2^63 or more on one
// axis (a NaN position becomes the smallest index, and any point at or above 0 then spans 2^63).
// Such a chunk cannot be held in the signed slots; the encoder writes it without noticing and what
// it decodes to is not defined. Decoding it must still be safe, and it must not disturb the chunks
// around it, which stay independent.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "support/stream_codec.h"

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct SpanCase {
    const char* name;
    double x, y, z;  // the point that makes the span unrepresentable, next to (0, 0, 0)
};

class UnrepresentableSpan : public ::testing::TestWithParam<SpanCase> {};

TEST_P(UnrepresentableSpan, IsDecodedSafelyAndTheNextChunkIsIntact) {
    const SpanCase& c = GetParam();
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 1000, true);
    std::vector<PointCloud> clouds(3);
    clouds[0].add(1.0, 2.0, 3.0, {10, 20, 30}, 400, {0, 0, 1});
    clouds[1].add(0.0, 0.0, 0.0, {1, 2, 3}, 5, {1, 0, 0});
    clouds[1].add(c.x, c.y, c.z, {4, 5, 6}, 7, {0, 1, 0});
    clouds[1].add(0.0, -3.41, 13.5, {7, 8, 9}, 9, {0, 0, -1});
    clouds[2].add(-2.5, 0.25, 7.0, {200, 100, 50}, 1000, {0, 1, 0});
    clouds[2].add(-2.0, 0.5, 7.5, {201, 101, 51}, 999, {0, 0, 1});
    const EncodedStream stream = encodeStream(type, nullptr, clouds);

    Decoder decoder;
    decoder.start(stream, 0);
    ASSERT_EQ(decoder.chunk(stream, 0), zul_STATUS_OK);
    const zul_Status status = decoder.chunk(stream, 1);
    EXPECT_TRUE(status == zul_STATUS_OK || status == zul_STATUS_CORRUPT_DATA) << status;
    int count = 0;
    EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_OK);
    EXPECT_EQ(count, 3);

    ASSERT_EQ(decoder.chunk(stream, 2), zul_STATUS_OK);
    ASSERT_EQ(decoder.points.numPoints, 2);
    const double expected[6] = {-2.5, 0.25, 7.0, -2.0, 0.5, 7.5};
    for (int i = 0; i < 6; ++i) {
        // Grid indices times the float step 0.001 widened to double.
        EXPECT_EQ(decoder.points.positions[i],
                  static_cast<double>(std::llround(expected[i] / 0.001)) * double{0.001f});
    }
    EXPECT_EQ(decoder.points.reflections[0], 1000);
    EXPECT_EQ(decoder.points.colors[3], 201);
}

INSTANTIATE_TEST_SUITE_P(
    Chunks, UnrepresentableSpan,
    ::testing::Values(SpanCase{"NaNInX", kNaN, 13.09, 13.4},
                      SpanCase{"InfinityInY", 0.5, std::numeric_limits<double>::infinity(), 1.0},
                      SpanCase{"HugeInZ", 0.0, -0.07, -1.9e289},
                      SpanCase{"NaNEverywhere", kNaN, kNaN, kNaN}),
    [](const ::testing::TestParamInfo<SpanCase>& info) { return std::string(info.param.name); });

}  // namespace

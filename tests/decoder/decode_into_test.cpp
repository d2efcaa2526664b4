// The decoder's internal call for the bulk layer: a body decoded into the caller's arrays gives
// the very values of zul_dec_decodeChunkBody, checks the room before the body, and with the box
// check refuses a body whose points leave the header's box.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "decoder/dec_context.h"
#include "frame/stored_bytes.h"
#include "support/stream_codec.h"
#include "support/test_names.h"

namespace {

// Caller's arrays for `n` points of every attribute.
struct Target {
    explicit Target(int n)
        : positions(3 * n, -1.0), colors(3 * n, 7), reflections(n, -1), normals(3 * n, -1.0f) {
        data = {n, positions.data(), colors.data(), reflections.data(), normals.data()};
    }
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;
    zul_PointData data;
};

// A cloud spanning 0 to 40 grid steps in x, less in y and z, with every attribute.
PointCloud gridCloud() {
    PointCloud cloud;
    for (int i = 0; i <= 40; ++i)
        cloud.add(i * 0.5, (i % 7) * 0.5, (i % 3) * 0.5, {uint8_t(i), uint8_t(2 * i), 9}, i,
                  {0.0f, 0.6f, 0.8f});
    return cloud;
}

const zul_DataType kAll = makeDataType(0.5f, zul_COLOR_RGB888, 100, true);

TEST(DecodeInto, GivesWhatTheDecoderHandsOut) {
    std::vector<PointCloud> clouds = {gridCloud()};
    const EncodedStream stream = encodeStream(kAll, nullptr, clouds);
    Decoder reference;
    reference.start(stream);
    ASSERT_EQ(reference.chunk(stream, 0), zul_STATUS_OK);

    Decoder decoder;
    decoder.start(stream);
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), zul_STATUS_OK);
    Target target(clouds[0].size());
    ASSERT_EQ(decoder.context->decodeChunkBodyInto(target.data, stream.bodies[0].data(), true),
              zul_STATUS_OK);
    const int n = reference.points.numPoints;
    EXPECT_EQ(0, std::memcmp(target.positions.data(), reference.points.positions, 24 * n));
    EXPECT_EQ(0, std::memcmp(target.colors.data(), reference.points.colors, 3 * n));
    EXPECT_EQ(0, std::memcmp(target.reflections.data(), reference.points.reflections, 4 * n));
    EXPECT_EQ(0, std::memcmp(target.normals.data(), reference.points.normals, 12 * n));
    // The context's own arrays were never made.
    EXPECT_EQ(decoder.context->chunkPoints.positions, nullptr);
    // One attempt a body, as for zul_dec_decodeChunkBody.
    EXPECT_EQ(decoder.context->decodeChunkBodyInto(target.data, stream.bodies[0].data(), true),
              zul_STATUS_INVALID_STATE);
}

TEST(DecodeInto, RefusesRoomOtherThanTheCountBeforeTheBody) {
    std::vector<PointCloud> clouds = {gridCloud()};
    const EncodedStream stream = encodeStream(kAll, nullptr, clouds);
    Decoder decoder;
    decoder.start(stream);
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), zul_STATUS_OK);
    const int n = clouds[0].size();
    Target small(n - 1), exact(n);
    zul_PointData noNormals = exact.data;
    noNormals.normals = nullptr;
    for (const zul_PointData& wrong : {small.data, noNormals})
        EXPECT_EQ(decoder.context->decodeChunkBodyInto(wrong, stream.bodies[0].data(), false),
                  zul_STATUS_INVALID_ARGUMENT);
    // The body is still due.
    EXPECT_EQ(decoder.context->decodeChunkBodyInto(exact.data, stream.bodies[0].data(), false),
              zul_STATUS_OK);
}

// The header's box shrunk by one step on one side of an axis: the body still decodes (the axes'
// order and widths are unchanged), but points now lie outside the box.
struct ShrunkBox {
    const char* name;
    int axis;
    bool atMax;
};

class DecodeIntoBox : public ::testing::TestWithParam<ShrunkBox> {};

TEST_P(DecodeIntoBox, RefusesPointsOutsideTheBoxOnlyWhenAsked) {
    std::vector<PointCloud> clouds = {gridCloud()};
    const EncodedStream stream = encodeStream(kAll, nullptr, clouds);
    Bytes header = stream.chunkHeaders[0];
    unsigned char* corner = reinterpret_cast<unsigned char*>(&header[0]) +
                            (GetParam().atMax ? 24 : 0) + 8 * GetParam().axis;
    const int64_t value = static_cast<int64_t>(zullib::loadLE(corner, 8));
    zullib::storeLE(corner, static_cast<uint64_t>(value + (GetParam().atMax ? -1 : 1)), 8);
    Target target(clouds[0].size());
    for (const bool refuse : {false, true}) {
        Decoder decoder;
        decoder.start(stream);
        ASSERT_EQ(decoder.chunkHeader(header), zul_STATUS_OK);
        EXPECT_EQ(
            decoder.context->decodeChunkBodyInto(target.data, stream.bodies[0].data(), refuse),
            refuse ? zul_STATUS_CORRUPT_DATA : zul_STATUS_OK);
    }
}

const ShrunkBox kShrunk[] = {{"x_max", 0, true}, {"x_min", 0, false}, {"y_max", 1, true}};
INSTANTIATE_TEST_SUITE_P(Corners, DecodeIntoBox, ::testing::ValuesIn(kShrunk), NameOfCase());

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/data_type.h"
#include "support/stream_codec.h"
#include "support/test_names.h"
#include "zul.h"

namespace {

Bytes hex(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    Bytes out;
    for (unsigned char b : bytes) out += {digits[b >> 4], digits[b & 15]};
    return out;
}

struct EdgeCase {
    const char* name;
    zul_DataType dataType;
    PointCloud cloud;
    int size;
    const char* body;  // the streams, in hex
    long long boxMin[3], boxMax[3];
};

PointCloud cloudOf(int copies, std::vector<double> positions, const uint8_t (&rgb)[3] = {0, 0, 0},
                   int32_t reflection = 0, const float (&normal)[3] = {0, 0, 1}) {
    PointCloud cloud;
    for (int c = 0; c < copies; ++c)
        for (size_t i = 0; i + 2 < positions.size(); i += 3)
            cloud.add(positions[i], positions[i + 1], positions[i + 2], rgb, reflection, normal);
    return cloud;
}

const long long kMax = INT64_MAX, kMin = INT64_MIN;

class ChunkEdges : public ::testing::TestWithParam<EdgeCase> {};

// The exact size and streams, then the box corners and the count.
TEST_P(ChunkEdges, HaveTheirExactSizeAndStreams) {
    const EdgeCase& c = GetParam();
    std::vector<PointCloud> clouds = {c.cloud};
    const EncodedStream stream = encodeStream(c.dataType, nullptr, clouds);
    const Bytes chunk = stream.markers[0] + stream.chunkHeaders[0] + stream.bodies[0];
    ASSERT_EQ(static_cast<int>(chunk.size()), c.size);
    const int bodyOffset = 16 + zullib::DataType::getChunkHeaderSize(c.dataType);
    Bytes body = c.body;
    body.erase(std::remove(body.begin(), body.end(), ' '), body.end());
    EXPECT_EQ(hex(chunk.substr(bodyOffset)), body);
    const unsigned char* front = reinterpret_cast<const unsigned char*>(chunk.data()) + 16;
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(static_cast<long long>(zullib::loadLE(front + 8 * k, 8)), c.boxMin[k]) << k;
        EXPECT_EQ(static_cast<long long>(zullib::loadLE(front + 24 + 8 * k, 8)), c.boxMax[k]) << k;
    }
    EXPECT_EQ(zullib::loadLE(front + 48, 4), static_cast<uint64_t>(c.cloud.size()));
}

const zul_DataType kPlain = makeDataType(1.0f, zul_COLOR_NONE, 0, false);

const zul_DataType kSingleStep = makeDataType(0.0001f, zul_COLOR_NONE, 0, false);
const zul_DataType kRGB888 = makeDataType(1.0f, zul_COLOR_RGB888, 0, false);
const zul_DataType kRGB565 = makeDataType(1.0f, zul_COLOR_RGB565, 0, false);
const zul_DataType kReflection = makeDataType(1.0f, zul_COLOR_NONE, 100, false);
const zul_DataType kReflectionNormals = makeDataType(1.0f, zul_COLOR_NONE, 100, true);
const zul_DataType kColorNormals = makeDataType(1.0f, zul_COLOR_RGB888, 0, true);

// Bodies are written stream by stream, separated by spaces. With every width 0 a table is the
// escape alone and the body is empty: a single position comes back from the box. Slot 0 delta 4
// needs 3 bits, the width, so it escapes. A first red delta of 200 needs 9 bits, above the
// width of 8: stored absolute.
// clang-format off
INSTANTIATE_TEST_SUITE_P(
    ChunkEncoder, ChunkEdges,
    ::testing::Values(
        EdgeCase{"single point", kSingleStep, cloudOf(1, {1.5, -2, 3}), 78, "01FF01FF01FF", {15000, -20000, 30000}, {15000, -20000, 30000}},
        EdgeCase{"thousand points at one position", kPlain, cloudOf(1000, {7, 8, 9}), 78, "01FF01FF01FF", {7, 8, 9}, {7, 8, 9}},
        EdgeCase{"two points apart in x", kPlain, cloudOf(1, {1, 2, 3, 5, 2, 3}), 80, "0200FF01FF01FF12", {1, 2, 3}, {5, 2, 3}},
        EdgeCase{"one red point", kRGB888, cloudOf(1, {0, 0, 0}, {200, 0, 0}), 89, "01FF01FF01FF 01FF01000100C8", {0, 0, 0}, {0, 0, 0}},
        EdgeCase{"reflection clamped and normal at the start cell", kReflectionNormals, cloudOf(1, {0, 0, 0}, {0, 0, 0}, 150), 93, "01FF01FF01FF 01FF64 01000100", {0, 0, 0}, {0, 0, 0}},
        EdgeCase{"negative reflection clamps to zero", kReflection, cloudOf(1, {0, 0, 0}, {0, 0, 0}, -5), 84, "01FF01FF01FF 0100", {0, 0, 0}, {0, 0, 0}},
        EdgeCase{"rgb565 white", kRGB565, cloudOf(1, {0, 0, 0}, {255, 255, 255}), 90, "01FF01FF01FF 01FF01FF01FF FFFF", {0, 0, 0}, {0, 0, 0}},
        EdgeCase{"colour and normals", kColorNormals, cloudOf(1, {0, 0, 0}), 96, "01FF01FF01FF 010001000100 01000100", {0, 0, 0}, {0, 0, 0}},
        // Encoded, though no reader accepts a chunk without points.
        EdgeCase{"no points", kPlain, PointCloud(), 75, "000000", {kMax, kMax, kMax}, {kMin, kMin, kMin}}),
    NameOfCase());
// clang-format on

}  // namespace

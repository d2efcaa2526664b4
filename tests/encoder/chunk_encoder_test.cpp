#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "encoder/quantize.h"
#include "support/chunk_reader.h"
#include "support/point_cloud.h"
#include "support/stream_codec.h"
#include "support/test_names.h"
#include "zul.h"

namespace {

// An encoder whose marker comes from a fixed seed, so that chunks of two contexts compare.
struct Encoder {
    explicit Encoder(const zul_DataType& dataType) {
        zul_test_useFixedRandomSeed(true, 5489);
        EXPECT_EQ(zul_enc_open(&context, &dataType), zul_STATUS_OK);
        zul_test_useFixedRandomSeed(false, 0);
    }
    ~Encoder() { zul_enc_close(&context); }

    Bytes encode(PointCloud& cloud, zul_Status expected = zul_STATUS_OK) {
        const zul_PointData data = cloud.data();
        const char* bytes = nullptr;
        int size = -1;
        EXPECT_EQ(zul_enc_encodeChunk(context, &bytes, &size, &data), expected);
        return bytes ? Bytes(bytes, static_cast<size_t>(size)) : Bytes();
    }

    zul_enc_Context context = nullptr;
};

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

TEST_P(ChunkEdges, HaveTheirExactSizeAndStreams) {
    EdgeCase c = GetParam();
    Encoder encoder(c.dataType);
    const Bytes chunk = encoder.encode(c.cloud);
    ASSERT_EQ(static_cast<int>(chunk.size()), c.size);
    const int bodyOffset = 16 + zullib::DataType::getChunkHeaderSize(c.dataType);
    Bytes body = c.body;
    body.erase(std::remove(body.begin(), body.end(), ' '), body.end());
    EXPECT_EQ(hex(chunk.substr(bodyOffset)), body);
    ReadChunk read;
    readChunk(c.dataType, chunk.data(), c.size, read);
    EXPECT_EQ(read.numPoints, c.cloud.size());
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(read.box.min[k], c.boxMin[k]);
        EXPECT_EQ(read.box.max[k], c.boxMax[k]);
    }
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

TEST(ChunkEncoder, ShortNormalFailsTheChunkAndKeepsTheLastOne) {
    const zul_DataType dataType = makeDataType(0.01f, zul_COLOR_RGB888, 0, true);
    PointCloud good;
    for (int i = 0; i < 50; ++i) good.add(i * 0.5, i * 0.25, -i, {1, 2, 3}, 0, {0, 1, 0});
    PointCloud bad = good;
    bad.normals[3 * 20 + 0] = bad.normals[3 * 20 + 1] = bad.normals[3 * 20 + 2] = 1e-7f;

    Encoder encoder(dataType);
    const zul_PointData goodData = good.data(), badData = bad.data();
    const char* first = nullptr;
    int firstSize = 0;
    ASSERT_EQ(zul_enc_encodeChunk(encoder.context, &first, &firstSize, &goodData), zul_STATUS_OK);
    const Bytes kept(first, static_cast<size_t>(firstSize));

    const char* bytes = "untouched";
    int size = -1;
    EXPECT_EQ(zul_enc_encodeChunk(encoder.context, &bytes, &size, &badData),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(Bytes(first, static_cast<size_t>(firstSize)), kept);
    // The context goes on with other points.
    EXPECT_EQ(encoder.encode(good), kept);
}

TEST(ChunkEncoder, NonFinitePositionsGoToTheLowestGridValue) {
    const double inf = std::numeric_limits<double>::infinity();
    PointCloud cloud = cloudOf(1, {NAN, 1, 2, 3, inf, 5, 6, 7, -inf, 1e300, -1e300, 0});
    Encoder encoder(kPlain);
    const Bytes chunk = encoder.encode(cloud);
    ReadChunk read;
    readChunk(kPlain, chunk.data(), static_cast<int>(chunk.size()), read);
    EXPECT_EQ(read.numPoints, 4);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(read.box.min[k], kMin);
    EXPECT_EQ(read.box.max[0], 6);
    EXPECT_EQ(read.box.max[1], 7);
    EXPECT_EQ(read.box.max[2], 5);
}

// A random cloud of distinct grid positions over several scales, with attributes that exercise
// clamping, colour reduction and every normal direction.
PointCloud randomCloud(std::mt19937& random, int numPoints, int maxReflection) {
    std::uniform_int_distribution<int> scaleBits(0, 20);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_real_distribution<float> unit(-1, 1);
    std::set<std::tuple<long long, long long, long long>> used;
    PointCloud cloud;
    while (cloud.size() < numPoints) {
        const long long span = 1ll << scaleBits(random);
        std::uniform_int_distribution<long long> grid(-span, span);
        const auto key = std::make_tuple(grid(random), grid(random) / 4, grid(random) - 1000);
        if (!used.insert(key).second) continue;
        const uint8_t rgb[3] = {static_cast<uint8_t>(byte(random)),
                                static_cast<uint8_t>(byte(random) / 16),
                                static_cast<uint8_t>(byte(random))};
        const int32_t reflection =
            std::uniform_int_distribution<int32_t>(-10, maxReflection + 10)(random);
        const float normal[3] = {unit(random), unit(random), unit(random) + 0.01f};
        // Positions sit on the grid of the step 0.25 exactly, so their grid values are known.
        cloud.add(std::get<0>(key) * 0.25, std::get<1>(key) * 0.25, std::get<2>(key) * 0.25, rgb,
                  reflection, normal);
    }
    return cloud;
}

TEST(ChunkEncoder, ReusedBufferGivesTheSameBytesAsAFreshOne) {
    const zul_DataType dataType = makeDataType(0.001f, zul_COLOR_RGB565, 4000, true);
    std::mt19937 random(3);
    PointCloud large = randomCloud(random, 4000, 4000);
    PointCloud small = randomCloud(random, 9, 4000);
    Encoder used(dataType), fresh(dataType);
    const Bytes first = used.encode(large);
    const Bytes second = used.encode(small);
    EXPECT_LT(second.size(), first.size());
    EXPECT_EQ(second, fresh.encode(small));
}

using Combination = std::tuple<zul_ColorMode, bool, bool>;

class ChunkInvariants : public ::testing::TestWithParam<Combination> {
protected:
    void SetUp() override {
        const auto [color, reflection, normals] = GetParam();
        dataType = makeDataType(0.25f, color, reflection ? 1000 : 0, normals);
    }
    zul_DataType dataType;
};

// What the stream must say of one input point: grid x, y, z and the attributes as kept.
using Expected = std::tuple<long long, long long, long long, int, int, int, int, int, int>;

Expected expectedOf(const zul_DataType& dataType, PointCloud& cloud, int i) {
    const bool rgb565 = dataType.colorMode == zul_COLOR_RGB565;
    int rgb[3] = {0, 0, 0}, reflection = 0;
    int32_t cell[2] = {0, 0};
    if (dataType.colorMode != zul_COLOR_NONE)
        for (int k = 0; k < 3; ++k)
            rgb[k] = cloud.colors[3 * i + k] >> (rgb565 ? (k == 1 ? 2 : 3) : 0);
    if (dataType.reflectionMode != zul_REFLECTION_NONE)
        reflection = std::clamp(cloud.reflections[i], 0, dataType.maxReflection);
    if (dataType.normalMode != zul_NORMAL_NONE) {
        EXPECT_TRUE(zullib::quantizeNormal(&cloud.normals[3 * i], cell));
    }
    return {std::llround(cloud.positions[3 * i] * 4),
            std::llround(cloud.positions[3 * i + 1] * 4),
            std::llround(cloud.positions[3 * i + 2] * 4),
            rgb[0],
            rgb[1],
            rgb[2],
            reflection,
            cell[0],
            cell[1]};
}

PointCloud reordered(const PointCloud& cloud, std::mt19937& random) {
    std::vector<int> order(static_cast<size_t>(cloud.size()));
    for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
    std::shuffle(order.begin(), order.end(), random);
    PointCloud out;
    for (int i : order) {
        const uint8_t rgb[3] = {cloud.colors[3 * i], cloud.colors[3 * i + 1],
                                cloud.colors[3 * i + 2]};
        const float normal[3] = {cloud.normals[3 * i], cloud.normals[3 * i + 1],
                                 cloud.normals[3 * i + 2]};
        out.add(cloud.positions[3 * i], cloud.positions[3 * i + 1], cloud.positions[3 * i + 2], rgb,
                cloud.reflections[i], normal);
    }
    return out;
}

TEST_P(ChunkInvariants, HoldOverRandomClouds) {
    std::mt19937 random(7);
    std::vector<int> limits = {7};  // of the present streams, in stream order
    if (dataType.colorMode != zul_COLOR_NONE)
        limits.push_back(dataType.colorMode == zul_COLOR_RGB565 ? 5 : 6);
    if (dataType.reflectionMode != zul_REFLECTION_NONE) limits.push_back(6);
    if (dataType.normalMode != zul_NORMAL_NONE) limits.push_back(6);

    Encoder encoder(dataType);
    for (int numPoints : {1, 2, 1500, 3000}) {
        PointCloud cloud = randomCloud(random, numPoints, dataType.maxReflection);
        const Bytes chunk = encoder.encode(cloud);
        ReadChunk read;
        ASSERT_NO_FATAL_FAILURE(
            readChunk(dataType, chunk.data(), static_cast<int>(chunk.size()), read));
        EXPECT_EQ(read.bodyOffset, 72 + 4 * (static_cast<int>(limits.size()) - 1));
        ASSERT_EQ(read.numPoints, numPoints);

        ASSERT_EQ(read.tables.size(), limits.size());
        for (size_t s = 0; s < limits.size(); ++s) {
            for (const std::vector<int>& table : read.tables[s]) {
                EXPECT_LE(static_cast<int>(table.size()), limits[s]);
                // Strictly ascending, so an escape (255) can only be last.
                for (size_t j = 1; j < table.size(); ++j) EXPECT_LT(table[j - 1], table[j]);
            }
        }

        // The records decode to the input set, sorted by slot, inside the input's box.
        const zullib::ChunkAxes axes = zullib::chunkAxes(read.box);
        std::vector<Expected> expected, decoded;
        for (int i = 0; i < numPoints; ++i) expected.push_back(expectedOf(dataType, cloud, i));
        for (size_t i = 0; i < read.points.size(); ++i) {
            const auto& slots = read.points[i].coordinates;
            if (i > 0) {
                const auto& before = read.points[i - 1].coordinates;
                EXPECT_LT(std::tie(before[0], before[1], before[2]),
                          std::tie(slots[0], slots[1], slots[2]));
            }
            long long grid[3];
            for (int k = 0; k < 3; ++k) grid[axes.axisRemap[k]] = slots[k] + axes.slotMin[k];
            const zullib::zul_QuantizedPoint& p = read.points[i];
            decoded.emplace_back(grid[0], grid[1], grid[2], p.rgb[0], p.rgb[1], p.rgb[2],
                                 p.reflection, p.normal[0], p.normal[1]);
        }
        std::sort(expected.begin(), expected.end());
        std::sort(decoded.begin(), decoded.end());
        EXPECT_EQ(decoded, expected);
        long long low[3] = {kMax, kMax, kMax}, high[3] = {kMin, kMin, kMin};
        for (const Expected& e : expected) {
            const long long grid[3] = {std::get<0>(e), std::get<1>(e), std::get<2>(e)};
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], grid[k]);
                high[k] = std::max(high[k], grid[k]);
            }
        }
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(read.box.min[k], low[k]);
            EXPECT_EQ(read.box.max[k], high[k]);
        }

        // Another input order of the same distinct points gives the same bytes.
        PointCloud shuffled = reordered(cloud, random);
        EXPECT_EQ(encoder.encode(shuffled), chunk);
    }
}

INSTANTIATE_TEST_SUITE_P(ChunkEncoder, ChunkInvariants,
                         ::testing::Combine(::testing::Values(zul_COLOR_NONE, zul_COLOR_RGB565,
                                                              zul_COLOR_RGB888),
                                            ::testing::Bool(), ::testing::Bool()));

}  // namespace

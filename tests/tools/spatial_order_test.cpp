// Spatially compact chunks: the k-d ordering of the compress command, on its own and through the
// command, block by block when the input exceeds the budget.
#include "zul/spatial_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "tool_support.h"
#include "zul/commands.h"

namespace {

using Key = std::tuple<double, double, double, int>;

std::vector<zul_Point> randomPoints(size_t count, double width, double height, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> x(0, width), y(0, height), z(0, 1);
    std::vector<zul_Point> points(count);
    for (size_t i = 0; i < count; ++i) {
        points[i] = {};
        points[i].position[0] = x(random);
        points[i].position[1] = y(random);
        points[i].position[2] = z(random);
        points[i].reflection = static_cast<int32_t>(i);
    }
    return points;
}

std::vector<Key> keys(const std::vector<zul_Point>& points) {
    std::vector<Key> k;
    for (const zul_Point& p : points)
        k.emplace_back(p.position[0], p.position[1], p.position[2], p.reflection);
    std::sort(k.begin(), k.end());
    return k;
}

// The area of the xy box of points [first, first + count).
double boxArea(const std::vector<zul_Point>& points, size_t first, size_t count) {
    double low[2] = {1e300, 1e300}, high[2] = {-1e300, -1e300};
    for (size_t i = first; i < first + count; ++i) {
        for (int k = 0; k < 2; ++k) {
            low[k] = std::min(low[k], points[i].position[k]);
            high[k] = std::max(high[k], points[i].position[k]);
        }
    }
    return (high[0] - low[0]) * (high[1] - low[1]);
}

TEST(SpatialOrder, EveryChunkIsACompactCellAndNoPointIsLost) {
    // A long strip: cells must be cut along its length first.
    std::vector<zul_Point> points = randomPoints(10500, 400, 100, 3);
    const std::vector<Key> before = keys(points);
    zultool::orderForChunks(points, 1000);
    EXPECT_EQ(keys(points), before);
    const double whole = boxArea(points, 0, points.size());
    for (size_t first = 0; first < points.size(); first += 1000) {
        const size_t count = std::min<size_t>(1000, points.size() - first);
        // Eleven runs share the strip; each holds about a tenth of it.
        EXPECT_LT(boxArea(points, first, count), whole / 6) << "run at " << first;
    }
}

TEST(SpatialOrder, SmallInputsAndNanPositionsStayWhole) {
    std::vector<zul_Point> points = randomPoints(50, 10, 10, 5);
    std::vector<zul_Point> same = points;
    zultool::orderForChunks(same, 50);  // one chunk: nothing to cut
    EXPECT_EQ(keys(same), keys(points));
    for (size_t i = 0; i < points.size(); i += 7) points[i].position[i % 3] = NAN;
    zultool::orderForChunks(points, 4);
    size_t nan = 0;
    for (const zul_Point& p : points)
        nan += std::isnan(p.position[0]) || std::isnan(p.position[1]) || std::isnan(p.position[2]);
    EXPECT_EQ(nan, 8u);
    EXPECT_EQ(points.size(), 50u);
}

TEST(SpatialOrder, BlocksAreWholeChunksWithinTheBudget) {
    EXPECT_EQ(zultool::blockCapacity(1000 * sizeof(zul_Point), 100), 1000u);
    EXPECT_EQ(zultool::blockCapacity(1050 * sizeof(zul_Point), 100), 1000u);
    EXPECT_EQ(zultool::blockCapacity(10, 100), 100u);  // never less than one chunk
}

// The points of every chunk of a zul file, walked with the public decoder.
std::vector<int> chunkCounts(const std::string& path) {
    const std::string bytes = readText(path);
    std::vector<int> counts;
    zul_dec_Context decoder = nullptr;
    int headerSize = 0, chunkHeaderSize = 0;
    zul_DataType type;
    const char* marker = nullptr;
    EXPECT_EQ(zul_dec_open(&decoder, &headerSize, bytes.data()), zul_STATUS_OK);
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder, &type, &chunkHeaderSize, &marker, bytes.data() + 8),
              zul_STATUS_OK);
    size_t at = 8 + static_cast<size_t>(headerSize);
    while (at < bytes.size()) {
        int bodySize = 0, count = 0;
        if (zul_dec_decodeChunkHeader(decoder, &bodySize, bytes.data() + at + 16) != zul_STATUS_OK)
            break;
        zul_dec_getNumPointsInChunk(decoder, &count);
        counts.push_back(count);
        at += 16 + static_cast<size_t>(chunkHeaderSize) + static_cast<size_t>(bodySize);
    }
    zul_dec_close(&decoder);
    return counts;
}

class OrderCommand : public ToolTest {};

TEST_F(OrderCommand, KdOrderShrinksCoordinatesOfADepthCameraCloud) {
    const std::string input = dataFile("table_scene_mug_stereo_textured.pcd");
    ASSERT_EQ(runTool("compress -q --order input " + input + " " + path("input.zul")).exitCode, 0);
    ASSERT_EQ(runTool("compress -q " + input + " " + path("kd.zul")).exitCode, 0);
    const auto coordinateBytes = [&](const std::string& name) {
        const std::string info = runTool("info --json " + path(name)).output;
        const size_t at = info.find("\"coordinates\": {\"bytes\": ");
        return at == std::string::npos ? 0L : std::stol(info.substr(at + 25));
    };
    const long inputBytes = coordinateBytes("input.zul"), kd = coordinateBytes("kd.zul");
    ASSERT_GT(inputBytes, 0);
    EXPECT_LT(kd, inputBytes * 0.92) << kd << " against " << inputBytes;
    EXPECT_EQ(chunkCounts(path("kd.zul")), chunkCounts(path("input.zul")));
}

TEST_F(OrderCommand, InputsOverTheBudgetAreOrderedBlockByBlock) {
    // One MiB holds 21 chunks of 1000 points: cturtle's 167,198 points make eight blocks, and
    // still every chunk but the last is full.
    zultool::CompressOptions options;
    options.input = dataFile("cturtle.pcd");
    options.output = path("blocks.zul");
    options.chunk = 1000;
    options.orderBudgetMiB = 1;
    options.quiet = true;
    ASSERT_EQ(zultool::runCompress(options), 0);
    const std::vector<int> counts = chunkCounts(options.output);
    ASSERT_EQ(counts.size(), 168u);
    for (size_t i = 0; i + 1 < counts.size(); ++i) ASSERT_EQ(counts[i], 1000) << i;
    EXPECT_EQ(counts.back(), 198);

    zul_in_Context in = nullptr;
    zul_DataType type;
    int64_t total = 0;
    ASSERT_EQ(zul_in_open(&in, &type, options.output.c_str()), zul_STATUS_OK);
    ASSERT_EQ(zul_in_getNumPoints(in, &total), zul_STATUS_OK);
    zul_in_close(&in);
    EXPECT_EQ(total, 167198);
}

}  // namespace

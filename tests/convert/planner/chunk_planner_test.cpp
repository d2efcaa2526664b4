// The chunk planner: k-d cells on their own, planned files that hold the same points as the
// input's order in no more bytes, and clouds of awkward shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "planner/block_planner.h"
#include "planner/kd_cells.h"
#include "planner/planned_writer.h"
#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

using Key = std::tuple<double, double, double, int, int>;

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
        k.emplace_back(p.position[0], p.position[1], p.position[2], p.reflection, p.color[0]);
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

TEST(KdCells, EveryChunkIsACompactCellAndNoPointIsLost) {
    // A long strip: cells must be cut along its length first.
    std::vector<zul_Point> points = randomPoints(10500, 400, 100, 3);
    const std::vector<Key> before = keys(points);
    zulplan::orderForChunks(points, 1000);
    EXPECT_EQ(keys(points), before);
    const double whole = boxArea(points, 0, points.size());
    for (size_t first = 0; first < points.size(); first += 1000) {
        const size_t count = std::min<size_t>(1000, points.size() - first);
        // Eleven runs share the strip; each holds about a tenth of it.
        EXPECT_LT(boxArea(points, first, count), whole / 6) << "run at " << first;
    }
}

// The cells as halving by std::nth_element makes them, each as its sorted indices.
void plainCells(const std::vector<zul_Point>& points, std::vector<uint32_t> part, size_t chunk,
                std::vector<std::vector<uint32_t>>& cells) {
    if (part.size() <= chunk) {
        std::sort(part.begin(), part.end());
        cells.push_back(part);
        return;
    }
    double extent[3];
    for (int k = 0; k < 3; ++k) {
        double low = INFINITY, high = -INFINITY;
        for (uint32_t i : part) {
            if (!std::isfinite(points[i].position[k])) continue;
            low = std::min(low, points[i].position[k]);
            high = std::max(high, points[i].position[k]);
        }
        extent[k] = high >= low ? high - low : 0;
    }
    const int axis = static_cast<int>(std::max_element(extent, extent + 3) - extent);
    const size_t middle = ((part.size() + chunk - 1) / chunk + 1) / 2 * chunk;
    std::nth_element(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(middle), part.end(),
                     [&](uint32_t a, uint32_t b) {
                         return points[a].position[axis] < points[b].position[axis];
                     });
    plainCells(points, {part.begin(), part.begin() + static_cast<std::ptrdiff_t>(middle)}, chunk,
               cells);
    plainCells(points, {part.begin() + static_cast<std::ptrdiff_t>(middle), part.end()}, chunk,
               cells);
}

std::vector<std::vector<uint32_t>> cellsOf(const zulplan::Cutting& cutting) {
    std::vector<std::vector<uint32_t>> cells;
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        cells.emplace_back(cutting.order.begin() + cutting.begin(c),
                           cutting.order.begin() + cutting.ends[c]);
        std::sort(cells.back().begin(), cells.back().end());
    }
    return cells;
}

struct KdCase {
    size_t count;
    double width, height;
    int chunk;
    size_t infinite;  // points whose height is infinite, which no extent counts
};

class KdCellsMatch : public ::testing::TestWithParam<KdCase> {};

// The mean extent of the full cells of a cutting, each a box across x and y.
double meanCellArea(const std::vector<zul_Point>& points, const zulplan::Cutting& cutting,
                    size_t chunk) {
    double sum = 0;
    size_t cells = 0;
    for (size_t c = 0; c < cutting.chunks(); ++c) {
        if (cutting.ends[c] - cutting.begin(c) != chunk) continue;
        std::vector<zul_Point> cell;
        for (size_t i = cutting.begin(c); i < cutting.ends[c]; ++i)
            cell.push_back(points[cutting.order[i]]);
        sum += boxArea(cell, 0, cell.size());
        ++cells;
    }
    return cells == 0 ? 0 : sum / static_cast<double>(cells);
}

// Large parts are halved from a sample of pivots: the cells are those of plain halving all the
// same (distinct coordinates make them one). A k-d sample takes branches of the tree at the full
// density of the points (large blocks find them on a thinned copy): its cells are as large as the
// cells of the whole, no point twice, and about as many points as asked for.
TEST_P(KdCellsMatch, PlainHalvingAndTheSample) {
    const KdCase c = GetParam();
    std::vector<zul_Point> points = randomPoints(c.count, c.width, c.height, 7);
    for (size_t i = 0; i < c.infinite; ++i) points[i * 97].position[2] = INFINITY;
    zulplan::IndexVector all(points.size());
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<uint32_t>(i);
    std::vector<std::vector<uint32_t>> plain;
    plainCells(points, {all.begin(), all.end()}, static_cast<size_t>(c.chunk), plain);
    zulplan::Cutting cutting, sample;
    zulplan::KdScratch scratch;
    zulplan::cutKdCells(points.data(), all, c.chunk, cutting, scratch);
    EXPECT_EQ(cellsOf(cutting), plain);
    const size_t target = std::max<size_t>(3000, static_cast<size_t>(c.chunk));
    const size_t sampled =
        zulplan::kdSample(points.data(), all, c.chunk, target, 8, sample, scratch);
    EXPECT_EQ(sampled, sample.order.size());
    EXPECT_GE(sampled, std::min(points.size(), 8 * target / 4));
    EXPECT_LE(sampled, std::min(points.size(), 8 * target * 3 / 2));
    std::vector<uint32_t> taken(sample.order.begin(), sample.order.end());
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(std::adjacent_find(taken.begin(), taken.end()), taken.end());
    for (size_t k = 0; k < sample.chunks(); ++k)
        EXPECT_LE(sample.ends[k] - sample.begin(k), static_cast<size_t>(c.chunk));
    const double whole = meanCellArea(points, cutting, static_cast<size_t>(c.chunk));
    const double sampledArea = meanCellArea(points, sample, static_cast<size_t>(c.chunk));
    if (points.size() < 2 * static_cast<size_t>(c.chunk)) return;  // one cell, the whole
    EXPECT_GT(sampledArea, 0.75 * whole);
    EXPECT_LT(sampledArea, 1.33 * whole);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, KdCellsMatch,
    ::testing::Values(KdCase{40000, 400, 100, 500, 0}, KdCase{40000, 100, 100, 1000, 5},
                      KdCase{30000, 1000, 10, 64, 0}, KdCase{9000, 100, 300, 10000, 0},
                      KdCase{400000, 300, 200, 4000, 3}, KdCase{200000, 2000, 30, 1024, 0}));

struct StripCase {
    int axis, shift;
    size_t notFinite;  // points with a coordinate that is not a number
};

class StripBands : public ::testing::TestWithParam<StripCase> {};

// Strips cut from the finest bands worked out beforehand are those cut from the points.
TEST_P(StripBands, FromTheFinestAsFromThePoints) {
    const StripCase c = GetParam();
    std::vector<zul_Point> points = randomPoints(20000, 100, 60, 11);
    for (size_t i = 0; i < c.notFinite; ++i) points[i * 31].position[i % 3] = NAN;
    zulplan::StripShape shape;
    shape.axis = c.axis;
    shape.origin = 0;
    shape.width = 0.75 * std::exp2(c.shift);
    shape.inverse = 1 / shape.width;
    shape.count = static_cast<size_t>((c.axis == 0 ? 100 : 60) / shape.width) + 1;
    shape.chunk = 700;
    shape.maxLength = 20;
    zulplan::StripShape finest = shape;
    finest.inverse = std::ldexp(shape.inverse, c.shift);
    finest.count = shape.count << c.shift;
    std::vector<uint64_t> units(points.size());
    zulplan::IndexVector all(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        const size_t band = zulplan::stripOf(finest, points[i]);
        units[i] = band == finest.count ? UINT64_MAX : band;
        all[i] = static_cast<uint32_t>(i);
    }
    zulplan::Cutting plain, fromFinest;
    zulplan::StripScratch scratch;
    zulplan::cutStrips(points.data(), all, shape, plain, scratch);
    zulplan::cutStrips(points.data(), all, shape, fromFinest, scratch, units.data(), c.shift);
    EXPECT_EQ(fromFinest.order, plain.order);
    EXPECT_EQ(fromFinest.ends, plain.ends);
}

INSTANTIATE_TEST_SUITE_P(Shapes, StripBands,
                         ::testing::Values(StripCase{0, 0, 0}, StripCase{1, 3, 0},
                                           StripCase{0, 5, 7}));

class PlannedFiles : public ToolTest, public ::testing::WithParamInterface<const char*> {};

// The planner's file holds the points of the input's order, never in more bytes, in chunks of 1
// to --chunk points.
TEST_P(PlannedFiles, HoldTheSamePointsInNoMoreBytes) {
    const std::string input = dataFile(GetParam());
    for (const char* order : {"input", "plan"}) {
        ASSERT_TRUE(toolSucceeds(std::string("compress -q --chunk 4000 --order ") + order + " " +
                                 input + " " + path(std::string(order) + ".zul")));
    }
    const ZulFile inputOrder = readZul(path("input.zul")), planned = readZul(path("plan.zul"));
    EXPECT_EQ(keys(planned.points), keys(inputOrder.points));
    for (int count : planned.chunkCounts) ASSERT_TRUE(count >= 1 && count <= 4000) << count;
    EXPECT_LE(std::filesystem::file_size(path("plan.zul")),
              std::filesystem::file_size(path("input.zul")));
}

INSTANTIATE_TEST_SUITE_P(SharedClouds, PlannedFiles,
                         ::testing::Values("sample_c.las", "cturtle.pcd", "bun0.pcd"));

TEST_F(ToolTest, KdAndBudgetedBlocksStaySelectable) {
    // One MiB holds 21 chunks of 1000 points: cturtle's 167,198 points make eight blocks of
    // k-d cells, every chunk but the last full.
    ASSERT_TRUE(toolSucceeds("compress -q --chunk 1000 --order kd --order-budget 1 " +
                             dataFile("cturtle.pcd") + " " + path("blocks.zul")));
    const ZulFile file = readZul(path("blocks.zul"));
    ASSERT_EQ(file.chunkCounts.size(), 168u);
    for (size_t i = 0; i + 1 < file.chunkCounts.size(); ++i) ASSERT_EQ(file.chunkCounts[i], 1000);
    EXPECT_EQ(file.points.size(), 167198u);
    const ToolRun verbose = runTool("compress -v " + dataFile("cturtle.pcd") + " " + path("b.zul"));
    EXPECT_NE(verbose.output.find("planning:"), std::string::npos) << verbose.output;
}

// Clouds of awkward shape, planned whole and from samples: each row moves the points of a
// random cloud of 5000 (none: a single point).
struct Shape {
    const char* name;
    void (*move)(double* p, size_t i);
    float step = 1e-9f;
};

const Shape kShapes[] = {
    {"nan", [](double* p, size_t i) { p[i % 3] = i % 7 ? p[i % 3] : NAN; }},
    {"one position", [](double* p, size_t) { p[0] = p[1] = p[2] = 3.25; }},
    {"single point", nullptr},
    {"line", [](double* p, size_t) { p[1] = 2 * p[0], p[2] = 0; }},
    {"upright plane", [](double* p, size_t) { p[1] = 5; }},
    {"huge", [](double* p, size_t) { p[0] *= 1e9, p[1] *= 1e9; }, 1.0f},
    {"tiny", [](double* p, size_t) { p[0] *= 1e-6, p[1] *= 1e-6, p[2] *= 1e-6; }},
};

class AwkwardClouds : public TempFolderTest, public ::testing::WithParamInterface<Shape> {};

TEST_P(AwkwardClouds, PlanWithoutErrorOrEmptyChunk) {
    const Shape& shape = GetParam();
    std::vector<zul_Point> points = randomPoints(shape.move ? 5000 : 1, 1, 1, 9);
    for (size_t i = 0; i < points.size() && shape.move; ++i) shape.move(points[i].position, i);
    const zul_DataType type = makeDataType(shape.step, zul_COLOR_NONE, 1 << 20, false);
    for (size_t exactLimit : {size_t{1} << 20, size_t{0}}) {
        zulplan::PlanOptions options;
        options.chunk = 300;
        options.planner.exactLimit = exactLimit;
        options.planner.sampleTarget = 1000;
        zulplan::PlannedWriter writer;
        ASSERT_EQ(writer.open(path("a.zul"), type, nullptr, options), zul_STATUS_OK);
        std::vector<uint64_t> order;
        writer.recordOrder(&order);
        for (const zul_Point& p : points) ASSERT_EQ(writer.write(p), zul_STATUS_OK);
        ASSERT_EQ(writer.close(), zul_STATUS_OK);
        const ZulFile file = readZul(path("a.zul"));
        EXPECT_EQ(file.points.size(), points.size());
        // The order recorded is the stream's: each stored point's reflection is its number.
        ASSERT_EQ(order.size(), points.size());
        for (int count : file.chunkCounts) ASSERT_TRUE(count >= 1 && count <= 300) << count;
        for (size_t k = 0; k < order.size(); ++k) {
            ASSERT_EQ(order[k], static_cast<uint64_t>(file.points[k].reflection)) << k;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, AwkwardClouds, ::testing::ValuesIn(kShapes), NameOfCase());

// The order handed back is the stream's in every order and on any thread count, for chunks
// sorted by digits (no two points on one position) and by comparison (many), with the plan
// measured exactly or weighed on samples (its chunks then kept from the measuring, their order
// found before they are encoded).
class StoredOrder : public TempFolderTest,
                    public ::testing::WithParamInterface<std::tuple<zulplan::Order, int, size_t>> {
};

TEST_P(StoredOrder, IsTheStreamsOrder) {
    std::vector<zul_Point> points = randomPoints(12000, 50, 50, 5);
    for (size_t i = 6000; i < points.size(); ++i) {
        std::copy_n(points[i % 700].position, 3, points[i].position);
    }
    zulplan::PlanOptions options;
    options.order = std::get<0>(GetParam());
    options.threads = std::get<1>(GetParam());
    options.planner.exactLimit = std::get<2>(GetParam());
    options.chunk = 3000;
    zulplan::PlannedWriter writer;
    ASSERT_EQ(writer.open(path("a.zul"), makeDataType(0.001f, zul_COLOR_NONE, 1 << 20, false),
                          nullptr, options),
              zul_STATUS_OK);
    std::vector<uint64_t> order, handed;
    writer.recordOrder(&order);
    writer.recordChunks([&](const std::vector<zulplan::StoredChunk>& chunks) {
        for (const zulplan::StoredChunk& chunk : chunks) {
            for (size_t k = 0; k < chunk.count; ++k) {
                // The values handed are those of the point named.
                EXPECT_EQ(chunk.points.reflections[chunk.at[k]],
                          static_cast<int32_t>(chunk.inputs[k]));
                handed.push_back(chunk.inputs[k]);
            }
        }
    });
    for (const zul_Point& p : points) ASSERT_EQ(writer.write(p), zul_STATUS_OK);
    ASSERT_EQ(writer.close(), zul_STATUS_OK);
    const ZulFile file = readZul(path("a.zul"));
    ASSERT_EQ(order.size(), file.points.size());
    EXPECT_EQ(handed, order);
    for (size_t k = 0; k < order.size(); ++k) {
        ASSERT_EQ(order[k], static_cast<uint64_t>(file.points[k].reflection)) << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Orders, StoredOrder,
                         ::testing::Combine(::testing::Values(zulplan::Order::Plan,
                                                              zulplan::Order::Kd,
                                                              zulplan::Order::Input),
                                            ::testing::Values(1, 2),
                                            ::testing::Values(size_t{1} << 20, size_t{0})));

// An airborne-like strip, as large inputs are: scan lines across x, flown along y, with terrain,
// colour and intensity that change smoothly and some noise.
std::vector<zul_Point> flightStrip(int lines, int perLine) {
    std::mt19937 random(4);
    std::normal_distribution<double> noise(0, 1);
    std::vector<zul_Point> points;
    for (int line = 0; line < lines; ++line) {
        for (int k = 0; k < perLine; ++k) {
            zul_Point p = {};
            const int a = line % 2 == 0 ? k : perLine - 1 - k;
            p.position[0] = 0.5 * a + 0.05 * noise(random);
            p.position[1] = 0.5 * line + 0.05 * noise(random);
            const double x = p.position[0], y = p.position[1];
            const bool roof = std::fmod(x, 60) < 25 && std::fmod(y, 50) < 20;
            p.position[2] = 100 + 10 * std::sin(x / 70) * std::cos(y / 90) + (roof ? 8 : 0) +
                            0.03 * noise(random);
            for (int c = 0; c < 3; ++c)
                p.color[c] = static_cast<uint8_t>(std::clamp(
                    120 + 50 * std::sin(x / (9 + c) + y / 13) + 5 * noise(random), 0.0, 255.0));
            p.reflection = static_cast<int32_t>(
                std::clamp(9000 + (roof ? 6000 : 0) + 400 * noise(random), 0.0, 65535.0));
            points.push_back(p);
        }
    }
    return points;
}

// What a sample says a cutting costs is within 1% of what the whole cutting costs.
TEST(BlockPlanner, EstimatesFromSamplesHoldWithinOnePercent) {
    const std::vector<zul_Point> strip = flightStrip(600, 1000);
    const zul_DataType type = makeDataType(0.01f, zul_COLOR_RGB888, 65535, false);
    zulplan::ChunkEncoder encoder(type, nullptr);
    zulplan::BlockPlannerOptions options;
    options.exactLimit = 0;
    zulplan::BlockPlanner planner(encoder, options);
    zulplan::Candidate chosen;
    zulplan::Estimate cost, inputCost;
    ASSERT_EQ(planner.choose(strip, chosen, cost, inputCost), zul_STATUS_OK);
    ASSERT_FALSE(cost.exact);
    EXPECT_EQ(chosen.kind, zulplan::Candidate::Strips);
    // Weighed on two threads, the same choice at the same cost.
    zulplan::ChunkEncoder second(type, nullptr);
    zulplan::BlockPlanner sideBySide(encoder, options);
    sideBySide.addEncoder(second);
    zulplan::Candidate twin;
    zulplan::Estimate twinCost, twinInput;
    ASSERT_EQ(sideBySide.choose(strip, twin, twinCost, twinInput), zul_STATUS_OK);
    EXPECT_EQ(twin.describe(), chosen.describe());
    EXPECT_EQ(twinCost.bytes, cost.bytes);
    EXPECT_EQ(twinInput.bytes, inputCost.bytes);
    for (const zulplan::Candidate& candidate : planner.candidates(strip)) {
        zulplan::Estimate estimate;
        ASSERT_EQ(planner.estimate(strip, candidate, estimate), zul_STATUS_OK);
        zulplan::Cutting cutting;
        planner.cut(strip, candidate, cutting);
        uint64_t exact = 0;
        ASSERT_EQ(encoder.measure(strip.data(), cutting, exact), zul_STATUS_OK);
        EXPECT_NEAR(static_cast<double>(estimate.bytes), static_cast<double>(exact), 0.01 * exact)
            << candidate.describe();
    }
}

// The choice weighed in two rounds (the chunks of every candidate's sample in part, then the rest
// of those close to the cheapest) is the one that weighing every whole sample makes, at the same
// cost: planted clouds in scan order, shuffled and turned, weighed on samples and whole.
struct PlantedCase {
    const char* name;
    int lines;
    bool shuffled, turned, sampled;
};

class TwoRounds : public ::testing::TestWithParam<PlantedCase> {};

TEST_P(TwoRounds, ChooseAsEveryWholeSampleDoes) {
    const PlantedCase& planted = GetParam();
    std::vector<zul_Point> cloud = flightStrip(planted.lines, 1000);
    if (planted.shuffled) std::shuffle(cloud.begin(), cloud.end(), std::mt19937(5));
    if (planted.turned)
        for (zul_Point& p : cloud) std::swap(p.position[0], p.position[1]);
    const zul_DataType type = makeDataType(0.01f, zul_COLOR_RGB888, 65535, false);
    zulplan::ChunkEncoder encoder(type, nullptr);
    zulplan::BlockPlannerOptions options;
    options.chunk = 1000;
    options.sampleTarget = 4000;
    options.exactLimit = planted.sampled ? 0 : cloud.size();
    zulplan::BlockPlanner planner(encoder, options), reference(encoder, options);
    zulplan::Candidate chosen;
    zulplan::Estimate cost, inputCost;
    ASSERT_EQ(planner.choose(cloud, chosen, cost, inputCost), zul_STATUS_OK);
    EXPECT_EQ(cost.exact, !planted.sampled);
    // Every candidate weighed on its whole sample, the earlier on ties.
    const std::vector<zulplan::Candidate> list = reference.candidates(cloud);
    std::vector<zulplan::Estimate> estimates(list.size());
    size_t best = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        ASSERT_EQ(reference.estimate(cloud, list[i], estimates[i]), zul_STATUS_OK);
        if (estimates[i].bytes < estimates[best].bytes) best = i;
    }
    if (planted.sampled) {
        // A sample's gain of less than 1% keeps the input's order.
        if (static_cast<double>(estimates[best].bytes) > 0.99 * estimates[0].bytes) best = 0;
        EXPECT_EQ(chosen.describe(), list[best].describe());
        EXPECT_EQ(cost.bytes, estimates[best].bytes);
    } else {
        // Measured whole, the widths between the best strips' may beat them.
        EXPECT_LE(cost.bytes, estimates[best].bytes);
        if (chosen.describe() == list[best].describe()) {
            EXPECT_EQ(cost.bytes, estimates[best].bytes);
        }
        zulplan::Cutting cutting;
        planner.cut(cloud, chosen, cutting);
        uint64_t whole = 0;
        ASSERT_EQ(encoder.measure(cloud.data(), cutting, whole), zul_STATUS_OK);
        EXPECT_EQ(cost.bytes, whole);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Planted, TwoRounds,
    ::testing::Values(PlantedCase{"ScanOrder", 300, false, false, true},
                      PlantedCase{"Shuffled", 300, true, false, true},
                      PlantedCase{"ShuffledTurned", 300, true, true, true},
                      PlantedCase{"WholeScanOrder", 40, false, false, false},
                      PlantedCase{"WholeShuffled", 40, true, false, false},
                      PlantedCase{"WholeShuffledTurned", 40, true, true, false}),
    [](const ::testing::TestParamInfo<PlantedCase>& info) { return info.param.name; });

// Blocks weighed on samples write the chunks measured whole as they are, over blocks of
// differing sizes and on any thread count: asking for the stored order changes no byte, and the
// order told is the stream's.
class KeptChunks : public TempFolderTest, public ::testing::WithParamInterface<int> {};

TEST_P(KeptChunks, GiveTheSameBytesAndTheStreamsOrder) {
    // Shuffled, so that strips beat the input's order; the reflection numbers the points.
    std::vector<zul_Point> strip = flightStrip(60, 1000);
    std::shuffle(strip.begin(), strip.end(), std::mt19937(3));
    for (size_t i = 0; i < strip.size(); ++i) strip[i].reflection = static_cast<int32_t>(i);
    const zul_DataType type = makeDataType(0.01f, zul_COLOR_RGB888, 65535, false);
    std::string files[2];
    std::vector<uint64_t> order;
    for (int recording = 0; recording < 2; ++recording) {
        zulplan::PlanOptions options;
        options.chunk = 1000;
        options.threads = GetParam();
        options.planner.exactLimit = 0;
        options.planner.sampleTarget = 4000;
        // Blocks of 25000, 25000 and 10000 points.
        options.budgetBytes = 25000 * (2 * sizeof(zul_Point) + 24);
        ASSERT_EQ(zulplan::blockCapacity(options.budgetBytes, 1000, zulplan::Order::Plan), 25000);
        zulplan::PlannedWriter writer;
        ASSERT_EQ(writer.open(path("a.zul"), type, nullptr, options), zul_STATUS_OK);
        if (recording) writer.recordOrder(&order);
        for (const zul_Point& p : strip) ASSERT_EQ(writer.write(p), zul_STATUS_OK);
        ASSERT_EQ(writer.close(), zul_STATUS_OK);
        EXPECT_NE(writer.summary().find("strips"), std::string::npos) << writer.summary();
        files[recording] = readFile(path("a.zul"));
    }
    EXPECT_EQ(files[0], files[1]);
    const ZulFile file = readZul(path("a.zul"));
    ASSERT_EQ(order.size(), strip.size());
    ASSERT_EQ(file.points.size(), strip.size());
    for (size_t k = 0; k < order.size(); ++k)
        ASSERT_EQ(order[k], static_cast<uint64_t>(file.points[k].reflection)) << k;
}

INSTANTIATE_TEST_SUITE_P(Threads, KeptChunks, ::testing::Values(1, 2));

}  // namespace

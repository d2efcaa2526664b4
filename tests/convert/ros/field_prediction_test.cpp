// A field predicted from an earlier point: its differences, placed in the stream points' records
// as the decoder places them, come back to the values exactly, for every width, distance and byte
// order, with wrap-around, extreme values and rows of points outside the stream (their own values
// kept, yet predicting the points after them).
#include "ros/field_prediction.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "ros/byte_order.h"
#include "ros/cloud_layout.h"

namespace zul::ros {
namespace {

struct Case {
    uint32_t width;     // bytes of the value
    uint32_t distance;  // 1 to the row's width
    bool big;
};

constexpr uint64_t kRows = 5, kColumns = 7, kPointStep = 11, kRowStep = 80, kOffset = 3;

// Values that wrap: the extremes of the width, then a ramp and noise.
uint64_t plantedValue(uint64_t i, std::mt19937_64& random) {
    switch (i % 5) {
        case 0:
            return ~uint64_t{0};
        case 1:
            return 0;
        case 2:
            return uint64_t{1} << 63;
        case 3:
            return i * 0x0101010101010101u;
        default:
            return random();
    }
}

uint64_t get(const uint8_t* p, uint32_t width, bool big) {
    uint64_t v = 0;
    for (uint32_t b = 0; b < width; ++b) v |= uint64_t(p[big ? width - 1 - b : b]) << (8 * b);
    return v;
}

void put(uint8_t* p, uint32_t width, bool big, uint64_t v) {
    for (uint32_t b = 0; b < width; ++b) p[big ? width - 1 - b : b] = uint8_t(v >> (8 * b));
}

class PredictionRoundTrip : public ::testing::TestWithParam<Case> {};

TEST_P(PredictionRoundTrip, DifferencesComeBackExactly) {
    const Case& c = GetParam();
    const RecordGrid grid{kRows, kColumns, kRowStep, kPointStep, c.big};
    const PredictedValue value{uint32_t(kOffset), c.width};
    std::mt19937_64 random(c.width * 100 + c.distance);
    std::vector<uint8_t> data(kRows * kRowStep);
    for (uint8_t& b : data) b = uint8_t(random());
    std::vector<uint8_t> inStream(kRows * kColumns, 1);
    for (uint64_t i = 0; i < kRows * kColumns; ++i) {
        const uint64_t r = i / kColumns, col = i % kColumns;
        put(&data[r * kRowStep + col * kPointStep + kOffset], c.width, c.big,
            plantedValue(i, random));
        if (r == 2 || i % 9 == 4) inStream[i] = 0;  // a row outside the stream, and some points
    }
    std::vector<uint8_t> differences(kRows * kColumns * c.width);
    predictValues(grid, data.data(), value, c.distance, differences.data());
    // The decoder's records: a stream point holds its difference, the others their own value.
    std::vector<uint8_t> decoded = data;
    for (uint64_t i = 0; i < kRows * kColumns; ++i) {
        if (!inStream[i]) continue;
        uint8_t* at = &decoded[(i / kColumns) * kRowStep + (i % kColumns) * kPointStep + kOffset];
        put(at, c.width, c.big, get(&differences[i * c.width], c.width, false));
    }
    undoPredictions(grid, decoded.data(), CloudLayout{}, {{value, {c.distance, 0}}},
                    inStream.data());
    EXPECT_EQ(decoded, data);
}

std::vector<Case> cases() {
    std::vector<Case> all;
    for (uint32_t width : {1u, 2u, 4u, 8u})
        for (uint32_t distance : {1u, 3u, uint32_t(kColumns)})
            for (bool big : {false, true}) all.push_back({width, distance, big});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Widths, PredictionRoundTrip, ::testing::ValuesIn(cases()),
                         [](const auto& info) {
                             const Case& c = info.param;
                             return "w" + std::to_string(c.width) + "_d" +
                                    std::to_string(c.distance) + (c.big ? "_big" : "");
                         });

// A whole number predicted from its point's distance to the origin: x, y and z (floats) as the
// stream gives them back from the grid, values near the prediction, at the extremes of the width,
// and points so far out that no prediction is made.
class RadialRoundTrip : public ::testing::TestWithParam<Case> {};

TEST_P(RadialRoundTrip, DifferencesComeBackExactly) {
    const Case& c = GetParam();
    constexpr uint64_t kPoints = 40, kStep = 24, kValueAt = 16;
    CloudLayout layout;
    layout.bigEndian = c.big;
    for (uint32_t k = 0; k < 3; ++k) layout.position[k] = {int(k), 4 * k, kFloat32, "xyz"};
    const RecordGrid cloud{1, kPoints, kPoints * kStep, kStep, c.big};
    std::mt19937_64 random(c.width);
    std::vector<uint8_t> data(kPoints * kStep);
    std::vector<const uint8_t*> records;
    std::vector<uint32_t> indices;
    std::vector<int64_t> grid;  // x, y, z of the stream points on the grid
    std::vector<uint8_t> inStream(kPoints, 0);
    const double step = double(0.001f), scale = 1e4;
    const bool narrow[3] = {true, true, true};
    for (uint32_t i = 0; i < kPoints; ++i) {
        uint8_t* record = &data[i * kStep];
        const int64_t at[3] = {i % 7 == 0 ? int64_t{1} << 62 : int64_t(i) * 370, -int64_t(i), 2500};
        for (int k = 0; k < 3; ++k) {
            const float position = float(double(at[k]) * step);
            uint32_t bits;
            std::memcpy(&bits, &position, 4);
            put(record + 4 * k, 4, c.big, bits);
        }
        const uint64_t near =
            uint64_t(radialPrediction(gridRadius(at, step, narrow), scale)) + i % 3 - 1;
        put(record + kValueAt, c.width, c.big, i % 5 == 0 ? plantedValue(i, random) : near);
        if (i % 4 == 3) continue;  // outside the stream: keeps its own value
        inStream[i] = 1;
        records.push_back(record);
        indices.push_back(i);
        grid.insert(grid.end(), at, at + 3);
    }
    const PredictedValue value{uint32_t(kValueAt), c.width};
    std::vector<uint8_t> differences(kPoints * c.width);
    predictRadially(records.data(), indices.data(), grid.data(), step, narrow, records.size(),
                    value, scale, c.big, differences.data());
    std::vector<uint8_t> decoded = data;
    for (uint32_t i : indices)
        put(&decoded[i * kStep + kValueAt], c.width, c.big,
            get(&differences[i * c.width], c.width, false));
    undoPredictions(cloud, decoded.data(), layout, {{value, {kRadialPrediction, scale}}},
                    inStream.data());
    EXPECT_EQ(decoded, data);
}

INSTANTIATE_TEST_SUITE_P(Widths, RadialRoundTrip,
                         ::testing::Values(Case{1, 0, false}, Case{2, 0, true}, Case{4, 0, false},
                                           Case{4, 0, true}, Case{8, 0, false}),
                         [](const auto& info) {
                             return "w" + std::to_string(info.param.width) +
                                    (info.param.big ? "_big" : "");
                         });

// The distance chosen for fields shaped like a lidar's: constant along a row (a ring), constant
// down a column (a time), repeating every 4 points, and noise (none).
struct Shape {
    const char* name;
    uint64_t (*value)(uint64_t row, uint64_t column, std::mt19937& random);
    uint32_t distance;
};

const Shape kShapes[] = {
    {"ring", [](uint64_t r, uint64_t, std::mt19937&) { return r * 7; }, 1},
    {"time", [](uint64_t, uint64_t c, std::mt19937&) { return c * 48828; }, 64},
    {"lasers", [](uint64_t, uint64_t c, std::mt19937&) { return 1000 + c % 4 * 50; }, 4},
    {"noise", [](uint64_t, uint64_t, std::mt19937& random) { return uint64_t(random()); }, 0},
};

class PredictionChoice : public ::testing::TestWithParam<Shape> {};

TEST_P(PredictionChoice, TakesTheDistanceThatPredictsBest) {
    const uint64_t rows = 16, columns = 64, pointStep = 8;
    std::vector<uint8_t> data(rows * columns * pointStep);
    std::mt19937 random(3);
    for (uint64_t r = 0; r < rows; ++r)
        for (uint64_t c = 0; c < columns; ++c)
            storeLittle<uint32_t>(&data[(r * columns + c) * pointStep],
                                  uint32_t(GetParam().value(r, c, random)));
    const RecordGrid grid{rows, columns, columns * pointStep, pointStep, false};
    double bits = 0;
    EXPECT_EQ(choosePrediction(grid, data.data(), {0, 4}, bits), GetParam().distance);
}

INSTANTIATE_TEST_SUITE_P(Fields, PredictionChoice, ::testing::ValuesIn(kShapes),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zul::ros

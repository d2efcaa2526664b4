#include "encoder/quantize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "frame/normal_grid.h"

namespace {

TEST(Quantize, CoordinatesGoToTheNearestGridPointWithHalvesUp) {
    const double inf = std::numeric_limits<double>::infinity();
    const double defaultStep = static_cast<double>(0.0001f);  // the float widened, not the decimal
    const struct {
        double value, step;
        int64_t grid;
    } cases[] = {
        {0.125, 0.25, 1},
        {-0.125, 0.25, 0},
        {-0.1251, 0.25, -1},
        {0.374, 0.25, 1},
        {0.375, 0.25, 2},
        {0.00015, defaultStep, 2},
        {1000.00003, defaultStep, 10000001},
        // What no grid holds goes to the lowest value.
        {NAN, 0.25, INT64_MIN},
        {inf, 0.25, INT64_MIN},
        {-inf, 0.25, INT64_MIN},
        {1e300, 0.25, INT64_MIN},
        {9223372036854774784.0, 1.0, 9223372036854774784},
        {9223372036854775808.0, 1.0, INT64_MIN},
        {-9223372036854775808.0, 1.0, INT64_MIN},
    };
    for (const auto& c : cases)
        EXPECT_EQ(zullib::quantizeCoordinate(c.value, c.step), c.grid) << c.value;
}

TEST(Quantize, NormalsLandOnTheSphericalGrid) {
    const struct {
        float normal[3];
        int32_t cell, row;
    } cases[] = {
        {{0, 0, 1}, 12, 0},   {{0, 0, -1}, 12, 127},  // row 128 folds onto 127
        {{1, 0, 0}, 128, 64}, {{-1, 0, 0}, 255, 64},  // the last cell folds
        {{0, 1, 0}, 192, 64}, {{1, 1, 1}, 133, 38},  {{0, 0, 1000}, 12, 0}, {{NAN, 0, 1}, 0, 0},
    };
    for (const auto& c : cases) {
        int32_t cell[2] = {-1, -1};
        ASSERT_TRUE(zullib::quantizeNormal(c.normal, cell));
        EXPECT_EQ(cell[0], c.cell) << c.normal[0] << " " << c.normal[1] << " " << c.normal[2];
        EXPECT_EQ(cell[1], c.row) << c.normal[0] << " " << c.normal[1] << " " << c.normal[2];
    }
    const float shortNormals[][3] = {{0, 0, 0}, {1e-7f, 0, 0}, {0, -5e-7f, 5e-7f}};
    for (const auto& normal : shortNormals) {
        int32_t cell[2] = {-1, -1};
        EXPECT_FALSE(zullib::quantizeNormal(normal, cell));
        EXPECT_EQ(cell[0], -1);
    }
}

TEST(NormalGrid, RowsHoldTheirCells) {
    int total = 0;
    for (int row = 0; row < zullib::kNormalRows; ++row) {
        EXPECT_EQ(zullib::normalRowCells(row), zullib::computeNormalRowCells(row)) << row;
        EXPECT_EQ(zullib::normalRowCells(row), zullib::normalRowCells(127 - row)) << row;
        total += zullib::normalRowCells(row);
    }
    EXPECT_EQ(total, 21950);
    const int rows[] = {0, 1, 38, 59, 60, 67}, cells[] = {24, 29, 213, 255, 256, 256};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(zullib::normalRowCells(rows[i]), cells[i]) << rows[i];
}

}  // namespace

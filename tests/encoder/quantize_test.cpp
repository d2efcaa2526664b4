#include "encoder/quantize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "frame/normal_grid.h"
#include "support/test_names.h"

namespace {

struct CoordinateCase {
    const char* name;
    double value;
    double step;
    int64_t grid;
};

class CoordinateRounding : public ::testing::TestWithParam<CoordinateCase> {};

TEST_P(CoordinateRounding, GoesToTheNearestGridPointWithHalvesUp) {
    const CoordinateCase& c = GetParam();
    EXPECT_EQ(zullib::quantizeCoordinate(c.value, c.step), c.grid) << c.value;
}

const double kInf = std::numeric_limits<double>::infinity();
// The default step is the float 0.0001 widened to double, not the decimal.
const double kDefaultStep = static_cast<double>(0.0001f);

INSTANTIATE_TEST_SUITE_P(
    Quantize, CoordinateRounding,
    ::testing::Values(
        CoordinateCase{"exact half up", 0.125, 0.25, 1},
        CoordinateCase{"negative exact half up", -0.125, 0.25, 0},
        CoordinateCase{"just below a negative half", -0.1251, 0.25, -1},
        CoordinateCase{"just below a half", 0.374, 0.25, 1},
        CoordinateCase{"half above one step", 0.375, 0.25, 2},
        CoordinateCase{"float step widened", 0.00015, kDefaultStep, 2},
        CoordinateCase{"rounds by the float step", 1000.00003, kDefaultStep, 10000001},
        CoordinateCase{"nan", NAN, 0.25, INT64_MIN},
        CoordinateCase{"positive infinity", kInf, 0.25, INT64_MIN},
        CoordinateCase{"negative infinity", -kInf, 0.25, INT64_MIN},
        CoordinateCase{"beyond 64 bits", 1e300, 0.25, INT64_MIN},
        CoordinateCase{"largest below 2^63", 9223372036854774784.0, 1.0, 9223372036854774784},
        CoordinateCase{"exactly 2^63", 9223372036854775808.0, 1.0, INT64_MIN},
        CoordinateCase{"exactly minus 2^63", -9223372036854775808.0, 1.0, INT64_MIN}),
    NameOfCase());

struct NormalCase {
    const char* name;
    float normal[3];
    int32_t cell;
    int32_t row;
};

class NormalCells : public ::testing::TestWithParam<NormalCase> {};

TEST_P(NormalCells, LandOnTheSphericalGrid) {
    const NormalCase& c = GetParam();
    int32_t cell[2] = {-1, -1};
    ASSERT_TRUE(zullib::quantizeNormal(c.normal, cell));
    EXPECT_EQ(cell[0], c.cell);
    EXPECT_EQ(cell[1], c.row);
}

INSTANTIATE_TEST_SUITE_P(Quantize, NormalCells,
                         ::testing::Values(NormalCase{"plus z", {0, 0, 1}, 12, 0},
                                           NormalCase{"minus z folds row 128", {0, 0, -1}, 12, 127},
                                           NormalCase{"plus x", {1, 0, 0}, 128, 64},
                                           NormalCase{
                                               "minus x folds the last cell", {-1, 0, 0}, 255, 64},
                                           NormalCase{"plus y", {0, 1, 0}, 192, 64},
                                           NormalCase{"diagonal", {1, 1, 1}, 133, 38},
                                           NormalCase{"not of unit length", {0, 0, 1000}, 12, 0},
                                           NormalCase{"nan component", {NAN, 0, 1}, 0, 0}),
                         NameOfCase());

TEST(Quantize, ShortNormalsAreRefused) {
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
    EXPECT_EQ(zullib::normalRowCells(0), 24);
    EXPECT_EQ(zullib::normalRowCells(1), 29);
    EXPECT_EQ(zullib::normalRowCells(38), 213);
    EXPECT_EQ(zullib::normalRowCells(59), 255);
    for (int row = 60; row <= 67; ++row) EXPECT_EQ(zullib::normalRowCells(row), 256) << row;
}

}  // namespace

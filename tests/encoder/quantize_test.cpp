#include "encoder/quantize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "encoder/normal_cells.h"
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
        {-0.0, 1.0, 0},
        {-2.5, 1.0, -2},
        {-3.7, 1.0, -4},
        {-0.375, 0.25, -1},
        {-0.3, 0.25, -1},
        {-1125899906842623.75, 1.0, -1125899906842624},
        {-1e17, 1.0, -100000000000000000},
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

// The cell finder against atan2 (quantizeNormalPlain): the same cell for every input, and the
// finder's own answer (not the fallback) for nearly every direction away from the boundaries.
struct CellCheck {
    int compared = 0, found = 0;
    void operator()(const float* normal) {
        int32_t fast[2] = {-1, -1}, plain[2] = {-1, -1};
        const bool fastOk = zullib::quantizeNormal(normal, fast);
        ASSERT_EQ(fastOk, zullib::quantizeNormalPlain(normal, plain));
        ASSERT_EQ(fast[0], plain[0]) << normal[0] << " " << normal[1] << " " << normal[2];
        ASSERT_EQ(fast[1], plain[1]) << normal[0] << " " << normal[1] << " " << normal[2];
        ++compared;
        const double x = normal[0], y = normal[1], z = normal[2];
        const double length = std::sqrt((x * x + y * y) + z * z);
        const double h = std::sqrt((x / length) * (x / length) + (y / length) * (y / length));
        int32_t cell[2];
        found +=
            zullib::NormalCellFinder::instance().find(x / length, y / length, z / length, h, cell);
    }
    // The direction at these angles and its neighbours a few float steps away on each axis.
    void around(double latitude, double longitude, int steps) {
        const float exact[3] = {static_cast<float>(std::cos(latitude) * std::cos(longitude)),
                                static_cast<float>(std::cos(latitude) * std::sin(longitude)),
                                static_cast<float>(std::sin(latitude))};
        for (int i = -steps; i <= steps; ++i)
            for (int j = -steps; j <= steps; ++j)
                for (int k = -steps; k <= steps; ++k) {
                    const int moves[3] = {i, j, k};
                    float normal[3];
                    for (int axis = 0; axis < 3; ++axis) {
                        normal[axis] = exact[axis];
                        for (int m = 0; m != moves[axis]; m += moves[axis] > 0 ? 1 : -1)
                            normal[axis] =
                                std::nextafter(normal[axis], moves[axis] > 0 ? 2.f : -2.f);
                    }
                    (*this)(normal);
                }
    }
};

TEST(NormalCells, EveryBoundaryOfTheGridAsAtan2HasIt) {
    const double pi = 3.141592653589793;
    CellCheck check;
    // Each row boundary at 64 longitudes; each cell boundary of each row in the row's middle.
    for (int k = 0; k <= zullib::kNormalRows; ++k)
        for (int j = 0; j < 64; ++j)
            check.around((0.5 - k / 128.0) * pi, (j / 64.0 - 0.5) * 2 * pi + 0.01, 2);
    for (int row = 0; row < zullib::kNormalRows; ++row) {
        const int cells = zullib::normalRowCells(row);
        for (int j = 0; j <= cells; ++j)
            check.around((0.5 - (row + 0.5) / 128.0) * pi, (j / double(cells) - 0.5) * 2 * pi, 1);
    }
    // Float neighbours lie 1e-7 or so from a boundary: far enough for the finder's proof.
    EXPECT_GT(check.found, check.compared * 9 / 10);
}

TEST(NormalCells, RandomAndOddNormalsAsAtan2HasThem) {
    CellCheck check;
    std::mt19937 random(34);
    const auto unit = [&] { return static_cast<float>(random() % 2000001) / 1e6f - 1.f; };
    for (int i = 0; i < 200000; ++i) {
        const float scale = i % 4 == 0 ? 1e-3f : i % 4 == 1 ? 1e3f : 1.f;
        const float normal[3] = {unit() * scale, unit() * scale, unit() * scale};
        check(normal);
    }
    EXPECT_GT(check.found, check.compared * 99 / 100);
    const float inf = std::numeric_limits<float>::infinity(), nan = NAN, tiny = 1e-40f;
    const float odd[] = {0.f, -0.f, 1.f, -1.f, 1e-7f, tiny, -tiny, 1e38f, -3e38f, inf, -inf, nan};
    for (float a : odd)
        for (float b : odd)
            for (float c : odd) {
                const float normal[3] = {a, b, c};
                check(normal);
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

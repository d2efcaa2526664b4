// Normals from their cells: the table of cell centres against their expressions, and the pairs no
// writer makes. (The centres are pinned by the byte identity test's decoded points.) The
// word-at-a-time colour copy against the byte-by-byte one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "decoder/color_copy.h"
#include "decoder/normal_centres.h"
#include "decoder/position_copy.h"
#include "frame/normal_grid.h"

namespace {

bool sameBits(const float* a, const float* b) { return std::memcmp(a, b, 3 * sizeof(float)) == 0; }

// The table of cell centres against their expressions, bit for bit; rows mirror around the equator.
TEST(Dequantize, CentreTableHoldsTheExpressionsBitForBit) {
    const zullib::NormalCentres& table = zullib::NormalCentres::instance();
    int cells = 0;
    for (uint32_t row = 0; row < 128; ++row) {
        const uint32_t rowCells = static_cast<uint32_t>(zullib::normalRowCells(row));
        for (uint32_t cell = 0; cell < rowCells; ++cell, ++cells) {
            float looked[3], computed[3];
            table.lookUp(cell, row, looked);
            zullib::computeNormalCentre(cell, row, computed);
            ASSERT_TRUE(sameBits(looked, computed)) << "cell " << cell << " row " << row;
        }
        float upper[3], lower[3];
        table.lookUp(3, row, upper);
        table.lookUp(3, 127 - row, lower);
        EXPECT_TRUE(upper[0] == lower[0] && upper[1] == lower[1] && upper[2] == -lower[2]) << row;
    }
    EXPECT_EQ(cells, 21950);
}

TEST(Dequantize, PairsOutsideTheGridDecodeToDefinedVectors) {
    const zullib::NormalCentres& table = zullib::NormalCentres::instance();
    float pole[3], far[3], around[3], once[3];
    // A row past the last sits at the -z pole, with the 21 cells of the clamped angle.
    table.lookUp(0, 128, pole);
    table.lookUp(0, 0xFFFFFFFF, far);
    EXPECT_TRUE(sameBits(pole, far));
    EXPECT_EQ(pole[2], -1.0f);
    EXPECT_EQ(zullib::computeNormalRowCells(128), 21);
    // A cell past the row's end goes on round the circle.
    table.lookUp(24 + 5, 0, around);
    table.lookUp(5, 0, once);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(around[k], once[k], 1e-6);
}

// Every count of points up to a few words, with any bytes in the records' padding: the colours
// byte for byte, and nothing written past the last.
TEST(Dequantize, FourByteColourCopyGivesThePlainCopy) {
    std::mt19937 random(3);
    for (size_t n = 0; n <= 9; ++n) {
        std::vector<zullib::zul_QuantizedPoint> records(n);
        for (zullib::zul_QuantizedPoint& record : records) {
            unsigned char* bytes = reinterpret_cast<unsigned char*>(&record);
            for (size_t b = 0; b < sizeof record; ++b)
                bytes[b] = static_cast<unsigned char>(random());
        }
        std::vector<uint8_t> plain(3 * n + 4, 0xEE), fast(plain);
        for (size_t i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) plain[3 * i + k] = records[i].rgb[k];
        zullib::copyRgb888(fast.data(), records.data(), n);
        EXPECT_EQ(fast, plain) << n << " points";
    }
}

// The positions of records whose offsets and box minima sit on either side of the bounds of the
// fast conversion, every order of the slots, steps of either sign and extreme size, and counts
// odd and even: the fast form bit for bit the plain one, and it refuses exactly the chunks with
// a value outside [-2^51, 2^51) among its pairs of points.
TEST(Dequantize, MagicPositionConversionGivesThePlainOne) {
    const int64_t kBound = int64_t{1} << 51;
    const int64_t kMax = std::numeric_limits<int64_t>::max();
    const int64_t kMin = std::numeric_limits<int64_t>::min();
    struct Case {
        int64_t offset;  // the largest slot value; the others are random below it
        long long min;
        double step;
    };
    const Case cases[] = {
        {1000, 0, 0.001},     {1000, -123456789, -0.25},
        {kBound - 1, 0, 1.0}, {kBound - 1001, 1000, 3.0e38},
        {kBound, 0, 1.0},     {kBound - 10, 10, 1e-300},
        {0, -kBound, 0.5},    {0, -kBound - 1, 0.5},
        {0, 0, -0.0},         {kMax, 0, 0.001},
        {kMax, 1, 0.001},  // wraps to the minimum
        {kMax, kMin, 1.0},    {5, kMax - 4, 1.0},
    };
    std::mt19937_64 random(7);
    int slots[3] = {0, 1, 2};
    do {
        for (const Case& c : cases) {
            for (size_t n : {size_t{1}, size_t{2}, size_t{5}, size_t{64}}) {
                std::vector<zullib::zul_QuantizedPoint> records(n);
                bool inside = true;
                for (size_t i = 0; i < n; ++i)
                    for (int s = 0; s < 3; ++s) {
                        const uint64_t limit = static_cast<uint64_t>(c.offset);
                        int64_t value = static_cast<int64_t>(random() % (limit + (limit < ~0ULL)));
                        if (i == n / 2 && s == slots[1]) value = c.offset;
                        records[i].coordinates[s] = value;
                    }
                const zullib::PositionLayout layout = {
                    {slots[0], slots[1], slots[2]}, {c.min, c.min / 3, c.min}, c.step};
                for (size_t i = 0; i < n; ++i)
                    for (int axis = 0; axis < 3; ++axis) {
                        const int64_t x = zullib::wrappingAdd(records[i].coordinates[slots[axis]],
                                                              layout.min[axis]);
                        inside = inside && x >= -kBound && x < kBound;
                    }
                std::vector<double> plain(3 * n), fast(3 * n, 7.0), chosen(3 * n, 7.0);
                zullib::copyPositionsPlain(plain.data(), records.data(), n, layout);
                zullib::copyPositions(chosen.data(), records.data(), n, layout);
                const std::string what = std::to_string(c.offset) + " + " + std::to_string(c.min) +
                                         ", " + std::to_string(n) + " points, slot of x " +
                                         std::to_string(slots[0]);
                EXPECT_EQ(0, std::memcmp(plain.data(), chosen.data(), 3 * n * sizeof(double)))
                    << what;
#ifdef ZUL_POSITION_COPY_SSE2
                // An odd last point takes the plain form, whatever its values.
                const bool taken =
                    zullib::copyPositionsMagic(fast.data(), records.data(), n, layout);
                EXPECT_TRUE(taken || !inside) << what;
                if (n % 2 == 0) {
                    EXPECT_EQ(taken, inside) << what;
                }
                if (taken) {
                    EXPECT_EQ(0, std::memcmp(plain.data(), fast.data(), 3 * n * sizeof(double)))
                        << what;
                }
#endif
            }
        }
    } while (std::next_permutation(slots, slots + 3));
}

}  // namespace

// Normals from their cells: the table of cell centres against their expressions, and the pairs no
// writer makes. (The centres are pinned by the byte identity test's decoded points.) The
// word-at-a-time colour copy against the byte-by-byte one.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "decoder/color_copy.h"
#include "decoder/normal_centres.h"
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

}  // namespace

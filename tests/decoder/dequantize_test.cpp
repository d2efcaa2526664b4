// From records to the public arrays: grid positions, colour midpoints, normal cell centres, and
// the matrix arithmetic of the two transforms.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "decoder/dec_context.h"
#include "decoder/normal_centres.h"
#include "support/stream_codec.h"

namespace {

using zullib::zul_QuantizedPoint;

struct Output {
    explicit Output(size_t n) : positions(3 * n), colors(3 * n), reflections(n), normals(3 * n) {
        data = {static_cast<int32_t>(n), positions.data(), colors.data(), reflections.data(),
                normals.data()};
    }
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;
    zul_PointData data;
};

const int kIdentitySlots[3] = {0, 1, 2};

zullib::BoundingBox3d<long long> boxAt(long long x, long long y, long long z) {
    zullib::BoundingBox3d<long long> box;
    const long long corner[3] = {x, y, z};
    box.extend(corner);
    return box;
}

TEST(Dequantize, NormalsComeBackAtTheCentresOfTheirCells) {
    struct {
        int32_t cell, row;
        float x, y, z;
    } const worked[] = {
        {12, 0, 0.012167f, 0.001602f, 0.999925f},     {12, 127, 0.012167f, 0.001602f, -0.999925f},
        {128, 64, 0.999849f, 0.012271f, -0.012272f},  {192, 64, -0.012271f, 0.999849f, -0.012272f},
        {255, 64, -0.999849f, 0.012271f, -0.012272f}, {133, 38, 0.566705f, 0.579384f, 0.585798f},
    };
    std::vector<zul_QuantizedPoint> records(std::size(worked));
    for (size_t i = 0; i < records.size(); ++i) {
        records[i].normal[0] = worked[i].cell;
        records[i].normal[1] = worked[i].row;
    }
    Output out(records.size());
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(1.0f, zul_COLOR_NONE, 0, true), kIdentitySlots,
        boxAt(0, 0, 0));
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_NEAR(out.normals[3 * i + 0], worked[i].x, 6e-7) << i;
        EXPECT_NEAR(out.normals[3 * i + 1], worked[i].y, 6e-7) << i;
        EXPECT_NEAR(out.normals[3 * i + 2], worked[i].z, 6e-7) << i;
    }
}

bool sameBits(const float* a, const float* b) { return std::memcmp(a, b, 3 * sizeof(float)) == 0; }

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
        // Rows 0 and 127 are mirror images, and so is every pair around the equator.
        float upper[3], lower[3];
        table.lookUp(3, row, upper);
        table.lookUp(3, 127 - row, lower);
        EXPECT_EQ(upper[0], lower[0]);
        EXPECT_EQ(upper[1], lower[1]);
        EXPECT_EQ(upper[2], -lower[2]);
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

TEST(Dequantize, PositionsAreIndexTimesTheFloatStep) {
    std::vector<zul_QuantizedPoint> records(2);
    // The box's slot permutation z, x, y: x lives in slot 1, y in slot 2, z in slot 0.
    const int axisToSlot[3] = {1, 2, 0};
    records[0].coordinates[0] = 30;
    records[0].coordinates[1] = 10;
    records[0].coordinates[2] = 20;
    records[1].coordinates[1] = 10000;
    Output out(2);
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(0.25f, zul_COLOR_NONE, 0, false), axisToSlot,
        boxAt(-7, 0, 1));
    EXPECT_EQ(out.positions[0], 0.75);  // (10 - 7) * 0.25
    EXPECT_EQ(out.positions[1], 5.0);   // 20 * 0.25
    EXPECT_EQ(out.positions[2], 7.75);  // (30 + 1) * 0.25
    EXPECT_EQ(out.positions[5], 0.25);  // the minimum alone on z
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(0.25f, zul_COLOR_NONE, 0, false), axisToSlot,
        boxAt(0, -7, 0));
    EXPECT_EQ(out.positions[4], -1.75);  // a slot value of 0 over a negative minimum

    // The step is the float nearest 0.0001, widened: 10000 steps are not exactly 1.
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(0.0001f, zul_COLOR_NONE, 0, false), axisToSlot,
        boxAt(0, 0, 0));
    EXPECT_EQ(out.positions[3], 0.9999999747378752);
}

TEST(Dequantize, ColoursGoToTheMiddleOfTheirRangeAndReflectionsPassThrough) {
    const uint8_t stored[][3] = {{0, 0, 0}, {31, 63, 31}, {255, 255, 16}};
    std::vector<zul_QuantizedPoint> records(3);
    for (int i = 0; i < 3; ++i) {
        std::memcpy(records[i].rgb, stored[i], 3);
        records[i].reflection = i == 0 ? 0 : 65535;
    }
    Output out(3);
    const int maxReflection = 65535;
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(1.0f, zul_COLOR_RGB565, maxReflection, false),
        kIdentitySlots, boxAt(0, 0, 0));
    // A value beyond its bits (only a damaged stream holds one) wraps in 8 bits.
    const uint8_t midpoints[] = {4, 2, 4, 252, 254, 252, 252, 254, 132};
    EXPECT_EQ(std::vector<uint8_t>(out.colors.begin(), out.colors.end()),
              std::vector<uint8_t>(std::begin(midpoints), std::end(midpoints)));
    EXPECT_EQ(out.reflections, (std::vector<int32_t>{0, 65535, 65535}));

    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        out.data, records, makeDataType(1.0f, zul_COLOR_RGB888, 0, false), kIdentitySlots,
        boxAt(0, 0, 0));
    EXPECT_EQ(std::memcmp(out.colors.data(), stored, 9), 0);

    // Without attributes only positions are written: the other arrays may be absent.
    zul_PointData positionsOnly = {3, out.positions.data(), nullptr, nullptr, nullptr};
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
        positionsOnly, records, makeDataType(1.0f, zul_COLOR_NONE, 0, false), kIdentitySlots,
        boxAt(1, 2, 3));
    EXPECT_EQ(out.positions[8], 3.0);
}

TEST(Transforms, TakeTheScaleOutOfNormalsButNotOutOfPositions) {
    // The uniform scale 2 and a quarter turn about z; for normals the scale is already removed.
    const double m[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1};
    const double n[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    Output out(2);
    const double positions[6] = {1, 0, 0, 0.5, -3, 4};
    const float normals[6] = {1, 0, 0, 0.6f, 0, 0.8f};
    std::memcpy(out.positions.data(), positions, sizeof positions);
    std::memcpy(out.normals.data(), normals, sizeof normals);
    zul_dec_ContextStruct::transformPointPositions(out.data, m);
    zul_dec_ContextStruct::transformPointNormals(out.data, n);
    EXPECT_EQ(out.positions, (std::vector<double>{0, 2, 0, 6, 1, 8}));
    EXPECT_EQ(out.normals, (std::vector<float>{0, 1, 0, 0, 0.6f, 0.8f}));

    // A count of 0 leaves everything alone.
    out.data.numPoints = 0;
    zul_dec_ContextStruct::transformPointPositions(out.data, m);
    zul_dec_ContextStruct::transformPointNormals(out.data, n);
    EXPECT_EQ(out.positions[1], 2.0);
    EXPECT_EQ(out.normals[1], 1.0f);
}

}  // namespace

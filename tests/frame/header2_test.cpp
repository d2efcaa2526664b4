#include "frame/header2.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "frame/transformation_check.h"
#include "support/test_names.h"

using zullib::Header2;
using zullib::matrixScale;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

zul_Header2 withElement(int index, double value) {
    zul_Header2 header = Header2::disabled();
    header.enabled = true;
    header.transformation[index] = value;
    return header;
}

// A rotation of 90 degrees about z, times `scale`.
zul_Header2 rotatedHeader(double scale) {
    zul_Header2 header = withElement(10, scale);
    double* m = header.transformation;
    m[0] = 0, m[1] = scale, m[4] = -scale, m[5] = 0;
    return header;
}

zul_Header2 scaledBy(double scale) {
    zul_Header2 header = withElement(0, 1);
    Header2::setScaling(header, scale);
    return header;
}

zul_Header2 columnLengths(double a, double b, double c) {
    zul_Header2 header = withElement(0, a);
    header.transformation[5] = b, header.transformation[10] = c;
    return header;
}

zul_Header2 initScaled(double scale) {
    zul_Header2 header;
    Header2::init(header, zul_SENSOR_MOUNT_DEFAULT, zul_SENSOR_TYPE_DEFAULT, scale, 0, 0, 0);
    return header;
}

TEST(Header2, InitSetsScaleAndTranslationOnlyWhenTheyDiffer) {
    zul_Header2 header;
    std::memset(&header, 0x5A, sizeof header);
    Header2::init(header, zul_SENSOR_MOUNT_21, zul_SENSOR_TYPE_3, 2.0, 0.0, -4.0, 0.0);
    EXPECT_FALSE(header.enabled || header.hasRotation);
    EXPECT_TRUE(header.hasScaling && header.hasTranslation);
    EXPECT_DOUBLE_EQ(matrixScale(header.transformation), 2.0);
    EXPECT_EQ(header.transformation[13], -4.0);
    EXPECT_EQ(header.reservedBytes[0] | header.reservedBytes[1] | header.reservedBytes[2], 0);
    header = initScaled(1.0);
    EXPECT_FALSE(header.hasScaling || header.hasTranslation);
    EXPECT_TRUE(initScaled(kNaN).hasScaling);
    // Scaling is set, not multiplied.
    header = rotatedHeader(1.0);
    Header2::setScaling(header, 2.0);
    Header2::setScaling(header, 2.0);
    EXPECT_DOUBLE_EQ(header.transformation[1], 2.0);
    EXPECT_EQ(header.transformation[15], 1.0);
}

struct MatrixCase {
    const char* name;
    zul_Header2 header;
    bool scaling, rotation, translation;
    bool valid;
};

class TransformationRules : public ::testing::TestWithParam<MatrixCase> {};

TEST_P(TransformationRules, FlagsPermitButDoNotDemand) {
    const MatrixCase& c = GetParam();
    zul_Header2 header = c.header;
    header.enabled = true;
    header.hasScaling = c.scaling;
    header.hasRotation = c.rotation;
    header.hasTranslation = c.translation;
    EXPECT_EQ(Header2::isValid(header, true), c.valid);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Header2, TransformationRules, ::testing::Values(
    MatrixCase{"identity, no flags", withElement(0, 1), false, false, false, true},
    MatrixCase{"identity, all flags", withElement(0, 1), true, true, true, true},
    MatrixCase{"bottom row has no tolerance", withElement(3, 1e-300), true, true, true, false},
    MatrixCase{"m15 must be 1", withElement(15, 1.0 + 1e-15), true, true, true, false},
    MatrixCase{"minus zero translation is zero", withElement(12, -0.0), false, false, false, true},
    MatrixCase{"translation needs its flag", withElement(13, 1e-300), false, false, false, false},
    MatrixCase{"translation with its flag", withElement(13, 5.0), false, false, true, true},
    MatrixCase{"infinite translation", withElement(14, INFINITY), true, true, true, false},
    MatrixCase{"NaN element", withElement(6, kNaN), true, true, true, false},
    MatrixCase{"scale off by a tenth of the tolerance", scaledBy(1 + 1e-7), false, false, false, true},
    MatrixCase{"scale off by ten tolerances", scaledBy(1 + 1e-5), false, false, false, false},
    MatrixCase{"scale with its flag", scaledBy(3.5), true, false, false, true},
    MatrixCase{"columns of lengths 2, 2, 2.1", columnLengths(2, 2, 2.1), true, true, true, false},
    MatrixCase{"90 degrees without rotation flag", rotatedHeader(1), false, false, false, false},
    MatrixCase{"90 degrees with rotation flag", rotatedHeader(1), false, true, false, true},
    MatrixCase{"scaled rotation needs both flags", rotatedHeader(2), false, true, false, false},
    MatrixCase{"scaled rotation", rotatedHeader(2), true, true, false, true},
    MatrixCase{"negative scale is a mirroring", initScaled(-1.0), true, true, true, false},
    MatrixCase{"zero scale", initScaled(0.0), true, true, true, false},
    MatrixCase{"mirror one axis", columnLengths(1, 1, -1), true, true, true, false}),
    NameOfCase());
// clang-format on

}  // namespace

// zul::Error's text and status, and the builders of zul_DataType and zul_Header2: what each
// setter stores, and that a built sensor header moves points as its parts say.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cpp/host_support.h"
#include "zul.hpp"

namespace {

struct StatusCase {
    zul_Status status;
    const char* name;
};

class StatusNames : public ::testing::TestWithParam<StatusCase> {};

TEST_P(StatusNames, ErrorNamesItsStatusAndWhere) {
    const StatusCase& c = GetParam();
    EXPECT_STREQ(zul::statusName(c.status), c.name);
    const zul::Error error(c.status, "scan.zul: zul_in_readNextPoint");
    EXPECT_EQ(error.status(), c.status);
    EXPECT_EQ(std::string(error.what()), std::string("scan.zul: zul_in_readNextPoint: ") + c.name +
                                             " (" + std::to_string(static_cast<int>(c.status)) +
                                             ")");
}

INSTANTIATE_TEST_SUITE_P(
    AllTen, StatusNames,
    ::testing::Values(StatusCase{zul_STATUS_OK, "zul_STATUS_OK"},
                      StatusCase{zul_STATUS_END_OF_FILE, "zul_STATUS_END_OF_FILE"},
                      StatusCase{zul_STATUS_READ_ERROR, "zul_STATUS_READ_ERROR"},
                      StatusCase{zul_STATUS_TRUNCATED, "zul_STATUS_TRUNCATED"},
                      StatusCase{zul_STATUS_WRITE_ERROR, "zul_STATUS_WRITE_ERROR"},
                      StatusCase{zul_STATUS_BAD_SIGNATURE, "zul_STATUS_BAD_SIGNATURE"},
                      StatusCase{zul_STATUS_BAD_VERSION, "zul_STATUS_BAD_VERSION"},
                      StatusCase{zul_STATUS_CORRUPT_DATA, "zul_STATUS_CORRUPT_DATA"},
                      StatusCase{zul_STATUS_INVALID_ARGUMENT, "zul_STATUS_INVALID_ARGUMENT"},
                      StatusCase{zul_STATUS_INVALID_STATE, "zul_STATUS_INVALID_STATE"}));

TEST(StatusName, UnknownValueIsSaidSo) {
    EXPECT_STREQ(zul::statusName(static_cast<zul_Status>(42)), "unknown zul_Status");
}

TEST(DataTypeBuilder, StartsAsTheLibraryDefault) {
    zul_DataType expected;
    zul_init_headers(&expected, nullptr);
    const zul_DataType& built = zul::DataType{};
    EXPECT_EQ(std::memcmp(&built, &expected, sizeof expected), 0);
}

TEST(DataTypeBuilder, EachSetterStoresItsField) {
    const zul_DataType built =
        zul::DataType{}.step(0.001f).color(zul_COLOR_RGB565).reflection(4095).normals();
    EXPECT_EQ(built.quantizationStep, 0.001f);
    EXPECT_EQ(built.colorMode, zul_COLOR_RGB565);
    EXPECT_EQ(built.reflectionMode, zul_REFLECTION_CLAMPED);
    EXPECT_EQ(built.maxReflection, 4095);
    EXPECT_EQ(built.normalMode, zul_NORMAL_SPHERICAL);
    for (uint32_t word : built.reserved) EXPECT_EQ(word, 0u);

    const zul_DataType undone =
        zul::DataType(built).noReflection().normals(false).color(zul_COLOR_NONE);
    EXPECT_EQ(undone.quantizationStep, 0.001f);
    EXPECT_EQ(undone.colorMode, zul_COLOR_NONE);
    EXPECT_EQ(undone.reflectionMode, zul_REFLECTION_NONE);
    EXPECT_EQ(undone.maxReflection, 0);
    EXPECT_EQ(undone.normalMode, zul_NORMAL_NONE);
}

TEST(DataTypeBuilder, AnInvalidRecordIsRefusedWhereItIsUsed) {
    try {
        zul::Encoder encoder(zul::DataType{}.step(0.0f));
        FAIL() << "a step of 0 was accepted";
    } catch (const zul::Error& e) {
        EXPECT_EQ(e.status(), zul_STATUS_INVALID_ARGUMENT);
        EXPECT_NE(std::string(e.what()).find("zul_enc_open2"), std::string::npos) << e.what();
    }
    EXPECT_THROW(zul::Encoder(zul::DataType{}.reflection(0)), zul::Error);
}

TEST(Header2Builder, StartsEnabledWithTheIdentity) {
    zul_Header2 expected;
    zul_init_headers(nullptr, &expected);
    const zul_Header2& built = zul::Header2{};
    EXPECT_TRUE(built.enabled);
    EXPECT_FALSE(built.hasScaling || built.hasRotation || built.hasTranslation);
    EXPECT_EQ(
        std::memcmp(built.transformation, expected.transformation, sizeof expected.transformation),
        0);
    EXPECT_EQ(built.sensorMount, zul_SENSOR_MOUNT_DEFAULT);
    EXPECT_EQ(built.sensorType, zul_SENSOR_TYPE_DEFAULT);
}

// 90 degrees about z, row after row: x becomes y.
const std::array<double, 9> kQuarterTurn = {0, -1, 0, 1, 0, 0, 0, 0, 1};

TEST(Header2Builder, ScaleAndRotationComposeInEitherOrder) {
    const zul_Header2 a = zul::Header2{}.scale(2.0).rotation(kQuarterTurn).translation(10, 20, 30);
    const zul_Header2 b = zul::Header2{}.translation(10, 20, 30).rotation(kQuarterTurn).scale(2.0);
    EXPECT_EQ(std::memcmp(a.transformation, b.transformation, sizeof a.transformation), 0);
    EXPECT_TRUE(a.hasScaling && a.hasRotation && a.hasTranslation);
    // Column after column: the first column is the image of x, 2 * (0, 1, 0).
    const double expected[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 10, 20, 30, 1};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(a.transformation[i], expected[i]) << "element " << i;
}

TEST(Header2Builder, ScaleIsTheMatrixScaleNotAFactorOnTop) {
    const zul_Header2 twice = zul::Header2{}.scale(2.0).scale(2.0);
    EXPECT_EQ(twice.transformation[0], 2.0);
    EXPECT_EQ(twice.transformation[5], 2.0);
    EXPECT_EQ(twice.transformation[10], 2.0);
}

TEST(Header2Builder, MountAndTypeAreStoredAndTravel) {
    const zul_Header2 header = zul::Header2{}.mount(zul_SENSOR_MOUNT_21).type(zul_SENSOR_TYPE_7);
    const zul::Cloud cloud = zul::decode(zul::encode(samplePoints(3, 1), zul::DataType{}, header));
    EXPECT_TRUE(cloud.header2.enabled);
    EXPECT_EQ(cloud.header2.sensorMount, zul_SENSOR_MOUNT_21);
    EXPECT_EQ(cloud.header2.sensorType, zul_SENSOR_TYPE_7);
}

TEST(Header2Builder, TheReaderMovesPointsAsThePartsSay) {
    zul_Point p{};
    p.position[0] = 1.0;
    p.normal[0] = 1.0f;
    const zul_DataType dataType = zul::DataType{}.step(0.001f).normals();
    const zul_Header2 header =
        zul::Header2{}.scale(2.0).rotation(kQuarterTurn).translation(10, 20, 30);
    const std::vector<uint8_t> stream = zul::encode({p}, dataType, header);

    const zul::Cloud moved = zul::decode(stream);
    ASSERT_EQ(moved.points.size(), 1u);
    EXPECT_NEAR(moved.points[0].position[0], 10.0, 1e-6);
    EXPECT_NEAR(moved.points[0].position[1], 22.0, 1e-6);
    EXPECT_NEAR(moved.points[0].position[2], 30.0, 1e-6);
    EXPECT_NEAR(moved.points[0].normal[1], 1.0f, 0.02f);

    const zul::Cloud stored = zul::decode(stream, false);
    EXPECT_NEAR(stored.points[0].position[0], 1.0, 1e-6);
    EXPECT_NEAR(stored.points[0].position[1], 0.0, 1e-6);
    EXPECT_NEAR(stored.points[0].normal[0], 1.0f, 0.02f);
}

TEST(Header2Builder, AMirrorIsRefusedWhereItIsUsed) {
    const zul_Header2 mirror = zul::Header2{}.rotation({1, 0, 0, 0, 1, 0, 0, 0, -1});
    try {
        zul::Encoder encoder(zul::DataType{}, mirror);
        FAIL() << "a mirroring matrix was accepted";
    } catch (const zul::Error& e) {
        EXPECT_EQ(e.status(), zul_STATUS_INVALID_ARGUMENT);
    }
}

}  // namespace

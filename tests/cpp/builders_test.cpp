// zul::Error's text and status, and the builders of zul_DataType and zul_Header2: what the
// setters store, and that a built sensor header moves points as its parts say.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cpp/host_support.h"
#include "zul.hpp"

namespace {

TEST(Error, NamesItsStatusAndWhere) {
    const std::pair<zul_Status, const char*> statuses[] = {
        {zul_STATUS_OK, "zul_STATUS_OK"},
        {zul_STATUS_END_OF_FILE, "zul_STATUS_END_OF_FILE"},
        {zul_STATUS_READ_ERROR, "zul_STATUS_READ_ERROR"},
        {zul_STATUS_TRUNCATED, "zul_STATUS_TRUNCATED"},
        {zul_STATUS_WRITE_ERROR, "zul_STATUS_WRITE_ERROR"},
        {zul_STATUS_BAD_SIGNATURE, "zul_STATUS_BAD_SIGNATURE"},
        {zul_STATUS_BAD_VERSION, "zul_STATUS_BAD_VERSION"},
        {zul_STATUS_CORRUPT_DATA, "zul_STATUS_CORRUPT_DATA"},
        {zul_STATUS_INVALID_ARGUMENT, "zul_STATUS_INVALID_ARGUMENT"},
        {zul_STATUS_INVALID_STATE, "zul_STATUS_INVALID_STATE"},
        {static_cast<zul_Status>(42), "unknown zul_Status"}};
    for (const auto& [status, name] : statuses) {
        const zul::Error error(status, "scan.zul: zul_in_readNextPoint");
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(std::string(error.what()), std::string("scan.zul: zul_in_readNextPoint: ") +
                                                 name + " (" +
                                                 std::to_string(static_cast<int>(status)) + ")");
    }
}

TEST(Builders, SetTheirFieldsOnTheLibraryDefaults) {
    zul_DataType expected;
    zul_Header2 header;
    zul_init_headers(&expected, &header);
    expected.quantizationStep = 0.001f;
    expected.colorMode = zul_COLOR_RGB565;
    expected.reflectionMode = zul_REFLECTION_CLAMPED;
    expected.maxReflection = 4095;
    expected.normalMode = zul_NORMAL_SPHERICAL;
    const zul_DataType built =
        zul::DataType{}.step(0.001f).color(zul_COLOR_RGB565).reflection(4095).normals();
    EXPECT_EQ(std::memcmp(&built, &expected, sizeof expected), 0);
    zul_init_headers(&expected, nullptr);
    expected.quantizationStep = 0.001f;
    const zul_DataType undone =
        zul::DataType(built).noReflection().normals(false).color(zul_COLOR_NONE);
    EXPECT_EQ(std::memcmp(&undone, &expected, sizeof expected), 0);
    const zul_Header2 plain = zul::Header2{};
    EXPECT_TRUE(plain.enabled && !plain.hasScaling && !plain.hasRotation && !plain.hasTranslation);
    EXPECT_EQ(
        std::memcmp(plain.transformation, header.transformation, sizeof header.transformation), 0);
}

// 90 degrees about z, row after row: x becomes y.
const std::array<double, 9> kQuarterTurn = {0, -1, 0, 1, 0, 0, 0, 0, 1};

TEST(Header2Builder, ScaleAndRotationComposeInEitherOrder) {
    const zul_Header2 a = zul::Header2{}.scale(2.0).rotation(kQuarterTurn).translation(10, 20, 30);
    const zul_Header2 b =
        zul::Header2{}.translation(10, 20, 30).rotation(kQuarterTurn).scale(3.0).scale(2.0);
    EXPECT_EQ(std::memcmp(a.transformation, b.transformation, sizeof a.transformation), 0);
    EXPECT_TRUE(a.hasScaling && a.hasRotation && a.hasTranslation);
    // Column after column: the first column is the image of x, 2 * (0, 1, 0).
    const double expected[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 10, 20, 30, 1};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(a.transformation[i], expected[i]) << "element " << i;
}

TEST(Header2Builder, TheReaderMovesPointsAsThePartsSay) {
    zul_Point p{};
    p.position[0] = 1.0;
    p.normal[0] = 1.0f;
    const zul_DataType dataType = zul::DataType{}.step(0.001f).normals();
    const zul_Header2 header = zul::Header2{}
                                   .scale(2.0)
                                   .rotation(kQuarterTurn)
                                   .translation(10, 20, 30)
                                   .mount(zul_SENSOR_MOUNT_21)
                                   .type(zul_SENSOR_TYPE_7);
    const std::vector<uint8_t> stream = zul::encode({p}, dataType, header);
    const zul::Cloud moved = zul::decode(stream);
    EXPECT_EQ(moved.header2.sensorMount, zul_SENSOR_MOUNT_21);
    EXPECT_EQ(moved.header2.sensorType, zul_SENSOR_TYPE_7);
    ASSERT_EQ(moved.points.size(), 1u);
    EXPECT_NEAR(moved.points[0].position[0], 10.0, 1e-6);
    EXPECT_NEAR(moved.points[0].position[1], 22.0, 1e-6);
    EXPECT_NEAR(moved.points[0].position[2], 30.0, 1e-6);
    EXPECT_NEAR(moved.points[0].normal[1], 1.0f, 0.02f);
    const zul::Cloud stored = zul::decode(stream, false);
    EXPECT_NEAR(stored.points[0].position[0], 1.0, 1e-6);
    EXPECT_NEAR(stored.points[0].normal[0], 1.0f, 0.02f);
}

TEST(Builders, AnInvalidRecordIsRefusedWhereItIsUsed) {
    try {
        zul::Encoder encoder(zul::DataType{}.step(0.0f));
        FAIL() << "a step of 0 was accepted";
    } catch (const zul::Error& e) {
        EXPECT_EQ(e.status(), zul_STATUS_INVALID_ARGUMENT);
        EXPECT_NE(std::string(e.what()).find("zul_enc_open2"), std::string::npos) << e.what();
    }
    EXPECT_EQ(statusOf([] { zul::Encoder(zul::DataType{}.reflection(0)); }),
              zul_STATUS_INVALID_ARGUMENT);
    const zul_Header2 mirror = zul::Header2{}.rotation({1, 0, 0, 0, 1, 0, 0, 0, -1});
    EXPECT_EQ(statusOf([&] { zul::Encoder(zul::DataType{}, mirror); }),
              zul_STATUS_INVALID_ARGUMENT);
}

}  // namespace

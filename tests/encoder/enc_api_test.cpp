#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "frame/header2.h"
#include "support/test_names.h"
#include "zul.h"

namespace {

using Bytes = std::string;

class Encoder : public ::testing::Test {
protected:
    void SetUp() override { zul_init_headers(&dataType, &header); }
    void TearDown() override {
        zul_enc_close(&encoder);
        zul_test_useFixedRandomSeed(false, 0);
    }
    Bytes fileHeader() {
        const char* bytes = nullptr;
        int size = -1;
        EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, &size), zul_STATUS_OK);
        return Bytes(bytes, size);
    }

    zul_DataType dataType;
    zul_Header2 header;
    zul_enc_Context encoder = nullptr;
};

// A disabled header is not looked at: the stream is version 1, as with none. The records are
// copied at open.
TEST_F(Encoder, DisabledHeaderGivesVersionOneAndRecordsAreCopiedAtOpen) {
    header.enabled = false;
    for (double& element : header.transformation) element = NAN;
    header.sensorMount = static_cast<zul_SensorMount>(77);
    ASSERT_EQ(zul_enc_open2(&encoder, &dataType, &header), zul_STATUS_OK);
    const char* signature = nullptr;
    EXPECT_EQ(zul_enc_createFileSignature(encoder, &signature), zul_STATUS_OK);
    EXPECT_EQ(Bytes(signature, 8), Bytes("ZUL\x01\x0D\x0A\x1A\x0A", 8));
    const Bytes before = fileHeader();
    EXPECT_EQ(before.size(), 28u);
    dataType.colorMode = zul_COLOR_RGB565;
    header.enabled = true;
    EXPECT_EQ(fileHeader(), before);
}

TEST_F(Encoder, NullArgumentsAreRefusedAndChangeNothing) {
    const zul_Status ARG = zul_STATUS_INVALID_ARGUMENT;
    EXPECT_EQ(zul_enc_open(nullptr, &dataType), ARG);
    encoder = reinterpret_cast<zul_enc_Context>(&dataType);
    EXPECT_EQ(zul_enc_open(&encoder, nullptr), ARG);
    EXPECT_EQ(encoder, nullptr);
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;
    dataType.normalMode = zul_NORMAL_SPHERICAL;
    ASSERT_EQ(zul_enc_open(&encoder, &dataType), zul_STATUS_OK);
    const char* bytes = "untouched";
    int size = -7;
    EXPECT_EQ(zul_enc_createFileSignature(nullptr, &bytes), ARG);
    EXPECT_EQ(zul_enc_createFileSignature(encoder, nullptr), ARG);
    EXPECT_EQ(zul_enc_encodeFileHeader(nullptr, &bytes, &size), ARG);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, nullptr, &size), ARG);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, nullptr), ARG);

    // Chunk arguments are checked before any point is read.
    double positions[3] = {1, 2, 3};
    uint8_t colors[3] = {1, 2, 3};
    int32_t reflections[1] = {4};
    float normals[3] = {0, 0, 1};
    const zul_PointData good = {1, positions, colors, reflections, normals};
    const zul_PointData refused[] = {{-1, positions, colors, reflections, normals},
                                     {1, nullptr, colors, reflections, normals},
                                     {1, positions, nullptr, reflections, normals},
                                     {1, positions, colors, nullptr, normals},
                                     {1, positions, colors, reflections, nullptr}};
    for (const zul_PointData& points : refused)
        EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &points), ARG);
    EXPECT_EQ(zul_enc_encodeChunk(nullptr, &bytes, &size, &good), ARG);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, nullptr, &size, &good), ARG);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, nullptr, &good), ARG);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, nullptr), ARG);
    EXPECT_STREQ(bytes, "untouched");
    EXPECT_EQ(size, -7);
    // Without points no array is read, so none has to be there.
    const zul_PointData empty = {0, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &empty), zul_STATUS_OK);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &good), zul_STATUS_OK);
    EXPECT_EQ(size, 84 + 6 + 7 + 3 + 4);
    zul_enc_close(&encoder);
    zul_enc_close(&encoder);  // a second close of the same variable does nothing
    zul_enc_close(nullptr);
}

struct BadRecord {
    const char* name;
    void (*damage)(zul_DataType&, zul_Header2&);
};

class InvalidRecordsAtOpen : public ::testing::TestWithParam<BadRecord> {};

TEST_P(InvalidRecordsAtOpen, LeaveTheHandleNull) {
    zul_DataType dataType;
    zul_Header2 header;
    zul_init_headers(&dataType, &header);
    GetParam().damage(dataType, header);
    zul_enc_Context encoder = reinterpret_cast<zul_enc_Context>(&header);
    EXPECT_EQ(zul_enc_open2(&encoder, &dataType, &header), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(encoder, nullptr);
}

using D = zul_DataType&;
using H = zul_Header2&;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Encoder, InvalidRecordsAtOpen, ::testing::Values(
    BadRecord{"reserved word", [](D d, H) { d.reserved[0] = 1; }},
    BadRecord{"sensor mount 14", [](D, H h) { h.sensorMount = static_cast<zul_SensorMount>(14); }},
    BadRecord{"sensor type 11", [](D, H h) { h.sensorType = static_cast<zul_SensorType>(11); }},
    BadRecord{"unsupported scaling", [](D, H h) { h.hasUnsupportedScaling = true; }},
    BadRecord{"zero scale", [](D, H h) { zullib::Header2::setScaling(h, 0.0); }}),
    NameOfCase());
// clang-format on

}  // namespace

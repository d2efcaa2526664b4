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
    void TearDown() override { zul_test_useFixedRandomSeed(false, 0); }

    zul_DataType dataType;
    zul_Header2 header;
};

Bytes signatureOf(zul_enc_Context encoder) {
    const char* bytes = nullptr;
    EXPECT_EQ(zul_enc_createFileSignature(encoder, &bytes), zul_STATUS_OK);
    return Bytes(bytes, 8);
}

Bytes fileHeaderOf(zul_enc_Context encoder) {
    const char* bytes = nullptr;
    int size = -1;
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, &size), zul_STATUS_OK);
    return Bytes(bytes, size);
}

TEST_F(Encoder, NullHeaderOrDisabledHeaderGivesVersionOne) {
    header.enabled = false;
    for (double& element : header.transformation) element = NAN;  // not looked at
    header.sensorMount = static_cast<zul_SensorMount>(77);
    for (const zul_Header2* given :
         {static_cast<const zul_Header2*>(nullptr), static_cast<const zul_Header2*>(&header)}) {
        zul_enc_Context encoder = nullptr;
        ASSERT_EQ(zul_enc_open2(&encoder, &dataType, given), zul_STATUS_OK);
        EXPECT_EQ(signatureOf(encoder), Bytes("ZUL\x01\x0D\x0A\x1A\x0A", 8));
        EXPECT_EQ(fileHeaderOf(encoder).size(), 28u);
        zul_enc_close(&encoder);
        EXPECT_EQ(encoder, nullptr);
    }
}

TEST_F(Encoder, InitHeadersGiveVersionTwo) {
    zul_init_headers(nullptr, nullptr);  // does nothing, and does not fail
    zul_enc_Context encoder = nullptr;
    ASSERT_EQ(zul_enc_open2(&encoder, &dataType, &header), zul_STATUS_OK);
    EXPECT_EQ(signatureOf(encoder), Bytes("ZUL\x02\x0D\x0A\x1A\x0A", 8));
    const Bytes fileHeader = fileHeaderOf(encoder);
    ASSERT_EQ(fileHeader.size(), 164u);
    EXPECT_EQ(fileHeader.substr(0, 12),
              Bytes("\x00\x00\x00\x00\x17\xB7\xD1\x38\x00\x00\x00\x00", 12));
    zul_enc_close(&encoder);
}

TEST_F(Encoder, RecordsAreCopiedAtOpen) {
    dataType.colorMode = zul_COLOR_RGB565;
    zul_enc_Context encoder = nullptr;
    ASSERT_EQ(zul_enc_open2(&encoder, &dataType, &header), zul_STATUS_OK);
    const Bytes before = fileHeaderOf(encoder);
    EXPECT_EQ(fileHeaderOf(encoder), before);  // repeated calls give the same bytes
    dataType.colorMode = zul_COLOR_NONE;
    header.transformation[12] = 42.0;
    header.enabled = false;
    EXPECT_EQ(fileHeaderOf(encoder), before);
    EXPECT_EQ(before[0], 1);
    zul_enc_close(&encoder);
}

TEST_F(Encoder, FixedSeedGivesEveryContextTheSameMarker) {
    zul_test_useFixedRandomSeed(true, 2024u);
    zul_enc_Context a = nullptr, b = nullptr;
    ASSERT_EQ(zul_enc_open(&a, &dataType), zul_STATUS_OK);
    ASSERT_EQ(zul_enc_open2(&b, &dataType, &header), zul_STATUS_OK);
    EXPECT_EQ(fileHeaderOf(a).substr(12, 16), fileHeaderOf(b).substr(148, 16));

    zul_test_useFixedRandomSeed(false, 0);
    zul_enc_Context c = nullptr;
    ASSERT_EQ(zul_enc_open(&c, &dataType), zul_STATUS_OK);
    EXPECT_NE(fileHeaderOf(a).substr(12, 16), fileHeaderOf(c).substr(12, 16));
    zul_enc_close(&a);
    zul_enc_close(&b);
    zul_enc_close(&c);
}

TEST_F(Encoder, NullArgumentsAreRefusedAndChangeNothing) {
    EXPECT_EQ(zul_enc_open(nullptr, &dataType), zul_STATUS_INVALID_ARGUMENT);

    zul_enc_Context encoder = reinterpret_cast<zul_enc_Context>(&dataType);
    EXPECT_EQ(zul_enc_open(&encoder, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(encoder, nullptr);

    ASSERT_EQ(zul_enc_open(&encoder, &dataType), zul_STATUS_OK);
    const char* bytes = "untouched";
    int size = -7;
    EXPECT_EQ(zul_enc_createFileSignature(nullptr, &bytes), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_createFileSignature(encoder, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeFileHeader(nullptr, &bytes, &size), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, nullptr, &size), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_STREQ(bytes, "untouched");
    EXPECT_EQ(size, -7);

    zul_enc_close(&encoder);
    zul_enc_close(&encoder);  // a second close of the same variable does nothing
    zul_enc_close(nullptr);
    EXPECT_EQ(encoder, nullptr);
}

TEST_F(Encoder, ChunkArgumentsAreCheckedBeforeAnyPointIsRead) {
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;
    dataType.normalMode = zul_NORMAL_SPHERICAL;
    zul_enc_Context encoder = nullptr;
    ASSERT_EQ(zul_enc_open(&encoder, &dataType), zul_STATUS_OK);
    double positions[3] = {1, 2, 3};
    uint8_t colors[3] = {1, 2, 3};
    int32_t reflections[1] = {4};
    float normals[3] = {0, 0, 1};
    const zul_PointData good = {1, positions, colors, reflections, normals};

    struct {
        const char* name;
        zul_PointData points;
    } refused[] = {
        {"negative count", {-1, positions, colors, reflections, normals}},
        {"no positions", {1, nullptr, colors, reflections, normals}},
        {"no colours", {1, positions, nullptr, reflections, normals}},
        {"no reflections", {1, positions, colors, nullptr, normals}},
        {"no normals", {1, positions, colors, reflections, nullptr}},
    };
    const char* bytes = "untouched";
    int size = -7;
    for (const auto& c : refused)
        EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &c.points),
                  zul_STATUS_INVALID_ARGUMENT)
            << c.name;
    EXPECT_EQ(zul_enc_encodeChunk(nullptr, &bytes, &size, &good), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, nullptr, &size, &good), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, nullptr, &good), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_STREQ(bytes, "untouched");
    EXPECT_EQ(size, -7);

    // Without points no array is read, so none has to be there.
    const zul_PointData empty = {0, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &empty), zul_STATUS_OK);
    EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &good), zul_STATUS_OK);
    EXPECT_EQ(size, 84 + 6 + 7 + 3 + 4);
    zul_enc_close(&encoder);
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
    EXPECT_EQ(zul_enc_open2(&encoder, &dataType, &header), zul_STATUS_INVALID_ARGUMENT)
        << GetParam().name;
    EXPECT_EQ(encoder, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Encoder, InvalidRecordsAtOpen,
    ::testing::Values(
        BadRecord{"step zero", [](zul_DataType& d, zul_Header2&) { d.quantizationStep = 0; }},
        BadRecord{"colour -1", [](zul_DataType& d,
                                  zul_Header2&) { d.colorMode = static_cast<zul_ColorMode>(-1); }},
        BadRecord{"reserved word", [](zul_DataType& d, zul_Header2&) { d.reserved[0] = 1; }},
        BadRecord{"sensor mount 14",
                  [](zul_DataType&, zul_Header2& h) {
                      h.sensorMount = static_cast<zul_SensorMount>(14);
                  }},
        BadRecord{
            "sensor type 11",
            [](zul_DataType&, zul_Header2& h) { h.sensorType = static_cast<zul_SensorType>(11); }},
        BadRecord{"translation without its flag",
                  [](zul_DataType&, zul_Header2& h) { h.transformation[12] = 1; }},
        BadRecord{"unsupported scaling",
                  [](zul_DataType&, zul_Header2& h) { h.hasUnsupportedScaling = true; }},
        BadRecord{"zero scale",
                  [](zul_DataType&, zul_Header2& h) { zullib::Header2::setScaling(h, 0.0); }}),
    NameOfCase());

}  // namespace

#include "frame/file_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "frame/data_type.h"
#include "frame/file_signature.h"
#include "frame/header2.h"
#include "frame/stored_bytes.h"
#include "support/test_names.h"

using namespace zullib;

namespace {

using Bytes = std::vector<unsigned char>;

zul_SyncMarker countingMarker() {
    char bytes[16];
    for (int i = 0; i < 16; ++i) bytes[i] = static_cast<char>(0xA0 + i);
    zul_SyncMarker marker;
    marker.setBytes(bytes);
    return marker;
}

zul_DataType typeOf(float step, zul_ColorMode color, int maxReflection, bool normals) {
    zul_DataType dataType;
    DataType::init(dataType, step, color,
                   maxReflection ? zul_REFLECTION_CLAMPED : zul_REFLECTION_NONE, maxReflection,
                   normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE);
    return dataType;
}

Bytes written(const zul_DataType& dataType, const zul_Header2& header) {
    Bytes out(kMaxFileHeaderSize, 0xCC);
    out.resize(writeFileHeader(out.data(), dataType, header, countingMarker()));
    return out;
}

zul_Header2 sensorHeader() {
    zul_Header2 header;
    Header2::init(header, zul_SENSOR_MOUNT_31, zul_SENSOR_TYPE_7, 2.0, 1.5, -2.5, 100.0);
    header.enabled = true;
    header.hasRotation = true;
    return header;
}

zul_Status readBack(const Bytes& bytes, int version, zul_Header2& header) {
    zul_DataType dataType;
    zul_SyncMarker marker;
    return readFileHeader(bytes.data(), version, dataType, header, marker);
}

TEST(FileSignature, VersionByteAndRecognition) {
    const unsigned char expected[8] = {'Z', 'U', 'L', 1, 0x0D, 0x0A, 0x1A, 0x0A};
    EXPECT_EQ(std::memcmp(zul_FileSignature(1).bytes, expected, 8), 0);
    for (int version : {2, 0, 7, -1}) EXPECT_EQ(zul_FileSignature(version).bytes[3], 2);
    // The version byte is read as a signed byte.
    const int byte3[] = {1, 2, 0, 3, 127, 0x80, 0xFF}, version[] = {1, 2, 0, 3, 127, -1, -1};
    for (int i = 0; i < 7; ++i) {
        zul_FileSignature signature(1);
        signature.bytes[3] = static_cast<char>(byte3[i]);
        EXPECT_EQ(signatureVersion(signature.bytes), version[i]) << byte3[i];
    }
    for (int at : {0, 1, 2, 4, 5, 6, 7}) {
        zul_FileSignature signature(2);
        signature.bytes[at] ^= 0x20;
        EXPECT_EQ(signatureVersion(signature.bytes), -1) << at;
    }
    EXPECT_EQ(fileHeaderSize(1), 28);
    EXPECT_EQ(fileHeaderSize(2), 164);
    EXPECT_EQ(fileHeaderSize(3), 0);
}

TEST(FileHeader, BytesOfBothVersions) {
    const Bytes v1 = written(typeOf(0.0001f, zul_COLOR_RGB888, 0, false), Header2::disabled());
    const Bytes expected = {0x02, 0x00, 0x00, 0x00, 0x17, 0xB7, 0xD1, 0x38, 0x00, 0x00,
                            0x00, 0x00, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                            0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF};
    EXPECT_EQ(v1, expected);

    const zul_Header2 header = sensorHeader();
    const Bytes v2 = written(typeOf(0.25f, zul_COLOR_RGB565, 0x01020304, true), header);
    ASSERT_EQ(v2.size(), 164u);
    const Bytes front = {0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x80, 0x3E, 0x04, 0x03,
                         0x02, 0x01, 31,   7,    1,    0,    1,    1,    0,    0};
    EXPECT_EQ(Bytes(v2.begin(), v2.begin() + 20), front);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(loadValueLE<double>(v2.data() + 20 + 8 * i), header.transformation[i]) << i;
    EXPECT_EQ(v2[148], 0xA0);
    EXPECT_EQ(v2[163], 0xAF);
}

TEST(FileHeader, BothVersionsReadBackWhatWasWritten) {
    const zul_DataType dataType = typeOf(0.003f, zul_COLOR_RGB888, 65535, true);
    for (bool version2 : {false, true}) {
        // A version 1 header reads as the disabled one, whatever the record held.
        const zul_Header2 header = version2 ? sensorHeader() : Header2::disabled();
        zul_DataType readType;
        zul_Header2 readHeader = sensorHeader();
        zul_SyncMarker marker;
        ASSERT_EQ(readFileHeader(written(dataType, header).data(), version2 ? 2 : 1, readType,
                                 readHeader, marker),
                  zul_STATUS_OK);
        EXPECT_TRUE(DataType::equal(readType, dataType));
        EXPECT_TRUE(Header2::equal(readHeader, header)) << version2;
        EXPECT_TRUE(marker.isSet && marker.equals(countingMarker().bytes));
    }
}

struct Damage {
    const char* name;
    int version, offset;
    unsigned char value;
    zul_Status status;
};

class FileHeaderDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(FileHeaderDamage, IsRefusedOrIgnoredAsTheFormatSays) {
    const Damage& d = GetParam();
    Bytes bytes = written(typeOf(0.001f, zul_COLOR_RGB565, 1000, true),
                          d.version == 2 ? sensorHeader() : Header2::disabled());
    bytes[d.offset] = d.value;
    zul_Header2 header;
    EXPECT_EQ(readBack(bytes, d.version, header), d.status);
}

const zul_Status OK = zul_STATUS_OK, BAD = zul_STATUS_CORRUPT_DATA;

// clang-format off
INSTANTIATE_TEST_SUITE_P(FileHeader, FileHeaderDamage, ::testing::Values(
    Damage{"colour mode 3", 1, 0, 3, BAD},
    Damage{"colour mode 0x80 reads as negative", 1, 0, 0x80, BAD},
    Damage{"reflection mode 0xFF", 2, 1, 0xFF, BAD},
    Damage{"normal mode 2", 2, 2, 2, BAD},
    Damage{"reflection off with a max reflection", 1, 1, 0, BAD},
    Damage{"step's sign bit", 1, 7, 0xBA, BAD},
    Damage{"step NaN", 1, 7, 0x7F, BAD},
    Damage{"reserved byte 3", 2, 3, 0x55, OK},
    Damage{"reserved byte 18", 2, 18, 0x01, OK},
    Damage{"reserved byte 19", 2, 19, 0xFF, OK},
    Damage{"unsupported scaling flag", 2, 15, 1, BAD},
    Damage{"flag byte 2 counts as true", 2, 14, 2, OK},
    Damage{"scaling flag cleared under a scale of 2", 2, 14, 0, BAD},
    Damage{"translation flag cleared", 2, 17, 0, BAD},
    Damage{"sensor mount not checked on reading", 2, 12, 0xFF, OK},
    Damage{"sensor type not checked on reading", 2, 13, 99, OK},
    Damage{"m[3] not zero", 2, 20 + 3 * 8 + 7, 0x3F, BAD},
    Damage{"marker bytes are free", 2, 150, 0x00, OK}),
    NameOfCase());
// clang-format on

TEST(FileHeader, SignedBytesArriveWidened) {
    Bytes bytes = written(typeOf(0.0001f, zul_COLOR_RGB888, 0, false), sensorHeader());
    bytes[12] = 0xFF;
    bytes[13] = 0x85;
    bytes[16] = 2;
    zul_Header2 header;
    ASSERT_EQ(readBack(bytes, 2, header), zul_STATUS_OK);
    EXPECT_EQ(header.sensorMount, -1);
    EXPECT_EQ(header.sensorType, -123);
    EXPECT_TRUE(header.hasRotation && header.enabled);
}

}  // namespace

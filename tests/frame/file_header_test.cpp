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

zul_DataType fullColorType() {
    zul_DataType dataType;
    DataType::init(dataType, 0.0001f, zul_COLOR_RGB888, zul_REFLECTION_NONE, 0, zul_NORMAL_NONE);
    return dataType;
}

Bytes written(const zul_DataType& dataType, const zul_Header2& header) {
    Bytes out(kMaxFileHeaderSize, 0xCC);
    const int size = writeFileHeader(out.data(), dataType, header, countingMarker());
    out.resize(size);
    return out;
}

zul_Header2 sensorHeader() {
    zul_Header2 header;
    Header2::init(header, zul_SENSOR_MOUNT_31, zul_SENSOR_TYPE_7, 2.0, 1.5, -2.5, 100.0);
    header.enabled = true;
    header.hasRotation = true;
    return header;
}

TEST(FileSignature, VersionByteIsOneOrTwo) {
    const unsigned char expected[8] = {'Z', 'U', 'L', 1, 0x0D, 0x0A, 0x1A, 0x0A};
    EXPECT_EQ(std::memcmp(zul_FileSignature(1).bytes, expected, 8), 0);
    for (int version : {2, 0, 7, -1}) EXPECT_EQ(zul_FileSignature(version).bytes[3], 2);
    EXPECT_EQ(
        std::memcmp(zul_FileSignature(reinterpret_cast<const char*>(expected)).bytes, expected, 8),
        0);
}

TEST(FileSignature, RecognitionReadsTheVersionAsASignedByte) {
    struct Case {
        int byte3;
        int version;
    };
    for (Case c : {Case{1, 1}, Case{2, 2}, Case{0, 0}, Case{3, 3}, Case{127, 127}, Case{0x80, -1},
                   Case{0xFF, -1}}) {
        zul_FileSignature signature(1);
        signature.bytes[3] = static_cast<char>(c.byte3);
        EXPECT_EQ(signatureVersion(signature.bytes), c.version) << c.byte3;
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

TEST(FileHeader, VersionOneBytes) {
    const Bytes bytes = written(fullColorType(), Header2::disabled());
    const Bytes expected = {0x02, 0x00, 0x00, 0x00, 0x17, 0xB7, 0xD1, 0x38, 0x00, 0x00,
                            0x00, 0x00, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                            0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF};
    EXPECT_EQ(bytes, expected);
}

TEST(FileHeader, VersionTwoLayout) {
    zul_DataType dataType;
    DataType::init(dataType, 0.25f, zul_COLOR_RGB565, zul_REFLECTION_CLAMPED, 0x01020304,
                   zul_NORMAL_SPHERICAL);
    const zul_Header2 header = sensorHeader();
    const Bytes bytes = written(dataType, header);
    ASSERT_EQ(bytes.size(), 164u);
    const Bytes front = {0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x80, 0x3E, 0x04, 0x03,
                         0x02, 0x01, 31,   7,    1,    0,    1,    1,    0,    0};
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 20), front);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(loadValueLE<double>(bytes.data() + 20 + 8 * i), header.transformation[i]) << i;
    EXPECT_EQ(bytes[148], 0xA0);
    EXPECT_EQ(bytes[163], 0xAF);
}

TEST(FileHeader, BothVersionsReadBackWhatWasWritten) {
    zul_DataType dataType;
    DataType::init(dataType, 0.003f, zul_COLOR_RGB888, zul_REFLECTION_CLAMPED, 65535,
                   zul_NORMAL_SPHERICAL);
    for (bool version2 : {false, true}) {
        const zul_Header2 header = version2 ? sensorHeader() : Header2::disabled();
        const Bytes bytes = written(dataType, header);
        zul_DataType readType;
        zul_Header2 readHeader;
        zul_SyncMarker marker;
        ASSERT_EQ(readFileHeader(bytes.data(), version2 ? 2 : 1, readType, readHeader, marker),
                  zul_STATUS_OK);
        EXPECT_TRUE(DataType::equal(readType, dataType));
        EXPECT_TRUE(Header2::equal(readHeader, header)) << version2;
        EXPECT_TRUE(marker.isSet);
        EXPECT_TRUE(marker.equals(countingMarker().bytes));
    }
}

struct Damage {
    const char* name;
    int version;
    int offset;
    unsigned char value;
    zul_Status status;
};

class FileHeaderDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(FileHeaderDamage, IsRefusedOrIgnoredAsTheFormatSays) {
    const Damage& d = GetParam();
    zul_DataType dataType;
    DataType::init(dataType, 0.001f, zul_COLOR_RGB565, zul_REFLECTION_CLAMPED, 1000,
                   zul_NORMAL_SPHERICAL);
    Bytes bytes = written(dataType, d.version == 2 ? sensorHeader() : Header2::disabled());
    bytes[d.offset] = d.value;
    zul_DataType readType;
    zul_Header2 readHeader;
    zul_SyncMarker marker;
    EXPECT_EQ(readFileHeader(bytes.data(), d.version, readType, readHeader, marker), d.status)
        << d.name;
}

INSTANTIATE_TEST_SUITE_P(
    FileHeader, FileHeaderDamage,
    ::testing::Values(
        Damage{"colour mode 3", 1, 0, 3, zul_STATUS_CORRUPT_DATA},
        Damage{"colour mode 0x80 reads as negative", 1, 0, 0x80, zul_STATUS_CORRUPT_DATA},
        Damage{"reflection mode 0xFF", 2, 1, 0xFF, zul_STATUS_CORRUPT_DATA},
        Damage{"normal mode 2", 2, 2, 2, zul_STATUS_CORRUPT_DATA},
        Damage{"reflection off with a max reflection", 1, 1, 0, zul_STATUS_CORRUPT_DATA},
        Damage{"step's sign bit", 1, 7, 0xBA, zul_STATUS_CORRUPT_DATA},
        Damage{"step NaN", 1, 7, 0x7F, zul_STATUS_CORRUPT_DATA},
        Damage{"reserved byte 3", 2, 3, 0x55, zul_STATUS_OK},
        Damage{"reserved byte 18", 2, 18, 0x01, zul_STATUS_OK},
        Damage{"reserved byte 19", 2, 19, 0xFF, zul_STATUS_OK},
        Damage{"unsupported scaling flag", 2, 15, 1, zul_STATUS_CORRUPT_DATA},
        Damage{"flag byte 2 counts as true", 2, 14, 2, zul_STATUS_OK},
        Damage{"scaling flag cleared under a scale of 2", 2, 14, 0, zul_STATUS_CORRUPT_DATA},
        Damage{"translation flag cleared", 2, 17, 0, zul_STATUS_CORRUPT_DATA},
        Damage{"sensor mount not checked on reading", 2, 12, 0xFF, zul_STATUS_OK},
        Damage{"sensor type not checked on reading", 2, 13, 99, zul_STATUS_OK},
        Damage{"m[3] not zero", 2, 20 + 3 * 8 + 7, 0x3F, zul_STATUS_CORRUPT_DATA},
        Damage{"marker bytes are free", 2, 150, 0x00, zul_STATUS_OK}),
    NameOfCase());

TEST(FileHeader, SignedBytesArriveWidened) {
    Bytes bytes = written(fullColorType(), sensorHeader());
    bytes[12] = 0xFF;
    bytes[13] = 0x85;
    bytes[16] = 2;
    zul_DataType readType;
    zul_Header2 readHeader;
    zul_SyncMarker marker;
    ASSERT_EQ(readFileHeader(bytes.data(), 2, readType, readHeader, marker), zul_STATUS_OK);
    EXPECT_EQ(readHeader.sensorMount, -1);
    EXPECT_EQ(readHeader.sensorType, -123);
    EXPECT_TRUE(readHeader.hasRotation);
    EXPECT_TRUE(readHeader.enabled);
}

TEST(FileHeader, VersionOneReadsAsTheDisabledHeader) {
    const Bytes bytes = written(fullColorType(), Header2::disabled());
    zul_DataType readType;
    zul_Header2 readHeader = sensorHeader();
    zul_SyncMarker marker;
    ASSERT_EQ(readFileHeader(bytes.data(), 1, readType, readHeader, marker), zul_STATUS_OK);
    EXPECT_TRUE(Header2::equal(readHeader, Header2::disabled()));
}

}  // namespace

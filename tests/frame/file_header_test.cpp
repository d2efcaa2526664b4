#include "frame/file_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "frame/header2.h"
#include "support/host_files.h"
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

struct Damage {
    const char* name;
    int version, offset;
    unsigned char value;
    zul_Status status;
};

class FileHeaderDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(FileHeaderDamage, IsRefusedOrIgnoredAsTheFormatSays) {
    const Damage& d = GetParam();
    Bytes bytes = written(makeDataType(0.001f, zul_COLOR_RGB565, 1000, true),
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
    Bytes bytes = written(makeDataType(0.0001f, zul_COLOR_RGB888, 0, false), sensorHeader());
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

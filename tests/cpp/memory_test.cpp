// zul::encode, zul::decode, zul::Writer and zul::Reader: for every attribute combination in both
// versions, the stream is the file zul::Writer writes, and its points are those the C reader and
// zul::Reader read; a damaged stream is refused with the reader's status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/host_files.h"
#include "support/temp_folder.h"
#include "zul.hpp"

namespace {

// Case i: colour mode i / 8, then a bit each for reflection (4), normals (2) and a sensor
// header (1, version 2).
class EveryCombination : public TempFolderTest, public ::testing::WithParamInterface<int> {};

TEST_P(EveryCombination, StreamIsTheWritersFileAndDecodesAsTheReaderReads) {
    const int i = GetParam();
    zul::DataType built = zul::DataType{}.step(0.0005f).color(static_cast<zul_ColorMode>(i / 8));
    if (i & 4) built.reflection(255);
    const zul_DataType type = built.normals((i & 2) != 0);
    zul_Header2 sensor =
        zul::Header2{}.scale(1.5).rotation({0, 0, 1, 1, 0, 0, 0, 1, 0}).translation(-3, 4, 100);
    sensor.enabled = (i & 1) != 0;
    const std::vector<zul_Point> points = samplePoints(2500, 11);

    zul_test_useFixedRandomSeed(true, 1234);
    const std::vector<uint8_t> stream = zul::encode(points, type, sensor, 1000);
    zul::Writer writer(path("cpp.zul"), type, sensor);
    zul_test_useFixedRandomSeed(false, 0);
    writer.setChunkSize(1000);
    for (const zul_Point& p : points) writer.write(p);
    writer.close();
    ASSERT_EQ(stream, readFile<std::vector<uint8_t>>(path("cpp.zul")));

    for (int apply : {1, 0}) {
        const zul::Cloud cloud = zul::decode(stream, apply == 1);
        zul_Status end;
        expectSamePoints(cloud.points, readWithReader(path("cpp.zul"), &end, apply));
        EXPECT_EQ(end, zul_STATUS_END_OF_FILE);
        EXPECT_EQ(cloud.dataType.colorMode, type.colorMode);
        EXPECT_EQ(cloud.dataType.maxReflection, type.maxReflection);
        EXPECT_EQ(cloud.header2.enabled, sensor.enabled);
        zul::Reader reader(path("cpp.zul"), apply == 1);
        EXPECT_EQ(reader.numPoints(), 2500);
        std::vector<zul_Point> read;
        for (const zul_Point& p : reader) read.push_back(p);
        expectSamePoints(read, cloud.points);
    }
}

INSTANTIATE_TEST_SUITE_P(Cpp, EveryCombination, ::testing::Range(0, 24));

TEST(MemoryHelpers, EdgesOfTheCountAndDamage) {
    const std::vector<zul_Point> points = samplePoints(50, 12);
    // Fields the stream lacks come back as zero.
    for (const zul_Point& p : zul::decode(zul::encode(points, zul::DataType{}, 7)).points) {
        EXPECT_EQ(p.color[0] | p.color[1] | p.color[2] | p.reflection, 0);
        EXPECT_EQ(p.normal[0], 0.0f);
    }
    const std::vector<uint8_t> empty = zul::encode(std::vector<zul_Point>{}, zul::DataType{});
    EXPECT_EQ(empty.size(), 8u + 28u);  // no points: a stream without chunks
    EXPECT_TRUE(zul::decode(empty).points.empty());
    for (int size : {0, -1, 2147483647}) {
        EXPECT_EQ(statusOf([&] { zul::encode(points, zul::DataType{}, size); }),
                  zul_STATUS_INVALID_ARGUMENT)
            << "chunk size " << size;
    }
    std::vector<uint8_t> stream = zul::encode(points, zul::DataType{}, 10);
    EXPECT_EQ(zul::decode(stream).points.size(), 50u);
    const std::vector<uint8_t> cut(stream.begin(), stream.end() - 1);
    EXPECT_EQ(statusOf([&] { zul::decode(cut); }), zul_STATUS_TRUNCATED);
    stream[36 + 5] ^= 0x40;  // the first chunk's marker
    EXPECT_EQ(statusOf([&] { zul::decode(stream); }), zul_STATUS_CORRUPT_DATA);
}

}  // namespace

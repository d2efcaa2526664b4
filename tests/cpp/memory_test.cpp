// zul::encode and zul::decode: for every attribute combination in both versions, the stream is
// the file the C writer writes and its points are those the C reader reads; a cut or damaged
// stream is refused with the reader's status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cpp/host_support.h"
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
    zul_out_Context out = nullptr;
    ASSERT_EQ(zul_out_open2(&out, path("c.zul").c_str(), &type, &sensor), zul_STATUS_OK);
    zul_test_useFixedRandomSeed(false, 0);
    ASSERT_EQ(zul_out_setChunkSize(out, 1000), zul_STATUS_OK);
    for (const zul_Point& p : points) ASSERT_EQ(zul_out_writePoint(out, &p), zul_STATUS_OK);
    ASSERT_EQ(zul_out_close(&out), zul_STATUS_OK);
    ASSERT_EQ(stream, fileBytes(path("c.zul")));

    for (int apply : {1, 0}) {
        const zul::Cloud cloud = zul::decode(stream, apply == 1);
        expectSamePoints(cloud.points, readWithC(path("c.zul"), apply));
        EXPECT_EQ(cloud.dataType.colorMode, type.colorMode);
        EXPECT_EQ(cloud.dataType.maxReflection, type.maxReflection);
        EXPECT_EQ(cloud.header2.enabled, sensor.enabled);
    }
}

INSTANTIATE_TEST_SUITE_P(Cpp, EveryCombination, ::testing::Range(0, 24));

TEST(MemoryHelpers, EdgesOfTheCount) {
    const std::vector<zul_Point> points = samplePoints(50, 12);
    // Fields the stream lacks come back as zero.
    for (const zul_Point& p :
         zul::decode(zul::encode(points, zul::DataType{}.step(0.01f), 7)).points) {
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
    EXPECT_EQ(zul::decode(zul::encode(points, zul::DataType{}, 1)).points.size(), 50u);
}

// A stream of two chunks cut at every length: the cut is a clean end at a chunk boundary, or
// else the stream ends inside a piece.
TEST(MemoryHelpers, CutStreamsEndCleanlyOnlyAtChunkBoundaries) {
    const std::vector<uint8_t> stream =
        zul::encode(samplePoints(20, 14), zul::DataType{}.color(zul_COLOR_RGB888), 10);
    const zul::Cloud first = zul::decode(stream);
    size_t boundary = 36;
    std::vector<size_t> boundaries = {36};
    {
        zul::Decoder decoder(stream);
        decoder.decodeFileHeader(zul::ByteView(stream.data() + 8, 28));
        while (boundary < stream.size()) {
            boundary += 16 + 60;
            boundary += static_cast<size_t>(
                decoder.decodeChunkHeader(zul::ByteView(stream.data() + boundary - 60, 60)));
            boundaries.push_back(boundary);
        }
    }
    ASSERT_EQ(boundaries.size(), 3u);
    ASSERT_EQ(boundaries.back(), stream.size());
    for (size_t cut = 0; cut < stream.size(); ++cut) {
        const std::vector<uint8_t> part(stream.begin(), stream.begin() + static_cast<long>(cut));
        if (cut == boundaries[0] || cut == boundaries[1]) {
            EXPECT_EQ(zul::decode(part).points.size(), cut == boundaries[0] ? 0u : 10u);
            continue;
        }
        EXPECT_EQ(statusOf([&] { zul::decode(part); }), zul_STATUS_TRUNCATED) << "cut at " << cut;
    }
}

TEST(MemoryHelpers, AForeignSyncMarkerIsCorruptData) {
    std::vector<uint8_t> stream = zul::encode(samplePoints(20, 15), zul::DataType{}, 10);
    stream[36 + 5] ^= 0x40;  // the first chunk's marker
    EXPECT_EQ(statusOf([&] { zul::decode(stream); }), zul_STATUS_CORRUPT_DATA);
}

}  // namespace

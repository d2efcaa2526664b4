// zul::encode and zul::decode: for every attribute combination in both versions, the stream is
// the file the C writer writes and its points are those the C reader reads; a cut or damaged
// stream is refused with the reader's status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cpp/host_support.h"
#include "support/temp_folder.h"
#include "support/test_names.h"
#include "zul.hpp"

namespace {

struct Combination {
    const char* name;
    zul_ColorMode color;
    bool reflection;
    bool normals;
    bool sensorHeader;
};

std::vector<Combination> allCombinations() {
    static const char* const names[] = {
        "none v1",  "none v2",  "n v1",       "n v2",       "r v1",       "r v2",
        "r n v1",   "r n v2",   "565 v1",     "565 v2",     "565 n v1",   "565 n v2",
        "565 r v1", "565 r v2", "565 r n v1", "565 r n v2", "888 v1",     "888 v2",
        "888 n v1", "888 n v2", "888 r v1",   "888 r v2",   "888 r n v1", "888 r n v2"};
    std::vector<Combination> all;
    for (int i = 0; i < 24; ++i) {
        all.push_back({names[i], static_cast<zul_ColorMode>(i / 8), (i / 4) % 2 == 1,
                       (i / 2) % 2 == 1, i % 2 == 1});
    }
    return all;
}

class EveryCombination : public TempFolderTest, public ::testing::WithParamInterface<Combination> {
protected:
    zul_DataType dataType() const {
        zul::DataType type =
            zul::DataType{}.step(0.0005f).color(GetParam().color).normals(GetParam().normals);
        if (GetParam().reflection) type.reflection(255);
        return type;
    }
    zul_Header2 header() const {
        if (!GetParam().sensorHeader) {
            zul_Header2 disabled = zul::Header2{};
            disabled.enabled = false;
            return disabled;
        }
        return zul::Header2{}
            .scale(1.5)
            .rotation({0, 0, 1, 1, 0, 0, 0, 1, 0})
            .translation(-3, 4, 100);
    }
};

TEST_P(EveryCombination, StreamIsTheWritersFileAndDecodesAsTheReaderReads) {
    const std::vector<zul_Point> points = samplePoints(2500, 11);
    const zul_DataType type = dataType();
    const zul_Header2 sensor = header();

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
        EXPECT_EQ(cloud.header2.enabled, GetParam().sensorHeader);
    }
}

INSTANTIATE_TEST_SUITE_P(Cpp, EveryCombination, ::testing::ValuesIn(allCombinations()),
                         NameOfCase());

TEST(MemoryHelpers, FieldsTheStreamLacksComeBackAsZero) {
    std::vector<zul_Point> points = samplePoints(50, 12);
    const zul::Cloud cloud = zul::decode(zul::encode(points, zul::DataType{}.step(0.01f)));
    ASSERT_EQ(cloud.points.size(), 50u);
    for (const zul_Point& p : cloud.points) {
        EXPECT_EQ(p.color[0] | p.color[1] | p.color[2], 0);
        EXPECT_EQ(p.reflection, 0);
        EXPECT_EQ(p.normal[0], 0.0f);
    }
}

TEST(MemoryHelpers, NoPointsIsAStreamWithoutChunks) {
    const std::vector<uint8_t> stream = zul::encode(std::vector<zul_Point>{}, zul::DataType{});
    EXPECT_EQ(stream.size(), 8u + 28u);
    EXPECT_TRUE(zul::decode(stream).points.empty());
}

TEST(MemoryHelpers, ChunkSizeOutOfBoundsIsRefused) {
    const std::vector<zul_Point> points = samplePoints(3, 13);
    for (int size : {0, -1, 2147483647}) {
        EXPECT_EQ(statusOf([&] { zul::encode(points, zul::DataType{}, size); }),
                  zul_STATUS_INVALID_ARGUMENT)
            << "chunk size " << size;
    }
    EXPECT_EQ(zul::decode(zul::encode(points, zul::DataType{}, 1)).points.size(), 3u);
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

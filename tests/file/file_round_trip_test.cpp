// Write a cloud point by point and read it back, over every attribute combination and the chunk
// sizes 1, 7 and 10000: the file is byte for byte the stream the in-memory encoder makes of the
// same chunks, and the reader hands out exactly the points the in-memory decoder makes of it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/data_type.h"
#include "frame/header2.h"
#include "support/file_stream.h"

namespace {

const int kNumPoints = 23;

struct Case {
    zul_ColorMode color;
    int maxReflection;
    bool normals;
    bool version2;
    int chunkSize;
};

std::vector<Case> allCases() {
    std::vector<Case> cases;
    const zul_ColorMode colors[] = {zul_COLOR_NONE, zul_COLOR_RGB565, zul_COLOR_RGB888};
    int index = 0;
    for (zul_ColorMode color : colors) {
        for (int maxReflection : {0, 255}) {
            for (bool normals : {false, true}) {
                for (int chunkSize : {1, 7, 10000}) {
                    cases.push_back({color, maxReflection, normals, index % 2 == 1, chunkSize});
                    ++index;
                }
            }
        }
    }
    return cases;
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
    const Case& c = info.param;
    const char* colors[] = {"NoColor", "Rgb565", "Rgb888"};
    return std::string(colors[c.color]) + (c.maxReflection ? "Reflection" : "") +
           (c.normals ? "Normals" : "") + (c.version2 ? "V2" : "V1") + "Chunk" +
           std::to_string(c.chunkSize);
}

// What a read must leave alone in the fields of attributes the file lacks.
zul_Point sentinelPoint() {
    zul_Point p;
    for (int k = 0; k < 3; ++k) {
        p.position[k] = -1e300;
        p.color[k] = static_cast<uint8_t>(11 * (k + 1));
        p.normal[k] = 5.0f + static_cast<float>(k);
    }
    p.reflection = -7;
    return p;
}

class FileRoundTrip : public FileTest, public ::testing::WithParamInterface<Case> {};

TEST_P(FileRoundTrip, WritesTheEncodersStreamAndReadsTheDecodersPoints) {
    const Case& c = GetParam();
    const zul_DataType dataType = makeDataType(0.001f, c.color, c.maxReflection, c.normals);
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    zullib::Header2::setTranslation(header, 5.0, -3.0, 2.0);
    const zul_Header2* header2 = c.version2 ? &header : nullptr;
    const PointCloud cloud = randomCloud(kNumPoints, 17);
    const std::string file = path("cloud.zul");
    writeCloud(file, dataType, header2, c.chunkSize, cloud);

    std::vector<PointCloud> chunks = chunksOf(cloud, c.chunkSize);
    const EncodedStream expected = encodeStream(dataType, header2, chunks);
    ASSERT_EQ(readFile(file), fileBytes(expected));

    Decoder decoder;
    decoder.start(expected);
    zul_in_Context reader = nullptr;
    zul_DataType readType;
    zul_Header2 readHeader;
    ASSERT_EQ(zul_in_open2(&reader, &readType, &readHeader, file.c_str(), nullptr), zul_STATUS_OK);
    EXPECT_TRUE(zullib::DataType::equal(readType, dataType));
    EXPECT_EQ(readHeader.enabled, c.version2);
    int64_t total = 0;
    ASSERT_EQ(zul_in_getNumPoints(reader, &total), zul_STATUS_OK);
    EXPECT_EQ(total, kNumPoints);

    const zul_Point sentinel = sentinelPoint();
    for (size_t chunk = 0; chunk < chunks.size(); ++chunk) {
        ASSERT_EQ(decoder.chunk(expected, chunk), zul_STATUS_OK);
        const zul_PointData& want = decoder.points;
        for (int i = 0; i < want.numPoints; ++i) {
            zul_Point p = sentinel;
            ASSERT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_OK);
            EXPECT_EQ(0, std::memcmp(p.position, want.positions + 3 * i, 24)) << i;
            EXPECT_EQ(0,
                      std::memcmp(p.color, want.colors ? want.colors + 3 * i : sentinel.color, 3));
            EXPECT_EQ(p.reflection, want.reflections ? want.reflections[i] : sentinel.reflection);
            EXPECT_EQ(0,
                      std::memcmp(p.normal, want.normals ? want.normals + 3 * i : sentinel.normal,
                                  sizeof p.normal));
        }
    }
    zul_Point p = sentinel;
    EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_END_OF_FILE);
    EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_in_getNumPoints(reader, &total), zul_STATUS_INVALID_STATE);
    zul_in_close(&reader);
    EXPECT_EQ(reader, nullptr);
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, FileRoundTrip, ::testing::ValuesIn(allCases()),
                         caseName);

}  // namespace

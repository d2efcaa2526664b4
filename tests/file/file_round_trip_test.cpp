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
    for (int i = 0; i < 36; ++i)  // colour, reflection, normals, chunk size; versions alternate
        cases.push_back({static_cast<zul_ColorMode>(i / 12), i / 6 % 2 * 255, i / 3 % 2 == 1,
                         i % 2 == 1,
                         i % 3 == 0   ? 1
                         : i % 3 == 1 ? 7
                                      : 10000});
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
const zul_Point kSentinel = {{-1e300, -1e300, -1e300}, {11, 22, 33}, -7, {5, 6, 7}};

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

    for (size_t chunk = 0; chunk < chunks.size(); ++chunk) {
        ASSERT_EQ(decoder.chunk(expected, chunk), zul_STATUS_OK);
        const zul_PointData& want = decoder.points;
        for (int i = 0; i < want.numPoints; ++i) {
            zul_Point p = kSentinel, expected = kSentinel;
            std::memcpy(expected.position, want.positions + 3 * i, sizeof p.position);
            if (want.colors) std::memcpy(expected.color, want.colors + 3 * i, 3);
            if (want.reflections) expected.reflection = want.reflections[i];
            if (want.normals) std::memcpy(expected.normal, want.normals + 3 * i, sizeof p.normal);
            ASSERT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_OK);
            EXPECT_TRUE(samePoint(p, expected)) << i;
        }
    }
    zul_Point p = kSentinel;
    EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_END_OF_FILE);
    EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_in_getNumPoints(reader, &total), zul_STATUS_INVALID_STATE);
    zul_in_close(&reader);
    EXPECT_EQ(reader, nullptr);
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, FileRoundTrip, ::testing::ValuesIn(allCases()),
                         caseName);

}  // namespace

// The encoder's internal opening with a given sync marker: the marker stands in the file header
// and in front of every chunk, and encoders opened alike make the same bytes, so that chunks of
// one stream can be made by several of them.
#include <gtest/gtest.h>

#include <string>

#include "encoder/enc_open.h"
#include "support/host_files.h"
#include "support/point_cloud.h"

namespace {

struct Encoder {
    ~Encoder() { zul_enc_close(&context); }
    std::string fileHeader() {
        const char* bytes = nullptr;
        int size = 0;
        EXPECT_EQ(zul_enc_encodeFileHeader(context, &bytes, &size), zul_STATUS_OK);
        return std::string(bytes, static_cast<size_t>(size));
    }
    std::string chunk(PointCloud& cloud) {
        const zul_PointData data = cloud.data();
        const char* bytes = nullptr;
        int size = 0;
        EXPECT_EQ(zul_enc_encodeChunk(context, &bytes, &size, &data), zul_STATUS_OK);
        return std::string(bytes, static_cast<size_t>(size));
    }
    zul_enc_Context context = nullptr;
};

const char kMarker[ZUL_SYNC_MARKER_SIZE + 1] = "0123456789abcdef";

TEST(OpenWithMarker, CarriesTheMarkerAndMakesTheSameBytes) {
    const zul_DataType type = makeDataType(0.01f, zul_COLOR_RGB565, 255, false);
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    PointCloud cloud;
    for (int i = 0; i < 50; ++i) cloud.add(i * 0.1, i * 0.02, -i * 0.3, {1, 2, 3}, i);
    const zul_Header2* const sensors[] = {nullptr, &header};
    for (const zul_Header2* sensor : sensors) {
        Encoder one, two;
        ASSERT_EQ(zulencoder::openWithMarker(&one.context, &type, sensor, kMarker), zul_STATUS_OK);
        ASSERT_EQ(zulencoder::openWithMarker(&two.context, &type, sensor, kMarker), zul_STATUS_OK);
        const std::string fileHeader = one.fileHeader();
        EXPECT_EQ(fileHeader.size(),
                  sensor ? size_t{ZUL_FILE_HEADER_SIZE_V2} : size_t{ZUL_FILE_HEADER_SIZE_V1});
        EXPECT_EQ(fileHeader.substr(fileHeader.size() - ZUL_SYNC_MARKER_SIZE), kMarker);
        EXPECT_EQ(fileHeader, two.fileHeader());
        const std::string chunk = one.chunk(cloud);
        EXPECT_EQ(chunk.substr(0, ZUL_SYNC_MARKER_SIZE), kMarker);
        EXPECT_EQ(chunk, two.chunk(cloud));
    }
}

TEST(OpenWithMarker, RefusesWhatOpenRefusesAndANullMarker) {
    const zul_DataType good = makeDataType(0.01f, zul_COLOR_NONE, 0, false);
    zul_DataType bad = good;
    bad.quantizationStep = 0;
    Encoder encoder;
    EXPECT_EQ(zulencoder::openWithMarker(nullptr, &good, nullptr, kMarker),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zulencoder::openWithMarker(&encoder.context, &bad, nullptr, kMarker),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zulencoder::openWithMarker(&encoder.context, &good, nullptr, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(encoder.context, nullptr);
}

}  // namespace

// zul::Error's text and status; the sensor header builder composing its parts; zul::Encoder and
// zul::Decoder (whose bytes the round trips of every combination check): refusals of the C API
// as zul::Error with their status, and moves that hand the handle over.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/host_files.h"
#include "zul.hpp"

namespace {

const zul_DataType kAllAttributes =
    zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888).reflection(255).normals();

TEST(Error, NamesItsStatusAndWhere) {
    const std::pair<zul_Status, const char*> statuses[] = {
        {zul_STATUS_OK, "zul_STATUS_OK"},
        {zul_STATUS_END_OF_FILE, "zul_STATUS_END_OF_FILE"},
        {zul_STATUS_BAD_VERSION, "zul_STATUS_BAD_VERSION"},
        {zul_STATUS_INVALID_ARGUMENT, "zul_STATUS_INVALID_ARGUMENT"},
        {zul_STATUS_INVALID_STATE, "zul_STATUS_INVALID_STATE"},
        {static_cast<zul_Status>(42), "unknown zul_Status"}};
    for (const auto& [status, name] : statuses) {
        const zul::Error error(status, "scan.zul: zul_in_readNextPoint");
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(std::string(error.what()), std::string("scan.zul: zul_in_readNextPoint: ") +
                                                 name + " (" +
                                                 std::to_string(static_cast<int>(status)) + ")");
    }
}

// 90 degrees about z, row after row: x becomes y.
const std::array<double, 9> kQuarterTurn = {0, -1, 0, 1, 0, 0, 0, 0, 1};

TEST(Header2Builder, ScaleAndRotationComposeInEitherOrder) {
    const zul_Header2 a = zul::Header2{}.scale(2.0).rotation(kQuarterTurn).translation(10, 20, 30);
    const zul_Header2 b =
        zul::Header2{}.translation(10, 20, 30).rotation(kQuarterTurn).scale(3.0).scale(2.0);
    EXPECT_EQ(std::memcmp(a.transformation, b.transformation, sizeof a.transformation), 0);
    EXPECT_TRUE(a.hasScaling && a.hasRotation && a.hasTranslation);
    // Column after column: the first column is the image of x, 2 * (0, 1, 0).
    const double expected[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 10, 20, 30, 1};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(a.transformation[i], expected[i]) << "element " << i;
}

TEST(Decoder, RefusalsComeAsErrorsWithTheirStatus) {
    const std::vector<uint8_t> stream = zul::encode(samplePoints(10, 5), kAllAttributes);
    std::vector<uint8_t> badSignature = stream;
    badSignature[0] ^= 1;
    EXPECT_EQ(statusOf([&] { zul::Decoder d(badSignature); }), zul_STATUS_BAD_SIGNATURE);

    zul::Decoder decoder(stream);
    const zul::ByteView afterSignature(stream.data() + 8, stream.size() - 8);
    // Out of order: no chunk header before the file header, no body before a chunk header.
    EXPECT_EQ(statusOf([&] { decoder.decodeChunkHeader(afterSignature); }),
              zul_STATUS_INVALID_STATE);
    std::vector<uint8_t> badHeader(stream.begin() + 8, stream.begin() + 36);
    badHeader[0] = 9;  // colour mode 9
    EXPECT_EQ(statusOf([&] { decoder.decodeFileHeader(badHeader); }), zul_STATUS_CORRUPT_DATA);
    decoder.decodeFileHeader(afterSignature);  // a refused file header may be offered again
    EXPECT_EQ(statusOf([&] { decoder.decodeChunkBody(afterSignature); }), zul_STATUS_INVALID_STATE);
    const auto bodySize =
        static_cast<size_t>(decoder.decodeChunkHeader(zul::ByteView(&stream[36 + 16], 68)));
    EXPECT_EQ(statusOf([&] { decoder.decodeChunkBody(zul::ByteView(&stream[120], bodySize - 1)); }),
              zul_STATUS_TRUNCATED);
    EXPECT_EQ(decoder.decodeChunkBody(zul::ByteView(&stream[120], bodySize)).numPoints, 10);
}

TEST(Encoder, RefusalsComeAsErrorsWithTheirStatus) {
    zul::Encoder encoder(kAllAttributes);
    std::vector<zul_Point> points = samplePoints(5, 6);
    points[2].normal[0] = points[2].normal[1] = points[2].normal[2] = 0.0f;
    try {
        encoder.encodeChunk(points.data(), points.size());
        FAIL() << "a zero normal was encoded";
    } catch (const zul::Error& e) {
        EXPECT_EQ(e.status(), zul_STATUS_INVALID_ARGUMENT);
        EXPECT_STREQ(e.what(), "zul_enc_encodeChunk: zul_STATUS_INVALID_ARGUMENT (1000)");
    }
    EXPECT_EQ(statusOf([&] { encoder.encodeChunk(nullptr, 3); }), zul_STATUS_INVALID_ARGUMENT);
    // The encoder goes on with other points.
    EXPECT_GT(encoder.encodeChunk(points.data(), 2).size(), 0u);
}

TEST(Codec, MovesHandTheContextOver) {
    const std::vector<zul_Point> points = samplePoints(4, 7);
    zul::Encoder first(kAllAttributes);
    const zul_enc_Context handle = first.handle();
    zul::Encoder second(std::move(first));
    EXPECT_EQ(second.handle(), handle);
    EXPECT_EQ(first.handle(), nullptr);
    EXPECT_EQ(statusOf([&] { first.encodeChunk(points.data(), 4); }), zul_STATUS_INVALID_ARGUMENT);
    zul::Encoder third(zul::DataType{});
    third = std::move(second);  // closes third's own encoder
    EXPECT_EQ(second.handle(), nullptr);
    zul::Encoder& same = third;
    third = std::move(same);  // a self-move keeps the encoder
    EXPECT_EQ(third.handle(), handle);
    EXPECT_GT(third.encodeChunk(points.data(), 4).size(), 0u);

    const std::vector<uint8_t> stream = zul::encode(points, kAllAttributes);
    zul::Decoder one(stream);
    one.decodeFileHeader(zul::ByteView(stream.data() + 8, stream.size() - 8));
    zul::Decoder two(std::move(one));
    EXPECT_EQ(statusOf([&] { one.numPointsInChunk(); }), zul_STATUS_INVALID_ARGUMENT);
    zul::Decoder three(stream);
    three = std::move(two);
    EXPECT_GT(three.decodeChunkHeader(zul::ByteView(&stream[36 + 16], 68)), 0);
    EXPECT_EQ(three.numPointsInChunk(), 4);
}

}  // namespace

// zul::Encoder and zul::Decoder (whose bytes the round trips of every combination check): a
// stream walked piece by piece with a chunk skipped, every refusal of the C API as zul::Error
// with its status, and moves that hand the handle over.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "cpp/host_support.h"
#include "zul.hpp"

namespace {

const zul_DataType kAllAttributes =
    zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888).reflection(255).normals();

TEST(Decoder, WalksAStreamPieceByPiece) {
    const std::vector<uint8_t> stream = zul::encode(samplePoints(1000, 4), kAllAttributes, 300);
    zul::Decoder decoder(zul::ByteView(stream.data(), 8));
    ASSERT_EQ(decoder.fileHeaderSize(), 28);
    decoder.decodeFileHeader(zul::ByteView(stream.data() + 8, 28));
    EXPECT_EQ(decoder.dataType().maxReflection, 255);
    EXPECT_FALSE(decoder.header2().enabled);
    EXPECT_EQ(decoder.chunkHeaderSize(), 68);
    std::vector<int> counts;
    size_t decoded = 0;
    for (size_t at = 36; at < stream.size();) {
        EXPECT_TRUE(std::equal(decoder.syncMarker().begin(), decoder.syncMarker().end(),
                               stream.begin() + static_cast<long>(at)));
        const auto bodySize =
            static_cast<size_t>(decoder.decodeChunkHeader(zul::ByteView(&stream[at + 16], 68)));
        counts.push_back(decoder.numPointsInChunk());
        if (counts.size() != 2) {  // the second chunk is skipped
            const zul_PointData data =
                decoder.decodeChunkBody(zul::ByteView(&stream[at + 84], bodySize));
            EXPECT_EQ(data.numPoints, counts.back());
            ASSERT_NE(data.colors, nullptr);
            decoded += static_cast<size_t>(data.numPoints);
        }
        at += 84 + bodySize;
    }
    EXPECT_EQ(counts, (std::vector<int>{300, 300, 300, 100}));
    EXPECT_EQ(decoded, 700u);
}

TEST(Decoder, RefusalsComeAsErrorsWithTheirStatus) {
    const std::vector<uint8_t> stream = zul::encode(samplePoints(10, 5), kAllAttributes);
    std::vector<uint8_t> badSignature = stream, badVersion = stream;
    badSignature[0] ^= 1;
    badVersion[3] = 3;
    EXPECT_EQ(statusOf([&] { zul::Decoder d(badSignature); }), zul_STATUS_BAD_SIGNATURE);
    EXPECT_EQ(statusOf([&] { zul::Decoder d(badVersion); }), zul_STATUS_BAD_VERSION);
    EXPECT_EQ(statusOf([&] { zul::Decoder d(zul::ByteView(stream.data(), 7)); }),
              zul_STATUS_TRUNCATED);

    zul::Decoder decoder(stream);
    const zul::ByteView afterSignature(stream.data() + 8, stream.size() - 8);
    // Out of order: no chunk header before the file header, no body before a chunk header.
    EXPECT_EQ(statusOf([&] { decoder.decodeChunkHeader(afterSignature); }),
              zul_STATUS_INVALID_STATE);
    EXPECT_EQ(statusOf([&] { decoder.decodeFileHeader(zul::ByteView(stream.data() + 8, 27)); }),
              zul_STATUS_TRUNCATED);
    std::vector<uint8_t> badHeader(stream.begin() + 8, stream.begin() + 36);
    badHeader[0] = 9;  // colour mode 9
    EXPECT_EQ(statusOf([&] { decoder.decodeFileHeader(badHeader); }), zul_STATUS_CORRUPT_DATA);
    decoder.decodeFileHeader(afterSignature);  // a refused file header may be offered again
    EXPECT_EQ(statusOf([&] { decoder.numPointsInChunk(); }), zul_STATUS_INVALID_STATE);
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

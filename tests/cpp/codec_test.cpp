// zul::Encoder and zul::Decoder: the pieces they pass are the C API's, byte for byte; every
// refusal of the C API arrives as zul::Error with its status; moves hand the handle over.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "cpp/host_support.h"
#include "zul.hpp"

namespace {

const zul_DataType kAllAttributes =
    zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888).reflection(255).normals();

std::vector<uint8_t> concat(std::initializer_list<zul::ByteView> pieces) {
    std::vector<uint8_t> bytes;
    for (const zul::ByteView& piece : pieces) bytes.insert(bytes.end(), piece.begin(), piece.end());
    return bytes;
}

TEST(Encoder, PiecesAreTheCApisBytes) {
    const std::vector<zul_Point> points = samplePoints(500, 3);
    zul_test_useFixedRandomSeed(true, 77);
    zul::Encoder encoder(kAllAttributes, zul::Header2{}.translation(1, 2, 3));
    // A chunk's bytes are valid until the next chunk: each is taken before the next is made.
    std::vector<uint8_t> ours = concat(
        {encoder.signature(), encoder.fileHeader(), encoder.encodeChunk(points.data(), 200)});
    const std::vector<uint8_t> second = encoder.encodeChunk(points.data() + 200, 300).toVector();
    ours.insert(ours.end(), second.begin(), second.end());

    zul_enc_Context c = nullptr;
    const zul_Header2 header = zul::Header2{}.translation(1, 2, 3);
    ASSERT_EQ(zul_enc_open2(&c, &kAllAttributes, &header), zul_STATUS_OK);
    zul_test_useFixedRandomSeed(false, 0);
    const char* bytes = nullptr;
    int size = 0;
    ASSERT_EQ(zul_enc_createFileSignature(c, &bytes), zul_STATUS_OK);
    std::vector<uint8_t> theirs(bytes, bytes + 8);
    ASSERT_EQ(zul_enc_encodeFileHeader(c, &bytes, &size), zul_STATUS_OK);
    theirs.insert(theirs.end(), bytes, bytes + size);
    for (int first : {0, 200}) {
        std::vector<double> positions;
        std::vector<uint8_t> colors;
        std::vector<int32_t> reflections;
        std::vector<float> normals;
        for (int i = first; i < (first == 0 ? 200 : 500); ++i) {
            const zul_Point& p = points[static_cast<size_t>(i)];
            positions.insert(positions.end(), p.position, p.position + 3);
            colors.insert(colors.end(), p.color, p.color + 3);
            reflections.push_back(p.reflection);
            normals.insert(normals.end(), p.normal, p.normal + 3);
        }
        const zul_PointData data = {static_cast<int32_t>(reflections.size()), positions.data(),
                                    colors.data(), reflections.data(), normals.data()};
        ASSERT_EQ(zul_enc_encodeChunk(c, &bytes, &size, &data), zul_STATUS_OK);
        theirs.insert(theirs.end(), bytes, bytes + size);
    }
    zul_enc_close(&c);
    ASSERT_EQ(ours.size(), theirs.size());
    for (size_t i = 0; i < ours.size(); ++i) ASSERT_EQ(ours[i], theirs[i]) << "byte " << i;
}

TEST(Decoder, WalksAStreamPieceByPiece) {
    const std::vector<zul_Point> points = samplePoints(1000, 4);
    const std::vector<uint8_t> stream = zul::encode(points, kAllAttributes, 300);

    zul::Decoder decoder(zul::ByteView(stream.data(), 8));
    ASSERT_EQ(decoder.fileHeaderSize(), 28);
    size_t at = 8;
    decoder.decodeFileHeader(zul::ByteView(stream.data() + at, 28));
    at += 28;
    EXPECT_EQ(decoder.dataType().maxReflection, 255);
    EXPECT_FALSE(decoder.header2().enabled);
    EXPECT_EQ(decoder.chunkHeaderSize(), 68);
    ASSERT_EQ(decoder.syncMarker().size(), 16u);

    std::vector<int> counts;
    size_t decoded = 0;
    for (int chunk = 0; at < stream.size(); ++chunk) {
        EXPECT_TRUE(std::equal(decoder.syncMarker().begin(), decoder.syncMarker().end(),
                               stream.begin() + static_cast<long>(at)));
        at += 16;
        const int bodySize = decoder.decodeChunkHeader(zul::ByteView(stream.data() + at, 68));
        at += 68;
        counts.push_back(decoder.numPointsInChunk());
        if (chunk != 1) {  // the second chunk is skipped
            const zul_PointData data = decoder.decodeChunkBody(
                zul::ByteView(stream.data() + at, static_cast<size_t>(bodySize)));
            EXPECT_EQ(data.numPoints, counts.back());
            ASSERT_NE(data.colors, nullptr);
            decoded += static_cast<size_t>(data.numPoints);
        }
        at += static_cast<size_t>(bodySize);
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
    const zul::ByteView chunkHeader(stream.data() + 36 + 16, 68);
    const int bodySize = decoder.decodeChunkHeader(chunkHeader);
    EXPECT_EQ(statusOf([&] {
                  decoder.decodeChunkBody(zul::ByteView(stream.data() + 36 + 16 + 68,
                                                        static_cast<size_t>(bodySize) - 1));
              }),
              zul_STATUS_TRUNCATED);
    EXPECT_EQ(decoder
                  .decodeChunkBody(
                      zul::ByteView(stream.data() + 36 + 16 + 68, static_cast<size_t>(bodySize)))
                  .numPoints,
              10);
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

TEST(Encoder, MovesHandTheContextOver) {
    zul::Encoder first(kAllAttributes);
    const zul_enc_Context handle = first.handle();
    zul::Encoder second(std::move(first));
    EXPECT_EQ(second.handle(), handle);
    EXPECT_EQ(first.handle(), nullptr);
    EXPECT_EQ(statusOf([&] { first.signature(); }), zul_STATUS_INVALID_ARGUMENT);
    const std::vector<zul_Point> points = samplePoints(4, 7);
    EXPECT_EQ(statusOf([&] { first.encodeChunk(points.data(), 4); }), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_GT(second.encodeChunk(points.data(), 4).size(), 0u);

    zul::Encoder third(zul::DataType{});
    third = std::move(second);  // closes third's own encoder
    EXPECT_EQ(third.handle(), handle);
    EXPECT_EQ(second.handle(), nullptr);
    EXPECT_GT(third.encodeChunk(points.data(), 4).size(), 0u);
    zul::Encoder& same = third;
    third = std::move(same);  // a self-move keeps the encoder
    EXPECT_EQ(third.handle(), handle);
}

TEST(Decoder, MovesHandTheContextOver) {
    const std::vector<uint8_t> stream = zul::encode(samplePoints(10, 8), kAllAttributes);
    zul::Decoder first(stream);
    first.decodeFileHeader(zul::ByteView(stream.data() + 8, stream.size() - 8));
    zul::Decoder second(std::move(first));
    EXPECT_EQ(first.handle(), nullptr);
    EXPECT_EQ(statusOf([&] { first.numPointsInChunk(); }), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(second.chunkHeaderSize(), 68);
    EXPECT_EQ(second.decodeChunkHeader(zul::ByteView(stream.data() + 36 + 16, 68)) > 0, true);

    zul::Decoder third(stream);
    third = std::move(second);
    EXPECT_EQ(third.numPointsInChunk(), 10);
}

}  // namespace

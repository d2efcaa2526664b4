// Whole streams for tests: encode clouds through the public encoder, and drive a decoder through
// its steps with the pieces of such a stream.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/stored_bytes.h"
#include "support/host_files.h"
#include "support/point_cloud.h"
#include "zul.h"

using Bytes = std::string;

// A chunk header of any content: box corners, count and stream sizes.
inline Bytes chunkHeaderBytes(const long long (&low)[3], const long long (&high)[3], int32_t count,
                              const std::vector<uint32_t>& sizes) {
    Bytes h(static_cast<size_t>(52 + 4 * sizes.size()), '\0');
    unsigned char* p = reinterpret_cast<unsigned char*>(&h[0]);
    for (int k = 0; k < 3; ++k) {
        zullib::storeLE(p + 8 * k, static_cast<uint64_t>(low[k]), 8);
        zullib::storeLE(p + 24 + 8 * k, static_cast<uint64_t>(high[k]), 8);
    }
    zullib::storeLE(p + 48, static_cast<uint32_t>(count), 4);
    for (size_t s = 0; s < sizes.size(); ++s) zullib::storeLE(p + 52 + 4 * s, sizes[s], 4);
    return h;
}

// The pieces of a stream as a decoder takes them; a chunk is split after its sync marker and its
// header.
struct EncodedStream {
    Bytes signature, fileHeader;
    std::vector<Bytes> markers, chunkHeaders, bodies;
};

// One chunk per cloud; `header` null gives a version 1 stream. The marker comes from a fixed seed.
inline EncodedStream encodeStream(const zul_DataType& dataType, const zul_Header2* header,
                                  std::vector<PointCloud>& clouds) {
    EncodedStream stream;
    zul_enc_Context encoder = nullptr;
    zul_test_useFixedRandomSeed(true, 5489);
    EXPECT_EQ(zul_enc_open2(&encoder, &dataType, header), zul_STATUS_OK);
    zul_test_useFixedRandomSeed(false, 0);
    const char* bytes = nullptr;
    int size = 0;
    EXPECT_EQ(zul_enc_createFileSignature(encoder, &bytes), zul_STATUS_OK);
    stream.signature.assign(bytes, 8);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, &size), zul_STATUS_OK);
    stream.fileHeader.assign(bytes, static_cast<size_t>(size));
    const size_t headerSize = 56 + 4 * ((dataType.colorMode != zul_COLOR_NONE) +
                                        (dataType.reflectionMode != zul_REFLECTION_NONE) +
                                        (dataType.normalMode != zul_NORMAL_NONE));
    for (PointCloud& cloud : clouds) {
        const zul_PointData data = cloud.data();
        EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &data), zul_STATUS_OK);
        const Bytes chunk(bytes, static_cast<size_t>(size));
        stream.markers.push_back(chunk.substr(0, 16));
        stream.chunkHeaders.push_back(chunk.substr(16, headerSize));
        stream.bodies.push_back(chunk.substr(16 + headerSize));
    }
    zul_enc_close(&encoder);
    return stream;
}

// A decoder context that is closed at the end of the test, with the steps of a stream.
struct Decoder {
    ~Decoder() { zul_dec_close(&context); }

    zul_Status open(const EncodedStream& stream, int applyTransformation = 1) {
        zul_dec_Params params = {applyTransformation, {0, 0, 0, 0}};
        int fileHeaderSize = 0;
        return zul_dec_open2(&context, &fileHeaderSize, stream.signature.data(), &params);
    }
    // Open and file header; fails the test on any refusal.
    void start(const EncodedStream& stream, int applyTransformation = 1) {
        ASSERT_EQ(open(stream, applyTransformation), zul_STATUS_OK);
        ASSERT_EQ(fileHeader(stream.fileHeader), zul_STATUS_OK);
    }
    zul_Status fileHeader(const Bytes& bytes) {
        const char* marker = nullptr;
        return zul_dec_decodeFileHeader2(context, &dataType, &header2, &chunkHeaderSize, &marker,
                                         bytes.data());
    }
    zul_Status chunkHeader(const Bytes& bytes) {
        return zul_dec_decodeChunkHeader(context, &bodySize, bytes.data());
    }
    // Decodes from a heap copy of exactly the body size, so that a read past it is caught.
    zul_Status body(const Bytes& bytes) {
        const std::vector<char> copy(bytes.begin(), bytes.end());
        return zul_dec_decodeChunkBody(context, &points, copy.data());
    }
    zul_Status chunk(const EncodedStream& stream, size_t i) {
        const zul_Status status = chunkHeader(stream.chunkHeaders[i]);
        return status == zul_STATUS_OK ? body(stream.bodies[i]) : status;
    }

    zul_dec_Context context = nullptr;
    zul_DataType dataType = {};
    zul_Header2 header2 = {};
    int chunkHeaderSize = 0;
    int bodySize = 0;
    zul_PointData points = {};
};

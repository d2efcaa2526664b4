// Streams and companions for the companion tests, made through the public API only.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zul/companion.hpp"
#include "zul_companion.h"

using ByteVector = std::vector<uint8_t>;

// A stream of `chunks` chunks of `points` points each (random positions from `seed`); the sync
// marker is drawn afresh, so two calls give two streams.
inline ByteVector makeStream(int chunks, int points, unsigned seed) {
    zul_DataType dataType;
    zul_Header2 header;
    zul_init_headers(&dataType, &header);
    dataType.quantizationStep = 0.001f;
    zul_enc_Context encoder = nullptr;
    EXPECT_EQ(zul_enc_open(&encoder, &dataType), zul_STATUS_OK);
    const char* bytes = nullptr;
    int size = 0;
    EXPECT_EQ(zul_enc_createFileSignature(encoder, &bytes), zul_STATUS_OK);
    ByteVector stream(bytes, bytes + 8);
    EXPECT_EQ(zul_enc_encodeFileHeader(encoder, &bytes, &size), zul_STATUS_OK);
    stream.insert(stream.end(), bytes, bytes + size);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-50.0, 50.0);
    for (int c = 0; c < chunks; ++c) {
        std::vector<double> positions(3 * static_cast<size_t>(points));
        std::vector<uint8_t> colors(3 * static_cast<size_t>(points), 7);
        for (double& p : positions) p = coordinate(random);
        zul_PointData data = {points, positions.data(), colors.data(), nullptr, nullptr};
        EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &size, &data), zul_STATUS_OK);
        stream.insert(stream.end(), bytes, bytes + size);
    }
    zul_enc_close(&encoder);
    return stream;
}

// Every field type, with its width.
struct TypeCase {
    zul_FieldType type;
    int width;
    const char* name;
};
inline const std::vector<TypeCase>& allTypes() {
    static const std::vector<TypeCase> cases = {
        {zul_FIELD_U8, 1, "u8"},     {zul_FIELD_I8, 1, "i8"},    {zul_FIELD_U16, 2, "u16"},
        {zul_FIELD_I16, 2, "i16"},   {zul_FIELD_U32, 4, "u32"},  {zul_FIELD_I32, 4, "i32"},
        {zul_FIELD_U64, 8, "u64"},   {zul_FIELD_I64, 8, "i64"},  {zul_FIELD_F32, 4, "f32"},
        {zul_FIELD_F64, 8, "f64"},   {zul_FIELD_RAW, 3, "raw3"}, {zul_FIELD_RAW, 1, "raw1"},
        {zul_FIELD_RAW, 13, "raw13"}};
    return cases;
}

// Bytes of `count` values of `width` bytes: random, rising by small steps, or constant, so that
// each coding gets its turn.
inline ByteVector columnBytes(int pattern, int64_t count, int width, unsigned seed) {
    std::mt19937_64 random(seed);
    ByteVector out(static_cast<size_t>(count * width));
    uint64_t value = random();
    for (int64_t i = 0; i < count; ++i) {
        if (pattern == 0) value = random();
        if (pattern == 1) value += random() % 5;
        std::memcpy(&out[static_cast<size_t>(i * width)], &value,
                    static_cast<size_t>(std::min(width, 8)));
        for (int k = 8; k < width; ++k) out[static_cast<size_t>(i * width + k)] = uint8_t(i + k);
    }
    return out;
}

// The stream's chunk point counts, from the chunk index.
inline std::vector<int32_t> chunkCounts(const ByteVector& stream) {
    zul_idx_Index index = nullptr;
    EXPECT_EQ(zul_idx_openBuffer(&index, stream.data(), stream.size(), nullptr), zul_STATUS_OK);
    int64_t chunks = 0;
    zul_idx_getCounts(index, &chunks, nullptr);
    std::vector<int32_t> counts;
    for (int64_t c = 0; c < chunks; ++c) {
        zul_idx_Chunk chunk;
        zul_idx_getChunk(index, c, &chunk);
        counts.push_back(chunk.numPoints);
    }
    zul_idx_close(&index);
    return counts;
}

// Rows of a companion (makeCompanion with rows): 5 rows of 11 bytes, record numbers 3, 4, 9 ...
inline std::vector<uint64_t> rowIndices() { return {3, 4, 9, 100, 1u << 31}; }
inline ByteVector rowBytes() { return columnBytes(1, 5, 11, 9); }

// A companion of `stream` with every field type (pattern = chunk % 3), the order, a source
// header, a format, two conventions and, with `withRows`, rows the stream lacks.
inline ByteVector makeCompanion(const ByteVector& stream, bool withOrder = true,
                                bool withRows = false) {
    zul::CompanionWriter writer;
    for (const TypeCase& t : allTypes()) writer.addField(t.name, t.type, t.width);
    if (withOrder) writer.keepOrder();
    writer.setSource(zul_SOURCE_PLY, ByteVector{'p', 'l', 'y', '\n'});
    writer.setFormat("ply binary_little_endian 1.0");
    writer.addConvention("colour scale", "257");
    writer.addConvention("intensity factor", "1");
    if (withRows) writer.setRows(rowIndices(), rowBytes(), 11);
    writer.bindStream(stream);
    const std::vector<int32_t> counts = chunkCounts(stream);
    for (size_t c = 0; c < counts.size(); ++c) {
        for (size_t f = 0; f < allTypes().size(); ++f) {
            const int width = allTypes()[f].width;
            writer.writeColumn(static_cast<int64_t>(c), static_cast<int>(f),
                               columnBytes(static_cast<int>(c % 3), counts[c], width,
                                           static_cast<unsigned>(c * 100 + f)),
                               width);
        }
        if (withOrder) {
            std::vector<uint64_t> order(static_cast<size_t>(counts[c]));
            for (size_t i = 0; i < order.size(); ++i) order[i] = (i * 7919 + c) % order.size();
            writer.writeOrder(static_cast<int64_t>(c), order);
        }
    }
    return writer.finish();
}

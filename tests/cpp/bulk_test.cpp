// zul::ChunkIndex, zul::decodeBulk, zul::encodeBulk and zul::BulkWriter as a host uses them: a
// round trip through a file and a buffer, a box query, and the errors they throw.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "support/host_files.h"
#include "support/temp_folder.h"
#include "zul.hpp"

namespace {

class BulkClasses : public TempFolderTest {};

TEST_F(BulkClasses, RoundTripQueryAndErrors) {
    const zul_DataType type = zul::DataType{}.step(0.01f).color(zul_COLOR_RGB888);
    zul::BulkCloud cloud;
    for (int i = 0; i < 5000; ++i) {
        cloud.positions.insert(cloud.positions.end(), {i * 0.1, (i % 7) * 0.5, 1.0});
        cloud.colors.insert(cloud.colors.end(), {uint8_t(i), uint8_t(i / 3), 7});
    }
    const std::string file = path("cloud.zul");
    zul::encodeBulk(file, cloud, type, nullptr, {}, 1000, 2);

    const zul::ChunkIndex index(file);
    EXPECT_EQ(index.numChunks(), 5);
    EXPECT_EQ(index.numPoints(), 5000);
    EXPECT_EQ(index.damage().status, zul_STATUS_OK);
    const zul::BulkCloud back = zul::decodeBulk(index, 2);
    ASSERT_EQ(back.size(), 5000u);
    // Each chunk comes back sorted; this cloud's chunks are already in x order.
    EXPECT_EQ(back.colors, cloud.colors);

    // x from 150 to 250 lies in chunks 1 and 2 only.
    const std::vector<int64_t> chunks = index.select({150, -1, -1}, {250, 10, 10});
    EXPECT_EQ(chunks, (std::vector<int64_t>{1, 2}));
    EXPECT_EQ(zul::decodeBulk(index, chunks).size(), 2000u);

    std::vector<uint8_t> bytes = readFile<std::vector<uint8_t>>(file);
    bytes.resize(bytes.size() - 1);
    const zul::ChunkIndex cut{zul::ByteView(bytes)};
    EXPECT_EQ(cut.numChunks(), 4);
    EXPECT_EQ(cut.damage().chunk, 4);
    try {
        zul::decodeBulk(cut);
        FAIL() << "a cut stream decoded";
    } catch (const zul::Error& error) {
        EXPECT_EQ(error.status(), zul_STATUS_TRUNCATED);
        EXPECT_NE(std::string(error.what()).find("chunk 4"), std::string::npos) << error.what();
    }
    EXPECT_THROW(index.select({1, 1, 1}, {0, 2, 2}), zul::Error);
    EXPECT_THROW(zul::ChunkIndex(path("missing.zul")), zul::Error);
    EXPECT_THROW(zul::decodeBulk(index, -1), zul::Error);

    // The writer, published over the file in two calls, with the marker of the first file.
    const std::vector<uint8_t> first = readFile<std::vector<uint8_t>>(file);
    const char* marker = reinterpret_cast<const char*>(first.data()) + ZUL_SIGNATURE_SIZE +
                         ZUL_FILE_HEADER_SIZE_V1 - ZUL_SYNC_MARKER_SIZE;
    {
        zul::BulkWriter writer(file, type, nullptr, 3, true, marker);
        zul::BulkCloud half = cloud;
        half.positions.resize(half.positions.size() / 2);
        half.colors.resize(half.colors.size() / 2);
        writer.write(half, {1000, 1000, 500});
        zul::BulkCloud rest;
        rest.positions.assign(cloud.positions.begin() + 7500, cloud.positions.end());
        rest.colors.assign(cloud.colors.begin() + 7500, cloud.colors.end());
        writer.write(rest, {500, 1000, 1000});
        EXPECT_THROW(writer.write(rest, {1}), zul::Error);
        writer.close();
    }
    EXPECT_EQ(zul::ChunkIndex(file).numChunks(), 6);
    EXPECT_EQ(zul::decodeBulk(zul::ChunkIndex(file)).colors, cloud.colors);
    try {
        zul::BulkWriter(path("no/folder.zul"), type);
        FAIL() << "a writer opened in a missing folder";
    } catch (const zul::Error& error) {
        EXPECT_EQ(error.status(), zul_STATUS_WRITE_ERROR);
    }
    EXPECT_STREQ(zul::statusName(zul_STATUS_OVER_BUDGET), "zul_STATUS_OVER_BUDGET");
    const zul::ChunkIndex again(file);
    const std::array<int64_t, 4> sizes = again.streamSizes(0);
    EXPECT_EQ(sizes[0] + sizes[1] + ZUL_SYNC_MARKER_SIZE + ZUL_CHUNK_HEADER_SIZE_MIN + 4,
              again.chunk(0).size);
    EXPECT_THROW(again.streamSizes(6), zul::Error);
}

// The writer's ordered and pre-encoded forms: the order names each stored point's input place,
// and chunks an Encoder made give the same file as the writer encoding them itself.
TEST_F(BulkClasses, OrderedAndEncodedWrites) {
    const zul_DataType type = zul::DataType{}.step(0.01f).color(zul_COLOR_RGB888);
    zul::BulkCloud cloud;
    uint32_t seed = 7;
    for (int i = 0; i < 3000; ++i) {
        seed = seed * 1103515245u + 12345u;
        cloud.positions.insert(cloud.positions.end(),
                               {double(seed >> 20), double((seed >> 8) & 1023), double(i % 5)});
        // The colour tells the points apart.
        cloud.colors.insert(cloud.colors.end(), {uint8_t(i), uint8_t(i >> 8), 0});
    }
    const std::vector<int32_t> sizes = {1000, 2000};
    const char marker[ZUL_SYNC_MARKER_SIZE + 1] = "0123456789abcdef";
    std::vector<uint32_t> order;
    {
        zul::BulkWriter writer(path("ordered.zul"), type, nullptr, 2, false, marker);
        order = writer.writeOrdered(cloud, sizes);
        writer.close();
    }
    const zul::BulkCloud back = zul::decodeBulk(zul::ChunkIndex(path("ordered.zul")));
    ASSERT_EQ(back.size(), cloud.size());
    bool moved = false;
    for (size_t i = 0, first = 0, chunk = 0; i < back.size(); ++i) {
        if (i == first + size_t(sizes[chunk])) first += size_t(sizes[chunk++]);
        const size_t from = first + order[i];
        moved = moved || from != i;
        ASSERT_EQ(back.colors[3 * i], cloud.colors[3 * from]) << i;
        ASSERT_EQ(back.colors[3 * i + 1], cloud.colors[3 * from + 1]) << i;
    }
    EXPECT_TRUE(moved);

    zul::Encoder encoder(type);
    std::vector<std::vector<uint8_t>> chunks;
    for (size_t first = 0, chunk = 0; chunk < sizes.size(); first += size_t(sizes[chunk++])) {
        std::vector<zul_Point> points(size_t(sizes[chunk]));
        for (size_t k = 0; k < points.size(); ++k) {
            for (int a = 0; a < 3; ++a) {
                points[k].position[a] = cloud.positions[3 * (first + k) + a];
                points[k].color[a] = cloud.colors[3 * (first + k) + a];
            }
        }
        chunks.push_back(encoder.encodeChunk(points.data(), points.size()).toVector());
    }
    {
        zul::BulkWriter writer(path("encoded.zul"), type, nullptr, 2, false, marker);
        std::vector<uint8_t> cut(chunks[0].begin(), chunks[0].begin() + 20);
        try {
            writer.writeEncoded({zul::ByteView(cut)});
            FAIL() << "a cut chunk was written";
        } catch (const zul::Error& error) {
            EXPECT_EQ(error.status(), zul_STATUS_INVALID_ARGUMENT);
        }
        writer.writeEncoded({zul::ByteView(chunks[0]), zul::ByteView(chunks[1])});
        writer.close();
    }
    EXPECT_EQ(readFile<std::vector<uint8_t>>(path("encoded.zul")),
              readFile<std::vector<uint8_t>>(path("ordered.zul")));
}

}  // namespace

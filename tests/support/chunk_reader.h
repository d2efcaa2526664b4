// Reads an encoded chunk back for tests: the front fields, every prefix table, and the records of
// every stream, decoded with the stream readers and checked to end exactly at their declared size.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "entropy/attribute_widths.h"
#include "entropy/data_stream_reader.h"
#include "frame/chunk_axes.h"
#include "frame/data_type.h"
#include "frame/stored_bytes.h"
#include "zul.h"

struct ReadChunk {
    std::string syncMarker;
    zullib::BoundingBox3d<long long> box;
    int32_t numPoints = 0;
    std::vector<uint32_t> streamSizes;
    int bodyOffset = 0;
    // The prefix tables of each present stream, coordinates first.
    std::vector<std::vector<std::vector<int>>> tables;
    std::vector<zullib::zul_QuantizedPoint> points;
};

namespace chunk_reader_detail {

template <class Accessor>
void readStream(const unsigned char* chunk, int64_t& start, uint32_t size, const int* widths,
                ReadChunk& out) {
    zullib::BitStreamIn in(chunk, start + size, start);
    std::vector<int> tables[Accessor::kNumComponents];
    ASSERT_EQ(zullib::readStreamTables<Accessor>(in, tables), zul_STATUS_OK);
    out.tables.emplace_back(tables, tables + Accessor::kNumComponents);
    ASSERT_EQ(zullib::readStreamBody<Accessor>(in, out.points, widths, tables), zul_STATUS_OK);
    EXPECT_EQ(in.bytePosition, start + size) << "stream ends where its size says";
    start += size;
}

}  // namespace chunk_reader_detail

// Fails the calling test on any malformation; the result is complete only if none was reported.
inline void readChunk(const zul_DataType& dataType, const char* bytes, int size, ReadChunk& out) {
    using zullib::zul_QuantizedPoint;
    const unsigned char* chunk = reinterpret_cast<const unsigned char*>(bytes);
    out.bodyOffset = 16 + zullib::DataType::getChunkHeaderSize(dataType);
    ASSERT_GE(size, out.bodyOffset);
    out.syncMarker.assign(bytes, 16);
    for (int k = 0; k < 3; ++k) {
        out.box.min[k] = static_cast<long long>(zullib::loadLE(chunk + 16 + 8 * k, 8));
        out.box.max[k] = static_cast<long long>(zullib::loadLE(chunk + 40 + 8 * k, 8));
    }
    out.numPoints = static_cast<int32_t>(zullib::loadLE(chunk + 64, 4));
    int64_t total = out.bodyOffset;
    for (int offset = 68; offset < out.bodyOffset; offset += 4) {
        out.streamSizes.push_back(static_cast<uint32_t>(zullib::loadLE(chunk + offset, 4)));
        total += out.streamSizes.back();
    }
    ASSERT_EQ(total, size) << "the chunk is its front and its streams, nothing more";

    const zullib::ChunkAxes axes = zullib::chunkAxes(out.box);
    const zullib::AttributeWidths widths(dataType);
    out.points.assign(static_cast<size_t>(out.numPoints > 0 ? out.numPoints : 0), {});
    int64_t start = out.bodyOffset;
    size_t stream = 0;
    using namespace chunk_reader_detail;
    readStream<zul_QuantizedPoint::CoordinateAccessor>(chunk, start, out.streamSizes[stream++],
                                                       axes.coordinateBits, out);
    if (dataType.colorMode != zul_COLOR_NONE)
        readStream<zul_QuantizedPoint::RGBAccessor>(chunk, start, out.streamSizes[stream++],
                                                    widths.rgbBits, out);
    if (dataType.reflectionMode != zul_REFLECTION_NONE)
        readStream<zul_QuantizedPoint::ReflectionAccessor>(chunk, start, out.streamSizes[stream++],
                                                           widths.reflectionBits, out);
    if (dataType.normalMode != zul_NORMAL_NONE)
        readStream<zul_QuantizedPoint::NormalAccessor>(chunk, start, out.streamSizes[stream++],
                                                       widths.normalBits, out);
}

// Chunks that no writer makes: hand-made tables, sizes off by one byte, every single flipped bit.
// Each is decoded or refused with zul_STATUS_CORRUPT_DATA, never read beyond its bytes, and the
// result of the last good chunk survives the refusal.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "decoder/dec_context.h"
#include "frame/stored_bytes.h"
#include "support/stream_codec.h"
#include "support/test_names.h"

namespace {

Bytes fromHex(const char* hex) {
    Bytes out;
    for (const char* c = hex; c[0] && c[1];) {
        if (*c == ' ') {
            ++c;
            continue;
        }
        out += static_cast<char>(std::stoi(std::string(c, 2), nullptr, 16));
        c += 2;
    }
    return out;
}

// A chunk header for a box without extent at `corner`, a count and the streams' sizes.
Bytes chunkHeader(const long long (&corner)[3], int32_t count, const std::vector<Bytes>& streams) {
    std::vector<uint32_t> sizes;
    for (const Bytes& stream : streams) sizes.push_back(static_cast<uint32_t>(stream.size()));
    return chunkHeaderBytes(corner, corner, count, sizes);
}

const zul_DataType kRGB888 = makeDataType(0.5f, zul_COLOR_RGB888, 0, false);

// A decoder ready for chunks of an RGB888 stream with the step 0.5.
struct Rgb888Decoder : Decoder {
    Rgb888Decoder() {
        std::vector<PointCloud> none;
        start(encodeStream(kRGB888, nullptr, none));
    }
};

struct TableCase {
    const char* name;
    const char* coordinates;  // the streams in hex: tables, then body
    const char* colour;
    zul_Status status;
    uint8_t rgb[3];
};

class HandMadeStreams : public ::testing::TestWithParam<TableCase> {};

TEST_P(HandMadeStreams, AreReadOrRefusedByTheirTables) {
    const TableCase& c = GetParam();
    const std::vector<Bytes> streams = {fromHex(c.coordinates), fromHex(c.colour)};
    const long long corner[3] = {3, -4, 5};
    Rgb888Decoder decoder;
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, 1, streams)), zul_STATUS_OK);
    EXPECT_EQ(decoder.body(streams[0] + streams[1]), c.status);
    if (c.status != zul_STATUS_OK) return;
    // One point, a box without extent: the corner times the step, whatever the tables were.
    EXPECT_EQ(decoder.points.positions[0], 1.5);
    EXPECT_EQ(decoder.points.positions[1], -2.0);
    EXPECT_EQ(decoder.points.positions[2], 2.5);
    EXPECT_EQ(std::memcmp(decoder.points.colors, c.rgb, 3), 0);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, HandMadeStreams, ::testing::Values(
    TableCase{"zero-bit coordinates and escaped colour", "010001000100", "01FF01FF01FF 0A0B0C", zul_STATUS_OK, {10, 11, 12}},
    TableCase{"empty tables are the escape", "000000", "000000 0A0B0C", zul_STATUS_OK, {10, 11, 12}},
    TableCase{"zero after the first entry in slot 0", "03030005 0100 0100 00", "000000 0A0B0C", zul_STATUS_OK, {10, 11, 12}},
    TableCase{"zero after the first entry in slot 1", "0100 020300 0100 00", "000000 0A0B0C", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"zero after the first entry in a colour", "000000", "03030005 0100 0100 00", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"escape before the last entry", "02FF03 0100 0100 00", "000000 0A0B0C", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"escape before the last colour entry", "000000", "01FF 02FF08 01FF 0A0B0C", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"tables cut short", "000000", "01FF01FF02", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"body cut short", "000000", "01FF01FF01FF 0A0B", zul_STATUS_CORRUPT_DATA, {}},
    TableCase{"stream longer than its codes", "000000", "01FF01FF01FF 0A0B0C00", zul_STATUS_CORRUPT_DATA, {}},
    // A 64-bit payload in a signed table: all ones is -1, and red wraps to 255.
    TableCase{"payload of 64 bits", "000000", "0140 01FF 01FF FFFFFFFFFFFFFFFF 0B0C", zul_STATUS_OK, {255, 11, 12}}),
    NameOfCase());
// clang-format on

// Lengths up to 254 are read through: the payload's low 64 bits become the slot value, which is
// meaningless but harmless.
TEST(Decoder, PayloadOf254BitsIsReadThrough) {
    Rgb888Decoder decoder;
    const std::vector<Bytes> streams = {fromHex("01FE 0100 0100") + Bytes(32, '\x01'),
                                        fromHex("000000 0A0B0C")};
    const long long corner[3] = {0, 0, 0};
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, 1, streams)), zul_STATUS_OK);
    ASSERT_EQ(decoder.body(streams[0] + streams[1]), zul_STATUS_OK);
    EXPECT_EQ(decoder.points.positions[0], static_cast<double>(0x0101010101010101) * 0.5);
}

TEST(Decoder, ChunksOfTwoToTheThirtyPointsOrMoreAreNotServed) {
    // Zero-bit streams can claim any count; from 2^30 on the count is refused before any
    // allocation, and below it a count that does not fit the streams' bytes is refused the same
    // way (either mistake would ask for tens of gigabytes).
    const long long corner[3] = {0, 0, 0};
    const std::vector<Bytes> zeroBits = {fromHex("010001000100"), fromHex("010001000100")};
    const std::vector<Bytes> eightBits = {fromHex("010001000100"), fromHex("01FF01FF01FF 0A0B0C")};
    Rgb888Decoder decoder;
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, 1 << 30, zeroBits)), zul_STATUS_OK);
    EXPECT_EQ(decoder.body(zeroBits[0] + zeroBits[1]), zul_STATUS_CORRUPT_DATA);
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, (1 << 30) - 1, eightBits)), zul_STATUS_OK);
    EXPECT_EQ(decoder.body(eightBits[0] + eightBits[1]), zul_STATUS_CORRUPT_DATA);
    // Nor can zero-bit codes leave bytes over at the end of a stream.
    const std::vector<Bytes> zeroBitsAndMore = {fromHex("010001000100 00"), zeroBits[1]};
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, (1 << 30) - 1, zeroBitsAndMore)),
              zul_STATUS_OK);
    EXPECT_EQ(decoder.body(zeroBitsAndMore[0] + zeroBitsAndMore[1]), zul_STATUS_CORRUPT_DATA);
    EXPECT_EQ(decoder.context->chunkPointsCapacity, 0);
    // Zero-bit streams with a modest count are a chunk of identical points.
    ASSERT_EQ(decoder.chunkHeader(chunkHeader(corner, 5000, zeroBits)), zul_STATUS_OK);
    EXPECT_EQ(decoder.body(zeroBits[0] + zeroBits[1]), zul_STATUS_OK);
    EXPECT_EQ(decoder.points.numPoints, 5000);
}

std::vector<PointCloud> cloudsOf(std::vector<int> sizes, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-3, 3);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_real_distribution<float> unit(-1, 1);
    std::vector<PointCloud> clouds(sizes.size());
    for (size_t c = 0; c < sizes.size(); ++c)
        for (int i = 0; i < sizes[c]; ++i)
            clouds[c].add(coordinate(random), coordinate(random), coordinate(random),
                          {static_cast<uint8_t>(byte(random)), static_cast<uint8_t>(byte(random)),
                           static_cast<uint8_t>(byte(random))},
                          byte(random) * 5, {unit(random), unit(random), 0.5f});
    return clouds;
}

TEST(Decoder, ArraysGrowByDoublingAndAreReusedWhileTheyFit) {
    std::vector<PointCloud> clouds = cloudsOf({100, 200, 201, 50}, 1);
    const EncodedStream stream =
        encodeStream(makeDataType(0.01f, zul_COLOR_RGB565, 0, true), nullptr, clouds);
    Decoder decoder;
    decoder.start(stream);
    const long long capacity[] = {200, 200, 402, 402};
    std::vector<const double*> positions;
    for (size_t i = 0; i < 4; ++i) {
        ASSERT_EQ(decoder.chunk(stream, i), zul_STATUS_OK);
        EXPECT_EQ(decoder.points.numPoints, clouds[i].size());
        EXPECT_EQ(decoder.context->chunkPointsCapacity, capacity[i]);
        EXPECT_EQ(decoder.points.reflections, nullptr);
        positions.push_back(decoder.points.positions);
    }
    EXPECT_EQ(positions[1], positions[0]);
    EXPECT_EQ(positions[3], positions[2]);
}

// What a decoder hands out for a chunk, copied; an absent array stays empty.
template <typename T>
std::vector<T> copyOf(const T* array, int count) {
    return array ? std::vector<T>(array, array + count) : std::vector<T>();
}

struct Snapshot {
    explicit Snapshot(const zul_PointData& p)
        : positions(copyOf(p.positions, 3 * p.numPoints)),
          colors(copyOf(p.colors, 3 * p.numPoints)),
          reflections(copyOf(p.reflections, p.numPoints)),
          normals(copyOf(p.normals, 3 * p.numPoints)) {}
    bool operator==(const Snapshot& o) const {
        return positions == o.positions && colors == o.colors && reflections == o.reflections &&
               normals == o.normals;
    }
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;
};

TEST(Decoder, SizeFieldsOneByteOffAreRefusedThoughEveryPointCouldBeRead) {
    std::vector<PointCloud> clouds = cloudsOf({30}, 2);
    const EncodedStream stream =
        encodeStream(makeDataType(0.01f, zul_COLOR_RGB888, 1275, true), nullptr, clouds);
    const Bytes& header = stream.chunkHeaders[0];
    for (size_t field = 52; field < header.size(); field += 4)
        for (int change : {-1, +1}) {
            Bytes damaged = header;
            unsigned char* p = reinterpret_cast<unsigned char*>(&damaged[field]);
            zullib::storeLE(p, zullib::loadLE(p, 4) + change, 4);
            Decoder decoder;
            decoder.start(stream);
            ASSERT_EQ(decoder.chunkHeader(damaged), zul_STATUS_OK);
            Bytes body = stream.bodies[0];
            body.resize(static_cast<size_t>(decoder.bodySize), '\0');
            EXPECT_EQ(decoder.body(body), zul_STATUS_CORRUPT_DATA)
                << "field at " << field << " changed by " << change;
        }
}

TEST(Decoder, EveryFlippedBitIsDecodedOrRefusedAndTheLastResultSurvives) {
    for (const zul_DataType& dataType : {makeDataType(0.01f, zul_COLOR_RGB888, 1275, true),
                                         makeDataType(0.001f, zul_COLOR_NONE, 0, false),
                                         makeDataType(0.1f, zul_COLOR_RGB565, 300, false)}) {
        std::vector<PointCloud> clouds = cloudsOf({12, 3}, 3);
        const EncodedStream stream = encodeStream(dataType, nullptr, clouds);
        Decoder decoder;
        decoder.start(stream);
        ASSERT_EQ(decoder.chunk(stream, 1), zul_STATUS_OK);
        zul_PointData good = decoder.points;
        const Snapshot kept(good);
        const Bytes chunk = stream.chunkHeaders[0] + stream.bodies[0];
        const size_t headerSize = stream.chunkHeaders[0].size();
        int decoded = 0, refused = 0;
        for (size_t bit = 0; bit < 8 * chunk.size(); ++bit) {
            Bytes damaged = chunk;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
            const zul_Status headerStatus = decoder.chunkHeader(damaged.substr(0, headerSize));
            ASSERT_TRUE(headerStatus == zul_STATUS_OK || headerStatus == zul_STATUS_CORRUPT_DATA);
            zul_Status status = headerStatus;
            // A size field may now claim far more than the chunk: the caller reads what it
            // claims, here padding, up to a sane amount.
            if (headerStatus == zul_STATUS_OK && decoder.bodySize <= (1 << 20)) {
                Bytes body = damaged.substr(headerSize);
                body.resize(static_cast<size_t>(decoder.bodySize), '\0');
                status = decoder.body(body);
                ASSERT_TRUE(status == zul_STATUS_OK || status == zul_STATUS_CORRUPT_DATA)
                    << "bit " << bit;
            }
            if (status == zul_STATUS_OK && headerStatus == zul_STATUS_OK &&
                decoder.bodySize <= (1 << 20)) {
                ++decoded;
                EXPECT_GE(decoder.points.numPoints, 1);
            } else {
                ++refused;
                // The arrays of the last good chunk are untouched.
                EXPECT_TRUE(Snapshot(good) == kept) << "bit " << bit;
            }
            // The context goes on: the good chunk decodes again.
            ASSERT_EQ(decoder.chunk(stream, 1), zul_STATUS_OK) << "bit " << bit;
            ASSERT_TRUE(Snapshot(decoder.points) == kept) << "bit " << bit;
            good = decoder.points;
        }
        EXPECT_GT(refused, 0);
        EXPECT_GT(decoded, 0);
    }
}

}  // namespace

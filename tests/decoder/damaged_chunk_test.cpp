// Chunks that no writer makes: hand-made tables, sizes off by one byte, every single flipped bit,
// spans no slot holds. Each is decoded or refused with zul_STATUS_CORRUPT_DATA, never read beyond
// its bytes, and the result of the last good chunk survives the refusal.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "decoder/dec_context.h"
#include "frame/data_check.h"
#include "frame/stored_bytes.h"
#include "support/file_stream.h"
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

const zul_DataType kRGB888 = makeDataType(0.5f, zul_COLOR_RGB888, 0, false);

// A decoder ready for chunks of an RGB888 stream with the step 0.5.
struct Rgb888Decoder : Decoder {
    Rgb888Decoder() {
        std::vector<PointCloud> none;
        start(encodeStream(kRGB888, nullptr, none));
    }
    // A header for a box without extent at `corner`, the count and the streams' sizes, then
    // the body of the streams.
    zul_Status chunk(const long long (&corner)[3], int32_t count,
                     const std::vector<Bytes>& streams) {
        std::vector<uint32_t> sizes;
        Bytes body;
        for (const Bytes& stream : streams) {
            sizes.push_back(static_cast<uint32_t>(stream.size()));
            body += stream;
        }
        EXPECT_EQ(chunkHeader(chunkHeaderBytes(corner, corner, count, sizes)), zul_STATUS_OK);
        return body.size() == static_cast<size_t>(bodySize) ? Decoder::body(body) : zul_STATUS_OK;
    }
};

struct TableCase {
    const char* name;
    const char* coordinates;  // the streams in hex: tables, then body
    const char* colour;
    zul_Status status;
    uint8_t rgb[3];
    double x;
};

class HandMadeStreams : public ::testing::TestWithParam<TableCase> {};

TEST_P(HandMadeStreams, AreReadOrRefusedByTheirTables) {
    const TableCase& c = GetParam();
    Rgb888Decoder decoder;
    EXPECT_EQ(decoder.chunk({3, -4, 5}, 1, {fromHex(c.coordinates), fromHex(c.colour)}), c.status);
    if (c.status != zul_STATUS_OK) return;
    // One point, a box without extent: the corner times the step, whatever the tables were.
    EXPECT_EQ(decoder.points.positions[0], c.x);
    EXPECT_EQ(decoder.points.positions[1], -2.0);
    EXPECT_EQ(decoder.points.positions[2], 2.5);
    EXPECT_EQ(std::memcmp(decoder.points.colors, c.rgb, 3), 0);
}

const zul_Status OK = zul_STATUS_OK, BAD = zul_STATUS_CORRUPT_DATA;
// Lengths up to 254 are read through: the payload's low 64 bits become the slot value.
const char* k254Bits =
    "01FE 0100 0100 0101010101010101 0101010101010101 0101010101010101 0101010101010101";
const double k254X = static_cast<double>(0x0101010101010101 + 3) * 0.5;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, HandMadeStreams, ::testing::Values(
    TableCase{"zero-bit coordinates and escaped colour", "010001000100", "01FF01FF01FF 0A0B0C", OK, {10, 11, 12}, 1.5},
    TableCase{"empty tables are the escape", "000000", "000000 0A0B0C", OK, {10, 11, 12}, 1.5},
    TableCase{"zero after the first entry in slot 0", "03030005 0100 0100 00", "000000 0A0B0C", OK, {10, 11, 12}, 1.5},
    TableCase{"zero after the first entry in slot 1", "0100 020300 0100 00", "000000 0A0B0C", BAD, {}, 0},
    TableCase{"zero after the first entry in a colour", "000000", "03030005 0100 0100 00", BAD, {}, 0},
    TableCase{"escape before the last entry", "02FF03 0100 0100 00", "000000 0A0B0C", BAD, {}, 0},
    TableCase{"escape before the last colour entry", "000000", "01FF 02FF08 01FF 0A0B0C", BAD, {}, 0},
    TableCase{"tables cut short", "000000", "01FF01FF02", BAD, {}, 0},
    TableCase{"body cut short", "000000", "01FF01FF01FF 0A0B", BAD, {}, 0},
    TableCase{"stream longer than its codes", "000000", "01FF01FF01FF 0A0B0C00", BAD, {}, 0},
    // A 64-bit payload in a signed table: all ones is -1, and red wraps to 255.
    TableCase{"payload of 64 bits", "000000", "0140 01FF 01FF FFFFFFFFFFFFFFFF 0B0C", OK, {255, 11, 12}, 1.5},
    TableCase{"payload of 254 bits", k254Bits, "000000 0A0B0C", OK, {10, 11, 12}, k254X}),
    NameOfCase());
// clang-format on

// Zero-bit streams can claim any count; from 2^30 on the count is refused before any allocation,
// and below it a count that does not fit the streams' bytes is refused the same way.
TEST(Decoder, ChunksOfTwoToTheThirtyPointsOrMoreAreNotServed) {
    const Bytes zeroBits = fromHex("010001000100"), eightBits = fromHex("01FF01FF01FF 0A0B0C");
    Rgb888Decoder decoder;
    EXPECT_EQ(decoder.chunk({0, 0, 0}, 1 << 30, {zeroBits, zeroBits}), BAD);
    EXPECT_EQ(decoder.chunk({0, 0, 0}, (1 << 30) - 1, {zeroBits, eightBits}), BAD);
    // Nor can zero-bit codes leave bytes over at the end of a stream.
    EXPECT_EQ(decoder.chunk({0, 0, 0}, (1 << 30) - 1, {zeroBits + '\0', zeroBits}), BAD);
    EXPECT_EQ(decoder.context->chunkPointsCapacity, 0);
    // Zero-bit streams with a modest count are a chunk of identical points.
    EXPECT_EQ(decoder.chunk({0, 0, 0}, 5000, {zeroBits, zeroBits}), OK);
    EXPECT_EQ(decoder.points.numPoints, 5000);
}

// What a decoder hands out for a chunk, copied; an absent array stays empty.
template <typename T>
std::vector<T> copyOf(const T* array, int count) {
    return array ? std::vector<T>(array, array + count) : std::vector<T>();
}

std::tuple<std::vector<double>, std::vector<uint8_t>, std::vector<int32_t>, std::vector<float>>
snapshot(const zul_PointData& p) {
    return {copyOf(p.positions, 3 * p.numPoints), copyOf(p.colors, 3 * p.numPoints),
            copyOf(p.reflections, p.numPoints), copyOf(p.normals, 3 * p.numPoints)};
}

TEST(Decoder, EveryFlippedBitIsDecodedOrRefusedAndTheLastResultSurvives) {
    for (const zul_DataType& dataType : {makeDataType(0.01f, zul_COLOR_RGB888, 1275, true),
                                         makeDataType(0.001f, zul_COLOR_NONE, 0, false),
                                         makeDataType(0.1f, zul_COLOR_RGB565, 300, false)}) {
        std::vector<PointCloud> clouds = chunksOf(randomCloud(15, 3), 12);
        const EncodedStream stream = encodeStream(dataType, nullptr, clouds);
        Decoder decoder;
        decoder.start(stream);
        ASSERT_EQ(decoder.chunk(stream, 1), OK);
        zul_PointData good = decoder.points;
        const auto kept = snapshot(good);
        const Bytes chunk = stream.chunkHeaders[0] + stream.bodies[0];
        const size_t headerSize = stream.chunkHeaders[0].size();
        int decoded = 0, refused = 0;
        for (size_t bit = 0; bit < 8 * chunk.size(); ++bit) {
            Bytes damaged = chunk;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
            zul_Status status = decoder.chunkHeader(damaged.substr(0, headerSize));
            ASSERT_TRUE(status == OK || status == BAD);
            // A size field may now claim far more than the chunk: the caller reads what it
            // claims, here padding, up to a sane amount.
            const bool read = status == OK && decoder.bodySize <= (1 << 20);
            if (read) {
                Bytes body = damaged.substr(headerSize);
                body.resize(static_cast<size_t>(decoder.bodySize), '\0');
                status = decoder.body(body);
                ASSERT_TRUE(status == OK || status == BAD) << "bit " << bit;
            }
            if (read && status == OK) {
                ++decoded;
                EXPECT_GE(decoder.points.numPoints, 1);
            } else {
                ++refused;
                EXPECT_TRUE(snapshot(good) == kept) << "bit " << bit;
            }
            // The context goes on: the good chunk decodes again.
            ASSERT_EQ(decoder.chunk(stream, 1), OK) << "bit " << bit;
            ASSERT_TRUE(snapshot(decoder.points) == kept) << "bit " << bit;
            good = decoder.points;
        }
        EXPECT_GT(refused, 0);
        EXPECT_GT(decoded, 0);
    }
}

// Found by the write-and-read fuzz target: a chunk whose grid indices span 2^63 or more on one
// axis (a NaN position becomes the smallest index, and any point at or above 0 then spans 2^63)
// cannot be held in the signed slots; the encoder writes it without noticing and what it decodes
// to is not defined. Decoding it must still be safe, and leave the chunks around it intact.
TEST(Decoder, UnrepresentableSpanIsDecodedSafelyAndTheNextChunkIsIntact) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double points[][3] = {
        {nan, 13.09, 13.4}, {0.5, inf, 1.0}, {0.0, -0.07, -1.9e289}, {nan, nan, nan}};
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 1000, true);
    for (const auto& p : points) {
        std::vector<PointCloud> clouds(3);
        clouds[0].add(1.0, 2.0, 3.0, {10, 20, 30}, 400, {0, 0, 1});
        clouds[1].add(0.0, 0.0, 0.0, {1, 2, 3}, 5, {1, 0, 0});
        clouds[1].add(p[0], p[1], p[2], {4, 5, 6}, 7, {0, 1, 0});
        clouds[1].add(0.0, -3.41, 13.5, {7, 8, 9}, 9, {0, 0, -1});
        clouds[2].add(-2.5, 0.25, 7.0, {200, 100, 50}, 1000, {0, 1, 0});
        clouds[2].add(-2.0, 0.5, 7.5, {201, 101, 51}, 999, {0, 0, 1});
        const EncodedStream stream = encodeStream(type, nullptr, clouds);
        Decoder decoder;
        decoder.start(stream, 0);
        ASSERT_EQ(decoder.chunk(stream, 0), OK);
        const zul_Status status = decoder.chunk(stream, 1);
        EXPECT_TRUE(status == OK || status == BAD) << status;
        int count = 0;
        EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), OK);
        EXPECT_EQ(count, 3);
        ASSERT_EQ(decoder.chunk(stream, 2), OK);
        ASSERT_EQ(decoder.points.numPoints, 2);
        const double expected[6] = {-2.5, 0.25, 7.0, -2.0, 0.5, 7.5};
        for (int i = 0; i < 6; ++i)  // grid indices times the float step widened to double
            EXPECT_EQ(decoder.points.positions[i],
                      static_cast<double>(std::llround(expected[i] / 0.001)) * double{0.001f});
        EXPECT_EQ(decoder.points.reflections[0], 1000);
        EXPECT_EQ(decoder.points.colors[3], 201);
    }
}

// Damaged input is refused by the check meant for it, not by some other check that happens to
// fire as well. Builds that record refusals (debug and fuzz) name the check; elsewhere the status
// alone is checked and nothing is recorded.

// A damage done to the one chunk of a small RGB888 stream, and the check that must refuse it.
struct Damage {
    const char* name;
    void (*damage)(Bytes& header, Bytes& body);
    const char* file;   // where the check is, the end of its path
    const char* check;  // the check as written there
};

unsigned char* field(Bytes& bytes, size_t at) {
    return reinterpret_cast<unsigned char*>(&bytes[at]);
}
void addTo(Bytes& bytes, size_t at, int64_t change) {
    zullib::storeLE(field(bytes, at), zullib::loadLE(field(bytes, at), 4) + change, 4);
}
const size_t kCountAt = 48, kCoordinateSizeAt = 52, kColorSizeAt = 56;

class RejectionCheck : public ::testing::TestWithParam<Damage> {};

TEST_P(RejectionCheck, NamesTheCheckThatRefused) {
    const Damage& d = GetParam();
    std::vector<PointCloud> clouds = {randomCloud(400, 3)};
    // The body is cut or padded with zeros to the size the header declares.
    const EncodedStream stream = encodeStream(kRGB888, nullptr, clouds);
    Bytes header = stream.chunkHeaders[0], body = stream.bodies[0];
    d.damage(header, body);
    Rgb888Decoder decoder;
    zullib::clearRefusal();
    zul_Status status = decoder.chunkHeader(header);
    if (status == zul_STATUS_OK) {
        body.resize(static_cast<size_t>(decoder.bodySize), '\0');
        status = decoder.body(body);
    }
    EXPECT_EQ(status, zul_STATUS_CORRUPT_DATA);
    const zullib::Refusal refusal = zullib::firstRefusal();
    if (!zullib::kRefusalsRecorded) {
        EXPECT_EQ(refusal.file, nullptr);
        return;
    }
    ASSERT_NE(refusal.file, nullptr);
    EXPECT_TRUE(std::string(refusal.file).find(d.file) != std::string::npos) << refusal.file;
    EXPECT_EQ(std::string(refusal.check), d.check) << refusal.file << ":" << refusal.line;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, RejectionCheck, ::testing::Values(
    Damage{"box upside down on z", [](Bytes& h, Bytes&) { h[47] = '\x80'; },
           "decoder/header_decoder.cpp", "low[axis] <= high[axis]"},
    Damage{"no points", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kCountAt), 0u, 4); },
           "decoder/header_decoder.cpp", "chunkPoints.numPoints >= 1"},
    Damage{"streams of 2^31 bytes", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kColorSizeAt), 0x80000000u, 4); },
           "decoder/header_decoder.cpp", "end <= INT32_MAX"},
    Damage{"2^30 points", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kCountAt), 1u << 30, 4); },
           "decoder/chunk_decoder.cpp", "numPoints < kMaxChunkPoints"},
    Damage{"an escape before the last entry", [](Bytes&, Bytes& b) { b[0] = '\x02'; b[1] = '\xFF'; },
           "entropy/data_stream_reader.h", "entry != 255 || j == count - 1"},
    Damage{"colours a byte longer than their codes", [](Bytes& h, Bytes&) { addTo(h, kColorSizeAt, 1); },
           "decoder/chunk_decoder.cpp", "streamsCanHoldTheCount"},
    Damage{"coordinates a byte longer than their codes", [](Bytes& h, Bytes& b) {
               b.insert(zullib::loadLE(field(h, kCoordinateSizeAt), 4), 1, '\0');
               addTo(h, kCoordinateSizeAt, 1); },
           "decoder/lockstep_streams.cpp", "in.bytePosition == end"}),
    NameOfCase());
// clang-format on

// The file layer refuses a chunk whose marker is not the stream's.
TEST(RejectionCheck, OfADamagedMarkerIsTheFileLayers) {
    std::vector<PointCloud> clouds = {randomCloud(10, 4), randomCloud(10, 5)};
    EncodedStream stream = encodeStream(kRGB888, nullptr, clouds);
    stream.markers[1][7] ^= 0x01;
    const std::string path = ::testing::TempDir() + "rejection_check_marker.zul";
    writeFile(path, fileBytes(stream));
    zullib::clearRefusal();
    zul_Status status;
    EXPECT_EQ(readWithReader(path, &status).size(), 10u);
    std::remove(path.c_str());
    EXPECT_EQ(status, zul_STATUS_CORRUPT_DATA);
    if (zullib::kRefusalsRecorded) {
        EXPECT_EQ(std::string(zullib::firstRefusal().check), "syncMarker.equals(markerBuffer)");
    }
}

}  // namespace

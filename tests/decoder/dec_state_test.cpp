// The decoder's steps in every state, the signature and the two headers it accepts or refuses,
// and what a refused call leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "decoder/dec_context.h"
#include "support/stream_codec.h"
#include "support/test_names.h"

namespace {

const zul_DataType kColorNormals = makeDataType(0.01f, zul_COLOR_RGB888, 0, true);

EncodedStream smallStream(const zul_Header2* header = nullptr) {
    std::vector<PointCloud> clouds(2);
    for (int i = 0; i < 20; ++i) clouds[0].add(i * 0.1, -i * 0.3, 2.0, {1, 2, 3}, 0, {0, 1, 0});
    clouds[1].add(5, 6, 7);
    return encodeStream(kColorNormals, header, clouds);
}

const zul_Status OK = zul_STATUS_OK, IS = zul_STATUS_INVALID_STATE, BAD = zul_STATUS_CORRUPT_DATA;
const int32_t NEW = zul_dec_STATE_NEW, SIG = zul_dec_STATE_SIGNATURE_READ,
              READY = zul_dec_STATE_READY_FOR_CHUNK, HDR = zul_dec_STATE_CHUNK_HEADER_READ;

// Each call in a state: open, file header, chunk header, body, count.
struct StateCase {
    const char* name;
    int stepsTaken;  // 0 new, 1 signature, 2 file header, 3 chunk header, 4 body, 5 bad header
    zul_Status status[5];
    int32_t stateAfter[5];
};

class StateTable : public ::testing::TestWithParam<StateCase> {};

TEST_P(StateTable, AnswersAndMovesAsTheTableSays) {
    const StateCase& c = GetParam();
    const EncodedStream stream = smallStream();
    for (int call = 0; call < 5; ++call) {
        SCOPED_TRACE(::testing::Message() << "call " << call);
        zul_dec_ContextStruct context;
        zul_dec_Context handle = &context;
        int size = 0, count = -1;
        const char* marker = nullptr;
        zul_DataType dataType;
        zul_PointData points = {};
        const Bytes zeroCount(static_cast<size_t>(64), '\0');
        const std::function<zul_Status()> steps[] = {
            [&] { return context.open(&size, stream.signature.data(), nullptr); },
            [&] {
                return zul_dec_decodeFileHeader(handle, &dataType, &size, &marker,
                                                stream.fileHeader.data());
            },
            [&] { return zul_dec_decodeChunkHeader(handle, &size, stream.chunkHeaders[0].data()); },
            [&] { return zul_dec_decodeChunkBody(handle, &points, stream.bodies[0].data()); },
            [&] { return zul_dec_getNumPointsInChunk(handle, &count); },
            [&] { return zul_dec_decodeChunkHeader(handle, &size, zeroCount.data()); }};
        for (int s = 0; s < std::min(c.stepsTaken, 4); ++s) ASSERT_EQ(steps[s](), OK) << s;
        if (c.stepsTaken == 5) {
            ASSERT_EQ(steps[2](), OK);
            ASSERT_EQ(steps[5](), BAD);
        }
        EXPECT_EQ(steps[call](), c.status[call]);
        EXPECT_EQ(context.state, c.stateAfter[call]);
        EXPECT_EQ(count, call == 4 && c.status[call] == OK ? 20 : -1);
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, StateTable, ::testing::Values(
    StateCase{"new", 0, {OK, IS, IS, IS, IS}, {SIG, NEW, NEW, NEW, NEW}},
    StateCase{"signature read", 1, {IS, OK, IS, IS, IS}, {SIG, READY, SIG, SIG, SIG}},
    StateCase{"ready for a chunk", 2, {IS, IS, OK, IS, IS}, {READY, READY, HDR, READY, READY}},
    StateCase{"chunk header read", 3, {IS, IS, OK, OK, OK}, {HDR, HDR, HDR, READY, HDR}},
    StateCase{"after a body", 4, {IS, IS, OK, IS, OK}, {READY, READY, HDR, READY, READY}},
    StateCase{"after a refused chunk header", 5, {IS, IS, OK, IS, IS}, {HDR, HDR, HDR, HDR, HDR}}),
    NameOfCase());
// clang-format on

struct OpenCase {
    const char* name;
    int byteAt, byteValue;  // one byte of a version 1 signature replaced
    int applyTransformation;
    zul_Status status;
    int fileHeaderSize;
};

class OpenSignature : public ::testing::TestWithParam<OpenCase> {};

TEST_P(OpenSignature, GivesTheStatusAndTheHeaderSize) {
    const OpenCase& c = GetParam();
    char signature[8] = {'Z', 'U', 'L', 1, 0x0D, 0x0A, 0x1A, 0x0A};
    signature[c.byteAt] = static_cast<char>(c.byteValue);
    // Reserved words are copied and never read.
    const zul_dec_Params params = {c.applyTransformation, {1, 2, 0xFFFFFFFF, 4}};
    zul_dec_Context context = nullptr;
    int size = -1;
    EXPECT_EQ(zul_dec_open2(&context, &size, signature, &params), c.status);
    ASSERT_NE(context, nullptr) << "a live context even after a failure";
    EXPECT_EQ(size, c.fileHeaderSize);
    EXPECT_EQ(context->state, c.status == zul_STATUS_OK ? SIG : NEW);
    zul_dec_close(&context);
    EXPECT_EQ(context, nullptr);
}

const zul_Status SIGN = zul_STATUS_BAD_SIGNATURE, VERS = zul_STATUS_BAD_VERSION,
                 ARG = zul_STATUS_INVALID_ARGUMENT;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, OpenSignature, ::testing::Values(
    OpenCase{"version 1", 3, 1, 1, OK, 28},
    OpenCase{"version 2", 3, 2, 0, OK, 164},
    OpenCase{"version 0", 3, 0, 1, VERS, -1},
    OpenCase{"version 3", 3, 3, 1, VERS, -1},
    OpenCase{"version 127", 3, 127, 1, VERS, -1},
    OpenCase{"version 0x80 is foreign", 3, 0x80, 1, SIGN, -1},
    OpenCase{"first byte", 0, 'z', 1, SIGN, -1},
    OpenCase{"last byte", 7, 0x0D, 1, SIGN, -1},
    OpenCase{"apply 2", 3, 1, 2, ARG, -1},
    OpenCase{"apply -1", 3, 1, -1, ARG, -1},
    OpenCase{"params judged before the signature", 0, 'X', 2, ARG, -1}),
    NameOfCase());
// clang-format on

// A refused file header writes no out-parameter and may be retried; one taken gives the chunk
// header size and the marker. (What is refused: the file header tests of the frame.)
TEST(Decoder, RefusedFileHeaderChangesNothingAndMayBeRetried) {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    const EncodedStream stream = smallStream(&header);
    Bytes damaged = stream.fileHeader;
    damaged[15] = 1;  // the unsupported scaling flag
    Decoder decoder;
    ASSERT_EQ(decoder.open(stream), OK);
    zul_DataType dataType;
    std::memset(&dataType, 0x5A, sizeof dataType);
    zul_Header2 header2 = header;
    header2.sensorType = zul_SENSOR_TYPE_7;
    int chunkHeaderSize = -1;
    const char* marker = "untouched";
    EXPECT_EQ(zul_dec_decodeFileHeader2(decoder.context, &dataType, &header2, &chunkHeaderSize,
                                        &marker, damaged.data()),
              BAD);
    EXPECT_EQ(chunkHeaderSize, -1);
    EXPECT_STREQ(marker, "untouched");
    EXPECT_EQ(header2.sensorType, zul_SENSOR_TYPE_7);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&dataType)[0], 0x5A);
    EXPECT_FALSE(decoder.context->transformPositions);
    EXPECT_EQ(zul_dec_decodeFileHeader2(decoder.context, &dataType, &header2, &chunkHeaderSize,
                                        &marker, stream.fileHeader.data()),
              OK);
    EXPECT_EQ(chunkHeaderSize, 64);
    EXPECT_EQ(Bytes(marker, 16), stream.markers[0]);
    EXPECT_EQ(decoder.fileHeader(stream.fileHeader), zul_STATUS_INVALID_STATE);
}

struct ChunkHeaderCase {
    const char* name;
    long long low[3], high[3];
    int32_t count;
    std::vector<uint32_t> sizes;  // coordinates, colour, normals
    zul_Status status;
    int bodySize;
};

class ChunkHeaders : public ::testing::TestWithParam<ChunkHeaderCase> {};

TEST_P(ChunkHeaders, AreReadOrRefused) {
    const ChunkHeaderCase& c = GetParam();
    const EncodedStream stream = smallStream();
    Decoder decoder;
    decoder.start(stream);
    // A good header first: a refused one must also withdraw its count.
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), zul_STATUS_OK);
    const Bytes header = chunkHeaderBytes(c.low, c.high, c.count, c.sizes);
    int bodySize = -1, count = -1;
    long long numPoints = -1;
    EXPECT_EQ(decoder.context->decodeChunkHeader(&bodySize, header.data(), &numPoints), c.status);
    if (c.status != zul_STATUS_OK) {
        EXPECT_EQ(bodySize, -1);
        EXPECT_EQ(numPoints, -1);
        EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_INVALID_STATE);
        EXPECT_EQ(decoder.body(Bytes(100, '\0')), zul_STATUS_INVALID_STATE);
        return;
    }
    EXPECT_EQ(bodySize, c.bodySize);
    EXPECT_EQ(numPoints, c.count);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_OK);
    EXPECT_EQ(count, c.count);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(decoder.context->chunkBoundingBox.min[k], c.low[k]);
        EXPECT_EQ(decoder.context->chunkBoundingBox.max[k], c.high[k]);
    }
}

const long long kLow = std::numeric_limits<long long>::min();
const long long kHigh = std::numeric_limits<long long>::max();

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, ChunkHeaders, ::testing::Values(
    ChunkHeaderCase{"one point box", {4, -5, 6}, {4, -5, 6}, 1, {6, 6, 4}, OK, 16},
    ChunkHeaderCase{"whole 64-bit range", {kLow, kLow, kLow}, {kHigh, kHigh, kHigh}, 7, {1, 2, 3}, OK, 6},
    ChunkHeaderCase{"minimum above maximum in x", {5, 0, 0}, {4, 0, 0}, 1, {6, 6, 4}, BAD, 0},
    ChunkHeaderCase{"minimum above maximum in z", {0, 0, 1}, {9, 9, 0}, 1, {6, 6, 4}, BAD, 0},
    ChunkHeaderCase{"no points", {0, 0, 0}, {0, 0, 0}, 0, {6, 6, 4}, BAD, 0},
    ChunkHeaderCase{"negative count", {0, 0, 0}, {0, 0, 0}, -1, {6, 6, 4}, BAD, 0},
    ChunkHeaderCase{"body of 2^31 - 1 bytes", {0, 0, 0}, {0, 0, 0}, 1, {0x7FFFFFFE, 1, 0}, OK, 0x7FFFFFFF},
    ChunkHeaderCase{"body of 2^31 bytes", {0, 0, 0}, {0, 0, 0}, 1, {0x7FFFFFFF, 1, 0}, BAD, 0},
    ChunkHeaderCase{"sizes beyond 32 bits", {0, 0, 0}, {0, 0, 0}, 1, {0xFFFFFFFF, 0xFFFFFFFF, 2}, BAD, 0}),
    NameOfCase());
// clang-format on

// Null arguments are refused, and a refused call leaves the decoder where it was.
TEST(Decoder, NullArgumentsAreRefusedAndChangeNothing) {
    const EncodedStream stream = smallStream();
    int size = 0;
    const char* marker = nullptr;
    const char* header = stream.fileHeader.data();
    zul_DataType dataType;
    zul_PointData points;
    zul_dec_Context context = nullptr;
    EXPECT_EQ(zul_dec_open(nullptr, &size, stream.signature.data()), ARG);
    EXPECT_EQ(zul_dec_open(&context, nullptr, stream.signature.data()), ARG);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->state, NEW);
    zul_dec_close(&context);
    EXPECT_EQ(zul_dec_open(&context, &size, nullptr), ARG);
    zul_dec_close(&context);
    EXPECT_EQ(zul_dec_decodeFileHeader(nullptr, &dataType, &size, &marker, "x"), ARG);
    EXPECT_EQ(zul_dec_decodeFileHeader2(nullptr, &dataType, nullptr, &size, &marker, "x"), ARG);
    EXPECT_EQ(zul_dec_decodeChunkHeader(nullptr, &size, "x"), ARG);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(nullptr, &size), ARG);
    EXPECT_EQ(zul_dec_decodeChunkBody(nullptr, &points, "x"), ARG);

    Decoder decoder;
    ASSERT_EQ(decoder.open(stream), zul_STATUS_OK);
    zul_dec_Context d = decoder.context;
    EXPECT_EQ(zul_dec_decodeFileHeader(d, nullptr, &size, &marker, header), ARG);
    EXPECT_EQ(zul_dec_decodeFileHeader(d, &dataType, nullptr, &marker, header), ARG);
    EXPECT_EQ(zul_dec_decodeFileHeader(d, &dataType, &size, nullptr, header), ARG);
    EXPECT_EQ(zul_dec_decodeFileHeader(d, &dataType, &size, &marker, nullptr), ARG);
    EXPECT_EQ(zul_dec_decodeFileHeader(d, &dataType, &size, &marker, header), OK);
    EXPECT_EQ(zul_dec_decodeChunkHeader(d, nullptr, stream.chunkHeaders[0].data()), ARG);
    EXPECT_EQ(zul_dec_decodeChunkHeader(d, &size, nullptr), ARG);
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), OK);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(d, nullptr), ARG);
    EXPECT_EQ(zul_dec_decodeChunkBody(d, nullptr, stream.bodies[0].data()), ARG);
    EXPECT_EQ(zul_dec_decodeChunkBody(d, &points, nullptr), ARG);
    EXPECT_EQ(d->state, HDR) << "a null argument leaves the body to decode";
    EXPECT_EQ(decoder.body(stream.bodies[0]), OK);
    zul_dec_close(nullptr);
}

}  // namespace

// The decoder's steps in every state, the signature and the two headers it accepts or refuses,
// and what a refused call leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "decoder/dec_context.h"
#include "support/stream_codec.h"
#include "support/test_names.h"

namespace {

const zul_DataType kColorNormals = makeDataType(0.01f, zul_COLOR_RGB888, 0, true);

EncodedStream smallStream(const zul_DataType& dataType, const zul_Header2* header = nullptr) {
    std::vector<PointCloud> clouds(2);
    for (int i = 0; i < 20; ++i) clouds[0].add(i * 0.1, -i * 0.3, 2.0, {1, 2, 3}, 0, {0, 1, 0});
    clouds[1].add(5, 6, 7);
    return encodeStream(dataType, header, clouds);
}

// ---------------------------------------------------------------------------------------------
// Each call in each state.

enum Call { kOpen, kFileHeader, kChunkHeader, kBody, kCount };

struct StateCase {
    const char* name;
    int stepsTaken;  // 0 new, 1 signature, 2 file header, 3 chunk header, 4 body, 5 bad header
    Call call;
    zul_Status status;
    int32_t stateAfter;
};

class StateTable : public ::testing::TestWithParam<StateCase> {};

TEST_P(StateTable, AnswersAndMovesAsTheTableSays) {
    const StateCase& c = GetParam();
    const EncodedStream stream = smallStream(kColorNormals);
    zul_dec_ContextStruct context;
    zul_dec_Context handle = &context;
    int size = 0;
    const char* marker = nullptr;
    zul_DataType dataType;
    zul_PointData points = {};
    const Bytes zeroCount(static_cast<size_t>(64), '\0');
    const auto step = [&](int s) -> zul_Status {
        switch (s) {
            case 0:
                return context.open(&size, stream.signature.data(), nullptr);
            case 1:
                return zul_dec_decodeFileHeader(handle, &dataType, &size, &marker,
                                                stream.fileHeader.data());
            case 2:
                return zul_dec_decodeChunkHeader(handle, &size, stream.chunkHeaders[0].data());
            case 3:
                return zul_dec_decodeChunkBody(handle, &points, stream.bodies[0].data());
            default:
                return zul_dec_decodeChunkHeader(handle, &size, zeroCount.data());
        }
    };
    for (int s = 0; s < c.stepsTaken; ++s)
        ASSERT_EQ(step(s == 4 ? 2 : s), zul_STATUS_OK) << "setting up, step " << s;
    if (c.stepsTaken == 5) {
        ASSERT_EQ(step(5), zul_STATUS_CORRUPT_DATA);
    }

    int count = -1;
    const zul_Status status = c.call == kCount ? zul_dec_getNumPointsInChunk(handle, &count)
                                               : step(static_cast<int>(c.call));
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(context.state, c.stateAfter);
    EXPECT_EQ(count, c.call == kCount && status == zul_STATUS_OK ? 20 : -1);
}

const zul_Status OK = zul_STATUS_OK, IS = zul_STATUS_INVALID_STATE;
const int32_t NEW = zul_dec_STATE_NEW, SIG = zul_dec_STATE_SIGNATURE_READ,
              READY = zul_dec_STATE_READY_FOR_CHUNK, HDR = zul_dec_STATE_CHUNK_HEADER_READ;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, StateTable, ::testing::Values(
    StateCase{"new open", 0, kOpen, OK, SIG},
    StateCase{"new file header", 0, kFileHeader, IS, NEW},
    StateCase{"new chunk header", 0, kChunkHeader, IS, NEW},
    StateCase{"new count", 0, kCount, IS, NEW},
    StateCase{"new body", 0, kBody, IS, NEW},
    StateCase{"signature open", 1, kOpen, IS, SIG},
    StateCase{"signature file header", 1, kFileHeader, OK, READY},
    StateCase{"signature chunk header", 1, kChunkHeader, IS, SIG},
    StateCase{"signature count", 1, kCount, IS, SIG},
    StateCase{"signature body", 1, kBody, IS, SIG},
    StateCase{"ready open", 2, kOpen, IS, READY},
    StateCase{"ready file header", 2, kFileHeader, IS, READY},
    StateCase{"ready chunk header", 2, kChunkHeader, OK, HDR},
    StateCase{"ready count", 2, kCount, IS, READY},
    StateCase{"ready body", 2, kBody, IS, READY},
    StateCase{"header open", 3, kOpen, IS, HDR},
    StateCase{"header file header", 3, kFileHeader, IS, HDR},
    StateCase{"header chunk header", 3, kChunkHeader, OK, HDR},
    StateCase{"header count", 3, kCount, OK, HDR},
    StateCase{"header body", 3, kBody, OK, READY},
    StateCase{"after body open", 4, kOpen, IS, READY},
    StateCase{"after body chunk header", 4, kChunkHeader, OK, HDR},
    StateCase{"after body count", 4, kCount, OK, READY},
    StateCase{"after body second body", 4, kBody, IS, READY},
    StateCase{"refused header open", 5, kOpen, IS, HDR},
    StateCase{"refused header chunk header", 5, kChunkHeader, OK, HDR},
    StateCase{"refused header count", 5, kCount, IS, HDR},
    StateCase{"refused header body", 5, kBody, IS, HDR}),
    NameOfCase());
// clang-format on

// ---------------------------------------------------------------------------------------------
// The signature and the params.

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

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, OpenSignature, ::testing::Values(
    OpenCase{"version 1", 3, 1, 1, zul_STATUS_OK, 28},
    OpenCase{"version 2", 3, 2, 0, zul_STATUS_OK, 164},
    OpenCase{"version 0", 3, 0, 1, zul_STATUS_BAD_VERSION, -1},
    OpenCase{"version 3", 3, 3, 1, zul_STATUS_BAD_VERSION, -1},
    OpenCase{"version 127", 3, 127, 1, zul_STATUS_BAD_VERSION, -1},
    OpenCase{"version 0x80 is foreign", 3, 0x80, 1, zul_STATUS_BAD_SIGNATURE, -1},
    OpenCase{"version 0xFF is foreign", 3, 0xFF, 1, zul_STATUS_BAD_SIGNATURE, -1},
    OpenCase{"first byte", 0, 'z', 1, zul_STATUS_BAD_SIGNATURE, -1},
    OpenCase{"last byte", 7, 0x0D, 1, zul_STATUS_BAD_SIGNATURE, -1},
    OpenCase{"apply 2", 3, 1, 2, zul_STATUS_INVALID_ARGUMENT, -1},
    OpenCase{"apply -1", 3, 1, -1, zul_STATUS_INVALID_ARGUMENT, -1},
    OpenCase{"params judged before the signature", 0, 'X', 2, zul_STATUS_INVALID_ARGUMENT, -1}),
    NameOfCase());
// clang-format on

// ---------------------------------------------------------------------------------------------
// The file header: what is transformed, and what is refused.

struct FrameCase {
    const char* name;
    bool version2, hasScaling, hasRotation, hasTranslation, normals;
    int applyTransformation;
    bool transformPositions, transformNormals;
};

class TransformFlags : public ::testing::TestWithParam<FrameCase> {};

TEST_P(TransformFlags, FollowTheHeaderAndTheParams) {
    const FrameCase& c = GetParam();
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.hasScaling = c.hasScaling;
    header.hasRotation = c.hasRotation;
    header.hasTranslation = c.hasTranslation;
    const double quarterTurn[16] = {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 7, 8, 9, 1};
    if (c.hasRotation) std::memcpy(header.transformation, quarterTurn, sizeof quarterTurn);
    const zul_DataType dataType = makeDataType(0.01f, zul_COLOR_NONE, 0, c.normals);
    std::vector<PointCloud> noChunks;
    Decoder decoder;
    decoder.start(encodeStream(dataType, c.version2 ? &header : nullptr, noChunks),
                  c.applyTransformation);
    EXPECT_EQ(decoder.context->transformPositions, c.transformPositions);
    EXPECT_EQ(decoder.context->transformNormals, c.transformNormals);
    // The header comes back as stored, whatever applyTransformation says.
    EXPECT_EQ(decoder.header2.enabled, c.version2);
    EXPECT_EQ(decoder.header2.hasRotation, c.version2 && c.hasRotation);
    if (c.transformNormals) {
        // The scale 2 is taken out of the linear part; the translation stays unread.
        const double expected[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1};
        for (int i = 0; i < 16; ++i)
            EXPECT_EQ(decoder.context->normalTransformation[i], expected[i]) << i;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, TransformFlags, ::testing::Values(
    FrameCase{"version 1", false, false, false, false, true, 1, false, false},
    FrameCase{"version 2 with nothing set", true, false, false, false, true, 1, false, false},
    FrameCase{"scaling alone", true, true, false, false, true, 1, true, false},
    FrameCase{"translation alone", true, false, false, true, true, 1, true, false},
    FrameCase{"rotation without normals", true, true, true, true, false, 1, true, false},
    FrameCase{"rotation with normals", true, true, true, true, true, 1, true, true},
    FrameCase{"rotation with normals, not applied", true, true, true, true, true, 0, false, false}),
    NameOfCase());
// clang-format on

struct HeaderDamage {
    const char* name;
    int offset;
    std::vector<unsigned char> bytes;
    zul_Status status;
};

class FileHeaderBytes : public ::testing::TestWithParam<HeaderDamage> {};

TEST_P(FileHeaderBytes, AreRefusedOrTakenAndARefusalCanBeRetried) {
    const HeaderDamage& c = GetParam();
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    const EncodedStream stream = smallStream(kColorNormals, &header);
    Bytes damaged = stream.fileHeader;
    std::memcpy(&damaged[c.offset], c.bytes.data(), c.bytes.size());

    Decoder decoder;
    ASSERT_EQ(decoder.open(stream), zul_STATUS_OK);
    zul_DataType dataType;
    std::memset(&dataType, 0x5A, sizeof dataType);
    zul_Header2 header2 = header;
    header2.sensorType = zul_SENSOR_TYPE_7;
    int chunkHeaderSize = -1;
    const char* marker = "untouched";
    EXPECT_EQ(zul_dec_decodeFileHeader2(decoder.context, &dataType, &header2, &chunkHeaderSize,
                                        &marker, damaged.data()),
              c.status);
    if (c.status == zul_STATUS_OK) {
        EXPECT_EQ(chunkHeaderSize, 64);
        EXPECT_EQ(Bytes(marker, 16), stream.markers[0]);
        return;
    }
    EXPECT_EQ(chunkHeaderSize, -1) << "a refused header writes no out-parameter";
    EXPECT_STREQ(marker, "untouched");
    EXPECT_EQ(header2.sensorType, zul_SENSOR_TYPE_7);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&dataType)[0], 0x5A);
    EXPECT_FALSE(decoder.context->transformPositions);
    EXPECT_EQ(decoder.fileHeader(stream.fileHeader), zul_STATUS_OK) << "the call may be repeated";
    EXPECT_EQ(decoder.fileHeader(stream.fileHeader), zul_STATUS_INVALID_STATE);
}

Bytes floatBytes(float value) {
    Bytes b(4, '\0');
    std::memcpy(&b[0], &value, 4);
    return b;
}

std::vector<unsigned char> raw(const Bytes& b) { return {b.begin(), b.end()}; }

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, FileHeaderBytes, ::testing::Values(
    HeaderDamage{"step of exactly 10", 4, raw(floatBytes(10.0f)), zul_STATUS_OK},
    HeaderDamage{"step above 10", 4, raw(floatBytes(std::nextafter(10.0f, 11.0f))), zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"step NaN", 4, raw(floatBytes(NAN)), zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"colour mode 3", 0, {3}, zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"normal mode 0x80", 2, {0x80}, zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"reflection without a maximum", 1, {1}, zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"sensor type outside its values", 13, {99}, zul_STATUS_OK},
    HeaderDamage{"unsupported scaling", 15, {1}, zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"translation without its flag", 20 + 8 * 12, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, zul_STATUS_CORRUPT_DATA},
    HeaderDamage{"bottom row not 0 0 0 1", 20 + 8 * 3, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, zul_STATUS_CORRUPT_DATA}),
    NameOfCase());
// clang-format on

TEST(Decoder, VersionOneReportsTheDisabledSensorHeader) {
    Decoder decoder;
    decoder.start(smallStream(kColorNormals));
    const zul_Header2& h = decoder.header2;
    EXPECT_FALSE(h.enabled || h.hasScaling || h.hasUnsupportedScaling || h.hasRotation ||
                 h.hasTranslation);
    EXPECT_EQ(h.sensorMount, 0);
    EXPECT_EQ(h.sensorType, 0);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(h.transformation[i], i % 5 == 0 ? 1.0 : 0.0);
}

// ---------------------------------------------------------------------------------------------
// Chunk headers.

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
    Decoder decoder;
    decoder.start(smallStream(kColorNormals));
    // A good header first: a refused one must also withdraw its count.
    ASSERT_EQ(decoder.chunkHeader(smallStream(kColorNormals).chunkHeaders[0]), zul_STATUS_OK);
    const Bytes header = chunkHeaderBytes(c.low, c.high, c.count, c.sizes);
    int bodySize = -1;
    long long numPoints = -1;
    EXPECT_EQ(decoder.context->decodeChunkHeader(&bodySize, header.data(), &numPoints), c.status);
    int count = -1;
    if (c.status == zul_STATUS_OK) {
        EXPECT_EQ(bodySize, c.bodySize);
        EXPECT_EQ(numPoints, c.count);
        EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_OK);
        EXPECT_EQ(count, c.count);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(decoder.context->chunkBoundingBox.min[k], c.low[k]);
            EXPECT_EQ(decoder.context->chunkBoundingBox.max[k], c.high[k]);
        }
    } else {
        EXPECT_EQ(bodySize, -1);
        EXPECT_EQ(numPoints, -1);
        EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_INVALID_STATE);
        EXPECT_EQ(decoder.body(Bytes(100, '\0')), zul_STATUS_INVALID_STATE);
    }
}

const long long kLow = std::numeric_limits<long long>::min();
const long long kHigh = std::numeric_limits<long long>::max();

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, ChunkHeaders, ::testing::Values(
    ChunkHeaderCase{"one point box", {4, -5, 6}, {4, -5, 6}, 1, {6, 6, 4}, zul_STATUS_OK, 16},
    ChunkHeaderCase{"whole 64-bit range", {kLow, kLow, kLow}, {kHigh, kHigh, kHigh}, 7, {1, 2, 3}, zul_STATUS_OK, 6},
    ChunkHeaderCase{"minimum above maximum in x", {5, 0, 0}, {4, 0, 0}, 1, {6, 6, 4}, zul_STATUS_CORRUPT_DATA, 0},
    ChunkHeaderCase{"minimum above maximum in z", {0, 0, 1}, {9, 9, 0}, 1, {6, 6, 4}, zul_STATUS_CORRUPT_DATA, 0},
    ChunkHeaderCase{"no points", {0, 0, 0}, {0, 0, 0}, 0, {6, 6, 4}, zul_STATUS_CORRUPT_DATA, 0},
    ChunkHeaderCase{"negative count", {0, 0, 0}, {0, 0, 0}, -1, {6, 6, 4}, zul_STATUS_CORRUPT_DATA, 0},
    ChunkHeaderCase{"body of 2^31 - 1 bytes", {0, 0, 0}, {0, 0, 0}, 1, {0x7FFFFFFE, 1, 0}, zul_STATUS_OK, 0x7FFFFFFF},
    ChunkHeaderCase{"body of 2^31 bytes", {0, 0, 0}, {0, 0, 0}, 1, {0x7FFFFFFF, 1, 0}, zul_STATUS_CORRUPT_DATA, 0},
    ChunkHeaderCase{"sizes beyond 32 bits", {0, 0, 0}, {0, 0, 0}, 1, {0xFFFFFFFF, 0xFFFFFFFF, 2}, zul_STATUS_CORRUPT_DATA, 0}),
    NameOfCase());
// clang-format on

TEST(Decoder, NullArgumentsAreRefusedAndChangeNothing) {
    const EncodedStream stream = smallStream(kColorNormals);
    int size = 0;
    const char* marker = nullptr;
    zul_DataType dataType;
    zul_PointData points;
    EXPECT_EQ(zul_dec_open(nullptr, &size, stream.signature.data()), zul_STATUS_INVALID_ARGUMENT);
    zul_dec_Context context = nullptr;
    EXPECT_EQ(zul_dec_open(&context, nullptr, stream.signature.data()),
              zul_STATUS_INVALID_ARGUMENT);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->state, NEW);
    zul_dec_close(&context);
    EXPECT_EQ(zul_dec_open(&context, &size, nullptr), zul_STATUS_INVALID_ARGUMENT);
    zul_dec_close(&context);

    EXPECT_EQ(zul_dec_decodeFileHeader(nullptr, &dataType, &size, &marker, "x"),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeFileHeader2(nullptr, &dataType, nullptr, &size, &marker, "x"),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeChunkHeader(nullptr, &size, "x"), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(nullptr, &size), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeChunkBody(nullptr, &points, "x"), zul_STATUS_INVALID_ARGUMENT);

    Decoder decoder;
    ASSERT_EQ(decoder.open(stream), zul_STATUS_OK);
    const char* header = stream.fileHeader.data();
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder.context, nullptr, &size, &marker, header),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder.context, &dataType, nullptr, &marker, header),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder.context, &dataType, &size, nullptr, header),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder.context, &dataType, &size, &marker, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeFileHeader(decoder.context, &dataType, &size, &marker, header),
              zul_STATUS_OK);
    EXPECT_EQ(zul_dec_decodeChunkHeader(decoder.context, nullptr, stream.chunkHeaders[0].data()),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeChunkHeader(decoder.context, &size, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), zul_STATUS_OK);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeChunkBody(decoder.context, nullptr, stream.bodies[0].data()),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_dec_decodeChunkBody(decoder.context, &points, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(decoder.context->state, HDR) << "a null argument leaves the body to decode";
    EXPECT_EQ(decoder.body(stream.bodies[0]), zul_STATUS_OK);

    zul_dec_close(nullptr);
    zul_dec_Context none = nullptr;
    zul_dec_close(&none);
}

TEST(Decoder, ChunkHeadersReplaceEachOtherAndSkipBodies) {
    const EncodedStream stream = smallStream(kColorNormals);
    Decoder decoder;
    decoder.start(stream);
    int count = 0;
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[0]), zul_STATUS_OK);
    ASSERT_EQ(decoder.chunkHeader(stream.chunkHeaders[1]), zul_STATUS_OK);
    EXPECT_EQ(zul_dec_getNumPointsInChunk(decoder.context, &count), zul_STATUS_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(decoder.bodySize, static_cast<int>(stream.bodies[1].size()));
    ASSERT_EQ(decoder.body(stream.bodies[1]), zul_STATUS_OK);
    EXPECT_EQ(decoder.points.positions[0], 500 * static_cast<double>(0.01f));
}

}  // namespace

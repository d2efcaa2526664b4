// Damage and bad arguments: the chunk index on whole, damaged and truncated streams, from a file
// and from a buffer (what it lists, where it stops and why); the bulk decoder and encoder naming
// the first bad chunk; every refused argument. (The index's boxes are checked by the box queries
// of the round trips, which would miss points of a box too small.)
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"
#include "support/test_names.h"

using namespace bulktest;

namespace {

const int kChunk = 700;
const int64_t kPoints = 3000;  // chunks of 700, 700, 700, 700, 200
// Byte offsets in the file of the colour and reflection type: 8 + 28 of head, chunks behind.
const int64_t kHead = 36;

struct DamageCase {
    const char* name;
    // Changes the writer's bytes; `chunks` are the good file's offsets.
    std::function<void(std::string& bytes, const std::vector<int64_t>& chunks)> damage;
    zul_Status open;         // of zul_idx_open*
    zul_Status status;       // of zul_idx_getDamage
    int64_t listed;          // chunks listed
    int64_t damageOffsetOf;  // damage offset: the good file's chunk offset of this chunk
    int64_t badBody = -1;    // a chunk the index lists whose body the decoder refuses
};

void putInt32(std::string& bytes, int64_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes[static_cast<size_t>(at + i)] = static_cast<char>(value >> (8 * i));
}

const DamageCase kCases[] = {
    {"whole", [](auto&, auto&) {}, zul_STATUS_OK, zul_STATUS_OK, 5, -1},
    // The table of the coordinate stream's first component (behind a chunk header of 64 bytes):
    // a 255 before the last entry.
    {"body of chunk 3", [](auto& b, auto& c) { b[static_cast<size_t>(c[3] + 16 + 64 + 1)] = -1; },
     zul_STATUS_OK, zul_STATUS_OK, 5, -1, 3},
    {"marker of chunk 2", [](auto& b, auto& c) { b[static_cast<size_t>(c[2] + 3)] ^= 1; },
     zul_STATUS_OK, zul_STATUS_CORRUPT_DATA, 2, 2},
    {"box of chunk 1 upside down",
     [](auto& b, auto& c) { b[static_cast<size_t>(c[1] + 16 + 7)] = 0x7f; }, zul_STATUS_OK,
     zul_STATUS_CORRUPT_DATA, 1, 1},
    {"2^31 points in chunk 3", [](auto& b, auto& c) { putInt32(b, c[3] + 64, 0x80000000u); },
     zul_STATUS_OK, zul_STATUS_CORRUPT_DATA, 3, 3},
    {"2^30 points in chunk 0", [](auto& b, auto& c) { putInt32(b, c[0] + 64, 0x40000000u); },
     zul_STATUS_OK, zul_STATUS_CORRUPT_DATA, 0, 0},
    {"cut inside the last body", [](auto& b, auto&) { b.resize(b.size() - 1); }, zul_STATUS_OK,
     zul_STATUS_TRUNCATED, 4, 4},
    {"cut inside a chunk header",
     [](auto& b, auto& c) { b.resize(static_cast<size_t>(c[3] + 30)); }, zul_STATUS_OK,
     zul_STATUS_TRUNCATED, 3, 3},
    {"cut inside a marker", [](auto& b, auto& c) { b.resize(static_cast<size_t>(c[1] + 5)); },
     zul_STATUS_OK, zul_STATUS_TRUNCATED, 1, 1},
    // Found by the fuzz target: the marker is judged before the header is found cut.
    {"wrong marker in front of a cut header",
     [](auto& b, auto& c) {
         b[static_cast<size_t>(c[4])] ^= 1;
         b.resize(static_cast<size_t>(c[4] + 20));
     },
     zul_STATUS_OK, zul_STATUS_CORRUPT_DATA, 4, 4},
    // Found by the fuzz target: a cut body is found before a count no decoder serves.
    {"2^30 points in a cut chunk",
     [](auto& b, auto& c) {
         putInt32(b, c[4] + 64, 0x40000000u);
         b.resize(b.size() - 1);
     },
     zul_STATUS_OK, zul_STATUS_TRUNCATED, 4, 4},
    {"stream size grown", [](auto& b, auto& c) { putInt32(b, c[4] + 68, 0x7fff0000u); },
     zul_STATUS_OK, zul_STATUS_TRUNCATED, 4, 4},
    {"head only", [](auto& b, auto&) { b.resize(kHead); }, zul_STATUS_OK, zul_STATUS_OK, 0, -1},
    {"cut inside the file header", [](auto& b, auto&) { b.resize(20); }, zul_STATUS_TRUNCATED,
     zul_STATUS_OK, 0, -1},
    {"empty", [](auto& b, auto&) { b.clear(); }, zul_STATUS_TRUNCATED, zul_STATUS_OK, 0, -1},
    {"not a stream", [](auto& b, auto&) { b[0] ^= 0x20; }, zul_STATUS_BAD_SIGNATURE, zul_STATUS_OK,
     0, -1},
};

class ChunkIndexTest : public TempFolderTest, public ::testing::WithParamInterface<DamageCase> {};

TEST_P(ChunkIndexTest, ListsChunksUpToTheFirstDamage) {
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 4000, false);
    const Arrays cloud = makeCloud(type, kPoints, 7);
    const std::string good = path("good.zul"), bad = path("bad.zul");
    writeWithWriter(good, cloud, type, nullptr, kChunk);
    zul_Status end;
    const std::vector<zul_Point> expected = readWithReader(good, &end);
    std::string bytes = readFile(good);
    std::vector<int64_t> offsets;
    {
        IndexHandle whole;
        ASSERT_EQ(zul_idx_openFile(&whole.index, good.c_str(), nullptr), zul_STATUS_OK);
        for (int64_t k = 0; k < 5; ++k) {
            zul_idx_Chunk chunk;
            ASSERT_EQ(zul_idx_getChunk(whole.index, k, &chunk), zul_STATUS_OK);
            offsets.push_back(chunk.offset);
        }
    }
    ASSERT_EQ(offsets[0], kHead);
    GetParam().damage(bytes, offsets);
    writeFile(bad, bytes);

    // The same stream behind 1000 other bytes, as a later one of several in a file.
    const std::string behind = path("behind.zul");
    writeFile(behind, std::string(1000, 'x') + bytes);
    for (const char* source : {"file", "buffer", "file at 1000"}) {
        SCOPED_TRACE(source);
        const bool fromFile = source[0] == 'f';
        IndexHandle handle;
        const zul_Status opened =
            source[4] == ' ' ? zul_idx_openFileAt(&handle.index, behind.c_str(), 1000, nullptr)
            : fromFile       ? zul_idx_openFile(&handle.index, bad.c_str(), nullptr)
                       : zul_idx_openBuffer(&handle.index, bytes.data(), bytes.size(), nullptr);
        ASSERT_EQ(opened, GetParam().open);
        int64_t chunks = -1, points = -1;
        if (opened != zul_STATUS_OK) {
            EXPECT_EQ(zul_idx_getCounts(handle.index, &chunks, &points), zul_STATUS_INVALID_STATE);
            continue;
        }
        ASSERT_EQ(zul_idx_getCounts(handle.index, &chunks, &points), zul_STATUS_OK);
        EXPECT_EQ(chunks, GetParam().listed);
        EXPECT_EQ(points, std::min<int64_t>(kPoints, chunks * kChunk));
        zul_Status status;
        int64_t where = -1, offset = -1;
        ASSERT_EQ(zul_idx_getDamage(handle.index, &status, &where, &offset), zul_STATUS_OK);
        EXPECT_EQ(status, GetParam().status);
        EXPECT_EQ(where, chunks);
        if (GetParam().damageOffsetOf >= 0) {
            EXPECT_EQ(offset, offsets[GetParam().damageOffsetOf]);
        }
        for (int64_t k = 0; k < chunks; ++k) {
            zul_idx_Chunk chunk;
            ASSERT_EQ(zul_idx_getChunk(handle.index, k, &chunk), zul_STATUS_OK);
            EXPECT_EQ(chunk.offset, offsets[k]);
            const int64_t end =
                k + 1 < 5 ? offsets[k + 1] : static_cast<int64_t>(readFile(good).size());
            EXPECT_EQ(chunk.size, end - offsets[k]);
            EXPECT_EQ(chunk.numPoints, k < 4 ? kChunk : 200);
        }
        zul_idx_Chunk chunk;
        EXPECT_EQ(zul_idx_getChunk(handle.index, chunks, &chunk), zul_STATUS_INVALID_ARGUMENT);
        // The bulk decoder names the first bad chunk and delivers the ones before it whole.
        const int64_t bad = GetParam().badBody >= 0 ? GetParam().badBody : chunks;
        const zul_Status decoded =
            GetParam().badBody >= 0 ? zul_STATUS_CORRUPT_DATA : GetParam().status;
        for (int threads : {1, 3}) {
            Arrays out;
            out.resize(type, kPoints);
            zul_bulk_Points given = out.view();
            int64_t failed = -7;
            EXPECT_EQ(zul_bulk_decode(handle.index, threads, &given, &failed), decoded);
            EXPECT_EQ(failed, decoded == zul_STATUS_OK ? -1 : bad);
            ASSERT_EQ(given.numPoints, std::min<int64_t>(kPoints, bad * kChunk));
            for (int64_t i = 0; i < given.numPoints; ++i)
                ASSERT_TRUE(samePoint(out.point(i), expected[static_cast<size_t>(i)]))
                    << "point " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, ChunkIndexTest, ::testing::ValuesIn(kCases), NameOfCase());

class BulkDecodeDamageTest : public TempFolderTest {};

// A normal too short to encode in chunk 2 of 4: that chunk is named and the file holds the two
// before it, as the reader finds.
TEST_F(BulkDecodeDamageTest, NamesTheChunkTheEncoderRefuses) {
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_NONE, 0, true);
    Arrays cloud = makeCloud(type, 400, 4);
    cloud.normals[3 * 250] = cloud.normals[3 * 250 + 1] = cloud.normals[3 * 250 + 2] = 0.0f;
    const zul_bulk_Points points = cloud.view();
    const std::string file = path("refused.zul");
    for (int threads : {1, 2, 3}) {
        int64_t failed = -1;
        EXPECT_EQ(zul_bulk_encodeFile(file.c_str(), &type, nullptr, &points, nullptr, 0, 100,
                                      threads, &failed),
                  zul_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(failed, 2);
        zul_Status end;
        EXPECT_EQ(readWithReader(file, &end).size(), 200u);
        EXPECT_EQ(end, zul_STATUS_END_OF_FILE);
    }
}

TEST_F(BulkDecodeDamageTest, RefusesBadArguments) {
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 0, false);
    const std::string file = path("cloud.zul");
    Arrays out = makeCloud(type, 1000, 5);
    writeWithWriter(file, out, type, nullptr, kChunk);
    IndexHandle handle, failed;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_idx_openFile(&failed.index, path("missing.zul").c_str(), nullptr),
              zul_STATUS_READ_ERROR);
    zul_DataType badType = type;
    badType.quantizationStep = 0.0f;
    const std::string never = path("never.zul");
    const char* f = never.c_str();
    const auto encode = [](const char* to, const zul_DataType& t, const zul_bulk_Points& p,
                           const int32_t* plan, int chunk, int threads) {
        return zul_bulk_encodeFile(to, &t, nullptr, &p, plan, plan ? 2 : 0, chunk, threads,
                                   nullptr);
    };
    const int32_t shortPlan[] = {500, 499}, longPlan[] = {500, 501}, zeroPlan[] = {0, 1000};
    const double nan = std::nan(""), low[3] = {0, 0, 0}, high[3] = {1, 1, 1};
    const double upside[3] = {1, -1, 1}, withNan[3] = {0, nan, 0};
    const int64_t outside[1] = {2};
    int64_t n = 0;
    zul_bulk_Points points = out.view();
    zul_bulk_Points noColors = out.view();
    noColors.colors = nullptr;
    zul_bulk_Points small = out.view();
    small.numPoints = 999;
    zul_dec_Params params{};
    params.applyTransformation = 2;
    IndexHandle badParams, nullPath, negativeStart, startPastEnd;
    const zul_Status ARG = zul_STATUS_INVALID_ARGUMENT, IS = zul_STATUS_INVALID_STATE;
    const struct {
        const char* name;
        zul_Status got, expected;
    } cases[] = {
        {"null index", zul_bulk_decode(nullptr, 1, &points, nullptr), ARG},
        {"negative threads", zul_bulk_decode(handle.index, -1, &points, nullptr), ARG},
        {"null points", zul_bulk_decode(handle.index, 1, nullptr, nullptr), ARG},
        {"missing colours", zul_bulk_decode(handle.index, 1, &noColors, nullptr), ARG},
        {"too little room", zul_bulk_decode(handle.index, 1, &small, nullptr), ARG},
        {"chunk outside", zul_bulk_decodeChunks(handle.index, outside, 1, 1, &points, nullptr),
         ARG},
        {"failed index", zul_bulk_decode(failed.index, 1, &points, nullptr), IS},
        {"box upside down", zul_idx_selectBox(handle.index, low, upside, nullptr, 0, &n), ARG},
        {"box with NaN", zul_idx_selectBox(handle.index, withNan, high, nullptr, 0, &n), ARG},
        {"box of a failed index", zul_idx_selectBox(failed.index, low, high, nullptr, 0, &n), IS},
        {"negative allocation", zul_bulk_allocate(handle.index, -1, &points), ARG},
        {"bad params", zul_idx_openFile(&badParams.index, file.c_str(), &params), ARG},
        {"null path", zul_idx_openFile(&nullPath.index, nullptr, nullptr), ARG},
        {"negative start", zul_idx_openFileAt(&negativeStart.index, file.c_str(), -1, nullptr),
         ARG},
        {"start past the end",
         zul_idx_openFileAt(&startPastEnd.index, file.c_str(), 1 << 30, nullptr),
         zul_STATUS_TRUNCATED},
        {"encode to a null path", encode(nullptr, type, points, nullptr, 0, 1), ARG},
        {"encode an invalid type", encode(f, badType, points, nullptr, 0, 1), ARG},
        {"encode without colours", encode(f, type, noColors, nullptr, 0, 1), ARG},
        {"encode on negative threads", encode(f, type, points, nullptr, 0, -2), ARG},
        {"encode negative chunks", encode(f, type, points, nullptr, -1, 1), ARG},
        {"plan too short", encode(f, type, points, shortPlan, 0, 1), ARG},
        {"plan too long", encode(f, type, points, longPlan, 0, 1), ARG},
        {"empty chunk in plan", encode(f, type, points, zeroPlan, 0, 1), ARG},
        {"encode into a missing folder",
         encode(path("no/such/folder.zul").c_str(), type, points, nullptr, 0, 1),
         zul_STATUS_WRITE_ERROR},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.expected) << c.name;
    EXPECT_EQ(points.numPoints, 1000);  // refused calls leave the record alone
    EXPECT_FALSE(std::filesystem::exists(never));
}

}  // namespace

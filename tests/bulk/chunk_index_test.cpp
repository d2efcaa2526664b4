// The chunk index on whole, damaged and truncated streams, from a file and from a buffer: what it
// lists, where it stops and why, and the boxes, which hold every point a reader gets.
#include <gtest/gtest.h>

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
    std::function<void(std::vector<char>& bytes, const std::vector<int64_t>& chunks)> damage;
    zul_Status open;         // of zul_idx_open*
    zul_Status status;       // of zul_idx_getDamage
    int64_t listed;          // chunks listed
    int64_t damageOffsetOf;  // damage offset: the good file's chunk offset of this chunk
};

void putInt32(std::vector<char>& bytes, int64_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes[static_cast<size_t>(at + i)] = static_cast<char>(value >> (8 * i));
}

const DamageCase kCases[] = {
    {"whole", [](auto&, auto&) {}, zul_STATUS_OK, zul_STATUS_OK, 5, -1},
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
    const zul_DataType type = dataType(zul_COLOR_RGB888, true, false);
    const Arrays cloud = makeCloud(type, kPoints, 7);
    const std::string good = path("good.zul"), bad = path("bad.zul");
    writeWithWriter(good, cloud, type, nullptr, kChunk);
    std::vector<char> bytes = fileBytes(good);
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
    writeBytes(bad, bytes);

    for (bool fromFile : {true, false}) {
        SCOPED_TRACE(fromFile ? "file" : "buffer");
        IndexHandle handle;
        const zul_Status opened =
            fromFile ? zul_idx_openFile(&handle.index, bad.c_str(), nullptr)
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
                k + 1 < 5 ? offsets[k + 1] : static_cast<int64_t>(fileBytes(good).size());
            EXPECT_EQ(chunk.size, end - offsets[k]);
            EXPECT_EQ(chunk.numPoints, k < 4 ? kChunk : 200);
        }
        zul_idx_Chunk chunk;
        EXPECT_EQ(zul_idx_getChunk(handle.index, chunks, &chunk), zul_STATUS_INVALID_ARGUMENT);
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, ChunkIndexTest, ::testing::ValuesIn(kCases), NameOfCase());

// The box of a chunk holds every point the reader gives for it; without a matrix its corners are
// points' coordinates, with one the corners' images bound the points.
class ChunkBoxTest : public TempFolderTest, public ::testing::WithParamInterface<int> {};

TEST_P(ChunkBoxTest, HoldsEveryPointOfTheChunk) {
    const bool turned = GetParam() != 0, applied = GetParam() == 2;
    const zul_DataType type = dataType(zul_COLOR_NONE, false, false);
    const zul_Header2 header = turningHeader();
    const Arrays cloud = makeCloud(type, 2500, 3);
    const std::string file = path("cloud.zul");
    writeWithWriter(file, cloud, type, turned ? &header : nullptr, 600);
    zul_dec_Params params{};
    params.applyTransformation = applied ? 1 : 0;
    zul_Status end;
    const std::vector<zul_Point> points = readWithReader(file, &end, &params);
    ASSERT_EQ(end, zul_STATUS_END_OF_FILE);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), &params), zul_STATUS_OK);
    size_t next = 0;
    for (int64_t k = 0; k < 5; ++k) {
        zul_idx_Chunk chunk;
        ASSERT_EQ(zul_idx_getChunk(handle.index, k, &chunk), zul_STATUS_OK);
        double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
        for (int32_t i = 0; i < chunk.numPoints; ++i, ++next) {
            for (int a = 0; a < 3; ++a) {
                low[a] = std::min(low[a], points[next].position[a]);
                high[a] = std::max(high[a], points[next].position[a]);
            }
        }
        for (int a = 0; a < 3; ++a) {
            EXPECT_LE(chunk.min[a], low[a]);
            EXPECT_GE(chunk.max[a], high[a]);
            if (!applied) {
                EXPECT_EQ(chunk.min[a], low[a]);
                EXPECT_EQ(chunk.max[a], high[a]);
                EXPECT_EQ(chunk.min[a], static_cast<double>(chunk.gridMin[a]) * 0.001f);
            }
        }
    }
    EXPECT_EQ(next, points.size());
}

INSTANTIATE_TEST_SUITE_P(Frames, ChunkBoxTest, ::testing::Values(0, 1, 2));

}  // namespace

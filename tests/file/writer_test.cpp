// The file writer: where chunks are cut and when they go out, the chunk size, the failed state,
// and every way an open or a write can fail.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "file/out_context.h"
#include "support/file_stream.h"
#include "support/test_names.h"

namespace {

const zul_DataType kType = makeDataType(0.001f, zul_COLOR_RGB888, 255, false);
const zul_Status OK = zul_STATUS_OK, ARG = zul_STATUS_INVALID_ARGUMENT,
                 IS = zul_STATUS_INVALID_STATE;

// Opens a writer with encodeStream's sync marker.
zul_Status openWriter(zul_out_Context* writer, const std::string& file,
                      const zul_DataType& dataType = kType, const zul_Header2* header = nullptr) {
    zul_test_useFixedRandomSeed(true, 5489);
    const zul_Status status = zul_out_open2(writer, file.c_str(), &dataType, header);
    zul_test_useFixedRandomSeed(false, 0);
    return status;
}

struct ChunkingCase {
    const char* name;
    int chunkSize;  // 0: the default
    int numPoints;
    bool version2;
};

const ChunkingCase kChunkingCases[] = {
    {"no point version 1", 0, 0, false}, {"no point version 2", 0, 0, true},
    {"20000 points", 0, 20000, false},   {"20001 points", 0, 20001, true},
    {"chunk size 1", 1, 5, false},
};

class WriterChunking : public FileTest, public ::testing::WithParamInterface<ChunkingCase> {};

// A full chunk leaves inside the writePoint that completes it, with the signature and the file
// header in front of the first; close adds the rest and never an empty chunk.
TEST_P(WriterChunking, CutsChunksWhereTheSizeSays) {
    const ChunkingCase& c = GetParam();
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    const zul_Header2* header2 = c.version2 ? &header : nullptr;
    const PointCloud cloud = randomCloud(c.numPoints, 3);
    const std::string file = path("chunks.zul");
    zul_out_Context writer = nullptr;
    ASSERT_EQ(openWriter(&writer, file, kType, header2), OK);
    if (c.chunkSize > 0) {
        ASSERT_EQ(zul_out_setChunkSize(writer, c.chunkSize), OK);
    }
    const int chunkSize = c.chunkSize > 0 ? c.chunkSize : 10000;
    for (int i = 0; i < cloud.size(); ++i) {
        const zul_Point p = pointOf(cloud, i);
        ASSERT_EQ(zul_out_writePoint(writer, &p), OK);
        ASSERT_EQ(writer->points.numPoints, (i + 1) % chunkSize) << "after point " << i;
        ASSERT_EQ(writer->headerWritten, i + 1 >= chunkSize);
    }
    ASSERT_EQ(zul_out_close(&writer), OK);
    EXPECT_EQ(writer, nullptr);

    std::vector<PointCloud> chunks = chunksOf(cloud, chunkSize);
    EXPECT_EQ(readFile(file), fileBytes(encodeStream(kType, header2, chunks)));
}

INSTANTIATE_TEST_SUITE_P(Edges, WriterChunking, ::testing::ValuesIn(kChunkingCases), NameOfCase());

using WriterTest = FileTest;

// Writes points 0 .. n-1 of the cloud; returns the first status other than OK, or OK.
zul_Status writePoints(zul_out_Context writer, const PointCloud& cloud, int first, int n) {
    for (int i = first; i < first + n; ++i) {
        const zul_Point p = pointOf(cloud, i);
        const zul_Status status = zul_out_writePoint(writer, &p);
        if (status != OK) return status;
    }
    return OK;
}

// The file the in-memory encoder makes of the cloud in chunks of `chunkSize`.
Bytes expectedFile(const PointCloud& cloud, int chunkSize) {
    std::vector<PointCloud> chunks = chunksOf(cloud, chunkSize);
    return fileBytes(encodeStream(kType, nullptr, chunks));
}

TEST_F(WriterTest, ChunkSizeIsCheckedAndMayChangeUntilTheFirstPoint) {
    const PointCloud cloud = randomCloud(7, 5);
    const std::string file = path("size.zul");
    zul_out_Context writer = nullptr;
    ASSERT_EQ(openWriter(&writer, file), OK);
    EXPECT_EQ(zul_out_setChunkSize(nullptr, 5), ARG);
    for (int refused : {0, -1, 2147483647})
        EXPECT_EQ(zul_out_setChunkSize(writer, refused), ARG) << refused;
    // The largest size is accepted without taking memory for it.
    EXPECT_EQ(zul_out_setChunkSize(writer, 2147483646), OK);
    EXPECT_EQ(zul_out_setChunkSize(writer, 3), OK);
    EXPECT_EQ(zul_out_setChunkSize(writer, 0), ARG);
    EXPECT_EQ(writePoints(writer, cloud, 0, 1), OK);
    EXPECT_EQ(zul_out_setChunkSize(writer, 5), IS);
    EXPECT_EQ(zul_out_setChunkSize(writer, 0), IS);
    EXPECT_EQ(writePoints(writer, cloud, 1, 6), OK);
    EXPECT_EQ(zul_out_close(&writer), OK);
    EXPECT_EQ(readFile(file), expectedFile(cloud, 3));
}

// Arrays for the largest chunk size are not made at once: they grow, keeping their points, as
// the first chunk fills.
TEST_F(WriterTest, HugeChunkSizeGrowsItsArraysAsPointsArrive) {
    const PointCloud cloud = randomCloud(zul_out_ContextStruct::kUpFrontPoints + 10, 9);
    writeCloud(path("huge.zul"), kType, nullptr, 2147483646, cloud);
    EXPECT_EQ(readFile(path("huge.zul")), expectedFile(cloud, cloud.size()));
}

// A normal too short to normalise shows at the flush: the chunk is lost, the chunks before it
// stay in the file, and the writer is failed, which close does not report again. In the last
// chunk, close reports it, after the signature and the file header went out.
TEST_F(WriterTest, BadNormalFailsTheWriterAndKeepsWhatWasWritten) {
    const zul_DataType withNormals = makeDataType(0.001f, zul_COLOR_NONE, 0, true);
    PointCloud cloud = randomCloud(8, 6);
    cloud.normals[3 * 6 + 0] = cloud.normals[3 * 6 + 1] = cloud.normals[3 * 6 + 2] = 0.0f;
    const std::string file = path("normal.zul");
    zul_out_Context writer = nullptr;
    ASSERT_EQ(openWriter(&writer, file, withNormals), OK);
    ASSERT_EQ(zul_out_setChunkSize(writer, 4), OK);
    EXPECT_EQ(writePoints(writer, cloud, 0, 7), OK);  // the zero normal is taken
    EXPECT_EQ(writePoints(writer, cloud, 7, 1), ARG);
    EXPECT_EQ(writePoints(writer, cloud, 0, 1), IS);
    EXPECT_EQ(zul_out_setChunkSize(writer, 4), IS);
    EXPECT_EQ(zul_out_close(&writer), OK);
    std::vector<PointCloud> firstChunk = {sliceOf(cloud, 0, 4)};
    EXPECT_EQ(readFile(file), fileBytes(encodeStream(withNormals, nullptr, firstChunk)));

    ASSERT_EQ(openWriter(&writer, file, withNormals), OK);
    EXPECT_EQ(writePoints(writer, cloud, 5, 2), OK);
    EXPECT_EQ(zul_out_close(&writer), ARG);
    EXPECT_EQ(writer, nullptr);
    EXPECT_EQ(readFile(file).size(), 36u);
}

TEST_F(WriterTest, RefusedRecordsLeaveNoContextAndTouchNoFile) {
    const std::string file = path("kept.zul");
    writeFile(file, "old content");
    zul_DataType badStep = kType;
    badStep.quantizationStep = 0.0f;
    zul_Header2 badHeader;
    zul_init_headers(nullptr, &badHeader);
    badHeader.hasUnsupportedScaling = true;
    struct Refusal {
        const char* path;
        const zul_DataType* dataType;
        const zul_Header2* header;
    } const refusals[] = {{nullptr, &kType, nullptr},
                          {file.c_str(), nullptr, nullptr},
                          {file.c_str(), &badStep, nullptr},
                          {file.c_str(), &kType, &badHeader}};
    for (const Refusal& r : refusals) {
        zul_out_Context writer = reinterpret_cast<zul_out_Context>(&badStep);
        EXPECT_EQ(zul_out_open2(&writer, r.path, r.dataType, r.header), ARG);
        EXPECT_EQ(writer, nullptr);
    }
    zul_out_Context wide = reinterpret_cast<zul_out_Context>(&badStep);
    EXPECT_EQ(zul_out_open2_w(&wide, nullptr, &kType, nullptr), ARG);
    EXPECT_EQ(wide, nullptr);
    EXPECT_EQ(zul_out_open(nullptr, file.c_str(), &kType), ARG);
    EXPECT_EQ(readFile(file), "old content");
}

TEST_F(WriterTest, PathThatCannotBeCreatedLeavesAClosedWriter) {
    writeFile(path("plain"), "x");
    const std::string paths[] = {path("missing/cloud.zul"), folder.string(),
                                 path("plain/cloud.zul"), ""};
    for (const std::string& file : paths) {
        zul_out_Context writer = nullptr;
        EXPECT_EQ(zul_out_open(&writer, file.c_str(), &kType), zul_STATUS_WRITE_ERROR) << file;
        ASSERT_NE(writer, nullptr);
        const zul_Point p = {};
        EXPECT_EQ(zul_out_writePoint(writer, &p), IS);
        EXPECT_EQ(zul_out_writePoint(writer, nullptr), IS);
        EXPECT_EQ(zul_out_setChunkSize(writer, 5), IS);
        EXPECT_EQ(zul_out_close(&writer), OK);
        EXPECT_EQ(writer, nullptr);
    }
    EXPECT_FALSE(std::filesystem::exists(path("missing")));
}

// Open replaces an existing file at once.
TEST_F(WriterTest, NullArguments) {
    const std::string file = path("old.zul");
    writeFile(file, "an older file of some length");
    zul_out_Context writer = nullptr;
    ASSERT_EQ(openWriter(&writer, file), OK);
    EXPECT_EQ(std::filesystem::file_size(file), 0u);
    EXPECT_EQ(zul_out_writePoint(writer, nullptr), ARG);
    const zul_Point p = {};
    EXPECT_EQ(zul_out_writePoint(nullptr, &p), ARG);
    EXPECT_EQ(zul_out_close(nullptr), ARG);
    EXPECT_EQ(zul_out_close(&writer), OK);
    EXPECT_EQ(zul_out_close(&writer), OK);  // on a variable that holds null
}

// A device that refuses every byte: the failure shows at the first write that reaches it, from
// writePoint when a chunk overflows the stream's buffer, else from close.
TEST_F(WriterTest, FailedWritesAreReportedOnce) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    const PointCloud cloud = randomCloud(1, 8);
    zul_out_Context writer = nullptr;
    ASSERT_EQ(zul_out_open(&writer, "/dev/full", &kType), OK);
    EXPECT_EQ(writePoints(writer, cloud, 0, 1), OK);
    EXPECT_EQ(zul_out_close(&writer), zul_STATUS_WRITE_ERROR);

    const PointCloud many = randomCloud(30000, 8);
    ASSERT_EQ(zul_out_open(&writer, "/dev/full", &kType), OK);
    EXPECT_EQ(writePoints(writer, many, 0, many.size()), zul_STATUS_WRITE_ERROR);
    EXPECT_EQ(writePoints(writer, many, 0, 1), IS);
    EXPECT_EQ(zul_out_close(&writer), OK);
}

}  // namespace

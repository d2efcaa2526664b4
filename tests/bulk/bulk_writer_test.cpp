// The bulk writer: chunks given over several calls make the bytes of one call on any number of
// threads, a given marker makes them reproducible, a published file appears whole or not at all,
// an abort removes only the writer's own temporary file, and what the writer refuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"

using namespace bulktest;

namespace {

struct Writer {
    ~Writer() { zul_bulk_abortWriter(&writer); }
    zul_bulk_Writer writer = nullptr;
};

const char kMarker[ZUL_SYNC_MARKER_SIZE + 1] = "reproducible-16b";

class BulkWriterTest : public TempFolderTest {
protected:
    // The names in the test's folder.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            found.push_back(entry.path().filename().string());
        std::sort(found.begin(), found.end());
        return found;
    }
    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB565, 0, true);
    Arrays cloud = makeCloud(type, 3000, 11);
};

// Writes the cloud in the chunks given, `perCall` chunks a call; with `order`, each chunk's
// stored order is asked for too.
zul_Status writeCloud(const std::string& file, const zul_DataType& type, Arrays& cloud,
                      const std::vector<int32_t>& chunks, size_t perCall, int threads, int mode,
                      const char* marker, uint32_t* order = nullptr) {
    Writer w;
    zul_Status status =
        zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, marker, threads, mode);
    int64_t first = 0;
    for (size_t k = 0; k < chunks.size() && status == zul_STATUS_OK; k += perCall) {
        const size_t count = std::min(perCall, chunks.size() - k);
        zul_bulk_Points part = cloud.view();
        int64_t points = 0;
        for (size_t c = k; c < k + count; ++c) points += chunks[c];
        part.numPoints = points;
        part.positions += 3 * first;
        part.colors += 3 * first;
        part.normals += 3 * first;
        status = zul_bulk_writeChunksOrdered(w.writer, &part, chunks.data() + k,
                                             static_cast<int64_t>(count),
                                             order ? order + first : nullptr, nullptr);
        first += points;
    }
    const zul_Status closed = zul_bulk_closeWriter(&w.writer);
    return status != zul_STATUS_OK ? status : closed;
}

TEST_F(BulkWriterTest, GivenMarkerGivesTheSameBytesForAnyCallsAndThreads) {
    const std::vector<int32_t> chunks = {700, 1, 999, 300, 1000};
    const std::string reference = path("reference.zul");
    ASSERT_EQ(writeCloud(reference, type, cloud, chunks, chunks.size(), 1, ZUL_BULK_WRITE_REPLACE,
                         kMarker),
              zul_STATUS_OK);
    const std::string expected = readFile(reference);
    EXPECT_EQ(expected.substr(ZUL_SIGNATURE_SIZE + ZUL_FILE_HEADER_SIZE_V1 - ZUL_SYNC_MARKER_SIZE,
                              ZUL_SYNC_MARKER_SIZE),
              kMarker);
    for (size_t perCall : {size_t{1}, size_t{2}})
        for (int threads : {0, 3})
            for (int mode : {ZUL_BULK_WRITE_REPLACE, ZUL_BULK_WRITE_PUBLISH}) {
                // Asking for the stored order changes no byte; each chunk's is a permutation.
                const std::string file = path("again.zul");
                std::vector<uint32_t> order(3000, UINT32_MAX);
                ASSERT_EQ(writeCloud(file, type, cloud, chunks, perCall, threads, mode, kMarker,
                                     mode == ZUL_BULK_WRITE_PUBLISH ? order.data() : nullptr),
                          zul_STATUS_OK);
                EXPECT_TRUE(readFile(file) == expected) << perCall << " " << threads << " " << mode;
                size_t first = 0;
                for (int32_t size : chunks) {
                    if (mode != ZUL_BULK_WRITE_PUBLISH) break;
                    std::vector<uint32_t> numbers(order.begin() + first,
                                                  order.begin() + first + size);
                    std::sort(numbers.begin(), numbers.end());
                    for (int32_t k = 0; k < size; ++k)
                        ASSERT_EQ(numbers[k], static_cast<uint32_t>(k)) << first;
                    first += size;
                }
            }
    // zul_bulk_encodeFile draws its marker; given that marker, the writer makes its bytes.
    zul_test_useFixedRandomSeed(true, 77);
    const zul_bulk_Points all = cloud.view();
    ASSERT_EQ(zul_bulk_encodeFile(reference.c_str(), &type, nullptr, &all, chunks.data(),
                                  static_cast<int64_t>(chunks.size()), 0, 2, nullptr),
              zul_STATUS_OK);
    zul_test_useFixedRandomSeed(false, 0);
    const std::string drawn = readFile(reference);
    const std::string marker = drawn.substr(
        ZUL_SIGNATURE_SIZE + ZUL_FILE_HEADER_SIZE_V1 - ZUL_SYNC_MARKER_SIZE, ZUL_SYNC_MARKER_SIZE);
    const std::string file = path("drawn.zul");
    ASSERT_EQ(writeCloud(file, type, cloud, chunks, 2, 2, ZUL_BULK_WRITE_REPLACE, marker.data()),
              zul_STATUS_OK);
    EXPECT_TRUE(readFile(file) == drawn);
}

TEST_F(BulkWriterTest, PublishesWholeOrLeavesThePathAlone) {
    const std::string file = path("cloud.zul");
    writeFile(file, "old contents");
    const std::vector<int32_t> chunks = {1000, 1000, 1000};
    {
        Writer w;
        ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, nullptr, 2,
                                      ZUL_BULK_WRITE_PUBLISH),
                  zul_STATUS_OK);
        zul_bulk_Points points = cloud.view();
        ASSERT_EQ(zul_bulk_writeChunks(w.writer, &points, chunks.data(), 3, nullptr),
                  zul_STATUS_OK);
        // Until the close, the path keeps what it held, beside one temporary file.
        EXPECT_EQ(readFile(file), "old contents");
        EXPECT_EQ(names().size(), 2u);
        zul_bulk_abortWriter(&w.writer);
        EXPECT_EQ(w.writer, nullptr);
    }
    EXPECT_EQ(names(), std::vector<std::string>{"cloud.zul"});
    EXPECT_EQ(readFile(file), "old contents");

    // A failed chunk fails the writer: closing publishes nothing and removes the temporary file.
    Arrays bad = cloud;
    bad.normals[3 * 1500] = bad.normals[3 * 1500 + 1] = bad.normals[3 * 1500 + 2] = 0.0f;
    Writer w;
    ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, nullptr, 2,
                                  ZUL_BULK_WRITE_PUBLISH),
              zul_STATUS_OK);
    zul_bulk_Points points = bad.view();
    int64_t failed = -2;
    EXPECT_EQ(zul_bulk_writeChunks(w.writer, &points, chunks.data(), 3, &failed),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(failed, 1);
    EXPECT_EQ(zul_bulk_writeChunks(w.writer, &points, chunks.data(), 3, nullptr),
              zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(names(), std::vector<std::string>{"cloud.zul"});
    EXPECT_EQ(readFile(file), "old contents");
}

// In place, an abort leaves the chunks written whole: a valid stream of them.
TEST_F(BulkWriterTest, AbortInPlaceKeepsTheChunksWritten) {
    const std::string file = path("in_place.zul");
    writeFile(file, std::string(1 << 20, '\xff'));  // a longer file it replaces
    Writer w;
    ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, nullptr, 1,
                                  ZUL_BULK_WRITE_REPLACE),
              zul_STATUS_OK);
    zul_bulk_Points points = cloud.view();
    points.numPoints = 1000;
    const int32_t size = 1000;
    ASSERT_EQ(zul_bulk_writeChunks(w.writer, &points, &size, 1, nullptr), zul_STATUS_OK);
    zul_bulk_abortWriter(&w.writer);
    IndexHandle handle;
    ASSERT_EQ(zul_idx_openFile(&handle.index, file.c_str(), nullptr), zul_STATUS_OK);
    int64_t numPoints = 0;
    zul_Status damage = zul_STATUS_CORRUPT_DATA;
    ASSERT_EQ(zul_idx_getCounts(handle.index, nullptr, &numPoints), zul_STATUS_OK);
    ASSERT_EQ(zul_idx_getDamage(handle.index, &damage, nullptr, nullptr), zul_STATUS_OK);
    EXPECT_EQ(numPoints, 1000);
    EXPECT_EQ(damage, zul_STATUS_OK);
}

// Writers of one path at once, each on threads of its own: every writer succeeds and the path
// holds one of their streams whole.
TEST_F(BulkWriterTest, WritersOfOnePathEachPublishTheirOwnFile) {
    const std::string file = path("shared.zul");
    const std::vector<int32_t> chunks = {1500, 1500};
    const char* markers[4] = {"writer-number-00", "writer-number-01", "writer-number-02",
                              "writer-number-03"};
    zul_Status statuses[4];
    std::vector<std::thread> writers;
    for (int k = 0; k < 4; ++k)
        writers.emplace_back([&, k] {
            statuses[k] =
                writeCloud(file, type, cloud, chunks, 1, 2, ZUL_BULK_WRITE_PUBLISH, markers[k]);
        });
    for (std::thread& t : writers) t.join();
    for (zul_Status status : statuses) EXPECT_EQ(status, zul_STATUS_OK);
    EXPECT_EQ(names(), std::vector<std::string>{"shared.zul"});
    const std::string published = readFile(file);
    int matches = 0;
    for (const char* marker : markers) {
        const std::string one = path(std::string("one_") + marker);
        ASSERT_EQ(writeCloud(one, type, cloud, chunks, 2, 1, ZUL_BULK_WRITE_REPLACE, marker),
                  zul_STATUS_OK);
        matches += readFile(one) == published;
    }
    EXPECT_EQ(matches, 1);
}

TEST_F(BulkWriterTest, RefusesBadArguments) {
    const std::string file = path("refused.zul");
    zul_DataType badType = type;
    badType.reserved[0] = 1;
    // Opens a writer (into a handle unless `withHandle` is false) and gives it up again.
    const auto open = [&](bool withHandle, const char* p, const zul_DataType* t, int threads,
                          int mode) {
        Writer w;
        return zul_bulk_openWriter(withHandle ? &w.writer : nullptr, p, t, nullptr, nullptr,
                                   threads, mode);
    };
    const std::string missing = path("no/such/folder.zul");
    EXPECT_EQ(open(false, file.c_str(), &type, 1, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(open(true, nullptr, &type, 1, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(open(true, file.c_str(), &badType, 1, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(open(true, file.c_str(), &type, -1, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(open(true, file.c_str(), &type, 1, 2), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_TRUE(names().empty());  // no file touched
    EXPECT_EQ(open(true, missing.c_str(), &type, 1, ZUL_BULK_WRITE_REPLACE),
              zul_STATUS_WRITE_ERROR);
    EXPECT_EQ(open(true, missing.c_str(), &type, 1, ZUL_BULK_WRITE_PUBLISH),
              zul_STATUS_WRITE_ERROR);

    Writer w;
    ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, nullptr, 1,
                                  ZUL_BULK_WRITE_REPLACE),
              zul_STATUS_OK);
    zul_bulk_Points points = cloud.view();
    zul_bulk_Points noNormals = points;
    noNormals.normals = nullptr;
    const int32_t sizes[] = {1000, 2000};
    const int32_t wrongSum[] = {1000, 1999};
    const int32_t zero[] = {0, 3000};
    struct Call {
        const char* name;
        zul_bulk_Writer writer;
        const zul_bulk_Points* points;
        const int32_t* sizes;
        int64_t count;
    } calls[] = {{"null writer", nullptr, &points, sizes, 2},
                 {"null points", w.writer, nullptr, sizes, 2},
                 {"null sizes", w.writer, &points, nullptr, 2},
                 {"negative count", w.writer, &points, sizes, -1},
                 {"missing array", w.writer, &noNormals, sizes, 2},
                 {"sizes short of the points", w.writer, &points, wrongSum, 2},
                 {"empty chunk", w.writer, &points, zero, 2},
                 {"points but no chunk", w.writer, &points, sizes, 0}};
    for (const Call& c : calls)
        EXPECT_EQ(zul_bulk_writeChunks(c.writer, c.points, c.sizes, c.count, nullptr),
                  zul_STATUS_INVALID_ARGUMENT)
            << c.name;
    // Refused arguments leave the writer going.
    EXPECT_EQ(zul_bulk_writeChunks(w.writer, &points, sizes, 2, nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);
    EXPECT_EQ(zul_bulk_closeWriter(nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);  // null handle
}

}  // namespace

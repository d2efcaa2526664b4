// Chunks encoded before and appended by the bulk writer: the same file and stored order as the
// writer encoding the same chunks, whatever marker and sensor header the chunks' encoder had, and
// what is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bulk/bulk_support.h"
#include "support/temp_folder.h"

using namespace bulktest;

namespace {

const char kMarker[ZUL_SYNC_MARKER_SIZE + 1] = "appended-chunks!";

struct Writer {
    ~Writer() { zul_bulk_abortWriter(&writer); }
    zul_bulk_Writer writer = nullptr;
};

class EncodedChunksTest : public TempFolderTest {
protected:
    // The chunks of `sizes` of the cloud, each encoded alone by an encoder of its own marker.
    std::vector<std::string> encodeApart(const zul_DataType& of, const zul_Header2* header) {
        zul_enc_Context encoder = nullptr;
        EXPECT_EQ(zul_enc_open2(&encoder, &of, header), zul_STATUS_OK);
        std::vector<std::string> chunks;
        int64_t first = 0;
        for (int32_t size : sizes) {
            const size_t k = static_cast<size_t>(first);
            zul_PointData data = {size, cloud.positions.data() + 3 * k, cloud.colors.data() + 3 * k,
                                  cloud.reflections.data() + k, nullptr};
            const char* bytes = nullptr;
            int count = 0;
            EXPECT_EQ(zul_enc_encodeChunk(encoder, &bytes, &count, &data), zul_STATUS_OK);
            chunks.emplace_back(bytes, static_cast<size_t>(count));
            first += size;
        }
        zul_enc_close(&encoder);
        return chunks;
    }
    static void listOf(const std::vector<std::string>& chunks, std::vector<const char*>& bytes,
                       std::vector<int64_t>& counts) {
        for (const std::string& chunk : chunks) {
            bytes.push_back(chunk.data());
            counts.push_back(static_cast<int64_t>(chunk.size()));
        }
    }

    const zul_DataType type = makeDataType(0.001f, zul_COLOR_RGB888, 4000, false);
    const std::vector<int32_t> sizes = {700, 1, 999, 300, 1000};
    Arrays cloud = makeCloud(type, 3000, 5);
};

TEST_F(EncodedChunksTest, AppendedChunksGiveTheFileOfEncodingThem) {
    const zul_Header2 turning = turningHeader();
    for (const zul_Header2* header : {static_cast<const zul_Header2*>(nullptr), &turning}) {
        const std::string reference = path("reference.zul"), appended = path("appended.zul");
        Writer w;
        ASSERT_EQ(zul_bulk_openWriter(&w.writer, reference.c_str(), &type, header, kMarker, 2,
                                      ZUL_BULK_WRITE_REPLACE),
                  zul_STATUS_OK);
        zul_bulk_Points points = cloud.view();
        std::vector<uint32_t> expectedOrder(3000), order(3000, UINT32_MAX);
        ASSERT_EQ(zul_bulk_writeChunksOrdered(w.writer, &points, sizes.data(), 5,
                                              expectedOrder.data(), nullptr),
                  zul_STATUS_OK);
        ASSERT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);

        // The encoder's marker and header are not the stream's; two calls, the first of one chunk.
        const std::vector<std::string> chunks = encodeApart(type, nullptr);
        std::vector<const char*> bytes;
        std::vector<int64_t> counts;
        listOf(chunks, bytes, counts);
        ASSERT_EQ(zul_bulk_openWriter(&w.writer, appended.c_str(), &type, header, kMarker, 1,
                                      ZUL_BULK_WRITE_REPLACE),
                  zul_STATUS_OK);
        int64_t failed = 7;
        EXPECT_EQ(zul_bulk_writeEncodedChunks(w.writer, bytes.data(), counts.data(), 1, &failed),
                  zul_STATUS_OK);
        EXPECT_EQ(failed, -1);
        // The rest with their stored order, worked out from their points.
        zul_bulk_Points rest = points;
        rest.numPoints -= sizes[0];
        rest.positions += 3 * sizes[0];
        rest.colors += 3 * sizes[0];
        rest.reflections += sizes[0];
        EXPECT_EQ(zul_bulk_writeEncodedChunksOrdered(w.writer, bytes.data() + 1, counts.data() + 1,
                                                     4, &rest, order.data() + sizes[0], nullptr),
                  zul_STATUS_OK);
        EXPECT_TRUE(
            std::equal(order.begin() + sizes[0], order.end(), expectedOrder.begin() + sizes[0]));
        ASSERT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);
        EXPECT_EQ(readFile(appended), readFile(reference)) << (header ? "version 2" : "version 1");
    }
}

TEST_F(EncodedChunksTest, RefusesChunksThatDoNotFitTheirFrontOrType) {
    const std::vector<std::string> chunks = encodeApart(type, nullptr);
    const zul_DataType noReflection = makeDataType(0.001f, zul_COLOR_RGB888, 0, false);
    const std::string file = path("refused.zul");
    Writer w;
    ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &noReflection, nullptr, kMarker, 1,
                                  ZUL_BULK_WRITE_REPLACE),
              zul_STATUS_OK);
    const std::string head = readFile(file);
    std::vector<const char*> bytes;
    std::vector<int64_t> counts;
    listOf(chunks, bytes, counts);
    std::vector<int64_t> shorter = counts, longer = counts;
    shorter[4] -= 1;
    longer[2] += 1;
    std::string noPoints = chunks[0];
    noPoints.replace(ZUL_SYNC_MARKER_SIZE + 48, 4, 4, '\0');
    const char* noPointsList[] = {noPoints.data()};
    const int64_t tiny[] = {10};
    const struct {
        const char* name;
        zul_bulk_Writer writer;
        const char* const* chunks;
        const int64_t* counts;
        int64_t n;
    } calls[] = {{"null writer", nullptr, bytes.data(), counts.data(), 5},
                 {"null chunks", w.writer, nullptr, counts.data(), 5},
                 {"null sizes", w.writer, bytes.data(), nullptr, 5},
                 {"negative count", w.writer, bytes.data(), counts.data(), -1},
                 {"a chunk of another type", w.writer, bytes.data(), counts.data(), 5},
                 {"smaller than its front", w.writer, bytes.data(), tiny, 1},
                 {"no points", w.writer, noPointsList, counts.data(), 1}};
    for (const auto& c : calls)
        EXPECT_EQ(zul_bulk_writeEncodedChunks(c.writer, c.chunks, c.counts, c.n, nullptr),
                  zul_STATUS_INVALID_ARGUMENT)
            << c.name;
    ASSERT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);
    EXPECT_EQ(readFile(file), head);  // nothing written

    ASSERT_EQ(zul_bulk_openWriter(&w.writer, file.c_str(), &type, nullptr, kMarker, 1,
                                  ZUL_BULK_WRITE_REPLACE),
              zul_STATUS_OK);
    for (const std::vector<int64_t>* wrong : {&shorter, &longer})
        EXPECT_EQ(zul_bulk_writeEncodedChunks(w.writer, bytes.data(), wrong->data(), 5, nullptr),
                  zul_STATUS_INVALID_ARGUMENT);
    // The points for the order must be those the chunks hold, with every array.
    std::vector<uint32_t> order(3000);
    zul_bulk_Points points = cloud.view(), fewer = points, noColor = points;
    fewer.numPoints -= 1;
    noColor.colors = nullptr;
    for (const zul_bulk_Points* wrong :
         {static_cast<const zul_bulk_Points*>(nullptr), static_cast<const zul_bulk_Points*>(&fewer),
          static_cast<const zul_bulk_Points*>(&noColor)})
        EXPECT_EQ(zul_bulk_writeEncodedChunksOrdered(w.writer, bytes.data(), counts.data(), 5,
                                                     wrong, order.data(), nullptr),
                  zul_STATUS_INVALID_ARGUMENT);
    // The writer goes on.
    EXPECT_EQ(zul_bulk_writeEncodedChunks(w.writer, bytes.data(), counts.data(), 5, nullptr),
              zul_STATUS_OK);
    EXPECT_EQ(zul_bulk_closeWriter(&w.writer), zul_STATUS_OK);
}

}  // namespace

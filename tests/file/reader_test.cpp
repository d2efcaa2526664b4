// The file reader on whole, cut and damaged files: what each read and each count returns, and
// that counting never changes what reading delivers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "file/in_context.h"
#include "support/file_stream.h"

namespace {

const zul_DataType kType = makeDataType(0.001f, zul_COLOR_RGB888, 255, false);
const int kHeadSize = 8 + 28;  // signature and version 1 file header

// A small stream of three chunks: 4, 4 and 2 points.
EncodedStream threeChunks() {
    std::vector<PointCloud> chunks = chunksOf(randomCloud(10, 21), 4);
    return encodeStream(kType, nullptr, chunks);
}

bool samePoint(const zul_Point& a, const zul_Point& b) {
    return std::memcmp(a.position, b.position, sizeof a.position) == 0 &&
           std::memcmp(a.color, b.color, sizeof a.color) == 0 && a.reflection == b.reflection &&
           std::memcmp(a.normal, b.normal, sizeof a.normal) == 0;
}

// What reading a file gives: its points and the status that ended the reading.
struct Reading {
    std::vector<zul_Point> points;
    zul_Status end = zul_STATUS_OK;
};

// Reads to the first status other than OK; `countAfter` points in, the file's points are counted
// (-1: never) into `count`, and the count's status into `countStatus`.
Reading readAll(zul_in_Context reader, int countAfter = -1, int64_t* count = nullptr,
                zul_Status* countStatus = nullptr) {
    Reading reading;
    for (;;) {
        if (static_cast<int>(reading.points.size()) == countAfter) {
            *countStatus = zul_in_getNumPoints(reader, count);
        }
        zul_Point p = {};
        reading.end = zul_in_readNextPoint(reader, &p);
        if (reading.end != zul_STATUS_OK) return reading;
        reading.points.push_back(p);
    }
}

class ReaderTest : public FileTest {
protected:
    // Writes `bytes` to a file and opens a reader on it.
    zul_Status open(const Bytes& bytes, const zul_dec_Params* params = nullptr) {
        const std::string file = path("read.zul");
        writeFile(file, bytes);
        zul_in_close(&reader);
        return zul_in_open2(&reader, &dataType, nullptr, file.c_str(), params);
    }
    void TearDown() override {
        zul_in_close(&reader);
        FileTest::TearDown();
    }
    // The points of the whole, undamaged stream.
    std::vector<zul_Point> allPoints(const EncodedStream& stream) {
        EXPECT_EQ(open(fileBytes(stream)), zul_STATUS_OK);
        const Reading whole = readAll(reader);
        EXPECT_EQ(whole.end, zul_STATUS_END_OF_FILE);
        return whole.points;
    }

    zul_in_Context reader = nullptr;
    zul_DataType dataType = {};
};

void expectPrefix(const std::vector<zul_Point>& got, const std::vector<zul_Point>& all) {
    ASSERT_LE(got.size(), all.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(samePoint(got[i], all[i])) << i;
}

// At every length of a three-chunk file: the open, the reading and the count say exactly where
// the file was cut. A cut at a chunk boundary is a clean, shorter file; a cut in a body is found
// only by reading it, since a count skips bodies.
TEST_F(ReaderTest, CutAtEveryByte) {
    const EncodedStream stream = threeChunks();
    const Bytes whole = fileBytes(stream);
    const std::vector<zul_Point> all = allPoints(stream);
    ASSERT_EQ(all.size(), 10u);
    const size_t chunkHeaderSize = stream.chunkHeaders[0].size();
    std::vector<size_t> chunkStart = {kHeadSize};
    for (size_t i = 0; i < 3; ++i) {
        chunkStart.push_back(chunkStart.back() + 16 + chunkHeaderSize + stream.bodies[i].size());
    }
    ASSERT_EQ(chunkStart.back(), whole.size());
    const int chunkPoints[] = {4, 4, 2};

    for (size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE("cut after " + std::to_string(length) + " bytes");
        const Bytes cut = whole.substr(0, length);
        if (length < kHeadSize) {
            EXPECT_EQ(open(cut), zul_STATUS_TRUNCATED);
            continue;
        }
        size_t chunk = 0;  // the chunk the cut falls in, or the one after the last complete one
        while (chunk < 3 && chunkStart[chunk + 1] <= length) ++chunk;
        const size_t into = length - chunkStart[chunk];
        size_t complete = 0;
        for (size_t i = 0; i < chunk; ++i) complete += static_cast<size_t>(chunkPoints[i]);
        const bool boundary = into == 0;
        const bool inBody = into >= 16 + chunkHeaderSize;

        ASSERT_EQ(open(cut), zul_STATUS_OK);
        Reading reading = readAll(reader);
        EXPECT_EQ(reading.points.size(), complete);
        EXPECT_EQ(reading.end, boundary ? zul_STATUS_END_OF_FILE : zul_STATUS_TRUNCATED);
        expectPrefix(reading.points, all);

        ASSERT_EQ(open(cut), zul_STATUS_OK);
        int64_t count = -1;
        zul_Status counted = zul_STATUS_OK;
        reading = readAll(reader, 0, &count, &counted);
        if (boundary || inBody) {
            EXPECT_EQ(counted, zul_STATUS_OK);
            EXPECT_EQ(count, static_cast<int64_t>(complete) + (inBody ? chunkPoints[chunk] : 0));
            EXPECT_EQ(reading.points.size(), complete);
            EXPECT_EQ(reading.end, boundary ? zul_STATUS_END_OF_FILE : zul_STATUS_TRUNCATED);
            expectPrefix(reading.points, all);
        } else {
            EXPECT_EQ(counted, zul_STATUS_TRUNCATED);
            EXPECT_EQ(count, -1);
            EXPECT_EQ(reading.end, zul_STATUS_INVALID_STATE);
        }
    }
}

// A damaged marker ends the reading at its chunk, whichever byte of it is wrong.
TEST_F(ReaderTest, FlippedSyncMarkerByte) {
    const EncodedStream stream = threeChunks();
    const std::vector<zul_Point> all = allPoints(stream);
    for (size_t chunk : {0u, 2u}) {
        for (int byte : {0, 7, 15}) {
            SCOPED_TRACE("chunk " + std::to_string(chunk) + " byte " + std::to_string(byte));
            EncodedStream damaged = stream;
            damaged.markers[chunk][byte] ^= 0x10;
            ASSERT_EQ(open(fileBytes(damaged)), zul_STATUS_OK);
            const Reading reading = readAll(reader);
            EXPECT_EQ(reading.points.size(), 4 * chunk);
            EXPECT_EQ(reading.end, zul_STATUS_CORRUPT_DATA);
            expectPrefix(reading.points, all);
            zul_Point p;
            EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_INVALID_STATE);

            ASSERT_EQ(open(fileBytes(damaged)), zul_STATUS_OK);
            int64_t count = -1;
            EXPECT_EQ(zul_in_getNumPoints(reader, &count), zul_STATUS_CORRUPT_DATA);
            EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_INVALID_STATE);
        }
    }
}

// Counting before the first point, inside a chunk, at a chunk's last point or at the file's
// last point gives the same count and leaves the points that follow as they were.
TEST_F(ReaderTest, CountAnywhereLeavesReadingUndisturbed) {
    const EncodedStream stream = threeChunks();
    const std::vector<zul_Point> all = allPoints(stream);
    for (int after : {0, 2, 4, 9, 10}) {
        SCOPED_TRACE("count after " + std::to_string(after) + " points");
        ASSERT_EQ(open(fileBytes(stream)), zul_STATUS_OK);
        int64_t count = -1;
        zul_Status counted = zul_STATUS_INVALID_ARGUMENT;
        const Reading reading = readAll(reader, after, &count, &counted);
        EXPECT_EQ(counted, zul_STATUS_OK);
        EXPECT_EQ(count, 10);
        EXPECT_EQ(reading.end, zul_STATUS_END_OF_FILE);
        ASSERT_EQ(reading.points.size(), all.size());
        expectPrefix(reading.points, all);
    }
}

// Stream sizes in the first chunk header, coordinates first.
Bytes withStreamSizes(const EncodedStream& stream, uint32_t coordinates, uint32_t colors) {
    EncodedStream damaged = stream;
    unsigned char* header = reinterpret_cast<unsigned char*>(&damaged.chunkHeaders[0][0]);
    zullib::storeLE(header + 52, coordinates, 4);
    zullib::storeLE(header + 56, colors, 4);
    return fileBytes(damaged);
}

// A body size damaged to almost 2 GiB in a file of a few hundred bytes: reading finds the cut
// without making room for the size first; counting seeks past the end, which is no failure.
// Sizes that add up to 2^31 or more would be a negative body size: refused, never sought.
TEST_F(ReaderTest, DamagedStreamSizes) {
    const struct {
        uint32_t coordinates, colors;
        zul_Status read, counted;
    } cases[] = {{0x7F000000u, 10, zul_STATUS_TRUNCATED, zul_STATUS_OK},
                 {0x80000000u, 0, zul_STATUS_CORRUPT_DATA, zul_STATUS_CORRUPT_DATA},
                 {0x7FFFFFFFu, 1, zul_STATUS_CORRUPT_DATA, zul_STATUS_CORRUPT_DATA},
                 {0xFFFFFFF0u, 0x20, zul_STATUS_CORRUPT_DATA, zul_STATUS_CORRUPT_DATA}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.coordinates);
        const Bytes damaged = withStreamSizes(threeChunks(), c.coordinates, c.colors);
        ASSERT_EQ(open(damaged), zul_STATUS_OK);
        EXPECT_EQ(readAll(reader).end, c.read);
        EXPECT_LE(reader->chunkBody.size(), size_t{1} << 20);
        ASSERT_EQ(open(damaged), zul_STATUS_OK);
        int64_t count = -1;
        EXPECT_EQ(zul_in_getNumPoints(reader, &count), c.counted);
        EXPECT_EQ(count, c.counted == zul_STATUS_OK ? 4 : -1);
    }
}

// Every failed open leaves a context that accepts nothing but close; a refused file header
// leaves the data type as it was.
TEST_F(ReaderTest, FailedOpens) {
    const Bytes whole = fileBytes(threeChunks());
    Bytes badSignature = whole, badVersion = whole, badHeader = whole;
    badSignature[0] = 'Y';
    badVersion[3] = 3;
    badHeader.replace(8, 4, 4, '\0');  // a quantisation step of 0
    const zul_dec_Params badParams = {2, {0, 0, 0, 0}};
    const std::string file = path("open.zul"), missing = path("missing.zul");
    const struct {
        const char* name;
        Bytes bytes;
        const zul_dec_Params* params;
        zul_Status status;
        const char* path;
    } cases[] = {
        {"empty", "", nullptr, zul_STATUS_TRUNCATED, file.c_str()},
        {"part of the signature", whole.substr(0, 7), nullptr, zul_STATUS_TRUNCATED, file.c_str()},
        {"part of the file header", whole.substr(0, 20), nullptr, zul_STATUS_TRUNCATED,
         file.c_str()},
        {"foreign signature", badSignature, nullptr, zul_STATUS_BAD_SIGNATURE, file.c_str()},
        {"version 3", badVersion, nullptr, zul_STATUS_BAD_VERSION, file.c_str()},
        {"invalid data type", badHeader, nullptr, zul_STATUS_CORRUPT_DATA, file.c_str()},
        {"bad params", whole, &badParams, zul_STATUS_INVALID_ARGUMENT, file.c_str()},
        {"missing file", whole, nullptr, zul_STATUS_READ_ERROR, missing.c_str()},
        {"a folder", whole, nullptr, zul_STATUS_READ_ERROR, folder.c_str()},
        {"empty path", whole, nullptr, zul_STATUS_READ_ERROR, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(file, c.bytes);
        zul_DataType untouched;
        std::memset(&untouched, 0x5A, sizeof untouched);
        dataType = untouched;
        EXPECT_EQ(zul_in_open2(&reader, &dataType, nullptr, c.path, c.params), c.status);
        EXPECT_EQ(std::memcmp(&dataType, &untouched, sizeof dataType), 0);
        ASSERT_NE(reader, nullptr);
        int64_t count = 0;
        zul_Point p;
        EXPECT_EQ(zul_in_getNumPoints(reader, &count), zul_STATUS_INVALID_STATE);
        EXPECT_EQ(zul_in_readNextPoint(reader, &p), zul_STATUS_INVALID_STATE);
        zul_in_close(&reader);
        EXPECT_EQ(reader, nullptr);
        zul_in_close(&reader);
    }
}

TEST_F(ReaderTest, NullArguments) {
    const zul_Status ARG = zul_STATUS_INVALID_ARGUMENT;
    const std::string file = path("null.zul");
    writeFile(file, fileBytes(threeChunks()));
    EXPECT_EQ(zul_in_open(nullptr, &dataType, file.c_str()), ARG);
    EXPECT_EQ(zul_in_open(&reader, nullptr, file.c_str()), ARG);
    ASSERT_NE(reader, nullptr);
    zul_in_close(&reader);
    EXPECT_EQ(zul_in_open(&reader, &dataType, nullptr), ARG);
    zul_in_close(&reader);
    EXPECT_EQ(zul_in_open_w(&reader, &dataType, nullptr), ARG);
    zul_in_close(&reader);
    ASSERT_EQ(zul_in_open(&reader, &dataType, file.c_str()), zul_STATUS_OK);
    zul_Point p;
    int64_t count = 0;
    EXPECT_EQ(zul_in_readNextPoint(nullptr, &p), ARG);
    EXPECT_EQ(zul_in_readNextPoint(reader, nullptr), ARG);
    EXPECT_EQ(zul_in_getNumPoints(nullptr, &count), ARG);
    EXPECT_EQ(zul_in_getNumPoints(reader, nullptr), ARG);
    EXPECT_EQ(readAll(reader).points.size(), 10u) << "none of these ended the reader";
    zul_in_close(nullptr);
}

// The decoder parameters pass through: a version 2 file reads in the stored frame with
// applyTransformation 0 and moved by its matrix with 1, as the in-memory decoder gives them.
TEST_F(ReaderTest, ParamsReachTheDecoder) {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.hasTranslation = true;
    header.transformation[12] = 100.0;
    std::vector<PointCloud> chunks = {randomCloud(5, 2)};
    const EncodedStream stream = encodeStream(kType, &header, chunks);
    for (int apply : {0, 1}) {
        const zul_dec_Params params = {apply, {0, 0, 0, 0}};
        ASSERT_EQ(open(fileBytes(stream), &params), zul_STATUS_OK);
        Decoder decoder;
        decoder.start(stream, apply);
        ASSERT_EQ(decoder.chunk(stream, 0), zul_STATUS_OK);
        const Reading reading = readAll(reader);
        ASSERT_EQ(reading.points.size(), 5u);
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(std::memcmp(reading.points[i].position, decoder.points.positions + 3 * i, 24),
                      0);
    }
}

}  // namespace

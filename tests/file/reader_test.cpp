// The file reader on whole, cut and damaged files: what each read and each count returns, and
// that counting never changes what reading delivers.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "file/in_context.h"
#include "support/file_stream.h"

namespace {

const zul_DataType kType = makeDataType(0.001f, zul_COLOR_RGB888, 255, false);
const size_t kHeadSize = 8 + 28;  // signature and version 1 file header
const zul_Status OK = zul_STATUS_OK, END = zul_STATUS_END_OF_FILE, CUT = zul_STATUS_TRUNCATED,
                 BAD = zul_STATUS_CORRUPT_DATA, IS = zul_STATUS_INVALID_STATE,
                 ARG = zul_STATUS_INVALID_ARGUMENT;

// A small stream of three chunks: 4, 4 and 2 points.
EncodedStream threeChunks() {
    std::vector<PointCloud> chunks = chunksOf(randomCloud(10, 21), 4);
    return encodeStream(kType, nullptr, chunks);
}

// What reading a file gives: the positions and reflections of its points, and the status that
// ended the reading.
struct Reading {
    std::vector<double> points;
    zul_Status end = OK;
    size_t size() const { return points.size() / 4; }
};

class ReaderTest : public FileTest {
protected:
    // Writes `bytes` to a file and opens a reader on it.
    zul_Status open(const Bytes& bytes, const zul_dec_Params* params = nullptr) {
        writeFile(path("read.zul"), bytes);
        zul_in_close(&reader);
        return zul_in_open2(&reader, &dataType, nullptr, path("read.zul").c_str(), params);
    }
    void TearDown() override {
        zul_in_close(&reader);
        FileTest::TearDown();
    }
    // Reads to the first status other than OK; `countAfter` points in, the file's points are
    // counted into `count` (-1: never), the count's status into `counted`.
    Reading readAll(int countAfter = -1, int64_t* count = nullptr, zul_Status* counted = nullptr) {
        Reading reading;
        for (;;) {
            zul_Point p = {{0, 0, 0}, {0, 0, 0}, 0, {5, 6, 7}};  // the file has no normals
            if (static_cast<int>(reading.size()) == countAfter)
                *counted = zul_in_getNumPoints(reader, count);
            reading.end = zul_in_readNextPoint(reader, &p);
            if (reading.end != OK) return reading;
            EXPECT_EQ(p.normal[2], 7.0f) << "a field the file lacks was written";
            reading.points.insert(
                reading.points.end(),
                {p.position[0], p.position[1], p.position[2], static_cast<double>(p.reflection)});
        }
    }
    // The first `n` points of the whole stream.
    std::vector<double> firstPoints(const EncodedStream& stream, size_t n) {
        EXPECT_EQ(open(fileBytes(stream)), OK);
        std::vector<double> all = readAll().points;
        EXPECT_EQ(all.size(), 40u);
        all.resize(4 * n);
        return all;
    }

    zul_in_Context reader = nullptr;
    zul_DataType dataType = {};
};

// At every length of a three-chunk file: the open, the reading and the count say exactly where
// the file was cut. A cut at a chunk boundary is a clean, shorter file; a cut in a body is found
// only by reading it, since a count skips bodies. The count is taken after a number of points
// that varies with the length, and leaves the points that follow as they were.
TEST_F(ReaderTest, CutAtEveryByte) {
    const EncodedStream stream = threeChunks();
    const Bytes whole = fileBytes(stream);
    const size_t chunkHeaderSize = stream.chunkHeaders[0].size();
    std::vector<size_t> chunkStart = {kHeadSize};
    for (size_t i = 0; i < 3; ++i)
        chunkStart.push_back(chunkStart.back() + 16 + chunkHeaderSize + stream.bodies[i].size());
    ASSERT_EQ(chunkStart.back(), whole.size());
    const size_t chunkPoints[] = {4, 4, 2};
    for (size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE("cut after " + std::to_string(length) + " bytes");
        const Bytes cut = whole.substr(0, length);
        if (length < kHeadSize) {
            EXPECT_EQ(open(cut), CUT);
            continue;
        }
        size_t chunk = 0, complete = 0;  // the chunk the cut falls in, the points before it
        while (chunk < 3 && chunkStart[chunk + 1] <= length) complete += chunkPoints[chunk++];
        const size_t into = length - chunkStart[chunk];
        const bool boundary = into == 0, inBody = into >= 16 + chunkHeaderSize;
        const std::vector<double> expected = firstPoints(stream, complete);
        for (bool counting : {false, true}) {
            ASSERT_EQ(open(cut), OK);
            int64_t count = -1;
            zul_Status counted = OK;
            const int after = counting ? static_cast<int>(length % (complete + 1)) : -1;
            const Reading reading = readAll(after, &count, &counted);
            if (counting && !boundary && !inBody) {
                EXPECT_EQ(counted, CUT);
                EXPECT_EQ(count, -1);
                EXPECT_EQ(reading.end, IS);
                continue;
            }
            EXPECT_EQ(reading.points, expected);
            EXPECT_EQ(reading.end, boundary ? END : CUT);
            if (counting) {
                EXPECT_EQ(count, int64_t(complete + (inBody ? chunkPoints[chunk] : 0)));
            }
        }
    }
}

// Damage found by reading and by counting: a wrong sync marker byte ends the reading at its
// chunk; a body size of almost 2 GiB in a short file is found as a cut without making room for
// it first (counting seeks past the end, which is no failure); sizes that add up to 2^31 or
// more would be a negative body size: refused, never sought.
TEST_F(ReaderTest, DamagedChunks) {
    const auto marker = [](size_t chunk, int byte) {
        return [=](EncodedStream& s) { s.markers[chunk][byte] ^= 0x10; };
    };
    const auto sizes = [](uint32_t coordinates, uint32_t colors) {
        return [=](EncodedStream& s) {
            unsigned char* header = reinterpret_cast<unsigned char*>(&s.chunkHeaders[0][0]);
            zullib::storeLE(header + 52, coordinates, 4);
            zullib::storeLE(header + 56, colors, 4);
        };
    };
    const struct {
        std::function<void(EncodedStream&)> damage;
        zul_Status read;
        size_t pointsRead;
        zul_Status counted;
        int64_t count;
    } cases[] = {
        {marker(0, 0), BAD, 0, BAD, -1},
        {marker(0, 15), BAD, 0, BAD, -1},
        {marker(2, 7), BAD, 8, BAD, -1},
        {sizes(0x7F000000u, 10), CUT, 0, OK, 4},
        {sizes(0x80000000u, 0), BAD, 0, BAD, -1},
        {sizes(0x7FFFFFFFu, 1), BAD, 0, BAD, -1},
        {sizes(0xFFFFFFF0u, 0x20), BAD, 0, BAD, -1},
    };
    const EncodedStream stream = threeChunks();
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(::testing::Message() << "case " << i);
        EncodedStream damaged = stream;
        cases[i].damage(damaged);
        ASSERT_EQ(open(fileBytes(damaged)), OK);
        const Reading reading = readAll();
        EXPECT_EQ(reading.end, cases[i].read);
        EXPECT_EQ(reading.size(), cases[i].pointsRead);
        EXPECT_LE(reader->chunkBody.size(), size_t{1} << 20);
        zul_Point p;
        EXPECT_EQ(zul_in_readNextPoint(reader, &p), IS);
        ASSERT_EQ(open(fileBytes(damaged)), OK);
        int64_t count = -1;
        EXPECT_EQ(zul_in_getNumPoints(reader, &count), cases[i].counted);
        EXPECT_EQ(count, cases[i].count);
    }
}

// Every failed open leaves a context that accepts nothing but close; a refused file header
// leaves the data type as it was.
TEST_F(ReaderTest, FailedOpens) {
    const Bytes whole = fileBytes(threeChunks());
    Bytes badHeader = whole;
    badHeader.replace(8, 4, 4, '\0');  // a quantisation step of 0
    const zul_dec_Params badParams = {2, {0, 0, 0, 0}};
    const std::string file = path("open.zul"), missing = path("missing.zul");
    const char* f = file.c_str();
    const struct {
        const char* name;
        Bytes bytes;
        const zul_dec_Params* params;
        zul_Status status;
        const char* path;
    } cases[] = {
        {"empty", "", nullptr, CUT, f},
        {"part of the signature", whole.substr(0, 7), nullptr, CUT, f},
        {"part of the file header", whole.substr(0, 20), nullptr, CUT, f},
        {"invalid data type", badHeader, nullptr, BAD, f},
        {"bad params", whole, &badParams, ARG, f},
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
        EXPECT_EQ(zul_in_getNumPoints(reader, &count), IS);
        EXPECT_EQ(zul_in_readNextPoint(reader, &p), IS);
        zul_in_close(&reader);
        EXPECT_EQ(reader, nullptr);
        zul_in_close(&reader);
    }
}

TEST_F(ReaderTest, NullArguments) {
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
    EXPECT_EQ(readAll().size(), 10u) << "none of these ended the reader";
    zul_in_close(nullptr);
}

}  // namespace

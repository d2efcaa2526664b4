// zul::Writer and zul::Reader (whose round trips the table of every combination checks): wide
// paths, every refusal as zul::Error with its status, destructors that close without throwing,
// and moves that leave the moved-from object owning nothing.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/host_files.h"
#include "support/temp_folder.h"
#include "zul.hpp"

namespace {

using WriterReader = TempFolderTest;

const zul_DataType kAllAttributes =
    zul::DataType{}.step(0.001f).color(zul_COLOR_RGB888).reflection(255).normals();

std::vector<zul_Point> readAll(zul::Reader& reader) {
    std::vector<zul_Point> points;
    for (const zul_Point& p : reader) points.push_back(p);
    return points;
}

TEST_F(WriterReader, WidePathsAreOpenedAsUtf8) {
    const std::string ascii = folder.string();  // the temporary folder's name is ASCII
    const std::wstring wide = std::wstring(ascii.begin(), ascii.end()) + L"/n\u00fcage.zul";
    zul::Writer writer(wide, kAllAttributes);
    for (const zul_Point& p : samplePoints(5, 24)) writer.write(p);
    writer.close();
    EXPECT_FALSE(readFile(path("n\xc3\xbc"
                               "age.zul"))
                     .empty());
    zul::Reader reader(wide);
    EXPECT_EQ(readAll(reader).size(), 5u);
}

TEST_F(WriterReader, OpeningFailuresNameThePathAndStatus) {
    try {
        zul::Writer writer(path("no/such/folder.zul"), zul::DataType{});
        FAIL() << "a file in a missing folder was created";
    } catch (const zul::Error& e) {
        EXPECT_EQ(e.status(), zul_STATUS_WRITE_ERROR);
        EXPECT_EQ(std::string(e.what()),
                  path("no/such/folder.zul") + ": zul_out_open2: zul_STATUS_WRITE_ERROR (4)");
    }
    EXPECT_EQ(statusOf([&] { zul::Reader r(path("missing.zul")); }), zul_STATUS_READ_ERROR);
    writeFile(path("text.zul"), std::string(64, 'x'));
    EXPECT_EQ(statusOf([&] { zul::Reader r(path("text.zul")); }), zul_STATUS_BAD_SIGNATURE);
}

TEST_F(WriterReader, ACutFileThrowsFromTheRange) {
    {
        zul::Writer writer(path("a.zul"), kAllAttributes);
        for (const zul_Point& p : samplePoints(100, 25)) writer.write(p);
    }
    std::string bytes = readFile(path("a.zul"));
    bytes.resize(bytes.size() - 1);
    writeFile(path("a.zul"), bytes);
    zul::Reader reader(path("a.zul"));
    EXPECT_EQ(reader.numPoints(), 100);  // the count reads chunk headers only
    try {
        readAll(reader);
        FAIL() << "a cut file was read to its end";
    } catch (const zul::Error& e) {
        EXPECT_EQ(std::string(e.what()),
                  path("a.zul") + ": zul_in_readNextPoint: zul_STATUS_TRUNCATED (3)");
    }
    zul_Point p{};
    EXPECT_EQ(statusOf([&] { reader.read(p); }), zul_STATUS_INVALID_STATE);  // the reader ended
}

// The writer's refusals (which the file writer's tests detail) as zul::Error with their status,
// each once.
TEST_F(WriterReader, FailuresOfWriteAndCloseAreReportedOnce) {
    std::vector<zul_Point> points = samplePoints(6, 27);
    for (float& n : points[4].normal) n = 0.0f;
    {
        zul::Writer writer(path("a.zul"), kAllAttributes);
        EXPECT_EQ(statusOf([&] { writer.setChunkSize(0); }), zul_STATUS_INVALID_ARGUMENT);
        writer.setChunkSize(3);
        for (int i = 0; i < 5; ++i) writer.write(points[static_cast<size_t>(i)]);
        EXPECT_EQ(statusOf([&] { writer.setChunkSize(8); }), zul_STATUS_INVALID_STATE);
        EXPECT_EQ(statusOf([&] { writer.write(points[5]); }), zul_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(statusOf([&] { writer.write(points[0]); }), zul_STATUS_INVALID_STATE);
        writer.close();  // the failure was reported by write
    }
    zul::Writer writer(path("b.zul"), kAllAttributes);
    for (size_t i = 2; i < 6; ++i) writer.write(points[i]);
    EXPECT_EQ(statusOf([&] { writer.close(); }), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_FALSE(writer.isOpen());
    EXPECT_NO_THROW({  // a destructor throws nothing, whatever the close finds
        zul::Writer failing(path("c.zul"), kAllAttributes);
        for (size_t i = 2; i < 6; ++i) failing.write(points[i]);
    });
}

TEST_F(WriterReader, TheDestructorCompletesTheFileAndMovesOwnNothing) {
    const std::vector<zul_Point> points = samplePoints(20, 29);
    zul::Writer first(path("a.zul"), kAllAttributes);
    first.write(points[0]);
    zul::Writer second(std::move(first));
    EXPECT_FALSE(first.isOpen());
    EXPECT_EQ(statusOf([&] { first.write(points[1]); }), zul_STATUS_INVALID_ARGUMENT);
    first.close();  // nothing to close
    for (size_t i = 1; i < 10; ++i) second.write(points[i]);
    {
        zul::Writer third(path("b.zul"), kAllAttributes);
        third.write(points[10]);
        third = std::move(second);  // b.zul is completed by the assignment
        EXPECT_FALSE(second.isOpen());
        zul::Reader b(path("b.zul"));
        EXPECT_EQ(readAll(b).size(), 1u);
        for (size_t i = 10; i < 20; ++i) third.write(points[i]);
    }  // the destructor completes a.zul

    zul::Reader one(path("a.zul"));
    zul_Point p{};
    ASSERT_TRUE(one.read(p));
    zul::Reader two(std::move(one));
    EXPECT_FALSE(one.isOpen());
    EXPECT_EQ(statusOf([&] { one.read(p); }), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(statusOf([&] { one.numPoints(); }), zul_STATUS_INVALID_ARGUMENT);
    zul::Reader three(path("b.zul"));
    three = std::move(two);
    EXPECT_EQ(three.numPoints(), 20);
    EXPECT_EQ(readAll(three).size(), 19u);  // it goes on after the first point
    three.close();
    EXPECT_FALSE(three.isOpen());
}

}  // namespace

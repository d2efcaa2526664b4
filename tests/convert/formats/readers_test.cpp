// The readers against values known from elsewhere: points of the shared files decoded by hand,
// and small files built byte by byte here for what the shared files lack (other LAS versions and
// point formats, PLY in big-endian order with an element before the vertices, packed colours in
// ascii PCD, text with named columns; KITTI scans go through the format round trips).
#include <cmath>
#include <cstring>

#include "support/tool_support.h"

namespace {

class Readers : public ToolTest {
protected:
    std::string file(const std::string& name, const std::string& bytes) {
        writeFile(path(name), bytes);
        return path(name);
    }
};

template <typename T>
void appendBig(std::string& bytes, T value) {
    char b[sizeof value];
    std::memcpy(b, &value, sizeof value);
    for (size_t i = sizeof value; i-- > 0;) bytes += b[i];
}

void expectPosition(const zul_Point& p, double x, double y, double z) {
    EXPECT_DOUBLE_EQ(p.position[0], x);
    EXPECT_DOUBLE_EQ(p.position[1], y);
    EXPECT_DOUBLE_EQ(p.position[2], z);
}

void expectColor(const zul_Point& p, int r, int g, int b) {
    EXPECT_EQ(p.color[0], r);
    EXPECT_EQ(p.color[1], g);
    EXPECT_EQ(p.color[2], b);
}

TEST_F(Readers, KnownPointsOfTheSharedFiles) {
    zulformats::CloudLayout layout;
    // LAS 1.2, point format 3, 16-bit colour.
    std::vector<CloudPoint> las = readCloud(dataFile("sample_c.las"), &layout);
    ASSERT_EQ(las.size(), 14408u);
    EXPECT_EQ(layout.gridStep, 0.01);
    EXPECT_TRUE(layout.hasColor && layout.hasIntensity && !layout.hasNormals);
    expectPosition(las[0].point, 8 * 0.01 + 674521.9200134277, 3167 * 0.01 + 1206740.0800170898,
                   6 * 0.01 + 627.530029296875);
    EXPECT_EQ(las[0].intensity, 1931);
    expectColor(las[0].point, 48896 >> 8, 51712 >> 8, 49408 >> 8);

    // PCD binary_compressed: the fields column after column.
    std::vector<CloudPoint> turtle = readCloud(dataFile("cturtle.pcd"), &layout);
    ASSERT_EQ(turtle.size(), 167198u);
    EXPECT_TRUE(layout.floatIntensity && layout.hasIntensity && !layout.hasColor);
    expectPosition(turtle.front().point, -1.4197180271148682, 0.09770400077104568,
                   1.4052950143814087);
    EXPECT_FLOAT_EQ(turtle.front().intensity, 0.996078014f);
    expectPosition(turtle.back().point, 1.4197180271148682, -0.09269300103187561,
                   1.4056340456008911);

    // An organised cloud with NaN where there is no depth, rgba colour.
    std::vector<CloudPoint> table = readCloud(dataFile("table_scene_mug_stereo_textured.pcd"));
    ASSERT_EQ(table.size(), 307200u);
    EXPECT_TRUE(std::isnan(table[6537].point.position[0]));
    expectPosition(table[6538].point, -0.3819099962711334, -0.448199987411499, 2.0257999897003174);
    expectColor(table[6538].point, 67, 67, 62);

    // Ascii PCD with normals.
    std::vector<CloudPoint> bunny = readCloud(dataFile("bun0.pcd"), &layout);
    ASSERT_EQ(bunny.size(), 397u);
    EXPECT_TRUE(layout.hasNormals);
    expectPosition(bunny[0].point, 0.0054215998, 0.11349, 0.040748999);
    EXPECT_FLOAT_EQ(bunny[0].point.normal[2], -0.87609947f);
}

// A LAS file of two points, of the given version and point format.
std::string lasFile(int minor, int format, uint16_t recordLength, int colorAt, bool count64) {
    return lasBytes(minor, format, recordLength, {0.001, 0.01, 0.1, 100, 200, 300}, 2, count64,
                    [&](uint32_t i, std::string& r) {
                        const int32_t xyz[3] = {1000 + static_cast<int32_t>(i), -20, 7};
                        std::memcpy(&r[0], xyz, 12);
                        put<uint16_t>(r, 12, static_cast<uint16_t>(500 + i));
                        const uint16_t rgb[3] = {0x1200, 0xFF00, 0x8000};
                        if (colorAt > 0) std::memcpy(&r[colorAt], rgb, 6);
                    });
}

TEST_F(Readers, LasVersionsAndPointFormats) {
    struct {
        int minor, format;
        uint16_t recordLength;
        int colorAt;
        bool count64;
    } cases[] = {{0, 0, 20, 0, false},  {0, 1, 28, 0, false},  {2, 2, 26, 20, false},
                 {3, 5, 63, 28, false}, {4, 6, 30, 0, true},   {4, 7, 36, 30, true},
                 {4, 8, 38, 30, false}, {4, 10, 67, 30, true}, {2, 3, 40, 28, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE("LAS 1." + std::to_string(c.minor) + " format " + std::to_string(c.format));
        zulformats::CloudLayout layout;
        const std::vector<CloudPoint> points = readCloud(
            file("f.las", lasFile(c.minor, c.format, c.recordLength, c.colorAt, c.count64)),
            &layout);
        ASSERT_EQ(points.size(), 2u);
        EXPECT_EQ(layout.hasColor, c.colorAt > 0);
        EXPECT_EQ(layout.pointCount, 2);
        expectPosition(points[1].point, 1001 * 0.001 + 100, -20 * 0.01 + 200, 7 * 0.1 + 300);
        EXPECT_EQ(points[1].intensity, 501);
        if (c.colorAt > 0) expectColor(points[1].point, 0x12, 0xFF, 0x80);
    }
}

TEST_F(Readers, LasColoursOfEightBitsInSixteenBitFields) {
    std::string bytes = lasFile(2, 2, 26, 20, false);
    for (size_t record : {237u + 20, 237u + 26 + 20}) {
        const uint16_t rgb[3] = {18, 255, 128};
        std::memcpy(&bytes[record], rgb, 6);
    }
    const std::vector<CloudPoint> points = readCloud(file("narrow.las", bytes));
    expectColor(points[0].point, 18, 255, 128);
}

TEST_F(Readers, PlyBigEndianAfterAnotherElement) {
    std::string bytes =
        "ply\nformat binary_big_endian 1.0\ncomment made by hand\nelement face 2\nproperty list "
        "uchar int vertex_indices\nelement vertex 2\nproperty float x\nproperty double y\nproperty "
        "int z\nproperty uchar red\nproperty uchar green\nproperty uchar blue\nproperty ushort "
        "scalar_intensity\nproperty float nx\nproperty float ny\nproperty float nz\nend_header\n";
    for (int face = 0; face < 2; ++face) {
        bytes += '\3';
        for (int k = 0; k < 3; ++k) appendBig<int32_t>(bytes, k);
    }
    for (int i = 0; i < 2; ++i) {
        appendBig<float>(bytes, 1.5f + i);
        appendBig<double>(bytes, -2.25);
        appendBig<int32_t>(bytes, 7 - i);
        bytes += "\x10\x20\x30";
        appendBig<uint16_t>(bytes, 40000);
        appendBig<float>(bytes, 0.0f);
        appendBig<float>(bytes, 1.0f);
        appendBig<float>(bytes, 0.0f);
    }
    zulformats::CloudLayout layout;
    const std::vector<CloudPoint> points = readCloud(file("be.ply", bytes), &layout);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_TRUE(layout.hasColor && layout.hasIntensity && layout.hasNormals);
    EXPECT_EQ(layout.intensityTypeMax, 65535);
    expectPosition(points[1].point, 2.5, -2.25, 6);
    expectColor(points[1].point, 0x10, 0x20, 0x30);
    EXPECT_EQ(points[1].intensity, 40000);
    EXPECT_EQ(points[1].point.normal[1], 1.0f);
}

TEST_F(Readers, PlyAsciiWithFloatColours) {
    const std::vector<CloudPoint> points = readCloud(file(
        "a.ply",
        "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nproperty "
        "float z\nproperty float red\nproperty float green\nproperty float blue\nend_header\n"
        "1 2 3 0 0.5 1\n"));
    ASSERT_EQ(points.size(), 1u);
    expectPosition(points[0].point, 1, 2, 3);
    expectColor(points[0].point, 0, 128, 255);
}

TEST_F(Readers, PcdAsciiWithPackedColours) {
    // PCL writes rgb as the float whose bits are 0x00RRGGBB; 0x00102030 is this float.
    float packed;
    const uint32_t bits = 0x00102030;
    std::memcpy(&packed, &bits, 4);
    char value[64];
    std::snprintf(value, sizeof value, "%.9g", packed);
    const std::vector<CloudPoint> points = readCloud(
        file("a.pcd",
             std::string("# made by hand\nVERSION 0.7\nFIELDS x y z rgb intensity\nSIZE 4 4 4 4 "
                         "2\nTYPE F F F F U\nCOUNT 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\nVIEWPOINT 0 0 "
                         "0 1 0 0 0\nPOINTS 2\nDATA ascii\n1 2 3 ") +
                 value + " 9\n\nnan nan nan 0 0\n"));
    ASSERT_EQ(points.size(), 2u);
    expectPosition(points[0].point, 1, 2, 3);
    expectColor(points[0].point, 0x10, 0x20, 0x30);
    EXPECT_EQ(points[0].intensity, 9);
    EXPECT_TRUE(std::isnan(points[1].point.position[0]));
}

TEST_F(Readers, TextColumnsByNameOrByCount) {
    zulformats::CloudLayout layout;
    std::vector<CloudPoint> points = readCloud(
        file("named.csv", "// Intensity,X,Y,Z\n# a comment\n7,1.5,2.5,3.5\n\n8, 4, 5 ,6\n"),
        &layout);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_TRUE(layout.hasIntensity && !layout.hasColor);
    expectPosition(points[1].point, 4, 5, 6);
    EXPECT_EQ(points[1].intensity, 8);

    points = readCloud(file("seven.xyz", "1 2 3 10 20 30 99\n4 5 6 40 50 60 98\n"), &layout);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_TRUE(layout.hasIntensity && layout.hasColor && !layout.hasNormals);
    expectColor(points[1].point, 40, 50, 60);
    EXPECT_EQ(points[1].intensity, 98);

    points = readCloud(file("ten.txt", "0 0 0 1 2 3 4 0 0 1\n"), &layout);
    ASSERT_EQ(points.size(), 1u);
    EXPECT_TRUE(layout.hasNormals);
    EXPECT_EQ(points[0].point.normal[2], 1.0f);

    // Decimal commas where semicolons separate, and a column the format has no place for.
    points = readCloud(file("european.csv", "x;y;z;class\n1,5;2,5;-3,5;2\n"), &layout);
    ASSERT_EQ(points.size(), 1u);
    expectPosition(points[0].point, 1.5, 2.5, -3.5);
    EXPECT_EQ(layout.dropped, std::vector<std::string>{"column class"});

    // A .pts file's count line, and comments among the points.
    points = readCloud(file("scan.pts", "2\n1 2 3 9\n# between\n4 5 6 8\n"), &layout);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(layout.pointCount, 2);
    EXPECT_EQ(points[1].intensity, 8);
}

}  // namespace

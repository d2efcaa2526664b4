// What the writers put in their headers, checked byte by byte where a reader of ours would not
// notice a mistake: LAS's counts, scale and box and its 16-bit colours; the header lines of PCD
// and PLY.
#include <cstring>

#include "commands/commands.h"
#include "support/tool_support.h"

namespace {

class Writers : public ToolTest {
protected:
    // colored_cloud.pcd (1000 points with colour and normals) as a zul file at a 1 mm step.
    std::string zulOfColoredCloud() {
        zulconvert::CompressOptions compress;
        compress.input = dataFile("colored_cloud.pcd");
        compress.output = path("c.zul");
        compress.force = true;  // made again for every format
        compress.quiet = true;
        compress.companion = "never";  // the writers' own files, not the input's again
        EXPECT_EQ(zulconvert::runCompress(compress), 0);
        return compress.output;
    }

    std::string decompress(const std::string& name, const std::string& encoding = "",
                           const std::string& lasVersion = "1.2") {
        zulconvert::DecompressOptions options;
        options.input = zulOfColoredCloud();
        options.output = path(name);
        options.force = true;
        options.encoding = encoding;
        options.lasVersion = lasVersion;
        options.quiet = true;
        EXPECT_EQ(zulconvert::runDecompress(options), 0);
        return readFile(options.output);
    }
};

template <typename T>
T at(const std::string& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

TEST_F(Writers, LasHeaderAndRecords) {
    struct {
        const char* version;
        size_t headerSize;
        int format, recordLength, colorAt;
    } cases[] = {{"1.2", 227, 2, 26, 20}, {"1.4", 375, 7, 36, 30}};
    const std::vector<CloudPoint> points = readCloud(dataFile("colored_cloud.pcd"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.version);
        const std::string las = decompress("c.las", "", c.version);
        ASSERT_EQ(las.size(), c.headerSize + 1000u * c.recordLength);
        EXPECT_EQ(las.substr(0, 4), "LASF");
        EXPECT_EQ(las[24], 1);
        EXPECT_EQ(las[25], c.version[2] - '0');
        EXPECT_EQ(at<uint16_t>(las, 94), c.headerSize);
        EXPECT_EQ(at<uint32_t>(las, 96), c.headerSize);
        EXPECT_EQ(las[104], c.format);
        EXPECT_EQ(at<uint16_t>(las, 105), c.recordLength);
        EXPECT_EQ(at<uint32_t>(las, 107), c.headerSize == 227 ? 1000u : 0u);
        if (c.headerSize == 375) {
            EXPECT_EQ(at<uint64_t>(las, 247), 1000u);
        }
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(at<double>(las, 131 + 8 * axis), 0.001);
            // The box holds every point, and is reached on each side.
            double lo = 1e300, hi = -1e300;
            for (size_t i = 0; i < 1000; ++i) {
                const double v = at<int32_t>(las, c.headerSize + i * c.recordLength + 4 * axis) *
                                     at<double>(las, 131 + 8 * axis) +
                                 at<double>(las, 155 + 8 * axis);
                lo = std::min(lo, v);
                hi = std::max(hi, v);
            }
            EXPECT_EQ(at<double>(las, 179 + 16 * axis), hi);
            EXPECT_EQ(at<double>(las, 187 + 16 * axis), lo);
        }
        // Colours are 16 bits a channel: an 8-bit value v becomes v * 257.
        const std::vector<CloudPoint> back = readCloud(path("c.las"));
        for (size_t i = 0; i < 1000; ++i) {
            for (int k = 0; k < 3; ++k) {
                ASSERT_EQ(at<uint16_t>(las, c.headerSize + i * c.recordLength + c.colorAt + 2 * k),
                          back[i].point.color[k] * 257);
            }
        }
    }
}

// A stored step other than 1 under a translation makes no grid that a LAS scale and offset give
// exactly: the offset is then the first point's, whose integers are 0.
TEST_F(Writers, LasOffsetOfAGridThatIsNotExact) {
    zul_DataType type;
    zul_Header2 header;
    zul_init_headers(&type, &header);
    type.quantizationStep = 0.5f;
    header.hasTranslation = true;
    header.transformation[12] = 10;
    writePoints(path("t.zul"), type, &header, 1, {{{3, 4, 5}, {0, 0, 0}, 0, {0, 0, 0}}});
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("t.zul") + " " + path("t.las")));
    const std::string las = readFile(path("t.las"));
    for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(at<int32_t>(las, 227 + 4 * axis), 0);
    EXPECT_EQ(at<double>(las, 155), 13.0);
}

// Reflections beyond LAS's 16-bit intensity are written as its largest and counted, in every
// block of records (more than one here), and the others as they are.
TEST_F(Writers, LasIntensityAboveItsRangeIsCounted) {
    zul_DataType type;
    zul_init_headers(&type, nullptr);
    type.quantizationStep = 0.01f;
    type.reflectionMode = zul_REFLECTION_CLAMPED;
    type.maxReflection = 100000;
    std::vector<zul_Point> points(9000);
    for (size_t i = 0; i < points.size(); ++i) {
        points[i] = {{0.01 * static_cast<double>(i), 1, 2}, {0, 0, 0}, 0, {0, 0, 0}};
        points[i].reflection = i % 1000 == 7 ? 70000 : static_cast<int32_t>(i % 65536);
    }
    writePoints(path("r.zul"), type, nullptr, 9000, points);
    const ToolRun run = runTool("decompress -j 1 " + path("r.zul") + " " + path("r.las"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("changed 9 values: reflections above 65535 written as 65535"),
              std::string::npos)
        << run.output;
    const std::string las = readFile(path("r.las"));
    std::vector<uint16_t> intensities, expected;
    for (size_t i = 0; i < points.size(); ++i) {
        intensities.push_back(at<uint16_t>(las, 227 + 20 * i + 12));
        expected.push_back(static_cast<uint16_t>(std::min(points[i].reflection, 65535)));
    }
    std::sort(intensities.begin(), intensities.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(intensities, expected);
}

// PCD positions are 4-byte floats where their spacing at the farthest coordinate is a quarter of
// the step or finer, 8-byte ones otherwise, or as asked.
TEST_F(Writers, PcdPositionsTakeFourBytesWhereTheyKeepTheGrid) {
    EXPECT_TRUE(zulformats::pcdFloatKeepsGrid(100, 0.001));     // spacing 2^-17
    EXPECT_FALSE(zulformats::pcdFloatKeepsGrid(638535, 0.01));  // spacing 2^-4
    EXPECT_TRUE(zulformats::pcdFloatKeepsGrid(638535, 0.25));
    EXPECT_FALSE(zulformats::pcdFloatKeepsGrid(-1, 0.001));  // not known
    EXPECT_FALSE(zulformats::pcdFloatKeepsGrid(1e300, 1));
    ASSERT_TRUE(toolSucceeds("compress -q " + dataFile("sample_c.las") + " " + path("s.zul")));
    for (const auto& [type, sizes] :
         std::vector<std::pair<std::string, std::string>>{{"", "SIZE 8 8 8"},
                                                          {"--pcd-type float", "SIZE 4 4 4"},
                                                          {"--pcd-type double", "SIZE 8 8 8"}}) {
        ASSERT_TRUE(
            toolSucceeds("decompress -q -f " + type + " " + path("s.zul") + " " + path("s.pcd")));
        EXPECT_NE(readFile(path("s.pcd")).find(sizes), std::string::npos) << type;
    }
    EXPECT_NE(decompress("c.pcd", "binary", "1.2").find("SIZE 4 4 4"), std::string::npos);
}

TEST_F(Writers, PcdAndPlyHeaders) {
    const std::string pcd = decompress("c.pcd", "binary_compressed");
    EXPECT_EQ(
        pcd.substr(0, pcd.find("DATA")),
        "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS x y z rgb normal_x "
        "normal_y normal_z\nSIZE 4 4 4 4 4 4 4\nTYPE F F F U F F F\nCOUNT 1 1 1 1 1 1 1\nWIDTH "
        "1000\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS 1000\n");
    const size_t data = pcd.find("DATA binary_compressed\n") + 23;
    EXPECT_EQ(at<uint32_t>(pcd, data + 4), 1000u * 28);
    EXPECT_EQ(pcd.size(), data + 8 + at<uint32_t>(pcd, data));

    const std::string ply = decompress("c.ply", "binary_big_endian");
    const std::string header =
        "ply\nformat binary_big_endian 1.0\ncomment written by zul\nelement vertex 1000\nproperty "
        "double x\nproperty double y\nproperty double z\nproperty uchar red\nproperty uchar "
        "green\nproperty uchar blue\nproperty float nx\nproperty float ny\nproperty float "
        "nz\nend_header\n";
    EXPECT_EQ(ply.substr(0, header.size()), header);
    EXPECT_EQ(ply.size(), header.size() + 1000u * (24 + 3 + 12));
}

}  // namespace

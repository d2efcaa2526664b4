// What goes in comes out, or the user is told: LAS files come back with the very same integers,
// scale, offset, intensity, 8-bit colour and coordinate system; values that must change are
// counted in one line a kind.
#include <cstring>
#include <fstream>
#include <iterator>

#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

// A LAS file's points as a LAS reader sees them: the integers and what the header says of them.
struct LasContent {
    double scale[3], offset[3];
    std::vector<std::array<int64_t, 6>> points;  // X Y Z, intensity, and red and green as read
    std::string crs;
};

LasContent lasContent(const std::string& path) {
    std::unique_ptr<zulformats::CloudReader> reader =
        zulformats::openCloudReader(path, zulformats::Format::Las);
    LasContent content;
    const zulformats::CloudLayout& layout = reader->layout();
    std::memcpy(content.scale, layout.gridScale, sizeof content.scale);
    std::memcpy(content.offset, layout.gridOffset, sizeof content.offset);
    std::string problem;
    content.crs = reader->coordinateSystem(problem);
    zul_Point p = {};
    while (reader->read(p)) {
        const int64_t* g = reader->grid();
        content.points.push_back(
            {g[0], g[1], g[2], static_cast<int64_t>(reader->intensity()), p.color[0], p.color[1]});
    }
    std::sort(content.points.begin(), content.points.end());
    return content;
}

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int occurrences(const std::string& text, const std::string& word) {
    int count = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        ++count;
    return count;
}

struct LasCase {
    const char* name;
    const char* input;
    const char* lasVersion;
    const char* crs;  // what the output's records give, as PROJ reads it
    int feet;         // systems in US survey feet it holds (horizontal, vertical)
};

void PrintTo(const LasCase& c, std::ostream* out) { *out << c.name; }

const LasCase kLasCases[] = {
    // Its keys name NAVD88's datum as the vertical system, the system as the datum, in feet.
    {"4_6_crop 1.2", "4_6_crop.las", "1.2",
     "COMPOUNDCRS[\"NAD83(HARN) / New Mexico Central (ftUS) + NAVD88 height\"", 2},
    {"4_6_crop 1.4", "4_6_crop.las", "1.4",
     "COMPD_CS[\"NAD83(HARN) / New Mexico Central (ftUS) + NAVD88 height\"", 2},
    {"sample_c 1.2", "sample_c.las", "1.2", "", 0},
    {"1.2-with-color 1.4", "1.2-with-color.las", "1.4", "", 0},
};

class LasRoundTrip : public ToolTest, public ::testing::WithParamInterface<LasCase> {};

TEST_P(LasRoundTrip, GivesBackTheSameIntegersScaleOffsetAndSystem) {
    const LasCase& c = GetParam();
    // The coordinate system through the .prj sidecar (a companion keeps the LAS header instead).
    ASSERT_TRUE(
        toolSucceeds("compress -q --no-companion " + dataFile(c.input) + " " + path("cloud.zul")));
    ASSERT_TRUE(toolSucceeds(std::string("decompress -q --las-version ") + c.lasVersion + " " +
                             path("cloud.zul") + " " + path("back.las")));
    const LasContent in = lasContent(dataFile(c.input)), out = lasContent(path("back.las"));
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(out.scale[axis], in.scale[axis]);
        EXPECT_EQ(out.offset[axis], in.offset[axis]);
    }
    EXPECT_TRUE(out.points == in.points);
    EXPECT_EQ(out.crs.substr(0, std::strlen(c.crs)), c.crs);
    EXPECT_EQ(std::filesystem::exists(path("cloud.prj")), c.crs[0] != '\0');
    // WKT names the unit of each system, and of some parameters too.
    EXPECT_GE(occurrences(out.crs, "US survey foot"), c.feet) << out.crs;
    EXPECT_EQ(occurrences(out.crs, "US survey foot") > 0, c.feet > 0) << out.crs;
}

INSTANTIATE_TEST_SUITE_P(SharedLas, LasRoundTrip, ::testing::ValuesIn(kLasCases), NameOfCase());

// GeoTIFF keys that give systems in metres by code and US survey feet by their unit keys keep
// the feet without a companion, in the .prj and in the LAS written back, 1.2 and 1.4.
TEST_F(ToolTest, GeoTiffUnitKeysOverTheCodesAreKept) {
    std::string las = lasBytes(2, 0, 20, {0.01, 0.01, 0.01, 2000000, 500000, 0}, 3, false,
                               [](uint32_t i, std::string& r) { r[0] = static_cast<char>(i); });
    const uint16_t keys[] = {1,     1,    0, 6, 1024, 0,    1, 1, 1025, 0,    1, 1, 3072, 0, 1,
                             32113, 3076, 0, 1, 9003, 4096, 0, 1, 5703, 4099, 0, 1, 9003};
    std::string vlr(54, '\0');
    std::memcpy(&vlr[2], "LASF_Projection", 15);
    put<uint16_t>(vlr, 18, 34735);
    put<uint16_t>(vlr, 20, sizeof keys);
    vlr.append(reinterpret_cast<const char*>(keys), sizeof keys);
    las.insert(227, vlr);
    put<uint32_t>(las, 96, static_cast<uint32_t>(227 + vlr.size() + 10));
    put<uint32_t>(las, 100, 1);
    std::ofstream(path("in.las"), std::ios::binary) << las;
    ASSERT_TRUE(toolSucceeds("compress -q --no-companion " + path("in.las") + " " + path("a.zul")));
    EXPECT_GE(occurrences(fileText(path("a.prj")), "US survey foot"), 2) << fileText(path("a.prj"));
    for (const char* version : {"1.2", "1.4"}) {
        ASSERT_TRUE(toolSucceeds(std::string("decompress -q -f --las-version ") + version + " " +
                                 path("a.zul") + " " + path("b.las")));
        const std::string crs = lasContent(path("b.las")).crs;
        EXPECT_GE(occurrences(crs, "US survey foot"), 2) << version << ": " << crs;
        EXPECT_NE(crs.find("New Mexico Central"), std::string::npos) << crs;
    }
}

// A LAS 1.2 file of point format 2 whose scales differ by axis and whose colours pass 255 only
// in the last of more than a million points.
std::string lateWideColourLas(uint32_t count) {
    return lasBytes(
        2, 2, 26, {0.01, 0.01, 0.001, 500000, 4000000, 100}, count, false,
        [count](uint32_t i, std::string& r) {
            const int32_t xyz[3] = {static_cast<int32_t>(i % 1000), static_cast<int32_t>(i / 1000),
                                    static_cast<int32_t>(i % 7)};
            std::memcpy(&r[0], xyz, 12);
            const uint16_t channel = i + 1 == count ? 32768 : static_cast<uint16_t>(i % 256);
            for (int c = 0; c < 3; ++c) put<uint16_t>(r, 20 + 2 * c, channel);
        });
}

TEST_F(ToolTest, LasColourWidthIsJudgedFromTheWholeFileAndScalesThatDifferAreSaid) {
    const uint32_t count = 1000001;
    writeFile(path("late.las"), lateWideColourLas(count));
    const ToolRun run =
        runTool("compress --no-companion " + path("late.las") + " " + path("late.zul"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("the LAS scales differ (0.01, 0.01, 0.001): every axis is stored on "
                              "the finest, 0.001"),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("left out: the low byte of 16-bit colour"), std::string::npos);
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("late.zul") + " " + path("back.las")));

    // 16-bit colour: every channel by its high byte (32768 as 128, never wrapped to 0).
    int coloured = 0;
    for (const CloudPoint& p : readCloud(path("back.las"))) {
        if (p.point.color[0] == 0) continue;
        ++coloured;
        EXPECT_EQ(p.point.color[0], 128);
    }
    EXPECT_EQ(coloured, 1);
}

// Intensities through a KITTI scan, whose floats lie within 0 .. 1, come back as the integers.
TEST_F(ToolTest, IntensitiesSurviveAKittiScan) {
    ASSERT_TRUE(toolSucceeds("compress -q " + dataFile("sample_c.las") + " " + path("a.zul")));
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("a.zul") + " " + path("a.bin")));
    const ToolRun run = runTool("compress " + path("a.bin") + " " + path("b.zul"));
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("multiplied by 65535, which makes every one a whole number"),
              std::string::npos)
        << run.output;
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("b.zul") + " " + path("b.las")));
    std::vector<double> original, back;
    for (const CloudPoint& p : readCloud(dataFile("sample_c.las"))) original.push_back(p.intensity);
    for (const CloudPoint& p : readCloud(path("b.las"))) back.push_back(p.intensity);
    std::sort(original.begin(), original.end());
    std::sort(back.begin(), back.end());
    EXPECT_TRUE(back == original);
}

struct ReportCase {
    const char* name;
    const char* file;     // a shared cloud, or a file of `content` made here
    const char* content;  // null: a shared cloud
    const char* options;  // extra options of compress
    const char* message;
};

void PrintTo(const ReportCase& c, std::ostream* out) { *out << c.name; }

const ReportCase kReportCases[] = {
    // 256 is the first value past the range: clamped and counted, never wrapped to 0.
    {"colour of 256", "c.xyz", "x y z r g b\n1 2 3 256 0 0\n", "",
     "changed 1 value: colour values outside 0 .. 255 clamped"},
    {"colour not whole", "c.xyz", "x y z r g b\n1 2 3 0.5 7 8\n", "",
     "changed 1 value: colour values rounded to whole numbers"},
    {"negative intensity", "i.xyz", "x y z i\n1 2 3 -4\n4 5 6 7\n", "",
     "changed 1 value: negative intensities stored as 0"},
    {"intensity above the maximum", "i.xyz", "x y z i\n1 2 3 40\n4 5 6 7\n", "--reflection 30",
     "changed 1 value: intensities above 30 stored as 30"},
    {"intensity given a scale", "i.xyz", "x y z i\n1 2 3 0.123\n", "--intensity-scale 10",
     "changed 1 value: intensities rounded to whole numbers"},
    {"float intensities of no simple scale", "i.xyz", "x y z i\n1 2 3 0.1234567\n4 5 6 0.5\n", "",
     "stored multiplied by 65535, rounded to whole numbers"},
    // The format cannot store a normal of length zero: such a point is kept, pointing up.
    {"normal of length zero", "n.xyz", "x y z nx ny nz\n1 2 3 0 0 0\n4 5 6 1 0 0\n", "",
     "changed 1 value: normals of length zero"},
    {"infinite normal", "n.xyz", "x y z nx ny nz\n1 2 3 inf 0 0\n4 5 6 1 0 0\n", "",
     "changed 1 value: normals with an infinite component stored as (0, 0, 1)"},
    // The largest budget the option takes reserves no more than the machine grants.
    {"largest order budget", "c.xyz", "x y z r g b\n1 2 3 256 0 0\n", "--order-budget 1048576",
     "changed 1 value: colour values outside 0 .. 255 clamped"},
    {"column without a place", "k.csv", "x,y,z,class\n1,2,3,4\n", "--no-companion",
     "left out: column class"},
    {"column kept", "k.csv", "x,y,z,class\n1,2,3,4\n", "",
     "out.zul keeps 1 field of every point and the lines before the first point and after the "
     "last"},
    {"las fields", "4_6_crop.las", nullptr, "--no-companion",
     "left out: return numbers, classification, scan angle, point source ID, GPS time"},
    {"las fields kept", "4_6_crop.las", nullptr, "",
     "out.zul keeps 6 fields of every point and the LAS header, VLRs and EVLRs"},
    {"ply properties", "p.ply",
     "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nproperty float "
     "z\nproperty float quality\nelement face 0\nproperty list uchar int vertex_indices\n"
     "end_header\n1 2 3 0.5\n",
     "--no-companion", "left out: quality"},
    {"nan points", "table_scene_mug_stereo_textured.pcd", nullptr, "--no-companion",
     "dropped 97920 of 307200 points with NaN or infinite coordinates"},
    {"nan points kept", "table_scene_mug_stereo_textured.pcd", nullptr, "",
     "97920 of 307200 points with NaN or infinite coordinates are not in the stream (a zul file "
     "cannot hold them); the companion keeps them"},
    {"organised layout", "table_scene_mug_stereo_textured.pcd", nullptr, "--no-companion",
     "left out: alpha, the organised 640 x 480 layout"},
    {"organised layout kept", "table_scene_mug_stereo_textured.pcd", nullptr, "",
     "out.zul keeps 1 field of every point, the 97920 points the stream cannot hold, the "
     "organised layout and the PCD header"},
    {"positions rounded", "table_scene_mug_stereo_textured.pcd", nullptr, "",
     "positions are kept at a step of 0.001, each within 0.000501 of its float (--exact keeps "
     "their float bits in the companion)"},
};

class Report : public ToolTest, public ::testing::WithParamInterface<ReportCase> {};

TEST_P(Report, NamesWhatChangedWithACount) {
    const ReportCase& c = GetParam();
    std::string input = dataFile(c.file);
    if (c.content != nullptr) {
        input = path(c.file);
        writeFile(input, c.content);
    }
    const ToolRun run =
        runTool("compress " + std::string(c.options) + " " + input + " " + path("out.zul"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
}

INSTANTIATE_TEST_SUITE_P(Compress, Report, ::testing::ValuesIn(kReportCases), NameOfCase());

}  // namespace

// The commands as a user runs them: what compress chooses and what its options change, as info
// reports it (info's own output is checked by the command-line table); the sensor header's
// transformation applied or not on decompressing; demo.
#include <cmath>
#include <cstring>
#include <regex>

#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

// The value after `key` (e.g. "points") in info's text output.
std::string infoField(const std::string& info, const std::string& key) {
    std::smatch match;
    const std::regex line("(^|\n)" + key + " +([^\n]*)");
    return std::regex_search(info, match, line) ? match[2].str() : "<missing " + key + ">";
}

class Commands : public ToolTest {};

struct OptionCase {
    const char* name;
    const char* input;
    const char* options;
    const char* field;  // empty: compress refuses, with `value` in its message
    const char* value;
};

void PrintTo(const OptionCase& c, std::ostream* out) { *out << c.name; }

const OptionCase kOptionCases[] = {
    {"pcd without grid gets a millimetre", "bun0.pcd", "", "step", "0.001"},
    {"step", "bun0.pcd", "--step 0.0005", "step", "0.0005"},
    {"step of a metre needs no matrix", "bun0.pcd", "--step 1", "version", "1"},
    {"normals by default", "bun0.pcd", "", "normals", "spherical"},
    {"no normals", "bun0.pcd", "--no-normals", "normals", "none"},
    {"chunk of 100", "bun0.pcd", "--chunk 100", "chunks", "4"},
    {"colour from the input", "colored_cloud.pcd", "", "colour", "rgb888"},
    {"rgb565", "colored_cloud.pcd", "--color rgb565", "colour", "rgb565"},
    {"no colour", "colored_cloud.pcd", "--color none", "colour", "none"},
    {"intensity of 0..1 becomes 0..255", "cturtle.pcd", "", "reflection", "0 .. 254"},
    {"reflection max", "sample_c.las", "--reflection 1000", "reflection", "0 .. 1000"},
    {"no reflection", "sample_c.las", "--reflection none", "reflection", "none"},
    {"nan points dropped", "table_scene_mug_stereo_textured.pcd", "", "points", "209280"},
    {"sensor header", "bun0.pcd", "--sensor-header --sensor-mount 12 --sensor-type 3", "sensor",
     "mount 12, type 3; may scale: yes, rotate: no, translate: no"},
    {"translation", "bun0.pcd", "--translate 1 2 3", "version", "2"},
    // Refused: the reason is said and nothing is written.
    {"step too fine for the extent", "sample_c.las", "--step 1e-15", "", "lies too far out"},
    {"colour mode unknown", "colored_cloud.pcd", "--color rgb", "",
     "--color rgb: use none, rgb565 or rgb888"},
    {"colour the input lacks", "bun0.pcd", "--color rgb888", "", "has no colour to keep"},
    {"normals the input lacks", "sample_c.las", "--normals", "", "has no normals to keep"},
    {"intensity the input lacks", "bun0.pcd", "--reflection 255", "", "has no intensity to keep"},
    {"reflection not a number", "sample_c.las", "--reflection lots", "",
     "--reflection lots: use none"},
    {"reflection zero", "sample_c.las", "--reflection 0", "", "--reflection 0: use none"},
    {"chunk zero", "bun0.pcd", "--chunk 0", "", "--chunk 0: a chunk holds 1 to 2147483646 points"},
    {"mirroring rotation", "bun0.pcd", "--rotate -1 0 0 0 1 0 0 0 1", "",
     "the sensor header was refused"},
};

class CompressOption : public ToolTest, public ::testing::WithParamInterface<OptionCase> {};

TEST_P(CompressOption, ShowsInInfoOrIsRefused) {
    const OptionCase& c = GetParam();
    const ToolRun run = runTool("compress -q " + std::string(c.options) + " " + dataFile(c.input) +
                                " " + path("a.zul"));
    if (c.field[0] == '\0') {
        EXPECT_NE(run.exitCode, 0);
        EXPECT_NE(run.output.find(c.value), std::string::npos) << run.output;
        EXPECT_TRUE(folderContents().empty());
        return;
    }
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(infoField(runTool("info " + path("a.zul")).output, c.field), c.value);
}

INSTANTIATE_TEST_SUITE_P(Options, CompressOption, ::testing::ValuesIn(kOptionCases), NameOfCase());

// A quarter turn about z, doubled, then moved: x' = -2y + 10, y' = 2x + 20, z' = 2z + 30.
TEST_F(Commands, DecompressAppliesTheSensorHeaderUnlessAskedNotTo) {
    ASSERT_TRUE(
        toolSucceeds("compress -q --chunk 1 --order input --rotate 0 -1 0 1 0 0 0 0 1 --scale 2 "
                     "--translate 10 20 30 " +
                     dataFile("bun0.pcd") + " " + path("one.zul")));
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("one.zul") + " " + path("placed.ply")));
    ASSERT_TRUE(
        toolSucceeds("decompress -q --no-transform " + path("one.zul") + " " + path("stored.ply")));
    const std::vector<CloudPoint> original = readCloud(dataFile("bun0.pcd"));
    const std::vector<CloudPoint> placed = readCloud(path("placed.ply"));
    const std::vector<CloudPoint> stored = readCloud(path("stored.ply"));
    ASSERT_EQ(placed.size(), original.size());
    ASSERT_EQ(stored.size(), original.size());
    for (size_t i = 0; i < original.size(); ++i) {
        const double* o = original[i].point.position;
        const double* s = stored[i].point.position;
        const double* p = placed[i].point.position;
        // Stored on the integer grid of the 1 mm step, which the matrix scales.
        for (int a = 0; a < 3; ++a) ASSERT_EQ(s[a], std::round(o[a] / 0.001));
        ASSERT_NEAR(p[0], -0.002 * s[1] + 10, 1e-9);
        ASSERT_NEAR(p[1], 0.002 * s[0] + 20, 1e-9);
        ASSERT_NEAR(p[2], 0.002 * s[2] + 30, 1e-9);
    }
    const std::string info = runTool("info " + path("one.zul")).output;
    EXPECT_EQ(infoField(info, "sensor"),
              "mount 0, type 0; may scale: yes, rotate: yes, translate: yes");
    EXPECT_EQ(infoField(info, "matrix"), "[           0       -0.002            0           10]");
}

TEST_F(Commands, DemoChecksEveryPoint) {
    const ToolRun demo = runTool("demo -q --points 30000 --keep " + path("demo.zul"));
    EXPECT_EQ(demo.exitCode, 0) << demo.output;
    EXPECT_NE(demo.output.find("every point matches its quantised original"), std::string::npos)
        << demo.output;
    const std::string info = runTool("info " + path("demo.zul")).output;
    EXPECT_EQ(infoField(info, "points"), "30000");
    EXPECT_EQ(infoField(info, "chunks"), "3");
}

}  // namespace

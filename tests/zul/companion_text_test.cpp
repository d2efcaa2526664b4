// XYZ and CSV text through the companion: the columns the stream lacks, the lines before the
// first point and after the last, and the points it cannot hold come back in the file's column
// order and separator, every number as the float64 (or int64) it was; the positions as the
// stream rounded them, or their own numbers with --exact. A damaged companion is refused.
#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

struct TextCase {
    const char* name;
    const char* file;
    const char* content;
    const char* options;
    const char* expected;  // the text decompress writes
};

void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name; }

const TextCase kTextCases[] = {
    {"csv with a header and extra columns", "a.csv",
     "id,x,y,z,class,t\n1,1.2345,2.5,3,2,0.125\n2,4.0001,5.5,6,3,1e-7\n# end\n", "",
     "id,x,y,z,class,t\n1,1.2350,2.5,3,2,0.125\n2,4.0000,5.5,6,3,1e-07\n# end\n"},
    {"csv exact", "a.csv", "id,x,y,z,class,t\n1,1.2345,2.5,3,2,0.125\n2,4.0001,5.5,6,3,1e-7\n",
     "--exact", "id,x,y,z,class,t\n1,1.2345,2.5,3,2,0.125\n2,4.0001,5.5,6,3,1e-07\n"},
    {"xyz with extra columns named in a comment", "b.xyz",
     "// x y z quality label\n1 2 3 0.75 -4\n4 5 6 1.5e300 9\n", "",
     "// x y z quality label\n1 2 3 0.75 -4\n4 5 6 1.5e+300 9\n"},
    {"an integer column, a NaN point and a colour beyond 255", "c.txt",
     "x\ty\tz\tr\tg\tb\tcount\n0.5\t0.5\t0.5\t256\t0\t7\t9007199254740991\n"
     "nan\t1\t1\t1\t2\t3\t-12\n",
     "",
     "x\ty\tz\tr\tg\tb\tcount\n0.5\t0.5\t0.5\t256\t0\t7\t9007199254740991\n"
     "nan\t1\t1\t1\t2\t3\t-12\n"},
    {"lines ending in CR LF, a whole number float64 cannot hold", "f.csv",
     "x,y,z,n\r\n1,2,3,9007199254740993\r\n", "", "x,y,z,n\r\n1,2,3,9007199254740992\r\n"},
    {"semicolons and decimal commas", "d.csv", "x;y;z;w\n1,25;2;3;0,5\n", "",
     "x;y;z;w\n1,25;2;3;0,5\n"},
    {"a .pts count, a box leaving one point", "e.pts",
     "# scan\n2\n1 1 1 10 20 30 7\n5 5 5 1 2 3 8\n", "--bbox 0,0,0,2,2,2",
     "# scan\n1\n1 1 1 10 20 30 7\n"},
    {"an intensity just above the stream's largest", "h.csv",
     "x,y,z,intensity,k\n1,2,3,31,5\n4,5,6,7,6\n", "--reflection 30",
     "x,y,z,intensity,k\n1,2,3,31,5\n4,5,6,7,6\n"},
    {"a box in the input's order, not the stored one", "g.csv",
     "x,y,z,k\n5,5,5,1\n4,4,4,2\n3,3,3,3\n1,1,1,4\n2,2,2,5\n", "--bbox 0,0,0,4.5,4.5,4.5",
     "x,y,z,k\n4,4,4,2\n3,3,3,3\n1,1,1,4\n2,2,2,5\n"},
};

class CompanionText : public ToolTest, public ::testing::WithParamInterface<TextCase> {};

TEST_P(CompanionText, ColumnsAndLinesComeBack) {
    const TextCase& c = GetParam();
    const std::string input = path(c.file), zul = path("t.zul");
    writeBytes(input, c.content);
    const std::string options = c.options;
    const bool box = options.rfind("--bbox", 0) == 0;
    ASSERT_TRUE(
        toolSucceeds("compress -q --keep-order " + (box ? "" : options + " ") + input + " " + zul));
    std::filesystem::rename(input, input + ".in");
    // No output name: the input's own.
    ASSERT_TRUE(toolSucceeds("decompress -q " + (box ? options + " " : "") + zul));
    EXPECT_EQ(readBytes(input), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Files, CompanionText, ::testing::ValuesIn(kTextCases), NameOfCase());

// Cut, or a flipped bit in its blocks: refused, naming it; the stream alone still decodes.
TEST_F(CompanionText, DamagedCompanionIsRefusedByName) {
    const std::string input = path("a.csv"), zul = path("a.zul"), companion = path("a.zulx");
    writeBytes(input, kTextCases[0].content);
    for (const bool cut : {true, false}) {
        SCOPED_TRACE(cut ? "cut" : "flipped");
        ASSERT_TRUE(toolSucceeds("compress -q -f " + input + " " + zul));
        std::string bytes = readBytes(companion);
        if (cut) bytes.resize(bytes.size() - 9);
        if (!cut) bytes[bytes.size() / 2] ^= 8;
        writeBytes(companion, bytes);
        const ToolRun run = runTool("decompress -q -f " + zul + " " + path("b.csv"));
        EXPECT_NE(run.exitCode, 0);
        EXPECT_NE(run.output.find(companion + ": "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(cut ? "cannot be read (truncated)" : "damaged"),
                  std::string::npos)
            << run.output;
        EXPECT_FALSE(std::filesystem::exists(path("b.csv")));
        EXPECT_TRUE(toolSucceeds("decompress -q -f --no-companion " + zul + " " + path("c.csv")));
    }
}

}  // namespace

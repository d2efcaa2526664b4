// Missing, empty, cut and malformed inputs of every format: the tool names the file, says what is
// wrong, exits with a failure, and leaves an existing output file as it was, with no partial
// file beside it.
#include <fstream>

#include "support/test_names.h"
#include "tool_support.h"

namespace {

std::string bytesOf(const std::string& path, size_t first = 0, size_t count = std::string::npos) {
    return readText(path).substr(first, count);
}

// A valid zul file of a shared cloud, made once for all cases.
// compress stores a LAS file's grid in the matrix of a sensor header: the signature and file header
// of such a stream take 172 bytes.
constexpr size_t kHead = 172;

const std::string& sampleZul() {
    static const std::string bytes = [] {
        const std::string path = std::filesystem::temp_directory_path() /
                                 ("zul_tool_sample_" + std::to_string(::getpid()) + ".zul");
        runTool("compress -q --chunk 5000 " + dataFile("4_6_crop.las") + " " + path);
        std::string result = readText(path);
        std::remove(path.c_str());
        return result;
    }();
    return bytes;
}

struct DamagedCase {
    const char* name;
    const char* inputName;
    std::string (*content)();  // null: the input does not exist
    const char* command;       // "compress", "decompress" or "info"
    const char* outputName;
    const char* message;
};

// A failing case is shown by its name.
void PrintTo(const DamagedCase& c, std::ostream* out) { *out << c.name; }

std::string flipped(std::string bytes, size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 0x5A);
    return bytes;
}

const DamagedCase kCases[] = {
    {"missing input", "absent.las", nullptr, "compress", "out.zul",
     "absent.las: cannot open the file"},
    {"empty las", "empty.las", [] { return std::string(); }, "compress", "out.zul",
     "empty.las: the file ends early, inside the LAS header"},
    {"las cut inside its points", "cut.las",
     [] { return bytesOf(dataFile("sample_c.las"), 0, 200000); }, "compress", "out.zul",
     "cut.las: the file ends before the 14408 points its header announces (truncated)"},
    {"las without signature", "other.las",
     [] { return "LASX" + bytesOf(dataFile("sample_c.las"), 4); }, "compress", "out.zul",
     "other.las: not a LAS file"},
    {"compressed las points", "packed.las",
     [] {
         std::string b = bytesOf(dataFile("sample_c.las"));
         b[104] = static_cast<char>(b[104] | 0x80);
         return b;
     },
     "compress", "out.zul", "packed.las: compressed LAS points are not supported"},
    {"las version 2", "v2.las",
     [] {
         std::string b = bytesOf(dataFile("sample_c.las"));
         b[24] = 2;
         return b;
     },
     "compress", "out.zul", "v2.las: LAS version 2.2 is not supported"},
    {"pcd without data line", "nodata.pcd",
     [] { return std::string("VERSION 0.7\nFIELDS x y z\nSIZE 4 4 4\nTYPE F F F\n"); }, "compress",
     "out.zul", "nodata.pcd: the PCD header has no DATA line"},
    {"pcd without z", "noz.pcd",
     [] { return std::string("FIELDS x y\nSIZE 4 4\nTYPE F F\nPOINTS 1\nDATA ascii\n1 2\n"); },
     "compress", "out.zul", "noz.pcd: the PCD file has no field z"},
    {"pcd ascii with a word", "word.pcd",
     [] {
         return std::string(
             "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nPOINTS 2\nDATA ascii\n1 2 3\n1 "
             "two 3\n");
     },
     "compress", "out.zul", "word.pcd: point 1 holds a value that is not a number"},
    {"pcd ascii cut", "short.pcd",
     [] {
         return std::string("FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nPOINTS 3\nDATA ascii\n1 2 3\n");
     },
     "compress", "out.zul", "short.pcd: the file ends after 1 of 3 points (truncated)"},
    {"pcd binary cut", "cut.pcd", [] { return bytesOf(dataFile("colored_cloud.pcd"), 0, 20000); },
     "compress", "out.zul", "cut.pcd: the file ends before the 1000 points"},
    {"pcd compressed block damaged", "lzf.pcd",
     [] {
         // The block's first byte becomes a back-reference to before its start.
         std::string b = bytesOf(dataFile("cturtle.pcd"));
         b[b.find("binary_compressed\n") + 18 + 8] = static_cast<char>(0xFF);
         return b;
     },
     "compress", "out.zul", "lzf.pcd: the compressed block does not decompress (damaged)"},
    {"pcd compressed sizes damaged", "sizes.pcd",
     [] {
         std::string b = bytesOf(dataFile("cturtle.pcd"));
         const size_t data = b.find("binary_compressed\n") + 18;
         b[data + 6] = 0x7F;  // the unpacked size becomes far larger than the header says
         return b;
     },
     "compress", "out.zul", "sizes.pcd: the compressed block's sizes do not match the header"},
    {"ply without end_header", "open.ply",
     [] { return std::string("ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n"); },
     "compress", "out.zul", "open.ply: the PLY header has no end_header line"},
    {"ply binary cut", "cut.ply",
     [] {
         return std::string(
                    "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty "
                    "float x\nproperty float y\nproperty float z\nend_header\n") +
                std::string(20, '\0');
     },
     "compress", "out.zul", "cut.ply: the file ends before the 2 vertices"},
    {"not a ply", "plain.ply", [] { return std::string("solid cube\n"); }, "compress", "out.zul",
     "plain.ply: not a PLY file"},
    {"xyz of five columns", "five.xyz", [] { return std::string("1 2 3 4 5\n"); }, "compress",
     "out.zul", "five.xyz: line 1: 5 values without a line of column names are not understood"},
    {"xyz with a short line", "short.xyz", [] { return std::string("1 2 3\n4 5\n"); }, "compress",
     "out.zul", "short.xyz: line 2: 2 values where the file has 3 columns"},
    {"xyz with decimal commas", "commas.xyz", [] { return std::string("1,5 2,5 3,5\n"); },
     "compress", "out.zul", "commas.xyz: line 1: value 2 (\"5 2\") is not a number"},
    {"xyz with an extra value", "extra.xyz", [] { return std::string("1 2 3\n4 5 6 7\n"); },
     "compress", "out.zul", "extra.xyz: line 2: 4 values where the file has 3 columns"},
    {"csv with an empty value", "empty.csv", [] { return std::string("x,y,z\n1,,3\n"); },
     "compress", "out.zul", "empty.csv: line 2: value 2 (\"\") is not a number"},
    {"pts with a wrong count", "count.pts", [] { return std::string("3\n1 2 3\n4 5 6\n"); },
     "compress", "out.zul", "count.pts: the first line announces 3 points, the file holds 2"},
    {"names without x y z", "names.xyz", [] { return std::string("a b c\n1 2 3\n"); }, "compress",
     "out.zul", "names.xyz: line 1: a line of column names without x, y and z"},
    {"pcd header line with binary bytes", "binary.pcd",
     [] { return std::string("VERSION .7\nFIELDS x y z\n\x01\x02\xff\n"); }, "compress", "out.zul",
     "binary.pcd: the PCD header has a line it cannot read: \"???\""},
    {"kitti of a partial point", "partial.bin", [] { return std::string(17, '\0'); }, "compress",
     "out.zul", "partial.bin: the file is not a whole number of 16-byte points"},
    {"unknown extension", "cloud.e57", [] { return std::string("x"); }, "compress", "out.zul",
     "cloud.e57: the extension \".e57\" is not a format the tool knows"},
    {"zul missing", "absent.zul", nullptr, "decompress", "out.ply",
     "absent.zul: the file cannot be opened or read (read error)"},
    {"zul empty", "empty.zul", [] { return std::string(); }, "decompress", "out.ply",
     "empty.zul: the file ends inside its signature or header (truncated)"},
    {"zul cut inside a chunk", "cut.zul", [] { return sampleZul().substr(0, 60000); }, "decompress",
     "out.ply", "cut.zul: the file ends inside a chunk (truncated)"},
    {"zul cut inside a chunk header", "cuthead.zul",
     [] { return sampleZul().substr(0, kHead + 16 + 20); }, "info", "",
     "cuthead.zul: the file ends inside a chunk (truncated)"},
    {"zul marker damaged", "marker.zul", [] { return flipped(sampleZul(), kHead + 3); },
     "decompress", "out.ply",
     "marker.zul: a chunk holds values no writer produces: the file is damaged (corrupt data)"},
    {"zul marker damaged for info", "marker2.zul", [] { return flipped(sampleZul(), kHead + 3); },
     "info", "", "(corrupt data)"},
    {"zul signature foreign", "sig.zul", [] { return flipped(sampleZul(), 0); }, "decompress",
     "out.ply",
     "sig.zul: not a zul file: its first bytes are not the zul signature (bad signature)"},
    {"zul version 3", "v3.zul",
     [] {
         std::string b = sampleZul();
         b[3] = 3;
         return b;
     },
     "info", "", "v3.zul: a zul file of a format version this library does not read (bad version)"},
    {"zul to an unknown format", "good.zul", [] { return sampleZul(); }, "decompress", "out.e57",
     "out.e57: the extension \".e57\" is not a format the tool knows"},
};

class DamagedInput : public ToolTest, public ::testing::WithParamInterface<DamagedCase> {};

TEST_P(DamagedInput, NamesTheFileAndKeepsTheOutput) {
    const DamagedCase& c = GetParam();
    const std::string input = path(c.inputName);
    if (c.content != nullptr) writeText(input, c.content());
    const bool info = std::string(c.command) == "info";
    // -f: the output is kept even when it may be replaced.
    std::string arguments = std::string(c.command) + (info ? " " : " -q -f ") + input;
    const std::string output = c.outputName[0] != '\0' ? path(c.outputName) : "";
    if (!output.empty()) {
        writeText(output, "precious");
        arguments += " " + output;
    }
    const std::vector<std::string> before = folderContents();

    const ToolRun run = runTool(arguments);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
    if (!output.empty()) {
        EXPECT_TRUE(readText(output) == "precious");
    }
    EXPECT_EQ(folderContents(), before);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, DamagedInput, ::testing::ValuesIn(kCases), NameOfCase());

}  // namespace

// Missing, empty, cut and malformed inputs of every format: the tool names the file, says what is
// wrong, exits with a failure, and leaves an existing output file as it was, with no partial
// file beside it.
#include <fstream>
#include <sstream>

#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

std::string bytesOf(const std::string& path, size_t first = 0, size_t count = std::string::npos) {
    return readFile(path).substr(first, count);
}

// A valid zul file of a shared cloud, made once for all cases.
// compress stores a LAS file's grid in the matrix of a sensor header: the signature and file header
// of such a stream take 172 bytes.
constexpr size_t kHead = 172;

const std::string& sampleZul() {
    static const std::string bytes = [] {
        const std::string path = std::filesystem::temp_directory_path() /
                                 ("zul_tool_sample_" + std::to_string(::getpid()) + ".zul");
        runTool("compress -q -f --no-companion --chunk 5000 " + dataFile("4_6_crop.las") + " " +
                path);
        std::string result = readFile(path);
        std::remove(path.c_str());
        return result;
    }();
    return bytes;
}

struct DamagedCase {
    const char* name;       // the input's name
    const char* text;       // its content; null: made by `make`, or the input does not exist
    std::string (*make)();  //
    const char* command;    // "compress", "decompress" or "info", and the output's name if
                            // not out.zul or out.ply
    const char* message;
};

// A failing case is shown by its name.
void PrintTo(const DamagedCase& c, std::ostream* out) { *out << c.name; }

std::string flipped(std::string bytes, size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 0x5A);
    return bytes;
}

std::string withByte(std::string bytes, size_t at, char value) {
    bytes[at] = value;
    return bytes;
}

const char* const kPly =
    "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty float x\n"
    "property float y\nproperty float z\nend_header\n";

const DamagedCase kCases[] = {
    {"absent.las", nullptr, nullptr, "compress", "absent.las: cannot open the file"},
    {"empty.las", "", nullptr, "compress", "empty.las: the file ends early, inside the LAS header"},
    {"cut.las", nullptr, [] { return bytesOf(dataFile("sample_c.las"), 0, 200000); }, "compress",
     "cut.las: the file ends before the 14408 points its header announces (truncated)"},
    {"other.las", nullptr, [] { return "LASX" + bytesOf(dataFile("sample_c.las"), 4); }, "compress",
     "other.las: not a LAS file"},
    {"packed.las", nullptr,
     [] {
         const std::string b = bytesOf(dataFile("sample_c.las"));
         return withByte(b, 104, static_cast<char>(b[104] | 0x80));
     },
     "compress", "packed.las: compressed LAS points are not supported"},
    {"v2.las", nullptr, [] { return withByte(bytesOf(dataFile("sample_c.las")), 24, 2); },
     "compress", "v2.las: LAS version 2.2 is not supported"},
    {"nodata.pcd", "VERSION 0.7\nFIELDS x y z\nSIZE 4 4 4\nTYPE F F F\n", nullptr, "compress",
     "nodata.pcd: the PCD header has no DATA line"},
    {"noz.pcd", "FIELDS x y\nSIZE 4 4\nTYPE F F\nPOINTS 1\nDATA ascii\n1 2\n", nullptr, "compress",
     "noz.pcd: the PCD file has no field z"},
    {"word.pcd", "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nPOINTS 2\nDATA ascii\n1 2 3\n1 two 3\n",
     nullptr, "compress", "word.pcd: point 1 holds a value that is not a number"},
    {"short.pcd", "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nPOINTS 3\nDATA ascii\n1 2 3\n", nullptr,
     "compress", "short.pcd: the file ends after 1 of 3 points (truncated)"},
    {"cut.pcd", nullptr, [] { return bytesOf(dataFile("colored_cloud.pcd"), 0, 20000); },
     "compress", "cut.pcd: the file ends before the 1000 points"},
    // The block's first byte becomes a back-reference to before its start.
    {"lzf.pcd", nullptr,
     [] {
         const std::string b = bytesOf(dataFile("cturtle.pcd"));
         return withByte(b, b.find("binary_compressed\n") + 18 + 8, static_cast<char>(0xFF));
     },
     "compress", "lzf.pcd: the compressed block does not decompress to its declared size"},
    // A block of 200 bytes of literals (193 bytes) declaring the 12000 of 1000 points: refused
    // before the 12000 are allocated.
    {"declared.pcd", nullptr,
     [] {
         std::string b =
             "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nPOINTS 1000\nDATA binary_compressed\n";
         b += std::string("\xC8\0\0\0\xE0\x2E\0\0", 8);  // 200 packed, 12000 unpacked
         for (int run = 0; run < 6; ++run) b += '\x1F' + std::string(32, 'a');
         return b + '\0' + 'a';
     },
     "compress", "declared.pcd: the compressed block does not decompress to its declared size"},
    // The unpacked size becomes far larger than the header says.
    {"sizes.pcd", nullptr,
     [] {
         const std::string b = bytesOf(dataFile("cturtle.pcd"));
         return withByte(b, b.find("binary_compressed\n") + 18 + 6, 0x7F);
     },
     "compress", "sizes.pcd: the compressed block's sizes do not match the header"},
    {"open.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n", nullptr, "compress",
     "open.ply: the PLY header has no end_header line"},
    {"cut.ply", nullptr, [] { return kPly + std::string(20, '\0'); }, "compress",
     "cut.ply: the file ends before the 2 vertices"},
    {"plain.ply", "solid cube\n", nullptr, "compress", "plain.ply: not a PLY file"},
    {"five.xyz", "1 2 3 4 5\n", nullptr, "compress",
     "five.xyz: line 1: 5 values without a line of column names are not understood"},
    {"short.xyz", "1 2 3\n4 5\n", nullptr, "compress",
     "short.xyz: line 2: 2 values where the file has 3 columns"},
    {"commas.xyz", "1,5 2,5 3,5\n", nullptr, "compress",
     "commas.xyz: line 1: value 2 (\"5 2\") is not a number"},
    {"extra.xyz", "1 2 3\n4 5 6 7\n", nullptr, "compress",
     "extra.xyz: line 2: 4 values where the file has 3 columns"},
    {"empty.csv", "x,y,z\n1,,3\n", nullptr, "compress",
     "empty.csv: line 2: value 2 (\"\") is not a number"},
    {"count.pts", "3\n1 2 3\n4 5 6\n", nullptr, "compress",
     "count.pts: the first line announces 3 points, the file holds 2"},
    // Found by the format readers' fuzz target: a count beyond 64 bits.
    {"huge.pts", nullptr, [] { return std::string(68, '2') + "\n1 2 3\n"; }, "compress",
     "huge.pts: the point count on the first line is too large"},
    {"names.xyz", "a b c\n1 2 3\n", nullptr, "compress",
     "names.xyz: line 1: a line of column names without x, y and z"},
    {"binary.pcd", "VERSION .7\nFIELDS x y z\n\x01\x02\xff\n", nullptr, "compress",
     "binary.pcd: the PCD header has a line it cannot read: \"???\""},
    {"partial.bin", nullptr, [] { return std::string(17, '\0'); }, "compress",
     "partial.bin: the file is not a whole number of 16-byte points"},
    {"cloud.e57", "x", nullptr, "compress",
     "cloud.e57: the extension \".e57\" is not a format the tool knows"},
    {"empty.zul", "", nullptr, "decompress",
     "empty.zul: the file ends inside its signature or header (truncated)"},
    {"cut.zul", nullptr, [] { return sampleZul().substr(0, 60000); }, "decompress",
     "cut.zul: the file ends inside a chunk (truncated)"},
    {"cuthead.zul", nullptr, [] { return sampleZul().substr(0, kHead + 16 + 20); }, "info",
     "cuthead.zul: damaged at chunk 0 (byte 172): 0 points in 0 chunks before it are intact; "
     "the file ends inside a chunk (truncated)"},
    {"marker.zul", nullptr, [] { return flipped(sampleZul(), kHead + 3); }, "decompress",
     "marker.zul: a chunk holds values no writer produces: the file is damaged (corrupt data)"},
    {"sig.zul", nullptr, [] { return flipped(sampleZul(), 0); }, "decompress",
     "sig.zul: not a zul file: its first bytes are not the zul signature (bad signature)"},
    {"v3.zul", nullptr, [] { return withByte(sampleZul(), 3, 3); }, "info",
     "v3.zul: a zul file of a format version this library does not read (bad version)"},
    {"good.zul", nullptr, [] { return sampleZul(); }, "decompress out.e57",
     "out.e57: the extension \".e57\" is not a format the tool knows"},
};

class DamagedInput : public ToolTest, public ::testing::WithParamInterface<DamagedCase> {};

TEST_P(DamagedInput, NamesTheFileAndKeepsTheOutput) {
    const DamagedCase& c = GetParam();
    const std::string input = path(c.name);
    if (c.text != nullptr) writeFile(input, c.text);
    if (c.make != nullptr) writeFile(input, c.make());
    std::stringstream command(c.command);
    std::string verb, outputName;
    command >> verb >> outputName;
    const bool info = verb == "info";
    if (outputName.empty() && !info) outputName = verb == "compress" ? "out.zul" : "out.ply";
    // -f: the output is kept even when it may be replaced.
    std::string arguments = verb + (info ? " " : " -q -f ") + input;
    const std::string output = info ? "" : path(outputName);
    if (!info) {
        writeFile(output, "precious");
        arguments += " " + output;
    }
    const std::vector<std::string> before = folderContents();

    const ToolRun run = runTool(arguments);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
    if (!output.empty()) {
        EXPECT_TRUE(readFile(output) == "precious");
    }
    EXPECT_EQ(folderContents(), before);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, DamagedInput, ::testing::ValuesIn(kCases), NameOfCase());

}  // namespace

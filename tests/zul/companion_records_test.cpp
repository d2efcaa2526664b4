// PCD and PLY files through the companion: every field of every type and count comes back with
// its value, the header as it was, an organised PCD in its layout with its NaN points in place,
// a PLY file's other elements after its vertices; in the input's order with --keep-order (and
// always for an organised cloud), else the same records in stored order. With --exact the float
// positions and normals too, else the positions within half a step.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>

#include "formats/cloud.h"
#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

// A file's records as its reader hands them out (every field little-endian), and its header.
struct Records {
    std::vector<std::string> records;
    std::string header, tail;
};

Records recordsOf(const std::string& path) {
    const zulformats::Format format = zulformats::formatOfPath(path);
    std::unique_ptr<zulformats::CloudReader> reader = zulformats::openCloudReader(path, format);
    Records result;
    zul_Point point = {};
    const size_t size = reader->records()->size;
    while (reader->read(point)) {
        result.records.emplace_back(reinterpret_cast<const char*>(reader->record()), size);
    }
    const std::string bytes = readBytes(path);
    result.header = bytes.substr(0, reader->records()->dataBegin);
    result.tail = bytes.substr(reader->dataEnd());
    return result;
}

// A field of a generated file: name, PCD type letter, size, count.
struct Field {
    const char* name;
    char type;
    int size, count;
};

const Field kFields[] = {
    {"x", 'F', 4, 1},        {"y", 'F', 4, 1},         {"z", 'F', 8, 1},
    {"rgb", 'U', 4, 1},      {"intensity", 'F', 4, 1}, {"normal_x", 'F', 4, 1},
    {"normal_y", 'F', 4, 1}, {"normal_z", 'F', 4, 1},  {"ring", 'U', 2, 1},
    {"label", 'I', 1, 1},    {"flag", 'U', 1, 1},      {"offset", 'I', 2, 1},
    {"count", 'U', 4, 1},    {"delta", 'I', 4, 1},     {"stamp", 'U', 8, 1},
    {"shift", 'I', 8, 1},    {"time", 'F', 8, 1},      {"descriptor", 'F', 4, 3},
    {"_", 'U', 1, 2}};

// A value of the field's type from a seeded generator, little-endian; a NaN position for the
// points `nan` picks.
void fill(std::string& record, const Field& f, size_t at, uint64_t& state, bool nan) {
    for (int k = 0; k < f.count; ++k, at += f.size) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        const uint64_t bits = state >> 11;
        if (f.type == 'F') {
            const double v = nan && f.name[1] == '\0' ? std::numeric_limits<double>::quiet_NaN()
                                                      : (bits % 2000000) / 1000.0 - 1000.0 + 1e-5;
            if (f.size == 4) {
                const float single = static_cast<float>(v);
                std::memcpy(&record[at], &single, 4);
            } else {
                std::memcpy(&record[at], &v, 8);
            }
        } else {
            std::memcpy(&record[at], &bits, static_cast<size_t>(f.size));
        }
    }
}

// A little-endian value of a type as text: floats to the digits that bring them back.
std::string shown(const void* bytes, bool isFloat, bool isSigned, int size) {
    char buffer[64];
    uint64_t u = 0;
    std::memcpy(&u, bytes, static_cast<size_t>(size));
    const int shift = 64 - 8 * size;
    if (isFloat && size == 4) {
        float x;
        std::memcpy(&x, bytes, 4);
        std::snprintf(buffer, sizeof buffer, "%.9g", x);
    } else if (isFloat) {
        double x;
        std::memcpy(&x, bytes, 8);
        std::snprintf(buffer, sizeof buffer, "%.17g", x);
    } else if (isSigned) {
        std::snprintf(buffer, sizeof buffer, "%lld",
                      static_cast<long long>(static_cast<int64_t>(u << shift) >> shift));
    } else {
        std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(u));
    }
    return buffer;
}

struct PcdCase {
    const char* name;
    const char* data;  // ascii, binary, binary_compressed
    int width, height;
    bool nan, keepOrder;
    bool exact = true;  // --exact: else positions within half the step, every other field exact
};

void PrintTo(const PcdCase& c, std::ostream* out) { *out << c.name; }

// The records of a generated PCD file, and the file.
std::vector<std::string> generatedPcd(const PcdCase& c, const std::string& path) {
    std::string names, sizes, types, counts;
    size_t width = 0;
    for (const Field& f : kFields) {
        names += std::string(" ") + f.name;
        sizes += " " + std::to_string(f.size);
        types += std::string(" ") + f.type;
        counts += " " + std::to_string(f.count);
        width += static_cast<size_t>(f.size) * f.count;
    }
    const int points = c.width * c.height;
    std::string text = "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS" + names +
                       "\nSIZE" + sizes + "\nTYPE" + types + "\nCOUNT" + counts + "\nWIDTH " +
                       std::to_string(c.width) + "\nHEIGHT " + std::to_string(c.height) +
                       "\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + std::to_string(points) + "\nDATA " +
                       c.data + "\n";
    uint64_t state = 42;
    std::vector<std::string> records;
    for (int i = 0; i < points; ++i) {
        std::string record(width, '\0');
        size_t at = 0;
        for (const Field& f : kFields) {
            fill(record, f, at, state, c.nan && (i / c.width) % 3 == 1);
            at += static_cast<size_t>(f.size) * f.count;
        }
        records.push_back(record);
    }
    if (std::string(c.data) == "ascii") {
        // Written by the reader's own rules is what is checked: the text goes in as the values.
        for (const std::string& r : records) {
            std::string line;
            size_t at = 0;
            for (const Field& f : kFields) {
                for (int k = 0; k < f.count; ++k, at += f.size)
                    line += (line.empty() ? "" : " ") +
                            shown(&r[at], f.type == 'F', f.type == 'I', f.size);
            }
            text += line + "\n";
        }
    } else if (std::string(c.data) == "binary") {
        for (const std::string& r : records) text += r;
    } else {
        // An LZF block of literal runs only: what any LZF decoder reads.
        std::string block;
        size_t at = 0;
        for (const Field& f : kFields) {
            const size_t w = static_cast<size_t>(f.size) * f.count;
            for (const std::string& r : records) block += r.substr(at, w);
            at += w;
        }
        std::string packed;
        for (size_t i = 0; i < block.size(); i += 32) {
            const size_t run = std::min<size_t>(32, block.size() - i);
            packed += static_cast<char>(run - 1);
            packed += block.substr(i, run);
        }
        std::string sizes8(8, '\0');
        put<uint32_t>(sizes8, 0, static_cast<uint32_t>(packed.size()));
        put<uint32_t>(sizes8, 4, static_cast<uint32_t>(block.size()));
        text += sizes8 + packed;
    }
    writeBytes(path, text);
    return records;
}

// Without --exact: the positions within half the 0.001 step (and the float's rounding), every
// other field and the NaN rows as they were (the generated normals are no unit vectors: kept).
void expectRoundedPositions(const std::vector<std::string>& in,
                            const std::vector<std::string>& out) {
    ASSERT_EQ(in.size(), out.size());
    for (size_t i = 0; i < in.size(); ++i) {
        size_t at = 0;
        for (const Field& f : kFields) {
            const size_t w = static_cast<size_t>(f.size) * f.count;
            const std::string a = in[i].substr(at, w), b = out[i].substr(at, w);
            if (f.name[1] == '\0' && f.name[0] >= 'x' && a != b) {
                double u = 0, v = 0;
                if (f.size == 4) {
                    float x, y;
                    std::memcpy(&x, a.data(), 4);
                    std::memcpy(&y, b.data(), 4);
                    u = x, v = y;
                } else {
                    std::memcpy(&u, a.data(), 8);
                    std::memcpy(&v, b.data(), 8);
                }
                EXPECT_LE(std::fabs(u - v), 0.0005 + std::fabs(u) * 0x1p-24) << i << f.name;
            } else {
                EXPECT_TRUE(a == b) << "record " << i << ", " << f.name;
            }
            at += w;
        }
    }
}

// NaN is not equal to itself: records are compared as bytes.
void expectSameRecords(std::vector<std::string> in, std::vector<std::string> out, bool ordered) {
    if (!ordered) {
        std::sort(in.begin(), in.end());
        std::sort(out.begin(), out.end());
    }
    ASSERT_EQ(in.size(), out.size());
    EXPECT_TRUE(in == out);
}

const PcdCase kPcdCases[] = {
    {"ascii", "ascii", 300, 1, false, false},
    {"ascii in order", "ascii", 300, 1, false, true},
    {"binary", "binary", 300, 1, false, false},
    {"binary in order", "binary", 300, 1, true, true},
    {"compressed", "binary_compressed", 300, 1, false, false},
    {"organised binary with NaN rows", "binary", 40, 12, true, false},
    {"organised compressed with NaN rows", "binary_compressed", 40, 12, true, false},
    {"organised ascii with NaN rows", "ascii", 40, 12, true, false},
    {"binary rounded", "binary", 300, 1, true, true, false},
    {"organised compressed rounded", "binary_compressed", 40, 12, true, false, false},
};

class CompanionPcd : public ToolTest, public ::testing::WithParamInterface<PcdCase> {};

TEST_P(CompanionPcd, EveryFieldComesBack) {
    const PcdCase& c = GetParam();
    const std::string input = path("in.pcd"), zul = path("in.zul");
    const std::vector<std::string> records = generatedPcd(c, input);
    ASSERT_EQ(recordsOf(input).records, records);
    const ToolRun compress =
        runTool("compress --chunk 100 " + std::string(c.keepOrder ? "--keep-order " : "") +
                (c.exact ? "--exact " : "") + input + " " + zul);
    ASSERT_EQ(compress.exitCode, 0) << compress.output;
    EXPECT_NE(compress.output.find("in.zulx beside " + zul + " keeps"), std::string::npos)
        << compress.output;
    std::filesystem::rename(input, path("original.pcd"));
    // No output name: the input's own name and format.
    ASSERT_TRUE(toolSucceeds("decompress -q " + zul));
    const Records out = recordsOf(input);
    const bool ordered = c.keepOrder || c.height > 1;
    EXPECT_EQ(compress.output.find("positions are kept at a step of 0.001") == std::string::npos,
              c.exact)
        << compress.output;
    if (!c.exact) return expectRoundedPositions(records, out.records);
    expectSameRecords(records, out.records, ordered);
    EXPECT_EQ(out.header, recordsOf(path("original.pcd")).header);
    if (ordered && std::string(c.data) == "binary") {
        EXPECT_TRUE(readBytes(input) == readBytes(path("original.pcd")));
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, CompanionPcd, ::testing::ValuesIn(kPcdCases), NameOfCase());

// A PLY file of every property type in an encoding, NaN vertices, two faces after the vertices.
std::string generatedPly(const std::string& encoding, int count) {
    static const std::pair<const char*, const char*> kProperties[] = {
        {"x", "float"},     {"y", "float"},          {"z", "double"}, {"red", "uchar"},
        {"green", "uchar"}, {"blue", "uchar"},       {"nx", "float"}, {"ny", "float"},
        {"nz", "float"},    {"intensity", "ushort"}, {"c", "char"},   {"us", "ushort"},
        {"s", "short"},     {"ui", "uint"},          {"i", "int"},    {"d", "double"},
        {"f", "float32"},   {"u8", "uint8"}};
    std::string text = "ply\nformat " + encoding + " 1.0\ncomment generated\nelement vertex " +
                       std::to_string(count) + "\n";
    for (const auto& [name, type] : kProperties)
        text += std::string("property ") + type + " " + name + "\n";
    text += "element face 2\nproperty list uchar int vertex_indices\nend_header\n";
    uint64_t state = 7;
    const auto next = [&] {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return state >> 20;
    };
    const bool big = encoding == "binary_big_endian";
    for (int i = 0; i < count; ++i) {
        std::string line;
        for (const auto& [name, type] : kProperties) {
            const std::string t = type;
            const int size = t == "double"                                                 ? 8
                             : t == "float" || t == "float32" || t == "uint" || t == "int" ? 4
                             : t == "ushort" || t == "short"                               ? 2
                                                                                           : 1;
            const bool isFloat = t == "double" || t == "float" || t == "float32";
            const uint64_t bits = next();
            unsigned char v[8] = {};
            if (isFloat) {
                const double d = std::string(name) == "x" && i % 9 == 4
                                     ? std::numeric_limits<double>::quiet_NaN()
                                     : (bits % 100000) / 997.0 - 50;
                const float f = static_cast<float>(d);
                if (size == 4) std::memcpy(v, &f, 4);
                if (size == 8) std::memcpy(v, &d, 8);
            } else {
                std::memcpy(v, &bits, static_cast<size_t>(size));
            }
            const bool isSigned = t == "char" || t == "short" || t == "int";
            if (encoding == "ascii") {
                line += (line.empty() ? "" : " ") + shown(v, isFloat, isSigned, size);
            } else {
                if (big) std::reverse(v, v + size);
                line.append(reinterpret_cast<const char*>(v), static_cast<size_t>(size));
            }
        }
        text += line + (encoding == "ascii" ? "\n" : "");
    }
    if (encoding == "ascii") return text + "3 0 1 2\n3 1 2 3\n";
    for (int face = 0; face < 2; ++face) {
        text += '\3';
        for (int k = 0; k < 3; ++k) {
            std::string index(4, '\0');
            put<int32_t>(index, 0, face + k);
            if (big) std::reverse(index.begin(), index.end());
            text += index;
        }
    }
    return text;
}

class CompanionPly : public ToolTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(CompanionPly, EveryPropertyAndTheFacesComeBack) {
    const std::string encoding = GetParam();
    const std::string input = path("in.ply"), zul = path("in.zul");
    writeBytes(input, generatedPly(encoding, 500));
    const Records in = recordsOf(input);
    for (const char* order : {"", "--keep-order "}) {
        SCOPED_TRACE(order);
        ASSERT_TRUE(toolSucceeds("compress -q -f --exact --chunk 128 " + std::string(order) +
                                 input + " " + zul));
        ASSERT_TRUE(toolSucceeds("decompress -q -f " + zul + " " + path("out.ply")));
        const Records out = recordsOf(path("out.ply"));
        expectSameRecords(in.records, out.records, *order != '\0');
        EXPECT_EQ(out.header, in.header);
        EXPECT_EQ(out.tail, in.tail);
        if (*order != '\0' && encoding != "ascii") {
            EXPECT_TRUE(readBytes(path("out.ply")) == readBytes(input));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, CompanionPly,
                         ::testing::Values("ascii", "binary_little_endian", "binary_big_endian"));

class CompanionSharedPcd : public ToolTest {};

TEST_F(CompanionSharedPcd, SharedFilesComeBackInTheirLayout) {
    for (const char* name :
         {"bun0.pcd", "colored_cloud.pcd", "cturtle.pcd", "table_scene_mug_stereo_textured.pcd"}) {
        SCOPED_TRACE(name);
        const Records in = recordsOf(dataFile(name));
        const std::string zul = path("shared.zul"), out = path("shared.pcd");
        ASSERT_TRUE(
            toolSucceeds("compress -q -f --exact --keep-order " + dataFile(name) + " " + zul));
        ASSERT_TRUE(toolSucceeds("decompress -q -f " + zul + " " + out));
        const Records back = recordsOf(out);
        expectSameRecords(in.records, back.records, true);
        EXPECT_EQ(back.header, in.header);
    }
}

// Another encoding of the format: the same records, the header saying so.
TEST_F(CompanionSharedPcd, AnotherEncodingKeepsTheRecords) {
    const std::string zul = path("c.zul");
    const Records in = recordsOf(dataFile("colored_cloud.pcd"));
    ASSERT_TRUE(toolSucceeds("compress -q --exact " + dataFile("colored_cloud.pcd") + " " + zul));
    for (const char* encoding : {"ascii", "binary_compressed"}) {
        SCOPED_TRACE(encoding);
        ASSERT_TRUE(toolSucceeds("decompress -q -f --encoding " + std::string(encoding) + " " +
                                 zul + " " + path("c.pcd")));
        expectSameRecords(in.records, recordsOf(path("c.pcd")).records, true);
        EXPECT_NE(readBytes(path("c.pcd")).find("DATA " + std::string(encoding) + "\n"),
                  std::string::npos);
    }
}

// A box, or a salvage of a cut stream, keeps the records of the points it writes, whole, and the
// header counts them.
TEST_F(CompanionSharedPcd, PartsWriteWholeRecordsOfAnUnorganisedCloud) {
    const std::string zul = path("t.zul"), out = path("t.pcd");
    const std::string input = dataFile("table_scene_mug_stereo_textured.pcd");
    ASSERT_TRUE(toolSucceeds("compress -q --exact --chunk 5000 " + input + " " + zul));
    std::vector<std::string> in = recordsOf(input).records;
    std::sort(in.begin(), in.end());
    for (const bool cut : {false, true}) {
        SCOPED_TRACE(cut ? "salvage" : "box");
        if (cut) writeBytes(zul, readBytes(zul).substr(0, readBytes(zul).size() / 2));
        const ToolRun run =
            runTool("decompress -q -f " +
                    std::string(cut ? "--salvage " : "--bbox -0.5,0,0,0.5,1,1 ") + zul + " " + out);
        ASSERT_EQ(run.exitCode, cut ? 1 : 0) << run.output;
        std::vector<std::string> back = recordsOf(out).records;
        std::sort(back.begin(), back.end());
        EXPECT_GT(back.size(), 0u);
        EXPECT_LT(back.size(), in.size());
        EXPECT_TRUE(std::includes(in.begin(), in.end(), back.begin(), back.end()));
        EXPECT_NE(readBytes(out).find("HEIGHT 1\nVIEWPOINT 0 0 0 0 1 0 0\nPOINTS " +
                                      std::to_string(back.size()) + "\n"),
                  std::string::npos);
    }
}

}  // namespace

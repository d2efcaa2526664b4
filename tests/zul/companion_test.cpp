// The companion NAME.zulx as the tool writes and reads it: LAS files of every version and point
// format (extra bytes, VLRs, EVLRs, colour at every scale, points sharing a position) come back
// byte for byte with --keep-order, and with the same header, VLRs, EVLRs and records in stored
// order without; a companion of another stream or a damaged one is refused by name, and the
// stream alone still decodes; several threads write what one writes; verify names a chunk whose
// bytes changed.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

constexpr uint16_t kRecordSize[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
constexpr int kColorAt[11] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};

// How the colour of a generated file is held in LAS's 16 bits.
enum class Colour { Wide, Eight, Times256, Times257 };

struct LasCase {
    const char* name;
    int minor, format, extra;
    Colour colour;
};

void PrintTo(const LasCase& c, std::ostream* out) { *out << c.name; }

// A LAS file of `count` points: a VLR before the points (and padding after it), an EVLR after
// them in 1.4, every field of every record filled from a seeded generator, every seventh point at
// the position of the one before.
std::string generatedLas(const LasCase& c, uint32_t count) {
    uint64_t state = 0x9E3779B97F4A7C15ull * (c.format + 1) + c.minor;
    const auto next = [&] {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 32);
    };
    const uint16_t headerSize = c.minor >= 4 ? 375 : c.minor == 3 ? 235 : 227;
    const uint16_t length = static_cast<uint16_t>(kRecordSize[c.format] + c.extra);
    std::string vlr(54 + 20, '\0');
    std::memcpy(&vlr[2], "zul test", 8);
    put<uint16_t>(vlr, 18, 7);
    put<uint16_t>(vlr, 20, 20);
    std::memcpy(&vlr[22], "a record of its own", 19);
    for (int i = 0; i < 20; ++i) vlr[54 + i] = static_cast<char>(next());
    std::string bytes(headerSize, '\0');
    std::memcpy(&bytes[0], "LASF", 4);
    std::memcpy(&bytes[26], "generated", 9);
    bytes[24] = 1;
    bytes[25] = static_cast<char>(c.minor);
    put<uint16_t>(bytes, 94, headerSize);
    const uint32_t dataOffset = headerSize + static_cast<uint32_t>(vlr.size()) + 2;
    put<uint32_t>(bytes, 96, dataOffset);
    put<uint32_t>(bytes, 100, 1);
    bytes[104] = static_cast<char>(c.format);
    put<uint16_t>(bytes, 105, length);
    put<uint32_t>(bytes, 107, c.format >= 6 ? 0 : count);
    const double scaleAndOffset[6] = {0.01, 0.01, 0.001, 1000, 2000, 0};
    std::memcpy(&bytes[131], scaleAndOffset, 48);
    if (c.minor >= 4) put<uint64_t>(bytes, 247, count);
    bytes += vlr + "\xDD\xCC";
    std::string r(length, '\0');
    for (uint32_t i = 0; i < count; ++i) {
        const std::string before = r;
        for (char& b : r) b = static_cast<char>(next());
        if (i % 7 == 6) std::memcpy(&r[0], &before[0], 12);
        for (int axis = 0; axis < 3; ++axis) {
            if (i % 7 != 6) put<int32_t>(r, 4 * axis, static_cast<int32_t>(next() % 20000) - 5000);
        }
        if (c.format != 0 && c.format != 2) {
            put<double>(r, c.format >= 6 ? 22 : 20, 1e5 + i * 0.001 + (next() % 1000) * 1e-7);
        }
        if (kColorAt[c.format] > 0) {
            for (int k = 0; k < 3; ++k) {
                const uint16_t v = static_cast<uint16_t>(next());
                const uint16_t held = c.colour == Colour::Wide       ? v
                                      : c.colour == Colour::Eight    ? v & 0xFF
                                      : c.colour == Colour::Times256 ? (v & 0xFF) * 256
                                                                     : (v & 0xFF) * 257;
                put<uint16_t>(r, kColorAt[c.format] + 2 * k, held);
            }
        }
        bytes += r;
    }
    if (c.minor >= 4) {
        put<uint64_t>(bytes, 235, bytes.size());
        put<uint32_t>(bytes, 243, 1);
        std::string evlr(60 + 33, '\0');
        std::memcpy(&evlr[2], "zul test", 8);
        put<uint16_t>(evlr, 18, 9);
        put<uint64_t>(evlr, 20, 33);
        for (int i = 0; i < 33; ++i) evlr[60 + i] = static_cast<char>(next());
        bytes += evlr;
    }
    return bytes;
}

const LasCase kLasCases[] = {
    {"v1.0 format 0", 0, 0, 0, Colour::Wide},
    {"v1.0 format 1, extra bytes", 0, 1, 3, Colour::Wide},
    {"v1.1 format 1", 1, 1, 0, Colour::Wide},
    {"v1.2 format 2, 8-bit colour", 2, 2, 0, Colour::Eight},
    {"v1.2 format 3, colour times 256", 2, 3, 5, Colour::Times256},
    {"v1.3 format 4", 3, 4, 0, Colour::Wide},
    {"v1.3 format 5, colour times 257", 3, 5, 2, Colour::Times257},
    {"v1.4 format 0", 4, 0, 1, Colour::Wide},
    {"v1.4 format 1", 4, 1, 0, Colour::Wide},
    {"v1.4 format 2", 4, 2, 0, Colour::Times257},
    {"v1.4 format 3", 4, 3, 4, Colour::Wide},
    {"v1.4 format 4", 4, 4, 0, Colour::Wide},
    {"v1.4 format 5", 4, 5, 0, Colour::Eight},
    {"v1.4 format 6", 4, 6, 0, Colour::Wide},
    {"v1.4 format 7, extra bytes", 4, 7, 9, Colour::Wide},
    {"v1.4 format 8", 4, 8, 0, Colour::Times256},
    {"v1.4 format 9", 4, 9, 2, Colour::Wide},
    {"v1.4 format 10", 4, 10, 7, Colour::Wide},
};

// The header and VLRs, the records sorted, and what follows them: equal whatever the order.
struct LasParts {
    std::string head, tail;
    std::vector<std::string> records;
};

LasParts lasParts(const std::string& bytes) {
    LasParts parts;
    uint32_t dataOffset = 0;
    uint16_t length = 0;
    std::memcpy(&dataOffset, &bytes[96], 4);
    std::memcpy(&length, &bytes[105], 2);
    uint64_t count = 0;
    std::memcpy(&count, &bytes[107], 4);
    if (count == 0 && bytes[25] >= 4) std::memcpy(&count, &bytes[247], 8);
    parts.head = bytes.substr(0, dataOffset);
    for (uint64_t i = 0; i < count; ++i)
        parts.records.push_back(bytes.substr(dataOffset + i * length, length));
    std::sort(parts.records.begin(), parts.records.end());
    parts.tail = bytes.substr(dataOffset + count * length);
    return parts;
}

class CompanionLas : public ToolTest, public ::testing::WithParamInterface<LasCase> {
protected:
    // Compresses `input` (in small chunks, cut by the planner) and decompresses it, with and
    // without the order; the first must equal the input, the second hold the same parts.
    void roundTrip(const std::string& input) {
        const std::string original = readBytes(input);
        for (const bool keepOrder : {true, false}) {
            SCOPED_TRACE(keepOrder ? "--keep-order" : "stored order");
            const std::string zul = path(keepOrder ? "o.zul" : "s.zul");
            const std::string las = path(keepOrder ? "o.las" : "s.las");
            ASSERT_TRUE(toolSucceeds("compress -q -f --chunk 400 " +
                                     std::string(keepOrder ? "--keep-order " : "") + input + " " +
                                     zul));
            ASSERT_TRUE(std::filesystem::exists(zul + "x"));
            ASSERT_TRUE(toolSucceeds("decompress -q -f " + zul + " " + las));
            const std::string back = readBytes(las);
            if (keepOrder) {
                EXPECT_TRUE(back == original) << "the LAS written differs from " << input;
            } else {
                const LasParts a = lasParts(original), b = lasParts(back);
                EXPECT_TRUE(a.head == b.head);
                EXPECT_TRUE(a.tail == b.tail);
                EXPECT_TRUE(a.records == b.records);
            }
        }
    }
};

TEST_P(CompanionLas, GeneratedFileComesBackByteForByte) {
    const std::string input = path("in.las");
    writeBytes(input, generatedLas(GetParam(), 2500));
    roundTrip(input);
}

INSTANTIATE_TEST_SUITE_P(Formats, CompanionLas, ::testing::ValuesIn(kLasCases), NameOfCase());

class CompanionSharedLas : public CompanionLas {};

TEST_F(CompanionSharedLas, SharedFilesComeBackByteForByte) {
    for (const char* name : {"1.2-with-color.las", "4_6_crop.las", "sample_c.las"}) {
        SCOPED_TRACE(name);
        roundTrip(dataFile(name));
    }
}

// What must be refused: a companion that is not the stream's, or is damaged.
struct Refusal {
    const char* name;
    std::function<void(const std::string& companion, const std::string& stream)> damage;
    const char* message;
};

void PrintTo(const Refusal& c, std::ostream* out) { *out << c.name; }

const Refusal kRefusals[] = {
    {"another stream's companion",
     [](const std::string& companion, const std::string&) {
         writeBytes(companion, readBytes(companion + ".other"));
     },
     "does not belong to"},
    {"truncated",
     [](const std::string& companion, const std::string&) {
         const std::string bytes = readBytes(companion);
         writeBytes(companion, bytes.substr(0, bytes.size() / 2));
     },
     "the companion is damaged (truncated)"},
    {"a flipped bit in its head",
     [](const std::string& companion, const std::string&) {
         std::string bytes = readBytes(companion);
         bytes[40] ^= 1;
         writeBytes(companion, bytes);
     },
     "the companion is damaged"},
    {"a flipped bit in a block",
     [](const std::string& companion, const std::string&) {
         std::string bytes = readBytes(companion);
         bytes[bytes.size() / 2] ^= 8;
         writeBytes(companion, bytes);
     },
     "are damaged"},
};

class CompanionRefused : public ToolTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(CompanionRefused, NamedNeverUsedAndTheStreamAloneStillDecodes) {
    const std::string input = path("in.las"), zul = path("a.zul"), companion = path("a.zulx");
    writeBytes(input, generatedLas(kLasCases[4], 3000));
    ASSERT_TRUE(toolSucceeds("compress -q --chunk 500 " + dataFile("sample_c.las") + " " + zul));
    std::filesystem::rename(companion, companion + ".other");
    ASSERT_TRUE(toolSucceeds("compress -q -f --chunk 500 " + input + " " + zul));
    GetParam().damage(companion, zul);
    const ToolRun decompress = runTool("decompress -q " + zul + " " + path("a.las"));
    EXPECT_NE(decompress.exitCode, 0);
    EXPECT_NE(decompress.output.find(companion), std::string::npos) << decompress.output;
    const ToolRun verify = runTool("verify " + zul);
    EXPECT_NE(verify.exitCode, 0);
    EXPECT_NE(verify.output.find(GetParam().message), std::string::npos) << verify.output;
    EXPECT_TRUE(toolSucceeds("decompress -q -f --no-companion " + zul + " " + path("a.las")));
}

INSTANTIATE_TEST_SUITE_P(Damage, CompanionRefused, ::testing::ValuesIn(kRefusals), NameOfCase());

// Compresses and restores on several threads: the bytes one thread writes, and a damaged block of
// the companion named as one thread names it. Enough points for several runs of chunks on each
// worker, and for more than one batch of the companion's columns.
struct Threaded {
    const char* name;
    const char* compress;
    const char* decompress;
    bool damaged;  // a bit of a companion block flipped
};

void PrintTo(const Threaded& c, std::ostream* out) { *out << c.name; }

const Threaded kThreaded[] = {
    {"stored order", "", "", false},
    {"input order", "--keep-order ", "", false},
    {"box", "", "--bbox 990,1990,-10,1080,2080,10 ", false},
    {"damaged block", "", "", true},
    {"damaged block in input order", "--keep-order ", "", true},
};

class CompanionThreads : public ToolTest, public ::testing::WithParamInterface<Threaded> {};

TEST_P(CompanionThreads, WriteWhatOneThreadWrites) {
    const Threaded& c = GetParam();
    const std::string input = path("in.las"), zul = path("a.zul");
    writeBytes(input, generatedLas(kLasCases[3], 140000));
    ASSERT_TRUE(toolSucceeds("compress -q -j 3 --chunk 700 " + std::string(c.compress) + input +
                             " " + zul));
    if (!c.damaged && std::string(c.decompress).empty()) {
        const std::string alone = path("b.zul");
        ASSERT_TRUE(toolSucceeds("compress -q -j 1 --chunk 700 " + std::string(c.compress) + input +
                                 " " + alone));
        EXPECT_TRUE(readBytes(alone) == readBytes(zul));
        EXPECT_TRUE(readBytes(alone + "x") == readBytes(zul + "x")) << "-j 3 writes other bytes";
    }
    if (c.damaged) {
        std::string bytes = readBytes(zul + "x");
        bytes[bytes.size() / 2] ^= 8;
        writeBytes(zul + "x", bytes);
    }
    std::string written[2];
    ToolRun runs[2];
    for (const int threads : {1, 3}) {
        const std::string las = path("j" + std::to_string(threads) + ".las");
        runs[threads / 2] = runTool("decompress -q -j " + std::to_string(threads) + " " +
                                    c.decompress + zul + " " + las);
        if (!c.damaged) written[threads / 2] = readBytes(las);
    }
    EXPECT_EQ(runs[0].exitCode, c.damaged ? 1 : 0) << runs[0].output;
    EXPECT_EQ(runs[1].exitCode, runs[0].exitCode) << runs[1].output;
    EXPECT_EQ(runs[1].output, runs[0].output);
    if (c.damaged) {
        EXPECT_NE(runs[1].output.find("'s fields cannot be read"), std::string::npos);
    }
    EXPECT_TRUE(written[1] == written[0]) << "-j 3 writes other bytes than -j 1";
    if (std::string(c.compress).empty() || !std::string(c.decompress).empty() || c.damaged) return;
    EXPECT_TRUE(written[1] == readBytes(input));
}

INSTANTIATE_TEST_SUITE_P(Restores, CompanionThreads, ::testing::ValuesIn(kThreaded), NameOfCase());

// Part of the points: each written record is one of the input's, whole, and the header counts them.
struct Subset {
    const char* name;
    const char* options;
    bool cut;  // the stream loses its second half first
    int exitCode;
};

void PrintTo(const Subset& c, std::ostream* out) { *out << c.name; }

const Subset kSubsets[] = {
    {"salvage of a cut stream", "--salvage", true, 1},
    {"box", "--bbox 990,1990,-10,1080,2080,10", false, 0},
    {"box in stored order", "--bbox 990,1990,-10,1080,2080,10", false, 0},
};

class CompanionSubset : public ToolTest, public ::testing::WithParamInterface<Subset> {};

TEST_P(CompanionSubset, KeepsTheFieldsOfThePointsWritten) {
    const Subset& c = GetParam();
    const std::string input = path("in.las"), zul = path("a.zul");
    writeBytes(input, generatedLas(kLasCases[16], 4000));
    const bool order = std::string(c.name).find("stored") == std::string::npos;
    ASSERT_TRUE(toolSucceeds("compress -q --chunk 300 " +
                             std::string(order ? "--keep-order " : "") + input + " " + zul));
    if (c.cut) writeBytes(zul, readBytes(zul).substr(0, readBytes(zul).size() / 2));
    const ToolRun run =
        runTool("decompress -q " + std::string(c.options) + " " + zul + " " + path("out.las"));
    ASSERT_EQ(run.exitCode, c.exitCode) << run.output;
    const LasParts in = lasParts(readBytes(input)), out = lasParts(readBytes(path("out.las")));
    EXPECT_GT(out.records.size(), 0u);
    EXPECT_LT(out.records.size(), in.records.size());
    EXPECT_TRUE(std::includes(in.records.begin(), in.records.end(), out.records.begin(),
                              out.records.end()));
    EXPECT_TRUE(out.tail == in.tail);
    if (c.cut) return;
    // A box keeps every record within it, not only some (the chunks are chosen by their box).
    const std::string bytes = readBytes(input);
    double scale[3], offset[3], lo[3], hi[3];
    std::memcpy(scale, &bytes[131], 24);
    std::memcpy(offset, &bytes[155], 24);
    ASSERT_EQ(std::sscanf(c.options, "--bbox %lf,%lf,%lf,%lf,%lf,%lf", &lo[0], &lo[1], &lo[2],
                          &hi[0], &hi[1], &hi[2]),
              6);
    const size_t inside = static_cast<size_t>(
        std::count_if(in.records.begin(), in.records.end(), [&](const std::string& r) {
            for (int axis = 0; axis < 3; ++axis) {
                int32_t value = 0;
                std::memcpy(&value, &r[4 * static_cast<size_t>(axis)], 4);
                const double p = value * scale[axis] + offset[axis];
                if (!(p >= lo[axis] && p <= hi[axis])) return false;
            }
            return true;
        }));
    EXPECT_EQ(out.records.size(), inside);
}

INSTANTIATE_TEST_SUITE_P(Parts, CompanionSubset, ::testing::ValuesIn(kSubsets), NameOfCase());

// A stream damaged where its own checks pass: a flipped bit at the end of a chunk's body, or the
// last chunk lost on a chunk boundary.
struct Tampering {
    const char* name;
    bool cut;
    const char* message;
};

void PrintTo(const Tampering& c, std::ostream* out) { *out << c.name; }

const Tampering kTamperings[] = {
    {"flipped bit in chunk 3", false, "chunk 3 changed or lost"},
    {"last chunk lost", true, ""},  // the last chunk is named
};

class CompanionVerify : public ToolTest, public ::testing::WithParamInterface<Tampering> {};

TEST_P(CompanionVerify, NamesTheChunk) {
    const std::string zul = path("a.zul");
    ASSERT_TRUE(toolSucceeds("compress -q --chunk 5000 " + dataFile("4_6_crop.las") + " " + zul));
    const ToolRun intact = runTool("verify " + zul);
    ASSERT_EQ(intact.exitCode, 0) << intact.output;
    EXPECT_NE(intact.output.find("(with " + path("a.zulx") + ": every chunk's bytes match"),
              std::string::npos)
        << intact.output;
    std::string bytes = readBytes(zul);
    zul_idx_Index index = nullptr;
    ASSERT_EQ(zul_idx_openFile(&index, zul.c_str(), nullptr), zul_STATUS_OK);
    int64_t chunks = 0;
    zul_idx_getCounts(index, &chunks, nullptr);
    ASSERT_GT(chunks, 4);
    zul_idx_Chunk chunk = {};
    zul_idx_getChunk(index, GetParam().cut ? chunks - 1 : 3, &chunk);
    zul_idx_close(&index);
    if (GetParam().cut) {
        bytes.resize(static_cast<size_t>(chunk.offset));
    } else {
        bytes[static_cast<size_t>(chunk.offset + chunk.size - 2)] ^= 0x10;
    }
    writeBytes(zul, bytes);
    const ToolRun run = runTool("verify " + zul);
    EXPECT_EQ(run.exitCode, 1);
    const std::string named = GetParam().cut
                                  ? "chunk " + std::to_string(chunks - 1) + " changed or lost"
                                  : GetParam().message;
    EXPECT_NE(run.output.find(named), std::string::npos) << run.output;
}

INSTANTIATE_TEST_SUITE_P(Streams, CompanionVerify, ::testing::ValuesIn(kTamperings), NameOfCase());

}  // namespace

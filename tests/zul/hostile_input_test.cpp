// Hostile zul files through the tool, each run in a shell limited to 512 MiB of address space:
// a chunk of identical points coded in zero bits that claims 2^30 - 1 of them (250 bytes), 64 such
// chunks, counts forged within and past the chunk budget and the density limit. Every command that
// decodes (verify, info, decompress, --salvage, --bbox) refuses what passes either, naming the
// chunk and its claimed count, or decodes what fits, and never dies of memory. One row a case.
#include <algorithm>
#include <cstring>

#include "support/test_names.h"
#include "support/tool_support.h"
#include "zul_bulk.h"

namespace {

constexpr uint32_t kBomb = (1u << 30) - 1;

struct HostileCase {
    const char* name;
    int copies;             // the chunk of two identical points, repeated
    uint32_t count;         // the count every copy claims (0: as written)
    bool goodFirst;         // a good chunk of two points in front
    bool shrinkBox;         // the box's largest x one step short of the points (two apart)
    const char* arguments;  // {d} the folder, which holds hostile.zul
    int exitCode;
    const char* message;  // a fragment of the output
    int streams = 1;      // the whole stream, repeated: streams one after another
};

void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

const HostileCase kCases[] = {
    {"bomb verify", 1, kBomb, false, false, "verify {d}/hostile.zul", 1,
     "chunk 0 (byte 172) claims 1073741823 points (65536 MiB decoded), more than the memory "
     "budget of 256 MiB a chunk allows"},
    {"bomb info", 1, kBomb, false, false, "info {d}/hostile.zul", 1, "claims 1073741823 points"},
    {"bomb decompress", 1, kBomb, false, false, "decompress -q {d}/hostile.zul {d}/out.xyz", 1,
     "claims 1073741823 points"},
    {"bomb salvage", 1, kBomb, false, false, "decompress -q --salvage {d}/hostile.zul {d}/out.xyz",
     1, "salvaged 0 points"},
    {"bomb box", 1, kBomb, false, false,
     "decompress -q --bbox 0,-3,0,2,0,1 {d}/hostile.zul {d}/out.xyz", 1,
     "claims 1073741823 points"},
    {"64 bombs", 64, kBomb, false, false, "verify {d}/hostile.zul", 1,
     "chunk 0 (byte 172) claims 1073741823"},
    {"bomb behind a good chunk salvaged", 1, kBomb, true, false,
     "decompress -q --salvage {d}/hostile.zul {d}/out.xyz", 1, "salvaged 2 points"},
    // A raised budget and a lifted density limit let the chunk through to the allocation, which
    // fails as out of memory.
    {"bomb with a raised budget", 1, kBomb, false, false,
     "verify --chunk-budget 1048576 --point-density 0 {d}/hostile.zul", 1, "out of memory"},
    {"bomb with a raised budget past the density limit", 1, kBomb, false, false,
     "verify --chunk-budget 1048576 {d}/hostile.zul", 1,
     "chunk 0 (byte 172, 78 bytes) claims 1073741823 points, bringing the file's first 250 bytes "
     "to 1073741823 points, more than the density limit allows (1048576 points and 4 for each "
     "byte; over budget; --point-density N raises it, 0 lifts it)"},
    // Within the budget, 4000000 points in 250 bytes: a limit of 11806 points a byte takes them.
    {"forged count past the density limit", 1, 4000000, false, false, "verify {d}/hostile.zul", 1,
     "claims 4000000 points, bringing the file's first 250 bytes to 4000000 points, more than "
     "the density limit allows"},
    {"forged count past a raised density limit", 1, 4000000, false, false,
     "info --point-density 11805 {d}/hostile.zul", 1, "(1048576 points and 11805 for each byte;"},
    {"forged count within a raised density limit", 1, 4000000, false, false,
     "verify --point-density 11806 {d}/hostile.zul", 0, "OK, 1 chunk, 4000000 points"},
    {"forged counts in streams one after another", 1, 1000000, false, false,
     "verify {d}/hostile.zul", 1,
     "stream 2 (byte 250), chunk 0 (byte 422, 78 bytes) claims 1000000 points, bringing the "
     "file's first 500 bytes to 2000000 points, more than the density limit allows",
     2},
    {"forged counts in streams with the density limit lifted", 1, 1000000, false, false,
     "verify --point-density 0 {d}/hostile.zul", 0,
     "OK, 2 streams one after another, 2 chunks, 2000000", 2},
    {"forged count with the density limit lifted", 1, 4000000, false, false,
     "decompress -q --point-density 0 {d}/hostile.zul {d}/out.xyz", 0, ""},
    {"bombs behind a good chunk past a lowered density limit", 2, 600000, true, false,
     "decompress -q --salvage --point-density 1 {d}/hostile.zul {d}/out.xyz", 1,
     "salvaged 600002 points"},
    {"forged count past a lowered budget", 1, 300000, false, false,
     "info --chunk-budget 1 {d}/hostile.zul", 1,
     "chunk 0 (byte 172) claims 300000 points (19 MiB decoded), more than the memory budget of "
     "1 MiB"},
    {"points outside their box", 1, 0, false, true, "verify {d}/hostile.zul", 1,
     "damaged at chunk 0 (byte 172): 0 points in 0 chunks before it are intact; a chunk holds "
     "values no writer produces"},
    {"points outside their box salvaged", 1, 0, true, true,
     "decompress -q --salvage {d}/hostile.zul {d}/out.xyz", 1, "salvaged 2 points"},
    {"budget of nothing", 1, 0, false, false, "verify --chunk-budget 0 {d}/hostile.zul", 2,
     "--chunk-budget 0: give 1 to 1048576 MiB"},
    {"density below nothing", 1, 0, false, false, "verify --point-density -1 {d}/hostile.zul", 2,
     "--point-density -1: give 0 to 1048576"},
};

class HostileInput : public ToolTest, public ::testing::WithParamInterface<HostileCase> {};

// The file: the signature and header of a stream of two identical points, then its one chunk
// `copies` times with the count forged, behind a good chunk of two points if asked.
std::string hostileFile(const HostileCase& c, const std::string& folder) {
    const std::string two = folder + "/two.xyz", zul = folder + "/two.zul";
    const std::string last = c.shrinkBox ? "1.5 -2 0.5\n1.6 -2 0.5\n" : "1.5 -2 0.5\n1.5 -2 0.5\n";
    writeFile(two, (c.goodFirst ? "1.5 -2 0.5\n1.5 -2 0.5\n" : "") + last);
    EXPECT_TRUE(toolSucceeds("compress -q --order input --chunk 2 " + two + " " + zul));
    const std::string bytes = readFile(zul);
    zul_idx_Index index = nullptr;
    EXPECT_EQ(zul_idx_openBuffer(&index, bytes.data(), bytes.size(), nullptr), zul_STATUS_OK);
    int64_t chunks = 0;
    zul_idx_getCounts(index, &chunks, nullptr);
    zul_idx_Chunk final = {};
    zul_idx_getChunk(index, chunks - 1, &final);
    zul_idx_close(&index);
    std::string chunk = bytes.substr(static_cast<size_t>(final.offset));
    if (c.count != 0) {
        for (int i = 0; i < 4; ++i)
            chunk[ZUL_SYNC_MARKER_SIZE + 48 + i] = static_cast<char>(c.count >> (8 * i));
    }
    if (c.shrinkBox) {
        const size_t maxX = ZUL_SYNC_MARKER_SIZE + 24;
        int64_t x;
        std::memcpy(&x, &chunk[maxX], 8);
        --x;
        std::memcpy(&chunk[maxX], &x, 8);
    }
    std::string file = bytes.substr(0, static_cast<size_t>(final.offset));
    for (int k = 0; k < c.copies; ++k) file += chunk;
    std::string streams;
    for (int k = 0; k < c.streams; ++k) streams += file;
    return streams;
}

TEST_P(HostileInput, RefusedWithinMemory) {
    const HostileCase& c = GetParam();
    const std::string file = path("hostile.zul");
    writeFile(file, hostileFile(c, folder.string()));
    ASSERT_LE(readFile(file).size(), 6000u);
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's shadow memory takes more address space than any limit would allow.
    const std::string limit;
    if (std::string(c.name) == "bomb with a raised budget") {
        GTEST_SKIP();
    }
#else
    // Address space, so that an allocation past it fails rather than the machine swapping.
    const std::string limit = "ulimit -v 524288; ";
#endif
    const ToolRun run = runShell(limit + "exec " + ZUL_TOOL_PATH + " " +
                                 expand(c.arguments, folder.string()) + " 2>&1");
    EXPECT_EQ(run.exitCode, c.exitCode) << run.output;
    EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
    // A refused decompress leaves no output behind.
    if (c.exitCode != 0 && std::string(c.arguments).find("--salvage") == std::string::npos) {
        EXPECT_FALSE(std::filesystem::exists(path("out.xyz")));
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, HostileInput, ::testing::ValuesIn(kCases), NameOfCase());

}  // namespace

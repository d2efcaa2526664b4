// The command line as a user types it: version and usage errors, output names and many files,
// overwrites, formats by content and --format, info, verify, salvage, progress and options that
// would be ignored. One row a case: what to prepare, the arguments, the exit status, a fragment
// of the messages and the files the folder holds afterwards.
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>

#include "support/test_names.h"
#include "support/tool_support.h"
#include "zul_bulk.h"

namespace {

struct CliCase {
    const char* name;
    // A shell script run first in the folder, where "zul ARGS" runs the tool (each run must
    // succeed), "text NAME" makes a file that holds "precious" and "poke NAME OFFSET BYTE" sets
    // a byte; or "limit BYTES": the run itself may make files of these many bytes only.
    const char* setup;
    const char* arguments;  // {d} is the test's folder, {data} the shared clouds
    int exitCode;
    const char* message;  // a fragment of standard output and error together
    const char* files;    // the folder's files afterwards, sorted, in subfolders as "out/a.zul"
};

// A failing case is shown by its name.
void PrintTo(const CliCase& c, std::ostream* out) { *out << c.name; }

// The bunny in 4 chunks: 3 of 100 points and 1 of 97.
#define BUNNY "zul compress -q --no-companion --chunk 100 {data}/bun0.pcd {d}/b.zul"
// Streams one after another: the bunny twice (1932 bytes each), and the bunny (step 0.001,
// normals), a LAS scan (step 0.01, colour, intensity, 1065 points) and the bunny.
#define TWICE BUNNY "; cat b.zul b.zul > bb.zul"
#define MIXED                                                                \
    BUNNY                                                                    \
    "; zul compress -q --no-companion {data}/1.2-with-color.las {d}/c.zul; " \
    "cat b.zul c.zul b.zul > m.zul"

const CliCase kCases[] = {
    // Version and usage.
    {"version", "", "--version", 0, "zul 1.", ""},
    {"nothing", "", "", 2, "usage: zul COMMAND", ""},
    {"unknown command", "", "frobnicate", 2, "zul: unknown command \"frobnicate\"\nTry", ""},
    {"unknown tool option", "", "-v", 2, "zul: unknown option \"-v\"", ""},
    {"unknown command option", "", "compress --frob {d}/a.las", 2,
     "unknown option \"--frob\"\nTry 'zul compress --help'", ""},
    {"missing value", "", "compress {d}/a.las --step", 2, "--step", ""},
    {"help of a command", "", "help verify", 0, "Usage: zul verify", ""},
    {"no input", "", "info", 2, "no input file given", ""},
    {"a file for a command", "cp {data}/sample_c.las scan.las", "{d}/scan.las", 2,
     "To compress it: zul compress", "scan.las"},
    // Names, many files and overwrites.
    {"compress beside", "cp {data}/sample_c.las scan.las", "compress -q {d}/scan.las", 0, "",
     "scan.las scan.zul scan.zulx"},
    {"compress to a name", "", "compress -q {data}/bun0.pcd {d}/x.zul", 0, "", "x.zul x.zulx"},
    {"compress to another format", "", "compress {data}/bun0.pcd {d}/b.ply", 1,
     "b.ply: compress writes a zul file; name it .zul", ""},
    // The writer keeps the few bytes of the bunny until it closes: the close fails.
    {"failed close", "limit 512", "compress {data}/bun0.pcd {d}/b.zul", 1,
     "b.zul: the file cannot be created or written (write error)", ""},
    {"existing output kept", "cp {data}/sample_c.las scan.las; text scan.zul",
     "compress {d}/scan.las", 1, "scan.zul: exists already; use -f (--force)", "scan.las scan.zul"},
    {"decompress to the input's own name", "zul compress -q {data}/sample_c.las {d}/s.zul",
     "decompress -q {d}/s.zul", 0, "", "s.zul s.zulx sample_c.las"},
    {"an old companion kept", "cp {data}/sample_c.las scan.las; text scan.zulx",
     "compress --no-companion {d}/scan.las", 1, "scan.zulx: exists already; use -f (--force)",
     "scan.las scan.zulx"},
    {"existing output forced", "cp {data}/sample_c.las scan.las; text scan.zul",
     "compress -q -f {d}/scan.las", 0, "", "scan.las scan.zul scan.zulx"},
    {"many inputs, one bad",
     "mkdir in; cp {data}/sample_c.las in/a.las; cp {data}/1.2-with-color.las in/b.las; text "
     "in/c.las",
     "compress -q {d}/in/a.las {d}/in/c.las {d}/in/b.las -o {d}/out/", 1,
     "c.las: the file ends early, inside the LAS header\nzul: 1 of 3 files failed",
     "in/a.las in/b.las in/c.las out/a.zul out/a.zulx out/b.zul out/b.zulx"},
    {"one name for many", "cp {data}/sample_c.las a.las; cp {data}/sample_c.las b.las",
     "compress {d}/a.las {d}/b.las -o {d}/c.zul", 2, "names one file for 2 inputs", "a.las b.las"},
    {"decompress needs a format", BUNNY, "decompress {d}/b.zul", 2, "name the output", "b.zul"},
    {"decompress beside by format", BUNNY, "decompress -q --format ply {d}/b.zul", 0, "",
     "b.ply b.zul"},
    {"decompress many to a folder",
     "zul compress -q --no-companion {data}/bun0.pcd {d}/b.zul; zul compress -q "
     "{data}/colored_cloud.pcd {d}/c.zul",
     "decompress -q {d}/b.zul {d}/c.zul -o {d}/out/ --format xyz", 0, "",
     "b.zul c.zul c.zulx out/b.xyz out/c.xyz"},
    {"decompress existing output",
     "zul compress -q --no-companion {data}/bun0.pcd {d}/b.zul; text b.ply",
     "decompress {d}/b.zul {d}/b.ply", 1, "b.ply: exists already", "b.ply b.zul"},
    // Formats by content before the extension, and --format.
    {"las content under another name", "cp {data}/sample_c.las scan.xyz",
     "compress {d}/scan.xyz {d}/s.zul", 0, "scan.xyz (LAS) ->", "s.zul s.zulx scan.xyz"},
    {"format chosen for the output",
     "zul compress -q --no-companion {data}/bun0.pcd {d}/b.zul; zul decompress -q "
     "--format las {d}/b.zul -o {d}/b.dat",
     "compress -q --step 0.001 {d}/b.dat {d}/c.zul", 0, "", "b.dat b.zul c.zul c.zulx"},
    {"format chosen for the input", "text pts.dat", "compress -q --format xyz {d}/pts.dat", 1,
     "pts.dat: line 1: a line of column names without x, y and z", "pts.dat"},
    {"zul is not a cloud", BUNNY, "compress --format zul {d}/b.zul", 2, "--format zul", "b.zul"},
    {"cloud is not zul", "cp {data}/sample_c.las s.zul", "decompress {d}/s.zul {d}/s.ply", 1,
     "s.zul: is a LAS file, not a zul file", "s.zul"},
    {"unknown format name", BUNNY, "decompress --format e57 {d}/b.zul", 2,
     "--format \"e57\" is not a format", "b.zul"},
    // Options that would be ignored.
    {"normals both ways", "", "compress --normals --no-normals {data}/bun0.pcd {d}/a.zul", 2,
     "--normals and --no-normals contradict", ""},
    {"step zero", "", "compress --step 0 {data}/bun0.pcd {d}/a.zul", 2,
     "--step 0: give a positive step", ""},
    {"encoding of las", BUNNY, "decompress --encoding ascii {d}/b.zul {d}/b.las", 2,
     "--encoding applies to PCD and PLY output, not to LAS", "b.zul"},
    {"las version of ply", BUNNY, "decompress --las-version 1.4 {d}/b.zul {d}/b.ply", 2,
     "--las-version applies to LAS output", "b.zul"},
    {"order budget without ordering", "",
     "compress --order input --order-budget 5 {data}/bun0.pcd {d}/a.zul", 2,
     "--order-budget orders points", ""},
    {"progress forced", "", "compress --progress {data}/bun0.pcd {d}/a.zul", 0,
     "] 100%\r\033[Kzul: ", "a.zul a.zulx"},
    // info.
    {"info bounds", BUNNY, "info --json {d}/b.zul", 0,
     "\"bounds\": {\"min\": [-0.094, 0.037, -0.055], \"max\": [0.060, 0.184, 0.058]}", "b.zul"},
    {"info chunk table", BUNNY, "info --json --chunks {d}/b.zul", 0,
     "\"chunkTable\": [\n    {\"offset\": 172, \"bytes\": ", "b.zul"},
    {"info of several files", BUNNY, "info --json {d}/b.zul {d}/b.zul", 0,
     "[\n  {\n    \"file\": ", "b.zul"},
    {"info of no companion", BUNNY, "info --json {d}/b.zul", 0, "\"companion\": null\n}", "b.zul"},
    {"info of a companion", "zul compress -q {data}/sample_c.las {d}/s.zul",
     "info --json {d}/s.zul", 0, "\"bound\": true, \"bytes\": ", "s.zul s.zulx"},
    {"info of a companion's fields", "zul compress -q --keep-order {data}/sample_c.las {d}/s.zul",
     "info --json {d}/s.zul", 0,
     "\"order\": true, \"conventions\": {\"colour scale\": \"256\", \"name\": "
     "\"sample_c.las\"}, \"fields\": [{\"name\": \"bit_fields\", \"type\": \"u8\", "
     "\"width\": 1}",
     "s.zul s.zulx"},
    {"info of a damaged companion",
     "zul compress -q {data}/sample_c.las {d}/s.zul; poke s.zulx 40 7", "info --json {d}/s.zul", 0,
     "s.zulx\", \"bound\": false, \"refused\": \"", "s.zul s.zulx"},
    {"info of a forged count", BUNNY "; poke b.zul 239 63", "info {d}/b.zul", 1,
     "b.zul: chunk 0 (byte 172) claims 1056964708 points (76609 MiB decoded), more than the "
     "memory budget of 256 MiB a chunk allows",
     "b.zul"},
    {"info of a cut file", BUNNY "; truncate -s -10 b.zul", "info {d}/b.zul", 1,
     "chunks       3\npoints       300\n", "b.zul"},
    {"info of a cut file says where", BUNNY "; truncate -s -10 b.zul", "info {d}/b.zul", 1,
     "b.zul: damaged at chunk 3 (byte ", "b.zul"},
    {"info of a missing file", "", "info {d}/none.zul", 1, "none.zul: the file cannot be opened",
     ""},
    // verify and salvage.
    {"verify intact", BUNNY, "verify {d}/b.zul", 0, "b.zul: OK, 4 chunks, 397 points", "b.zul"},
    {"verify cut", BUNNY "; truncate -s -10 b.zul", "verify {d}/b.zul {d}/b.zul", 1,
     "): 300 points in 3 chunks before it are intact; the file ends inside a chunk (truncated)",
     "b.zul"},
    {"verify of a foreign file", "cp {data}/bun0.pcd b.zul", "verify -q {d}/b.zul", 1,
     "not a zul file", "b.zul"},
    {"cut file refused", BUNNY "; truncate -s -10 b.zul", "decompress {d}/b.zul {d}/b.xyz", 1,
     "b.zul: the file ends inside a chunk (truncated)", "b.zul"},
    {"cut file salvaged", BUNNY "; truncate -s -10 b.zul",
     "decompress --salvage {d}/b.zul {d}/b.xyz", 1, "300 points in 3 chunks before it are intact",
     "b.xyz b.zul"},
    {"intact file salvaged", BUNNY, "decompress --salvage {d}/b.zul {d}/b.xyz", 0, "397 points",
     "b.xyz b.zul"},
    {"cut file salvaged on threads", BUNNY "; truncate -s -10 b.zul",
     "decompress -j 3 --salvage {d}/b.zul {d}/b.xyz", 1,
     "300 points in 3 chunks before it are intact", "b.xyz b.zul"},
    // Threads and boxes.
    {"negative compress threads", "", "compress --threads -2 {data}/bun0.pcd {d}/a.zul", 2,
     "--threads -2: give 0", ""},
    {"negative threads", BUNNY, "decompress -j -1 {d}/b.zul {d}/b.xyz", 2,
     "--threads -1: give 0 (one a core) or more", "b.zul"},
    {"box upside down", BUNNY, "decompress --bbox 0,0,0,1,-1,1 {d}/b.zul {d}/b.xyz", 2,
     "--bbox 0,0,0,1,-1,1: the smallest y exceeds the largest", "b.zul"},
    {"box of NaN", BUNNY, "decompress --bbox 0,nan,0,1,1,1 {d}/b.zul {d}/b.xyz", 2,
     "NaN is no bound", "b.zul"},
    {"box of five", BUNNY, "decompress --bbox 0,0,0,1,1 {d}/b.zul {d}/b.xyz", 2, "give six numbers",
     "b.zul"},
    {"box of words", BUNNY, "decompress --bbox 0,0,0,1,1,1x {d}/b.zul {d}/b.xyz", 2,
     "\"1x\" is not a number", "b.zul"},
    {"box beside the cloud", BUNNY, "decompress --bbox 5,5,5,6,6,6 {d}/b.zul {d}/b.xyz", 0,
     ": 0 points", "b.xyz b.zul"},
    // Standard input and output, pipes, devices, links and the input itself.
    {"compress from standard input", "", "compress - -o {d}/a.zul < {data}/bun0.pcd", 0,
     "standard input (PCD) -> ", "a.zul a.zulx"},
    {"compress to standard output",
     "zul compress -q --no-companion {data}/bun0.pcd -o - > {d}/a.zul", "verify {d}/a.zul", 0,
     "a.zul: OK, 1 chunk, 397 points", "a.zul"},
    {"standard input to standard output", "zul compress -q - < {data}/bun0.pcd > {d}/a.zul",
     "verify {d}/a.zul", 0, "a.zul: OK, 1 chunk, 397 points", "a.zul"},
    {"compress from a pipe", "", "compress /dev/stdin {d}/a.zul < {data}/bun0.pcd", 0, "(PCD) -> ",
     "a.zul a.zulx"},
    {"decompress from a pipe", BUNNY, "decompress -q - --format xyz -o {d}/b.xyz < {d}/b.zul", 0,
     "", "b.xyz b.zul"},
    {"verify standard input", BUNNY, "verify - < {d}/b.zul", 0, "standard input: OK, 4 chunks",
     "b.zul"},
    {"info of standard input", BUNNY, "info - < {d}/b.zul", 0, "file         standard input",
     "b.zul"},
    {"a pipe cut short", "cp {data}/sample_c.las c.las; truncate -s -1000 c.las",
     "compress - -o {d}/a.zul < {d}/c.las", 1, "standard input: ", "c.las"},
    {"options end at --", "", "compress -q -- {data}/bun0.pcd {d}/a.zul", 0, "", "a.zul a.zulx"},
    {"standard output needs a format", BUNNY, "decompress {d}/b.zul -o -", 2,
     "-: has no extension to tell the format; choose it (--format", "b.zul"},
    {"device written through", BUNNY, "decompress -f {d}/b.zul -o /dev/null --format las", 0,
     "-> /dev/null (LAS): 397 points", "b.zul"},
    {"full device", BUNNY, "decompress {d}/b.zul -o /dev/full --format xyz", 1,
     "/dev/full: writing failed (No space left on device)", "b.zul"},
    {"full device for compress", "", "compress {data}/bun0.pcd -o /dev/full", 1,
     "/dev/full: writing failed (No space left on device)", ""},
    {"link written through", BUNNY "; mkdir real; ln -s {d}/real/b.xyz out.xyz",
     "decompress -q -f {d}/b.zul -o {d}/out.xyz", 0, "", "b.zul real/b.xyz real/b.xyz"},
    {"output is the input", BUNNY, "decompress -f {d}/b.zul -o {d}/b.zul --format xyz", 1,
     "b.zul: is the input itself; name another output", "b.zul"},
    {"verify of a missing file", "", "verify {d}/none.zul", 1,
     "none.zul: the file cannot be opened (No such file or directory)", ""},
    {"a folder as input", "mkdir in; cp {data}/bun0.pcd in/b.pcd", "compress {d}/in {d}/a.zul", 1,
     "in: is a folder", "in/b.pcd"},
    // Small ones.
    {"csv with a byte order mark", "printf '\\357\\273\\277x,y,z\\n1,2,3\\n4,5,6\\n' > b.csv",
     "compress --step 0.5 {d}/b.csv {d}/b.zul", 0, "b.csv (CSV text) -> {d}/b.zul: 2 points",
     "b.csv b.zul"},
    {"chunk of none", "", "compress --chunk 0 {data}/bun0.pcd {d}/a.zul", 2,
     "--chunk 0: a chunk holds 1 to", ""},
    {"las version unknown", BUNNY, "decompress --las-version 1.3 {d}/b.zul {d}/b.las", 2,
     "--las-version: 1.3 not in {1.2,1.4}", "b.zul"},
    {"quiet progress", "", "compress -q --progress {data}/bun0.pcd {d}/a.zul", 2,
     "-q and --progress contradict", ""},
    // Streams one after another, as cat makes them.
    {"verify two streams", TWICE, "verify {d}/bb.zul", 0,
     "bb.zul: OK, 2 streams one after another, 8 chunks, 794 points", "b.zul bb.zul"},
    {"verify three streams", MIXED, "verify {d}/m.zul", 0,
     "m.zul: OK, 3 streams one after another, 9 chunks, 1859 points", "b.zul c.zul m.zul"},
    {"verify streams from standard input", TWICE, "verify - < {d}/bb.zul", 0,
     "standard input: OK, 2 streams", "b.zul bb.zul"},
    {"an empty stream between",
     BUNNY "; printf 'x y z\\n' > e.xyz; zul compress -q --step 0.5 {d}/e.xyz "
           "{d}/e.zul; cat b.zul e.zul b.zul > m.zul",
     "verify {d}/m.zul", 0, "m.zul: OK, 3 streams one after another, 8 chunks, 794 points",
     "b.zul e.xyz e.zul m.zul"},
    {"info of streams", MIXED, "info {d}/m.zul", 0,
     "\nstream       2, bytes 1932 .. 12318\nversion      2\nstep         0.01\ncolour       "
     "rgb888\n",
     "b.zul c.zul m.zul"},
    {"info of streams totals", MIXED, "info {d}/m.zul", 0,
     "\ntotal        3 streams, 9 chunks, 1859 points\nmin          -0.094 0.037 -0.055\n",
     "b.zul c.zul m.zul"},
    {"info of streams as json", TWICE, "info --json {d}/bb.zul", 0,
     "\"members\": [\n    {\n      \"offset\": 0,\n      \"bytes\": 1932,", "b.zul bb.zul"},
    {"info of streams, chunks at their bytes", TWICE, "info --json --chunks {d}/bb.zul", 0,
     "\"offset\": 1932,\n      \"bytes\": 1932,", "b.zul bb.zul"},
    {"decompress two streams", TWICE, "decompress {d}/bb.zul {d}/bb.ply", 0, "(PLY): 794 points",
     "b.zul bb.ply bb.zul"},
    {"decompress streams that differ", MIXED, "decompress {d}/m.zul {d}/m.xyz", 0,
     "m.zul: stream 1 (byte 0) has no colour, written as 0 0 0\nzul: {d}/m.zul: stream 1 (byte 0) "
     "has no intensity, written as 0\nzul: {d}/m.zul: stream 2 (byte 1932) has no normals",
     "b.zul c.zul m.xyz m.zul"},
    {"a box across streams", MIXED,
     "decompress --bbox 600000,800000,0,700000,900000,1000 {d}/m.zul {d}/m.xyz", 0,
     "(XYZ text): 1065 points", "b.zul c.zul m.xyz m.zul"},
    {"decompress streams to a pipe", TWICE, "decompress - --format xyz -o - < {d}/bb.zul | wc -l",
     0, "795\n", "b.zul bb.zul"},
    {"streams on grids that do not fit",
     "zul compress -q --no-companion --step 0.002 {data}/bun0.pcd {d}/a.zul; "
     "zul compress -q --no-companion --step 0.003 {data}/bun0.pcd {d}/b.zul; cat a.zul b.zul > "
     "ab.zul",
     "decompress {d}/ab.zul {d}/ab.las", 1,
     "ab.zul: stream 2 (byte 1604), of step 0.003, does not lie on the grid of stream 1 (byte 0), "
     "of step 0.002; one output holds one grid",
     "a.zul ab.zul b.zul"},
    {"streams on other grids as numbers",
     "zul compress -q --no-companion --step 0.002 {data}/bun0.pcd {d}/a.zul; "
     "zul compress -q --no-companion --step 0.003 {data}/bun0.pcd {d}/b.zul; cat a.zul b.zul > "
     "ab.zul",
     "decompress {d}/ab.zul {d}/ab.xyz", 0, "(XYZ text): 794 points", "a.zul ab.xyz ab.zul b.zul"},
    {"second stream cut", TWICE "; truncate -s -10 bb.zul", "verify {d}/bb.zul", 1,
     "bb.zul: stream 2 (byte 1932), damaged at chunk 3 (byte 3420): 697 points in 7 chunks before "
     "it are intact; the file ends inside a chunk (truncated)",
     "b.zul bb.zul"},
    {"second stream damaged", TWICE "; poke bb.zul 2204 63", "verify {d}/bb.zul", 1,
     "bb.zul: stream 2 (byte 1932), damaged at chunk 0 (byte 2104): 397 points in 4 chunks before "
     "it are intact; a chunk holds values",
     "b.zul bb.zul"},
    {"second stream's head damaged", TWICE "; poke bb.zul 1940 63", "info {d}/bb.zul", 1,
     "bb.zul: stream 2 (byte 1932), whose head is damaged: 397 points in 4 chunks before it are "
     "intact; the file header holds values",
     "b.zul bb.zul"},
    {"second stream salvaged", TWICE "; truncate -s -10 bb.zul",
     "decompress --salvage {d}/bb.zul {d}/bb.xyz", 1, "salvaged 697 points into",
     "b.zul bb.xyz bb.zul"},
    {"second stream refused", TWICE "; poke bb.zul 2204 63", "decompress {d}/bb.zul {d}/bb.xyz", 1,
     "bb.zul: stream 2 (byte 1932), damaged at chunk 0", "b.zul bb.zul"},
    {"garbage after the streams",
     TWICE "; echo not a zul stream at all > g.txt; cat bb.zul g.txt > x.zul", "verify {d}/x.zul",
     1,
     "x.zul: stream 2 (byte 1932), damaged at chunk 4 (byte 3864): 794 points in 8 chunks before "
     "it are intact; a chunk holds values",
     "b.zul bb.zul g.txt x.zul"},
    {"garbage after one stream",
     BUNNY "; echo not a zul stream at all > g.txt; cat b.zul g.txt > x.zul", "verify {d}/x.zul", 1,
     "x.zul: damaged at chunk 4 (byte 1932): 397 points", "b.zul g.txt x.zul"},
    {"a companion beside streams",
     "zul compress -q {data}/sample_c.las {d}/s.zul; cat s.zul s.zul > ss.zul; cat s.zulx > "
     "ss.zulx",
     "decompress {d}/ss.zul {d}/ss.las", 0,
     "ss.zulx belongs to one stream and {d}/ss.zul holds several one after another: the companion "
     "is left unused",
     "s.zul s.zulx ss.las ss.zul ss.zulx"},

};

class CommandLine : public ToolTest, public ::testing::WithParamInterface<CliCase> {
protected:
    // Every file below the folder, as "sub/name".
    std::string filesBelow() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                names.push_back(std::filesystem::relative(entry.path(), folder).string());
        std::sort(names.begin(), names.end());
        std::string joined;
        for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
        return joined;
    }

    // Runs the setup script; returns the files made with "text".
    std::vector<std::string> prepare(const std::string& setup) {
        if (std::sscanf(setup.c_str(), "limit %lu", &fileLimit) == 1 || setup.empty()) return {};
        const std::string script = "exec 2>&1; set -e; cd {d}; zul() { " ZUL_TOOL_PATH
                                   " \"$@\"; }; text() { printf precious > \"$1\"; }; poke() { "
                                   "printf \"$(printf '\\\\%o' \"$3\")\" | dd of=\"$1\" bs=1 "
                                   "seek=\"$2\" conv=notrunc 2>/dev/null; }; ";
        const ToolRun run = runShell(expand(script + setup, folder.string()));
        EXPECT_EQ(run.exitCode, 0) << setup << ": " << run.output;
        std::vector<std::string> precious;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file() && readFile(entry.path().string()) == "precious")
                precious.push_back(entry.path().string());
        return precious;
    }

    rlim_t fileLimit = RLIM_INFINITY;
};

TEST_P(CommandLine, ExitsSaysAndWrites) {
    const CliCase& c = GetParam();
    const std::vector<std::string> precious = prepare(c.setup);
    // A write past the limit fails (EFBIG) rather than ending the program.
    rlimit saved;
    ::getrlimit(RLIMIT_FSIZE, &saved);
    rlimit limited = {std::min(fileLimit, saved.rlim_max), saved.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limited);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    const ToolRun run = runTool(expand(c.arguments, folder.string()));
    ::signal(SIGXFSZ, handler);
    ::setrlimit(RLIMIT_FSIZE, &saved);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.output;
    EXPECT_NE(run.output.find(expand(c.message, folder.string())), std::string::npos) << run.output;
    EXPECT_EQ(filesBelow(), c.files);
    // A failed run leaves the files it found as they were.
    for (size_t i = 0; i < precious.size() && c.exitCode != 0; ++i)
        EXPECT_EQ(readFile(precious[i]), "precious") << precious[i];
}

INSTANTIATE_TEST_SUITE_P(Cases, CommandLine, ::testing::ValuesIn(kCases), NameOfCase());

class CommandLineRun : public ToolTest {};

// A box (its bounds exact points, through the sensor header's matrix) keeps exactly the lines of
// the full output whose points lie within it, bounds included; and the thread count changes no
// byte.
TEST_F(CommandLineRun, BoxKeepsThePointsWithinItAndThreadsChangeNothing) {
    ASSERT_TRUE(
        toolSucceeds("compress -q --chunk 37 --rotate 0 -1 0 1 0 0 0 0 1 --scale 2 --translate "
                     "10 20 30 " +
                     dataFile("bun0.pcd") + " " + path("b.zul")));
    const std::vector<zul_Point> points = readZul(path("b.zul")).points;
    ASSERT_GT(points.size(), 300u);
    double low[3], high[3];
    for (int a = 0; a < 3; ++a) {
        std::vector<double> values;
        for (const zul_Point& p : points) values.push_back(p.position[a]);
        std::sort(values.begin(), values.end());
        low[a] = values[values.size() / 4];
        high[a] = values[values.size() * 3 / 4];
    }
    char box[300];
    std::snprintf(box, sizeof box, "%.17g,%.17g,%.17g,%.17g,%.17g,%.17g", low[0], low[1], low[2],
                  high[0], high[1], high[2]);
    for (const char* threads : {"1", "2", "0"}) {
        ASSERT_TRUE(toolSucceeds(std::string("decompress -q -j ") + threads + " " + path("b.zul") +
                                 " " + path(std::string("full") + threads + ".xyz")));
    }
    EXPECT_EQ(readFile(path("full2.xyz")), readFile(path("full1.xyz")));
    EXPECT_EQ(readFile(path("full0.xyz")), readFile(path("full1.xyz")));
    // Text takes any count; PLY's header holds the count, found before the first point is written.
    for (const std::string output : {".xyz", ".ply"}) {
        const std::string ascii = output == ".ply" ? " --encoding ascii " : " ";
        ASSERT_TRUE(toolSucceeds("decompress -q -j 1" + ascii + path("b.zul") + " " +
                                 path("whole" + output)));
        ASSERT_TRUE(toolSucceeds("decompress -q -j 2" + ascii + "--bbox " + std::string(box) + " " +
                                 path("b.zul") + " " + path("box" + output)));
        std::stringstream full(readFile(path("whole" + output)));
        std::string expected, line;
        size_t at = 0, kept = 0, onBound = 0;
        while (std::getline(full, line)) {
            if (line.empty() || !(std::isdigit(line[0]) || line[0] == '-')) {
                expected += line + "\n";  // a header line
                continue;
            }
            ASSERT_LT(at, points.size());
            const double* p = points[at++].position;
            bool inside = true;
            for (int a = 0; a < 3; ++a) {
                inside = inside && p[a] >= low[a] && p[a] <= high[a];
                onBound += inside && (p[a] == low[a] || p[a] == high[a]);
            }
            if (inside) expected += line + "\n", ++kept;
        }
        const std::string count = "element vertex " + std::to_string(points.size()) + "\n";
        if (output == ".ply" && expected.find(count) != std::string::npos)
            expected.replace(expected.find(count), count.size(),
                             "element vertex " + std::to_string(kept) + "\n");
        EXPECT_EQ(at, points.size()) << output;
        EXPECT_GT(kept, 0u) << output;
        EXPECT_GT(onBound, 0u) << output;
        EXPECT_EQ(readFile(path("box" + output)), expected) << output;
    }
}

// A file with its sync marker (read where its first chunk starts) blanked wherever it occurs.
std::string withoutMarker(const std::string& path) {
    zul_idx_Index index = nullptr;
    zul_idx_Chunk first = {};
    EXPECT_EQ(zul_idx_openFile(&index, path.c_str(), nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_idx_getChunk(index, 0, &first), zul_STATUS_OK);
    zul_idx_close(&index);
    std::string bytes = readFile(path);
    const std::string marker = bytes.substr(static_cast<size_t>(first.offset), 16);
    for (size_t at; (at = bytes.find(marker)) != std::string::npos;)
        bytes.replace(at, 16, 16, '\0');
    return bytes;
}

// Compress on several threads writes what one thread writes, byte for byte, in every order: the
// sync marker is drawn from the points. --random-marker draws another on every run, and changes
// nothing else.
TEST_F(CommandLineRun, CompressThreadsChangeNoByte) {
    for (const char* order : {"plan", "kd", "input"}) {
        const std::string options = std::string("compress -q --chunk 500 --order ") + order + " ";
        for (const char* threads : {"1", "3"}) {
            ASSERT_EQ(runTool(options + "-j " + threads + " " + dataFile("sample_c.las") + " " +
                              path(std::string(threads) + ".zul"))
                          .exitCode,
                      0);
        }
        ASSERT_EQ(
            runTool(options + "--random-marker " + dataFile("sample_c.las") + " " + path("r.zul"))
                .exitCode,
            0);
        const std::string one = readFile(path("1.zul"));
        EXPECT_GT(one.size(), 10000u);
        EXPECT_EQ(readFile(path("3.zul")), one) << order;
        EXPECT_NE(readFile(path("r.zul")), one) << order;
        EXPECT_EQ(withoutMarker(path("r.zul")), withoutMarker(path("1.zul"))) << order;
        for (const char* name : {"1.zul", "3.zul", "r.zul", "1.zulx", "3.zulx", "r.zulx"})
            std::filesystem::remove(path(name));
    }
}

// What goes beside the stream is the same on any number of threads too: the companion of a file
// of several batches and planner blocks, and without it the .prj file of its coordinate system.
TEST_F(CommandLineRun, CompressThreadsChangeNoByteBeside) {
    for (const char* companion : {"", "--no-companion "}) {
        const std::string options =
            std::string("compress -q --chunk 2000 --order-budget 1 ") + companion;
        for (const char* threads : {"1", "3"}) {
            ASSERT_EQ(runTool(options + "-j " + threads + " " + dataFile("4_6_crop.las") + " " +
                              path(std::string(threads) + ".zul"))
                          .exitCode,
                      0);
        }
        const char* beside = *companion ? ".prj" : ".zulx";
        for (const char* ext : {".zul", beside}) {
            const std::string one = readFile(path(std::string("1") + ext));
            EXPECT_GT(one.size(), 100u) << companion << ext;
            EXPECT_EQ(readFile(path(std::string("3") + ext)), one) << companion << ext;
        }
        for (const char* name : {"1.zul", "3.zul", "1.zulx", "3.zulx", "1.prj", "3.prj"})
            std::filesystem::remove(path(name));
    }
}

// A text file with a value that is no number, batches after the first: on any number of
// threads the points before it are read, and the same message names the line.
TEST_F(CommandLineRun, CompressThreadsTellTheSameFailure) {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += std::to_string(i % 200) + " " + std::to_string(i / 200) + " 1\n";
    writeFile(path("cut.xyz"), text + "1 2 zz\n");
    ToolRun runs[2];
    for (const int threads : {1, 3}) {
        runs[threads / 2] = runTool("compress -q -f --no-companion -j " + std::to_string(threads) +
                                    " " + path("cut.xyz") + " " + path("cut.zul"));
    }
    EXPECT_NE(runs[0].exitCode, 0) << runs[0].output;
    EXPECT_NE(runs[0].output.find("line 20001"), std::string::npos) << runs[0].output;
    EXPECT_EQ(runs[1].exitCode, runs[0].exitCode);
    EXPECT_EQ(runs[1].output, runs[0].output);
}

// Streams one after another decompress as one cloud: each stream's points in turn, as the stream
// alone gives them; the same bytes on any thread count and from standard input.
TEST_F(CommandLineRun, StreamsOneAfterAnotherAreOneCloud) {
    ASSERT_TRUE(
        toolSucceeds("compress -q --chunk 100 " + dataFile("bun0.pcd") + " " + path("b.zul")));
    ASSERT_TRUE(toolSucceeds("compress -q --chunk 300 --no-companion " +
                             dataFile("1.2-with-color.las") + " " + path("c.zul")));
    const std::string b = readFile(path("b.zul")), c = readFile(path("c.zul"));
    writeFile(path("bb.zul"), b + b);
    writeFile(path("bcb.zul"), b + c + b);
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("b.zul") + " " + path("b.xyz")));
    ASSERT_TRUE(toolSucceeds("decompress -q " + path("bb.zul") + " " + path("bb.xyz")));
    const std::string one = readFile(path("b.xyz"));
    const std::string points = one.substr(one.find('\n') + 1);
    EXPECT_EQ(readFile(path("bb.xyz")), one + points);
    for (const std::string format : {"ply", "las", "pcd"}) {
        std::string first;
        for (const std::string& run : {"-j 1 " + path("bcb.zul"), "-j 2 " + path("bcb.zul"),
                                       "-j 3 - < " + path("bcb.zul")}) {
            const ToolRun done = runTool("decompress -q --format " + format + " -o - " + run +
                                         " > " + path("out." + format));
            ASSERT_EQ(done.exitCode, 0) << done.output;
            const std::string bytes = readFile(path("out." + format));
            if (first.empty()) first = bytes;
            EXPECT_EQ(bytes, first) << format << " " << run;
        }
        ASSERT_TRUE(toolSucceeds("compress -q -f --format " + format + " " + path("out." + format) +
                                 " " + path("back.zul")));
        const ToolRun verified = runTool("verify " + path("back.zul"));
        EXPECT_NE(verified.output.find("1859 points"), std::string::npos) << verified.output;
    }
}

// SIGINT and SIGTERM in the middle of writing: the partial output goes, the tool dies of the
// signal (the shell's 130 and 143), and the folder holds what it held before.
TEST_F(CommandLineRun, InterruptLeavesNothing) {
    ASSERT_TRUE(toolSucceeds("demo -q --points 300000 --keep " + path("big.zul")));
    for (const int signal : {SIGINT, SIGTERM}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::signal(SIGINT, SIG_DFL);
            ::execl(ZUL_TOOL_PATH, ZUL_TOOL_PATH, "decompress", "-q", path("big.zul").c_str(),
                    path("big.xyz").c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        // Waits for the partial file, then interrupts.
        const auto partial = [&] {
            for (const std::string& name : folderContents()) {
                if (name.find(".partial-") != std::string::npos) return true;
            }
            return false;
        };
        const auto start = std::chrono::steady_clock::now();
        while (!partial() && std::chrono::steady_clock::now() - start < std::chrono::seconds(30)) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        ::kill(child, signal);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "exit " << WEXITSTATUS(status);
        EXPECT_EQ(128 + WTERMSIG(status), signal == SIGINT ? 130 : 143);
        EXPECT_EQ(folderContents(), std::vector<std::string>{"big.zul"});
    }
}

}  // namespace

// A LAS file through a pipe into compress, its stream through a pipe into decompress and LAS on
// standard output: the same points, colours and intensities as the file decompressed from disk;
// the summaries on standard error, none on the data.
TEST_F(CommandLineRun, PipesCarryTheCloudAndNoSummary) {
    const std::string las = dataFile("1.2-with-color.las");
    const ToolRun piped = runTool("compress - -o - < " + las + " 2>/dev/null | (" + ZUL_TOOL_PATH +
                                  " decompress - --format las -o - > " + path("y.las") + ")");
    ASSERT_EQ(piped.exitCode, 0) << piped.output;
    EXPECT_NE(piped.output.find("standard input -> - (LAS): 1065 points"), std::string::npos)
        << piped.output;
    for (const std::string& from : {las, path("y.las")}) {
        const std::string name = from == las ? "x" : "y";
        ASSERT_TRUE(toolSucceeds("compress -q " + from + " " + path(name + ".zul")));
        ASSERT_TRUE(
            toolSucceeds("decompress -q " + path(name + ".zul") + " " + path(name + ".xyz")));
    }
    const std::string text = readFile(path("x.xyz"));
    EXPECT_NE(text.find("red green blue intensity"), std::string::npos);
    EXPECT_EQ(readFile(path("y.xyz")), text);
    // The same bytes as compress writes to a file.
    ASSERT_TRUE(toolSucceeds("compress -q - -o - < " + las + " > " + path("s.zul")));
    EXPECT_EQ(readFile(path("s.zul")), readFile(path("x.zul")));
}

// The zul command line: compress, decompress, info, verify and demo, with the habits of gzip and
// zstd: --version, help, many files, -f, exit status 2 for a command line not understood.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "base/limits.h"
#include "batch.h"
#include "commands/commands.h"
#include "commands/file_kind.h"
#include "commands/interrupt.h"
#include "commands/output_file.h"
#include "commands/progress_bar.h"
#include "commands/usage_error.h"
#include "formats/cloud.h"
#include "view_command.h"

using namespace zultool;
using namespace zulconvert;
using namespace zulformats;

namespace {

const char* const kUsage =
    "usage: zul COMMAND [options] FILE...\n"
    "commands: compress, decompress, info, verify, view, demo, help";

std::string versionText() {
    return "zul " + std::to_string(zul_libversion_major()) + "." +
           std::to_string(zul_libversion_minor()) + "." + std::to_string(zul_libversion_patch());
}

void printToolHelp() {
    std::cout << "zul: compress 3-D point clouds (LAS, PCD, PLY, XYZ/CSV, KITTI .bin) into zul "
                 "files and back\n\n"
              << kUsage
              << "\n\n"
                 "  compress FILE...     write each point cloud as a zul file (scan.las -> "
                 "scan.zul)\n"
                 "  decompress FILE...   write each zul file as LAS, PCD, PLY, XYZ, CSV or .bin\n"
                 "  info FILE...         describe zul files: points, step, bounds, streams, "
                 "chunks\n"
                 "  verify FILE...       decode every chunk and report intact or damaged files\n"
                 "  view FILE...         show zul files in a browser, served on a loopback port\n"
                 "  demo                 compress and check a built-in lidar scan\n"
                 "  help COMMAND         the options of a command\n\n"
                 "  ROS bags (scan.bag of ROS 1, scan.db3 of ROS 2): compress turns each "
                 "PointCloud2 topic\n  into NAME/zul (scan.zul.bag), decompress turns it back, "
                 "info lists the topics\n\n"
                 "  -V, --version        print the version\n"
                 "Exit status: 0 done, 1 a file failed, 2 a command line not understood, 130 and "
                 "143 interrupted.\n";
}

// What one command's parser fills in, beside its options.
struct Parsed {
    BatchNames names;
    std::string progress;  // "", "on" or "off"
};

void addCommonOptions(CLI::App& app, Parsed& parsed, bool many) {
    if (many) {
        app.add_option("files", parsed.names.files, "input files (and, for one input, the output)");
        app.add_option("-o,--output", parsed.names.output,
                       "the output file, or a folder (ending in /) for several inputs");
    }
    app.add_flag_callback(
        "--progress",
        [&] {
            if (parsed.progress == "off")
                throw UsageError("--progress and --no-progress contradict");
            parsed.progress = "on";
        },
        "draw the progress bar even when standard error is no terminal");
    app.add_flag_callback(
        "--no-progress",
        [&] {
            if (parsed.progress == "on")
                throw UsageError("--progress and --no-progress contradict");
            parsed.progress = "off";
        },
        "never draw the progress bar");
}

void addCompressOptions(CLI::App& c, CompressOptions& compress) {
    c.add_option("--format", compress.format,
                 "the input's format whatever its name and content: " + formatWords(false));
    c.add_flag("-f,--force", compress.force, "replace an existing output");
    c.add_option("--step", compress.step,
                 "quantisation step, kept as this decimal (default: the LAS scale, else 0.001)");
    c.add_option("--color", compress.color,
                 "none, rgb565 or rgb888 (default: rgb888 if the input has colour)");
    c.add_option("--reflection", compress.reflection,
                 "none, or the largest reflection kept (default: the input's range or type)");
    c.add_option("--intensity-scale", compress.intensityScale,
                 "factor applied to intensities before rounding (default 1; 255 for 0..1)");
    c.add_flag("--normals", compress.normals, "keep normals (an error if the input has none)");
    c.add_flag("--no-normals", compress.noNormals, "leave normals out");
    c.add_option("--chunk", compress.chunk,
                 "points a chunk (default " + std::to_string(zulbase::kDefaultChunkSize) + ")");
    c.add_option("--order", compress.order,
                 "plan (default): the cutting into chunks that makes the smallest file, block by "
                 "block; kd: spatially compact cells; input: the input's order")
        ->check(CLI::IsMember({"plan", "kd", "input"}));
    c.add_option("--order-budget", compress.orderBudgetMiB,
                 "MiB for the points cut at once; larger inputs are cut block by block "
                 "(default " +
                     std::to_string(zulbase::kDefaultOrderBudgetMiB) + ")")
        ->check(CLI::Range(1, 1 << 20));
    c.add_option("--translate", compress.translate, "sensor header translation X Y Z")
        ->expected(3)
        ->allow_extra_args(false);
    c.add_option("--scale", compress.scale, "sensor header uniform scale");
    c.add_option("--rotate", compress.rotate, "sensor header rotation, 3x3, row after row")
        ->expected(9)
        ->allow_extra_args(false);
    c.add_option("--sensor-mount", compress.sensorMount, "sensor mount (0, 10-13, 20-22, 30-32)");
    c.add_option("--sensor-type", compress.sensorType, "sensor type (0 to 10)");
    c.add_flag("--sensor-header", compress.sensorHeader,
               "write a sensor header (a version 2 stream) even without a transformation");
    c.add_flag("-q,--quiet", compress.quiet, "no progress bar and no notes");
    c.add_flag("-v,--verbose", compress.verbose, "tell how the chunks were cut");
    c.add_option("-j,--threads", compress.threads, "encoding threads (default 0: one a core)");
    c.add_flag_callback(
        "--companion", [&compress] { compress.companion = "always"; },
        "write NAME.zulx beside NAME.zul always (its checksums and chunk index), not only when "
        "the input holds what the stream cannot (a LAS, PCD or PLY file's header and fields)");
    c.add_flag_callback(
        "--no-companion", [&compress] { compress.companion = "never"; },
        "never write NAME.zulx: what the stream cannot hold is left out");
    c.add_flag("--keep-order", compress.keepOrder,
               "the companion keeps the input's order: LAS comes back byte for byte, binary PCD "
               "and PLY with --exact too (an organised PCD's order is kept always)");
    c.add_flag(
        "--exact", compress.exact,
        "the companion keeps the float bits of PCD, PLY and text positions and normals that the "
        "step and the stream's normals round (default: each within half a step, said)");
    c.add_flag("--random-marker", compress.randomMarker,
               "draw the sync marker from the system's randomness (default: from the points, so "
               "the same input and options give the same bytes)");
}

// Options that would be taken and then ignored are refused.
// --chunk-budget MiB and --point-density N, the same for decompress, info and verify.
void addChunkBudget(CLI::App& app, int64_t& budgetMiB, int64_t& density) {
    app.add_option("--chunk-budget", budgetMiB,
                   "memory one chunk may take decoded, in MiB (default " +
                       std::to_string(zulbase::kDefaultChunkBudgetMiB) +
                       "): a chunk that claims more points is refused before anything is "
                       "allocated");
    app.add_option("--point-density", density,
                   "points the file may claim for each of its bytes, beyond " +
                       std::to_string(ZUL_BULK_DENSITY_ALLOWANCE) + " (default " +
                       std::to_string(zulbase::kDefaultPointDensity) +
                       "; 0: no limit): a chunk that brings the count past it is refused before "
                       "it is decoded");
}

void checkChunkBudget(int64_t budgetMiB, int64_t density) {
    if (!zulbase::chunkBudgetValid(budgetMiB)) {
        throw UsageError("--chunk-budget " + std::to_string(budgetMiB) + ": give 1 to " +
                         std::to_string(zulbase::kMaxChunkBudgetMiB) + " MiB");
    }
    if (!zulbase::pointDensityValid(density)) {
        throw UsageError("--point-density " + std::to_string(density) + ": give 0 to " +
                         std::to_string(zulbase::kMaxPointDensity));
    }
}

void checkThreads(int threads) {
    if (threads < 0) {
        throw UsageError("--threads " + std::to_string(threads) +
                         ": give 0 (one a core) or more threads");
    }
}

void checkCompress(const CLI::App& c, const CompressOptions& options) {
    checkThreads(options.threads);
    if (c.count("--companion") > 0 && c.count("--no-companion") > 0) {
        throw UsageError("--companion and --no-companion contradict");
    }
    if (options.keepOrder && options.companion == "never") {
        throw UsageError(
            "--keep-order keeps the order in the companion that --no-companion leaves out");
    }
    if (options.exact && options.companion == "never") {
        throw UsageError(
            "--exact keeps float bits in the companion that --no-companion leaves out");
    }
    if (!zulbase::chunkSizeValid(options.chunk)) {
        throw UsageError("--chunk " + std::to_string(options.chunk) + ": a chunk holds 1 to " +
                         std::to_string(zulbase::kMaxChunkSize) + " points");
    }
    if (options.normals && options.noNormals) {
        throw UsageError("--normals and --no-normals contradict");
    }
    if (c.count("--step") > 0 && !(options.step > 0)) {
        throw UsageError("--step " + c.get_option("--step")->as<std::string>() +
                         ": give a positive step (leave --step out for the input's grid or "
                         "0.001)");
    }
    if (c.count("--order-budget") > 0 && options.order == "input") {
        throw UsageError("--order-budget orders points, which --order input does not");
    }
    if (c.count("--intensity-scale") > 0 && options.reflection == "none") {
        throw UsageError("--intensity-scale scales the reflection that --reflection none drops");
    }
    if (!options.format.empty() && formatOfName(options.format) == Format::Zul) {
        throw UsageError("--format zul: compress reads point clouds; decompress reads zul files");
    }
}

void addDecompressOptions(CLI::App& d, DecompressOptions& decompress, std::string& box) {
    d.add_option("--format", decompress.format,
                 "the output's format whatever its name: " + formatWords(false));
    d.add_flag("-f,--force", decompress.force, "replace an existing output");
    d.add_flag("--salvage", decompress.salvage,
               "of a damaged file, write the points of every intact chunk before the damage "
               "(exit status 1 all the same)");
    d.add_flag("--no-transform", decompress.noTransform,
               "leave points in the stored frame, ignoring the sensor header's matrix (for files "
               "compress made: whole steps of the grid)");
    d.add_option("--encoding", decompress.encoding,
                 "PCD: binary, ascii, binary_compressed; PLY: binary_little_endian, "
                 "binary_big_endian, ascii");
    d.add_option("--las-version", decompress.lasVersion, "1.2 (default) or 1.4")
        ->check(CLI::IsMember({"1.2", "1.4"}));
    d.add_option("--las-color-scale", decompress.lasColorScale,
                 "LAS colour: the stream's 8-bit values times 1, 256 or 257 (default 257, "
                 "0 .. 65535); compress says which one its input used")
        ->check(CLI::IsMember({1, 256, 257}));
    d.add_option("--pcd-type", decompress.pcdType,
                 "PCD positions: float (4 bytes) or double (8); by default float where it keeps "
                 "every point on the grid, else double")
        ->check(CLI::IsMember({"float", "double"}));
    d.add_flag("-q,--quiet", decompress.quiet, "no progress bar");
    d.add_option("-j,--threads", decompress.threads, "decoding threads (default 0: one a core)");
    d.add_flag("--no-companion", decompress.noCompanion,
               "write the stream alone, leaving out what NAME.zulx beside it holds");
    d.add_option("--bbox", box,
                 "MINX,MINY,MINZ,MAXX,MAXY,MAXZ: decode only the chunks that meet this box and "
                 "write only the points within it, bounds included");
    addChunkBudget(d, decompress.chunkBudgetMiB, decompress.pointDensity);
}

// "MINX,MINY,MINZ,MAXX,MAXY,MAXZ" into the options' box.
void parseBox(const std::string& text, DecompressOptions& options) {
    const std::string problem = "--bbox " + text + ": ";
    double values[6];
    size_t at = 0;
    for (int k = 0; k < 6; ++k) {
        const size_t comma = k < 5 ? text.find(',', at) : text.size();
        if (comma == std::string::npos) {
            throw UsageError(problem + "give six numbers MINX,MINY,MINZ,MAXX,MAXY,MAXZ");
        }
        const std::string word = text.substr(at, comma - at);
        char* end = nullptr;
        values[k] = std::strtod(word.c_str(), &end);
        if (word.empty() || end != word.c_str() + word.size() ||
            word.find_first_of(" \t") != std::string::npos) {
            throw UsageError(problem + "\"" + word + "\" is not a number");
        }
        if (std::isnan(values[k])) throw UsageError(problem + "NaN is no bound");
        at = comma + 1;
    }
    for (int axis = 0; axis < 3; ++axis) {
        if (values[axis] > values[3 + axis]) {
            throw UsageError(problem + "the smallest " + "xyz"[axis] + " exceeds the largest");
        }
        options.boxMin[axis] = values[axis];
        options.boxMax[axis] = values[3 + axis];
    }
    options.box = true;
}

void checkDecompress(const CLI::App& d, DecompressOptions& options, const BatchNames& names,
                     const std::string& box) {
    checkThreads(options.threads);
    checkChunkBudget(options.chunkBudgetMiB, options.pointDensity);
    if (d.count("--bbox") > 0) parseBox(box, options);
    // The format every output gets: --format, else the extension of the one output named.
    std::string named = names.output;
    if (named.empty() && names.files.size() == 2) named = names.files[1];
    Format format = Format::Zul;
    if (options.format.empty() && !named.empty() && writesThrough(named)) {
        throw UsageError(named +
                         ": has no extension to tell the format; choose it (--format las, ply, "
                         "pcd, xyz, csv or bin)");
    }
    if (!options.format.empty()) {
        format = formatOfName(options.format);
        if (format == Format::Zul) throw UsageError("--format zul: compress writes zul files");
    } else if (!named.empty() && named.back() != '/' && !std::filesystem::is_directory(named)) {
        try {
            format = formatOfPath(named);
        } catch (const FormatError&) {
            return;  // the command names the extension when it gets there
        }
    } else {
        return;
    }
    if (d.count("--encoding") > 0 && format != Format::Pcd && format != Format::Ply) {
        throw UsageError(std::string("--encoding applies to PCD and PLY output, not to ") +
                         formatName(format));
    }
    if (d.count("--pcd-type") > 0 && format != Format::Pcd) {
        throw UsageError(std::string("--pcd-type applies to PCD output, not to ") +
                         formatName(format));
    }
    if (d.count("--las-version") > 0 && format != Format::Las) {
        throw UsageError(std::string("--las-version applies to LAS output, not to ") +
                         formatName(format));
    }
}

void applyProgress(const Parsed& parsed) {
    if (parsed.progress == "on") ProgressBar::setMode(ProgressMode::Always);
    if (parsed.progress == "off") ProgressBar::setMode(ProgressMode::Never);
}

std::string toolCommandHint(const std::string& word) {
    std::string hint = "Try 'zul --help'.";
    std::error_code error;
    if (std::filesystem::is_regular_file(word, error)) {
        hint = "To compress it: zul compress " + word + "; to describe a zul file: zul info " +
               word + ".";
    }
    return hint;
}

// Parses and runs one command; `args` starts with its name.
int runCommand(const std::string& command, std::vector<std::string> args) {
    CLI::App app{"", "zul " + command};
    app.allow_extras();
    Parsed parsed;
    CompressOptions compress;
    DecompressOptions decompress;
    std::string box;
    InfoOptions info;
    VerifyOptions verify;
    DemoOptions demo;
    ViewOptions view;
    if (command == "compress") {
        app.description(
            "Compress point cloud files into zul files: scan.las -> scan.zul, or "
            "IN OUT.zul, or -o FOLDER/ for several");
        addCommonOptions(app, parsed, true);
        addCompressOptions(app, compress);
    } else if (command == "decompress") {
        app.description(
            "Write zul files as another format: IN OUT.las, or --format FMT (beside "
            "each input, or -o FOLDER/)");
        addCommonOptions(app, parsed, true);
        addDecompressOptions(app, decompress, box);
    } else if (command == "info") {
        app.description("Describe zul files: kinds of points, step, bounds, streams and chunks");
        app.add_option("files", info.inputs, "zul files");
        app.add_flag("--json", info.json, "print JSON (an array for several files)");
        app.add_flag("--chunks", info.chunks, "add a table of every chunk");
        addChunkBudget(app, info.chunkBudgetMiB, info.pointDensity);
    } else if (command == "verify") {
        app.description(
            "Decode every chunk of zul files and report each intact or damaged file "
            "(exit status 0 only if all are intact)");
        app.add_option("files", verify.inputs, "zul files");
        app.add_flag("-q,--quiet", verify.quiet, "report damaged files only");
        addChunkBudget(app, verify.chunkBudgetMiB, verify.pointDensity);
    } else if (command == "view") {
        app.description(
            "Show zul files in a browser: serve the viewer page and the files on "
            "127.0.0.1 and print their addresses");
        addViewOptions(app, view);
    } else {
        app.description("Compress and check a built-in lidar scan");
        addCommonOptions(app, parsed, false);
        app.add_option("--points", demo.points, "points in the scan (default 1000000)");
        app.add_option("--keep", demo.keep, "keep the compressed scan in this file");
        app.add_flag("-q,--quiet", demo.quiet, "no progress bar");
    }

    // "--" ends the options: every word after it is a file, "-" and "-x" included.
    std::vector<std::string> afterOptions;
    if (const auto end = std::find(args.begin(), args.end(), "--"); end != args.end()) {
        afterOptions.assign(end + 1, args.end());
        args.erase(end, args.end());
    }
    std::reverse(args.begin(), args.end());
    args.pop_back();  // the command's name
    try {
        app.parse(args);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    for (const std::string& extra : app.remaining()) {
        if (!extra.empty() && extra[0] == '-') throw UsageError("unknown option \"" + extra + "\"");
        throw UsageError("unexpected argument \"" + extra + "\"");
    }
    std::vector<std::string>* files = command == "info"     ? &info.inputs
                                      : command == "verify" ? &verify.inputs
                                      : command == "compress" || command == "decompress"
                                          ? &parsed.names.files
                                          : nullptr;
    if (!afterOptions.empty()) {
        if (files == nullptr)
            throw UsageError("unexpected argument \"" + afterOptions.front() + "\"");
        files->insert(files->end(), afterOptions.begin(), afterOptions.end());
    }
    if (parsed.progress == "on" && (compress.quiet || decompress.quiet))
        throw UsageError("-q and --progress contradict");
    applyProgress(parsed);
    if (command == "compress") {
        checkCompress(app, compress);
        return runCompressBatch(compress, parsed.names);
    }
    if (command == "decompress") {
        checkDecompress(app, decompress, parsed.names, box);
        return runDecompressBatch(decompress, parsed.names);
    }
    if (command == "info") {
        if (info.inputs.empty()) throw UsageError("no input file given");
        checkChunkBudget(info.chunkBudgetMiB, info.pointDensity);
        return runInfo(info);
    }
    if (command == "verify") {
        if (verify.inputs.empty()) throw UsageError("no input file given");
        checkChunkBudget(verify.chunkBudgetMiB, verify.pointDensity);
        return runVerify(verify);
    }
    if (command == "view") return runView(view);
    return runDemo(demo);
}

bool isCommand(const std::string& word) {
    for (const char* command : {"compress", "decompress", "info", "verify", "view", "demo"}) {
        if (word == command) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    installInterruptCleanup();
    const std::vector<std::string> args(argv + 1, argv + argc);
    const std::string first = args.empty() ? "" : args[0];
    std::string hint = "Try 'zul --help'.";
    try {
        if (args.empty()) {
            std::cerr << kUsage << "\nTry 'zul --help'.\n";
            return 2;
        }
        if (first == "--version" || first == "-V") {
            if (args.size() > 1) throw UsageError("--version takes no arguments");
            std::cout << versionText() << "\n";
            return 0;
        }
        if (first == "--help" || first == "-h" || (first == "help" && args.size() == 1)) {
            printToolHelp();
            return 0;
        }
        if (first == "help") {
            if (args.size() > 2) throw UsageError("help takes one command");
            if (!isCommand(args[1])) throw UsageError("unknown command \"" + args[1] + "\"");
            return runCommand(args[1], {args[1], "--help"});
        }
        if (first[0] == '-') throw UsageError("unknown option \"" + first + "\"");
        if (!isCommand(first)) {
            hint = toolCommandHint(first);
            throw UsageError("unknown command \"" + first + "\"");
        }
        hint = "Try 'zul " + first + " --help'.";
        return runCommand(first, args);
    } catch (const UsageError& error) {
        std::cerr << "zul: " << error.what() << "\n" << hint << "\n";
        return 2;
    } catch (const FormatError& error) {
        std::cerr << "zul: " << error.what() << "\n";
    } catch (const std::bad_alloc&) {
        std::cerr << "zul: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "zul: " << error.what() << "\n";
    }
    return 1;
}

// zul info: what a zul file holds, from its file header and chunk headers: kinds of points,
// step, bounds, sizes of the data streams and, if asked, a table of every chunk. Each body is
// decoded on the way (on all cores, and dropped), so that a damaged file is refused as decompress
// refuses it rather than described with counts it does not hold.
#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands/bag_command.h"
#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/companion_report.h"
#include "commands/input_spool.h"
#include "commands/json_text.h"
#include "commands/status_text.h"
#include "commands/stream_members.h"
#include "formats/cloud.h"
#include "formats/output_grid.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// What each data stream would take uncompressed: three doubles, three bytes, one 32-bit
// integer, three floats a point.
constexpr double kRawBytes[4] = {24, 3, 4, 12};
const char* const kStreamNames[4] = {"coordinates", "colour", "reflection", "normals"};
const char* const kStreamKeys[4] = {"coordinates", "color", "reflection", "normals"};

// One stream of the file.
struct FileSummary {
    ZulFileHead head;
    uint64_t chunks = 0;
    uint64_t points = 0;
    uint64_t streamBytes[4] = {};
    double min[3] = {}, max[3] = {};
    std::vector<ChunkEntry> table;  // only with --chunks
};

// The streams of a file (one, or several one after another) and its totals.
struct FileInfo {
    std::vector<FileSummary> streams;
    bool several = false;
    uint64_t fileBytes = 0;
    FileSummary total;      // chunks, points and box of all streams
    std::string damage;     // where the intact part ends, for a damaged file
    std::string companion;  // the note on a companion left unused
};

void addChunk(FileSummary& s, const ChunkEntry& chunk, bool keepTable) {
    for (int axis = 0; axis < 3; ++axis) {
        s.min[axis] = s.chunks == 0 ? chunk.min[axis] : std::min(s.min[axis], chunk.min[axis]);
        s.max[axis] = s.chunks == 0 ? chunk.max[axis] : std::max(s.max[axis], chunk.max[axis]);
    }
    ++s.chunks;
    s.points += static_cast<uint64_t>(chunk.points);
    for (int i = 0; i < 4; ++i) s.streamBytes[i] += chunk.streamBytes[i];
    if (keepTable) s.table.push_back(chunk);
}

FileInfo summarise(const std::string& path, const std::string& shown, bool keepTable,
                   int64_t budgetMiB, int64_t pointDensity) {
    FileInfo info;
    StreamMembers members;
    const zul_Status opened = members.open(path, true, budgetMiB, pointDensity);
    // A file whose head is good is described as far as it is intact, then the damage is told.
    checkStatus(opened, path, ZulStage::Open);
    for (size_t i = 0; i < members.size(); ++i) {
        info.streams.emplace_back();
        info.streams.back().head = members[i].head;
    }
    info.several = members.several();
    info.fileBytes = members[0].head.fileBytes;
    if (members.size() > 1)
        info.fileBytes =
            members[members.size() - 1].head.start + members[members.size() - 1].head.fileBytes;
    info.total.head = members[0].head;
    const WalkEnd end =
        walkMembers(path, members, true, 0, [&](size_t stream, const ChunkEntry& chunk) {
            addChunk(info.streams[stream], chunk, keepTable);
            addChunk(info.total, chunk, false);
        });
    if (end.status != zul_STATUS_OK) info.damage = damageText(end);
    info.companion = unusedCompanionNote(path, shown, members);
    return info;
}

const char* colorName(zul_ColorMode mode) {
    return mode == zul_COLOR_RGB565 ? "rgb565" : mode == zul_COLOR_RGB888 ? "rgb888" : "none";
}

double ratio(double raw, double bytes) { return bytes > 0 ? raw / bytes : 0.0; }

// "x, y, z" (or "x y z" with a space) to the step's precision.
std::string triple(const double v[3], int decimals, const char* separator) {
    char text[256];
    std::snprintf(text, sizeof text, "%.*f%s%.*f%s%.*f", decimals, v[0], separator, decimals, v[1],
                  separator, decimals, v[2]);
    return text;
}

// The first line names the file, or the stream of a file of several.
void printText(const std::string& title, const FileSummary& s) {
    const zul_DataType& d = s.head.dataType;
    const double n = static_cast<double>(s.points);
    const int decimals = decimalsOfStep(outputGrid(d, s.head.header, true).step);
    std::printf("%s\n", title.c_str());
    std::printf("version      %d\n", s.head.version);
    std::printf("step         %s\n", stepText(d, s.head.header).c_str());
    std::printf("colour       %s\n", colorName(d.colorMode));
    if (d.reflectionMode != zul_REFLECTION_NONE) {
        std::printf("reflection   0 .. %d\n", d.maxReflection);
    } else {
        std::printf("reflection   none\n");
    }
    std::printf("normals      %s\n", d.normalMode != zul_NORMAL_NONE ? "spherical" : "none");
    const zul_Header2& h = s.head.header;
    if (h.enabled) {
        std::printf("sensor       mount %d, type %d; may scale: %s, rotate: %s, translate: %s\n",
                    static_cast<int>(h.sensorMount), static_cast<int>(h.sensorType),
                    h.hasScaling ? "yes" : "no", h.hasRotation ? "yes" : "no",
                    h.hasTranslation ? "yes" : "no");
        const double* m = h.transformation;
        for (int row = 0; row < 4; ++row) {
            std::printf("%s [%12.9g %12.9g %12.9g %12.9g]\n",
                        row == 0 ? "matrix      " : "            ", m[row], m[4 + row], m[8 + row],
                        m[12 + row]);
        }
    } else {
        std::printf("sensor       none\n");
    }
    std::printf("chunks       %" PRIu64 "\n", s.chunks);
    std::printf("points       %" PRIu64 "\n", s.points);
    if (s.chunks > 0) {
        std::printf("min          %s\n", triple(s.min, decimals, " ").c_str());
        std::printf("max          %s\n", triple(s.max, decimals, " ").c_str());
    }
    std::printf("\n%-12s %14s %12s %14s %8s\n", "stream", "bytes", "bits/point", "raw bytes",
                "ratio");
    uint64_t streams = 0;
    double raw = 0;
    for (int i = 0; i < 4; ++i) {
        if (!s.head.present[i]) continue;
        streams += s.streamBytes[i];
        raw += kRawBytes[i] * n;
        std::printf("%-12s %14" PRIu64 " %12.3f %14.0f %7.2f:1\n", kStreamNames[i],
                    s.streamBytes[i], n > 0 ? 8.0 * s.streamBytes[i] / n : 0.0, kRawBytes[i] * n,
                    ratio(kRawBytes[i] * n, static_cast<double>(s.streamBytes[i])));
    }
    const uint64_t framing = s.head.fileBytes - streams;
    std::printf("%-12s %14" PRIu64 " %12.3f\n", "framing", framing,
                n > 0 ? 8.0 * framing / n : 0.0);
    std::printf("%-12s %14" PRIu64 " %12.3f %14.0f %7.2f:1\n", "total", s.head.fileBytes,
                n > 0 ? 8.0 * s.head.fileBytes / n : 0.0, raw,
                ratio(raw, static_cast<double>(s.head.fileBytes)));
    if (!s.table.empty()) {
        std::printf("\n%8s %14s %10s %10s  %s\n", "chunk", "offset", "bytes", "points",
                    "min .. max");
        for (const ChunkEntry& c : s.table) {
            const double* low = c.min;
            const double* high = c.max;
            std::printf("%8" PRIu64 " %14" PRIu64 " %10" PRIu64 " %10" PRId64 "  %s .. %s\n",
                        c.index, c.offset, c.bytes, c.points, triple(low, decimals, " ").c_str(),
                        triple(high, decimals, " ").c_str());
        }
    }
}

// `lead` is the first member: the file's name, or a stream's offset in a file of several;
// `companion` the companion's object, or "" for none printed (a stream of several).
void printJson(const std::string& lead, const FileSummary& s, const std::string& companion,
               const char* indent) {
    const zul_DataType& d = s.head.dataType;
    const double n = static_cast<double>(s.points);
    const int decimals = decimalsOfStep(outputGrid(d, s.head.header, true).step);
    const char* in = indent;
    std::printf("%s{\n%s  %s,\n%s  \"bytes\": %" PRIu64 ",\n%s  \"version\": %d,\n", in, in,
                lead.c_str(), in, s.head.fileBytes, in, s.head.version);
    std::printf("%s  \"step\": %s,\n%s  \"color\": \"%s\",\n", in,
                stepText(d, s.head.header).c_str(), in, colorName(d.colorMode));
    if (d.reflectionMode != zul_REFLECTION_NONE) {
        std::printf("%s  \"maxReflection\": %d,\n", in, d.maxReflection);
    } else {
        std::printf("%s  \"maxReflection\": null,\n", in);
    }
    std::printf("%s  \"normals\": %s,\n", in, d.normalMode != zul_NORMAL_NONE ? "true" : "false");
    const zul_Header2& h = s.head.header;
    if (h.enabled) {
        std::printf(
            "%s  \"sensor\": {\"mount\": %d, \"type\": %d, \"hasScaling\": %s, "
            "\"hasRotation\": %s, \"hasTranslation\": %s, \"matrix\": [",
            in, static_cast<int>(h.sensorMount), static_cast<int>(h.sensorType),
            h.hasScaling ? "true" : "false", h.hasRotation ? "true" : "false",
            h.hasTranslation ? "true" : "false");
        for (int i = 0; i < 16; ++i) std::printf("%s%.17g", i ? ", " : "", h.transformation[i]);
        std::printf("]},\n");
    } else {
        std::printf("%s  \"sensor\": null,\n", in);
    }
    std::printf("%s  \"chunks\": %" PRIu64 ",\n%s  \"points\": %" PRIu64 ",\n", in, s.chunks, in,
                s.points);
    if (s.chunks > 0) {
        std::printf("%s  \"bounds\": {\"min\": [%s], \"max\": [%s]},\n", in,
                    triple(s.min, decimals, ", ").c_str(), triple(s.max, decimals, ", ").c_str());
    } else {
        std::printf("%s  \"bounds\": null,\n", in);
    }
    std::printf("%s  \"streams\": {", in);
    bool first = true;
    uint64_t streams = 0;
    for (int i = 0; i < 4; ++i) {
        if (!s.head.present[i]) continue;
        streams += s.streamBytes[i];
        std::printf("%s\n%s    \"%s\": {\"bytes\": %" PRIu64
                    ", \"bitsPerPoint\": %.6g, \"rawBytes\": %.0f, \"ratio\": %.6g}",
                    first ? "" : ",", in, kStreamKeys[i], s.streamBytes[i],
                    n > 0 ? 8.0 * s.streamBytes[i] / n : 0.0, kRawBytes[i] * n,
                    ratio(kRawBytes[i] * n, static_cast<double>(s.streamBytes[i])));
        first = false;
    }
    std::printf("\n%s  },\n%s  \"framingBytes\": %" PRIu64, in, in, s.head.fileBytes - streams);
    if (!s.table.empty()) {
        std::printf(",\n%s  \"chunkTable\": [", in);
        for (const ChunkEntry& c : s.table) {
            const double* low = c.min;
            const double* high = c.max;
            std::printf("%s\n%s    {\"offset\": %" PRIu64 ", \"bytes\": %" PRIu64
                        ", \"points\": %" PRId64 ", \"min\": [%s], \"max\": [%s]}",
                        c.index ? "," : "", in, c.offset, c.bytes, c.points,
                        triple(low, decimals, ", ").c_str(), triple(high, decimals, ", ").c_str());
        }
        std::printf("\n%s  ]", in);
    }
    if (!companion.empty()) std::printf(",\n%s  \"companion\": %s", in, companion.c_str());
    std::printf("\n%s}", in);
}

// Bounds of a summary with chunks, to the step of its first stream.
std::string boundsText(const FileSummary& s, const char* separator) {
    const int decimals = decimalsOfStep(outputGrid(s.head.dataType, s.head.header, true).step);
    return triple(s.min, decimals, separator) + "|" + triple(s.max, decimals, separator);
}

void printFileText(const std::string& path, const FileInfo& info) {
    char title[200];
    if (!info.several) {
        std::snprintf(title, sizeof title, "file         %s, %" PRIu64 " bytes", path.c_str(),
                      info.fileBytes);
        printText(title, info.streams[0]);
        return;
    }
    std::printf("file         %s, %" PRIu64 " bytes, %zu stream%s one after another\n",
                path.c_str(), info.fileBytes, info.streams.size(),
                info.streams.size() == 1 ? "" : "s");
    for (size_t i = 0; i < info.streams.size(); ++i) {
        const ZulFileHead& head = info.streams[i].head;
        std::snprintf(title, sizeof title, "\nstream       %zu, bytes %" PRIu64 " .. %" PRIu64,
                      i + 1, head.start, head.start + head.fileBytes);
        printText(title, info.streams[i]);
    }
    const FileSummary& t = info.total;
    std::printf("\ntotal        %zu stream%s, %" PRIu64 " chunks, %" PRIu64 " points\n",
                info.streams.size(), info.streams.size() == 1 ? "" : "s", t.chunks, t.points);
    if (t.chunks > 0) {
        const std::string bounds = boundsText(t, " ");
        const size_t bar = bounds.find('|');
        std::printf("min          %s\nmax          %s\n", bounds.substr(0, bar).c_str(),
                    bounds.substr(bar + 1).c_str());
    }
}

void printFileJson(const std::string& path, const FileInfo& info, const std::string& companion,
                   const char* indent) {
    if (!info.several) {
        printJson("\"file\": " + jsonString(path), info.streams[0], companion, indent);
        return;
    }
    const std::string in = indent;
    const std::string inner = in + "    ";
    std::printf("%s{\n%s  \"file\": %s,\n%s  \"bytes\": %" PRIu64 ",\n%s  \"members\": [\n", indent,
                indent, jsonString(path).c_str(), indent, info.fileBytes, indent);
    for (size_t i = 0; i < info.streams.size(); ++i) {
        if (i > 0) std::printf(",\n");
        printJson("\"offset\": " + std::to_string(info.streams[i].head.start), info.streams[i], "",
                  inner.c_str());
    }
    const FileSummary& t = info.total;
    std::printf("\n%s  ],\n%s  \"chunks\": %" PRIu64 ",\n%s  \"points\": %" PRIu64 ",\n", indent,
                indent, t.chunks, indent, t.points);
    if (t.chunks > 0) {
        const std::string bounds = boundsText(t, ", ");
        const size_t bar = bounds.find('|');
        std::printf("%s  \"bounds\": {\"min\": [%s], \"max\": [%s]}\n%s}", indent,
                    bounds.substr(0, bar).c_str(), bounds.substr(bar + 1).c_str(), indent);
    } else {
        std::printf("%s  \"bounds\": null\n%s}", indent, indent);
    }
}

}  // namespace

int runInfo(const InfoOptions& options) {
    const bool several = options.inputs.size() > 1;
    int failed = 0;
    bool printed = false;
    if (options.json && several) std::printf("[");
    for (const std::string& name : options.inputs) {
        if (isBag(name)) {
            try {
                if (options.json) std::printf("%s", printed ? ",\n" : several ? "\n" : "");
                if (!options.json && printed) std::printf("\n");
                printBagInfo(name, options.json);
                printed = true;
            } catch (const FormatError& error) {
                std::fflush(stdout);
                std::cerr << "zul: " << error.what() << "\n";
                ++failed;
            }
            continue;
        }
        FileInfo summary;
        std::unique_ptr<InputSpool> spool;
        try {
            spool = std::make_unique<InputSpool>(name);
            summary = summarise(spool->path(), spool->name(), options.chunks,
                                options.chunkBudgetMiB, options.pointDensity);
        } catch (const FormatError& error) {
            std::fflush(stdout);
            std::cerr << "zul: " << (spool ? spool->rename(error.what()) : error.what()) << "\n";
            ++failed;
            continue;
        }
        const std::string& path = spool->name();
        if (options.json) {
            std::printf("%s", printed ? ",\n" : several ? "\n" : "");
            printFileJson(path, summary, summary.several ? "" : companionInfoJson(spool->path()),
                          several ? "  " : "");
        } else {
            if (printed) std::printf("\n");
            printFileText(path, summary);
            if (summary.companion.empty())
                std::printf("%s", companionInfoText(spool->path()).c_str());
        }
        if (!summary.companion.empty()) {
            std::fflush(stdout);
            std::cerr << "zul: " << summary.companion << "\n";
        }
        printed = true;
        if (!summary.damage.empty()) {
            std::fflush(stdout);
            std::cerr << "zul: " << path << ": " << summary.damage << "\n";
            ++failed;
        }
    }
    if (options.json) std::printf(several ? "\n]\n" : printed ? "\n" : "");
    std::fflush(stdout);
    return failed > 0 ? 1 : 0;
}

}  // namespace zulconvert

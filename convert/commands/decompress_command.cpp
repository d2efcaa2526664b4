// zul decompress: a zul file, decoded through its chunk index a batch of chunks at a time on
// several threads, written in chunk order as any format the tool writes; with a box, only the
// chunks that meet it are decoded and only the points within it written.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/commands.h"
#include "commands/companion_restore.h"
#include "commands/file_kind.h"
#include "commands/output_file.h"
#include "commands/point_plan.h"
#include "commands/progress_bar.h"
#include "commands/salvage.h"
#include "commands/status_text.h"
#include "commands/stream_merge.h"
#include "commands/usage_error.h"
#include "formats/cloud.h"
#include "formats/crs_text.h"
#include "formats/output_grid.h"
#include "zul_bulk.h"

namespace zulconvert {

using namespace zulformats;

namespace {

bool inBox(const DecompressOptions& options, const double* p) {
    for (int axis = 0; axis < 3; ++axis) {
        if (!(p[axis] >= options.boxMin[axis] && p[axis] <= options.boxMax[axis])) return false;
    }
    return true;
}

// The in-box points of chunks that only overlap the box, decoded once to count them, kept for
// the writing up to kKeptBytes; chunks beyond that are decoded again when written.
constexpr size_t kKeptBytes = size_t{64} << 20;

struct KeptChunk {
    int64_t number;
    std::vector<zul_Point> points;
};

// What is written of one stream: the chunks to decode, and those decoded for the count.
struct StreamPlan {
    std::vector<int64_t> chunks;
    std::vector<KeptChunk> kept;
};

// The chunks to decode, of the first `usable` listed, and the number of points that will be
// written: every chunk, or those that meet the box. When `exact` (a writer that needs the count
// first), the points within the box of the chunks that only overlap it are counted by decoding
// those chunks, whose points are kept in `kept` (and their chunks left out of the list) as far as
// kKeptBytes allow; otherwise the count is that of every point of the chunks chosen.
std::vector<int64_t> chooseChunks(const DecompressOptions& options, zul_idx_Index index,
                                  int64_t usable, bool exact, int64_t& count,
                                  std::vector<KeptChunk>& kept) {
    std::vector<int64_t> chunks;
    count = 0;
    if (!options.box) {
        for (int64_t number = 0; number < usable; ++number) chunks.push_back(number);
        zul_idx_countPoints(index, chunks.data(), usable, &count);
        return chunks;
    }
    int64_t selected = 0;
    checkStatus(zul_idx_selectBox(index, options.boxMin, options.boxMax, nullptr, 0, &selected),
                options.input, ZulStage::Read);
    chunks.resize(static_cast<size_t>(selected));
    checkStatus(zul_idx_selectBox(index, options.boxMin, options.boxMax, chunks.data(), selected,
                                  &selected),
                options.input, ZulStage::Read);
    chunks.erase(std::lower_bound(chunks.begin(), chunks.end(), usable), chunks.end());
    std::vector<int64_t> overlapping;
    for (const int64_t number : chunks) {
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, number, &chunk);
        if (!exact || (inBox(options, chunk.min) && inBox(options, chunk.max))) {
            count += chunk.numPoints;
        } else {
            overlapping.push_back(number);
        }
    }
    if (overlapping.empty()) return chunks;
    ChunkBatches batches(options.input, index, !options.noTransform, std::move(overlapping),
                         options.threads);
    size_t keptBytes = 0;
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        int64_t at = 0;
        for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
            zul_idx_Chunk chunk = {};
            zul_idx_getChunk(index, batches.batchChunks()[c], &chunk);
            const int64_t end = std::min(at + chunk.numPoints, points.numPoints);
            KeptChunk inside{batches.batchChunks()[c], {}};
            for (int64_t i = at; i < end; ++i) {
                if (!inBox(options, points.positions + 3 * i)) continue;
                ++count;
                if (keptBytes + sizeof(zul_Point) <= kKeptBytes) {
                    inside.points.push_back(zulformats::pointOf(points, i));
                    keptBytes += sizeof(zul_Point);
                } else {
                    inside.number = -1;  // beyond the budget: decoded again when written
                }
            }
            if (inside.number >= 0) kept.push_back(std::move(inside));
            at = end;
        }
    }
    errno = 0;
    checkStatus(batches.status(), options.input, ZulStage::Read);
    // The chunks kept are not decoded again.
    std::vector<int64_t> rest;
    size_t k = 0;
    for (const int64_t number : chunks) {
        while (k < kept.size() && kept[k].number < number) ++k;
        if (k == kept.size() || kept[k].number != number) rest.push_back(number);
    }
    return rest;
}

// The largest |x|, |y| or |z| of the chunks to write, from their boxes.
double coordinateReach(zul_idx_Index index, const std::vector<int64_t>& chunks,
                       const std::vector<KeptChunk>& kept) {
    double reach = 0;
    const auto widen = [&](int64_t number) {
        zul_idx_Chunk chunk = {};
        if (zul_idx_getChunk(index, number, &chunk) != zul_STATUS_OK) return;
        for (int axis = 0; axis < 3; ++axis)
            reach = std::max({reach, std::fabs(chunk.min[axis]), std::fabs(chunk.max[axis])});
    };
    for (int64_t number : chunks) widen(number);
    for (const KeptChunk& chunk : kept) widen(chunk.number);
    return reach;
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

// Writes the points of the chunks planned for stream `number`, chunk after chunk in the file's
// order: those kept from the count, the others as they are decoded. Adds them to `read`.
void writeStream(const DecompressOptions& options, StreamMembers& members, size_t number,
                 StreamPlan& plan, CloudWriter& writer, ProgressBar& progress, int64_t& read) {
    const zul_idx_Index index = members[number].index.index;
    const std::vector<KeptChunk>& kept = plan.kept;
    size_t nextKept = 0;
    const auto writeKeptBefore = [&](int64_t chunk) {
        for (; nextKept < kept.size() && kept[nextKept].number < chunk; ++nextKept) {
            for (const zul_Point& point : kept[nextKept].points) writer.write(point);
            read += static_cast<int64_t>(kept[nextKept].points.size());
        }
    };
    // A chunk that fails names its stream in a file of several.
    const auto check = [&](const ChunkBatches& batches) {
        errno = 0;
        if (batches.status() == zul_STATUS_OK) return;
        if (!members.several()) checkStatus(batches.status(), options.input, ZulStage::Read);
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, batches.failedChunk(), &chunk);
        char where[160];
        std::snprintf(where, sizeof where,
                      ": stream %zu (byte %" PRIu64 "), damaged at chunk %" PRId64 " (byte %" PRIu64
                      "): ",
                      number + 1, members[number].head.start, batches.failedChunk(),
                      members[number].head.start + static_cast<uint64_t>(chunk.offset));
        throw FormatError(options.input + where + statusText(batches.status(), ZulStage::Read));
    };
    ChunkBatches batches(options.input, index, !options.noTransform, std::move(plan.chunks),
                         options.threads);
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        int64_t at = 0;
        for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
            writeKeptBefore(batches.batchChunks()[c]);
            zul_idx_Chunk chunk = {};
            zul_idx_getChunk(index, batches.batchChunks()[c], &chunk);
            const int64_t end = std::min(at + chunk.numPoints, points.numPoints);
            if (!options.box) {
                writer.writeMany(points, at, end);
                read += end - at;
            }
            for (int64_t i = at; i < end && options.box; ++i) {
                if (!inBox(options, points.positions + 3 * i)) continue;
                writer.write(zulformats::pointOf(points, i));
                ++read;
            }
            at = end;
        }
        progress.update(static_cast<uint64_t>(read));
        if (batches.status() != zul_STATUS_OK) writeKeptBefore(batches.failedChunk());
        check(batches);
    }
    check(batches);
    writeKeptBefore(INT64_MAX);
}

}  // namespace

int runDecompress(const DecompressOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    refuseSameFile(options.input, options.output);
    if (options.format.empty() && writesThrough(options.output)) {
        throw UsageError(options.output +
                         ": has no extension to tell the format; choose it (--format las, ply, "
                         "pcd, xyz, csv or bin)");
    }
    const Format format =
        options.format.empty() ? formatOfPath(options.output) : formatOfName(options.format);
    if (format == Format::Zul) {
        std::string written;
        for (Format cloud : cloudFormats())
            written += std::string(written.empty()                  ? ""
                                   : cloud == cloudFormats().back() ? " or "
                                                                    : " ") +
                       extensionOfFormat(cloud);
        throw FormatError(options.output + ": decompress writes " + written);
    }
    StreamMembers members;
    errno = 0;
    const zul_Status opened = members.open(options.input, !options.noTransform,
                                           options.chunkBudgetMiB, options.pointDensity);
    const int openReason = errno;
    int restored = 0;
    const std::string unused = unusedCompanionNote(options.input, shownInput(options), members);
    if (!unused.empty()) {
        if (!options.quiet && !options.noCompanion) std::cerr << "zul: " << unused << "\n";
    } else if (restoreFromCompanion(options, format, restored)) {
        return restored;
    }
    if (opened != zul_STATUS_OK && options.salvage) throwNothingSalvaged(options, opened);
    errno = openReason;
    checkStatus(opened, options.input, ZulStage::Open);
    const WalkEnd intact = options.salvage ? findIntactPoints(options, members) : WalkEnd{};
    if (!options.salvage) {
        // A damaged header is refused before anything is written.
        errno = 0;
        checkWalkEnd(options.input, walkMembers(options.input, members, false, 0,
                                                [](size_t, const ChunkEntry&) {}));
    }
    // Each stream's chunks to write: every listed one, or up to the damage with --salvage.
    const size_t damagedStream = intact.stream == 0 ? 0 : intact.stream - 1;
    int64_t count = 0;
    double reach = 0;
    std::vector<StreamPlan> plans(members.size());
    for (size_t i = 0; i < members.size(); ++i) {
        int64_t usable = members[i].head.usableChunks;
        if (options.salvage && intact.status != zul_STATUS_OK && i >= damagedStream)
            usable = i > damagedStream || intact.streamHead
                         ? 0
                         : static_cast<int64_t>(intact.damagedChunk);
        int64_t counted = 0;
        plans[i].chunks = chooseChunks(options, members[i].index.index, usable,
                                       writerNeedsCount(format), counted, plans[i].kept);
        count += counted;
        reach = std::max(reach,
                         coordinateReach(members[i].index.index, plans[i].chunks, plans[i].kept));
    }

    WriteOptions write;
    mergeStreams(members, options.input, !options.noTransform, format, options.quiet, write);
    write.pointCount = count;
    write.lasVersion = options.lasVersion;
    write.pcdType = options.pcdType;
    write.coordinateReach = reach;
    // The coordinate system that compress kept beside the file goes into a LAS output, or
    // beside any other.
    const std::string inputSidecar = sidecarPath(options.input);
    const bool hasSidecar = std::filesystem::is_regular_file(inputSidecar);
    if (hasSidecar && format == Format::Las) write.crs = readText(inputSidecar);
    // LAS 1.2 holds a coordinate system only as EPSG codes in GeoTIFF keys; one without them
    // goes into LAS 1.4's WKT record rather than failing the output.
    EpsgCodes codes;
    std::string noCodes;
    if (!write.crs.empty() && write.lasVersion == "1.2" && !epsgCodes(write.crs, codes, noCodes)) {
        write.lasVersion = "1.4";
        if (!options.quiet) {
            std::cerr << "zul: " << options.output
                      << ": written as LAS 1.4, whose WKT record holds the coordinate system: "
                      << noCodes << " (LAS 1.2 holds one only as EPSG codes)\n";
        }
    }
    write.encoding = options.encoding;
    write.lasColorScale = options.lasColorScale != 0 ? options.lasColorScale : 257;
    if (write.color && format == Format::Las && options.lasColorScale == 0 && !options.quiet) {
        std::cerr << "zul: LAS colour is written as the stream's 8-bit values times 257 (0 .. "
                     "65535); --las-color-scale 1 or 256 gives them as a source held them\n";
    }
    if (write.normals && format == Format::Las && !options.quiet) {
        std::cerr << "zul: LAS has no place for normals; they are left out of " << options.output
                  << "\n";
    }

    OutputFile output(options.output, options.force);
    int64_t read = 0;
    try {
        std::unique_ptr<CloudWriter> writer =
            openCloudWriter(output.temporaryPath(), format, write);
        ProgressBar progress("decompressing", static_cast<uint64_t>(count), options.quiet);
        for (size_t i = 0; i < members.size(); ++i)
            writeStream(options, members, i, plans[i], *writer, progress, read);
        writer->finish();
        if (!options.quiet) {
            for (const auto& [kind, n] : writer->changes()) {
                std::cerr << "zul: " << changeText(n, kind) << "\n";
            }
        }
        progress.finish();
    } catch (const FormatError& error) {
        // The writers name the file they write: the temporary one. Name the output instead.
        const std::string message = error.what();
        const std::string& temporary = output.temporaryPath();
        if (message.compare(0, temporary.size(), temporary) != 0) throw;
        throw FormatError(options.output + message.substr(temporary.size()));
    }
    output.commit();
    if (hasSidecar && format != Format::Las && writesThrough(options.output)) {
        if (!options.quiet)
            std::cerr << "zul: the coordinate system (" << inputSidecar << ") cannot go beside "
                      << options.output << "; left behind\n";
    } else if (hasSidecar && format != Format::Las && sidecarPath(options.output) != inputSidecar) {
        const std::string note =
            writeSidecar(sidecarPath(options.output), readText(inputSidecar) + "\n", options.force);
        if (!note.empty() && !options.quiet) std::cerr << "zul: " << note << "\n";
    }
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // Never on a stream of data: on standard error when the output is standard output.
        std::fprintf(options.output == "-" ? stderr : stdout,
                     "%s -> %s (%s): %lld points, %.2f s\n", shownInput(options).c_str(),
                     options.output.c_str(), formatName(format), static_cast<long long>(read),
                     seconds);
    }
    return options.salvage ? reportSalvage(options, intact, read) : 0;
}

}  // namespace zulconvert

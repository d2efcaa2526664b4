// zul decompress: a zul file, decoded through its chunk index a batch of chunks at a time on
// several threads, written in chunk order as any format the tool writes; with a box, only the
// chunks that meet it are decoded and only the points within it written.
#include <algorithm>
#include <cerrno>
#include <chrono>
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

zul_Point pointAt(const zul_bulk_Points& points, int64_t i) {
    zul_Point point = {};
    std::copy_n(points.positions + 3 * i, 3, point.position);
    if (points.colors) std::copy_n(points.colors + 3 * i, 3, point.color);
    if (points.reflections) point.reflection = points.reflections[i];
    if (points.normals) std::copy_n(points.normals + 3 * i, 3, point.normal);
    return point;
}

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
                    inside.points.push_back(pointAt(points, i));
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
    int restored = 0;
    if (restoreFromCompanion(options, format, restored)) return restored;
    IndexGuard index;
    ZulFileHead head;
    errno = 0;
    const zul_Status opened = openIndex(options.input, !options.noTransform, options.chunkBudgetMiB,
                                        options.pointDensity, index, head);
    if (opened != zul_STATUS_OK && options.salvage) throwNothingSalvaged(options, opened);
    checkStatus(opened, options.input, ZulStage::Open);
    const zul_DataType& dataType = head.dataType;
    const zul_Header2& header = head.header;
    int64_t usable = head.usableChunks;
    const WalkEnd intact =
        options.salvage ? findIntactPoints(options, index.index, head) : WalkEnd{};
    if (options.salvage) {
        usable = static_cast<int64_t>(intact.intactChunks);
    } else {
        // A damaged header is refused before anything is written.
        errno = 0;
        checkWalkEnd(options.input, indexEnd(options.input, index.index, head));
    }
    int64_t count = 0;
    std::vector<KeptChunk> kept;
    std::vector<int64_t> chunks =
        chooseChunks(options, index.index, usable, writerNeedsCount(format), count, kept);

    WriteOptions write;
    write.color = dataType.colorMode != zul_COLOR_NONE;
    write.intensity = dataType.reflectionMode != zul_REFLECTION_NONE;
    write.normals = dataType.normalMode != zul_NORMAL_NONE;
    write.maxIntensity = dataType.maxReflection;
    const OutputGrid grid = outputGrid(dataType, header, !options.noTransform);
    write.gridStep = grid.step;
    write.gridExact = grid.exact;
    std::copy(grid.offset, grid.offset + 3, write.gridOffset);
    write.pointCount = count;
    write.lasVersion = options.lasVersion;
    write.pcdType = options.pcdType;
    write.coordinateReach = coordinateReach(index.index, chunks, kept);
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
        // Chunk after chunk in the file's order: those kept from the count, the others as
        // they are decoded.
        size_t nextKept = 0;
        const auto writeKeptBefore = [&](int64_t number) {
            for (; nextKept < kept.size() && kept[nextKept].number < number; ++nextKept) {
                for (const zul_Point& point : kept[nextKept].points) writer->write(point);
                read += static_cast<int64_t>(kept[nextKept].points.size());
            }
        };
        ChunkBatches batches(options.input, index.index, !options.noTransform, std::move(chunks),
                             options.threads);
        while (batches.next()) {
            const zul_bulk_Points& points = batches.points();
            int64_t at = 0;
            for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
                writeKeptBefore(batches.batchChunks()[c]);
                zul_idx_Chunk chunk = {};
                zul_idx_getChunk(index.index, batches.batchChunks()[c], &chunk);
                const int64_t end = std::min(at + chunk.numPoints, points.numPoints);
                for (int64_t i = at; i < end; ++i) {
                    if (options.box && !inBox(options, points.positions + 3 * i)) continue;
                    writer->write(pointAt(points, i));
                    ++read;
                }
                at = end;
            }
            progress.update(static_cast<uint64_t>(read));
            if (batches.status() != zul_STATUS_OK) writeKeptBefore(batches.failedChunk());
            errno = 0;
            checkStatus(batches.status(), options.input, ZulStage::Read);
        }
        errno = 0;
        checkStatus(batches.status(), options.input, ZulStage::Read);
        writeKeptBefore(INT64_MAX);
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

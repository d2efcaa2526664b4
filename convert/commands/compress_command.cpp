// zul compress: any point cloud file the tool reads, streamed point by point into a zul file.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <utility>

#include "base/worker_threads.h"
#include "commands/chunk_batches.h"
#include "commands/commands.h"
#include "commands/companion_write.h"
#include "commands/file_kind.h"
#include "commands/output_file.h"
#include "commands/point_plan.h"
#include "commands/progress_bar.h"
#include "commands/read_ahead.h"
#include "commands/status_text.h"
#include "formats/byte_output.h"
#include "formats/cloud.h"
#include "formats/crs_text.h"
#include "planner/planned_writer.h"
#include "zul.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// The input's coordinate system as the .prj file beside the output holds it: what identifying it
// takes (PROJ's database, tens of milliseconds) does not depend on the points.
struct CoordinateSystem {
    std::string text;     // ESRI WKT, empty for none
    std::string problem;  // what could not be kept of it
};

CoordinateSystem identifyCoordinateSystem(const CompressOptions& options,
                                          const CloudReader& reader) {
    CoordinateSystem found;
    const std::string crs = reader.coordinateSystem(found.problem);
    if (!crs.empty() && writesThrough(options.output)) {
        // Nothing travels beside a stream on standard output, a pipe or a device.
        found.problem = "a .prj file cannot go beside " + options.output + "; left behind";
    } else if (!crs.empty()) {
        found.text = crsWkt(crs, WktDialect::Esri, found.problem);
    }
    return found;
}

// The coordinate system of the input, as a .prj file beside the output, the convention GIS tools
// read; decompress puts it back.
void keepCoordinateSystem(const CompressOptions& options, const CoordinateSystem& found) {
    bool kept = false;
    if (!found.text.empty()) {
        const std::string note =
            writeSidecar(sidecarPath(options.output), found.text + "\n", options.force);
        if (!note.empty() && !options.quiet) std::cerr << "zul: " << note << "\n";
        kept = note.empty();
    }
    if (!found.problem.empty() && !options.quiet) {
        std::cerr << "zul: the coordinate system of " << shownInput(options)
                  << (kept ? " is kept in part: " : " cannot be kept: ") << found.problem << "\n";
    }
}

}  // namespace

int runCompress(const CompressOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    refuseSameFile(options.input, options.output);
    if (!writesThrough(options.output) && formatOfPath(options.output) != Format::Zul) {
        throw FormatError(options.output + ": compress writes a zul file; name it .zul");
    }
    const Format format = formatOfInput(options.input, options.format);
    std::unique_ptr<CloudReader> reader = openCloudReader(options.input, format);
    const CloudLayout& layout = reader->layout();

    const PointPlan plan = planPoints(options, layout, format);
    const zul_DataType& dataType = plan.dataType;
    const zul_Header2& header = plan.header;

    OutputFile output(options.output, options.force);
    // A companion cannot go beside a stream written through (standard output, a device, a pipe):
    // the stream goes alone, and the notes say what it leaves out.
    const bool through = writesThrough(options.output);
    CompressOptions alone = options;
    if (through) alone.companion = "never";
    CompanionRecorder companion(alone, format, *reader, plan.reflection.scale);
    companion.gridRatios(plan.grid.ratio);
    std::unique_ptr<OutputFile> companionOutput =
        through ? nullptr : openCompanionOutput(options, companion.active());
    if (through && options.companion != "never" &&
        (format == Format::Las || format == Format::Pcd || format == Format::Ply) &&
        !options.quiet) {
        std::cerr << "zul: " << (options.output == "-" ? "standard output" : options.output)
                  << " takes the stream alone: the companion that would keep the "
                  << formatName(format)
                  << " header and the fields the stream lacks cannot go beside it\n";
    }
    if (!zulplan::PlannedWriter::chunkValid(options.chunk)) {
        throw FormatError("--chunk " + std::to_string(options.chunk) + ": a chunk holds 1 to " +
                          std::to_string(zulbase::kMaxChunkSize) + " points");
    }
    zulplan::PlanOptions planOptions;
    zulplan::parseOrder(options.order, planOptions.order);
    planOptions.chunk = options.chunk;
    planOptions.threads = zulbase::threadsFor(options.threads);
    planOptions.budgetBytes = static_cast<size_t>(options.orderBudgetMiB) << 20;
    planOptions.randomMarker = options.randomMarker;
    zulplan::PlannedWriter writer;
    errno = 0;
    const zul_Status opened = writer.open(output.temporaryPath(), dataType,
                                          header.enabled ? &header : nullptr, planOptions);
    if (opened == zul_STATUS_INVALID_ARGUMENT) {
        throw FormatError(options.output +
                          ": the sensor header was refused: --rotate must be a proper rotation "
                          "(orthonormal, right-handed), --scale positive, --sensor-mount one of "
                          "0, 10-13, 20-22, 30-32 and --sensor-type 0 to 10 (invalid argument)");
    }
    checkStatus(opened, options.output, ZulStage::Write);
    writer.recordChunks(companion.chunkRecorder());
    // Without the companion, the .prj file keeps the coordinate system: with threads to spare, it
    // is identified beside the reading and the planning.
    const bool prj = !companion.keepsFields();
    CoordinateSystem crs;
    zulbase::WorkerThreads identifying;
    const bool early = prj && planOptions.threads > 1 && identifying.start(0, 1, [&](int) {
        crs = identifyCoordinateSystem(options, *reader);
    }) == 1;

    ProgressBar progress("compressing", reader->fileSize(), options.quiet);
    int64_t written = 0;
    PointTally tally;
    if (companion.takesRecords()) {
        zul_Point point = {};
        while (reader->read(point)) {
            progress.update(reader->bytesRead());
            const bool kept = preparePoint(plan, *reader, point, tally);
            companion.add(point, kept);
            if (!kept) continue;
            checkStatus(writer.write(point), options.output, ZulStage::Write);
            ++written;
        }
    } else {
        // A batch at a time: what is read of each point goes through once, in a loop of its own.
        // With threads to spare, the next batch is read while this one is prepared and written.
        ReadAhead batches(
            [&](ReadBatch& b) {
                b.read = reader->readMany(b.points.data(), b.intensities.data(), b.grids.data(),
                                          b.points.size());
                b.bytesRead = reader->bytesRead();
                return b.read > 0;
            },
            4096, planOptions.threads > 1);
        while (ReadBatch* b = batches.next()) {
            progress.update(b->bytesRead);
            const size_t kept = preparePoints(plan, layout, b->points.data(), b->intensities.data(),
                                              b->grids.data(), b->read, tally);
            companion.addCounted(b->read, b->read - kept);
            checkStatus(writer.writeMany(b->points.data(), kept), options.output, ZulStage::Write);
            written += static_cast<int64_t>(kept);
        }
    }
    checkStatus(writer.close(), options.output, ZulStage::Write);
    progress.finish();
    const std::string kept =
        companion.active() ? companion.finish(output.temporaryPath(),
                                              companionOutput->temporaryPath(), options.threads)
                           : std::string();
    const uintmax_t bytes = std::filesystem::file_size(output.temporaryPath());
    output.commit();
    if (companionOutput) companionOutput->commit();
    // The companion holds the source's own coordinate system records.
    if (early) identifying.join();
    if (prj && !early) crs = identifyCoordinateSystem(options, *reader);
    if (prj) keepCoordinateSystem(options, crs);
    if (companion.active() && !options.quiet) {
        std::cerr << "zul: " << companionPath(options.output) << " beside " << options.output
                  << " keeps " << kept << "\n";
    }
    tally.fieldsKept = companion.keepsFields();
    reportTally(options, *reader, tally);
    if (options.report) {
        CompressReport& report = *options.report;
        if (companion.active())
            report.kept =
                companionPath(options.output) + " beside " + options.output + " keeps " + kept;
        if (!tally.fieldsKept) report.dropped = reader->dropped();
        if (tally.dropped > 0 && !tally.fieldsKept)
            report.dropped.push_back(std::to_string(tally.dropped) +
                                     " points with NaN or infinite coordinates");
        const std::map<std::string, int64_t>& read = reader->changes();
        for (const auto* changes : {&read, &std::as_const(tally.changes)})
            report.changed.insert(report.changed.end(), changes->begin(), changes->end());
    }
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // Never on a stream of data: on standard error when the output is standard output.
        std::FILE* summary = options.output == "-" ? stderr : stdout;
        std::fprintf(summary, "%s (%s) -> %s: %lld points, %ju bytes, %.2f bytes/point, %.2f s\n",
                     shownInput(options).c_str(), formatName(format), options.output.c_str(),
                     static_cast<long long>(written), bytes,
                     written > 0 ? static_cast<double>(bytes) / written : 0.0, seconds);
        if (options.verbose)
            std::fprintf(summary, "chunks cut (--order %s):\n%s", options.order.c_str(),
                         writer.summary().c_str());
    }
    return 0;
}

}  // namespace zulconvert

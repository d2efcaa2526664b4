// zul decompress: a zul file, read point by point, written as any format the tool writes.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "commands.h"
#include "file_kind.h"
#include "formats/cloud.h"
#include "formats/crs_text.h"
#include "formats/output_grid.h"
#include "output_file.h"
#include "point_plan.h"
#include "progress_bar.h"
#include "salvage.h"
#include "status_text.h"
#include "zul.h"

namespace zultool {

namespace {

struct ReaderGuard {
    zul_in_Context context = nullptr;
    ~ReaderGuard() { zul_in_close(&context); }
};

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

}  // namespace

int runDecompress(const DecompressOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    const Format format =
        options.format.empty() ? formatOfPath(options.output) : formatOfName(options.format);
    if (format == Format::Zul) {
        throw FormatError(options.output + ": decompress writes .las .pcd .ply .xyz .csv or .bin");
    }
    ReaderGuard reader;
    zul_DataType dataType;
    zul_Header2 header;
    zul_dec_Params params = {options.noTransform ? 0 : 1, {0, 0, 0, 0}};
    errno = 0;
    checkStatus(zul_in_open2(&reader.context, &dataType, &header, options.input.c_str(), &params),
                options.input, ZulStage::Open);
    int64_t count = 0;
    const WalkEnd intact = options.salvage ? findIntactPoints(options) : WalkEnd{};
    if (options.salvage) {
        count = intact.intactPoints;
    } else {
        checkStatus(zul_in_getNumPoints(reader.context, &count), options.input, ZulStage::Read);
    }

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
    // The coordinate system that compress kept beside the file goes into a LAS output, or
    // beside any other.
    const std::string inputSidecar = sidecarPath(options.input);
    const bool hasSidecar = std::filesystem::is_regular_file(inputSidecar);
    if (hasSidecar && format == Format::Las) write.crs = readText(inputSidecar);
    write.encoding = options.encoding;
    write.lasVersion = options.lasVersion;
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
        zul_Point point = {};
        while (!options.salvage || read < count) {
            const zul_Status status = zul_in_readNextPoint(reader.context, &point);
            if (status == zul_STATUS_END_OF_FILE) break;
            checkStatus(status, options.input, ZulStage::Read);
            writer->write(point);
            progress.update(static_cast<uint64_t>(++read));
        }
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
    if (hasSidecar && format != Format::Las && sidecarPath(options.output) != inputSidecar) {
        const std::string note =
            writeSidecar(sidecarPath(options.output), readText(inputSidecar) + "\n", options.force);
        if (!note.empty() && !options.quiet) std::cerr << "zul: " << note << "\n";
    }
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::printf("%s -> %s (%s): %lld points, %.2f s\n", options.input.c_str(),
                    options.output.c_str(), formatName(format), static_cast<long long>(read),
                    seconds);
    }
    return options.salvage ? reportSalvage(options, intact, read) : 0;
}

}  // namespace zultool

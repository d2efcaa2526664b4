// zul demo: a built-in street scan compressed to a temporary file, read back, and every point
// checked against its quantised original; prints the ratio, the speeds and the largest errors.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numeric>

#include "base/limits.h"
#include "commands/commands.h"
#include "commands/interrupt.h"
#include "commands/point_check.h"
#include "commands/progress_bar.h"
#include "commands/status_text.h"
#include "formats/cloud.h"
#include "synthetic/street_scan.h"
#include "zul.h"

namespace zulconvert {

using namespace zulformats;

namespace {

constexpr int kChunkSize = zulbase::kDefaultChunkSize;
double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int runDemo(const DemoOptions& options) {
    if (options.points < 1) throw FormatError("--points must be at least 1");
    if (!options.quiet) std::fprintf(stderr, "zul: tracing the street scan...\n");
    const std::vector<zul_Point> scan = zulsynth::makeStreetScan(options.points);

    zul_DataType dataType;
    zul_init_headers(&dataType, nullptr);
    dataType.quantizationStep = 0.001f;
    dataType.colorMode = zul_COLOR_RGB888;
    dataType.reflectionMode = zul_REFLECTION_CLAMPED;
    dataType.maxReflection = 255;
    dataType.normalMode = zul_NORMAL_SPHERICAL;
    const double step = dataType.quantizationStep;

    const std::string path = options.keep.empty()
                                 ? (std::filesystem::temp_directory_path() /
                                    ("zul-demo-" + std::to_string(::getpid()) + ".zul"))
                                       .string()
                                 : options.keep;
    // An interrupt removes the file while it is written, and the temporary one at any time.
    struct Cleanup {
        std::string path;
        bool keep;
        int guard = guardPartialFile(path);
        ~Cleanup() {
            if (!keep) std::remove(path.c_str());
            releasePartialFile(guard);
        }
    } cleanup{path, !options.keep.empty()};

    auto start = std::chrono::steady_clock::now();
    {
        zul_out_Context out = nullptr;
        checkStatus(zul_out_open(&out, path.c_str(), &dataType), path, ZulStage::Write);
        zul_out_setChunkSize(out, kChunkSize);
        ProgressBar progress("writing", scan.size(), options.quiet);
        for (const zul_Point& point : scan) {
            const zul_Status status = zul_out_writePoint(out, &point);
            if (status != zul_STATUS_OK) zul_out_close(&out);
            checkStatus(status, path, ZulStage::Write);
            progress.update(&point - scan.data());
        }
        checkStatus(zul_out_close(&out), path, ZulStage::Write);
        progress.finish();
    }
    if (cleanup.keep) {
        releasePartialFile(cleanup.guard);
        cleanup.guard = -1;
    }
    const double writeSeconds = secondsSince(start);
    const uintmax_t bytes = std::filesystem::file_size(path);

    // The points read back go to memory made ready beforehand, so the time is the reading's.
    std::vector<zul_Point> decoded(scan.size());
    start = std::chrono::steady_clock::now();
    {
        zul_in_Context in = nullptr;
        zul_Status status = zul_in_open(&in, &dataType, path.c_str());
        ProgressBar progress("reading", scan.size(), options.quiet);
        for (size_t i = 0; status == zul_STATUS_OK && i < scan.size(); ++i) {
            status = zul_in_readNextPoint(in, &decoded[i]);
            progress.update(i);
        }
        zul_Point extra;
        if (status == zul_STATUS_OK && zul_in_readNextPoint(in, &extra) != zul_STATUS_END_OF_FILE) {
            status = zul_STATUS_CORRUPT_DATA;
        }
        zul_in_close(&in);
        checkStatus(status, path, ZulStage::Read);
    }
    const double readSeconds = secondsSince(start);

    PointErrors errors;
    for (size_t first = 0; first < scan.size(); first += kChunkSize) {
        const size_t end = std::min(scan.size(), first + kChunkSize);
        const std::vector<zul_Point> chunk(decoded.begin() + first, decoded.begin() + end);
        checkChunk(scan.data() + first, chunk, step, errors);
    }

    const double n = static_cast<double>(scan.size());
    const double raw = n * sizeof(zul_Point);
    std::printf(
        "zul demo: a spinning 64-beam lidar in a street, %zu points with colour, "
        "reflection and normals, step 1 mm\n",
        scan.size());
    std::printf("  file     %s%s\n", path.c_str(),
                options.keep.empty() ? " (removed afterwards)" : "");
    std::printf(
        "  size     %ju bytes, %.2f bytes/point; %.1f:1 against %zu-byte points in memory\n", bytes,
        bytes / n, raw / bytes, sizeof(zul_Point));
    std::printf("  write    %.3f s, %.2f M points/s\n", writeSeconds, n / writeSeconds / 1e6);
    std::printf("  read     %.3f s, %.2f M points/s\n", readSeconds, n / readSeconds / 1e6);
    std::printf(
        "  errors   position %.3f steps (%.3f mm), normal %.2f degrees, colour and "
        "reflection %s\n",
        errors.position, errors.position * step * 1000, errors.normal,
        errors.mismatches == 0 ? "exact" : "DIFFER");
    const bool passed =
        errors.mismatches == 0 && errors.position <= 0.5 + 1e-6 && errors.normal < 2.0;
    std::printf("  check    %s\n", passed ? "every point matches its quantised original"
                                          : "FAILED: points differ from their quantised originals");
    return passed ? 0 : 1;
}

}  // namespace zulconvert

// The whole file layer on a 10,000,000-point lidar-like file (positions at 1 mm, RGB888,
// reflection): written point by point in the default chunks of 10,000, then read back point by
// point. The scan of 1,000,000 points is driven past ten times, each pass 50 m further along x.
// Reports points per second each way, the file's bytes a point, and the peak resident memory of
// each phase above what the process held when it began: one chunk's worth, not the file's.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "peak_memory.h"
#include "scan_streams.h"
#include "zul.h"

namespace {

const int kPasses = 10;
const double kPassShift = 50.0;

std::string benchFile() {
    return (std::filesystem::temp_directory_path() / "zul_file_benchmark.zul").string();
}

// Starts a phase's memory account; returns the resident size it starts from.
int64_t startMemory() {
    resetPeakResidentBytes();
    return residentBytes();
}

void reportMemory(benchmark::State& state, int64_t start) {
    const double mib = 1024.0 * 1024.0;
    state.counters["peak_rss_MiB"] = static_cast<double>(peakResidentBytes()) / mib;
    state.counters["phase_rss_MiB"] = static_cast<double>(peakResidentBytes() - start) / mib;
}

bool writeFile(const std::string& path, int64_t& written) {
    SyntheticScan& scan = benchScan();
    const zul_DataType dataType = benchDataType(true, false);
    zul_out_Context writer = nullptr;
    if (zul_out_open(&writer, path.c_str(), &dataType) != zul_STATUS_OK) {
        zul_out_close(&writer);
        return false;
    }
    zul_Point p = {};
    bool ok = true;
    for (int pass = 0; ok && pass < kPasses; ++pass) {
        const double shift = pass * kPassShift;
        for (int i = 0; ok && i < scan.size(); ++i) {
            const size_t k = 3 * static_cast<size_t>(i);
            p.position[0] = scan.positions[k] + shift;
            p.position[1] = scan.positions[k + 1];
            p.position[2] = scan.positions[k + 2];
            p.color[0] = scan.colors[k];
            p.color[1] = scan.colors[k + 1];
            p.color[2] = scan.colors[k + 2];
            p.reflection = scan.reflections[i];
            ok = zul_out_writePoint(writer, &p) == zul_STATUS_OK;
            ++written;
        }
    }
    return zul_out_close(&writer) == zul_STATUS_OK && ok;
}

void writeLidarFile(benchmark::State& state) {
    benchScan();  // made before the memory account starts
    const std::string path = benchFile();
    int64_t written = 0;
    int64_t start = 0;
    for (auto _ : state) {
        start = startMemory();
        if (!writeFile(path, written)) state.SkipWithError("writing the file failed");
    }
    reportMemory(state, start);
    state.SetItemsProcessed(written);
    state.counters["bytes_per_point"] = static_cast<double>(std::filesystem::file_size(path)) /
                                        (static_cast<double>(written) / state.iterations());
}

void readLidarFile(benchmark::State& state) {
    const std::string path = benchFile();
    int64_t scratch = 0;
    if (!std::filesystem::exists(path) && !writeFile(path, scratch)) {
        state.SkipWithError("writing the file failed");
        return;
    }
    int64_t read = 0;
    int64_t start = 0;
    double checksum = 0;
    for (auto _ : state) {
        start = startMemory();
        zul_in_Context reader = nullptr;
        zul_DataType dataType;
        int64_t count = 0;
        if (zul_in_open(&reader, &dataType, path.c_str()) != zul_STATUS_OK ||
            zul_in_getNumPoints(reader, &count) != zul_STATUS_OK) {
            state.SkipWithError("opening the file failed");
            zul_in_close(&reader);
            break;
        }
        zul_Point p;
        zul_Status status;
        int64_t points = 0;
        while ((status = zul_in_readNextPoint(reader, &p)) == zul_STATUS_OK) {
            checksum += p.position[2];
            ++points;
        }
        zul_in_close(&reader);
        if (status != zul_STATUS_END_OF_FILE || points != count) {
            state.SkipWithError("reading the file failed");
            break;
        }
        read += points;
    }
    benchmark::DoNotOptimize(checksum);
    reportMemory(state, start);
    state.SetItemsProcessed(read);
    std::remove(path.c_str());
}

BENCHMARK(writeLidarFile)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(readLidarFile)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();

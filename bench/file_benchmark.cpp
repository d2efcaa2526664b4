// The file layer, point by point: every bench cloud written with zul_out_writePoint in the
// default chunks and read back with zul_in_readNextPoint to the end. Then the memory
// case: a 10,000,000-point file with all four attributes (the synthetic scan driven past ten
// times, each pass 50 m further along x), with the peak resident memory of writing and of
// reading above what the process held when the phase began: one chunk's worth, not the file's.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench_clouds.h"
#include "peak_memory.h"
#include "zul.h"

namespace {

const int kPasses = 10;
const double kPassShift = 50.0;

std::string benchFile(const std::string& tag) {
    return (std::filesystem::temp_directory_path() / ("zul_file_benchmark_" + tag + ".zul"))
        .string();
}

void pointAt(const BenchCloud& cloud, int i, double shift, zul_Point& p) {
    const size_t k = 3 * static_cast<size_t>(i);
    p.position[0] = cloud.positions[k] + shift;
    p.position[1] = cloud.positions[k + 1];
    p.position[2] = cloud.positions[k + 2];
    if (!cloud.colors.empty()) {
        for (int c = 0; c < 3; ++c) p.color[c] = cloud.colors[k + c];
    }
    if (!cloud.reflections.empty()) p.reflection = cloud.reflections[static_cast<size_t>(i)];
    if (!cloud.normals.empty()) {
        for (int c = 0; c < 3; ++c) p.normal[c] = cloud.normals[k + c];
    }
}

// Writes the cloud `passes` times, each pass shifted along x; adds the points to `written`.
bool writeCloud(const std::string& path, const BenchCloud& cloud, int passes, int64_t& written) {
    zul_out_Context writer = nullptr;
    if (zul_out_open(&writer, path.c_str(), &cloud.dataType) != zul_STATUS_OK) {
        zul_out_close(&writer);
        return false;
    }
    zul_Point p = {};
    bool ok = true;
    for (int pass = 0; ok && pass < passes; ++pass) {
        for (int i = 0; ok && i < cloud.size(); ++i) {
            pointAt(cloud, i, pass * kPassShift, p);
            ok = zul_out_writePoint(writer, &p) == zul_STATUS_OK;
            ++written;
        }
    }
    return zul_out_close(&writer) == zul_STATUS_OK && ok;
}

// Reads the file to its clean end; adds the points to `read`.
bool readCloud(const std::string& path, int64_t& read, double& checksum) {
    zul_in_Context reader = nullptr;
    zul_DataType dataType;
    int64_t count = 0;
    if (zul_in_open(&reader, &dataType, path.c_str()) != zul_STATUS_OK ||
        zul_in_getNumPoints(reader, &count) != zul_STATUS_OK) {
        zul_in_close(&reader);
        return false;
    }
    zul_Point p;
    zul_Status status;
    int64_t points = 0;
    while ((status = zul_in_readNextPoint(reader, &p)) == zul_STATUS_OK) {
        checksum += p.position[2];
        ++points;
    }
    zul_in_close(&reader);
    read += points;
    return status == zul_STATUS_END_OF_FILE && points == count;
}

void writeFile(benchmark::State& state, const BenchCloud* cloud, int passes, bool memory) {
    const std::string path = benchFile(std::to_string(passes));
    int64_t written = 0, start = 0;
    for (auto _ : state) {
        if (memory) {
            resetPeakResidentBytes();
            start = residentBytes();
        }
        if (!writeCloud(path, *cloud, passes, written)) state.SkipWithError("writing failed");
    }
    if (memory) {
        const double mib = 1024.0 * 1024.0;
        state.counters["phase_rss_MiB"] = static_cast<double>(peakResidentBytes() - start) / mib;
        state.counters["peak_rss_MiB"] = static_cast<double>(peakResidentBytes()) / mib;
    }
    state.SetItemsProcessed(written);
    state.SetBytesProcessed(written * cloud->rawBytesPerPoint());
    state.counters["bits_total"] = 8.0 * static_cast<double>(std::filesystem::file_size(path)) /
                                   static_cast<double>(int64_t{passes} * cloud->size());
}

void readFile(benchmark::State& state, const BenchCloud* cloud, int passes, bool memory) {
    const std::string path = benchFile(std::to_string(passes));
    int64_t read = 0, scratch = 0, start = 0;
    double checksum = 0;
    if (!writeCloud(path, *cloud, passes, scratch)) {
        state.SkipWithError("writing the file failed");
        return;
    }
    for (auto _ : state) {
        if (memory) {
            resetPeakResidentBytes();
            start = residentBytes();
        }
        if (!readCloud(path, read, checksum)) state.SkipWithError("reading failed");
    }
    benchmark::DoNotOptimize(checksum);
    if (memory) {
        const double mib = 1024.0 * 1024.0;
        state.counters["phase_rss_MiB"] = static_cast<double>(peakResidentBytes() - start) / mib;
        state.counters["peak_rss_MiB"] = static_cast<double>(peakResidentBytes()) / mib;
    }
    state.SetItemsProcessed(read);
    state.SetBytesProcessed(read * cloud->rawBytesPerPoint());
    std::remove(path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<BenchCloud>& clouds = benchClouds();
    for (const BenchCloud& cloud : clouds) {
        benchmark::RegisterBenchmark(("write/" + cloud.name).c_str(), writeFile, &cloud, 1, false)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("read/" + cloud.name).c_str(), readFile, &cloud, 1, false)
            ->Unit(benchmark::kMillisecond);
    }
    const BenchCloud& scan = clouds.back();
    benchmark::RegisterBenchmark("write/10M points", writeFile, &scan, kPasses, true)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
    benchmark::RegisterBenchmark("read/10M points", readFile, &scan, kPasses, true)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(2);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

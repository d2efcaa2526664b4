// Side by side in one process, on one core: zul, Draco and a memcpy of the same points, over
// every bench cloud. zul runs twice: on the points in the input's order, and in the spatially
// compact chunks that `zul compress` writes by default. Prints a Markdown table: bytes stored, bits
// a point, encode and decode speed in millions of points per second, and each speed as a share of
// memcpy's; then zul's file calls point by point (zul_out_writePoint, zul_in_readNextPoint) on the
// k-d chunks. Usage: compare_codecs [part of a cloud's name]
#include <sched.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bench_clouds.h"
#include "codec_runs.h"

namespace {

std::string cpuModel() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line;
    while (std::getline(cpuinfo, line)) {
        if (line.compare(0, 10, "model name") == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown processor";
}

void pinToOneCore() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(0, &set);
    sched_setaffinity(0, sizeof set, &set);
}

void printRow(const BenchCloud& cloud, const CodecRun& run, const CodecRun& ceiling) {
    const double points = cloud.size();
    if (!run.error.empty()) {
        std::printf("| %s | %d | %s | failed: %s | | | | | |\n", cloud.name.c_str(), cloud.size(),
                    run.codec.c_str(), run.error.c_str());
        return;
    }
    std::printf("| %s | %d | %s | %llu | %.2f | %.1f | %.1f | %.1f%% | %.1f%% |\n",
                cloud.name.c_str(), cloud.size(), run.codec.c_str(),
                static_cast<unsigned long long>(run.bytes), 8.0 * run.bytes / points,
                points / run.encodeSeconds / 1e6, points / run.decodeSeconds / 1e6,
                100.0 * ceiling.encodeSeconds / run.encodeSeconds,
                100.0 * ceiling.decodeSeconds / run.decodeSeconds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    pinToOneCore();
    std::printf("%s, one core; zul %d.%d.%d; chunks of %d points\n\n", cpuModel().c_str(),
                zul_libversion_major(), zul_libversion_minor(), zul_libversion_patch(),
                kBenchChunk);
    std::printf(
        "| cloud | points | codec | bytes | bits/point | encode Mpts/s | decode Mpts/s | "
        "encode vs memcpy | decode vs memcpy |\n|---|---:|---|---:|---:|---:|---:|---:|---:|\n");
    for (const BenchCloud& cloud : benchClouds()) {
        if (cloud.name.find(only) == std::string::npos) continue;
        const CodecRun ceiling = runMemcpy(cloud);
        printRow(cloud, ceiling, ceiling);
        printRow(cloud, runZul(cloud, "zul, input order"), ceiling);
        printRow(cloud, runZul(kdOrdered(cloud), "zul, kd chunks"), ceiling);
        printRow(cloud, runZulFile(kdOrdered(cloud)), ceiling);
        printRow(cloud, runDraco(cloud), ceiling);
    }
}

// How the cutting into chunks changes a file: every bench cloud written in the input's order, in
// k-d cells and as the chunk planner cuts it (the default of `zul compress`), with the default
// budget and chunk size. Prints a Markdown table of bits a point of each stream and of the whole
// file, and the planner's time (choosing only) against the whole write.
// Usage: compare_orders [part of a cloud's name]
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench_clouds.h"
#include "encoded_cloud.h"
#include "planner/planned_writer.h"

namespace {

struct OrderRun {
    uint64_t bytes = 0;
    uint64_t streamBytes[4] = {0, 0, 0, 0};
    double seconds = 0, planningSeconds = 0;
    std::string error;
};

// Adds up the streams of every chunk of the file.
bool countFile(const std::string& path, const zul_DataType& type, OrderRun& run) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    run.bytes = bytes.size();
    zul_dec_Context decoder = nullptr;
    int headerSize = 0, chunkHeaderSize = 0;
    zul_DataType stored;
    const char* marker = nullptr;
    bool ok =
        bytes.size() >= 8 && zul_dec_open(&decoder, &headerSize, bytes.data()) == zul_STATUS_OK &&
        zul_dec_decodeFileHeader(decoder, &stored, &chunkHeaderSize, &marker, bytes.data() + 8) ==
            zul_STATUS_OK;
    size_t at = 8 + static_cast<size_t>(headerSize);
    while (ok && at < bytes.size()) {
        int bodySize = 0;
        ok = zul_dec_decodeChunkHeader(decoder, &bodySize, bytes.data() + at + 16) == zul_STATUS_OK;
        if (!ok) break;
        countStreams(type, bytes.data() + at, run.streamBytes);
        at += 16 + static_cast<size_t>(chunkHeaderSize) + static_cast<size_t>(bodySize);
    }
    zul_dec_close(&decoder);
    return ok;
}

OrderRun runOrder(const BenchCloud& cloud, const std::vector<zul_Point>& points,
                  zulplan::Order order) {
    OrderRun run;
    const std::string path =
        (std::filesystem::temp_directory_path() / "compare_orders.zul").string();
    zulplan::PlanOptions options;
    options.order = order;
    options.chunk = kBenchChunk;
    zulplan::PlannedWriter writer;
    const auto start = std::chrono::steady_clock::now();
    zul_Status status = writer.open(path, cloud.dataType, nullptr, options);
    for (size_t i = 0; i < points.size() && status == zul_STATUS_OK; ++i)
        status = writer.write(points[i]);
    if (status == zul_STATUS_OK) status = writer.close();
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.planningSeconds = writer.planningSeconds();
    if (status != zul_STATUS_OK)
        run.error = "status " + std::to_string(status);
    else if (!countFile(path, cloud.dataType, run))
        run.error = "unreadable file";
    std::filesystem::remove(path);
    return run;
}

void printRow(const BenchCloud& cloud, const char* order, const OrderRun& run) {
    if (!run.error.empty()) {
        std::printf("| %s | %s | failed: %s | | | | | | |\n", cloud.name.c_str(), order,
                    run.error.c_str());
        return;
    }
    const double points = cloud.size();
    std::printf("| %s | %s |", cloud.name.c_str(), order);
    for (uint64_t stream : run.streamBytes) {
        if (stream == 0)
            std::printf(" - |");
        else
            std::printf(" %.2f |", 8.0 * static_cast<double>(stream) / points);
    }
    std::printf(" **%.2f** | %.3f | %.3f |\n", 8.0 * static_cast<double>(run.bytes) / points,
                run.planningSeconds, run.seconds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    std::printf("chunks of at most %d points, a budget of 256 MiB; bits a point\n\n", kBenchChunk);
    std::printf(
        "| cloud | order | coordinates | colour | reflection | normals | whole file | planning s "
        "| write s |\n|---|---|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const BenchCloud& cloud : benchClouds()) {
        if (cloud.name.find(only) == std::string::npos) continue;
        const std::vector<zul_Point> points = pointsOf(cloud);
        printRow(cloud, "input", runOrder(cloud, points, zulplan::Order::Input));
        printRow(cloud, "kd", runOrder(cloud, points, zulplan::Order::Kd));
        printRow(cloud, "plan", runOrder(cloud, points, zulplan::Order::Plan));
    }
}

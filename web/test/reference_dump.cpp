// The native side of the WebAssembly decoder's test: decodes a zul file with the library's bulk
// decoder on one thread and writes each array raw (PREFIX.positions, .colors, .reflections,
// .normals: the attributes the stream has), then prints the counts and the chunk list as JSON.
// With `--time N` instead of a prefix (the benchmark's use), decodes N times and prints the
// fastest decode's seconds.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "zul_bulk.h"

namespace {

bool writeRaw(const std::string& path, const void* data, size_t bytes) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    const bool written = bytes == 0 || std::fwrite(data, 1, bytes, file) == bytes;
    return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && !(argc == 4 && std::string(argv[2]) == "--time")) {
        std::fprintf(stderr, "usage: reference_dump FILE.zul PREFIX | FILE.zul --time N\n");
        return 2;
    }
    zul_idx_Index index = nullptr;
    zul_Status status = zul_idx_openFile(&index, argv[1], nullptr);
    int64_t numChunks = 0, numPoints = 0;
    zul_bulk_Points points = {};
    if (status == zul_STATUS_OK) status = zul_idx_getCounts(index, &numChunks, &numPoints);
    if (status == zul_STATUS_OK) status = zul_bulk_allocate(index, numPoints, &points);
    int64_t failed = -1;
    zul_Status decoded = status;
    if (status == zul_STATUS_OK && std::string(argv[2]) == "--time") {
        const int repeats = argc > 3 ? std::atoi(argv[3]) : 5;
        double best = 1e300;
        for (int k = 0; k < repeats && status == zul_STATUS_OK; ++k) {
            const auto start = std::chrono::steady_clock::now();
            status = zul_bulk_decode(index, 1, &points, &failed);
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
            if (took.count() < best) best = took.count();
        }
        std::printf("{\"seconds\": %.6f, \"points\": %lld, \"status\": %d}\n", best,
                    static_cast<long long>(points.numPoints), static_cast<int>(status));
        zul_bulk_free(&points);
        zul_idx_close(&index);
        return status == zul_STATUS_OK ? 0 : 1;
    }
    if (status == zul_STATUS_OK) decoded = zul_bulk_decode(index, 1, &points, &failed);
    if (status != zul_STATUS_OK) {
        std::fprintf(stderr, "reference_dump: %s: status %d\n", argv[1], static_cast<int>(status));
        zul_idx_close(&index);
        return 1;
    }
    const size_t n = static_cast<size_t>(points.numPoints);
    const std::string prefix = argv[2];
    bool ok = writeRaw(prefix + ".positions", points.positions, n * 3 * sizeof(double));
    if (points.colors) ok = ok && writeRaw(prefix + ".colors", points.colors, n * 3);
    if (points.reflections)
        ok = ok && writeRaw(prefix + ".reflections", points.reflections, n * sizeof(int32_t));
    if (points.normals)
        ok = ok && writeRaw(prefix + ".normals", points.normals, n * 3 * sizeof(float));
    std::printf("{\"points\": %lld, \"status\": %d, \"failedChunk\": %lld, \"chunks\": [",
                static_cast<long long>(points.numPoints), static_cast<int>(decoded),
                static_cast<long long>(failed));
    for (int64_t k = 0; k < numChunks; ++k) {
        zul_idx_Chunk c = {};
        zul_idx_getChunk(index, k, &c);
        std::printf(
            "%s\n {\"offset\": %lld, \"size\": %lld, \"numPoints\": %d, \"min\": [%.17g, %.17g, "
            "%.17g], \"max\": [%.17g, %.17g, %.17g]}",
            k ? "," : "", static_cast<long long>(c.offset), static_cast<long long>(c.size),
            c.numPoints, c.min[0], c.min[1], c.min[2], c.max[0], c.max[1], c.max[2]);
    }
    std::printf("]}\n");
    zul_bulk_free(&points);
    zul_idx_close(&index);
    return ok ? 0 : 1;
}

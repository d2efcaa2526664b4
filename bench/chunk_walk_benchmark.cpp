// How fast the tool walks a file of many small chunks: writes a file of N one-point chunks
// (default one million) with the bulk writer, then runs `zul verify`, `zul info`, `zul decompress
// --salvage` and `zul decompress` on it in turns, and prints each one's best wall time and its
// ratio to decompress's. Usage: chunk_walk_benchmark [N] [FOLDER] (default /tmp).
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "zul_bulk.h"

namespace {

double runSeconds(const std::string& command) {
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system((command + " > /dev/null 2>&1").c_str());
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "failed: %s\n", command.c_str());
        std::exit(1);
    }
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    const int64_t n = argc > 1 ? std::atoll(argv[1]) : 1000000;
    const std::string folder = argc > 2 ? argv[2] : "/tmp";
    const std::string file = folder + "/one_point_chunks.zul";
    std::vector<double> positions(static_cast<size_t>(3 * n));
    for (int64_t i = 0; i < n; ++i) {
        positions[static_cast<size_t>(3 * i)] = 0.01 * static_cast<double>(i % 1000);
        positions[static_cast<size_t>(3 * i + 1)] = 0.01 * static_cast<double>(i / 1000);
    }
    zul_DataType type;
    zul_init_headers(&type, nullptr);
    type.quantizationStep = 0.01f;
    zul_bulk_Points points = {n, positions.data(), nullptr, nullptr, nullptr};
    if (zul_bulk_encodeFile(file.c_str(), &type, nullptr, &points, nullptr, 0, 1, 0, nullptr) !=
        zul_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be written\n", file.c_str());
        return 1;
    }
    const std::string tool = ZUL_TOOL_PATH;
    const std::string out = folder + "/one_point_chunks.xyz";
    const std::vector<std::pair<const char*, std::string>> commands = {
        {"decompress", tool + " decompress -q -f " + file + " " + out},
        {"verify", tool + " verify " + file},
        {"info", tool + " info " + file},
        {"decompress --salvage", tool + " decompress -q -f --salvage " + file + " " + out},
    };
    std::vector<double> best(commands.size(), 1e9);
    for (int round = 0; round < 3; ++round) {
        for (size_t k = 0; k < commands.size(); ++k)
            best[k] = std::min(best[k], runSeconds(commands[k].second));
    }
    std::printf("%lld one-point chunks, best of 3 alternating runs\n", static_cast<long long>(n));
    for (size_t k = 0; k < commands.size(); ++k) {
        std::printf("  %-22s %7.2f s  %5.2fx decompress\n", commands[k].first, best[k],
                    best[k] / best[0]);
    }
    std::remove(file.c_str());
    std::remove(out.c_str());
    return 0;
}

// The bulk calls, in printed figures: bulk decode and encode on 1 and 2 threads over a
// 10,000,000-point file (the synthetic scan, ordered into spatially compact chunks as the tool
// orders them, driven past ten times, each pass 50 m further along x) and over the shared clouds;
// a box of 1% of the 10M cloud's ground area against a full decode; the point-by-point reader
// against the bulk decoder. Runs of the variants alternate, and each figure is the median of
// `rounds` runs (argument 1, default 5; "10M" as argument 2 measures the 10M cloud alone). Speeds
// are M points/s, ratios come from one run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "bench_clouds.h"
#include "zul.h"
#include "zul_bulk.h"

namespace {

using Clock = std::chrono::steady_clock;

const int kPasses = 10;
const double kPassShift = 50.0;

std::string tempFile(const std::string& tag) {
    return (std::filesystem::temp_directory_path() / ("zul_bulk_benchmark_" + tag + ".zul"))
        .string();
}

void require(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "bulk_benchmark: %s failed\n", what);
    std::exit(1);
}

double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Wall time of a run; adds the process's CPU time (all threads) to `cpu`.
double seconds(const std::function<void()>& run, double& cpu) {
    const double cpuStart = cpuSeconds();
    const Clock::time_point start = Clock::now();
    run();
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    cpu += cpuSeconds() - cpuStart;
    return wall;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Runs each variant once untimed (pages touched, files cached), then the variants in turn,
// `rounds` times, and gives the median wall time of each; `cpu`, if given, gets each variant's
// mean CPU time, which a busy machine inflates less than wall time.
std::vector<double> alternate(int rounds, const std::vector<std::function<void()>>& variants,
                              std::vector<double>* cpu = nullptr) {
    for (const std::function<void()>& variant : variants) variant();
    std::vector<std::vector<double>> times(variants.size());
    std::vector<double> cpuTotal(variants.size(), 0.0);
    for (int r = 0; r < rounds; ++r)
        for (size_t v = 0; v < variants.size(); ++v)
            times[v].push_back(seconds(variants[v], cpuTotal[v]));
    std::vector<double> medians;
    for (const std::vector<double>& t : times) medians.push_back(median(t));
    if (cpu) {
        cpu->clear();
        for (double total : cpuTotal) cpu->push_back(total / rounds);
    }
    return medians;
}

zul_bulk_Points view(const BenchCloud& cloud) {
    return {cloud.size(), const_cast<double*>(cloud.positions.data()),
            cloud.colors.empty() ? nullptr : const_cast<uint8_t*>(cloud.colors.data()),
            cloud.reflections.empty() ? nullptr : const_cast<int32_t*>(cloud.reflections.data()),
            cloud.normals.empty() ? nullptr : const_cast<float*>(cloud.normals.data())};
}

struct Index {
    zul_idx_Index index = nullptr;
    explicit Index(const std::string& path) {
        require(zul_idx_openFile(&index, path.c_str(), nullptr) == zul_STATUS_OK,
                "zul_idx_openFile");
    }
    ~Index() { zul_idx_close(&index); }
};

struct Arrays {
    zul_bulk_Points points{};
    Arrays(zul_idx_Index index, int64_t n) {
        require(zul_bulk_allocate(index, n, &points) == zul_STATUS_OK, "zul_bulk_allocate");
    }
    ~Arrays() { zul_bulk_free(&points); }
};

void encode(const std::string& path, const BenchCloud& cloud, int threads) {
    const zul_bulk_Points points = view(cloud);
    require(zul_bulk_encodeFile(path.c_str(), &cloud.dataType, nullptr, &points, nullptr, 0,
                                kBenchChunk, threads, nullptr) == zul_STATUS_OK,
            "zul_bulk_encodeFile");
}

void decode(zul_idx_Index index, zul_bulk_Points& arrays, int threads) {
    zul_bulk_Points points = arrays;
    int64_t failed = -1;
    const zul_Status status = zul_bulk_decode(index, threads, &points, &failed);
    if (status != zul_STATUS_OK)
        std::fprintf(stderr, "status %d at chunk %lld, %d threads\n", status,
                     static_cast<long long>(failed), threads);
    require(status == zul_STATUS_OK, "zul_bulk_decode");
}

int64_t readPointByPoint(const std::string& path) {
    zul_in_Context reader = nullptr;
    zul_DataType type;
    require(zul_in_open(&reader, &type, path.c_str()) == zul_STATUS_OK, "zul_in_open");
    zul_Point p;
    int64_t n = 0;
    double sum = 0;
    zul_Status status;
    while ((status = zul_in_readNextPoint(reader, &p)) == zul_STATUS_OK) {
        sum += p.position[2];
        ++n;
    }
    zul_in_close(&reader);
    require(status == zul_STATUS_END_OF_FILE && sum == sum, "zul_in_readNextPoint");
    return n;
}

double mps(int64_t points, double time) { return static_cast<double>(points) / time / 1e6; }

// Encode and decode on 1 and 2 threads, and the per-point reader, over one cloud.
void measureCloud(const std::string& name, const BenchCloud& cloud, int rounds) {
    const std::string path = tempFile("cloud");
    const int64_t n = cloud.size();
    std::vector<double> encCpu, decCpu;
    const std::vector<double> enc = alternate(
        rounds, {[&] { encode(path, cloud, 1); }, [&] { encode(path, cloud, 2); }}, &encCpu);
    Index index(path);
    Arrays arrays(index.index, n);
    const std::vector<double> dec =
        alternate(rounds,
                  {[&] { decode(index.index, arrays.points, 1); },
                   [&] { decode(index.index, arrays.points, 2); },
                   [&] { require(readPointByPoint(path) == n, "the reader's count"); }},
                  &decCpu);
    std::printf("%-36s %10lld %8.1f %8.1f %6.2fx %5.2f %8.1f %8.1f %6.2fx %5.2f %8.1f %6.2f\n",
                name.c_str(), static_cast<long long>(n), mps(n, enc[0]), mps(n, enc[1]),
                enc[0] / enc[1], encCpu[1] / encCpu[0], mps(n, dec[0]), mps(n, dec[1]),
                dec[0] / dec[1], decCpu[1] / decCpu[0], mps(n, dec[2]), dec[2] / dec[0]);
    std::remove(path.c_str());
}

BenchCloud tenPasses(const BenchCloud& scan) {
    BenchCloud big = scan;
    big.name = "10M points";
    for (int pass = 1; pass < kPasses; ++pass) {
        for (int i = 0; i < scan.size(); ++i) {
            const size_t k = 3 * static_cast<size_t>(i);
            big.positions.insert(big.positions.end(),
                                 {scan.positions[k] + pass * kPassShift, scan.positions[k + 1],
                                  scan.positions[k + 2]});
        }
        big.colors.insert(big.colors.end(), scan.colors.begin(), scan.colors.end());
        big.reflections.insert(big.reflections.end(), scan.reflections.begin(),
                               scan.reflections.end());
        big.normals.insert(big.normals.end(), scan.normals.begin(), scan.normals.end());
    }
    return big;
}

// A box of 1% of the cloud's ground area (a tenth of each side), at the middle, all heights;
// selected, decoded on one thread and cut to the box, against a full decode on one thread.
void measureBox(const std::string& path, int rounds) {
    Index index(path);
    int64_t chunks = 0, total = 0;
    zul_idx_getCounts(index.index, &chunks, &total);
    double low[3] = {1e300, 1e300, 1e300}, high[3] = {-1e300, -1e300, -1e300};
    for (int64_t k = 0; k < chunks; ++k) {
        zul_idx_Chunk c;
        zul_idx_getChunk(index.index, k, &c);
        for (int a = 0; a < 3; ++a)
            low[a] = std::min(low[a], c.min[a]), high[a] = std::max(high[a], c.max[a]);
    }
    double min[3], max[3];
    for (int a = 0; a < 2; ++a) {
        const double middle = (low[a] + high[a]) / 2, half = (high[a] - low[a]) / 20;
        min[a] = middle - half;
        max[a] = middle + half;
    }
    min[2] = low[2];
    max[2] = high[2];
    Arrays all(index.index, total);
    int64_t selectedChunks = 0, selectedPoints = 0, inside = 0;
    const auto query = [&] {
        int64_t found = 0;
        zul_idx_selectBox(index.index, min, max, nullptr, 0, &found);
        std::vector<int64_t> list(static_cast<size_t>(found));
        zul_idx_selectBox(index.index, min, max, list.data(), found, &found);
        zul_idx_countPoints(index.index, list.data(), found, &selectedPoints);
        Arrays part(index.index, selectedPoints);
        require(zul_bulk_decodeChunks(index.index, list.data(), found, 1, &part.points, nullptr) ==
                    zul_STATUS_OK,
                "zul_bulk_decodeChunks");
        inside = 0;
        for (int64_t i = 0; i < part.points.numPoints; ++i) {
            const double* p = part.points.positions + 3 * i;
            inside += p[0] >= min[0] && p[0] <= max[0] && p[1] >= min[1] && p[1] <= max[1];
        }
        selectedChunks = found;
    };
    const std::vector<double> t =
        alternate(rounds, {query, [&] { decode(index.index, all.points, 1); }});
    std::printf(
        "box of 1%% of the ground: %lld of %lld chunks, %lld points decoded, %lld inside "
        "(%.2f%% of %lld)\n  query %.1f ms, full decode %.1f ms: %.1fx faster\n",
        static_cast<long long>(selectedChunks), static_cast<long long>(chunks),
        static_cast<long long>(selectedPoints), static_cast<long long>(inside),
        100.0 * static_cast<double>(inside) / static_cast<double>(total),
        static_cast<long long>(total), 1e3 * t[0], 1e3 * t[1], t[1] / t[0]);
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const std::vector<BenchCloud>& clouds = benchClouds();
    std::printf(
        "medians of %d alternating runs; M points/s; ratio: 1-thread over 2-thread wall time; "
        "cpu: 2-thread over 1-thread CPU time (1.00: threads add no work); r/bulk: the "
        "reader's time over the 1-thread bulk decode's\n",
        rounds);
    std::printf("%-36s %10s %8s %8s %7s %5s %8s %8s %7s %5s %8s %6s\n", "cloud", "points", "enc 1t",
                "enc 2t", "ratio", "cpu", "dec 1t", "dec 2t", "ratio", "cpu", "reader", "r/bulk");
    // "10M" as the second argument leaves the shared clouds out.
    if (argc <= 2 || std::string(argv[2]) != "10M") {
        for (const BenchCloud& cloud : clouds) measureCloud(cloud.name, kdOrdered(cloud), rounds);
    }
    const BenchCloud big = tenPasses(kdOrdered(clouds.back()));
    measureCloud(big.name, big, rounds);
    const std::string path = tempFile("box");
    encode(path, big, 0);
    measureBox(path, rounds);
    std::remove(path.c_str());
}

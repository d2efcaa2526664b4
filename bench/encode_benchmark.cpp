// In-memory encoding of a 1,000,000-point lidar-like cloud in chunks of 10,000, for three sets of
// attributes. Reports points per second and the bytes a point takes in the stream.
#include <benchmark/benchmark.h>

#include "scan_streams.h"
#include "zul.h"

namespace {

void encodeScan(benchmark::State& state, bool colorAndReflection, bool normals) {
    SyntheticScan& cloud = benchScan();
    const zul_DataType dataType = benchDataType(colorAndReflection, normals);
    zul_enc_Context encoder = nullptr;
    if (zul_enc_open(&encoder, &dataType) != zul_STATUS_OK) {
        state.SkipWithError("zul_enc_open failed");
        return;
    }
    int64_t bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        for (int first = 0; first < cloud.size(); first += kScanChunk) {
            const zul_PointData chunk = cloud.slice(first, kScanChunk);
            const char* out = nullptr;
            int size = 0;
            if (zul_enc_encodeChunk(encoder, &out, &size, &chunk) != zul_STATUS_OK) {
                state.SkipWithError("zul_enc_encodeChunk failed");
                break;
            }
            benchmark::DoNotOptimize(out);
            bytes += size;
        }
    }
    zul_enc_close(&encoder);
    state.SetItemsProcessed(state.iterations() * cloud.size());
    state.counters["bytes_per_point"] = static_cast<double>(bytes) / cloud.size();
}

BENCHMARK_CAPTURE(encodeScan, positions, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encodeScan, positions_rgb888_reflection, true, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encodeScan, all_attributes, true, true)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// In-memory encoding (zul_enc_encodeChunk over whole chunks of 10,000 points) of every bench
// cloud with all its attributes. Reports points per second, MB/s of raw point data and the bits a
// point of each stream.
#include <benchmark/benchmark.h>

#include "bench_clouds.h"
#include "encoded_cloud.h"
#include "zul.h"

namespace {

void encodeCloudChunks(benchmark::State& state, const BenchCloud* cloud) {
    zul_enc_Context encoder = nullptr;
    if (zul_enc_open(&encoder, &cloud->dataType) != zul_STATUS_OK) {
        state.SkipWithError("zul_enc_open failed");
        return;
    }
    for (auto _ : state) {
        if (!encodeChunks(encoder, *cloud, nullptr)) {
            state.SkipWithError("zul_enc_encodeChunk failed");
            break;
        }
    }
    zul_enc_close(&encoder);
    EncodedCloud encoded;
    if (encodeCloud(*cloud, encoded)) reportSizes(state, *cloud, encoded);
    state.SetItemsProcessed(state.iterations() * cloud->size());
    state.SetBytesProcessed(state.iterations() * cloud->size() * cloud->rawBytesPerPoint());
}

}  // namespace

int main(int argc, char** argv) {
    for (const BenchCloud& cloud : benchClouds()) {
        benchmark::RegisterBenchmark(("encode/" + cloud.name).c_str(), encodeCloudChunks, &cloud)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

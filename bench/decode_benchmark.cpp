// In-memory decoding (zul_dec_decodeChunkHeader and zul_dec_decodeChunkBody over every chunk) of
// every bench cloud, encoded once before timing in chunks of the default size. Reports points per
// second, MB/s of raw point data and the bits a point of each stream.
#include <benchmark/benchmark.h>

#include "bench_clouds.h"
#include "encoded_cloud.h"
#include "zul.h"

namespace {

void decodeCloudChunks(benchmark::State& state, const BenchCloud* cloud) {
    EncodedCloud encoded;
    const bool encodedOk = encodeCloud(*cloud, encoded);
    CloudDecoder decoder(encoded);
    if (!encodedOk || !decoder.opened()) {
        state.SkipWithError("encoding or opening the decoder failed");
        return;
    }
    int64_t points = 0;
    for (auto _ : state) {
        const int64_t decoded = decoder.decodeAll();
        if (decoded < 0) {
            state.SkipWithError("decoding failed");
            break;
        }
        points += decoded;
    }
    reportSizes(state, *cloud, encoded);
    state.SetItemsProcessed(points);
    state.SetBytesProcessed(points * cloud->rawBytesPerPoint());
}

}  // namespace

int main(int argc, char** argv) {
    for (const BenchCloud& cloud : benchClouds()) {
        benchmark::RegisterBenchmark(("decode/" + cloud.name).c_str(), decodeCloudChunks, &cloud)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

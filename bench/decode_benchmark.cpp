// In-memory decoding of the encode benchmark's cloud: the same 1,000,000 points in chunks of
// 10,000 and the same three sets of attributes, encoded once before timing. Each iteration walks
// every chunk header and decodes every body. Reports points per second.
#include <benchmark/benchmark.h>

#include "scan_streams.h"
#include "zul.h"

namespace {

void decodeScan(benchmark::State& state, bool colorAndReflection, bool normals) {
    const zul_DataType dataType = benchDataType(colorAndReflection, normals);
    const EncodedScan encoded = encodeScanInChunks(benchScan(), dataType);
    if (encoded.chunks.empty()) {
        state.SkipWithError("encoding failed");
        return;
    }
    zul_dec_Context decoder = nullptr;
    int size = 0;
    zul_DataType decodedType;
    const char* marker = nullptr;
    if (zul_dec_open(&decoder, &size, encoded.head.data()) != zul_STATUS_OK ||
        zul_dec_decodeFileHeader(decoder, &decodedType, &size, &marker, encoded.head.data() + 8) !=
            zul_STATUS_OK) {
        state.SkipWithError("opening the decoder failed");
        zul_dec_close(&decoder);
        return;
    }
    const size_t bodyOffset = 16 + static_cast<size_t>(size);
    int64_t points = 0;
    for (auto _ : state) {
        for (const std::string& chunk : encoded.chunks) {
            int bodySize = 0;
            zul_PointData decoded;
            if (zul_dec_decodeChunkHeader(decoder, &bodySize, chunk.data() + 16) != zul_STATUS_OK ||
                zul_dec_decodeChunkBody(decoder, &decoded, chunk.data() + bodyOffset) !=
                    zul_STATUS_OK) {
                state.SkipWithError("decoding failed");
                break;
            }
            benchmark::DoNotOptimize(decoded.positions);
            points += decoded.numPoints;
        }
    }
    zul_dec_close(&decoder);
    state.SetItemsProcessed(points);
    state.counters["bytes_per_point"] =
        static_cast<double>(encoded.bytes()) / static_cast<double>(benchScan().size());
}

BENCHMARK_CAPTURE(decodeScan, positions, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decodeScan, positions_rgb888_reflection, true, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decodeScan, all_attributes, true, true)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

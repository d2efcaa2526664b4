// One codec run over a bench cloud for the side-by-side comparison: the bytes it stores and its
// best encode and decode times.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bench_clouds.h"

struct CodecRun {
    std::string codec;
    uint64_t bytes = 0;
    double encodeSeconds = 0, decodeSeconds = 0;
    std::string error;  // empty when the run succeeded
};

// Best time of one call of `work`: repeated at least five times and for at least `minSeconds`: on a
// shared machine the best run is the one least disturbed.
double bestSeconds(const std::function<void()>& work, double minSeconds = 1.0);

// The ceiling: a copy of the cloud's raw arrays, one way for encode and back for decode.
CodecRun runMemcpy(const BenchCloud& cloud);
// zul in memory: zul_enc_encodeChunk over chunks of kBenchChunk points, then
// zul_dec_decodeChunkHeader and zul_dec_decodeChunkBody over every chunk.
CodecRun runZul(const BenchCloud& cloud, const char* name = "zul");
// zul through a file point by point: zul_out_writePoint over chunks of kBenchChunk points, then
// zul_in_readNextPoint to the end (a file in the temporary folder, in the page cache).
CodecRun runZulFile(const BenchCloud& cloud, const char* name = "zul, file point by point");
// Draco's C++ library at its default speed, positions quantised to the same step.
CodecRun runDraco(const BenchCloud& cloud);

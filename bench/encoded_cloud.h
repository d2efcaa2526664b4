// A bench cloud encoded through the public API, one chunk of kBenchChunk points after another,
// and what each of its streams costs.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench_clouds.h"

struct EncodedCloud {
    std::string head;  // signature and file header
    std::vector<std::string> chunks;
    // Bytes of the coordinate, colour, reflection and normal streams over all chunks, each
    // stream's header included, as the chunk headers give them.
    uint64_t streamBytes[4] = {0, 0, 0, 0};
    uint64_t bytes() const;
};

// False on any refusal of the encoder.
bool encodeCloud(const BenchCloud& cloud, EncodedCloud& encoded);

// Encodes every chunk of the cloud with an open encoder, keeping the chunks in `keep` unless it
// is null. False on any refusal.
bool encodeChunks(zul_enc_Context encoder, const BenchCloud& cloud, EncodedCloud* keep);

// A decoder opened on an encoded cloud's head, which decodes all its chunks on each call.
class CloudDecoder {
public:
    explicit CloudDecoder(const EncodedCloud& encoded);
    ~CloudDecoder() { zul_dec_close(&decoder_); }
    CloudDecoder(const CloudDecoder&) = delete;
    CloudDecoder& operator=(const CloudDecoder&) = delete;

    bool opened() const { return decoder_ != nullptr; }
    // The points of every chunk, or -1 on any refusal.
    int64_t decodeAll();

private:
    const EncodedCloud& encoded_;
    zul_dec_Context decoder_ = nullptr;
    size_t bodyOffset_ = 0;
};

// Adds the streams' sizes of the chunk just encoded (its bytes as the encoder gave them).
void countStreams(const zul_DataType& type, const char* chunk, uint64_t (&streamBytes)[4]);

// Counters for a benchmark over the cloud: bits a point of each stream present and of the whole
// stream. Points per second and MB/s of raw point data come from SetItemsProcessed and
// SetBytesProcessed.
void reportSizes(benchmark::State& state, const BenchCloud& cloud, const EncodedCloud& encoded);

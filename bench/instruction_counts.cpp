// One encode and one decode of each bench cloud (or those whose name holds the argument), in the
// input order and in the default plan's k-d chunks, for counting instructions on a shared machine
// where times are noise:
//   valgrind --tool=callgrind --toggle-collect='*encodePass*' instruction_counts street
//   valgrind --tool=callgrind --toggle-collect='*decodePass*' instruction_counts street
// Each pass is a function of its own so that the counts take nothing else (loading, encoding for
// the decoder). Prints the bytes of each encoding and a digest of its chunks, so that a change of
// the coder's output shows at once.
#include <cstdio>
#include <string>

#include "bench_clouds.h"
#include "encoded_cloud.h"

namespace {

// FNV-1a over every chunk after its sync marker (random for each encoder), in order.
uint64_t digestOf(const EncodedCloud& encoded) {
    uint64_t hash = 1469598103934665603ULL;
    for (const std::string& chunk : encoded.chunks)
        for (size_t i = 16; i < chunk.size(); ++i)
            hash = (hash ^ static_cast<unsigned char>(chunk[i])) * 1099511628211ULL;
    return hash;
}

__attribute__((noinline)) bool encodePass(const BenchCloud& cloud, EncodedCloud& encoded) {
    return encodeCloud(cloud, encoded);
}

__attribute__((noinline)) int64_t decodePass(CloudDecoder& decoder) { return decoder.decodeAll(); }

bool countCloud(const BenchCloud& cloud, const char* order) {
    EncodedCloud encoded;
    if (!encodePass(cloud, encoded)) {
        std::printf("%s (%s): the encoder refused the cloud\n", cloud.name.c_str(), order);
        return false;
    }
    CloudDecoder decoder(encoded);
    const int64_t decoded = decoder.opened() ? decodePass(decoder) : -1;
    std::printf("%s (%s): %d points, %llu bytes, digest %016llx, %s\n", cloud.name.c_str(), order,
                cloud.size(), static_cast<unsigned long long>(encoded.bytes()),
                static_cast<unsigned long long>(digestOf(encoded)),
                decoded == cloud.size() ? "decoded" : "DECODING FAILED");
    return decoded == cloud.size();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    bool ok = true;
    for (const BenchCloud& cloud : benchClouds()) {
        if (cloud.name.find(only) == std::string::npos) continue;
        ok = countCloud(cloud, "input order") && ok;
        ok = countCloud(kdOrdered(cloud), "kd chunks") && ok;
    }
    return ok ? 0 : 1;
}

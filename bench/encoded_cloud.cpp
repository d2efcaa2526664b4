#include "encoded_cloud.h"

#include <algorithm>

namespace {

uint32_t loadLE32(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
}

}  // namespace

uint64_t EncodedCloud::bytes() const {
    uint64_t total = head.size();
    for (const std::string& chunk : chunks) total += chunk.size();
    return total;
}

void countStreams(const zul_DataType& type, const char* chunk, uint64_t (&streamBytes)[4]) {
    // After the 16-byte sync marker: the box (48 bytes) and the count (4), then one size for the
    // coordinates and one for each attribute the type has, in this order.
    const bool present[4] = {true, type.colorMode != zul_COLOR_NONE,
                             type.reflectionMode != zul_REFLECTION_NONE,
                             type.normalMode != zul_NORMAL_NONE};
    const char* size = chunk + 16 + 52;
    for (int s = 0; s < 4; ++s) {
        if (!present[s]) continue;
        streamBytes[s] += loadLE32(size);
        size += 4;
    }
}

bool encodeCloud(const BenchCloud& cloud, EncodedCloud& encoded) {
    encoded = EncodedCloud();
    zul_enc_Context encoder = nullptr;
    const char* bytes = nullptr;
    int size = 0;
    bool ok = zul_enc_open(&encoder, &cloud.dataType) == zul_STATUS_OK &&
              zul_enc_createFileSignature(encoder, &bytes) == zul_STATUS_OK;
    if (ok) encoded.head.assign(bytes, 8);
    ok = ok && zul_enc_encodeFileHeader(encoder, &bytes, &size) == zul_STATUS_OK;
    if (ok) encoded.head.append(bytes, static_cast<size_t>(size));
    ok = ok && encodeChunks(encoder, cloud, &encoded);
    zul_enc_close(&encoder);
    return ok;
}

bool encodeChunks(zul_enc_Context encoder, const BenchCloud& cloud, EncodedCloud* keep) {
    for (int first = 0; first < cloud.size(); first += kBenchChunk) {
        const zul_PointData chunk = cloud.slice(first, std::min(kBenchChunk, cloud.size() - first));
        const char* bytes = nullptr;
        int size = 0;
        if (zul_enc_encodeChunk(encoder, &bytes, &size, &chunk) != zul_STATUS_OK) return false;
        benchmark::DoNotOptimize(bytes);
        if (keep == nullptr) continue;
        keep->chunks.emplace_back(bytes, static_cast<size_t>(size));
        countStreams(cloud.dataType, bytes, keep->streamBytes);
    }
    return true;
}

CloudDecoder::CloudDecoder(const EncodedCloud& encoded) : encoded_(encoded) {
    int size = 0;
    zul_DataType type;
    const char* marker = nullptr;
    if (encoded.head.size() < 8 ||
        zul_dec_open(&decoder_, &size, encoded.head.data()) != zul_STATUS_OK ||
        zul_dec_decodeFileHeader(decoder_, &type, &size, &marker, encoded.head.data() + 8) !=
            zul_STATUS_OK) {
        zul_dec_close(&decoder_);
        return;
    }
    bodyOffset_ = 16 + static_cast<size_t>(size);
}

int64_t CloudDecoder::decodeAll() {
    int64_t points = 0;
    for (const std::string& chunk : encoded_.chunks) {
        int bodySize = 0;
        zul_PointData decoded;
        if (zul_dec_decodeChunkHeader(decoder_, &bodySize, chunk.data() + 16) != zul_STATUS_OK ||
            zul_dec_decodeChunkBody(decoder_, &decoded, chunk.data() + bodyOffset_) !=
                zul_STATUS_OK) {
            return -1;
        }
        benchmark::DoNotOptimize(decoded.positions);
        points += decoded.numPoints;
    }
    return points;
}

void reportSizes(benchmark::State& state, const BenchCloud& cloud, const EncodedCloud& encoded) {
    const char* const names[4] = {"bits_coords", "bits_color", "bits_reflection", "bits_normals"};
    const double points = cloud.size();
    for (int s = 0; s < 4; ++s) {
        if (encoded.streamBytes[s] > 0)
            state.counters[names[s]] = 8.0 * static_cast<double>(encoded.streamBytes[s]) / points;
    }
    state.counters["bits_total"] = 8.0 * static_cast<double>(encoded.bytes()) / points;
}

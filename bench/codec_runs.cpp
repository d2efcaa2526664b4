#include "codec_runs.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "encoded_cloud.h"
#include "zul.h"

double bestSeconds(const std::function<void()>& work, double minSeconds) {
    using Clock = std::chrono::steady_clock;
    double best = 1e30, total = 0;
    for (int run = 0; run < 5 || total < minSeconds; ++run) {
        const Clock::time_point start = Clock::now();
        work();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        best = std::min(best, seconds);
        total += seconds;
    }
    return best;
}

CodecRun runMemcpy(const BenchCloud& cloud) {
    CodecRun run;
    run.codec = "memcpy";
    std::vector<char> packed(static_cast<size_t>(cloud.size()) * cloud.rawBytesPerPoint());
    run.bytes = packed.size();
    auto pack = [&] {
        char* out = packed.data();
        auto put = [&out](const void* data, size_t size) {
            std::memcpy(out, data, size);
            out += size;
        };
        put(cloud.positions.data(), cloud.positions.size() * sizeof(double));
        put(cloud.colors.data(), cloud.colors.size());
        put(cloud.reflections.data(), cloud.reflections.size() * sizeof(int32_t));
        put(cloud.normals.data(), cloud.normals.size() * sizeof(float));
    };
    std::vector<double> positions(cloud.positions.size());
    std::vector<uint8_t> colors(cloud.colors.size());
    std::vector<int32_t> reflections(cloud.reflections.size());
    std::vector<float> normals(cloud.normals.size());
    auto unpack = [&] {
        const char* in = packed.data();
        auto get = [&in](void* data, size_t size) {
            std::memcpy(data, in, size);
            in += size;
        };
        get(positions.data(), positions.size() * sizeof(double));
        get(colors.data(), colors.size());
        get(reflections.data(), reflections.size() * sizeof(int32_t));
        get(normals.data(), normals.size() * sizeof(float));
    };
    pack();
    unpack();
    run.encodeSeconds = bestSeconds(pack);
    run.decodeSeconds = bestSeconds(unpack);
    return run;
}

CodecRun runZul(const BenchCloud& cloud, const char* name) {
    CodecRun run;
    run.codec = name;
    EncodedCloud encoded;
    zul_enc_Context encoder = nullptr;
    if (!encodeCloud(cloud, encoded) || zul_enc_open(&encoder, &cloud.dataType) != zul_STATUS_OK) {
        run.error = "the encoder refused the cloud";
        zul_enc_close(&encoder);
        return run;
    }
    run.bytes = encoded.bytes();
    run.encodeSeconds = bestSeconds([&] {
        if (!encodeChunks(encoder, cloud, nullptr)) run.error = "zul_enc_encodeChunk failed";
    });
    zul_enc_close(&encoder);

    CloudDecoder decoder(encoded);
    if (!decoder.opened()) {
        run.error = "the decoder refused the stream";
        return run;
    }
    run.decodeSeconds = bestSeconds([&] {
        if (decoder.decodeAll() != cloud.size()) run.error = "decoding failed or lost points";
    });
    return run;
}

#include "codec_runs.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
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

CodecRun runZulFile(const BenchCloud& cloud, const char* name) {
    CodecRun run;
    run.codec = name;
    const std::string path =
        (std::filesystem::temp_directory_path() / "zul_compare_codecs_file.zul").string();
    const std::vector<zul_Point> points = pointsOf(cloud);
    auto write = [&] {
        zul_out_Context writer = nullptr;
        bool ok = zul_out_open(&writer, path.c_str(), &cloud.dataType) == zul_STATUS_OK &&
                  zul_out_setChunkSize(writer, kBenchChunk) == zul_STATUS_OK;
        for (size_t i = 0; ok && i < points.size(); ++i)
            ok = zul_out_writePoint(writer, &points[i]) == zul_STATUS_OK;
        if (zul_out_close(&writer) != zul_STATUS_OK || !ok) run.error = "zul_out_ failed";
    };
    auto read = [&] {
        zul_in_Context reader = nullptr;
        zul_DataType type;
        zul_Point p;
        int64_t n = 0;
        zul_Status status = zul_in_open(&reader, &type, path.c_str());
        while (status == zul_STATUS_OK &&
               (status = zul_in_readNextPoint(reader, &p)) == zul_STATUS_OK)
            ++n;
        zul_in_close(&reader);
        if (status != zul_STATUS_END_OF_FILE || n != cloud.size()) run.error = "zul_in_ failed";
    };
    run.encodeSeconds = bestSeconds(write);
    run.bytes = std::filesystem::file_size(path);
    run.decodeSeconds = bestSeconds(read);
    std::remove(path.c_str());
    return run;
}

// Bytes and time of a message, per sensor shape: zul's CompressedPointCloud2 against zstd -3 and
// zlib of the message data and against Draco at the same step. Times are the best of several runs
// on one thread; on a shared, loaded machine they are indicative only.
//
//   ros_message_benchmark [step, default 0.001] [repeats, default 5]
//   ros_message_benchmark --once lidar|flat|camera [own|companion|radial|unpredicted]
//                         [repeats, default 1] [points a chunk] [tile columns]
//     encodes and decodes one message (with own columns instead of a companion, with radial
//     predictions too, without predictions; with the plan given instead of the default), once for
//     instruction counts: valgrind --tool=callgrind --toggle-collect='zul::ros::compressMessage*'
//     --toggle-collect='zul::ros::decompressMessage*' ros_message_benchmark --once lidar;
//     or `repeats` times, printing the median times passed and of the processor
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "ros/sample/sensor_messages.h"
#include "ros/zul_ros.h"
#include "ros_draco_run.h"

using namespace zul::ros;
using zul::ros::testing::Sensor;
using zul::ros::testing::SensorShape;

namespace {

template <typename F>
double bestSeconds(int repeats, F&& run) {
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        run();
        best = std::min(
            best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void row(const char* codec, size_t bytes, size_t dataBytes, double enc, double dec,
         uint64_t points) {
    std::printf(
        "  %-24s %10zu B  %6.2f%% of data  enc %7.2f ms (%6.1f Mpt/s)  dec %7.2f ms (%6.1f "
        "Mpt/s)\n",
        codec, bytes, 100.0 * double(bytes) / double(dataBytes), enc * 1e3,
        double(points) / enc / 1e6, dec * 1e3, double(points) / dec / 1e6);
}

void runShape(const SensorShape& shape, double step, int repeats) {
    const PointCloud2 message = testing::makeSensorMessage(shape, Wire::CdrLittle, false, 1);
    const std::vector<uint8_t> bytes = writePointCloud2(message);
    const uint64_t points = uint64_t(message.cloud.height) * message.cloud.width;
    const size_t dataBytes = message.data.size();
    std::printf("%s: %u x %u points, point_step %u, data %zu B, message %zu B\n",
                testing::sensorName(shape.sensor), message.cloud.height, message.cloud.width,
                message.cloud.pointStep, dataBytes, bytes.size());

    EncodeOptions options;
    options.step = step;
    std::vector<uint8_t> compressed, back;
    const double enc = bestSeconds(repeats, [&] {
        compressed = compressMessage(bytes.data(), bytes.size(), Serialization::Ros2, options);
    });
    const double dec = bestSeconds(repeats, [&] {
        back = decompressMessage(compressed.data(), compressed.size(), Serialization::Ros2);
    });
    row("zul message", compressed.size(), dataBytes, enc, dec, points);
    {
        EncodeOptions lean = options;
        lean.companion = false;
        std::vector<uint8_t> own, ownBack;
        const double leanEnc = bestSeconds(repeats, [&] {
            own = compressMessage(bytes.data(), bytes.size(), Serialization::Ros2, lean);
        });
        const double leanDec = bestSeconds(repeats, [&] {
            ownBack = decompressMessage(own.data(), own.size(), Serialization::Ros2);
        });
        row("zul, own columns", own.size(), dataBytes, leanEnc, leanDec, points);
    }
    const CompressedPointCloud2 parsed =
        readCompressedPointCloud2(compressed.data(), compressed.size(), Serialization::Ros2);
    std::string parts;
    for (const DataPart& part :
         describeCompressedData(parsed.compressedData.data(), parsed.compressedData.size()))
        if (part.codedBytes > 64) parts += " " + part.name + " " + std::to_string(part.codedBytes);
    std::printf("    parts:%s\n", parts.c_str());

    std::vector<uint8_t> packed(ZSTD_compressBound(dataBytes)), unpacked(dataBytes);
    size_t size = 0;
    double e = bestSeconds(repeats, [&] {
        size = ZSTD_compress(packed.data(), packed.size(), message.data.data(), dataBytes, 3);
    });
    double d = bestSeconds(
        repeats, [&] { ZSTD_decompress(unpacked.data(), dataBytes, packed.data(), size); });
    row("zstd -3 of data", size, dataBytes, e, d, points);

    uLongf zsize = 0;
    std::vector<uint8_t> zpacked(compressBound(uLong(dataBytes)));
    e = bestSeconds(repeats, [&] {
        zsize = zpacked.size();
        compress2(zpacked.data(), &zsize, message.data.data(), uLong(dataBytes),
                  Z_DEFAULT_COMPRESSION);
    });
    d = bestSeconds(repeats, [&] {
        uLongf out = uLongf(dataBytes);
        uncompress(unpacked.data(), &out, zpacked.data(), zsize);
    });
    row("zlib (level 6) of data", zsize, dataBytes, e, d, points);

    for (bool withFields : {false, true}) {
        const DracoFigures draco = runDraco(message, step, withFields, repeats);
        row(withFields ? "draco, all fields" : "draco, positions only", draco.bytes, dataBytes,
            draco.encodeSeconds, draco.decodeSeconds, points);
    }
}

// Chunks of consecutive points, or tiles of columns over all rows, on the organised shapes.
void chunkSweep(const SensorShape& shape, double step, int repeats) {
    const PointCloud2 message = testing::makeSensorMessage(shape, Wire::CdrLittle, false, 1);
    std::printf("%s by chunk plan (step %g):\n", testing::sensorName(shape.sensor), step);
    struct Plan {
        uint32_t chunk, tile;
    };
    for (const Plan plan : {Plan{256, 0}, Plan{512, 0}, Plan{1024, 0}, Plan{4096, 0},
                            Plan{16384, 0}, Plan{65536, 0}, Plan{0, 2}, Plan{0, 4}, Plan{0, 8},
                            Plan{0, 16}, Plan{0, 32}, Plan{0, 64}, Plan{0, 128}}) {
        if (uint64_t(plan.tile) * shape.height > 65536 || (plan.tile > 0 && shape.height == 1))
            continue;
        EncodeOptions options;
        options.step = step;
        options.chunkPoints = plan.chunk;
        options.tileColumns = plan.tile;
        CompressedPointCloud2 compressed;
        const double enc =
            bestSeconds(repeats, [&] { compressed = compressCloud(message, options); });
        options.companion = false;
        const size_t own = compressCloud(message, options).compressedData.size();
        const std::string name = plan.tile ? "tiles of " + std::to_string(plan.tile) + " columns"
                                           : std::to_string(plan.chunk) + " points a chunk";
        std::printf("  %-22s %8zu B with a companion (enc %6.2f ms), %8zu B with own columns\n",
                    name.c_str(), compressed.compressedData.size(), enc * 1e3, own);
    }
}

}  // namespace

// The processor time this thread has used, in seconds: on a shared machine less disturbed by
// other work than the time that passes.
double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Encodes and decodes one message `repeats` times, printing the sizes and, for more than one
// run, the median times (passed and of the processor).
int once(const SensorShape& shape, const std::string& mode, int repeats, uint32_t chunkPoints,
         uint32_t tileColumns) {
    const PointCloud2 message = testing::makeSensorMessage(shape, Wire::CdrLittle, false, 1);
    const std::vector<uint8_t> bytes = writePointCloud2(message);
    EncodeOptions options;
    options.companion = mode != "own";
    options.radialPrediction = mode == "radial";
    options.predict = mode != "unpredicted";
    options.chunkPoints = chunkPoints;
    options.tileColumns = tileColumns;
    std::vector<uint8_t> compressed, back;
    std::vector<double> enc, dec, encCpu, decCpu;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        const double startCpu = threadSeconds();
        compressed = compressMessage(bytes.data(), bytes.size(), Serialization::Ros2, options);
        const auto middle = std::chrono::steady_clock::now();
        const double middleCpu = threadSeconds();
        back = decompressMessage(compressed.data(), compressed.size(), Serialization::Ros2);
        const auto end = std::chrono::steady_clock::now();
        enc.push_back(std::chrono::duration<double>(middle - start).count());
        dec.push_back(std::chrono::duration<double>(end - middle).count());
        encCpu.push_back(middleCpu - startCpu);
        decCpu.push_back(threadSeconds() - middleCpu);
    }
    std::printf("%s: %zu B compressed, %zu B restored", testing::sensorName(shape.sensor),
                compressed.size(), back.size());
    if (repeats > 1)
        std::printf(", median of %d: enc %.2f ms, dec %.2f ms; processor enc %.2f ms, dec %.2f ms",
                    repeats, median(enc) * 1e3, median(dec) * 1e3, median(encCpu) * 1e3,
                    median(decCpu) * 1e3);
    std::printf("\n");
    return back.size() == bytes.size() ? 0 : 1;
}

int main(int argc, char** argv) {
    const SensorShape shapes[3] = {{Sensor::OrganisedLidar, 64, 1024},
                                   {Sensor::FlatLidar, 1, 57344},
                                   {Sensor::RgbCamera, 480, 640}};
    if (argc > 2 && std::string(argv[1]) == "--once") {
        const std::string name = argv[2];
        const std::string mode = argc > 3 ? argv[3] : "companion";
        const int repeats = argc > 4 ? std::max(1, std::atoi(argv[4])) : 1;
        const uint32_t chunkPoints = argc > 5 ? uint32_t(std::atol(argv[5])) : 0;
        const uint32_t tileColumns = argc > 6 ? uint32_t(std::atol(argv[6])) : 0;
        for (int s = 0; s < 3; ++s)
            if (name == (s == 0 ? "lidar" : s == 1 ? "flat" : "camera"))
                return once(shapes[s], mode, repeats, chunkPoints, tileColumns);
        std::fprintf(stderr, "--once takes lidar, flat or camera\n");
        return 2;
    }
    const double step = argc > 1 ? std::atof(argv[1]) : 0.001;
    const int repeats = argc > 2 ? std::atoi(argv[2]) : 5;
    std::printf(
        "step %g, best of %d runs, one thread; a shared machine: indicative figures only\n\n", step,
        repeats);
    for (const SensorShape& shape : shapes) runShape(shape, step, repeats);
    std::printf("\n");
    chunkSweep(shapes[0], step, repeats);
    chunkSweep(shapes[1], step, repeats);
    chunkSweep(shapes[2], step, repeats);
    return 0;
}

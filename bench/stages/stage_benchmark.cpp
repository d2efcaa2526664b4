// Each stage of encoding and decoding timed on its own, so that speed work can be judged stage by
// stage: quantise, sort, statistics (delta bit lengths counted), optimise (prefix tables chosen)
// and write (the streams entropy coded); read (chunk header and streams entropy decoded) and
// dequantise. The cloud is the seeded street scan, 1,000,000 points with all four attributes in
// the sensor's order, in chunks of the default size. Each stage runs as the encoder or decoder runs
// it, chunk after chunk. Times are the thread's CPU time (the machine is shared). `encode/stages`
// and `decode/stages` take the stages' summed time, and report each stage's speed in M points/s
// as a counter of its name; `encode/whole` and `decode/whole` time the encoder's and decoder's
// own calls on the same chunks, so the sum can be held against the whole. Before timing, the
// staged encode is checked to give the encoder's bytes and the staged decode the decoder's
// points. Quote medians of several runs:
//   stage_benchmark --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "base/limits.h"
#include "encoder/coordinate_sort.h"
#include "entropy/attribute_widths.h"
#include "entropy/data_stream_writer.h"
#include "entropy/prefix_optimizer.h"
#include "frame/chunk_axes.h"
#include "frame/data_type.h"
#include "stage_access.h"
#include "synthetic/street_scan.h"

namespace {

using stages::Frequencies;
using stages::Records;
using zullib::zul_QuantizedPoint;

const int kPoints = 1000000;
const int kChunk = zulbase::kDefaultChunkSize;

// The encoder's largest prefix tables, stream by stream (RGB565 keeps 5 on every channel); the
// check of the staged encode against the encoder's bytes catches any drift from its values.
const int kCoordinatePrefixLimit = 7;
const int kReflectionPrefixLimit = 6;
const int kNormalPrefixLimit = 6;
int rgbPrefixLimit(const zul_DataType& type) { return type.colorMode == zul_COLOR_RGB565 ? 5 : 6; }

enum EncodeStage { kQuantize, kSort, kStatistics, kOptimize, kWrite, kEncodeStages };
enum DecodeStage { kRead, kDequantize, kDecodeStages };
const char* const kEncodeNames[] = {"quantise", "sort", "statistics", "optimise", "write"};
const char* const kDecodeNames[] = {"read", "dequantise"};

double threadSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The thread's CPU seconds since the last lap (or the start).
struct Stopwatch {
    double mark = threadSeconds();
    double lap() {
        const double now = threadSeconds();
        const double seconds = now - mark;
        mark = now;
        return seconds;
    }
};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "stage_benchmark: %s\n", what);
    std::exit(1);
}

struct Scan {
    zul_DataType dataType;
    zul_Header2 header;
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;

    zul_PointData chunk(int first) {
        const size_t i = static_cast<size_t>(first);
        zul_PointData data;
        data.numPoints = std::min(kChunk, kPoints - first);
        data.positions = positions.data() + 3 * i;
        data.colors = colors.data() + 3 * i;
        data.reflections = reflections.data() + i;
        data.normals = normals.data() + 3 * i;
        return data;
    }
};

Scan& scan() {
    static Scan* const made = [] {
        Scan* s = new Scan;
        zul_init_headers(&s->dataType, &s->header);
        s->dataType.quantizationStep = 0.001f;
        s->dataType.colorMode = zul_COLOR_RGB888;
        s->dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        s->dataType.maxReflection = 255;
        s->dataType.normalMode = zul_NORMAL_SPHERICAL;
        zulsynth::traceStreetScan(kPoints, zulsynth::kStreetSeed, [&](const zul_Point& p) {
            s->positions.insert(s->positions.end(), p.position, p.position + 3);
            s->colors.insert(s->colors.end(), p.color, p.color + 3);
            s->reflections.push_back(p.reflection);
            s->normals.insert(s->normals.end(), p.normal, p.normal + 3);
        });
        return s;
    }();
    return *made;
}

template <int N>
void chooseTables(std::vector<int> (&tables)[N], const Frequencies (&frequencies)[N],
                  const int (&absoluteBits)[N], int prefixLimit) {
    for (int c = 0; c < N; ++c)
        zullib::PrefixOptimizer::findBestBitLengthsForPrefixes(tables[c], frequencies[c],
                                                               absoluteBits[c], prefixLimit);
}

template <class Accessor, int N>
void writeStream(zullib::BitStreamOut& out, const Records& points, const int (&absoluteBits)[N],
                 const std::vector<int> (&tables)[N]) {
    zullib::writeStreamTables(out, tables, N);
    zullib::writeStreamBody<Accessor>(out, points, absoluteBits, tables);
}

// One chunk through the encoder's stages in its order, each stage's seconds added to `seconds`;
// hands out the body's end in the encoder's chunk buffer (the body starts at `bodyOffset`).
int64_t encodeInStages(zul_enc_ContextStruct& encoder, const zul_PointData& data,
                       double (&seconds)[kEncodeStages]) {
    const zul_DataType& type = encoder.dataType;
    const zullib::AttributeWidths widths(type);
    Stopwatch watch;

    Records points;
    zullib::BoundingBox3d<long long> box;
    int axisRemap[3], coordinateBits[3];
    if ((encoder.*memberOf(stages::Quantize{}))(points, axisRemap, coordinateBits, box, &data) !=
        zul_STATUS_OK)
        fail("quantising a chunk failed");
    seconds[kQuantize] += watch.lap();

    zullib::sortByCoordinates(points, encoder.chunkBuffer);
    seconds[kSort] += watch.lap();

    Frequencies coordinateFrequencies[3] = {}, rgbFrequencies[3] = {},
                reflectionFrequencies[1] = {}, normalFrequencies[2] = {};
    (encoder.*memberOf(stages::CountFrequencies{}))(points, coordinateFrequencies, rgbFrequencies,
                                                    reflectionFrequencies, normalFrequencies);
    seconds[kStatistics] += watch.lap();

    std::vector<int> coordinateTables[3], rgbTables[3], reflectionTables[1], normalTables[2];
    chooseTables(coordinateTables, coordinateFrequencies, coordinateBits, kCoordinatePrefixLimit);
    chooseTables(rgbTables, rgbFrequencies, widths.rgbBits, rgbPrefixLimit(type));
    chooseTables(reflectionTables, reflectionFrequencies, widths.reflectionBits,
                 kReflectionPrefixLimit);
    chooseTables(normalTables, normalFrequencies, widths.normalBits, kNormalPrefixLimit);
    seconds[kOptimize] += watch.lap();

    const int bodyOffset =
        zullib::zul_SyncMarker::kSize + zullib::DataType::getChunkHeaderSize(type);
    zullib::BitStreamOut body(encoder.chunkBuffer, bodyOffset);
    writeStream<zul_QuantizedPoint::CoordinateAccessor>(body, points, coordinateBits,
                                                        coordinateTables);
    writeStream<zul_QuantizedPoint::RGBAccessor>(body, points, widths.rgbBits, rgbTables);
    writeStream<zul_QuantizedPoint::ReflectionAccessor>(body, points, widths.reflectionBits,
                                                        reflectionTables);
    writeStream<zul_QuantizedPoint::NormalAccessor>(body, points, widths.normalBits, normalTables);
    seconds[kWrite] += watch.lap();
    return body.bytePosition;
}

// The scan encoded whole, chunk by chunk, as the encoder hands the pieces out.
struct Encoded {
    std::vector<char> signature, fileHeader;
    std::vector<std::vector<char>> chunks;
};

const Encoded& encoded() {
    static const Encoded* const made = [] {
        Encoded* e = new Encoded;
        Scan& s = scan();
        zul_enc_ContextStruct encoder(s.dataType, s.header);
        const char* signature = encoder.getFileSignature();
        e->signature.assign(signature, signature + 8);
        const char* bytes = nullptr;
        int size = 0;
        encoder.encodeFileHeader(&bytes, &size);
        e->fileHeader.assign(bytes, bytes + size);
        const int bodyOffset =
            zullib::zul_SyncMarker::kSize + zullib::DataType::getChunkHeaderSize(s.dataType);
        for (int first = 0; first < kPoints; first += kChunk) {
            const zul_PointData data = s.chunk(first);
            if (encoder.encodeChunk(&bytes, &size, &data) != zul_STATUS_OK) fail("encoding failed");
            e->chunks.emplace_back(bytes, bytes + size);
            // The staged encode must write the very body the encoder wrote.
            double ignored[kEncodeStages] = {};
            const int64_t end = encodeInStages(encoder, data, ignored);
            const std::vector<char>& chunk = e->chunks.back();
            if (end != size || std::memcmp(encoder.chunkBuffer.data() + bodyOffset,
                                           chunk.data() + bodyOffset, size - bodyOffset) != 0)
                fail("the staged encode differs from the encoder's bytes");
        }
        return e;
    }();
    return *made;
}

struct Decoder {
    zul_dec_ContextStruct context;
    int chunkHeaderSize = 0;

    Decoder() {
        const Encoded& e = encoded();
        int fileHeaderSize = 0;
        zul_DataType type;
        const char* syncMarker = nullptr;
        if (context.open(&fileHeaderSize, e.signature.data(), nullptr) != zul_STATUS_OK ||
            context.decodeFileHeader(&type, nullptr, &chunkHeaderSize, &syncMarker,
                                     e.fileHeader.data()) != zul_STATUS_OK)
            fail("opening the decoder failed");
    }
    long long header(const std::vector<char>& chunk) {
        int bodySize = 0;
        long long numPoints = 0;
        if (context.decodeChunkHeader(&bodySize, chunk.data() + zullib::zul_SyncMarker::kSize,
                                      &numPoints) != zul_STATUS_OK)
            fail("a chunk header was refused");
        return numPoints;
    }
    const char* body(const std::vector<char>& chunk) const {
        return chunk.data() + zullib::zul_SyncMarker::kSize + chunkHeaderSize;
    }
};

// Output arrays of one chunk, owned here.
struct Output {
    std::vector<double> positions = std::vector<double>(3 * kChunk);
    std::vector<uint8_t> colors = std::vector<uint8_t>(3 * kChunk);
    std::vector<int32_t> reflections = std::vector<int32_t>(kChunk);
    std::vector<float> normals = std::vector<float>(3 * kChunk);

    zul_PointData data(int numPoints) {
        return {numPoints, positions.data(), colors.data(), reflections.data(), normals.data()};
    }
};

// One chunk through the decoder's stages, each stage's seconds added to `seconds`.
void decodeInStages(Decoder& decoder, const std::vector<char>& chunk, Output& output,
                    double (&seconds)[kDecodeStages]) {
    Stopwatch watch;
    const long long numPoints = decoder.header(chunk);
    zul_dec_ContextStruct& context = decoder.context;
    const zullib::ChunkAxes axes = zullib::chunkAxes(context.chunkBoundingBox);
    Records records(static_cast<size_t>(numPoints));
    const unsigned char* body = reinterpret_cast<const unsigned char*>(decoder.body(chunk));
    if ((context.*memberOf(stages::ReadStreams{}))(body, records, axes.coordinateBits) !=
        zul_STATUS_OK)
        fail("reading a chunk failed");
    seconds[kRead] += watch.lap();

    int axisToSlot[3];
    for (int slot = 0; slot < 3; ++slot) axisToSlot[axes.axisRemap[slot]] = slot;
    zul_PointData points = output.data(static_cast<int>(numPoints));
    zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(points, records, context.dataType,
                                                         axisToSlot, context.chunkBoundingBox);
    seconds[kDequantize] += watch.lap();
}

// The staged decode must give the decoder's points.
void checkDecode() {
    Decoder staged, whole;
    Output output;
    for (const std::vector<char>& chunk : encoded().chunks) {
        double ignored[kDecodeStages] = {};
        decodeInStages(staged, chunk, output, ignored);
        whole.header(chunk);
        zul_PointData points;
        if (whole.context.decodeChunkBody(&points, whole.body(chunk)) != zul_STATUS_OK)
            fail("decoding a chunk failed");
        const size_t n = static_cast<size_t>(points.numPoints);
        if (std::memcmp(points.positions, output.positions.data(), 3 * n * sizeof(double)) ||
            std::memcmp(points.colors, output.colors.data(), 3 * n) ||
            std::memcmp(points.reflections, output.reflections.data(), n * sizeof(int32_t)) ||
            std::memcmp(points.normals, output.normals.data(), 3 * n * sizeof(float)))
            fail("the staged decode differs from the decoder's points");
    }
}

// Every stage's speed as a counter, in M points/s of the thread's CPU time.
template <int N>
void reportStages(benchmark::State& state, const double (&seconds)[N],
                  const char* const (&names)[N]) {
    const double points = static_cast<double>(state.iterations()) * kPoints;
    for (int stage = 0; stage < N; ++stage)
        state.counters[names[stage]] = points / seconds[stage] / 1e6;
    state.SetItemsProcessed(state.iterations() * kPoints);
}

void encodeStages(benchmark::State& state) {
    Scan& s = scan();
    zul_enc_ContextStruct encoder(s.dataType, s.header);
    double seconds[kEncodeStages] = {};
    for (auto _ : state) {
        double run[kEncodeStages] = {};
        for (int first = 0; first < kPoints; first += kChunk)
            encodeInStages(encoder, s.chunk(first), run);
        double total = 0;
        for (int stage = 0; stage < kEncodeStages; ++stage) {
            seconds[stage] += run[stage];
            total += run[stage];
        }
        state.SetIterationTime(total);
    }
    reportStages(state, seconds, kEncodeNames);
}

void encodeWhole(benchmark::State& state) {
    Scan& s = scan();
    zul_enc_ContextStruct encoder(s.dataType, s.header);
    for (auto _ : state) {
        Stopwatch watch;
        for (int first = 0; first < kPoints; first += kChunk) {
            const zul_PointData data = s.chunk(first);
            const char* bytes = nullptr;
            int size = 0;
            if (encoder.encodeChunk(&bytes, &size, &data) != zul_STATUS_OK) fail("encoding failed");
            benchmark::DoNotOptimize(bytes);
        }
        state.SetIterationTime(watch.lap());
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

void decodeStages(benchmark::State& state) {
    Decoder decoder;
    Output output;
    double seconds[kDecodeStages] = {};
    for (auto _ : state) {
        double run[kDecodeStages] = {};
        for (const std::vector<char>& chunk : encoded().chunks)
            decodeInStages(decoder, chunk, output, run);
        seconds[kRead] += run[kRead];
        seconds[kDequantize] += run[kDequantize];
        state.SetIterationTime(run[kRead] + run[kDequantize]);
    }
    reportStages(state, seconds, kDecodeNames);
}

void decodeWhole(benchmark::State& state) {
    Decoder decoder;
    for (auto _ : state) {
        Stopwatch watch;
        for (const std::vector<char>& chunk : encoded().chunks) {
            decoder.header(chunk);
            zul_PointData points;
            if (decoder.context.decodeChunkBody(&points, decoder.body(chunk)) != zul_STATUS_OK)
                fail("decoding a chunk failed");
            benchmark::DoNotOptimize(points.positions);
        }
        state.SetIterationTime(watch.lap());
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

}  // namespace

int main(int argc, char** argv) {
    encoded();
    checkDecode();
    for (auto [name, run] : {std::pair{"encode/stages", encodeStages},
                             {"encode/whole", encodeWhole},
                             {"decode/stages", decodeStages},
                             {"decode/whole", decodeWhole}})
        benchmark::RegisterBenchmark(name, run)->UseManualTime()->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

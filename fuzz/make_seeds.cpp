// Writes the seed corpora of the fuzz targets into a folder:
//   streams/      valid streams of every attribute combination in both versions, with some
//                 special shapes (no chunk, one point, identical points, a chunk a point)
//   round_trip/   inputs of the write-and-read target for the same combinations, in chunks of 16
//                 and of 7 points, the latter with non-finite positions, exact ties and a normal
//                 too short among them
//   companions/   companions of some of the streams: every column type, with and without the
//                 input's order, metadata; one of no field and no chunk; a one-blob frame
// Everything is computed here from a fixed seed; nothing comes from elsewhere.
//
//   make_seeds <folder>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zul_companion.h"

namespace fs = std::filesystem;
using namespace zulfuzz;

namespace {

// The input of the write-and-read target. A stream seed is what its points make.
struct Seed {
    Settings settings = Settings();  // value-initialised: the padding is zero too
    std::vector<PointRecord> points;

    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> out(sizeof settings + points.size() * sizeof(PointRecord));
        std::memcpy(out.data(), &settings, sizeof settings);
        if (!points.empty())
            std::memcpy(out.data() + sizeof settings, points.data(), out.size() - sizeof settings);
        return out;
    }
};

// Combination `c` of the 24: c % 12 / 4 the colour mode, bit 1 reflection, bit 0 normals; from 12
// on, with a sensor header enabled: a scale of 2, a quarter turn about z and a translation.
Seed seedOf(int c, int chunkSize) {
    Seed seed;
    Settings& s = seed.settings;
    s.step = 0.001f;
    s.maxReflection = c & 2 ? 1000 : 0;
    s.attributes =
        static_cast<uint8_t>(c % 12 / 4 | (c & 2 ? kHasReflection : 0) | (c & 1 ? kHasNormals : 0) |
                             kPassHeader | (c >= 12 ? kHeaderEnabled : 0));
    s.mount = zul_SENSOR_MOUNT_11, s.type = zul_SENSOR_TYPE_3;
    s.flags = kScaling | kRotation | kTranslation;
    s.matrix[1] = 2.0, s.matrix[4] = -2.0, s.matrix[10] = 2.0, s.matrix[15] = 1.0;
    s.matrix[12] = 10.0, s.matrix[13] = -20.0, s.matrix[14] = 0.5;
    s.chunkSizeMinus1 = static_cast<uint16_t>(chunkSize - 1);
    return seed;
}

std::string nameOf(int c) {
    return std::string("v") + (c >= 12 ? "2" : "1") + "_c" + std::to_string(c % 12 / 4) + "_r" +
           std::to_string(c >> 1 & 1) + "_n" + std::to_string(c & 1);
}

// A small scanned surface: a slanted plane with a bump, colour and reflection from position.
std::vector<PointRecord> surfacePoints(std::mt19937& random, int count) {
    std::vector<PointRecord> points(static_cast<size_t>(count));
    const auto uniform = [&random] { return random() / 4294967296.0; };
    for (PointRecord& p : points) {
        const double x = uniform() * 2.0, y = uniform();
        p.position[0] = 100.0 + x;
        p.position[1] = -50.0 + y;
        p.position[2] = 3.0 + 0.2 * x + 0.1 * std::sin(6.0 * y);
        p.color[0] = static_cast<uint8_t>(x * 120);
        p.color[1] = static_cast<uint8_t>(y * 250);
        p.color[2] = static_cast<uint8_t>(random());
        p.reflection = static_cast<int32_t>(random() % 1200) - 50;
        p.normal[0] = static_cast<float>(uniform() - 0.5);
        p.normal[1] = static_cast<float>(uniform() - 0.5);
        p.normal[2] = 1.0f;
    }
    return points;
}

void save(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

// Writes the seed's points as a stream, with the library's file writer.
void writeStream(const fs::path& path, const Seed& seed) {
    const std::vector<uint8_t> bytes = seed.bytes();
    RoundTripCase c;
    parseRoundTripCase(bytes.data(), bytes.size(), c);
    zul_out_Context out = nullptr;
    bool ok = zul_out_open2(&out, path.c_str(), &c.dataType, &c.header) == zul_STATUS_OK &&
              zul_out_setChunkSize(out, c.chunkSize) == zul_STATUS_OK;
    for (const zul_Point& p : c.points) ok = ok && zul_out_writePoint(out, &p) == zul_STATUS_OK;
    if (zul_out_close(&out) != zul_STATUS_OK || !ok)
        throw std::runtime_error("cannot write " + path.string());
}

// A companion of the stream file `stream`: `numFields` columns of the types in turn (values from
// `random`, some rising, some constant), the order when asked (and then, of more than three
// fields, rows), and metadata.
std::vector<uint8_t> companionOf(const fs::path& stream, int numFields, bool withOrder,
                                 std::mt19937& random) {
    zul_xout_Writer writer = nullptr;
    bool ok = zul_xout_open(&writer, nullptr) == zul_STATUS_OK;
    for (int f = 0; f < numFields; ++f) {
        const auto type = static_cast<zul_FieldType>(zul_FIELD_U8 + f % 11);
        ok = ok && zul_xout_addField(writer, ("field" + std::to_string(f)).c_str(), type, 1 + f % 5,
                                     nullptr) == zul_STATUS_OK;
    }
    if (withOrder) ok = ok && zul_xout_keepOrder(writer) == zul_STATUS_OK;
    const char source[] = "ply\nformat binary_little_endian 1.0\nend_header\n";
    ok = ok &&
         zul_xout_setSource(writer, zul_SOURCE_PLY, source, sizeof source - 1) == zul_STATUS_OK;
    ok = ok && zul_xout_setFormat(writer, "ply") == zul_STATUS_OK;
    ok = ok && zul_xout_addConvention(writer, "colour scale", "257") == zul_STATUS_OK;
    if (withOrder && numFields > 3) {  // rows the stream lacks: a companion of version 2
        const uint64_t rows[3] = {2, 3, 40};
        const uint8_t bytes[21] = {1, 2, 3, 4, 5, 6, 7, 1, 2, 3, 4, 5, 6, 7, 9, 9, 9, 9, 9, 9, 9};
        ok = ok && zul_xout_setRows(writer, rows, bytes, 3, 7) == zul_STATUS_OK;
    }
    ok = ok && zul_xout_bindStreamFile(writer, stream.c_str()) == zul_STATUS_OK;
    zul_idx_Index index = nullptr;
    ok = ok && zul_idx_openFile(&index, stream.c_str(), nullptr) == zul_STATUS_OK;
    int64_t numChunks = 0;
    if (ok) zul_idx_getCounts(index, &numChunks, nullptr);
    for (int64_t c = 0; c < numChunks && ok; ++c) {
        zul_idx_Chunk chunk;
        zul_idx_getChunk(index, c, &chunk);
        const size_t n = static_cast<size_t>(chunk.numPoints);
        for (int f = 0; f < numFields; ++f) {
            std::vector<uint8_t> values(n * 8 * 5);
            uint8_t value = static_cast<uint8_t>(random());
            for (size_t i = 0; i < values.size(); ++i)
                values[i] = f % 3 == 0   ? static_cast<uint8_t>(random())
                            : f % 3 == 1 ? value++
                                         : value;
            ok =
                zul_xout_writeColumn(writer, c, f, values.data(), chunk.numPoints) == zul_STATUS_OK;
        }
        std::vector<uint64_t> order(n);
        for (size_t i = 0; i < n; ++i) order[i] = (i * 5 + static_cast<size_t>(c)) % n;
        if (withOrder)
            ok = ok &&
                 zul_xout_writeOrder(writer, c, order.data(), chunk.numPoints) == zul_STATUS_OK;
    }
    zul_idx_close(&index);
    const void* bytes = nullptr;
    size_t size = 0;
    ok = ok && zul_xout_finish(writer, &bytes, &size) == zul_STATUS_OK;
    std::vector<uint8_t> result;
    if (ok)
        result.assign(static_cast<const uint8_t*>(bytes),
                      static_cast<const uint8_t*>(bytes) + size);
    zul_xout_close(&writer);
    if (!ok) throw std::runtime_error("cannot make a companion of " + stream.string());
    return result;
}

void writeCompanionSeeds(const fs::path& folder) {
    fs::create_directories(folder / "companions");
    std::mt19937 random(2);
    const fs::path streams = folder / "streams";
    save(folder / "companions" / "all_types_ordered.zulx",
         companionOf(streams / (nameOf(23) + ".zul"), 11, true, random));
    save(folder / "companions" / "all_types.zulx",
         companionOf(streams / (nameOf(5) + ".zul"), 11, false, random));
    save(folder / "companions" / "raw_fields.zulx",
         companionOf(streams / "identical_points.zul", 3, true, random));
    save(folder / "companions" / "one_point.zulx",
         companionOf(streams / "one_point.zul", 2, true, random));
    save(folder / "companions" / "empty.zulx",
         companionOf(streams / "no_chunk.zul", 0, false, random));
    // A blob of a stream and its companion.
    std::ifstream in(streams / "one_point.zul", std::ios::binary);
    const std::vector<uint8_t> stream{std::istreambuf_iterator<char>(in), {}};
    const std::vector<uint8_t> companion = companionOf(streams / "one_point.zul", 1, false, random);
    std::vector<uint8_t> blob(24 + stream.size() + companion.size());
    size_t size = 0;
    if (zul_xblob_pack(stream.data(), stream.size(), companion.data(), companion.size(),
                       blob.data(), blob.size(), &size) != zul_STATUS_OK)
        throw std::runtime_error("cannot pack a blob");
    save(folder / "companions" / "blob.bin", blob);
}

void writeSeeds(const fs::path& folder) {
    fs::create_directories(folder / "streams");
    fs::create_directories(folder / "round_trip");
    std::mt19937 random(1);
    for (int c = 0; c < 24; ++c) {
        Seed seed = seedOf(c, 16);
        seed.points = surfacePoints(random, 40);
        writeStream(folder / "streams" / (nameOf(c) + ".zul"), seed);
        seed.points.resize(24);
        const auto below = [&random](int n) { return static_cast<int>(random() % n); };
        for (PointRecord& p : seed.points) {  // grid points and grid normals
            p.kind = kGridPosition | kGridNormal;
            for (int16_t& v : p.halfSteps) v = static_cast<int16_t>(below(400) - 200);
            for (int8_t& n : p.gridNormal) n = static_cast<int8_t>(below(255) - 127);
        }
        save(folder / "round_trip" / (nameOf(c) + "_0.in"), seed.bytes());
        // Exact ties between grid points, raw points (a point far out and non-finite ones among
        // them), a normal too short.
        seed.settings.chunkSizeMinus1 = 6;
        for (size_t i = 0; i < seed.points.size(); ++i) {
            seed.points[i].kind = i % 2 ? 0 : kGridPosition;
            for (auto& v : seed.points[i].halfSteps) v = static_cast<int16_t>(2 * below(400) + 1);
        }
        seed.points[3].position[0] = std::nan(""), seed.points[9].position[1] = HUGE_VAL;
        seed.points[15].position[2] = -1e300;
        for (float& n : seed.points[20].normal) n = 1e-7f;
        save(folder / "round_trip" / (nameOf(c) + "_1.in"), seed.bytes());
    }
    Seed seed = seedOf(23, 1);  // every attribute, a sensor header
    writeStream(folder / "streams" / "no_chunk.zul", seed);
    seed.points = surfacePoints(random, 1);
    writeStream(folder / "streams" / "one_point.zul", seed);
    seed.settings.attributes &= ~kHeaderEnabled;
    seed.points = surfacePoints(random, 5);
    writeStream(folder / "streams" / "a_chunk_a_point.zul", seed);
    seed.settings.chunkSizeMinus1 = 19;
    seed.points.assign(20, surfacePoints(random, 1)[0]);
    writeStream(folder / "streams" / "identical_points.zul", seed);
    // Decompression bombs: those identical points claiming the largest count a decoder serves,
    // a count just over the chunk budget of any data type (64 bytes a point at least), and
    // counts about the density limit.
    std::ifstream in(folder / "streams" / "identical_points.zul", std::ios::binary);
    std::vector<uint8_t> bomb((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    const size_t count = ZUL_SIGNATURE_SIZE + ZUL_FILE_HEADER_SIZE_V1 + ZUL_SYNC_MARKER_SIZE + 48;
    const auto claim = [&](uint32_t points, const char* name) {
        for (int i = 0; i < 4; ++i) bomb.at(count + i) = static_cast<uint8_t>(points >> (8 * i));
        save(folder / "streams" / name, bomb);
    };
    claim(ZUL_MAX_DECODED_CHUNK_POINTS, "bomb.zul");
    claim(static_cast<uint32_t>(ZUL_BULK_DEFAULT_CHUNK_BUDGET / 64 + 1), "over_budget.zul");
    // Within the budget but past the density limit, and at the limit's allowance.
    claim(4000000, "over_density.zul");
    claim(static_cast<uint32_t>(ZUL_BULK_DENSITY_ALLOWANCE), "dense.zul");
    writeCompanionSeeds(folder);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_seeds <folder>\n");
        return 2;
    }
    // Sync markers from a fixed seed: the same corpus every time.
    zul_test_useFixedRandomSeed(true, 7);
    try {
        writeSeeds(argv[1]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "make_seeds: %s\n", e.what());
        return 1;
    }
    return 0;
}

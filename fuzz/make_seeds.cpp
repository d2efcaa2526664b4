// Writes the seed corpora of the fuzz targets into a folder:
//   streams/      valid streams of every attribute combination in both versions, with some
//                 special shapes (no chunk, one point, identical points, a chunk a point)
//   round_trip/   inputs of the write-and-read target in its layout, for the same combinations,
//                 with non-finite positions, exact ties and a normal too short among them
// Everything is computed here from a fixed seed; nothing comes from elsewhere.
//
//   make_seeds <folder>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "round_trip_case.h"
#include "zul.h"

namespace fs = std::filesystem;
using zulfuzz::RoundTripBytes;

namespace {

struct Random {
    uint64_t state;
    uint32_t next() {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 33);
    }
    double uniform() { return next() / 2147483648.0; }
};

struct Combination {
    zul_ColorMode color;
    bool reflection;
    bool normals;
    bool sensor;
    std::string name() const {
        return std::string("v") + (sensor ? "2" : "1") + "_c" + std::to_string(color) + "_r" +
               (reflection ? "1" : "0") + "_n" + (normals ? "1" : "0");
    }
};

std::vector<Combination> allCombinations() {
    std::vector<Combination> all;
    for (bool sensor : {false, true})
        for (zul_ColorMode color : {zul_COLOR_NONE, zul_COLOR_RGB565, zul_COLOR_RGB888})
            for (bool reflection : {false, true})
                for (bool normals : {false, true})
                    all.push_back({color, reflection, normals, sensor});
    return all;
}

zul_DataType dataTypeOf(const Combination& c) {
    zul_DataType type;
    zul_init_headers(&type, nullptr);
    type.quantizationStep = 0.001f;
    type.colorMode = c.color;
    type.reflectionMode = c.reflection ? zul_REFLECTION_CLAMPED : zul_REFLECTION_NONE;
    type.maxReflection = c.reflection ? 1000 : 0;
    type.normalMode = c.normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    return type;
}

// A scale of 2, a quarter turn about z and a translation: every transform runs.
zul_Header2 sensorHeader(bool enabled) {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.enabled = enabled;
    header.sensorMount = zul_SENSOR_MOUNT_11;
    header.sensorType = zul_SENSOR_TYPE_3;
    header.hasScaling = header.hasRotation = header.hasTranslation = true;
    double* m = header.transformation;
    m[0] = 0.0, m[1] = 2.0, m[4] = -2.0, m[5] = 0.0, m[10] = 2.0;
    m[12] = 10.0, m[13] = -20.0, m[14] = 0.5;
    return header;
}

// A small scanned surface: a slanted plane with a bump, colour and reflection from position.
std::vector<zul_Point> surfacePoints(Random& random, int count) {
    std::vector<zul_Point> points(static_cast<size_t>(count));
    for (zul_Point& p : points) {
        const double x = random.uniform() * 2.0, y = random.uniform();
        p.position[0] = 100.0 + x;
        p.position[1] = -50.0 + y;
        p.position[2] = 3.0 + 0.2 * x + 0.1 * std::sin(6.0 * y);
        p.color[0] = static_cast<uint8_t>(x * 120);
        p.color[1] = static_cast<uint8_t>(y * 250);
        p.color[2] = static_cast<uint8_t>(random.next());
        p.reflection = static_cast<int32_t>(random.next() % 1200) - 50;
        const double nx = random.uniform() - 0.5, ny = random.uniform() - 0.5;
        p.normal[0] = static_cast<float>(nx), p.normal[1] = static_cast<float>(ny),
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

// Encodes the points in memory, `chunkPoints` a chunk, into one stream.
std::vector<uint8_t> encodeStream(const zul_DataType& type, const zul_Header2* header,
                                  const std::vector<zul_Point>& points, size_t chunkPoints) {
    zul_enc_Context encoder = nullptr;
    if (zul_enc_open2(&encoder, &type, header) != zul_STATUS_OK) throw std::runtime_error("open");
    std::vector<uint8_t> stream;
    const char* bytes = nullptr;
    int size = 0;
    zul_enc_createFileSignature(encoder, &bytes);
    stream.insert(stream.end(), bytes, bytes + 8);
    zul_enc_encodeFileHeader(encoder, &bytes, &size);
    stream.insert(stream.end(), bytes, bytes + size);
    for (size_t begin = 0; begin < points.size(); begin += chunkPoints) {
        const size_t n = std::min(chunkPoints, points.size() - begin);
        std::vector<double> positions;
        std::vector<uint8_t> colors;
        std::vector<int32_t> reflections;
        std::vector<float> normals;
        for (size_t i = begin; i < begin + n; ++i) {
            const zul_Point& p = points[i];
            positions.insert(positions.end(), p.position, p.position + 3);
            colors.insert(colors.end(), p.color, p.color + 3);
            reflections.push_back(p.reflection);
            normals.insert(normals.end(), p.normal, p.normal + 3);
        }
        zul_PointData data{static_cast<int32_t>(n), positions.data(), colors.data(),
                           reflections.data(), normals.data()};
        if (zul_enc_encodeChunk(encoder, &bytes, &size, &data) != zul_STATUS_OK)
            throw std::runtime_error("encode");
        stream.insert(stream.end(), bytes, bytes + size);
    }
    zul_enc_close(&encoder);
    return stream;
}

void writeStreams(const fs::path& folder) {
    fs::create_directories(folder);
    Random random{1};
    for (const Combination& c : allCombinations()) {
        const zul_Header2 header = sensorHeader(c.sensor);
        const zul_DataType type = dataTypeOf(c);
        save(folder / (c.name() + ".zul"),
             encodeStream(type, &header, surfacePoints(random, 40), 16));
    }
    Combination all{zul_COLOR_RGB888, true, true, true};
    const zul_DataType type = dataTypeOf(all);
    const zul_Header2 header = sensorHeader(true);
    save(folder / "no_chunk.zul", encodeStream(type, &header, {}, 1));
    save(folder / "one_point.zul", encodeStream(type, &header, surfacePoints(random, 1), 1));
    save(folder / "a_chunk_a_point.zul", encodeStream(type, nullptr, surfacePoints(random, 5), 1));
    std::vector<zul_Point> same(20, surfacePoints(random, 1)[0]);
    save(folder / "identical_points.zul", encodeStream(type, nullptr, same, 20));
}

// One input of the write-and-read target for a combination.
std::vector<uint8_t> roundTripInput(const Combination& c, Random& random, int variant) {
    const zul_DataType type = dataTypeOf(c);
    RoundTripBytes out;
    uint8_t attributes = static_cast<uint8_t>(c.color);
    if (c.reflection) attributes |= zulfuzz::kHasReflection;
    if (c.normals) attributes |= zulfuzz::kHasNormals;
    if (c.sensor) attributes |= zulfuzz::kPassHeader | zulfuzz::kHeaderEnabled;
    out.put(attributes).put(type.quantizationStep).put(type.maxReflection);
    out.put(static_cast<uint16_t>(variant == 0 ? 15 : 6));  // chunks of 16 or 7 points
    if (c.sensor) {
        out.put(int32_t{11}).put(int32_t{3});
        out.put(
            static_cast<uint8_t>(zulfuzz::kScaling | zulfuzz::kRotation | zulfuzz::kTranslation));
        out.put(1.5).put(0.7).put(10.0).put(-20.0).put(0.5);  // scale, angle, translation
    }
    const double specials[] = {std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity(), -1e300, 0.0005, -0.0005};
    for (int i = 0; i < 24; ++i) {
        const bool raw = variant == 1 && i % 3 == 0;
        out.put(static_cast<uint8_t>(raw ? zulfuzz::kRawPosition | zulfuzz::kRawNormal : 0));
        for (int a = 0; a < 3; ++a) {
            if (raw) {
                out.put(a == 0 ? specials[(i / 3) % 5] : 12.5 + random.uniform());
            } else {
                out.put(static_cast<int16_t>(static_cast<int>(random.next() % 400) - 200));
            }
        }
        if (c.color != zul_COLOR_NONE) {
            for (int k = 0; k < 3; ++k) out.put(static_cast<uint8_t>(random.next()));
        }
        if (c.reflection) out.put(static_cast<int32_t>(random.next() % 1400) - 200);
        if (c.normals) {
            for (int k = 0; k < 3; ++k) {
                if (raw) {
                    out.put(static_cast<float>(random.uniform() - 0.5));
                } else {
                    out.put(static_cast<int8_t>(static_cast<int>(random.next() % 255) - 127));
                }
            }
        }
    }
    return out.bytes;
}

void writeRoundTrips(const fs::path& folder) {
    fs::create_directories(folder);
    Random random{2};
    for (const Combination& c : allCombinations()) {
        for (int variant = 0; variant < 2; ++variant) {
            save(folder / (c.name() + "_" + std::to_string(variant) + ".in"),
                 roundTripInput(c, random, variant));
        }
    }
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
        writeStreams(fs::path(argv[1]) / "streams");
        writeRoundTrips(fs::path(argv[1]) / "round_trip");
    } catch (const std::exception& e) {
        std::fprintf(stderr, "make_seeds: %s\n", e.what());
        return 1;
    }
    return 0;
}

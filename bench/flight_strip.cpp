// make_flight_strip: writes a seeded, airborne-like LAS file for measuring `zul compress` on large
// inputs: a line scanner flying along +y at 1000 m over hilly ground with buildings and trees,
// its mirror sweeping back and forth across x, points in the order it records them. Every point
// has a 16-bit intensity and a colour from a synthetic orthophoto.
//   make_flight_strip OUTPUT.las [POINTS (default 20000000)]
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <string>

#include "formats/cloud.h"

namespace {

// Smooth value noise on a lattice of `cell` metres, in 0 .. 1.
double valueNoise(double x, double y, double cell, uint32_t seed) {
    const double u = x / cell, v = y / cell;
    const double fu = std::floor(u), fv = std::floor(v);
    const auto corner = [seed](int64_t i, int64_t j) {
        uint64_t h = static_cast<uint64_t>(i) * 0x9E3779B97F4A7C15ull ^
                     static_cast<uint64_t>(j) * 0xC2B2AE3D27D4EB4Full ^ seed;
        h ^= h >> 29;
        h *= 0xBF58476D1CE4E5B9ull;
        h ^= h >> 32;
        return static_cast<double>(h & 0xFFFF) / 65535.0;
    };
    const auto i = static_cast<int64_t>(fu), j = static_cast<int64_t>(fv);
    const double s = u - fu, t = v - fv;
    const double a = corner(i, j), b = corner(i + 1, j), c = corner(i, j + 1),
                 d = corner(i + 1, j + 1);
    const double ss = s * s * (3 - 2 * s), tt = t * t * (3 - 2 * t);
    return (a * (1 - ss) + b * ss) * (1 - tt) + (c * (1 - ss) + d * ss) * tt;
}

struct Surface {
    double height;
    int material;  // 0 field, 1 road, 2 roof, 3 tree
};

Surface surfaceAt(double x, double y) {
    Surface s;
    s.height = 200 + 40 * valueNoise(x, y, 900, 1) + 6 * valueNoise(x, y, 120, 2);
    s.material = 0;
    // Roads every 400 m along y, 8 m wide.
    if (std::fmod(y + 10000, 400) < 8) s.material = 1;
    // Buildings: a 60 m lattice, each cell holding a house where the noise says so.
    const double bx = std::fmod(x + 10000, 60), by = std::fmod(y + 10000, 60);
    const double cellNoise = valueNoise(std::floor(x / 60) * 60, std::floor(y / 60) * 60, 60, 3);
    if (s.material == 0 && cellNoise > 0.6 && bx > 15 && bx < 40 && by > 12 && by < 35) {
        s.height += 6 + 8 * cellNoise;
        s.material = 2;
    } else if (s.material == 0 && valueNoise(x, y, 25, 4) > 0.7) {
        s.height += 12 * valueNoise(x, y, 4, 5) + 5;
        s.material = 3;
    }
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    // Help, or any option, is no file name: nothing is written.
    if (argc < 2 || argc > 3 || argv[1][0] == '-' || argv[1][0] == '\0') {
        const bool help =
            argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h");
        std::fprintf(help ? stdout : stderr,
                     "usage: make_flight_strip OUTPUT.las [POINTS]\n"
                     "writes a synthetic airborne strip of POINTS points (default 20000000)\n");
        return help ? 0 : 2;
    }
    const int64_t total = argc > 2 ? std::atoll(argv[2]) : 20000000;
    try {
        using namespace zulformats;
        WriteOptions options;
        options.color = true;
        options.intensity = true;
        options.gridStep = 0.01;
        options.pointCount = total;
        auto writer = openCloudWriter(argv[1], Format::Las, options);
        std::mt19937 random(7);
        std::normal_distribution<double> jitter(0, 1);
        const int perLine = 1200;  // mirror sweep: 1200 points across a 600 m swath
        const double swath = 600, lineStep = 0.5;
        int64_t written = 0;
        for (int64_t line = 0; written < total; ++line) {
            const double y0 = line * lineStep;
            for (int k = 0; k < perLine && written < total; ++k) {
                // Back and forth: every other line is swept the other way, slanted by the flight.
                const int a = line % 2 == 0 ? k : perLine - 1 - k;
                const double x = -swath / 2 + swath * (a + 0.5) / perLine + 0.05 * jitter(random);
                const double y = y0 + lineStep * k / perLine + 0.05 * jitter(random);
                const Surface s = surfaceAt(x, y);
                zul_Point p = {};
                p.position[0] = x;
                p.position[1] = y;
                p.position[2] = s.height + (s.material == 3 ? 1.5 * std::fabs(jitter(random))
                                                            : 0.03 * jitter(random));
                static const int kBase[4][4] = {{110, 140, 70, 9000},
                                                {90, 90, 95, 14000},
                                                {150, 80, 70, 20000},
                                                {50, 90, 45, 5000}};
                const int* base = kBase[s.material];
                const double shade = 0.8 + 0.4 * valueNoise(x, y, 7, 6);
                for (int c = 0; c < 3; ++c) {
                    const double v = base[c] * shade + 6 * jitter(random);
                    p.color[c] = static_cast<uint8_t>(std::fmin(255, std::fmax(0, v)));
                }
                const double angle = std::fabs(x) / 1000;  // off-nadir falloff
                p.reflection = static_cast<int32_t>(std::fmin(
                    65535, std::fmax(0, base[3] * (1 - angle) * shade + 600 * jitter(random))));
                writer->write(p);
                ++written;
            }
        }
        writer->finish();
        std::printf("%s: %lld points\n", argv[1], static_cast<long long>(written));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_flight_strip: %s\n", error.what());
        return 1;
    }
    return 0;
}

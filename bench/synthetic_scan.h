// A seeded, lidar-like cloud for benchmarks: a spinning 64-beam sensor 1.8 m above flat ground in a
// street of walls, points in the order the sensor gives them, with colour, reflection and normals.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

struct SyntheticScan {
    std::vector<double> positions;  // x, y, z in metres
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;  // 0 .. 255
    std::vector<float> normals;

    int size() const { return static_cast<int>(reflections.size()); }
    // The points [first, first + count) as a zul_PointData over these arrays.
    zul_PointData slice(int first, int count);
};

SyntheticScan makeSyntheticScan(int numPoints, uint32_t seed = 1);

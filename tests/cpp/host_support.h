// Points, files and statuses for the tests of the C++ classes, which see zul.hpp and libzul.so
// only.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/host_files.h"
#include "zul.hpp"

// Points spread over a box of 40 m by 4 m with every attribute; reflections run past 255, so
// that a maximum of 255 clamps some.
inline std::vector<zul_Point> samplePoints(int count, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-20.0, 20.0);
    std::uniform_int_distribution<int> byte(0, 255), reflection(0, 300);
    std::normal_distribution<float> direction(0.0f, 1.0f);
    std::vector<zul_Point> points(static_cast<size_t>(count));
    for (zul_Point& p : points) {
        p = zul_Point{};
        p.position[0] = coordinate(random);
        p.position[1] = coordinate(random);
        p.position[2] = coordinate(random) * 0.1;
        for (uint8_t& c : p.color) c = static_cast<uint8_t>(byte(random));
        p.reflection = reflection(random);
        float length = 0;
        for (float& n : p.normal) {
            n = direction(random);
            length += n * n;
        }
        for (float& n : p.normal) n /= std::sqrt(length);
    }
    return points;
}

// The status of the zul::Error that `call` throws, or zul_STATUS_OK if it throws none.
template <typename Call>
zul_Status statusOf(Call call) {
    try {
        call();
    } catch (const zul::Error& e) {
        return e.status();
    }
    return zul_STATUS_OK;
}

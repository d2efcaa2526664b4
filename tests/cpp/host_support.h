// Points, files and statuses for the tests of the C++ classes, which see zul.hpp and libzul.so
// only.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

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

inline std::vector<uint8_t> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// Bit for bit, field by field (the record has padding).
inline ::testing::AssertionResult samePoint(const zul_Point& a, const zul_Point& b) {
    if (std::memcmp(a.position, b.position, sizeof a.position) == 0 &&
        std::memcmp(a.color, b.color, sizeof a.color) == 0 && a.reflection == b.reflection &&
        std::memcmp(a.normal, b.normal, sizeof a.normal) == 0) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "(" << a.position[0] << ", " << a.position[1] << ", " << a.position[2] << ") vs ("
           << b.position[0] << ", " << b.position[1] << ", " << b.position[2] << ")";
}

inline void expectSamePoints(const std::vector<zul_Point>& a, const std::vector<zul_Point>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_TRUE(samePoint(a[i], b[i])) << "point " << i;
}

// Every zul_Point read with the C reader from `path`, in file order.
inline std::vector<zul_Point> readWithC(const std::string& path, int applyTransformation = 1) {
    zul_in_Context in = nullptr;
    zul_DataType dataType;
    const zul_dec_Params params = {applyTransformation, {0, 0, 0, 0}};
    std::vector<zul_Point> points;
    zul_Status status = zul_in_open2(&in, &dataType, nullptr, path.c_str(), &params);
    zul_Point p{};
    while (status == zul_STATUS_OK && (status = zul_in_readNextPoint(in, &p)) == zul_STATUS_OK) {
        points.push_back(p);
    }
    zul_in_close(&in);
    EXPECT_EQ(status, zul_STATUS_END_OF_FILE) << path;
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

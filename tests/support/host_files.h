// Files and points as any host of the library sees them (the public headers only): whole files read
// and written, data types, a seeded cloud, every point the file reader gives, points compared bit
// for bit, and the status a call of the C++ classes throws.
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

#include "zul.h"
#include "zul/error.hpp"

// A data type of the step and attributes; a maximum reflection of 0 stores none.
inline zul_DataType makeDataType(float step, zul_ColorMode color, int maxReflection, bool normals) {
    zul_DataType dataType;
    zul_init_headers(&dataType, nullptr);
    dataType.quantizationStep = step;
    dataType.colorMode = color;
    dataType.reflectionMode = maxReflection > 0 ? zul_REFLECTION_CLAMPED : zul_REFLECTION_NONE;
    dataType.maxReflection = maxReflection;
    dataType.normalMode = normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    return dataType;
}

template <typename Bytes = std::string>
Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    return Bytes(bytes.begin(), bytes.end());
}

template <typename Bytes>
void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}
inline void writeFile(const std::string& path, const char* text) {
    writeFile(path, std::string(text));
}

// Every point the file reader gives, in file order, and the status it ends with.
inline std::vector<zul_Point> readWithReader(const std::string& path, zul_Status* end,
                                             int applyTransformation = 1) {
    zul_in_Context reader = nullptr;
    zul_DataType type;
    const zul_dec_Params params = {applyTransformation, {0, 0, 0, 0}};
    std::vector<zul_Point> points;
    *end = zul_in_open2(&reader, &type, nullptr, path.c_str(), &params);
    zul_Point p{};
    while (*end == zul_STATUS_OK && (*end = zul_in_readNextPoint(reader, &p)) == zul_STATUS_OK)
        points.push_back(p);
    zul_in_close(&reader);
    return points;
}

// Writes the points through the file writer in chunks of `chunkSize`; fails the test on any
// refusal.
inline void writePoints(const std::string& path, const zul_DataType& type,
                        const zul_Header2* header, int chunkSize,
                        const std::vector<zul_Point>& points) {
    zul_out_Context writer = nullptr;
    ASSERT_EQ(zul_out_open2(&writer, path.c_str(), &type, header), zul_STATUS_OK);
    ASSERT_EQ(zul_out_setChunkSize(writer, chunkSize), zul_STATUS_OK);
    for (size_t i = 0; i < points.size(); ++i)
        ASSERT_EQ(zul_out_writePoint(writer, &points[i]), zul_STATUS_OK) << "point " << i;
    ASSERT_EQ(zul_out_close(&writer), zul_STATUS_OK);
}

// Bit for bit, field by field (the record has padding); fields of missing attributes are 0 in
// both.
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

// What the bulk tests share: clouds of every attribute combination written by the file writer,
// read back by the file reader, and the C handles owned for the length of a test.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/host_files.h"
#include "support/stream_codec.h"
#include "zul.h"
#include "zul_bulk.h"

namespace bulktest {

struct IndexHandle {
    zul_idx_Index index = nullptr;
    ~IndexHandle() { zul_idx_close(&index); }
};

// Contiguous arrays, the attributes' ones empty when the type lacks them.
struct Arrays {
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;

    int64_t size() const { return static_cast<int64_t>(positions.size() / 3); }
    void resize(const zul_DataType& type, int64_t n) {
        const size_t count = static_cast<size_t>(n);
        positions.assign(3 * count, 0.0);
        colors.assign(type.colorMode != zul_COLOR_NONE ? 3 * count : 0, 0);
        reflections.assign(type.reflectionMode != zul_REFLECTION_NONE ? count : 0, 0);
        normals.assign(type.normalMode != zul_NORMAL_NONE ? 3 * count : 0, 0.0f);
    }
    zul_bulk_Points view() {
        return {size(), positions.data(), colors.empty() ? nullptr : colors.data(),
                reflections.empty() ? nullptr : reflections.data(),
                normals.empty() ? nullptr : normals.data()};
    }
    // Point i as the reader hands it out; fields of missing attributes 0.
    zul_Point point(int64_t i) const {
        const size_t k = static_cast<size_t>(i);
        zul_Point p{};
        std::memcpy(p.position, &positions[3 * k], sizeof p.position);
        if (!colors.empty()) std::memcpy(p.color, &colors[3 * k], sizeof p.color);
        if (!reflections.empty()) p.reflection = reflections[k];
        if (!normals.empty()) std::memcpy(p.normal, &normals[3 * k], sizeof p.normal);
        return p;
    }
};

// A walk along x with noise, so that consecutive chunks have boxes of their own.
inline Arrays makeCloud(const zul_DataType& type, int64_t n, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Arrays cloud;
    cloud.resize(type, n);
    for (int64_t i = 0; i < n; ++i) {
        const size_t k = static_cast<size_t>(i);
        cloud.positions[3 * k] = 0.01 * static_cast<double>(i) + unit(random);
        cloud.positions[3 * k + 1] = 5.0 * unit(random) - 2.5;
        cloud.positions[3 * k + 2] = 2.0 * unit(random);
        for (size_t c = 0; c < 3 && !cloud.colors.empty(); ++c)
            cloud.colors[3 * k + c] = static_cast<uint8_t>(random());
        if (!cloud.reflections.empty())
            cloud.reflections[k] = static_cast<int32_t>(random() % 4001);
        if (!cloud.normals.empty()) {
            const double a = 6.283 * unit(random), z = 2.0 * unit(random) - 1.0;
            const double r = std::sqrt(1.0 - z * z);
            cloud.normals[3 * k] = static_cast<float>(r * std::cos(a));
            cloud.normals[3 * k + 1] = static_cast<float>(r * std::sin(a));
            cloud.normals[3 * k + 2] = static_cast<float>(z);
        }
    }
    return cloud;
}

// The file writer's file of the cloud, point by point.
inline void writeWithWriter(const std::string& path, const Arrays& cloud, const zul_DataType& type,
                            const zul_Header2* header, int chunkSize) {
    std::vector<zul_Point> points;
    for (int64_t i = 0; i < cloud.size(); ++i) points.push_back(cloud.point(i));
    writePoints(path, type, header, chunkSize, points);
}

// A version 2 header that rotates about z by 30 degrees, scales by 2 and moves.
inline zul_Header2 turningHeader() {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    const double c = 2.0 * std::cos(0.5235987755982988), s = 2.0 * std::sin(0.5235987755982988);
    const double m[16] = {c, s, 0, 0, -s, c, 0, 0, 0, 0, 2, 0, 100.5, -20.25, 3, 1};
    std::memcpy(header.transformation, m, sizeof m);
    header.hasScaling = header.hasRotation = header.hasTranslation = true;
    return header;
}

}  // namespace bulktest

// The planar arrays of a cloud's points (positions, colours, reflections, normals), each sized
// from the data type in one place: an attribute the type lacks has no array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulbase {

struct PointColumns {
    std::vector<double> positions;     // 3 a point
    std::vector<uint8_t> colors;       // 3 a point, if the type has colour
    std::vector<int32_t> reflections;  // 1 a point, if the type has a reflection
    std::vector<float> normals;        // 3 a point, if the type has normals

    // Room for `count` points of `type`.
    void resize(const zul_DataType& type, size_t count) {
        positions.resize(3 * count);
        colors.resize(type.colorMode != zul_COLOR_NONE ? 3 * count : 0);
        reflections.resize(type.reflectionMode != zul_REFLECTION_NONE ? count : 0);
        normals.resize(type.normalMode != zul_NORMAL_NONE ? 3 * count : 0);
    }
    // The arrays, null for an attribute the type lacks.
    double* positionData() { return positions.data(); }
    uint8_t* colorData() { return colors.empty() ? nullptr : colors.data(); }
    int32_t* reflectionData() { return reflections.empty() ? nullptr : reflections.data(); }
    float* normalData() { return normals.empty() ? nullptr : normals.data(); }
    size_t size() const { return positions.size() / 3; }
};

}  // namespace zulbase

// The planar arrays of a cloud's points (positions, colours, reflections, normals), each sized
// from the data type in one place: an attribute the type lacks has no array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulbase {

// `Allocator` makes the arrays' allocator of an element type (std::allocator by default; one that
// leaves added elements unset suits arrays filled whole right after).
template <template <class> class Allocator>
struct BasicPointColumns {
    std::vector<double, Allocator<double>> positions;  // 3 a point
    std::vector<uint8_t, Allocator<uint8_t>> colors;   // 3 a point, if the type has colour
    std::vector<int32_t, Allocator<int32_t>>
        reflections;                               // 1 a point, if the type has a reflection
    std::vector<float, Allocator<float>> normals;  // 3 a point, if the type has normals

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

template <class T>
using StandardAllocator = std::allocator<T>;
using PointColumns = BasicPointColumns<StandardAllocator>;

}  // namespace zulbase

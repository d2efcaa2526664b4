// A cloud of points held in the parallel arrays of zul_PointData, for building chunks in tests.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

struct PointCloud {
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    std::vector<float> normals;

    int size() const { return static_cast<int>(positions.size() / 3); }

    void add(double x, double y, double z, const uint8_t (&rgb)[3] = {0, 0, 0},
             int32_t reflection = 0, const float (&normal)[3] = {0, 0, 1}) {
        positions.insert(positions.end(), {x, y, z});
        colors.insert(colors.end(), {rgb[0], rgb[1], rgb[2]});
        reflections.push_back(reflection);
        normals.insert(normals.end(), {normal[0], normal[1], normal[2]});
    }

    void add(const zul_Point& p) {
        add(p.position[0], p.position[1], p.position[2], {p.color[0], p.color[1], p.color[2]},
            p.reflection, {p.normal[0], p.normal[1], p.normal[2]});
    }

    // The arrays stay owned by the cloud; the record is valid while the cloud is unchanged.
    zul_PointData data() {
        zul_PointData d;
        d.numPoints = size();
        d.positions = positions.data();
        d.colors = colors.data();
        d.reflections = reflections.data();
        d.normals = normals.data();
        return d;
    }
};

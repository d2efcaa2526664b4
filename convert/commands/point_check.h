// Checking decoded points against the points that were encoded: the grid cell of a coordinate,
// the angle between normals, and a whole chunk compared point by point.
#pragma once

#include <cstdint>
#include <vector>

#include "zul.h"

namespace zulconvert {

// The grid cell a coordinate falls in, as the encoder quantises it: the nearest multiple of the
// step, exact halves going up.
int64_t gridCell(double value, double step);

// The angle between two directions, in degrees.
double angleDegrees(const float a[3], const float b[3]);

// The largest errors found so far.
struct PointErrors {
    double position = 0;     // in steps
    double normal = 0;       // degrees
    int64_t mismatches = 0;  // points whose cell, colour or reflection differ
};

// Compares the decoded points of one chunk with the `decoded.size()` originals from `original`
// (colours RGB888, reflections within range). The decoder hands the points of a chunk back
// sorted, so both sides are put in the order of their cells, colours and reflections first;
// among equal ones each decoded normal is paired with the closest original one.
void checkChunk(const zul_Point* original, const std::vector<zul_Point>& decoded, double step,
                PointErrors& errors);

}  // namespace zulconvert

// An axis-aligned box on the integer grid, axes x, y, z in that order.
#pragma once

#include <limits>

#include "zul.h"

namespace zullib {

template <typename T>
struct ZUL_API BoundingBox3d {
    // The empty box: every min at the largest value and every max at the smallest, so that the
    // first extend() sets both corners.
    T min[3] = {std::numeric_limits<T>::max(), std::numeric_limits<T>::max(),
                std::numeric_limits<T>::max()};
    T max[3] = {std::numeric_limits<T>::lowest(), std::numeric_limits<T>::lowest(),
                std::numeric_limits<T>::lowest()};

    void extend(const T (&point)[3]) {
        for (int axis = 0; axis < 3; ++axis) {
            if (point[axis] < min[axis]) min[axis] = point[axis];
            if (point[axis] > max[axis]) max[axis] = point[axis];
        }
    }
};

}  // namespace zullib

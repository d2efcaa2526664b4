// An axis-aligned box over an integer grid, x, y, z in that order.
#pragma once

#include <limits>

namespace zullib {

template <typename T>
struct BoundingBox3d {
    // The empty box: every min at the type's largest value, every max at its smallest, so that
    // the first point extended into it becomes both corners.
    T min[3] = {std::numeric_limits<T>::max(), std::numeric_limits<T>::max(),
                std::numeric_limits<T>::max()};
    T max[3] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::min(),
                std::numeric_limits<T>::min()};

    void extend(const T point[3]) {
        for (int axis = 0; axis < 3; ++axis) {
            if (point[axis] < min[axis]) min[axis] = point[axis];
            if (point[axis] > max[axis]) max[axis] = point[axis];
        }
    }
};

}  // namespace zullib

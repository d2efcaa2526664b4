#include "bulk/output_box.h"

#include <algorithm>

namespace zulbulk {

void outputBox(const int64_t gridMin[3], const int64_t gridMax[3], float step, const double* matrix,
               double min[3], double max[3]) {
    const double s = static_cast<double>(step);
    double low[3], high[3];
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] = static_cast<double>(gridMin[axis]) * s;
        high[axis] = static_cast<double>(gridMax[axis]) * s;
    }
    if (!matrix) {
        std::copy(low, low + 3, min);
        std::copy(high, high + 3, max);
        return;
    }
    const double* m = matrix;
    for (int row = 0; row < 3; ++row) {
        double termLow[3], termHigh[3];
        for (int axis = 0; axis < 3; ++axis) {
            const double a = low[axis] * m[4 * axis + row], b = high[axis] * m[4 * axis + row];
            termLow[axis] = std::min(a, b);
            termHigh[axis] = std::max(a, b);
        }
        // The decoder's order: ((x * m0 + y * m4) + z * m8) + m12.
        min[row] = ((termLow[0] + termLow[1]) + termLow[2]) + m[12 + row];
        max[row] = ((termHigh[0] + termHigh[1]) + termHigh[2]) + m[12 + row];
    }
}

}  // namespace zulbulk

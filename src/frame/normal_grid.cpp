#include "frame/normal_grid.h"

#include <array>
#include <cmath>

namespace zullib {

int computeNormalRowCells(int row) {
    // 0.95 pi and 0.025 pi, written out as the double literals both sides use.
    double t = (row + 0.5) * 0.0078125;
    if (t > 1.0) t = 1.0;
    return static_cast<int>(
        std::ceil(std::sin(t * 2.9845130209103035 + 0.0785398163397449) * 256.0));
}

int normalRowCells(int row) {
    static const std::array<int, kNormalRows> table = [] {
        std::array<int, kNormalRows> cells{};
        for (int r = 0; r < kNormalRows; ++r) cells[r] = computeNormalRowCells(r);
        return cells;
    }();
    return table[row];
}

}  // namespace zullib

#include "encoder/normal_cells.h"

#include <cmath>

namespace zullib {

namespace {

const double kPi = 3.141592653589793;
// The proof's margin, in units of the vector's length (the sine of the angle to a boundary).
const double kMargin = 1e-9;

// atan2 within 1e-3 radians (an odd polynomial of degree 5 on [0, 1]): only a guess, at most one
// row or cell off (they are 0.0245 radians wide or more), which the boundaries then prove, move
// by one or refuse. NaN in, NaN out.
double roughAtan2(double y, double x) {
    const double ax = std::fabs(x), ay = std::fabs(y);
    const double t = (ax < ay ? ax : ay) / (ax < ay ? ay : ax);
    const double t2 = t * t;
    double a = t * (0.995354 + t2 * (-0.288679 + t2 * 0.079331));
    // Without branches, as the signs of the components come: a = pi/2 - a past the diagonal,
    // pi - a on the left half, the sign of y.
    const bool steep = ay > ax;
    a = (steep ? 0.5 * kPi : 0.0) + (steep ? -a : a);
    a = (x < 0 ? kPi : 0.0) + (x < 0 ? -a : a);
    return std::copysign(a, y);
}

// floor(value) within [0, limit - 1]; NaN gives 0.
int guessIndex(double value, int limit) {
    if (!(value > 0.0)) return 0;
    if (value >= limit) return limit - 1;
    return static_cast<int>(value);
}

}  // namespace

const NormalCellFinder& NormalCellFinder::instance() {
    static const NormalCellFinder finder;
    return finder;
}

NormalCellFinder::NormalCellFinder() {
    for (int k = 0; k <= kNormalRows; ++k) {
        const double angle = (0.5 - k / static_cast<double>(kNormalRows)) * kPi;
        rowCos_[k] = std::cos(angle);
        rowSin_[k] = std::sin(angle);
    }
    for (int r = 0; r < kNormalRows; ++r) {
        cells_[r] = normalRowCells(r);
        first_[r] = static_cast<int>(cellCos_.size());
        for (int j = 0; j <= cells_[r]; ++j) {
            const double angle = (j / static_cast<double>(cells_[r]) - 0.5) * (2.0 * kPi);
            cellCos_.push_back(std::cos(angle));
            cellSin_.push_back(std::sin(angle));
        }
    }
}

bool NormalCellFinder::find(double x, double y, double z, double length, int32_t (&cell)[2]) const {
    // The tests take the vector as it is: its length only scales the margins. Components that
    // come from floats keep every product here far from underflow and overflow; an infinity or
    // a NaN fails here or in the tests.
    const double h = std::sqrt(x * x + y * y);
    if (!(h > 0.0 && length < 1e300)) return false;
    const double rowMargin = kMargin * length;
    // The latitude angle grows with the row's boundary k falling: row r lies between the
    // boundaries r + 1 (below) and r (above), and the end rows are open on their pole's side.
    // A guess one row off (within the guess's error of a boundary) moves once.
    int row = guessIndex((0.5 - roughAtan2(z, h) * (1.0 / kPi)) * kNormalRows, kNormalRows);
    const auto belowTop = [&](int r) { return h * rowSin_[r] - z * rowCos_[r] > rowMargin; };
    const auto aboveBottom = [&](int r) {
        return z * rowCos_[r + 1] - h * rowSin_[r + 1] > rowMargin;
    };
    if (row > 0 && !belowTop(row))
        --row;
    else if (row < kNormalRows - 1 && !aboveBottom(row))
        ++row;
    if (row > 0 && !belowTop(row)) return false;
    if (row < kNormalRows - 1 && !aboveBottom(row)) return false;
    // Longitude: cell c lies between the boundaries c and c + 1, both tested, so that the
    // meridian of +-pi (the plain computation's sign of zero) is always left to it.
    const int cells = cells_[row];
    int c = guessIndex((roughAtan2(y, x) * (0.5 / kPi) + 0.5) * cells, cells);
    const double* cosines = cellCos_.data() + first_[row];
    const double* sines = cellSin_.data() + first_[row];
    const double margin = kMargin * h;
    const auto afterStart = [&](int i) { return y * cosines[i] - x * sines[i] > margin; };
    const auto beforeEnd = [&](int i) { return x * sines[i + 1] - y * cosines[i + 1] > margin; };
    if (c > 0 && !afterStart(c))
        --c;
    else if (c < cells - 1 && !beforeEnd(c))
        ++c;
    if (!afterStart(c) || !beforeEnd(c)) return false;
    cell[0] = c;
    cell[1] = row;
    return true;
}

}  // namespace zullib

// The checks on a sensor header's 4x4 matrix (column-major, 16 doubles): it must be, within fixed
// tolerances, a proper rotation times a uniform scale, plus a translation.
#pragma once

namespace zullib {

// Mean of the lengths of the three columns of the linear part: ((|c0| + |c1|) + |c2|) / 3.
double matrixScale(const double* matrix);

// True if the columns c0, c1, c2 are orthonormal and right-handed: each dot product, each squared
// length minus 1 and the determinant minus 1 is at most `tolerance` in magnitude. NaN fails.
bool isProperRotation(const double* matrix, double tolerance);

// True if the matrix is what the four flags of a sensor header allow. A flag permits, it does not
// demand; hasUnsupportedScaling refuses the matrix outright.
bool isTransformationValid(const double* matrix, bool hasScaling, bool hasUnsupportedScaling,
                           bool hasRotation, bool hasTranslation);

}  // namespace zullib

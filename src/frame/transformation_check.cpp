#include "frame/transformation_check.h"

#include <cmath>

namespace zullib {

namespace {
const double kUniformScaleTolerance = 1e-9;
const double kUnitScaleTolerance = 1e-6;
const double kRotationTolerance = 1e-6;

const double* column(const double* matrix, int c) { return matrix + 4 * c; }

double dot(const double* a, const double* b) { return (a[0] * b[0] + a[1] * b[1]) + a[2] * b[2]; }

double length(const double* c) { return std::sqrt(dot(c, c)); }

// `value <= tolerance` written so that a NaN difference fails.
bool within(double difference, double tolerance) { return std::fabs(difference) <= tolerance; }
}  // namespace

double matrixScale(const double* matrix) {
    return ((length(column(matrix, 0)) + length(column(matrix, 1))) + length(column(matrix, 2))) /
           3;
}

bool isProperRotation(const double* matrix, double tolerance) {
    const double* c0 = column(matrix, 0);
    const double* c1 = column(matrix, 1);
    const double* c2 = column(matrix, 2);
    const double cross[3] = {c1[1] * c2[2] - c1[2] * c2[1], c1[2] * c2[0] - c1[0] * c2[2],
                             c1[0] * c2[1] - c1[1] * c2[0]};
    return within(dot(c0, c1), tolerance) && within(dot(c0, c2), tolerance) &&
           within(dot(c1, c2), tolerance) && within(dot(c0, c0) - 1, tolerance) &&
           within(dot(c1, c1) - 1, tolerance) && within(dot(c2, c2) - 1, tolerance) &&
           within(dot(c0, cross) - 1, tolerance);
}

bool isTransformationValid(const double* matrix, bool hasScaling, bool hasUnsupportedScaling,
                           bool hasRotation, bool hasTranslation) {
    if (hasUnsupportedScaling) return false;
    for (int i = 0; i < 16; ++i)
        if (!std::isfinite(matrix[i])) return false;
    // The bottom row is exact: no tolerance.
    if (matrix[3] != 0 || matrix[7] != 0 || matrix[11] != 0 || matrix[15] != 1) return false;
    if (!hasTranslation && (matrix[12] != 0 || matrix[13] != 0 || matrix[14] != 0)) return false;

    const double scale = matrixScale(matrix);
    for (int c = 0; c < 3; ++c)
        if (!within(length(column(matrix, c)) - scale, kUniformScaleTolerance)) return false;
    if (!hasScaling && !within(scale - 1, kUnitScaleTolerance)) return false;

    // Take the scale out; a zero matrix gets an infinite factor and NaN elements, and fails here,
    // as does a mirroring (determinant near -1, which a negative scale gives too).
    double normalised[16];
    const double factor = 1 / scale;
    for (int i = 0; i < 16; ++i) normalised[i] = matrix[i];
    for (int c = 0; c < 3; ++c)
        for (int r = 0; r < 3; ++r) normalised[4 * c + r] *= factor;
    if (!isProperRotation(normalised, kRotationTolerance)) return false;

    if (!hasRotation) {
        for (int c = 0; c < 3; ++c)
            for (int r = 0; r < 3; ++r)
                if (!within(normalised[4 * c + r] - (r == c ? 1 : 0), kRotationTolerance))
                    return false;
    }
    return true;
}

}  // namespace zullib

// What a stream must give back for a point that was written, and the comparisons with it.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "fuzz_support.h"

namespace zulfuzz {
namespace {

const double kPi = 3.141592653589793;
const double kTwoPi = 6.283185307179586;

int cellsInRow(double u) {
    return static_cast<int>(
        std::ceil(std::sin(u * 2.9845130209103035 + 0.0785398163397449) * 256.0));
}

// floor of `value` as an index below `count`; NaN and negatives give 0.
int32_t clampedFloor(double value, int32_t count) {
    const double f = std::floor(value);
    return std::isnan(f) ? 0 : static_cast<int32_t>(std::clamp(f, 0.0, count - 1.0));
}

// The centre of the cell of the unit sphere that holds the direction of `normal`.
void cellCentre(const float* normal, float* centre) {
    const double nx = normal[0], ny = normal[1], nz = normal[2];
    const double length = std::sqrt((nx * nx + ny * ny) + nz * nz);
    const double x = nx / length, y = ny / length, z = nz / length;
    const int32_t row =
        clampedFloor((0.5 - std::atan2(z, std::sqrt(x * x + y * y)) / kPi) * 128.0, 128);
    const double u = std::min((row + 0.5) * 0.0078125, 1.0);
    const int cells = cellsInRow(u);
    const int32_t cell = clampedFloor((std::atan2(y, x) / kTwoPi + 0.5) * cells, cells);
    const double polar = u * kPi;
    const double azimuth =
        (cell + 0.5) / static_cast<double>(static_cast<uint32_t>(cells)) * kTwoPi;
    const double s = std::sin(polar);
    centre[0] = static_cast<float>(-(std::cos(azimuth) * s));
    centre[1] = static_cast<float>(-(std::sin(azimuth) * s));
    centre[2] = static_cast<float>(std::cos(polar));
}

// The grid index of a coordinate: rounded to the nearest multiple of the step, exact halves
// upwards; what does not fit in 64 bits (NaN included) is INT64_MIN.
int64_t gridIndex(double value, float step) {
    const double s = step;
    const double index = std::floor((s * 0.5 + value) / s);
    if (!(index >= -9223372036854775808.0 && index < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(index);
}

// A stored point as the reader gives it with the header's transformation applied (the stored
// point itself if the header is not enabled).
zul_Point transformedPoint(const zul_Point& stored, const zul_Header2& header,
                           const zul_DataType& type) {
    zul_Point out = stored;
    const double* m = header.transformation;
    if (header.enabled && (header.hasScaling || header.hasTranslation || header.hasRotation)) {
        const double x = stored.position[0], y = stored.position[1], z = stored.position[2];
        for (int r = 0; r < 3; ++r)
            out.position[r] = ((x * m[r] + y * m[4 + r]) + z * m[8 + r]) + m[12 + r];
    }
    if (header.enabled && header.hasRotation && type.normalMode != zul_NORMAL_NONE) {
        // The rotation alone: the linear part divided by its scale, the mean column length.
        double length[3];
        for (int c = 0; c < 3; ++c) {
            const double a = m[4 * c], b = m[4 * c + 1], d = m[4 * c + 2];
            length[c] = std::sqrt((a * a + b * b) + d * d);
        }
        const double inverse = 1.0 / (((length[0] + length[1]) + length[2]) / 3.0);
        double n[12];
        for (int i = 0; i < 12; ++i) n[i] = m[i] * inverse;
        const double x = stored.normal[0], y = stored.normal[1], z = stored.normal[2];
        for (int r = 0; r < 3; ++r) {
            out.normal[r] = static_cast<float>((x * n[r] + y * n[4 + r]) + z * n[8 + r]);
        }
    }
    return out;
}

bool sameBits(const zul_Point& a, const zul_Point& b) {
    return std::memcmp(a.position, b.position, sizeof a.position) == 0 &&
           std::memcmp(a.color, b.color, sizeof a.color) == 0 && a.reflection == b.reflection &&
           std::memcmp(a.normal, b.normal, sizeof a.normal) == 0;
}

}  // namespace

bool spanIsUnrepresentable(const zul_Point* points, size_t count, float step) {
    for (int a = 0; a < 3; ++a) {
        int64_t low = INT64_MAX, high = INT64_MIN;
        for (size_t i = 0; i < count; ++i) {
            const int64_t q = gridIndex(points[i].position[a], step);
            low = std::min(low, q);
            high = std::max(high, q);
        }
        if (count > 0 &&
            static_cast<uint64_t>(high) - static_cast<uint64_t>(low) >= (uint64_t{1} << 63))
            return true;
    }
    return false;
}

bool isTooShort(const float* normal) {
    const double x = normal[0], y = normal[1], z = normal[2];
    return 1e-6 > std::sqrt((x * x + y * y) + z * z);
}

zul_Point storedPoint(const zul_Point& written, const zul_DataType& type) {
    zul_Point stored{};
    const double step = type.quantizationStep;
    for (int a = 0; a < 3; ++a)
        stored.position[a] =
            static_cast<double>(gridIndex(written.position[a], type.quantizationStep)) * step;
    if (type.colorMode == zul_COLOR_RGB888) {
        std::copy(written.color, written.color + 3, stored.color);
    } else if (type.colorMode == zul_COLOR_RGB565) {
        stored.color[0] = static_cast<uint8_t>((written.color[0] >> 3) * 8 + 4);
        stored.color[1] = static_cast<uint8_t>((written.color[1] >> 2) * 4 + 2);
        stored.color[2] = static_cast<uint8_t>((written.color[2] >> 3) * 8 + 4);
    }
    if (type.reflectionMode != zul_REFLECTION_NONE)
        stored.reflection = std::max(0, std::min(written.reflection, type.maxReflection));
    if (type.normalMode != zul_NORMAL_NONE) cellCentre(written.normal, stored.normal);
    return stored;
}

void checkSamePoints(const std::vector<zul_Point>& expected, const std::vector<zul_Point>& actual,
                     const zul_Header2& header, const zul_DataType& type) {
    FUZZ_CHECK(expected.size() == actual.size());
    for (size_t i = 0; i < expected.size(); ++i)
        FUZZ_CHECK(sameBits(actual[i], transformedPoint(expected[i], header, type)));
}

}  // namespace zulfuzz

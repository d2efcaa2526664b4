// What a companion keeps of a LAS file: its public header, VLRs and EVLRs as bytes, and each
// point record cut into named, typed columns (laspy's names) for every byte the stream does not
// hold. The stream holds X, Y, Z, the intensity and the colour; where its values would not give
// the record's bytes back (another step, a clamped intensity, a colour held at another scale),
// the difference is a column too, written only where it holds anything.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "zul_companion.h"

namespace zulconvert {

// The parts of a LAS public header that the companion needs.
struct LasHead {
    int minor = 0;
    int pointFormat = 0;
    size_t headerSize = 0;
    size_t recordLength = 0;
    uint64_t dataOffset = 0;
    uint64_t count = 0;
    double scale[3] = {}, offset[3] = {};
    int colorOffset = 0;  // 0 without colour
};

// Reads a LAS public header from `size` bytes; false with `problem` set for bytes that are not
// one the tool reads.
bool parseLasHead(const unsigned char* bytes, size_t size, LasHead& head, std::string& problem);

// A column of the record: `width` bytes at `offset`.
struct LasColumn {
    const char* name;
    zul_FieldType type;
    int width;
    size_t offset;
};

// Every part of a record of `format` that the stream does not hold, in record order; the extra
// bytes past the format's own are one raw column "extra_bytes".
std::vector<LasColumn> lasColumns(int format, size_t recordLength);

// The columns of differences from what the stream gives: X, Y, Z (i32, modulo 2^32), intensity
// and red, green, blue (u16, modulo 2^16) in that order.
extern const char* const kLasResidualNames[7];

// std::llround(x), the same value for every x, without a call into the maths library where
// |x| < 2^52 (there x minus its truncation is exact): it runs a few times a point.
inline int64_t nearestInteger(double x) {
    constexpr double kExact = 4503599627370496.0;  // 2^52
    if (!(x > -kExact && x < kExact)) return std::llround(x);
    const int64_t whole = static_cast<int64_t>(x);
    const double fraction = x - static_cast<double>(whole);
    return whole + (fraction >= 0.5 ? 1 : 0) - (fraction <= -0.5 ? 1 : 0);
}

// The record's coordinate from a decoded position `q` (the stream's grid point through its
// matrix, residualWorld): round((q - offset) / scale), 0 where that is no int32.
inline int32_t lasCoordinate(double q, double scale, double offset) {
    const double units = (q - offset) / scale;
    if (!(units > -2147483649.0 && units < 2147483648.0)) {
        return 0;  // the difference column then holds the whole value
    }
    const int64_t rounded = nearestInteger(units);
    if (rounded < std::numeric_limits<int32_t>::min() ||
        rounded > std::numeric_limits<int32_t>::max()) {
        return 0;
    }
    return static_cast<int32_t>(rounded);
}

// The difference, modulo 2^32, of the record's coordinate `own` from lasCoordinate(q, scale,
// offset). Where the units lie within half a unit of `own` (as a rule), the nearest integer is
// `own` without the rounding: the difference of two doubles is rounded monotonically, so a
// computed distance below 0.5 is one.
inline int32_t lasResidual(int32_t own, double q, double scale, double offset) {
    const double units = (q - offset) / scale;
    if (std::fabs(units - static_cast<double>(own)) < 0.5) return 0;
    return static_cast<int32_t>(static_cast<uint32_t>(own) -
                                static_cast<uint32_t>(lasCoordinate(q, scale, offset)));
}

// The position a stream's grid point `g` stands for, through the sensor header's matrix (or as
// it is without one): computed the same way on both sides, so the differences come back exact.
// Inline: it runs once a point.
inline void residualWorld(const double g[3], const double matrix[16], bool enabled, double q[3]) {
    for (int row = 0; row < 3; ++row) {
        if (!enabled) {
            q[row] = g[row];
            continue;
        }
        double sum = matrix[12 + row];
        for (int column = 0; column < 3; ++column) sum += matrix[4 * column + row] * g[column];
        q[row] = sum;
    }
}

}  // namespace zulconvert

// What a stream must give back for a point that was written: the rules of the format written out
// once more, independently of the library, from the public records alone. The fuzz targets
// compare the library's results with these bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zul.h"

namespace zulfuzz {

// The grid index of a coordinate: rounded to the nearest multiple of the step, exact halves
// upwards; what does not fit in 64 bits (NaN included) is INT64_MIN.
int64_t gridIndex(double value, float step);

// True if, on some axis, the grid indices of the points span 2^63 or more. The stored slots are
// signed 64-bit numbers, so such a chunk is not representable: the encoder writes it without
// noticing, and what it decodes to is not defined. Reading it must still be safe.
bool spanIsUnrepresentable(const zul_Point* points, size_t count, float step);

// True if the writer refuses a chunk that holds this normal: it is shorter than 1e-6.
bool isTooShort(const float* normal);

// The point the reader gives back, before any transformation, for a point that was written.
// Fields of attributes the data type lacks are zero.
zul_Point storedPoint(const zul_Point& written, const zul_DataType& type);

// Whether the reader transforms positions and normals of a stream with this sensor header.
struct Transforms {
    bool positions = false;
    bool normals = false;
};
Transforms transformsOf(const zul_Header2& header, const zul_DataType& type,
                        int applyTransformation);

// A stored point as the reader gives it with the header's transformation applied.
zul_Point transformedPoint(const zul_Point& stored, const zul_Header2& header, Transforms t);

}  // namespace zulfuzz

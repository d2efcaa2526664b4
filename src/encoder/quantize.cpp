#include "encoder/quantize.h"

#include <algorithm>
#include <cmath>

#include "encoder/enc_context.h"
#include "encoder/normal_cells.h"
#include "frame/chunk_axes.h"
#include "frame/data_type.h"
#include "frame/normal_grid.h"
#include "frame/wrapping.h"

namespace zullib {

namespace {
// Truncation to a signed 64-bit integer, with everything that does not fit (NaN included)
// defined as INT64_MIN instead of undefined.
int64_t toInt64(double value) {
    if (value >= -9223372036854775808.0 && value < 9223372036854775808.0)
        return static_cast<int64_t>(value);
    return INT64_MIN;
}

// floor, then to an int within [0, limit - 1]; a NaN gives 0. Only the top value can reach the
// limit (the pole or the meridian at +pi), and it folds onto the last row or cell.
int32_t gridIndex(double value, int limit) {
    const double index = std::floor(value);
    if (!(index > 0.0)) return 0;
    return index >= limit ? limit - 1 : static_cast<int32_t>(index);
}
}  // namespace

int64_t quantizeCoordinate(double value, double step) {
    const double half = step * 0.5;
    return toInt64(std::floor((half + value) / step));
}

namespace {
// The plain cell of a normal whose length is at least 1e-6: atan2 of the normalised direction.
void plainNormalCell(const double (&n)[3], double length, int32_t (&cell)[2]) {
    const double x = n[0] / length, y = n[1] / length, z = n[2] / length;
    const double h = std::sqrt(x * x + y * y);
    const int32_t row =
        gridIndex((0.5 - std::atan2(z, h) / 3.141592653589793) * 128.0, kNormalRows);
    const int cells = normalRowCells(row);
    cell[0] = gridIndex((std::atan2(y, x) / 6.283185307179586 + 0.5) * cells, cells);
    cell[1] = row;
}

double lengthOf(const double (&n)[3]) {
    return std::sqrt((n[0] * n[0] + n[1] * n[1]) + n[2] * n[2]);
}
}  // namespace

bool quantizeNormal(const float* normal, int32_t (&cell)[2]) {
    return quantizeNormal(normal, cell, NormalCellFinder::instance());
}

bool quantizeNormal(const float* normal, int32_t (&cell)[2], const NormalCellFinder& finder) {
    const double n[3] = {normal[0], normal[1], normal[2]};
    const double length = lengthOf(n);
    if (1e-6 > length) return false;
    if (!finder.find(n[0], n[1], n[2], length, cell)) plainNormalCell(n, length, cell);
    return true;
}

bool quantizeNormalPlain(const float* normal, int32_t (&cell)[2]) {
    const double n[3] = {normal[0], normal[1], normal[2]};
    const double length = lengthOf(n);
    if (1e-6 > length) return false;
    plainNormalCell(n, length, cell);
    return true;
}

}  // namespace zullib

using zullib::zul_QuantizedPoint;

zul_Status zul_enc_ContextStruct::quantizeRemapAndShiftPoints(QuantizedPoints& points,
                                                              int (&axisRemap)[3],
                                                              int (&coordinateBits)[3],
                                                              zullib::BoundingBox3d<long long>& box,
                                                              const zul_PointData* pointData) {
    const int numPoints = pointData->numPoints;
    // Every record starts as zeros, as a fresh record would; fields of attributes the type lacks
    // stay so.
    points.assign(static_cast<size_t>(numPoints), zul_QuantizedPoint{});
    // The float step widened to double is the step: 0.0001 is 9.999999747378752e-05 here.
    const double step = dataType.quantizationStep;
    const int32_t maxReflection = dataType.maxReflection;
    const zullib::ChunkStreams streams(dataType);
    // The finder's tables are built on first use: not for a type without normals.
    const zullib::NormalCellFinder* cellFinder =
        streams.normals ? &zullib::NormalCellFinder::instance() : nullptr;
    zullib::BoundingBox3d<long long> chunkBox;

    for (int i = 0; i < numPoints; ++i) {
        zul_QuantizedPoint& record = points[static_cast<size_t>(i)];
        const double* position = pointData->positions + 3 * static_cast<size_t>(i);
        long long grid[3];
        for (int axis = 0; axis < 3; ++axis) {
            grid[axis] = zullib::quantizeCoordinate(position[axis], step);
            record.coordinates[axis] = grid[axis];
        }
        chunkBox.extend(grid);

        if (streams.color) {
            const uint8_t* rgb = pointData->colors + 3 * static_cast<size_t>(i);
            const bool reduced = dataType.colorMode == zul_COLOR_RGB565;
            record.rgb[0] = reduced ? rgb[0] >> 3 : rgb[0];
            record.rgb[1] = reduced ? rgb[1] >> 2 : rgb[1];
            record.rgb[2] = reduced ? rgb[2] >> 3 : rgb[2];
        }
        if (streams.reflection)
            record.reflection = std::max(0, std::min(pointData->reflections[i], maxReflection));
        if (streams.normals) {
            const float* normal = pointData->normals + 3 * static_cast<size_t>(i);
            if (!zullib::quantizeNormal(normal, record.normal, *cellFinder))
                return zul_STATUS_INVALID_ARGUMENT;
        }
    }

    const zullib::ChunkAxes axes = zullib::chunkAxes(chunkBox);
    for (zul_QuantizedPoint& record : points) {
        const int64_t grid[3] = {record.coordinates[0], record.coordinates[1],
                                 record.coordinates[2]};
        for (int k = 0; k < 3; ++k)
            record.coordinates[k] = zullib::wrappingSub(grid[axes.axisRemap[k]], axes.slotMin[k]);
    }
    for (int k = 0; k < 3; ++k) {
        axisRemap[k] = axes.axisRemap[k];
        coordinateBits[k] = axes.coordinateBits[k];
    }
    box = chunkBox;
    return zul_STATUS_OK;
}

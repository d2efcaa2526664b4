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
// floor to a signed 64-bit integer, with everything that does not fit (NaN included) defined as
// INT64_MIN instead of undefined. floor(value) fits exactly when value does, the bounds being
// integers. Truncation, one down below a negative fraction: that is floor, and the step down
// happens only below 2^52 in magnitude, where the truncated value converts back exactly.
int64_t floorToInt64(double value) {
    if (!(value >= -9223372036854775808.0 && value < 9223372036854775808.0)) return INT64_MIN;
    const int64_t truncated = static_cast<int64_t>(value);
    return truncated - static_cast<int64_t>(static_cast<double>(truncated) > value);
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
    return floorToInt64((half + value) / step);
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

namespace {

using zullib::zul_QuantizedPoint;

// What the record loop takes from a chunk's type, fixed before the first point.
struct RecordInputs {
    const zul_PointData* pointData;
    // The float step widened to double is the step: 0.0001 is 9.999999747378752e-05 here.
    double step;
    int32_t maxReflection;
    int rgbShift[3];  // 3, 2, 3 for RGB565; 0 for RGB888
    const zullib::NormalCellFinder* cellFinder;
};

// The records of every point in input order, and the box of their grid positions. One loop for
// each combination of attributes, so that no point asks which ones the type has; fields of
// attributes the type lacks are 0, and every record is written once, whole. False at the first
// normal shorter than 1e-6.
template <bool kColor, bool kReflection, bool kNormals>
bool quantizeRecords(std::vector<zul_QuantizedPoint>& points, const RecordInputs& in,
                     zullib::BoundingBox3d<long long>& box) {
    const zul_PointData& data = *in.pointData;
    const size_t numPoints = static_cast<size_t>(data.numPoints);
    // Every record is zeroed once by the resize and then written through a plain pointer, the
    // box kept in locals, so that no store of a record makes the loop reload what it reads.
    points.clear();
    points.resize(numPoints);
    zul_QuantizedPoint* const records = points.data();
    const double* const positions = data.positions;
    const uint8_t* const colors = data.colors;
    const int32_t* const reflections = data.reflections;
    const double step = in.step;
    long long low[3], high[3];
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] = box.min[axis];
        high[axis] = box.max[axis];
    }
    ZUL_UNROLL_4
    for (size_t i = 0; i < numPoints; ++i) {
        zul_QuantizedPoint& record = records[i];
        for (int axis = 0; axis < 3; ++axis) {
            const long long grid = zullib::quantizeCoordinate(positions[3 * i + axis], step);
            record.coordinates[axis] = grid;
            low[axis] = std::min(low[axis], grid);
            high[axis] = std::max(high[axis], grid);
        }
        if (kColor)
            for (int c = 0; c < 3; ++c)
                record.rgb[c] = static_cast<uint8_t>(colors[3 * i + c] >> in.rgbShift[c]);
        if (kReflection)
            record.reflection = std::max(0, std::min(reflections[i], in.maxReflection));
        if (kNormals &&
            !zullib::quantizeNormal(data.normals + 3 * i, record.normal, *in.cellFinder))
            return false;
    }
    for (int axis = 0; axis < 3; ++axis) {
        box.min[axis] = low[axis];
        box.max[axis] = high[axis];
    }
    return true;
}

using RecordLoop = bool (*)(std::vector<zul_QuantizedPoint>&, const RecordInputs&,
                            zullib::BoundingBox3d<long long>&);
// Indexed by colour * 4 + reflection * 2 + normals.
const RecordLoop kRecordLoops[8] = {
    quantizeRecords<false, false, false>, quantizeRecords<false, false, true>,
    quantizeRecords<false, true, false>,  quantizeRecords<false, true, true>,
    quantizeRecords<true, false, false>,  quantizeRecords<true, false, true>,
    quantizeRecords<true, true, false>,   quantizeRecords<true, true, true>};

}  // namespace

zul_Status zul_enc_ContextStruct::quantizeRemapAndShiftPoints(QuantizedPoints& points,
                                                              int (&axisRemap)[3],
                                                              int (&coordinateBits)[3],
                                                              zullib::BoundingBox3d<long long>& box,
                                                              const zul_PointData* pointData) {
    const zullib::ChunkStreams streams(dataType);
    const bool reduced = dataType.colorMode == zul_COLOR_RGB565;
    // The finder's tables are built on first use: not for a type without normals.
    const RecordInputs inputs = {pointData,
                                 dataType.quantizationStep,
                                 dataType.maxReflection,
                                 {reduced ? 3 : 0, reduced ? 2 : 0, reduced ? 3 : 0},
                                 streams.normals ? &zullib::NormalCellFinder::instance() : nullptr};
    zullib::BoundingBox3d<long long> chunkBox;
    const RecordLoop loop =
        kRecordLoops[int{streams.color} * 4 + int{streams.reflection} * 2 + int{streams.normals}];
    if (!loop(points, inputs, chunkBox)) return zul_STATUS_INVALID_ARGUMENT;

    const zullib::ChunkAxes axes = zullib::chunkAxes(chunkBox);
    // The remap and the minima in locals, so that no store of a record makes the loop reload them.
    const int remap[3] = {axes.axisRemap[0], axes.axisRemap[1], axes.axisRemap[2]};
    const int64_t slotMin[3] = {axes.slotMin[0], axes.slotMin[1], axes.slotMin[2]};
    ZUL_UNROLL_4
    for (zul_QuantizedPoint& record : points) {
        const int64_t grid[3] = {record.coordinates[0], record.coordinates[1],
                                 record.coordinates[2]};
        for (int k = 0; k < 3; ++k)
            record.coordinates[k] = zullib::wrappingSub(grid[remap[k]], slotMin[k]);
    }
    for (int k = 0; k < 3; ++k) {
        axisRemap[k] = axes.axisRemap[k];
        coordinateBits[k] = axes.coordinateBits[k];
    }
    box = chunkBox;
    return zul_STATUS_OK;
}

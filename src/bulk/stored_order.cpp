#include "bulk/stored_order.h"

#include "encoder/coordinate_sort.h"
#include "encoder/quantize.h"
#include "frame/bounding_box.h"
#include "frame/chunk_axes.h"
#include "frame/wrapping.h"

namespace zulbulk {

void storedOrder(const zul_DataType& type, const zul_PointData& points, uint32_t* order,
                 std::vector<zullib::zul_QuantizedPoint>& records,
                 std::vector<unsigned char>& scratch) {
    const size_t n = static_cast<size_t>(points.numPoints);
    records.resize(n);
    // The encoder's own steps: each position onto the grid, the slots laid out by the chunk's
    // box and shifted to its minimum. Only the coordinates decide the order; the reflection
    // carries each point's number through the sort.
    const double step = type.quantizationStep;
    // On a step of 1, a whole number below 2^52 is its own grid point (value + 0.5 is exact, and
    // its floor the value): the rounding is called only for the others.
    const bool unit = step == 1.0;
    constexpr double kExact = 4503599627370496.0;  // 2^52
    zullib::BoundingBox3d<long long> box;
    for (size_t i = 0; i < n; ++i) {
        zullib::zul_QuantizedPoint& record = records[i];
        long long grid[3];
        for (int axis = 0; axis < 3; ++axis) {
            const double value = points.positions[3 * i + axis];
            const bool whole = unit && value > -kExact && value < kExact &&
                               static_cast<double>(static_cast<long long>(value)) == value;
            grid[axis] =
                whole ? static_cast<long long>(value) : zullib::quantizeCoordinate(value, step);
            record.coordinates[axis] = grid[axis];
        }
        box.extend(grid);
        record.reflection = static_cast<int32_t>(i);
    }
    const zullib::ChunkAxes axes = zullib::chunkAxes(box);
    for (zullib::zul_QuantizedPoint& record : records) {
        const int64_t grid[3] = {record.coordinates[0], record.coordinates[1],
                                 record.coordinates[2]};
        for (int k = 0; k < 3; ++k)
            record.coordinates[k] = zullib::wrappingSub(grid[axes.axisRemap[k]], axes.slotMin[k]);
    }
    zullib::sortByCoordinates(records, scratch);
    for (size_t k = 0; k < n; ++k) order[k] = static_cast<uint32_t>(records[k].reflection);
}

}  // namespace zulbulk

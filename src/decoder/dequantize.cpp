// Records back to the public domain: positions on the grid, colours in the middle of the range
// their truncation merged, reflections as stored, normals at the centres of their cells.
#include <cstddef>
#include <cstdint>

#include "decoder/color_copy.h"
#include "decoder/dec_context.h"
#include "decoder/normal_centres.h"
#include "decoder/position_copy.h"
#include "frame/data_type.h"

void zul_dec_ContextStruct::dequantizeRemapAndShiftPoints(
    zul_PointData& points, const std::vector<zullib::zul_QuantizedPoint>& records,
    zul_DataType dataType, const int* axisToSlot, const zullib::BoundingBox3d<long long>& box) {
    // The float's own value counts, not the decimal it approximates. No half step is added: a
    // grid index decodes to exactly index times step.
    const double step = static_cast<double>(dataType.quantizationStep);
    const size_t n = records.size();
    // In locals: a byte stored to the colours could alias the fields of `points`, which would then
    // be loaded again for every point.
    const zullib::zul_QuantizedPoint* record = records.data();
    double* const positions = points.positions;
    uint8_t* const colors = points.colors;
    const zullib::PositionLayout layout = {
        {axisToSlot[0], axisToSlot[1], axisToSlot[2]}, {box.min[0], box.min[1], box.min[2]}, step};
    zullib::copyPositions(positions, record, n, layout);

    if (dataType.colorMode == zul_COLOR_RGB888) {
        zullib::copyRgb888(colors, record, n);
    } else if (dataType.colorMode == zul_COLOR_RGB565) {
        // Each value goes to the middle of the 8 or 4 values it stands for: 0 -> 4, 31 -> 252,
        // and 0 -> 2, 63 -> 254 for green. Values outside their bits wrap in 8 bits.
        for (size_t i = 0; i < n; ++i) {
            const uint8_t* rgb = record[i].rgb;
            colors[3 * i + 0] = static_cast<uint8_t>(rgb[0] * 8 + 4);
            colors[3 * i + 1] = static_cast<uint8_t>(rgb[1] * 4 + 2);
            colors[3 * i + 2] = static_cast<uint8_t>(rgb[2] * 8 + 4);
        }
    }

    const zullib::ChunkStreams streams(dataType);
    if (streams.reflection) {
        int32_t* const reflections = points.reflections;
        for (size_t i = 0; i < n; ++i) reflections[i] = record[i].reflection;
    }

    if (streams.normals) {
        // The arrays in locals too: the call for a pair outside the grid could change anything
        // reachable, so fields would be loaded again for every point.
        const zullib::NormalCentres& centres = zullib::NormalCentres::instance();
        float* const normals = points.normals;
        for (size_t i = 0; i < n; ++i)
            centres.lookUp(static_cast<uint32_t>(record[i].normal[0]),
                           static_cast<uint32_t>(record[i].normal[1]), &normals[3 * i]);
    }
}

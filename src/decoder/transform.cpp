// The sensor header's transformation, applied in place to a decoded chunk. Terms are summed in a
// fixed order and never fused, so that every implementation gives the same doubles and floats.
#include "decoder/dec_context.h"

void zul_dec_ContextStruct::transformPointPositions(zul_PointData& points, const double* m) {
    for (int32_t i = 0; i < points.numPoints; ++i) {
        double* p = &points.positions[3 * static_cast<size_t>(i)];
        const double x = p[0], y = p[1], z = p[2];
        p[0] = ((x * m[0] + y * m[4]) + z * m[8]) + m[12];
        p[1] = ((x * m[1] + y * m[5]) + z * m[9]) + m[13];
        p[2] = ((x * m[2] + y * m[6]) + z * m[10]) + m[14];
    }
}

void zul_dec_ContextStruct::transformPointNormals(zul_PointData& points, const double* n) {
    for (int32_t i = 0; i < points.numPoints; ++i) {
        float* v = &points.normals[3 * static_cast<size_t>(i)];
        const double x = v[0], y = v[1], z = v[2];
        v[0] = static_cast<float>((x * n[0] + y * n[4]) + z * n[8]);
        v[1] = static_cast<float>((x * n[1] + y * n[5]) + z * n[9]);
        v[2] = static_cast<float>((x * n[2] + y * n[6]) + z * n[10]);
    }
}

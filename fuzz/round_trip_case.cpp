// The input of the write-and-read target, read from the fuzz bytes.
#include <cmath>
#include <cstring>

#include "fuzz_support.h"

namespace zulfuzz {

bool parseRoundTripCase(const uint8_t* data, size_t size, RoundTripCase& out) {
    Settings s;
    if (size < sizeof s) return false;
    std::memcpy(&s, data, sizeof s);
    zul_DataType& type = out.dataType;
    type.quantizationStep = s.step;
    type.maxReflection = s.maxReflection;
    type.colorMode = static_cast<zul_ColorMode>(s.attributes & 3);
    type.reflectionMode =
        s.attributes & kHasReflection ? zul_REFLECTION_CLAMPED : zul_REFLECTION_NONE;
    type.normalMode = s.attributes & kHasNormals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    out.chunkSize = int32_t{s.chunkSizeMinus1} + 1;
    out.passHeader = s.attributes & kPassHeader;
    zul_Header2& h = out.header;
    zul_init_headers(nullptr, &h);
    h.enabled = s.attributes & kHeaderEnabled;
    h.sensorMount = static_cast<zul_SensorMount>(s.mount);
    h.sensorType = static_cast<zul_SensorType>(s.type);
    h.hasScaling = s.flags & kScaling;
    h.hasUnsupportedScaling = s.flags & kUnsupported;
    h.hasRotation = s.flags & kRotation;
    h.hasTranslation = s.flags & kTranslation;
    double* m = h.transformation;
    if (s.flags & kAngleForm) {
        const double scale = s.matrix[0], angle = s.matrix[1];
        m[0] = m[5] = scale * std::cos(angle);
        m[1] = scale * std::sin(angle);
        m[4] = -m[1];
        m[10] = scale;
        std::memcpy(m + 12, s.matrix + 2, 3 * sizeof(double));
    } else {
        std::memcpy(m, s.matrix, sizeof s.matrix);
    }
    const double halfStep = static_cast<double>(type.quantizationStep) * 0.5;
    for (size_t at = sizeof s; size - at >= sizeof(PointRecord); at += sizeof(PointRecord)) {
        PointRecord r;
        std::memcpy(&r, data + at, sizeof r);
        zul_Point p{};
        for (int a = 0; a < 3; ++a) {
            p.position[a] = r.kind & kGridPosition ? r.halfSteps[a] * halfStep : r.position[a];
            if (type.normalMode != zul_NORMAL_NONE)
                p.normal[a] = r.kind & kGridNormal ? r.gridNormal[a] / 127.0f : r.normal[a];
        }
        if (type.colorMode != zul_COLOR_NONE) std::memcpy(p.color, r.color, sizeof p.color);
        if (type.reflectionMode != zul_REFLECTION_NONE) p.reflection = r.reflection;
        out.points.push_back(p);
    }
    return true;
}

}  // namespace zulfuzz

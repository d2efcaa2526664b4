#include "round_trip_case.h"

#include <cmath>

namespace zulfuzz {
namespace {

class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data(data), left(size) {}

    template <class T>
    bool take(T& value) {
        if (left < sizeof(T)) return false;
        std::memcpy(&value, data, sizeof(T));
        data += sizeof(T);
        left -= sizeof(T);
        return true;
    }

private:
    const uint8_t* data;
    size_t left;
};

bool takeHeader(ByteReader& in, zul_Header2& header, bool enabled) {
    int32_t mount = 0, type = 0;
    uint8_t flags = 0;
    if (!in.take(mount) || !in.take(type) || !in.take(flags)) return false;
    zul_init_headers(nullptr, &header);
    header.enabled = enabled;
    header.sensorMount = static_cast<zul_SensorMount>(mount);
    header.sensorType = static_cast<zul_SensorType>(type);
    header.hasScaling = flags & kScaling;
    header.hasUnsupportedScaling = flags & kUnsupportedScaling;
    header.hasRotation = flags & kRotation;
    header.hasTranslation = flags & kTranslation;
    if (flags & kRawMatrix) {
        for (double& element : header.transformation) {
            if (!in.take(element)) return false;
        }
        return true;
    }
    double scale = 0, angle = 0, t[3] = {};
    if (!in.take(scale) || !in.take(angle) || !in.take(t[0]) || !in.take(t[1]) || !in.take(t[2]))
        return false;
    double* m = header.transformation;
    m[0] = scale * std::cos(angle);
    m[1] = scale * std::sin(angle);
    m[4] = -m[1];
    m[5] = m[0];
    m[10] = scale;
    m[12] = t[0];
    m[13] = t[1];
    m[14] = t[2];
    return true;
}

bool takePoint(ByteReader& in, const zul_DataType& type, zul_Point& point) {
    uint8_t kind = 0;
    if (!in.take(kind)) return false;
    if (kind & kRawPosition) {
        for (double& v : point.position) {
            if (!in.take(v)) return false;
        }
    } else {
        // Multiples of half a step: grid points and the exact ties between them.
        for (double& v : point.position) {
            int16_t halfSteps = 0;
            if (!in.take(halfSteps)) return false;
            v = halfSteps * (static_cast<double>(type.quantizationStep) * 0.5);
        }
    }
    if (type.colorMode != zul_COLOR_NONE) {
        for (uint8_t& c : point.color) {
            if (!in.take(c)) return false;
        }
    }
    if (type.reflectionMode != zul_REFLECTION_NONE && !in.take(point.reflection)) return false;
    if (type.normalMode != zul_NORMAL_NONE) {
        for (float& n : point.normal) {
            if (kind & kRawNormal) {
                if (!in.take(n)) return false;
            } else {
                int8_t v = 0;
                if (!in.take(v)) return false;
                n = v / 127.0f;
            }
        }
    }
    return true;
}

}  // namespace

bool parseRoundTripCase(const uint8_t* data, size_t size, RoundTripCase& out) {
    ByteReader in(data, size);
    uint8_t attributes = 0;
    uint16_t chunkSize = 0;
    zul_DataType& type = out.dataType;
    if (!in.take(attributes) || !in.take(type.quantizationStep) || !in.take(type.maxReflection) ||
        !in.take(chunkSize))
        return false;
    type.colorMode = static_cast<zul_ColorMode>(attributes & 3);
    type.reflectionMode =
        (attributes & kHasReflection) ? zul_REFLECTION_CLAMPED : zul_REFLECTION_NONE;
    type.normalMode = (attributes & kHasNormals) ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    out.chunkSize = int32_t{chunkSize} + 1;
    out.passHeader = attributes & kPassHeader;
    if (out.passHeader && !takeHeader(in, out.header, attributes & kHeaderEnabled)) return false;
    zul_Point point{};
    while (takePoint(in, type, point)) {
        out.points.push_back(point);
        point = zul_Point{};
    }
    return true;
}

}  // namespace zulfuzz

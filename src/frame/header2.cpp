#include "frame/header2.h"

#include <cstdint>
#include <cstring>

#include "frame/stored_bytes.h"
#include "frame/transformation_check.h"

namespace zullib {

void Header2::init(zul_Header2& header, zul_SensorMount mount, zul_SensorType type, double scale,
                   double translationX, double translationY, double translationZ) {
    header.enabled = false;
    std::memset(header.reservedBytes, 0, sizeof header.reservedBytes);
    header.reservedWords[0] = header.reservedWords[1] = 0;
    header.hasScaling = header.hasUnsupportedScaling = false;
    header.hasRotation = header.hasTranslation = false;
    header.sensorMount = mount;
    header.sensorType = type;
    for (int i = 0; i < 16; ++i) header.transformation[i] = (i % 5 == 0) ? 1.0 : 0.0;
    if (!(scale == 1.0)) setScaling(header, scale);
    if (translationX != 0.0 || translationY != 0.0 || translationZ != 0.0)
        setTranslation(header, translationX, translationY, translationZ);
}

zul_Header2 Header2::disabled() {
    zul_Header2 header;
    init(header, zul_SENSOR_MOUNT_DEFAULT, zul_SENSOR_TYPE_DEFAULT, 1.0, 0.0, 0.0, 0.0);
    return header;
}

void Header2::setScaling(zul_Header2& header, double scale) {
    header.hasScaling = true;
    header.hasUnsupportedScaling = false;
    const double factor = scale / matrixScale(header.transformation);
    for (int c = 0; c < 3; ++c)
        for (int r = 0; r < 3; ++r) header.transformation[4 * c + r] *= factor;
}

void Header2::setTranslation(zul_Header2& header, double x, double y, double z) {
    header.hasTranslation = true;
    header.transformation[12] = x;
    header.transformation[13] = y;
    header.transformation[14] = z;
}

bool Header2::isSensorValid(zul_SensorMount mount, zul_SensorType type) {
    switch (static_cast<uint32_t>(mount)) {
        case 0:
        case 10:
        case 11:
        case 12:
        case 13:
        case 20:
        case 21:
        case 22:
        case 30:
        case 31:
        case 32:
            break;
        default:
            return false;
    }
    return static_cast<uint32_t>(type) <= 10;
}

bool Header2::isValid(const zul_Header2& header, bool checkSensor) {
    if (!storedFlag(header.enabled)) return true;
    if (checkSensor && !isSensorValid(header.sensorMount, header.sensorType)) return false;
    return isTransformationValid(header.transformation, storedFlag(header.hasScaling),
                                 storedFlag(header.hasUnsupportedScaling),
                                 storedFlag(header.hasRotation), storedFlag(header.hasTranslation));
}

bool Header2::equal(const zul_Header2& a, const zul_Header2& b) {
    return storedByte(a.enabled) == storedByte(b.enabled) && a.sensorMount == b.sensorMount &&
           a.sensorType == b.sensorType && storedByte(a.hasScaling) == storedByte(b.hasScaling) &&
           storedByte(a.hasUnsupportedScaling) == storedByte(b.hasUnsupportedScaling) &&
           storedByte(a.hasRotation) == storedByte(b.hasRotation) &&
           storedByte(a.hasTranslation) == storedByte(b.hasTranslation) &&
           std::memcmp(a.transformation, b.transformation, sizeof a.transformation) == 0;
}

}  // namespace zullib

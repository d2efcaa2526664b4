// Static functions on zul_Header2, the optional sensor header of a version 2 stream.
#pragma once

#include "zul.h"

namespace zullib {

class ZUL_API Header2 {
public:
    // Disabled record: no flags, identity matrix, then the scale and translation given. A scale
    // other than exactly 1.0 (NaN included) goes through setScaling; a non-zero translation sets
    // hasTranslation. Validates nothing and never enables the record.
    static void init(zul_Header2& header, zul_SensorMount mount, zul_SensorType type, double scale,
                     double translationX, double translationY, double translationZ);
    // What init gives for mount 0, type 0, scale 1.0 and no translation.
    static zul_Header2 disabled();
    // Sets hasScaling and rescales the linear part so that its scale becomes `scale` (absolute,
    // not a factor on top of the earlier scale).
    static void setScaling(zul_Header2& header, double scale);
    // Sets hasTranslation and stores the translation.
    static void setTranslation(zul_Header2& header, double x, double y, double z);
    // True if the mount is one of 0, 10-13, 20-22, 30-32 and the type is 0-10.
    static bool isSensorValid(zul_SensorMount mount, zul_SensorType type);
    // True for a disabled record; else the sensor (if `checkSensor`) and the matrix must pass.
    static bool isValid(const zul_Header2& header, bool checkSensor);
    // Equal enabled byte, sensor, flags as stored, and matrix bit for bit; reserved ignored.
    static bool equal(const zul_Header2& a, const zul_Header2& b);
};

}  // namespace zullib

// Generated PointCloud2 messages shaped like the common sensors, seeded, for the codec's tests,
// fuzz seeds and benchmarks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ros/cloud_message.h"

namespace zul::ros::testing {

enum class Sensor {
    // 64 x 1024, organised, x y z intensity(float) t(u32) reflectivity ring ambient(u16) range(u32)
    // in a 48-byte record with padding, NaN rows and scattered NaN points.
    OrganisedLidar,
    // 1 x N: x y z intensity ring time, all float32.
    FlatLidar,
    // H x W, organised: x y z float32, padding, packed rgb float32 in a 32-byte record; NaN
    // where the depth is missing.
    RgbCamera,
};

struct SensorShape {
    Sensor sensor;
    uint32_t height, width;  // FlatLidar: height 1
};

const char* sensorName(Sensor sensor);

// A message of the shape in the given serialisation; `bigEndianData` stores the values
// big-endian (is_bigendian 1).
PointCloud2 makeSensorMessage(const SensorShape& shape, Wire wire, bool bigEndianData,
                              uint32_t seed);

}  // namespace zul::ros::testing

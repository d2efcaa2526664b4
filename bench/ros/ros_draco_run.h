// Draco on the points of a PointCloud2, as the ROS transport that uses it stores them: the points
// with finite positions only, quantised at the given step, the other numeric fields as lossless
// generic attributes (or none).
#pragma once

#include <cstddef>

#include "ros/cloud_message.h"

struct DracoFigures {
    size_t bytes = 0;
    double encodeSeconds = 0, decodeSeconds = 0;
    size_t points = 0;
};

DracoFigures runDraco(const zul::ros::PointCloud2& message, double step, bool withFields,
                      int repeats);

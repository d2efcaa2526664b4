// The codec's promise, checked: a restored PointCloud2 equals the original byte for byte, its
// serialisation included, except the bytes of finite x, y, z values, which lie within half a step.
#pragma once

#include <string>

#include "ros/cloud_message.h"

namespace zul::ros::testing {

// "" if `restored` keeps the promise, else what differs first.
std::string differenceOf(const PointCloud2& original, const PointCloud2& restored, double step);

}  // namespace zul::ros::testing

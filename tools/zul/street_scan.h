// A deterministic, lidar-like scan for the demo: a spinning 64-beam sensor 1.8 m above a street
// with buildings, parked cars, poles and trees, traced ray by ray. Every point has an intensity
// (0 .. 255, from the material and the angle of incidence), a colour and a unit normal.
#pragma once

#include <vector>

#include "zul.h"

namespace zultool {

// Exactly `numPoints` points (beams that hit nothing give none), in the order the sensor
// produces them; the same points for the same count on every run.
std::vector<zul_Point> makeStreetScan(int numPoints);

}  // namespace zultool

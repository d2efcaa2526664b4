// A seeded, lidar-like scan: a spinning 64-beam sensor 1.8 m above a street with buildings,
// parked cars, poles and trees, traced ray by ray. Every point has an intensity (0 .. 255, from
// the material and the angle of incidence), a colour and a unit normal. The one synthetic cloud
// of the project: the tool's demo and the benchmarks both use it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "zul.h"

namespace zulsynth {

// The seed of `zul demo`'s scan.
constexpr uint64_t kStreetSeed = 2026;

// Hands `sink` exactly `numPoints` points (beams that hit nothing give none), in the order the
// sensor produces them. The seed places the buildings, cars and trees and draws the measurement
// noise: the same points for the same count and seed on every run and platform.
void traceStreetScan(int64_t numPoints, uint64_t seed,
                     const std::function<void(const zul_Point&)>& sink);

// The same points, collected.
std::vector<zul_Point> makeStreetScan(int64_t numPoints, uint64_t seed = kStreetSeed);

}  // namespace zulsynth

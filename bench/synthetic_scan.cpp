#include "synthetic_scan.h"

#include <cmath>
#include <random>

namespace {

const double kPi = 3.141592653589793;
const int kBeams = 64;
const double kSensorHeight = 1.8;

}  // namespace

zul_PointData SyntheticScan::slice(int first, int count) {
    zul_PointData data;
    data.numPoints = count;
    data.positions = positions.data() + 3 * static_cast<size_t>(first);
    data.colors = colors.data() + 3 * static_cast<size_t>(first);
    data.reflections = reflections.data() + first;
    data.normals = normals.data() + 3 * static_cast<size_t>(first);
    return data;
}

SyntheticScan makeSyntheticScan(int numPoints, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> rangeNoise(0.0, 0.01);
    std::normal_distribution<float> normalNoise(0.0f, 0.05f);
    std::uniform_int_distribution<int> speckle(-6, 6);

    SyntheticScan scan;
    scan.positions.reserve(3 * static_cast<size_t>(numPoints));
    scan.colors.reserve(3 * static_cast<size_t>(numPoints));
    scan.reflections.reserve(static_cast<size_t>(numPoints));
    scan.normals.reserve(3 * static_cast<size_t>(numPoints));
    const int columns = (numPoints + kBeams - 1) / kBeams;
    for (int column = 0; column < columns && scan.size() < numPoints; ++column) {
        const double azimuth = 2 * kPi * column / columns;
        const double dx = std::cos(azimuth), dy = std::sin(azimuth);
        // Walls of a street: about 12 m to each side, with recesses every few metres.
        const double wallDistance = 12.0 + 3.0 * std::floor(2.0 + 2.0 * std::sin(5 * azimuth));
        for (int beam = 0; beam < kBeams && scan.size() < numPoints; ++beam) {
            const double elevation = (-25.0 + 28.0 * beam / (kBeams - 1)) * kPi / 180.0;
            const double horizontal = std::cos(elevation), vertical = std::sin(elevation);
            double range = wallDistance / horizontal;
            bool ground = false;
            if (vertical < 0) {
                const double groundRange = kSensorHeight / -vertical;
                if (groundRange < range) {
                    range = groundRange;
                    ground = true;
                }
            }
            range += rangeNoise(random);
            const double x = range * horizontal * dx, y = range * horizontal * dy;
            const double z = kSensorHeight + range * vertical;
            scan.positions.insert(scan.positions.end(), {x, y, z});

            const int shade = ground ? 90 : 140 + static_cast<int>(20 * std::sin(3 * z));
            scan.colors.insert(scan.colors.end(),
                               {static_cast<uint8_t>(shade + speckle(random)),
                                static_cast<uint8_t>(shade - 10 + speckle(random)),
                                static_cast<uint8_t>(shade - 25 + speckle(random))});
            const int reflection = (ground ? 30 : 120) - static_cast<int>(range) + speckle(random);
            scan.reflections.push_back(reflection < 0 ? 0 : reflection > 255 ? 255 : reflection);
            const float nx = ground ? 0.0f : static_cast<float>(-dx);
            const float ny = ground ? 0.0f : static_cast<float>(-dy);
            const float nz = ground ? 1.0f : 0.0f;
            scan.normals.insert(
                scan.normals.end(),
                {nx + normalNoise(random), ny + normalNoise(random), nz + normalNoise(random)});
        }
    }
    return scan;
}

#include "synthetic/street_scan.h"

#include <algorithm>
#include <cmath>

namespace zulsynth {

namespace {

const double kPi = 3.141592653589793;
const int kBeams = 64;
const double kSensorHeight = 1.8;
const double kMaxRange = 120.0;

// Small deterministic noise, the same on every platform.
class Noise {
public:
    explicit Noise(uint64_t seed) : state_(seed) {}
    double uniform() {  // [0, 1)
        state_ += 0x9E3779B97F4A7C15ull;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return static_cast<double>((z ^ (z >> 31)) >> 11) * 0x1.0p-53;
    }
    // Roughly normal, of the given spread.
    double gauss(double sigma) { return sigma * (uniform() + uniform() + uniform() - 1.5) * 2.0; }

private:
    uint64_t state_;
};

struct Material {
    uint8_t red, green, blue;
    double reflectivity;  // 0 .. 1
};

const Material kAsphalt = {62, 64, 68, 0.25}, kPavement = {150, 146, 138, 0.45},
               kGlass = {90, 120, 140, 0.08}, kMetal = {170, 170, 175, 0.9},
               kBark = {90, 62, 40, 0.35}, kLeaves = {60, 120, 45, 0.5};
const Material kFacades[4] = {
    {190, 160, 120, 0.6}, {150, 80, 60, 0.55}, {210, 210, 200, 0.7}, {120, 130, 140, 0.5}};
const Material kCars[4] = {
    {180, 20, 30, 0.8}, {20, 40, 120, 0.8}, {230, 230, 230, 0.85}, {30, 30, 30, 0.6}};

struct Hit {
    double distance = kMaxRange;
    double normal[3] = {0, 0, 1};
    Material material = kAsphalt;
};

struct Box {
    double lo[3], hi[3];
    Material material;
    bool windows;  // a facade: glass in a grid of windows
};

struct Cylinder {  // vertical
    double x, y, radius, bottom, top;
    Material material;
};

struct Sphere {
    double center[3], radius;
    Material material;
};

struct Scene {
    std::vector<Box> boxes;
    std::vector<Cylinder> cylinders;
    std::vector<Sphere> spheres;
};

Scene buildStreet(uint64_t seed) {
    Scene scene;
    Noise noise(seed);
    for (int side = -1; side <= 1; side += 2) {
        // Buildings along the street, 8 to 20 m long, set back 0 to 2 m behind a 9 m line.
        for (double x = -80; x < 80;) {
            const double length = 8 + 12 * noise.uniform();
            const double setback = 9 + 2 * noise.uniform();
            const double height = 6 + 14 * noise.uniform();
            const double near = side * setback, far = side * (setback + 12);
            scene.boxes.push_back({{x, std::fmin(near, far), 0},
                                   {x + length - 0.5, std::fmax(near, far), height},
                                   kFacades[static_cast<int>(4 * noise.uniform())],
                                   true});
            x += length;
        }
        // Parked cars, poles and trees along the kerb.
        for (double x = -70; x < 70; x += 6 + 8 * noise.uniform()) {
            const double y = side * 5.0;
            scene.boxes.push_back({{x, y - 0.9, 0.15},
                                   {x + 4.2, y + 0.9, 1.5},
                                   kCars[static_cast<int>(4 * noise.uniform())],
                                   false});
        }
        for (double x = -75; x < 75; x += 15) {
            scene.cylinders.push_back({x, side * 7.0, 0.08, 0, 7, kMetal});
            scene.cylinders.push_back({x + 7, side * 7.2, 0.2, 0, 3.5, kBark});
            scene.spheres.push_back({{x + 7, side * 7.2, 4.8}, 2.0 + noise.uniform(), kLeaves});
        }
    }
    return scene;
}

void hitGround(const double o[3], const double d[3], Hit& hit) {
    if (d[2] >= 0) return;
    const double t = -o[2] / d[2];
    if (t >= hit.distance) return;
    const double y = o[1] + t * d[1];
    hit.distance = t;
    hit.normal[0] = hit.normal[1] = 0;
    hit.normal[2] = 1;
    hit.material = std::fabs(y) < 6 ? kAsphalt : kPavement;
}

void hitBox(const Box& box, const double o[3], const double d[3], Hit& hit) {
    double enter = 0, leave = hit.distance;
    int axis = -1;
    for (int a = 0; a < 3; ++a) {
        if (d[a] == 0) {
            if (o[a] < box.lo[a] || o[a] > box.hi[a]) return;
            continue;
        }
        double t0 = (box.lo[a] - o[a]) / d[a], t1 = (box.hi[a] - o[a]) / d[a];
        if (t0 > t1) std::swap(t0, t1);
        if (t0 > enter) {
            enter = t0;
            axis = a;
        }
        leave = std::fmin(leave, t1);
        if (enter > leave) return;
    }
    if (axis < 0 || enter >= hit.distance) return;
    hit.distance = enter;
    hit.normal[0] = hit.normal[1] = hit.normal[2] = 0;
    hit.normal[axis] = d[axis] > 0 ? -1 : 1;
    hit.material = box.material;
    if (box.windows && axis == 1) {
        // Windows of 1.2 x 1.5 m on a grid of 3 x 3 m, from the first floor up.
        const double x = o[0] + enter * d[0], z = o[2] + enter * d[2];
        if (z > 3 && std::fmod(x - box.lo[0], 3.0) > 0.9 && std::fmod(x - box.lo[0], 3.0) < 2.1 &&
            std::fmod(z, 3.0) > 0.8 && std::fmod(z, 3.0) < 2.3) {
            hit.material = kGlass;
        }
    }
}

void hitCylinder(const Cylinder& c, const double o[3], const double d[3], Hit& hit) {
    const double px = o[0] - c.x, py = o[1] - c.y;
    const double a = d[0] * d[0] + d[1] * d[1];
    if (a == 0) return;
    const double b = px * d[0] + py * d[1];
    const double disc = b * b - a * (px * px + py * py - c.radius * c.radius);
    if (disc < 0) return;
    const double t = (-b - std::sqrt(disc)) / a;
    if (t <= 0 || t >= hit.distance) return;
    const double z = o[2] + t * d[2];
    if (z < c.bottom || z > c.top) return;
    hit.distance = t;
    hit.normal[0] = (px + t * d[0]) / c.radius;
    hit.normal[1] = (py + t * d[1]) / c.radius;
    hit.normal[2] = 0;
    hit.material = c.material;
}

void hitSphere(const Sphere& s, const double o[3], const double d[3], Hit& hit) {
    const double p[3] = {o[0] - s.center[0], o[1] - s.center[1], o[2] - s.center[2]};
    const double b = p[0] * d[0] + p[1] * d[1] + p[2] * d[2];
    const double disc = b * b - (p[0] * p[0] + p[1] * p[1] + p[2] * p[2] - s.radius * s.radius);
    if (disc < 0) return;
    const double t = -b - std::sqrt(disc);
    if (t <= 0 || t >= hit.distance) return;
    hit.distance = t;
    for (int a = 0; a < 3; ++a) hit.normal[a] = (p[a] + t * d[a]) / s.radius;
    hit.material = s.material;
}

}  // namespace

void traceStreetScan(int64_t numPoints, uint64_t seed,
                     const std::function<void(const zul_Point&)>& sink) {
    const Scene scene = buildStreet(seed);
    Noise noise(seed);
    int64_t traced = 0;
    // About 85 % of the beams hit something; enough columns for the count in one turn.
    const int64_t columns =
        std::max<int64_t>(1, static_cast<int64_t>(numPoints / (0.85 * kBeams)) + 1);
    const double origin[3] = {0, 0, kSensorHeight};
    for (int turn = 0; traced < numPoints; ++turn) {
        for (int64_t column = 0; column < columns && traced < numPoints; ++column) {
            const double azimuth =
                2 * kPi * (static_cast<double>(column) + 0.5 * turn) / static_cast<double>(columns);
            for (int beam = 0; beam < kBeams && traced < numPoints; ++beam) {
                const double elevation = (-25.0 + 28.0 * beam / (kBeams - 1)) * kPi / 180.0;
                const double d[3] = {std::cos(elevation) * std::cos(azimuth),
                                     std::cos(elevation) * std::sin(azimuth), std::sin(elevation)};
                Hit hit;
                hitGround(origin, d, hit);
                for (const Box& box : scene.boxes) hitBox(box, origin, d, hit);
                for (const Cylinder& c : scene.cylinders) hitCylinder(c, origin, d, hit);
                for (const Sphere& s : scene.spheres) hitSphere(s, origin, d, hit);
                if (hit.distance >= kMaxRange) continue;
                const double range = hit.distance + noise.gauss(0.01);
                zul_Point p = {};
                for (int a = 0; a < 3; ++a) p.position[a] = origin[a] + range * d[a];
                const double incidence =
                    std::fabs(d[0] * hit.normal[0] + d[1] * hit.normal[1] + d[2] * hit.normal[2]);
                const double strength = hit.material.reflectivity * (0.3 + 0.7 * incidence) *
                                        (1.0 - 0.5 * range / kMaxRange);
                p.reflection = static_cast<int32_t>(
                    std::fmin(255.0, std::fmax(0.0, 255.0 * strength + noise.gauss(3.0))));
                const uint8_t base[3] = {hit.material.red, hit.material.green, hit.material.blue};
                const double shade = 0.85 + 0.15 * incidence + noise.gauss(0.03);
                for (int c = 0; c < 3; ++c) {
                    p.color[c] =
                        static_cast<uint8_t>(std::fmin(255.0, std::fmax(0.0, base[c] * shade)));
                }
                double n[3], length = 0;
                for (int a = 0; a < 3; ++a) {
                    n[a] = hit.normal[a] + noise.gauss(0.03);
                    length += n[a] * n[a];
                }
                length = std::sqrt(length);
                for (int a = 0; a < 3; ++a) p.normal[a] = static_cast<float>(n[a] / length);
                sink(p);
                ++traced;
            }
        }
    }
}

std::vector<zul_Point> makeStreetScan(int64_t numPoints, uint64_t seed) {
    std::vector<zul_Point> points;
    points.reserve(static_cast<size_t>(std::max<int64_t>(numPoints, 0)));
    traceStreetScan(numPoints, seed, [&](const zul_Point& p) { points.push_back(p); });
    return points;
}

}  // namespace zulsynth

#include "sensor_messages.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "ros/byte_order.h"
#include "ros/cloud_layout.h"

namespace zul::ros::testing {

namespace {

struct Writer {
    PointCloud2& message;
    bool big;
    uint8_t* at(uint64_t i, uint32_t offset) {
        const CloudDescription& c = message.cloud;
        return message.data.data() + (i / c.width) * c.rowStep + (i % c.width) * c.pointStep +
               offset;
    }
    void f32(uint64_t i, uint32_t offset, float value) {
        uint32_t bits;
        std::memcpy(&bits, &value, 4);
        store<uint32_t>(at(i, offset), bits, big);
    }
    void u32(uint64_t i, uint32_t offset, uint32_t value) {
        store<uint32_t>(at(i, offset), value, big);
    }
    void u16(uint64_t i, uint32_t offset, uint16_t value) {
        store<uint16_t>(at(i, offset), value, big);
    }
};

void describe(PointCloud2& m, Wire wire, bool big, uint32_t height, uint32_t width,
              uint32_t pointStep, std::vector<PointField> fields, uint32_t seed) {
    CloudDescription& c = m.cloud;
    c.wire = wire;
    c.header.seq = seed;
    c.header.sec = 1700000000u + seed;
    c.header.nanosec = 123456789u;
    c.header.frameId = "os_sensor";
    c.height = height;
    c.width = width;
    c.fields = std::move(fields);
    c.isBigendian = big ? 1 : 0;
    c.pointStep = pointStep;
    c.rowStep = pointStep * width;
    c.isDense = 0;
    m.data.assign(uint64_t(c.rowStep) * height, 0);
}

const float kNaN = std::numeric_limits<float>::quiet_NaN();

void organisedLidar(PointCloud2& m, Writer& w, std::mt19937& random) {
    std::uniform_real_distribution<float> noise(-0.01f, 0.01f);
    const uint32_t rows = m.cloud.height, cols = m.cloud.width;
    for (uint32_t r = 0; r < rows; ++r) {
        const float elevation = (float(r) - rows / 2.0f) * 0.006f;
        const bool nanRow = r % 16 == 5;
        for (uint32_t col = 0; col < cols; ++col) {
            const uint64_t i = uint64_t(r) * cols + col;
            const float azimuth = float(col) * 6.2831853f / float(cols);
            const float range =
                8.0f + 6.0f * std::sin(azimuth * 3.0f) + float(r) * 0.05f + noise(random);
            const bool nan = nanRow || random() % 50 == 0;
            w.f32(i, 0, nan ? kNaN : range * std::cos(azimuth) * std::cos(elevation));
            w.f32(i, 4, nan ? kNaN : range * std::sin(azimuth) * std::cos(elevation));
            w.f32(i, 8, nan ? kNaN : range * std::sin(elevation));
            w.f32(i, 16, nan ? 0.0f : float(random() % 3000));
            w.u32(i, 20, col * 48828u);
            w.u16(i, 24, uint16_t(nan ? 0 : random() % 256));
            w.u16(i, 26, uint16_t(r));
            w.u16(i, 28, uint16_t(200 + random() % 400));
            w.u32(i, 32, nan ? 0u : uint32_t(range * 1000.0f));
        }
    }
}

void flatLidar(PointCloud2& m, Writer& w, std::mt19937& random) {
    std::uniform_real_distribution<float> noise(-0.02f, 0.02f);
    const uint32_t rings = 32, n = m.cloud.width;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t ring = i % rings, step = i / rings;
        const float azimuth = float(step) * 0.0035f, elevation = (float(ring) - 16.0f) * 0.02f;
        const float range = 12.0f + 4.0f * std::cos(azimuth * 2.0f) + noise(random);
        w.f32(i, 0, range * std::cos(azimuth) * std::cos(elevation));
        w.f32(i, 4, range * std::sin(azimuth) * std::cos(elevation));
        w.f32(i, 8, range * std::sin(elevation));
        w.f32(i, 12, float(random() % 256));
        w.f32(i, 16, float(ring));
        w.f32(i, 20, float(step) * 5.5e-5f);
    }
}

void rgbCamera(PointCloud2& m, Writer& w, std::mt19937& random) {
    const uint32_t rows = m.cloud.height, cols = m.cloud.width;
    for (uint32_t r = 0; r < rows; ++r) {
        for (uint32_t c = 0; c < cols; ++c) {
            const uint64_t i = uint64_t(r) * cols + c;
            const float depth = 1.5f + 0.002f * float(c) + 0.1f * std::sin(float(r) * 0.05f);
            const bool nan = (r * 7 + c * 3) % 97 == 0 || (c < 8 && r > rows / 2);
            const float u = (float(c) - cols / 2.0f) / 525.0f,
                        v = (float(r) - rows / 2.0f) / 525.0f;
            w.f32(i, 0, nan ? kNaN : u * depth);
            w.f32(i, 4, nan ? kNaN : v * depth);
            w.f32(i, 8, nan ? kNaN : depth);
            const uint32_t rgb = uint32_t(120 + r % 100) << 16 | uint32_t(60 + c % 150) << 8 |
                                 uint32_t(random() % 8 + 30);
            float packed;
            std::memcpy(&packed, &rgb, 4);
            w.f32(i, 16, packed);
        }
    }
}

}  // namespace

const char* sensorName(Sensor sensor) {
    switch (sensor) {
        case Sensor::OrganisedLidar:
            return "organised_lidar";
        case Sensor::FlatLidar:
            return "flat_lidar";
        default:
            return "rgb_camera";
    }
}

PointCloud2 makeSensorMessage(const SensorShape& shape, Wire wire, bool bigEndianData,
                              uint32_t seed) {
    PointCloud2 m;
    std::mt19937 random(seed);
    Writer w{m, bigEndianData};
    switch (shape.sensor) {
        case Sensor::OrganisedLidar:
            describe(m, wire, bigEndianData, shape.height, shape.width, 48,
                     {{"x", 0, kFloat32, 1},
                      {"y", 4, kFloat32, 1},
                      {"z", 8, kFloat32, 1},
                      {"intensity", 16, kFloat32, 1},
                      {"t", 20, kUint32, 1},
                      {"reflectivity", 24, kUint16, 1},
                      {"ring", 26, kUint16, 1},
                      {"ambient", 28, kUint16, 1},
                      {"range", 32, kUint32, 1}},
                     seed);
            organisedLidar(m, w, random);
            break;
        case Sensor::FlatLidar:
            describe(m, wire, bigEndianData, 1, shape.width, 24,
                     {{"x", 0, kFloat32, 1},
                      {"y", 4, kFloat32, 1},
                      {"z", 8, kFloat32, 1},
                      {"intensity", 12, kFloat32, 1},
                      {"ring", 16, kFloat32, 1},
                      {"time", 20, kFloat32, 1}},
                     seed);
            m.cloud.isDense = 1;
            flatLidar(m, w, random);
            break;
        case Sensor::RgbCamera:
            describe(m, wire, bigEndianData, shape.height, shape.width, 32,
                     {{"x", 0, kFloat32, 1},
                      {"y", 4, kFloat32, 1},
                      {"z", 8, kFloat32, 1},
                      {"rgb", 16, kFloat32, 1}},
                     seed);
            rgbCamera(m, w, random);
            break;
    }
    // Padding bytes as a driver leaves them: not always zero.
    std::uniform_int_distribution<int> byte(0, 255);
    const CloudDescription& c = m.cloud;
    if (shape.sensor != Sensor::FlatLidar) {
        for (uint64_t i = 0; i < uint64_t(c.height) * c.width; i += 97)
            *w.at(i, 13) = uint8_t(byte(random));
    }
    return m;
}

}  // namespace zul::ros::testing

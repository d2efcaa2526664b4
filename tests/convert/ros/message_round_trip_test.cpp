// Sensor-shaped messages through compress and decompress, in every serialisation and both data
// byte orders: the message comes back byte for byte but for the positions, which lie within half a
// step.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "byte_order.h"
#include "cloud_layout.h"
#include "point_access.h"
#include "sensor_messages.h"
#include "zul_ros.h"

namespace zul::ros {
namespace {

using testing::Sensor;
using testing::SensorShape;

// Every byte of `restored` equals `original`'s but those of finite x, y, z, which lie within
// half a step; NaN positions keep their bits.
::testing::AssertionResult sameCloud(const PointCloud2& original, const PointCloud2& restored,
                                     double step) {
    PointCloud2 framing = restored;
    framing.data = original.data;
    if (writePointCloud2(framing) != writePointCloud2(original))
        return ::testing::AssertionFailure() << "the message's fields around its data differ";
    if (restored.data.size() != original.data.size())
        return ::testing::AssertionFailure()
               << "data of " << restored.data.size() << " bytes, not " << original.data.size();
    const CloudLayout layout = layOutCloud(original.cloud, original.data.size(), false);
    std::vector<uint8_t> expected = original.data, got = restored.data;
    const double half = double(float(step)) * 0.5;
    const CloudDescription& c = original.cloud;
    for (uint64_t i = 0; i < layout.points && layout.hasPositions; ++i) {
        const uint64_t at = (i / c.width) * c.rowStep + (i % c.width) * c.pointStep;
        for (const StreamField& axis : layout.position) {
            const double a = loadReal(&expected[at + axis.offset], axis.datatype, layout.bigEndian);
            const double b = loadReal(&got[at + axis.offset], axis.datatype, layout.bigEndian);
            if (std::isfinite(a) && !(std::fabs(a - b) <= half))
                return ::testing::AssertionFailure()
                       << "point " << i << " " << axis.role << ": " << a << " came back " << b;
            if (std::isfinite(a))
                std::memset(&got[at + axis.offset], 0, datatypeSize(axis.datatype)),
                    std::memset(&expected[at + axis.offset], 0, datatypeSize(axis.datatype));
        }
    }
    for (size_t b = 0; b < expected.size(); ++b) {
        if (expected[b] != got[b])
            return ::testing::AssertionFailure()
                   << "data byte " << b << " (point " << (b % c.rowStep) / std::max(1u, c.pointStep)
                   << " of row " << b / std::max(1u, c.rowStep) << ", record byte "
                   << (b % c.rowStep) % std::max(1u, c.pointStep) << "): " << int(expected[b])
                   << " came back " << int(got[b]);
    }
    return ::testing::AssertionSuccess();
}

struct Case {
    SensorShape shape;
    Wire wire;
    bool bigEndianData;
    double step;
    uint32_t chunkPoints;
};

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
    static const char* wires[3] = {"ros1", "cdr_le", "cdr_be"};
    const Case& c = info.param;
    return std::string(testing::sensorName(c.shape.sensor)) + "_" + wires[int(c.wire)] +
           (c.bigEndianData ? "_bigdata" : "") + "_step_um" +
           std::to_string(int(std::lround(c.step * 1e6))) + "_chunk" +
           std::to_string(c.chunkPoints);
}

class MessageRoundTrip : public ::testing::TestWithParam<Case> {};

TEST_P(MessageRoundTrip, ComesBackWithEveryField) {
    const Case& c = GetParam();
    const PointCloud2 original = testing::makeSensorMessage(c.shape, c.wire, c.bigEndianData, 7);
    const std::vector<uint8_t> bytes = writePointCloud2(original);
    const Serialization family = c.wire == Wire::Ros1 ? Serialization::Ros1 : Serialization::Ros2;
    EncodeOptions options;
    options.step = c.step;
    options.chunkPoints = c.chunkPoints;
    const std::vector<uint8_t> compressed =
        compressMessage(bytes.data(), bytes.size(), family, options);
    const CompressedPointCloud2 parsed =
        readCompressedPointCloud2(compressed.data(), compressed.size(), family);
    EXPECT_EQ(parsed.format, "zul");
    EXPECT_EQ(parsed.cloud.wire, c.wire);
    const std::vector<uint8_t> back =
        decompressMessage(compressed.data(), compressed.size(), family);
    EXPECT_EQ(back.size(), bytes.size());
    EXPECT_TRUE(sameCloud(original, readPointCloud2(back.data(), back.size(), family), c.step));
}

std::vector<Case> cases() {
    std::vector<Case> all;
    const SensorShape shapes[3] = {{Sensor::OrganisedLidar, 64, 1024},
                                   {Sensor::FlatLidar, 1, 30000},
                                   {Sensor::RgbCamera, 120, 160}};
    for (const SensorShape& shape : shapes)
        for (Wire wire : {Wire::Ros1, Wire::CdrLittle, Wire::CdrBig})
            all.push_back({shape, wire, wire == Wire::CdrBig, 0.001, 0});
    // Coarse and fine steps, small and whole-message chunks.
    all.push_back({shapes[0], Wire::CdrLittle, false, 0.05, 1});
    all.push_back({shapes[0], Wire::CdrLittle, false, 1e-6, 65536});
    all.push_back({shapes[2], Wire::Ros1, false, 0.01, 777});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Sensors, MessageRoundTrip, ::testing::ValuesIn(cases()), caseName);

}  // namespace
}  // namespace zul::ros

// Sensor-shaped messages through compress and decompress, in every serialisation and both data
// byte orders: the message comes back byte for byte but for the positions, which lie within half a
// step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "ros/byte_order.h"
#include "ros/cloud_layout.h"
#include "ros/point_access.h"
#include "ros/sample/cloud_compare.h"
#include "ros/sample/sensor_messages.h"
#include "ros/zul_ros.h"

namespace zul::ros {
namespace {

using testing::Sensor;
using testing::SensorShape;

::testing::AssertionResult sameCloud(const PointCloud2& original, const PointCloud2& restored,
                                     double step) {
    const std::string difference = testing::differenceOf(original, restored, step);
    if (difference.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << difference;
}

struct Case {
    SensorShape shape;
    Wire wire;
    bool bigEndianData;
    double step;
    uint32_t chunkPoints;
    bool companion = true;
    bool predict = true;  // false: as writers before predictions made them
    bool radial = false;
};

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
    static const char* wires[3] = {"ros1", "cdr_le", "cdr_be"};
    const Case& c = info.param;
    return std::string(testing::sensorName(c.shape.sensor)) + "_" + wires[int(c.wire)] +
           (c.bigEndianData ? "_bigdata" : "") + "_step_um" +
           std::to_string(int(std::lround(c.step * 1e6))) + "_chunk" +
           std::to_string(c.chunkPoints) + (c.companion ? "" : "_lean") +
           (c.predict ? "" : "_unpredicted") + (c.radial ? "_radial" : "");
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
    options.companion = c.companion;
    options.predict = c.predict;
    options.radialPrediction = c.radial;
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
    // The stream's points' other fields in the message's own columns instead of a companion.
    for (const SensorShape& shape : shapes)
        all.push_back({shape, Wire::CdrBig, true, 0.001, 0, false});
    for (const SensorShape& shape : shapes)
        all.push_back({shape, Wire::CdrLittle, false, 0.001, 0, true, false});
    // The lidar's range from the distance to the origin, at a fine and a coarse step.
    for (Wire wire : {Wire::Ros1, Wire::CdrBig})
        all.push_back({shapes[0], wire, wire == Wire::CdrBig, 0.001, 0, true, true, true});
    all.push_back({shapes[0], Wire::CdrLittle, false, 0.05, 0, true, true, true});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Sensors, MessageRoundTrip, ::testing::ValuesIn(cases()), caseName);

void setFloat(PointCloud2& m, uint64_t point, uint32_t offset, float value) {
    const CloudDescription& c = m.cloud;
    uint8_t* at = m.data.data() + (point / c.width) * c.rowStep + (point % c.width) * c.pointStep;
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    store<uint32_t>(at + offset, bits, c.isBigendian != 0);
}

// The lidar's intensity as a field of another type, point 9's four bytes there set to `bits`
// (when given).
std::function<void(PointCloud2&)> intensityAs(uint8_t datatype, int64_t bits = -1) {
    return [datatype, bits](PointCloud2& m) {
        m.cloud.fields[3] = {"intensity", 16, datatype, 1};
        if (bits < 0) return;
        float value;
        const uint32_t word = uint32_t(bits);
        std::memcpy(&value, &word, 4);
        setFloat(m, 9, 16, value);
    };
}

// The lidar's x, y and z with `fields` after them in records of `pointStep` bytes, every other
// byte (padding) of a pattern.
PointCloud2 withPadding(const PointCloud2& m, const std::vector<PointField>& fields,
                        uint32_t pointStep) {
    PointCloud2 out = m;
    out.cloud.fields = {{"x", 0, kFloat32, 1}, {"y", 4, kFloat32, 1}, {"z", 8, kFloat32, 1}};
    out.cloud.fields.insert(out.cloud.fields.end(), fields.begin(), fields.end());
    out.cloud.pointStep = pointStep;
    out.cloud.rowStep = pointStep * m.cloud.width;
    out.data.assign(uint64_t(out.cloud.rowStep) * m.cloud.height, 0);
    for (uint64_t i = 0; i < uint64_t(m.cloud.height) * m.cloud.width; ++i) {
        std::memcpy(&out.data[i * pointStep], &m.data[i * 48], 12);
        for (uint32_t b = 12; b < pointStep; ++b)
            out.data[i * pointStep + b] = uint8_t(i * 31 + b * 7);
    }
    return out;
}

// Clouds off the common path: each comes back as it went in, through both serialisations.
struct Quirk {
    const char* name;
    Sensor sensor;
    std::function<void(PointCloud2&)> change;
    bool intensityInStream;
};

class QuirkRoundTrip : public ::testing::TestWithParam<Quirk> {};

TEST_P(QuirkRoundTrip, ComesBackAsItWent) {
    for (Wire wire : {Wire::Ros1, Wire::CdrBig}) {
        for (const bool bigEndianData : {false, true}) {
            for (bool withCompanion : {true, false}) {
                const SensorShape shape = GetParam().sensor == Sensor::RgbCamera
                                              ? SensorShape{Sensor::RgbCamera, 12, 20}
                                              : SensorShape{GetParam().sensor, 8, 64};
                PointCloud2 original = testing::makeSensorMessage(shape, wire, bigEndianData, 11);
                GetParam().change(original);
                EncodeOptions options;
                options.companion = withCompanion;
                const CompressedPointCloud2 compressed = compressCloud(original, options);
                // compressed_data's flag 1: the intensity is in the stream.
                const bool intensityInStream = (compressed.compressedData[5] & 1) != 0;
                if (GetParam().sensor != Sensor::RgbCamera) {
                    EXPECT_EQ(intensityInStream, GetParam().intensityInStream);
                }
                const std::vector<uint8_t> bytes = writeCompressedPointCloud2(compressed);
                const Serialization family =
                    wire == Wire::Ros1 ? Serialization::Ros1 : Serialization::Ros2;
                const std::vector<uint8_t> back =
                    decompressMessage(bytes.data(), bytes.size(), family);
                EXPECT_EQ(back, writePointCloud2(decompressCloud(compressed)));
                EXPECT_TRUE(
                    sameCloud(original, readPointCloud2(back.data(), back.size(), family), 0.001));
            }
        }
    }
}

const Quirk kQuirks[] = {
    {"fractional_intensity", Sensor::OrganisedLidar,
     [](PointCloud2& m) { setFloat(m, 5, 16, 0.5f); }, false},
    {"negative_intensity", Sensor::OrganisedLidar,
     [](PointCloud2& m) { setFloat(m, 9, 16, -1.0f); }, false},
    {"negative_zero_intensity", Sensor::OrganisedLidar,
     [](PointCloud2& m) { setFloat(m, 9, 16, -0.0f); }, false},
    {"flat_intensity", Sensor::FlatLidar, [](PointCloud2&) {}, true},
    {"row_padding_and_trailing_data", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         PointCloud2 padded = m;
         padded.cloud.rowStep = m.cloud.rowStep + 10;
         padded.data.assign(uint64_t(padded.cloud.rowStep) * m.cloud.height + 5, 0xa5);
         for (uint32_t r = 0; r < m.cloud.height; ++r)
             std::memcpy(&padded.data[r * padded.cloud.rowStep], &m.data[r * m.cloud.rowStep],
                         m.cloud.rowStep);
         padded.data[padded.cloud.rowStep - 1] = 7;
         m = padded;
     },
     true},
    {"no_positions", Sensor::OrganisedLidar, [](PointCloud2& m) { m.cloud.fields[0].name = "px"; },
     false},
    {"far_and_infinite_points", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         setFloat(m, 3, 0, 1e30f);
         setFloat(m, 4, 4, 30000.3f);
         setFloat(m, 6, 8, -std::numeric_limits<float>::infinity());
         setFloat(m, 7, 0, std::numeric_limits<float>::quiet_NaN());
     },
     true},
    {"same_place_other_colours", Sensor::RgbCamera,
     [](PointCloud2& m) {
         for (uint64_t i = 30; i < 40; ++i)
             for (uint32_t k = 0; k < 3; ++k) setFloat(m, i, 4 * k, 0.25f);
     },
     true},
    {"no_points", Sensor::OrganisedLidar,
     [](PointCloud2& m) { m.cloud.height = 0, m.data.resize(17); }, false},
    {"cdr_padding_after_message", Sensor::OrganisedLidar,
     [](PointCloud2& m) { m.cloud.trailingBytes = isCdr(m.cloud.wire) ? 3 : 0; }, true},
    {"field_of_three_values", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         m.cloud.fields.push_back({"normal", 36, kFloat32, 3});
         for (uint64_t i = 0; i < 512; ++i)
             for (uint32_t k = 0; k < 3; ++k) setFloat(m, i, 36 + 4 * k, float(i % 7) * 0.1f + k);
     },
     true},
    {"float64_positions_far_from_origin", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         PointCloud2 wide = m;
         wide.cloud.fields = {{"x", 0, kFloat64, 1},
                              {"y", 8, kFloat64, 1},
                              {"z", 16, kFloat64, 1},
                              {"ring", 24, kUint16, 1}};
         wide.cloud.pointStep = 32;
         wide.cloud.rowStep = 32 * m.cloud.width;
         wide.data.assign(uint64_t(wide.cloud.rowStep) * m.cloud.height, 0);
         const bool big = m.cloud.isBigendian != 0;
         for (uint64_t i = 0; i < uint64_t(m.cloud.height) * m.cloud.width; ++i) {
             const uint8_t* from = &m.data[i * 48];
             uint8_t* to = &wide.data[i * 32];
             for (int k = 0; k < 3; ++k) {
                 const double v = loadReal(from + 4 * k, kFloat32, big);
                 // UTM-like coordinates: half a step at 1 mm is far below a float's reach here.
                 storeReal(to + 8 * k, kFloat64, big,
                           v + (k == 0   ? 512345.678901
                                : k == 1 ? 5412345.6789
                                         : 0));
             }
             std::memcpy(to + 24, from + 26, 2);
         }
         m = wide;
     },
     false},
    // Names the companion cannot take as they are (a NUL inside, other bytes, a clash with the
    // names it is given instead; the fuzz target found the first).
    {"odd_field_names", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         m.cloud.fields[6].name = std::string("r\0ng", 4);
         m.cloud.fields[7].name = "\xff\xfe";
         m.cloud.fields[8].name = "#5.0";
     },
     true},
    // Runs of padding 17, 18, 20 and 24 bytes wide between one-byte fields: the companion moved
    // such runs as two-, four- or eight-byte values reversed (found by the fuzz target).
    {"padding_of_odd_widths", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         m = withPadding(m, {{"a", 29, kUint8, 1}, {"b", 48, kUint8, 1}, {"c", 69, kUint8, 1}}, 94);
     },
     false},
    // Runs of 12 and 16 bytes, which move by loops of their own.
    {"padding_of_12_and_16", Sensor::OrganisedLidar,
     [](PointCloud2& m) {
         m = withPadding(m, {{"a", 24, kUint8, 1}, {"b", 41, kUint8, 1}}, 48);
     },
     false},
    // The intensity in the stream, written back by a loop for each type.
    {"uint8_intensity", Sensor::OrganisedLidar, intensityAs(kUint8), true},
    {"uint16_intensity", Sensor::OrganisedLidar, intensityAs(kUint16), true},
    {"int32_intensity", Sensor::OrganisedLidar, intensityAs(kInt32), true},
    // One value below 0 or above 2^31 - 1 keeps the intensity out of the stream.
    {"negative_int8_intensity", Sensor::OrganisedLidar, intensityAs(kInt8, 0x80808080u), false},
    {"negative_int16_intensity", Sensor::OrganisedLidar, intensityAs(kInt16, 0x80008000u), false},
    {"uint32_intensity_of_2_to_31", Sensor::OrganisedLidar, intensityAs(kUint32, 0x80000000u),
     false},
};

INSTANTIATE_TEST_SUITE_P(Quirks, QuirkRoundTrip, ::testing::ValuesIn(kQuirks),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zul::ros

// Encode and decode in memory over every attribute combination and every kind of frame: the
// decoded chunk holds the same multiset of points as the input, each reduced exactly as its mode
// says, and a version 2 stream's matrix moves them exactly as it should.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "encoder/quantize.h"
#include "support/stream_codec.h"

namespace {

const float kStep = 0.001f;
const int kMaxReflection = 1000;

struct Frame {
    const char* name;
    bool version2, hasScaling, hasRotation, hasTranslation;
    double matrix[16];
    // Where the matrix takes a stored position and a stored normal, computed by hand.
    std::function<void(const double*, double*)> position;
    std::function<void(const float*, float*)> normal;
    bool exact;  // false: the matrix has irrational elements; compared within rounding
};

void keepPosition(const double* in, double* out) { std::copy(in, in + 3, out); }
void keepNormal(const float* in, float* out) { std::copy(in, in + 3, out); }

const double kCos30 = std::cos(M_PI / 6), kSin30 = std::sin(M_PI / 6);
const double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// clang-format off
const Frame kFrames[] = {
    {"Version1", false, false, false, false, {}, keepPosition, keepNormal, true},
    {"Scale", true, true, false, false, {0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1},
     [](const double* p, double* q) { for (int k = 0; k < 3; ++k) q[k] = p[k] * 0.5; }, keepNormal, true},
    {"Translation", true, false, false, true, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 20, -30, 1},
     [](const double* p, double* q) { q[0] = p[0] + 10, q[1] = p[1] + 20, q[2] = p[2] - 30; }, keepNormal, true},
    // A quarter turn about z with the scale 2 and a translation: normals turn and keep length 1.
    {"QuarterTurnScaledAndMoved", true, true, true, true, {0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 2, 0, 1, 2, 3, 1},
     [](const double* p, double* q) { q[0] = -2 * p[1] + 1, q[1] = 2 * p[0] + 2, q[2] = 2 * p[2] + 3; },
     [](const float* n, float* m) { m[0] = -n[1], m[1] = n[0], m[2] = n[2]; }, true},
    {"ThirtyDegreesAboutX", true, false, true, false, {1, 0, 0, 0, 0, kCos30, kSin30, 0, 0, -kSin30, kCos30, 0, 0, 0, 0, 1},
     [](const double* p, double* q) { q[0] = p[0], q[1] = kCos30 * p[1] - kSin30 * p[2], q[2] = kSin30 * p[1] + kCos30 * p[2]; },
     [](const float* n, float* m) {
         m[0] = n[0];
         m[1] = static_cast<float>(kCos30 * n[1] - kSin30 * n[2]);
         m[2] = static_cast<float>(kSin30 * n[1] + kCos30 * n[2]);
     }, false},
};
// clang-format on

struct Case {
    std::string name;
    zul_DataType dataType;
    const Frame* frame;
};

std::vector<Case> allCases() {
    std::vector<Case> cases;
    const char* colorNames[] = {"NoColor", "Rgb565", "Rgb888"};
    for (const Frame& frame : kFrames)
        for (int color = 0; color < 3; ++color)
            for (int reflection = 0; reflection < 2; ++reflection)
                for (int normals = 0; normals < 2; ++normals)
                    cases.push_back({std::string(colorNames[color]) +
                                         (reflection ? "Reflection" : "") +
                                         (normals ? "Normals_" : "_") + frame.name,
                                     makeDataType(kStep, static_cast<zul_ColorMode>(color),
                                                  reflection ? kMaxReflection : 0, normals != 0),
                                     &frame});
    return cases;
}

// Points off the grid by less than half a step, so that each one's grid index is known; some of
// them repeated, some far from the origin, the normals' poles and axes among the directions.
PointCloud makeCloud(std::mt19937& random, int numPoints) {
    std::uniform_int_distribution<long long> near(-5000, 5000);
    std::uniform_real_distribution<double> jitter(-0.4, 0.4);
    std::uniform_int_distribution<int> byte(0, 255), reflection(-50, kMaxReflection + 50);
    std::uniform_real_distribution<float> unit(-1, 1);
    const float axes[][3] = {{0, 0, 1}, {0, 0, -1}, {1, 0, 0}, {0, -1, 0}};
    PointCloud c;
    for (int i = 0; i < numPoints; ++i) {
        if (i % 10 == 9) {  // a duplicate of an earlier point, attributes and all
            const int j = std::uniform_int_distribution<int>(0, i - 1)(random);
            c.add(c.positions[3 * j], c.positions[3 * j + 1], c.positions[3 * j + 2],
                  {c.colors[3 * j], c.colors[3 * j + 1], c.colors[3 * j + 2]}, c.reflections[j],
                  {c.normals[3 * j], c.normals[3 * j + 1], c.normals[3 * j + 2]});
            continue;
        }
        const long long index[3] = {near(random) + 123456789, near(random) / 7, -near(random)};
        double p[3];
        for (int k = 0; k < 3; ++k) p[k] = (index[k] + jitter(random)) * kStep;
        float normal[3] = {unit(random), unit(random), unit(random)};
        if (i < 4) std::copy(axes[i], axes[i] + 3, normal);
        c.add(p[0], p[1], p[2],
              {static_cast<uint8_t>(byte(random)), static_cast<uint8_t>(byte(random)),
               static_cast<uint8_t>(byte(random))},
              reflection(random), normal);
    }
    return c;
}

// A point of the stored frame in comparable form: grid indices, colour, reflection, normal cell.
using Key = std::tuple<long long, long long, long long, int, int, int, int, int, int>;

// The key of point i, as the input says it is to be kept (`input`), or as decoded; a decoded
// position must be exactly index times step, a decoded normal a unit vector.
Key keyOf(const zul_DataType& type, const zul_PointData& points, int i, bool input) {
    long long index[3];
    for (int k = 0; k < 3; ++k) {
        const double position = points.positions[3 * i + k];
        index[k] = std::llround(position / static_cast<double>(kStep));
        if (!input) {
            EXPECT_EQ(position, static_cast<double>(index[k]) * static_cast<double>(kStep));
        }
    }
    int rgb[3] = {0, 0, 0}, reflection = 0;
    for (int c = 0; c < 3 && type.colorMode != zul_COLOR_NONE; ++c) {
        const int v = points.colors[3 * i + c];
        rgb[c] = !input || type.colorMode == zul_COLOR_RGB888 ? v
                 : c == 1                                     ? (v >> 2) * 4 + 2
                                                              : (v >> 3) * 8 + 4;
    }
    if (type.reflectionMode != zul_REFLECTION_NONE) {
        reflection = points.reflections[i];
        if (input) reflection = std::clamp(reflection, 0, kMaxReflection);
    }
    int32_t cell[2] = {0, 0};
    if (type.normalMode != zul_NORMAL_NONE) {
        const float* n = &points.normals[3 * i];
        if (!input) {
            EXPECT_NEAR(std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]), 1.0, 1e-6);
        }
        EXPECT_TRUE(zullib::quantizeNormal(n, cell));
    }
    return Key(index[0], index[1], index[2], rgb[0], rgb[1], rgb[2], reflection, cell[0], cell[1]);
}

class RoundTrip : public ::testing::TestWithParam<Case> {};

TEST_P(RoundTrip, GivesEveryPointBackReducedAndTransformed) {
    const Case& c = GetParam();
    const Frame& frame = *c.frame;
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.hasScaling = frame.hasScaling;
    header.hasRotation = frame.hasRotation;
    header.hasTranslation = frame.hasTranslation;
    if (frame.version2) std::copy(frame.matrix, frame.matrix + 16, header.transformation);

    std::mt19937 random(static_cast<unsigned>(std::hash<std::string>()(c.name)));
    std::vector<PointCloud> clouds = {makeCloud(random, 300), makeCloud(random, 1),
                                      makeCloud(random, 57)};
    const EncodedStream stream =
        encodeStream(c.dataType, frame.version2 ? &header : nullptr, clouds);
    Decoder stored, moved;
    stored.start(stream, 0);
    moved.start(stream, 1);
    EXPECT_EQ(stored.header2.enabled, frame.version2);
    EXPECT_TRUE(std::equal(stored.header2.transformation, stored.header2.transformation + 16,
                           frame.version2 ? frame.matrix : kIdentity));
    const bool hasNormals = c.dataType.normalMode != zul_NORMAL_NONE;
    for (size_t chunk = 0; chunk < clouds.size(); ++chunk) {
        ASSERT_EQ(stored.chunk(stream, chunk), zul_STATUS_OK);
        ASSERT_EQ(moved.chunk(stream, chunk), zul_STATUS_OK);
        const int n = clouds[chunk].size();
        ASSERT_EQ(stored.points.numPoints, n);
        ASSERT_EQ(moved.points.numPoints, n);
        EXPECT_EQ(stored.points.colors != nullptr, c.dataType.colorMode != zul_COLOR_NONE);
        EXPECT_EQ(stored.points.reflections != nullptr,
                  c.dataType.reflectionMode != zul_REFLECTION_NONE);
        EXPECT_EQ(stored.points.normals != nullptr, hasNormals);
        std::vector<Key> expected, decoded;
        for (int i = 0; i < n; ++i) {
            expected.push_back(keyOf(c.dataType, clouds[chunk].data(), i, true));
            decoded.push_back(keyOf(c.dataType, stored.points, i, false));
        }
        std::sort(expected.begin(), expected.end());
        std::sort(decoded.begin(), decoded.end());
        EXPECT_EQ(decoded, expected);

        // The same chunk through the matrix: point i of one decoder is point i of the other.
        for (int i = 0; i < n; ++i) {
            double position[3];
            frame.position(&stored.points.positions[3 * i], position);
            float normal[3] = {0, 0, 0};
            if (hasNormals) frame.normal(&stored.points.normals[3 * i], normal);
            for (int k = 0; k < 3; ++k) {
                const double got = moved.points.positions[3 * i + k];
                const double tolerance = frame.exact ? 0 : 1e-12 * (1 + std::fabs(position[k]));
                EXPECT_NEAR(got, position[k], tolerance) << "point " << i << " axis " << k;
                if (hasNormals) {
                    EXPECT_NEAR(moved.points.normals[3 * i + k], normal[k], frame.exact ? 0 : 1e-6);
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Decoder, RoundTrip, ::testing::ValuesIn(allCases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return info.param.name;
                         });

}  // namespace

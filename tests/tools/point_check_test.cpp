// The demo's check finds what differs, whatever order the decoder hands a chunk back in.
#include "zul/point_check.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using zultool::PointErrors;

std::vector<zul_Point> somePoints() {
    std::vector<zul_Point> points;
    for (int i = 0; i < 6; ++i) {
        zul_Point p = {};
        p.position[0] = 0.001 * i;
        p.position[1] = 1.0;
        p.position[2] = i % 2 == 0 ? 2.0 : 2.0004;  // pairs in the same cell but one
        p.color[0] = static_cast<uint8_t>(10 * i);
        p.reflection = i;
        p.normal[i % 3] = 1.0f;
        points.push_back(p);
    }
    return points;
}

// What a decoder returns: the points moved to their cell centres, in another order.
std::vector<zul_Point> decodedOf(const std::vector<zul_Point>& original, double step) {
    std::vector<zul_Point> decoded = original;
    for (zul_Point& p : decoded) {
        for (double& x : p.position) x = zultool::gridCell(x, step) * step;
    }
    std::reverse(decoded.begin(), decoded.end());
    return decoded;
}

TEST(PointCheck, AcceptsTheQuantisedPointsInAnyOrder) {
    const double step = 0.001;
    const std::vector<zul_Point> original = somePoints();
    PointErrors errors;
    zultool::checkChunk(original.data(), decodedOf(original, step), step, errors);
    EXPECT_EQ(errors.mismatches, 0);
    EXPECT_LE(errors.position, 0.5);
    EXPECT_GT(errors.position, 0.3);  // 2.0004 lies 0.4 steps from its cell
    EXPECT_EQ(errors.normal, 0.0);
}

TEST(PointCheck, FindsWhatDiffers) {
    const double step = 0.001;
    const std::vector<zul_Point> original = somePoints();
    struct {
        const char* what;
        void (*damage)(zul_Point&);
    } cases[] = {
        {"a point one cell away", [](zul_Point& p) { p.position[1] += 0.001; }},
        {"a colour", [](zul_Point& p) { p.color[2] = 1; }},
        {"a reflection", [](zul_Point& p) { p.reflection += 1; }},
    };
    for (const auto& c : cases) {
        std::vector<zul_Point> decoded = decodedOf(original, step);
        c.damage(decoded[2]);
        PointErrors errors;
        zultool::checkChunk(original.data(), decoded, step, errors);
        EXPECT_GT(errors.mismatches, 0) << c.what;
    }
    std::vector<zul_Point> decoded = decodedOf(original, step);
    decoded[4].normal[0] = 0.0f;
    decoded[4].normal[1] = 0.6f;
    decoded[4].normal[2] = 0.8f;
    PointErrors errors;
    zultool::checkChunk(original.data(), decoded, step, errors);
    EXPECT_EQ(errors.mismatches, 0);
    EXPECT_GT(errors.normal, 30.0);
}

TEST(PointCheck, AngleAndCell) {
    const float x[3] = {1, 0, 0}, y[3] = {0, 2, 0}, diagonal[3] = {1, 1, 0};
    EXPECT_DOUBLE_EQ(zultool::angleDegrees(x, y), 90.0);
    EXPECT_NEAR(zultool::angleDegrees(x, diagonal), 45.0, 1e-9);
    EXPECT_EQ(zultool::gridCell(0.0015, 0.001), 2);  // beyond the half, up
    EXPECT_EQ(zultool::gridCell(-0.0014, 0.001), -1);
    EXPECT_EQ(zultool::gridCell(-0.0016, 0.001), -2);
}

}  // namespace

// The demo's check finds what differs, whatever order the decoder hands a chunk back in.
#include "commands/point_check.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(PointCheck, AcceptsTheQuantisedPointsInAnyOrderAndFindsWhatDiffers) {
    const double step = 0.001;
    std::vector<zul_Point> original, decoded;
    for (int i = 0; i < 6; ++i) {
        zul_Point p = {};
        p.position[0] = 0.001 * i;
        p.position[1] = 1.0;
        p.position[2] = i % 2 == 0 ? 2.0 : 2.0004;  // pairs in the same cell but one
        p.color[0] = static_cast<uint8_t>(10 * i);
        p.reflection = i;
        p.normal[i % 3] = 1.0f;
        original.push_back(p);
        // What a decoder returns: the point moved to its cell centre, in another order.
        for (double& x : p.position) x = zulconvert::gridCell(x, step) * step;
        decoded.insert(decoded.begin(), p);
    }
    struct {
        const char* what;
        void (*damage)(zul_Point&);
        bool mismatch;
    } cases[] = {
        {"nothing", [](zul_Point&) {}, false},
        {"a point one cell away", [](zul_Point& p) { p.position[1] += 0.001; }, true},
        {"a colour", [](zul_Point& p) { p.color[2] = 1; }, true},
        {"a reflection", [](zul_Point& p) { p.reflection += 1; }, true},
        {"a normal",
         [](zul_Point& p) { p.normal[0] = 0.0f, p.normal[1] = 0.6f, p.normal[2] = 0.8f; }, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<zul_Point> damaged = decoded;
        c.damage(damaged[1]);
        zulconvert::PointErrors errors;
        zulconvert::checkChunk(original.data(), damaged, step, errors);
        EXPECT_EQ(errors.mismatches > 0, c.mismatch);
        if (std::string(c.what) == "nothing") {
            EXPECT_LE(errors.position, 0.5);
            EXPECT_GT(errors.position, 0.3);  // 2.0004 lies 0.4 steps from its cell
        }
        EXPECT_EQ(errors.normal > 30.0, std::string(c.what) == "a normal");
    }
    const float x[3] = {1, 0, 0}, y[3] = {0, 2, 0};
    EXPECT_DOUBLE_EQ(zulconvert::angleDegrees(x, y), 90.0);
    EXPECT_EQ(zulconvert::gridCell(0.0015, 0.001), 2);  // beyond the half, up
    EXPECT_EQ(zulconvert::gridCell(-0.0014, 0.001), -1);
    EXPECT_EQ(zulconvert::gridCell(-0.0016, 0.001), -2);
}

}  // namespace

#include "frame/bounding_box.h"

#include <gtest/gtest.h>

#include <cstdint>

using zullib::BoundingBox3d;

namespace {

TEST(BoundingBox, EmptyBoxHasInvertedExtremes) {
    const BoundingBox3d<long long> box;
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(box.min[axis], INT64_MAX);
        EXPECT_EQ(box.max[axis], INT64_MIN);
    }
}

TEST(BoundingBox, ExtendTakesPerAxisMinimumAndMaximum) {
    BoundingBox3d<long long> box;
    const long long first[3] = {5, -2, 7};
    box.extend(first);
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(box.min[axis], first[axis]);
        EXPECT_EQ(box.max[axis], first[axis]);
    }
    const long long second[3] = {-1, 10, 7};
    box.extend(second);
    EXPECT_EQ(box.min[0], -1);
    EXPECT_EQ(box.max[0], 5);
    EXPECT_EQ(box.min[1], -2);
    EXPECT_EQ(box.max[1], 10);
    EXPECT_EQ(box.min[2], 7);
    EXPECT_EQ(box.max[2], 7);
}

}  // namespace

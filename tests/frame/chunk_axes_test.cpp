#include "frame/chunk_axes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "frame/bit_length.h"
#include "support/test_names.h"

namespace {

using Triple = std::array<int, 3>;

struct AxesCase {
    const char* name;
    long long extent[3];
    Triple axisRemap, coordinateBits;
};

class AxisOrder : public ::testing::TestWithParam<AxesCase> {};

// The decoder repeats this rule on the box it reads, so ties are part of the format.
TEST_P(AxisOrder, FollowsExtentsWithBindingTies) {
    const AxesCase& c = GetParam();
    zullib::BoundingBox3d<long long> box;
    const long long low[3] = {-7, 1000, -1};
    const long long high[3] = {low[0] + c.extent[0], low[1] + c.extent[1], low[2] + c.extent[2]};
    box.extend(low);
    box.extend(high);
    const zullib::ChunkAxes axes = zullib::chunkAxes(box);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(axes.axisRemap[k], c.axisRemap[k]) << k;
        EXPECT_EQ(axes.coordinateBits[k], c.coordinateBits[k]) << k;
        EXPECT_EQ(axes.slotMin[k], low[c.axisRemap[k]]) << k;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(ChunkAxes, AxisOrder, ::testing::Values(
    AxesCase{"all equal", {4, 4, 4}, {0, 2, 1}, {3, 3, 3}},
    AxesCase{"all zero", {0, 0, 0}, {0, 2, 1}, {0, 0, 0}},
    AxesCase{"x equals y above z", {4, 4, 1}, {0, 2, 1}, {3, 1, 3}},
    AxesCase{"x equals y below z", {4, 4, 9}, {2, 1, 0}, {4, 3, 3}},
    AxesCase{"x equals z above y", {4, 1, 4}, {0, 1, 2}, {3, 1, 3}},
    AxesCase{"x equals z below y", {4, 9, 4}, {1, 2, 0}, {4, 3, 3}},
    AxesCase{"y equals z above x", {1, 4, 4}, {1, 0, 2}, {3, 1, 3}},
    AxesCase{"y equals z below x", {9, 4, 4}, {0, 2, 1}, {4, 3, 3}},
    AxesCase{"x widest y narrowest", {100, 5, 50}, {0, 1, 2}, {7, 3, 6}},
    AxesCase{"z widest x narrowest", {3, 70, 300}, {2, 0, 1}, {9, 2, 7}},
    AxesCase{"span of 2^63 - 1", {INT64_MAX, 0, 0}, {0, 2, 1}, {63, 0, 0}}),
    NameOfCase());
// clang-format on

TEST(BitLength, CountsBitsOfUnsignedAndSignedValues) {
    const uint64_t unsignedValues[] = {0, 1, 2, 3, 4, uint64_t{1} << 63, ~0ull};
    const int unsignedBits[] = {0, 1, 2, 2, 3, 64, 64};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(zullib::bitLength(unsignedValues[i]), unsignedBits[i]);
    const int64_t signedValues[] = {0, -1, 1, -2, 2, 3, -3, -4, 4, -5, INT64_MIN, INT64_MAX};
    const int signedBits[] = {0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 64, 64};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(zullib::signedBitLength(signedValues[i]), signedBits[i]);
}

}  // namespace

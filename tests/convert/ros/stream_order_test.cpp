// The encoder's prediction of a chunk's stored order against a plain comparison sort, for chunk
// sizes on both sides of the bucket sort's threshold and slots too wide to pack.
#include "ros/stream_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace zul::ros {
namespace {

struct OrderCase {
    const char* name;
    size_t keys;
    int64_t spread[3];  // slots of x, y, z from 0 to spread - 1, then shifted far from 0
};

class StreamOrder : public ::testing::TestWithParam<OrderCase> {};

TEST_P(StreamOrder, SortsAsTheStreamStoresThePoints) {
    const OrderCase& c = GetParam();
    std::mt19937_64 random(c.keys);
    std::vector<OrderKey> keys(c.keys);
    for (size_t j = 0; j < keys.size(); ++j) {
        // The first two keys take the ends, so that the extents are the spreads less one.
        for (int k = 0; k < 3; ++k) {
            const int64_t slot = j == 0   ? 0
                                 : j == 1 ? c.spread[k] - 1
                                          : int64_t(random() % uint64_t(c.spread[k]));
            keys[j].slot[k] = slot - (int64_t(1) << 40);
        }
        keys[j].color = uint32_t(random() % 3);
        keys[j].reflection = int32_t(random() % 3) - 1;
        keys[j].local = uint32_t(j);
    }
    // The spreads differ, so the axis order is the largest, the smallest, the other.
    int axes[3] = {0, 1, 2};
    std::sort(axes, axes + 3, [&](int a, int b) { return c.spread[a] > c.spread[b]; });
    const int order[3] = {axes[0], axes[2], axes[1]};
    std::vector<OrderKey> expected = keys;
    std::sort(expected.begin(), expected.end(), [&](const OrderKey& a, const OrderKey& b) {
        for (int axis : order)
            if (a.slot[axis] != b.slot[axis]) return a.slot[axis] < b.slot[axis];
        if (a.color != b.color) return a.color < b.color;
        if (a.reflection != b.reflection) return a.reflection < b.reflection;
        return a.local < b.local;
    });
    sortAsStored(keys);
    ASSERT_EQ(keys.size(), expected.size());
    for (size_t j = 0; j < keys.size(); ++j) ASSERT_EQ(keys[j].local, expected[j].local) << j;
}

const OrderCase kOrderCases[] = {
    {"one", 1, {5, 3, 2}},
    {"few_with_ties", 7, {3, 1, 2}},
    {"below_threshold", 511, {900, 20, 60}},
    {"at_threshold_with_ties", 512, {9, 4, 6}},
    {"tile", 1024, {70000, 300, 5000}},
    {"large", 4096, {100, 3000, 40}},
    {"dense_ties", 4096, {40, 30, 20}},
    {"one_wide_axis", 3000, {int64_t(1) << 30, 3, 2}},
    {"too_wide_to_pack", 1024, {int64_t(1) << 40, 1 << 5, 1 << 20}},
};

INSTANTIATE_TEST_SUITE_P(Chunks, StreamOrder, ::testing::ValuesIn(kOrderCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zul::ros

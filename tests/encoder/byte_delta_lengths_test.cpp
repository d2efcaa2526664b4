#include "encoder/byte_delta_lengths.h"

#include <gtest/gtest.h>

#include "frame/bit_length.h"

namespace {

// The table against the bit scan it stands for, over every delta it holds.
TEST(ByteDeltaLengths, EveryDeltaOfTwoBytesHasItsSignedBitLength) {
    for (int delta = -255; delta <= 255; ++delta)
        EXPECT_EQ(zullib::kByteDeltaLengths.of(delta), zullib::signedBitLength(delta)) << delta;
    EXPECT_EQ(zullib::kByteDeltaLengths.of(-255), 9);
    EXPECT_EQ(zullib::kByteDeltaLengths.of(255), 9);
    EXPECT_EQ(zullib::kByteDeltaLengths.of(-1), 1);
    EXPECT_EQ(zullib::kByteDeltaLengths.of(0), 0);
}

}  // namespace

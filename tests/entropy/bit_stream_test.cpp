#include <gtest/gtest.h>

#include <vector>

#include "entropy/bit_stream_in.h"

using zullib::BitStreamIn;

namespace {

using Bytes = std::vector<unsigned char>;

int64_t bitsRead(const BitStreamIn& in) { return in.bytePosition * 8 + in.bitPosition; }

// Reading exactly the rest succeeds; one bit more consumes nothing and fails for good.
TEST(BitStreamIn, ReadsPastTheEndFailForGood) {
    const Bytes bytes = {0xAB, 0xCD, 0xEF};
    BitStreamIn in(bytes.data(), 3, 0);
    EXPECT_EQ(in.readBits(5), 0x0Bu);
    EXPECT_EQ(in.readBits(19), 0xEFCDABu >> 5);
    EXPECT_EQ(bitsRead(in), 24);
    EXPECT_FALSE(in.errorFlag);
    BitStreamIn over(bytes.data(), 3, 0);
    over.readBits(5);
    EXPECT_EQ(over.readBits(20), 0u);
    EXPECT_TRUE(over.errorFlag);
    EXPECT_EQ(over.readBits(1), 0u);  // even a read that would fit
    EXPECT_EQ(bitsRead(over), 5);
    // A start past the end, a negative size or start: flagged, and nothing is read.
    EXPECT_TRUE(BitStreamIn(bytes.data(), 2, 3).errorFlag);
    EXPECT_FALSE(BitStreamIn(bytes.data(), 2, 2).errorFlag);
    EXPECT_TRUE(BitStreamIn(bytes.data(), -1, 0).errorFlag);
    BitStreamIn negative(bytes.data() + 1, 1, -1);
    EXPECT_EQ(negative.readBits(8), 0u);
    EXPECT_TRUE(negative.errorFlag);
    BitStreamIn aligned(bytes.data() + 1, 1, -1);
    EXPECT_EQ(aligned.readByteAlignedUInt8(), 0u);
    EXPECT_TRUE(aligned.errorFlag);
}

// Widths over 64 (damaged tables) consume all their bits, or fail for good past the end.
TEST(BitStreamIn, WidthsOverSixtyFour) {
    const Bytes bytes(40, 0x5A);
    for (int width : {65, 200, 254}) {
        BitStreamIn in(bytes.data(), 40, 0);
        in.readBits(3);
        in.readBits(width);
        EXPECT_FALSE(in.errorFlag) << width;
        EXPECT_EQ(bitsRead(in), 3 + width);
        EXPECT_EQ(in.readBits(254), 0u);
        EXPECT_TRUE(in.errorFlag) << width;
        EXPECT_EQ(bitsRead(in), 3 + width);
    }
}

}  // namespace

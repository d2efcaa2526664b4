#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "entropy/bit_stream_in.h"
#include "entropy/bit_stream_out.h"

using zullib::BitStreamIn;
using zullib::BitStreamOut;

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

TEST(BitStreams, RandomFieldsOfEveryWidthRoundTrip) {
    std::mt19937_64 random(12345);
    std::vector<std::pair<uint64_t, int>> fields;
    for (int i = 0; i < 20000; ++i)
        fields.push_back({random(), 1 + static_cast<int>(random() % 64)});
    Bytes buffer(3, 0x77);
    BitStreamOut out(buffer, 0);
    for (const auto& field : fields) out.writeBits(field.first, field.second);
    out.alignToByte();
    BitStreamIn in(buffer.data(), out.bytePosition, 0);
    for (const auto& [value, width] : fields)
        ASSERT_EQ(in.readBits(width), width == 64 ? value : value & ((uint64_t{1} << width) - 1));
    in.alignToByte();
    EXPECT_FALSE(in.errorFlag);
    EXPECT_EQ(in.bytePosition, out.bytePosition);
}

}  // namespace

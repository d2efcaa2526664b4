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

uint64_t lowBits(uint64_t value, int numBits) {
    return numBits >= 64 ? value : value & ((uint64_t{1} << numBits) - 1);
}

TEST(BitStreamIn, FieldsStartAtTheLeastSignificantBit) {
    const Bytes bytes = {0xB4, 0x01};
    BitStreamIn in(bytes.data(), 2, 0);
    EXPECT_EQ(in.readBits(3), 4u);
    EXPECT_EQ(in.readBits(7), 54u);
    EXPECT_EQ(in.bytePosition, 1);
    EXPECT_EQ(in.bitPosition, 2);
    EXPECT_FALSE(in.errorFlag);
}

TEST(BitStreamIn, ZeroBitsNeverLookAtAnything) {
    const Bytes bytes = {0xFF};
    BitStreamIn in(bytes.data(), 1, 1);
    EXPECT_EQ(in.readBits(0), 0u);
    EXPECT_FALSE(in.errorFlag);
    EXPECT_EQ(in.readBits(1), 0u);
    EXPECT_TRUE(in.errorFlag);
    EXPECT_EQ(in.readBits(0), 0u);
    EXPECT_EQ(in.bytePosition, 1);
}

TEST(BitStreamIn, ReadingExactlyTheRestSucceedsOneBitMoreFailsForGood) {
    const Bytes bytes = {0xAB, 0xCD, 0xEF};
    BitStreamIn in(bytes.data(), 3, 0);
    EXPECT_EQ(in.readBits(5), 0x0Bu);
    EXPECT_EQ(in.readBits(19), 0xEFCDABu >> 5);
    EXPECT_EQ(in.bytePosition, 3);
    EXPECT_EQ(in.bitPosition, 0);
    EXPECT_FALSE(in.errorFlag);

    BitStreamIn over(bytes.data(), 3, 0);
    over.readBits(5);
    EXPECT_EQ(over.readBits(20), 0u);
    EXPECT_TRUE(over.errorFlag);
    EXPECT_EQ(over.bytePosition, 0);  // nothing consumed
    EXPECT_EQ(over.bitPosition, 5);
    EXPECT_EQ(over.readBits(1), 0u);  // the flag is sticky, even for a read that would fit
    EXPECT_EQ(over.bitPosition, 5);
}

TEST(BitStreamIn, SixtyFourBitsAtAnOffsetSpanNineBytes) {
    Bytes bytes(9);
    for (int i = 0; i < 9; ++i) bytes[i] = static_cast<unsigned char>(0x11 * (i + 1));
    BitStreamIn in(bytes.data(), 9, 0);
    in.readBits(4);
    uint64_t reference = 0;
    for (int bit = 0; bit < 64; ++bit) {
        const int streamBit = bit + 4;
        reference |= static_cast<uint64_t>((bytes[streamBit / 8] >> (streamBit % 8)) & 1) << bit;
    }
    EXPECT_EQ(in.readBits(64), reference);
    EXPECT_EQ(in.bytePosition, 8);
    EXPECT_EQ(in.bitPosition, 4);
}

TEST(BitStreamIn, StartPastTheEndIsFlaggedAtOnce) {
    const Bytes bytes = {1, 2};
    EXPECT_TRUE(BitStreamIn(bytes.data(), 2, 3).errorFlag);
    EXPECT_FALSE(BitStreamIn(bytes.data(), 2, 2).errorFlag);
    EXPECT_TRUE(BitStreamIn(bytes.data(), -1, 0).errorFlag);
}

TEST(BitStreamIn, NegativeStartReadsNothing) {
    const Bytes bytes = {1, 2};
    BitStreamIn in(bytes.data() + 1, 1, -1);
    EXPECT_EQ(in.readBits(8), 0u);
    EXPECT_TRUE(in.errorFlag);
    BitStreamIn aligned(bytes.data() + 1, 1, -1);
    EXPECT_EQ(aligned.readByteAlignedUInt8(), 0u);
    EXPECT_TRUE(aligned.errorFlag);
}

TEST(BitStreamIn, ByteAlignedReadsIgnoreTheBitOffset) {
    const Bytes bytes = {0xF0, 0x34, 0x12, 0x78, 0x56, 0x34, 0x12};
    BitStreamIn in(bytes.data(), 7, 0);
    in.readBits(3);
    EXPECT_EQ(in.readByteAlignedUInt8(), 0xF0u);
    EXPECT_EQ(in.bitPosition, 3);
    EXPECT_EQ(in.readByteAlignedUInt16(), 0x1234u);
    EXPECT_EQ(in.readByteAlignedUInt32(), 0x12345678u);
    EXPECT_EQ(in.bytePosition, 7);
    EXPECT_EQ(in.readByteAlignedUInt8(), 0u);
    EXPECT_TRUE(in.errorFlag);
}

TEST(BitStreamIn, FailedByteAlignedReadLeavesDestinationAlone) {
    const Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
    BitStreamIn in(bytes.data(), 8, 1);
    unsigned char destination[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    in.readByteAligned(destination, 8);
    EXPECT_TRUE(in.errorFlag);
    EXPECT_EQ(destination[0], 9);
    EXPECT_EQ(in.bytePosition, 1);
    EXPECT_EQ(in.readByteAlignedUInt64(), 0u);

    BitStreamIn whole(bytes.data(), 8, 0);
    EXPECT_EQ(whole.readByteAlignedUInt64(), 0x0807060504030201ull);
}

TEST(BitStreamIn, AlignToByteSkipsThePartialByteAndFlagsThePastEnd) {
    const Bytes bytes = {0xFF};
    BitStreamIn in(bytes.data(), 1, 0);
    in.alignToByte();
    EXPECT_EQ(in.bytePosition, 0);
    in.readBits(1);
    in.alignToByte();
    EXPECT_EQ(in.bytePosition, 1);
    EXPECT_EQ(in.bitPosition, 0);
    EXPECT_FALSE(in.errorFlag);
}

TEST(BitStreamIn, WidthsAboveSixtyFourConsumeAllTheirBits) {
    Bytes bytes(40, 0x5A);
    for (int width : {65, 100, 200, 254}) {
        BitStreamIn in(bytes.data(), 40, 0);
        in.readBits(3);
        in.readBits(width);
        EXPECT_FALSE(in.errorFlag) << width;
        EXPECT_EQ(in.bytePosition * 8 + in.bitPosition, 3 + width);
    }
    BitStreamIn tooFar(bytes.data(), 40, 0);
    tooFar.readBits(200);
    EXPECT_EQ(tooFar.readBits(254), 0u);
    EXPECT_TRUE(tooFar.errorFlag);
    EXPECT_EQ(tooFar.bytePosition * 8 + tooFar.bitPosition, 200);
}

TEST(BitStreamOut, ZeroBitsChangeNothingNotEvenTheVector) {
    Bytes buffer;
    BitStreamOut out(buffer, 0);
    const size_t length = buffer.size();
    out.writeBits(0xFFFF, 0);
    EXPECT_EQ(buffer.size(), length);
    EXPECT_EQ(out.bytePosition, 0);
}

TEST(BitStreamOut, FirstTouchOfAByteStoresInsteadOfOring) {
    Bytes buffer(8, 0xFF);
    buffer[0] = 0x00;
    BitStreamOut out(buffer, 0);
    out.writeBits(0, 6);
    out.writeBits(0xFF, 3);
    EXPECT_EQ(buffer[0], 0xC0);
    EXPECT_EQ(buffer[1], 0x01);  // stale 0xFF gone: bits no field reached are 0
    EXPECT_EQ(out.bytePosition, 1);
    EXPECT_EQ(out.bitPosition, 1);
}

TEST(BitStreamOut, AlignAtAByteBoundaryAddsNoPadByte) {
    Bytes buffer;
    BitStreamOut out(buffer, 3);
    out.writeBits(0xAB, 8);
    out.alignToByte();
    EXPECT_EQ(out.bytePosition, 4);
    out.writeBits(1, 1);
    out.alignToByte();
    EXPECT_EQ(out.bytePosition, 5);
    EXPECT_EQ(buffer[3], 0xAB);
    EXPECT_EQ(buffer[4], 0x01);
}

TEST(BitStreamOut, ByteAlignedWritesAreLittleEndianAndGrowTheVector) {
    Bytes buffer;
    BitStreamOut out(buffer, 0);
    out.writeByteAlignedUInt8(0x11);
    out.writeByteAlignedUInt32(0x44332211u);
    out.writeByteAlignedUInt64(0x0807060504030201ull);
    const unsigned char raw[3] = {0xA, 0xB, 0xC};
    out.writeByteAligned(raw, 3);
    EXPECT_EQ(out.bytePosition, 16);
    EXPECT_GE(buffer.size(), 16u);
    const Bytes expected = {0x11, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 5, 6, 7, 8, 0xA, 0xB, 0xC};
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 16), expected);
}

TEST(BitStreams, RandomFieldsOfEveryWidthRoundTrip) {
    std::mt19937_64 random(12345);
    std::vector<std::pair<uint64_t, int>> fields;
    for (int i = 0; i < 20000; ++i) {
        const int width = 1 + static_cast<int>(random() % 64);
        fields.push_back({random(), width});
    }
    Bytes buffer(3, 0x77);  // stale bytes must not leak into the stream
    BitStreamOut out(buffer, 0);
    for (const auto& field : fields) out.writeBits(field.first, field.second);
    out.alignToByte();

    BitStreamIn in(buffer.data(), out.bytePosition, 0);
    for (const auto& field : fields)
        ASSERT_EQ(in.readBits(field.second), lowBits(field.first, field.second));
    in.alignToByte();
    EXPECT_FALSE(in.errorFlag);
    EXPECT_EQ(in.bytePosition, out.bytePosition);
}

}  // namespace

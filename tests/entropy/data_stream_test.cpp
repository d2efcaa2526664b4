#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "entropy/data_stream_reader.h"
#include "entropy/data_stream_writer.h"
#include "entropy/prefix_optimizer.h"
#include "frame/bit_length.h"
#include "support/test_names.h"

using zullib::zul_QuantizedPoint;

namespace {

using Reflection = zul_QuantizedPoint::ReflectionAccessor;
using Bytes = std::vector<unsigned char>;

struct ReflectionCase {
    const char* name;
    std::vector<int32_t> values;
    int width;
    Bytes stream;
};

class ReflectionStream : public ::testing::TestWithParam<ReflectionCase> {};

// The tables come from the prefix search over the deltas' bit lengths, as in a real chunk.
TEST_P(ReflectionStream, IsByteExactAndReadsBack) {
    const ReflectionCase& c = GetParam();
    std::vector<zul_QuantizedPoint> points(c.values.size());
    std::map<int, int> frequencies;
    int64_t previous = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        points[i].reflection = c.values[i];
        ++frequencies[zullib::signedBitLength(c.values[i] - previous)];
        previous = c.values[i];
    }
    std::vector<int> tables[1];
    zullib::PrefixOptimizer::findBestBitLengthsForPrefixes(tables[0], frequencies, c.width, 6);
    const int widths[1] = {c.width};

    // Stale bytes in the buffer must not leak into the stream.
    Bytes buffer(64, 0xA5);
    zullib::BitStreamOut out(buffer, 3);
    zullib::writeStreamTables(out, tables, 1);
    zullib::writeStreamBody<Reflection>(out, points, widths, tables);
    EXPECT_EQ(out.bitPosition, 0);
    ASSERT_EQ(Bytes(buffer.begin() + 3, buffer.begin() + out.bytePosition), c.stream);

    zullib::BitStreamIn in(c.stream.data(), static_cast<int64_t>(c.stream.size()), 0);
    std::vector<int> readTables[1];
    ASSERT_EQ(zullib::readStreamTables<Reflection>(in, readTables), zul_STATUS_OK);
    EXPECT_EQ(readTables[0], tables[0]);
    std::vector<zul_QuantizedPoint> decoded(points.size());
    ASSERT_EQ(zullib::readStreamBody<Reflection>(in, decoded, widths, readTables), zul_STATUS_OK);
    EXPECT_EQ(in.bytePosition, static_cast<int64_t>(c.stream.size()));
    for (size_t i = 0; i < points.size(); ++i) EXPECT_EQ(decoded[i].reflection, c.values[i]);
}

INSTANTIATE_TEST_SUITE_P(
    DataStream, ReflectionStream,
    ::testing::Values(
        ReflectionCase{"six values ending on a byte boundary",
                       {5, 4, 6, 9, 9, 200},
                       8,
                       {0x04, 0x01, 0x03, 0x04, 0xFF, 0x03, 0x4B, 0xE2, 0xC8}},
        ReflectionCase{
            "three values padded with zero bits", {5, 5, 9}, 4, {0x02, 0x00, 0xFF, 0xCB, 0x04}},
        ReflectionCase{"all values zero cost no body", {0, 0, 0}, 8, {0x01, 0x00}},
        ReflectionCase{"one table entry costs no prefix", {2, 3, 1}, 8, {0x01, 0x03, 0x8A, 0x01}}),
    NameOfCase());

// The writer's word-at-a-time forms (points gathered several to a word, a point a word, fields
// that do not fit together) give the bits of its plain loop, which it takes off a byte boundary.
class ReflectionForms : public ::testing::TestWithParam<int> {};

TEST_P(ReflectionForms, GiveThePlainLoopsBits) {
    const int width = GetParam();
    std::mt19937_64 random(static_cast<uint64_t>(width));
    const uint64_t mask = (uint64_t{1} << width) - 1;
    std::vector<zul_QuantizedPoint> points(3001);
    std::map<int, int> frequencies;
    int64_t previous = 0;
    for (zul_QuantizedPoint& point : points) {
        // Mostly small steps, now and then a jump across the whole width.
        const int64_t value =
            random() % 8 == 0
                ? static_cast<int64_t>(random() & mask)
                : (previous + static_cast<int64_t>(random() % 9) - 4) & static_cast<int64_t>(mask);
        point.reflection = static_cast<int32_t>(value);
        ++frequencies[zullib::signedBitLength(value - previous)];
        previous = value;
    }
    std::vector<int> tables[1];
    zullib::PrefixOptimizer::findBestBitLengthsForPrefixes(tables[0], frequencies, width, 6);
    const int widths[1] = {width};
    Bytes fast, plain;
    zullib::BitStreamOut fastOut(fast, 0);
    zullib::writeStreamBody<Reflection>(fastOut, points, widths, tables);
    zullib::BitStreamOut plainOut(plain, 0);
    plainOut.writeBits(1, 1);
    zullib::writeStreamBody<Reflection>(plainOut, points, widths, tables);
    // The plain stream is the fast one a bit later; the padding of either is zero bits.
    ASSERT_LE(plainOut.bytePosition, fastOut.bytePosition + 1);
    ASSERT_GE(plainOut.bytePosition, fastOut.bytePosition);
    for (int64_t bit = 0; bit < fastOut.bytePosition * 8; ++bit) {
        const int fastBit = (fast[static_cast<size_t>(bit / 8)] >> (bit % 8)) & 1;
        const int64_t at = bit + 1;
        const int plainBit = at < plainOut.bytePosition * 8
                                 ? (plain[static_cast<size_t>(at / 8)] >> (at % 8)) & 1
                                 : 0;
        ASSERT_EQ(fastBit, plainBit) << "bit " << bit;
    }
}

// 8 prefix bits and the payload: 12 and 20 gather points, 31 takes a word a point, 50 fields
// that do not all fit.
INSTANTIATE_TEST_SUITE_P(DataStream, ReflectionForms, ::testing::Values(4, 12, 20, 31, 50));

}  // namespace

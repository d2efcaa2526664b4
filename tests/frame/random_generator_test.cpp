#include "frame/random_generator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/sync_marker.h"

using zullib::RandomGenerator;
using zullib::zul_SyncMarker;

namespace {

// The fixed-seed setting is process-wide; every test leaves it off.
class RandomSource : public ::testing::Test {
protected:
    void TearDown() override { RandomGenerator::useFixedSeed(false, 0); }
};

uint32_t nextWord(RandomGenerator& generator) {
    unsigned char bytes[4];
    generator.getRandomBytes(reinterpret_cast<char*>(bytes), 4);
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

std::vector<unsigned char> draw(RandomGenerator& generator, int count) {
    std::vector<unsigned char> bytes((count > 0 ? count : 0) + 1, 0xEE);
    generator.getRandomBytes(reinterpret_cast<char*>(bytes.data()), count);
    return bytes;
}

TEST_F(RandomSource, IsThePublishedMersenneTwister) {
    RandomGenerator generator(5489u);
    EXPECT_EQ(nextWord(generator), 3499211612u);  // first output for the default seed
    for (int i = 2; i < 10000; ++i) nextWord(generator);
    EXPECT_EQ(nextWord(generator), 4123659995u);  // the 10000th
}

TEST_F(RandomSource, WholeWordsFirstLeastSignificantByteFirstThenOneOutputPerByte) {
    RandomGenerator reference(42u);
    const uint32_t w0 = nextWord(reference), w1 = nextWord(reference), w2 = nextWord(reference),
                   w3 = nextWord(reference);

    RandomGenerator seven(42u);
    const std::vector<unsigned char> bytes = draw(seven, 7);
    for (int b = 0; b < 4; ++b) EXPECT_EQ(bytes[b], (w0 >> (8 * b)) & 0xFF);
    EXPECT_EQ(bytes[4], w1 & 0xFF);
    EXPECT_EQ(bytes[5], w2 & 0xFF);
    EXPECT_EQ(bytes[6], w3 & 0xFF);
    EXPECT_EQ(bytes[7], 0xEE);  // nothing past count

    RandomGenerator three(42u);
    const std::vector<unsigned char> small = draw(three, 3);
    EXPECT_EQ(small[0], w0 & 0xFF);
    EXPECT_EQ(small[1], w1 & 0xFF);
    EXPECT_EQ(small[2], w2 & 0xFF);
    EXPECT_EQ(nextWord(three), w3);  // three outputs consumed, not more

    RandomGenerator none(42u);
    EXPECT_EQ(draw(none, 0)[0], 0xEE);
    EXPECT_EQ(draw(none, -5)[0], 0xEE);
    EXPECT_EQ(nextWord(none), w0);
}

TEST_F(RandomSource, SeedGivenWithTheFlagOffHasNoEffect) {
    RandomGenerator::useFixedSeed(true, 1u);
    RandomGenerator::useFixedSeed(false, 2u);
    RandomGenerator::useFixedSeed(true, 1u);
    RandomGenerator a;
    RandomGenerator b(1u);
    EXPECT_EQ(draw(a, 16), draw(b, 16));

    RandomGenerator::useFixedSeed(false, 3u);
    zul_SyncMarker first, second;
    first.randomize();
    second.randomize();
    EXPECT_FALSE(first.equals(second.bytes));  // 2^-128 chance of a false failure
}

TEST(SyncMarker, EqualsComparesAllSixteenBytesWhetherSetOrNot) {
    char value[16];
    for (int i = 0; i < 16; ++i) value[i] = static_cast<char>(i * 17);
    zul_SyncMarker marker;
    marker.setBytes(value);
    EXPECT_TRUE(marker.isSet);
    EXPECT_TRUE(marker.equals(value));
    value[15] ^= 1;
    EXPECT_FALSE(marker.equals(value));

    zul_SyncMarker unset;
    std::memcpy(unset.bytes, value, 16);
    EXPECT_FALSE(unset.isSet);
    EXPECT_TRUE(unset.equals(value));
}

}  // namespace

#include "frame/random_generator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/sync_marker.h"

using zullib::RandomGenerator;

namespace {

// The fixed-seed setting is process-wide; every test leaves it off.
class RandomSource : public ::testing::Test {
protected:
    void TearDown() override { RandomGenerator::useFixedSeed(false, 0); }
};

// `count` bytes drawn, and one guard byte after them.
std::vector<unsigned char> draw(RandomGenerator& generator, int count) {
    std::vector<unsigned char> bytes((count > 0 ? count : 0) + 1, 0xEE);
    generator.getRandomBytes(reinterpret_cast<char*>(bytes.data()), count);
    return bytes;
}

uint32_t nextWord(RandomGenerator& generator) {
    const std::vector<unsigned char> b = draw(generator, 4);
    return b[0] | b[1] << 8 | b[2] << 16 | static_cast<uint32_t>(b[3]) << 24;
}

TEST_F(RandomSource, IsThePublishedMersenneTwister) {
    RandomGenerator generator(5489u);
    EXPECT_EQ(nextWord(generator), 3499211612u);  // first output for the default seed
    for (int i = 2; i < 10000; ++i) nextWord(generator);
    EXPECT_EQ(nextWord(generator), 4123659995u);  // the 10000th
}

// Whole words first, least significant byte first, then one output a byte; nothing past count.
TEST_F(RandomSource, ByteOrder) {
    RandomGenerator reference(42u);
    uint32_t w[4];
    for (uint32_t& word : w) word = nextWord(reference);
    RandomGenerator seven(42u);
    const std::vector<unsigned char> bytes = draw(seven, 7);
    const std::vector<unsigned char> expected = {
        static_cast<unsigned char>(w[0]),       static_cast<unsigned char>(w[0] >> 8),
        static_cast<unsigned char>(w[0] >> 16), static_cast<unsigned char>(w[0] >> 24),
        static_cast<unsigned char>(w[1]),       static_cast<unsigned char>(w[2]),
        static_cast<unsigned char>(w[3]),       0xEE};
    EXPECT_EQ(bytes, expected);
    RandomGenerator three(42u);
    EXPECT_EQ(draw(three, 3)[2], w[2] & 0xFF);
    EXPECT_EQ(nextWord(three), w[3]);  // three outputs consumed, not more
    RandomGenerator none(42u);
    EXPECT_EQ(draw(none, 0)[0], 0xEE);
    EXPECT_EQ(draw(none, -5)[0], 0xEE);
    EXPECT_EQ(nextWord(none), w[0]);
}

TEST_F(RandomSource, SeedGivenWithTheFlagOffHasNoEffect) {
    RandomGenerator::useFixedSeed(true, 1u);
    RandomGenerator::useFixedSeed(false, 2u);
    RandomGenerator::useFixedSeed(true, 1u);
    RandomGenerator a, b(1u);
    EXPECT_EQ(draw(a, 16), draw(b, 16));
    RandomGenerator::useFixedSeed(false, 3u);
    zullib::zul_SyncMarker first, second;
    first.randomize();
    second.randomize();
    EXPECT_FALSE(first.equals(second.bytes));  // 2^-128 chance of a false failure
}

TEST(SyncMarker, EqualsComparesAllSixteenBytesWhetherSetOrNot) {
    char value[16];
    for (int i = 0; i < 16; ++i) value[i] = static_cast<char>(i * 17);
    zullib::zul_SyncMarker marker, unset;
    marker.setBytes(value);
    EXPECT_TRUE(marker.isSet && marker.equals(value));
    value[15] ^= 1;
    EXPECT_FALSE(marker.equals(value));
    std::memcpy(unset.bytes, value, 16);
    EXPECT_FALSE(unset.isSet);
    EXPECT_TRUE(unset.equals(value));
}

}  // namespace

// The random source of sync markers: one MT19937 state, seeded from the platform's random device
// or, process-wide, from a fixed seed so that streams become reproducible.
#pragma once

#include <random>

#include "zul.h"

namespace zullib {

class ZUL_API RandomGenerator {
public:
    // Seeds with getSeed(): the fixed seed if one is set, else the random device.
    RandomGenerator();
    // Seeds with `seed`, whatever the process-wide setting says.
    explicit RandomGenerator(unsigned int seed);

    // Whole 32-bit outputs first, least significant byte first, while at least 4 bytes remain;
    // then one output for each remaining byte, of which the low 8 bits are stored.
    void getRandomBytes(char* buffer, int count);

    // Stores `enable`; with `enable` true also the seed, else the stored seed stays.
    static void useFixedSeed(bool enable, unsigned int seed);

private:
    static unsigned int getSeed();

    std::mt19937 engine;
};

}  // namespace zullib

#include "frame/random_generator.h"

#include <cstdint>

namespace zullib {

namespace {
// The process-wide setting, shared by every generator. Not synchronised: it is set before
// contexts are opened.
bool useFixedSeedFlag = false;
unsigned int fixedSeed = 0;
}  // namespace

RandomGenerator::RandomGenerator() : engine(getSeed()) {}

RandomGenerator::RandomGenerator(unsigned int seed) : engine(seed) {}

void RandomGenerator::getRandomBytes(char* buffer, int count) {
    int i = 0;
    for (; i < count - 3; i += 4) {
        const uint32_t word = static_cast<uint32_t>(engine());
        for (int b = 0; b < 4; ++b) buffer[i + b] = static_cast<char>((word >> (8 * b)) & 0xFF);
    }
    for (; i < count; ++i) buffer[i] = static_cast<char>(engine() & 0xFF);
}

void RandomGenerator::useFixedSeed(bool enable, unsigned int seed) {
    useFixedSeedFlag = enable;
    if (enable) fixedSeed = seed;
}

unsigned int RandomGenerator::getSeed() {
    if (useFixedSeedFlag) return fixedSeed;
    std::random_device device;
    return static_cast<unsigned int>(device());
}

}  // namespace zullib

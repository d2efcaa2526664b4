#include "frame/data_type.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "support/test_names.h"

using zullib::DataType;

namespace {

zul_DataType makeType(float step, int32_t color = 0, int32_t reflection = 0,
                      int32_t maxReflection = 0, int32_t normal = 0) {
    zul_DataType dataType;
    DataType::init(dataType, step, static_cast<zul_ColorMode>(color),
                   static_cast<zul_ReflectionMode>(reflection), maxReflection,
                   static_cast<zul_NormalMode>(normal));
    return dataType;
}

float floatFromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

struct StepCase {
    const char* name;
    float step;
    bool valid;
};

const float kSmallest = floatFromBits(0x30881087u);

class QuantizationStepBounds : public ::testing::TestWithParam<StepCase> {};

TEST(DataType, SmallestStepIsTheFloatNearestToTheDecimal) { EXPECT_EQ(kSmallest, 9.9e-10f); }

TEST_P(QuantizationStepBounds, AreExactFloats) {
    EXPECT_EQ(DataType::isValid(makeType(GetParam().step)), GetParam().valid) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    DataType, QuantizationStepBounds,
    ::testing::Values(StepCase{"ten", 10.0f, true},
                      StepCase{"above ten", std::nextafter(10.0f, 11.0f), false},
                      StepCase{"smallest", kSmallest, true},
                      StepCase{"below smallest", std::nextafter(kSmallest, 0.0f), false},
                      StepCase{"one in a billion", 1e-9f, true}, StepCase{"default", 0.0001f, true},
                      StepCase{"zero", 0.0f, false}, StepCase{"negative", -0.001f, false},
                      StepCase{"NaN", std::numeric_limits<float>::quiet_NaN(), false},
                      StepCase{"infinity", std::numeric_limits<float>::infinity(), false}),
    NameOfCase());

struct ModeCase {
    int32_t color, reflection, maxReflection, normal;
    bool valid;
};

class ModeRules : public ::testing::TestWithParam<ModeCase> {};

TEST_P(ModeRules, ReadModesAsUnsigned) {
    const ModeCase& c = GetParam();
    EXPECT_EQ(DataType::isValid(makeType(0.001f, c.color, c.reflection, c.maxReflection, c.normal)),
              c.valid)
        << c.color << " " << c.reflection << " " << c.maxReflection << " " << c.normal;
}

INSTANTIATE_TEST_SUITE_P(
    DataType, ModeRules,
    ::testing::Values(ModeCase{2, 1, 255, 1, true}, ModeCase{3, 0, 0, 0, false},
                      ModeCase{-1, 0, 0, 0, false}, ModeCase{0, 2, 1, 0, false},
                      ModeCase{0, -1, 1, 0, false}, ModeCase{0, 0, 0, 2, false},
                      ModeCase{0, 0, 0, -1, false}, ModeCase{0, 1, 0, 0, false},
                      ModeCase{0, 1, 1, 0, true}, ModeCase{0, 1, -5, 0, false},
                      ModeCase{0, 0, 1, 0, false}));

TEST(DataType, ReservedWordInvalidatesButDoesNotUnequal) {
    zul_DataType a = makeType(0.01f, 1);
    zul_DataType b = a;
    b.reserved[4] = 7;
    EXPECT_TRUE(DataType::isValid(a));
    EXPECT_FALSE(DataType::isValid(b));
    EXPECT_TRUE(DataType::equal(a, b));
}

TEST(DataType, EqualComparesStepAsFloatsAndEveryMode) {
    const zul_DataType base = makeType(0.5f, 1, 1, 9, 1);
    zul_DataType other = base;
    EXPECT_TRUE(DataType::equal(base, other));
    other.normalMode = zul_NORMAL_NONE;
    EXPECT_FALSE(DataType::equal(base, other));
    other = base;
    other.maxReflection = 10;
    EXPECT_FALSE(DataType::equal(base, other));

    const zul_DataType nan = makeType(std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(DataType::equal(nan, nan));
    EXPECT_TRUE(DataType::equal(makeType(0.0f), makeType(-0.0f)));
}

TEST(DataType, ChunkHeaderSizeAddsFourBytesForEachAttribute) {
    for (int color = 0; color <= 2; ++color)
        for (int reflection = 0; reflection <= 1; ++reflection)
            for (int normal = 0; normal <= 1; ++normal) {
                const int expected = 56 + 4 * ((color != 0) + reflection + normal);
                EXPECT_EQ(DataType::getChunkHeaderSize(
                              makeType(0.001f, color, reflection, reflection, normal)),
                          expected);
            }
}

}  // namespace

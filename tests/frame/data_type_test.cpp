#include "frame/data_type.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

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

TEST(DataType, StepBoundsAreExactFloats) {
    const uint32_t smallestBits = 0x30881087u;
    float smallest;
    std::memcpy(&smallest, &smallestBits, sizeof smallest);
    EXPECT_EQ(smallest, 9.9e-10f);  // the float nearest the decimal
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float step;
        bool valid;
    } cases[] = {{10.0f, true},    {std::nextafter(10.0f, 11.0f), false},
                 {smallest, true}, {std::nextafter(smallest, 0.0f), false},
                 {1e-9f, true},    {0.0001f, true},
                 {0.0f, false},    {-0.001f, false},
                 {nan, false},     {inf, false}};
    for (const auto& c : cases) EXPECT_EQ(DataType::isValid(makeType(c.step)), c.valid) << c.step;
}

// Modes are read as unsigned: -1 is no small mode.
TEST(DataType, ModeRules) {
    const struct {
        int32_t color, reflection, maxReflection, normal;
        bool valid;
    } cases[] = {{2, 1, 255, 1, true}, {3, 0, 0, 0, false},  {-1, 0, 0, 0, false},
                 {0, 2, 1, 0, false},  {0, -1, 1, 0, false}, {0, 0, 0, 2, false},
                 {0, 0, 0, -1, false}, {0, 1, 0, 0, false},  {0, 1, 1, 0, true},
                 {0, 1, -5, 0, false}, {0, 0, 1, 0, false}};
    for (const auto& c : cases)
        EXPECT_EQ(
            DataType::isValid(makeType(0.001f, c.color, c.reflection, c.maxReflection, c.normal)),
            c.valid)
            << c.color << " " << c.reflection << " " << c.maxReflection << " " << c.normal;
}

}  // namespace

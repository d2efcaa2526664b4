// Static functions on zul_DataType: validity, equality, initialisation, chunk header size.
#pragma once

#include "zul.h"

namespace zullib {

class ZUL_API DataType {
public:
    // True if the step lies in [9.9e-10, 10.0] (so not NaN), the modes read as unsigned are
    // defined values, maxReflection is >= 1 with reflection and 0 without, and reserved is 0.
    static bool isValid(const zul_DataType& dataType);
    // Compares the step as floats and the four other fields; reserved words are not compared.
    static bool equal(const zul_DataType& a, const zul_DataType& b);
    // Stores the five values and zeroes reserved; validates nothing.
    static void init(zul_DataType& dataType, float quantizationStep, zul_ColorMode colorMode,
                     zul_ReflectionMode reflectionMode, int maxReflection,
                     zul_NormalMode normalMode);
    // Bytes of a chunk header without its sync marker: 56, plus 4 for each attribute present.
    static int getChunkHeaderSize(const zul_DataType& dataType);
};

}  // namespace zullib

// Static functions on zul_DataType: validity, equality, initialisation, chunk header size; and
// which streams a chunk of that type has.
#pragma once

#include "zul.h"

namespace zullib {

// The streams of a chunk body, in the order they follow one another: the coordinates always, then
// colour, reflection and normals as the data type has them. Every place that asks which
// attributes a chunk (or a point array) carries asks here.
struct ChunkStreams {
    explicit ChunkStreams(const zul_DataType& dataType)
        : color(dataType.colorMode != zul_COLOR_NONE),
          reflection(dataType.reflectionMode != zul_REFLECTION_NONE),
          normals(dataType.normalMode != zul_NORMAL_NONE) {}

    bool anyAttribute() const { return color || reflection || normals; }
    // The coordinate stream and one for each attribute present.
    int count() const { return 1 + int{color} + int{reflection} + int{normals}; }

    bool color;
    bool reflection;
    bool normals;
};

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

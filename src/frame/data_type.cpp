#include "frame/data_type.h"

#include <cstdint>
#include <cstring>

namespace zullib {

namespace {
float floatFromBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

uint32_t asUnsigned(int32_t value) { return static_cast<uint32_t>(value); }

// The smallest accepted step is the float with the bits 0x30881087 (9.9e-10), not 1e-9.
const float kMinQuantizationStep = floatFromBits(0x30881087u);
const float kMaxQuantizationStep = 10.0f;
}  // namespace

bool DataType::isValid(const zul_DataType& dataType) {
    // Written so that a NaN step fails both comparisons.
    if (!(dataType.quantizationStep >= kMinQuantizationStep &&
          dataType.quantizationStep <= kMaxQuantizationStep))
        return false;
    if (asUnsigned(dataType.colorMode) > zul_COLOR_RGB888) return false;
    if (asUnsigned(dataType.reflectionMode) > zul_REFLECTION_CLAMPED) return false;
    if (dataType.reflectionMode != zul_REFLECTION_NONE ? dataType.maxReflection < 1
                                                       : dataType.maxReflection != 0)
        return false;
    if (asUnsigned(dataType.normalMode) > zul_NORMAL_SPHERICAL) return false;
    for (uint32_t word : dataType.reserved)
        if (word != 0) return false;
    return true;
}

bool DataType::equal(const zul_DataType& a, const zul_DataType& b) {
    return a.quantizationStep == b.quantizationStep && a.colorMode == b.colorMode &&
           a.reflectionMode == b.reflectionMode && a.maxReflection == b.maxReflection &&
           a.normalMode == b.normalMode;
}

void DataType::init(zul_DataType& dataType, float quantizationStep, zul_ColorMode colorMode,
                    zul_ReflectionMode reflectionMode, int maxReflection,
                    zul_NormalMode normalMode) {
    dataType.quantizationStep = quantizationStep;
    dataType.colorMode = colorMode;
    dataType.reflectionMode = reflectionMode;
    dataType.maxReflection = maxReflection;
    dataType.normalMode = normalMode;
    for (uint32_t& word : dataType.reserved) word = 0;
}

int DataType::getChunkHeaderSize(const zul_DataType& dataType) {
    // The box (six 8-byte corners), the point count (4 bytes), then a 4-byte size per stream.
    return 6 * 8 + 4 + 4 * ChunkStreams(dataType).count();
}

}  // namespace zullib

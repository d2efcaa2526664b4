// Reading and writing one value of a point record, in the record's byte order, for the codec's
// two directions.
#pragma once

#include <cstdint>

#include "byte_order.h"
#include "cloud_layout.h"

namespace zul::ros {

// A FLOAT32 or FLOAT64 value, widened.
inline double loadReal(const uint8_t* p, uint8_t datatype, bool big) {
    if (datatype == kFloat32) {
        const uint32_t bits = load<uint32_t>(p, big);
        float value;
        std::memcpy(&value, &bits, 4);
        return value;
    }
    const uint64_t bits = load<uint64_t>(p, big);
    double value;
    std::memcpy(&value, &bits, 8);
    return value;
}

inline void storeReal(uint8_t* p, uint8_t datatype, bool big, double value) {
    if (datatype == kFloat32) {
        const float narrow = static_cast<float>(value);
        uint32_t bits;
        std::memcpy(&bits, &narrow, 4);
        store<uint32_t>(p, bits, big);
        return;
    }
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    store<uint64_t>(p, bits, big);
}

// A value of any datatype as a double (exact for every integer type).
inline double loadNumber(const uint8_t* p, uint8_t datatype, bool big) {
    switch (datatype) {
        case kInt8:
            return int8_t(*p);
        case kUint8:
            return *p;
        case kInt16:
            return int16_t(load<uint16_t>(p, big));
        case kUint16:
            return load<uint16_t>(p, big);
        case kInt32:
            return int32_t(load<uint32_t>(p, big));
        case kUint32:
            return load<uint32_t>(p, big);
        default:
            return loadReal(p, datatype, big);
    }
}

// Whether a datatype holds a non-negative whole number.
inline bool holdsWhole(uint8_t datatype, int32_t value) {
    switch (datatype) {
        case kInt8:
            return value <= 127;
        case kUint8:
            return value <= 255;
        case kInt16:
            return value <= 32767;
        case kUint16:
            return value <= 65535;
        default:
            return true;
    }
}

// Stores a whole number in a datatype that holds it.
inline void storeWhole(uint8_t* p, uint8_t datatype, bool big, int32_t value) {
    switch (datatype) {
        case kInt8:
        case kUint8:
            *p = uint8_t(value);
            return;
        case kInt16:
        case kUint16:
            store<uint16_t>(p, uint16_t(value), big);
            return;
        case kInt32:
        case kUint32:
            store<uint32_t>(p, uint32_t(value), big);
            return;
        default:
            storeReal(p, datatype, big, double(value));
    }
}

// The bytes of a value as they are, in little-endian order.
inline void copyToLittle(const uint8_t* p, uint32_t size, bool big, uint8_t* out) {
    if (!big || size == 1) {
        std::memcpy(out, p, size);
        return;
    }
    for (uint32_t b = 0; b < size; ++b) out[b] = p[size - 1 - b];
}

inline void copyFromLittle(const uint8_t* in, uint32_t size, bool big, uint8_t* p) {
    copyToLittle(in, size, big, p);
}

}  // namespace zul::ros

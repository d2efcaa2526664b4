// Reading and writing one value of a point record, in the record's byte order, for the codec's
// two directions.
#pragma once

#include <cstdint>
#include <type_traits>

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

// Reads and writes x, y and z of a record: of any types and byte order, or (SameAxes) all three
// of type T in the byte order `Big`, with loops the compiler makes of its own.
struct AnyAxes {
    const CloudLayout& layout;
    bool narrow(int k) const { return layout.position[k].datatype == kFloat32; }
    double operator()(const uint8_t* record, int k) const {
        const StreamField& axis = layout.position[k];
        return loadReal(record + axis.offset, axis.datatype, layout.bigEndian);
    }
    void store(uint8_t* record, int k, double value) const {
        const StreamField& axis = layout.position[k];
        storeReal(record + axis.offset, axis.datatype, layout.bigEndian, value);
    }
};

template <typename T, bool Big>
struct SameAxes {
    using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    uint32_t offset[3];
    static constexpr bool narrow(int) { return sizeof(T) == 4; }
    double operator()(const uint8_t* record, int k) const {
        Bits bits = loadLittle<Bits>(record + offset[k]);
        if (Big) bits = byteSwap(bits);
        T value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    void store(uint8_t* record, int k, double value) const {
        const T narrowed = static_cast<T>(value);
        Bits bits;
        std::memcpy(&bits, &narrowed, sizeof bits);
        if (Big) bits = byteSwap(bits);
        storeLittle<Bits>(record + offset[k], bits);
    }
};

// Calls `f` with the reader and writer of x, y and z that fits the layout.
template <typename F>
inline void withAxes(const CloudLayout& layout, F&& f) {
    const uint8_t type = layout.position[0].datatype;
    const uint32_t offsets[3] = {layout.position[0].offset, layout.position[1].offset,
                                 layout.position[2].offset};
    if (layout.position[1].datatype != type || layout.position[2].datatype != type)
        return f(AnyAxes{layout});
    if (type == kFloat32)
        return layout.bigEndian ? f(SameAxes<float, true>{{offsets[0], offsets[1], offsets[2]}})
                                : f(SameAxes<float, false>{{offsets[0], offsets[1], offsets[2]}});
    return layout.bigEndian ? f(SameAxes<double, true>{{offsets[0], offsets[1], offsets[2]}})
                            : f(SameAxes<double, false>{{offsets[0], offsets[1], offsets[2]}});
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

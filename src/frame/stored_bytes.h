// How values stand in a stream: little-endian integers and floats at any byte offset, whatever
// the host's byte order and alignment, and the byte that a host's bool field really holds.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zullib {

inline void storeLE(unsigned char* out, uint64_t value, int numBytes) {
    for (int i = 0; i < numBytes; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline uint64_t loadLE(const unsigned char* in, int numBytes) {
    uint64_t value = 0;
    for (int i = 0; i < numBytes; ++i) value |= static_cast<uint64_t>(in[i]) << (8 * i);
    return value;
}

// Floats and doubles travel as their IEEE 754 bit patterns, in the byte order above.
template <typename Value>
using BitsOf = std::conditional_t<sizeof(Value) == 4, uint32_t, uint64_t>;

template <typename Value>
inline void storeValueLE(unsigned char* out, Value value) {
    BitsOf<Value> bits;
    static_assert(sizeof bits == sizeof value, "a float or a double");
    std::memcpy(&bits, &value, sizeof bits);
    storeLE(out, bits, sizeof bits);
}

template <typename Value>
inline Value loadValueLE(const unsigned char* in) {
    const BitsOf<Value> bits = static_cast<BitsOf<Value>>(loadLE(in, sizeof(Value)));
    Value value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// A host record may hold any byte in a bool field (a C host can memset it). Reading such a byte
// as bool is undefined, so records from outside are read byte-wise: any value but 0 is true.
inline uint8_t storedByte(const bool& flag) {
    uint8_t byte;
    std::memcpy(&byte, &flag, 1);
    return byte;
}

inline bool storedFlag(const bool& flag) { return storedByte(flag) != 0; }

}  // namespace zullib

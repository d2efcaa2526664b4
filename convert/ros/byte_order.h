// Loads and stores of values in a given byte order, by copying bytes (no alignment needed).
#pragma once

#include <cstdint>
#include <cstring>

namespace zul::ros {

template <typename T>
inline T byteSwap(T v) {
    if constexpr (sizeof(T) == 1) return v;
    if constexpr (sizeof(T) == 2) return T(__builtin_bswap16(uint16_t(v)));
    if constexpr (sizeof(T) == 4) return T(__builtin_bswap32(uint32_t(v)));
    if constexpr (sizeof(T) == 8) return T(__builtin_bswap64(uint64_t(v)));
}

template <typename T>
inline T loadLittle(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;  // the library is built for little-endian hosts (x86-64)
}

template <typename T>
inline void storeLittle(uint8_t* p, T v) {
    std::memcpy(p, &v, sizeof(T));
}

template <typename T>
inline T load(const uint8_t* p, bool bigEndian) {
    const T v = loadLittle<T>(p);
    return bigEndian ? byteSwap(v) : v;
}

template <typename T>
inline void store(uint8_t* p, T v, bool bigEndian) {
    storeLittle<T>(p, bigEndian ? byteSwap(v) : v);
}

}  // namespace zul::ros

// What the library asks of the compiler beyond C++17, in one place: bit scans, forced inlining
// and loop unrolling, as GCC and Clang offer them (include/zul.h says which platforms and
// compilers are supported, and holds the export attribute, as hosts need it too).
#pragma once

#include <cstdint>

// Inlined whatever the compiler's own judgement: the fast paths are only fast when every step is
// inlined into the loop that keeps the cursor in registers.
#define ZUL_ALWAYS_INLINE inline __attribute__((always_inline))

// A member of an exported class that stays inside the library: the calls the bulk layer makes
// on the codec contexts, which are not part of their exported interface.
#define ZUL_INTERNAL __attribute__((visibility("hidden")))

// Unrolls the loop that follows four times (the loops over a stream's components and over a
// chunk's records).
#define ZUL_UNROLL_4 _Pragma("GCC unroll 4")

namespace zullib {

// The zero bits above the highest one bit of `value`, which must not be 0.
inline int countLeadingZeros(uint64_t value) { return __builtin_clzll(value); }

// The zero bits below the lowest one bit of `value`, which must not be 0.
inline int countTrailingZeros(uint64_t value) { return __builtin_ctzll(value); }

}  // namespace zullib

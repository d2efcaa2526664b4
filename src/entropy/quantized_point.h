// The per-point record of the encoder and the decoder once every value is an integer, and the four
// views of it that the data streams take. An accessor tells the generic stream code how many
// components its stream has, which field is component c, what stands before a chunk's first point
// and which way a delta is taken.
#pragma once

#include <cstdint>

#include "frame/wrapping.h"
#include "zul.h"

namespace zullib {

// The attribute streams take every delta as current - previous, with signed tables.
struct ForwardDeltas {
    static bool nonNegative(int) { return false; }
    static int64_t delta(int, int64_t previous, int64_t current) {
        return wrappingSub(current, previous);
    }
    static int64_t undoDelta(int, int64_t previous, int64_t delta) {
        return wrappingAdd(previous, delta);
    }
};

struct ZUL_API zul_QuantizedPoint {
    // Grid position. After shifting, slot k is the offset of axis axisRemap[k] from the box
    // minimum of that axis, so it is never negative in a chunk whose span stays below 2^63.
    int64_t coordinates[3];
    uint8_t rgb[3];      // as kept: 5/6/5 or 8/8/8 bits
    int32_t reflection;  // clamped to 0 .. maxReflection
    int32_t normal[2];   // longitude cell, latitude row; unsigned in use

    // Slot 0 is the primary sort key, so its delta (current - previous) is never negative and is
    // coded without a sign. Slots 1 and 2 take previous - current: the format fixes that direction.
    struct CoordinateAccessor {
        static constexpr int kNumComponents = 3;
        static int64_t get(const zul_QuantizedPoint& p, int c) { return p.coordinates[c]; }
        static void set(zul_QuantizedPoint& p, int c, int64_t v) { p.coordinates[c] = v; }
        static int64_t predecessor(int) { return 0; }
        static bool nonNegative(int c) { return c == 0; }
        static int64_t delta(int c, int64_t previous, int64_t current) {
            return c == 0 ? wrappingSub(current, previous) : wrappingSub(previous, current);
        }
        static int64_t undoDelta(int c, int64_t previous, int64_t delta) {
            return c == 0 ? wrappingAdd(previous, delta) : wrappingSub(previous, delta);
        }
    };

    // Values read from a stream are cut to the width of their field.
    struct RGBAccessor : ForwardDeltas {
        static constexpr int kNumComponents = 3;
        static int64_t get(const zul_QuantizedPoint& p, int c) { return p.rgb[c]; }
        static void set(zul_QuantizedPoint& p, int c, int64_t v) {
            p.rgb[c] = static_cast<uint8_t>(v);
        }
        static int64_t predecessor(int) { return 0; }
    };

    struct ReflectionAccessor : ForwardDeltas {
        static constexpr int kNumComponents = 1;
        static int64_t get(const zul_QuantizedPoint& p, int) { return p.reflection; }
        static void set(zul_QuantizedPoint& p, int, int64_t v) {
            p.reflection = static_cast<int32_t>(static_cast<uint32_t>(v));
        }
        static int64_t predecessor(int) { return 0; }
    };

    // Cells and rows are unsigned in use. The predecessor (12, 0) is the cell of (0, 0, 1).
    struct NormalAccessor : ForwardDeltas {
        static constexpr int kNumComponents = 2;
        static int64_t get(const zul_QuantizedPoint& p, int c) {
            return static_cast<uint32_t>(p.normal[c]);
        }
        static void set(zul_QuantizedPoint& p, int c, int64_t v) {
            p.normal[c] = static_cast<int32_t>(static_cast<uint32_t>(v));
        }
        static int64_t predecessor(int c) { return c == 0 ? 12 : 0; }
    };
};

}  // namespace zullib

// Grid positions from the records to the output: each axis is the record's slot plus the box
// minimum (wrapping in 64 bits), converted to double and times the step. The plain form converts
// one value at a time. The fast form (SSE2, two points a turn) converts with the magic number
// 1.5 * 2^52: an integer x in [-2^51, 2^51) added to its bits gives the double 1.5 * 2^52 + x
// exactly, from which a subtraction leaves x, exactly as the plain conversion gives it; the
// product with the step is then the same operation on the same operands. Where any value of the
// chunk falls outside that range, the plain form writes the whole chunk again.
#pragma once

#include <cstddef>
#include <cstdint>

#include "entropy/quantized_point.h"
#include "frame/wrapping.h"

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>
#define ZUL_POSITION_COPY_SSE2 1
#endif

namespace zullib {

// Where each axis of the output comes from, and what is added to it.
struct PositionLayout {
    int slots[3];      // slots[axis]: the record slot that holds the axis
    long long min[3];  // by axis
    double step;
};

inline void copyPositionsPlain(double* positions, const zul_QuantizedPoint* records, size_t n,
                               const PositionLayout& layout) {
    const int slots[3] = {layout.slots[0], layout.slots[1], layout.slots[2]};
    const long long min[3] = {layout.min[0], layout.min[1], layout.min[2]};
    const double step = layout.step;
    for (size_t i = 0; i < n; ++i)
        for (int axis = 0; axis < 3; ++axis)
            positions[3 * i + axis] =
                static_cast<double>(wrappingAdd(records[i].coordinates[slots[axis]], min[axis])) *
                step;
}

#ifdef ZUL_POSITION_COPY_SSE2
// The fast form; false (and the output partly written) where a value lies outside [-2^51, 2^51).
inline bool copyPositionsMagic(double* positions, const zul_QuantizedPoint* records, size_t n,
                               const PositionLayout& layout) {
    const int64_t kMagicBits = 0x4338000000000000;  // 1.5 * 2^52
    long long minBySlot[3];
    int axisOf[3];
    for (int axis = 0; axis < 3; ++axis) {
        minBySlot[layout.slots[axis]] = layout.min[axis];
        axisOf[layout.slots[axis]] = axis;
    }
    // The minimum and the magic number in one addition: wrapping sums, whose bits are the same
    // either way round.
    const auto biased = [&](int slot) {
        return static_cast<long long>(static_cast<uint64_t>(minBySlot[slot]) +
                                      static_cast<uint64_t>(kMagicBits));
    };
    const __m128i bias01 = _mm_set_epi64x(biased(1), biased(0));
    const __m128i bias22 = _mm_set1_epi64x(biased(2));
    const __m128i magicBits = _mm_set1_epi64x(kMagicBits);
    const __m128d magic = _mm_castsi128_pd(magicBits);
    const __m128d step = _mm_set1_pd(layout.step);
    // The top 12 bits of every biased value must be the magic number's: they are where the AND
    // and the OR of all the values both have them.
    __m128i all = _mm_set1_epi64x(-1), any = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 2 <= n; i += 2) {
        const int64_t* a = records[i].coordinates;
        const int64_t* b = records[i + 1].coordinates;
        __m128i a01 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
        __m128i b01 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
        __m128i ab2 = _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 2)),
                                         _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b + 2)));
        a01 = _mm_add_epi64(a01, bias01);
        b01 = _mm_add_epi64(b01, bias01);
        ab2 = _mm_add_epi64(ab2, bias22);
        all = _mm_and_si128(_mm_and_si128(all, a01), _mm_and_si128(b01, ab2));
        any = _mm_or_si128(_mm_or_si128(any, a01), _mm_or_si128(b01, ab2));
        const __m128d da = _mm_mul_pd(_mm_sub_pd(_mm_castsi128_pd(a01), magic), step);
        const __m128d db = _mm_mul_pd(_mm_sub_pd(_mm_castsi128_pd(b01), magic), step);
        const __m128d d2 = _mm_mul_pd(_mm_sub_pd(_mm_castsi128_pd(ab2), magic), step);
        double* out = positions + 3 * i;
        _mm_storel_pd(out + axisOf[0], da);
        _mm_storeh_pd(out + axisOf[1], da);
        _mm_storel_pd(out + axisOf[2], d2);
        _mm_storel_pd(out + 3 + axisOf[0], db);
        _mm_storeh_pd(out + 3 + axisOf[1], db);
        _mm_storeh_pd(out + 3 + axisOf[2], d2);
    }
    alignas(16) uint64_t lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), all);
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes + 2), any);
    const uint64_t kTop = 0xFFF0000000000000;
    const uint64_t magicTop = static_cast<uint64_t>(kMagicBits) & kTop;
    for (uint64_t lane : lanes)
        if (i > 0 && (lane & kTop) != magicTop) return false;
    if (i < n) copyPositionsPlain(positions + 3 * i, records + i, n - i, layout);
    return true;
}
#endif

// The fast form where the processor has it and every value fits, else the plain one.
inline void copyPositions(double* positions, const zul_QuantizedPoint* records, size_t n,
                          const PositionLayout& layout) {
#ifdef ZUL_POSITION_COPY_SSE2
    if (copyPositionsMagic(positions, records, n, layout)) return;
#endif
    copyPositionsPlain(positions, records, n, layout);
}

}  // namespace zullib

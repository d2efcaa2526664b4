#include "commands/companion_restore_fill.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <type_traits>
#include <utility>

#include "formats/byte_input.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace zulconvert {

using zulformats::loadLittle;

namespace {

template <typename T>
void put(unsigned char* at, T value) {
    std::memcpy(at, &value, sizeof value);
}

// The stream's matrix applied as residualWorld does. With no rotation or shear (every entry off
// the diagonal zero) each added product of a zero and a finite coordinate is a zero: the sum is
// the same double but for the sign of a zero, which no rounded coordinate keeps. A coordinate
// that is not finite (a zero times it is no zero) gives units that are not finite on its own
// axis: a block with units out of an int32's reach takes the whole sum.
struct NoMatrix {
    double at(const double* g, int row) const { return g[row]; }
};
struct DiagonalMatrix {
    const double* m;
    double move[3], factor[3];
    explicit DiagonalMatrix(const double* matrix)
        : m(matrix), move{m[12], m[13], m[14]}, factor{m[0], m[5], m[10]} {}
    double at(const double* g, int row) const { return move[row] + factor[row] * g[row]; }
};
struct FullMatrix {
    const double* m;
    double at(const double* g, int row) const {
        double sum = m[12 + row];
        for (int column = 0; column < 3; ++column) sum += m[4 * column + row] * g[column];
        return sum;
    }
};

// lasCoordinate of `n` values of units ((q - offset) / scale): the nearest integer, halves away
// from zero, where that is an int32, else 0. A value within (-2^31 - 0.5, 2^31 - 0.5) is exactly
// one whose nearest integer is an int32, and its truncation is one too: no branch, two values at
// once where the processor has the instructions.
constexpr double kLowest = -2147483648.5, kHighest = 2147483647.5;

int32_t roundUnit(double u, bool& allInside) {
    const bool in = u > kLowest && u < kHighest;
    allInside = allInside && in;
    const double inside = in ? u : 0.0;
    const int32_t whole = static_cast<int32_t>(inside);
    const double fraction = inside - static_cast<double>(whole);
    return whole + (fraction >= 0.5 ? 1 : 0) - (fraction <= -0.5 ? 1 : 0);
}

#if defined(__SSE2__)
// roundUnit of two values at once, keeping whether every value was within reach.
class RoundTwo {
public:
    __m128i operator()(__m128d u) {
        const __m128d in = _mm_and_pd(_mm_cmpgt_pd(u, lowest_), _mm_cmplt_pd(u, highest_));
        every_ = _mm_and_pd(every_, in);
        const __m128d inside = _mm_and_pd(u, in);
        const __m128i whole = _mm_cvttpd_epi32(inside);
        const __m128d fraction = _mm_sub_pd(inside, _mm_cvtepi32_pd(whole));
        // Each comparison's all-ones is -1 in the low half of its lane.
        const __m128i up = _mm_shuffle_epi32(_mm_castpd_si128(_mm_cmpge_pd(fraction, half_)),
                                             _MM_SHUFFLE(2, 0, 2, 0));
        const __m128i down = _mm_shuffle_epi32(_mm_castpd_si128(_mm_cmple_pd(fraction, minusHalf_)),
                                               _MM_SHUFFLE(2, 0, 2, 0));
        return _mm_add_epi32(_mm_sub_epi32(whole, up), down);
    }
    bool allInside() const { return _mm_movemask_pd(every_) == 3; }

private:
    __m128d lowest_ = _mm_set1_pd(kLowest), highest_ = _mm_set1_pd(kHighest);
    __m128d half_ = _mm_set1_pd(0.5), minusHalf_ = _mm_set1_pd(-0.5);
    __m128d every_ = _mm_castsi128_pd(_mm_set1_epi32(-1));
};
#endif

// Returns whether every value was within an int32's reach.
bool roundUnits(const double* units, int64_t n, int32_t* out) {
    int64_t k = 0;
    bool allInside = true;
#if defined(__SSE2__)
    RoundTwo round;
    for (; k + 2 <= n; k += 2)
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + k), round(_mm_loadu_pd(units + k)));
    allInside = round.allInside();
#endif
    for (; k < n; ++k) out[k] = roundUnit(units[k], allInside);
    return allInside;
}

// Without a matrix or with a diagonal one: the units of `count` points and their rounding in one
// pass, two points (six values, each lane the operations of at() and of the units) a turn.
// Returns whether every value was within an int32's reach.
template <typename World>
bool roundPoints(const World& world, const double* g, int64_t count, const double* offset,
                 const double* scale, int32_t* out) {
    int64_t i = 0;
    bool allInside = true;
#if defined(__SSE2__)
    constexpr bool kDiagonal = std::is_same<World, DiagonalMatrix>::value;
    __m128d move[3], factor[3], shift[3], step[3];
    for (int j = 0; j < 3; ++j) {
        const int a = (2 * j) % 3, b = (2 * j + 1) % 3;  // the axes of the turn's pair j
        shift[j] = _mm_setr_pd(offset[a], offset[b]);
        step[j] = _mm_setr_pd(scale[a], scale[b]);
        if constexpr (kDiagonal) {
            move[j] = _mm_setr_pd(world.move[a], world.move[b]);
            factor[j] = _mm_setr_pd(world.factor[a], world.factor[b]);
        }
    }
    RoundTwo round;
    for (; i + 2 <= count; i += 2) {
        for (int j = 0; j < 3; ++j) {
            __m128d q = _mm_loadu_pd(g + 3 * i + 2 * j);
            if constexpr (kDiagonal) q = _mm_add_pd(move[j], _mm_mul_pd(factor[j], q));
            const __m128d units = _mm_div_pd(_mm_sub_pd(q, shift[j]), step[j]);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 3 * i + 2 * j), round(units));
        }
    }
    allInside = round.allInside();
#endif
    for (; i < count; ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            out[3 * i + axis] =
                roundUnit((world.at(g + 3 * i, axis) - offset[axis]) / scale[axis], allInside);
        }
    }
    return allInside;
}

#if defined(__x86_64__) && defined(__GNUC__)
#define ZUL_ROUND_FOUR 1
// roundPoints four points (twelve values, three turns of four lanes) at a time, on processors
// with the wider instructions: the same operations on each lane, so the same integers. The
// truncation is the rounding instruction's toward zero, exact as the conversion's; the step of a
// half is added as a double (0 or 1, exact) before the conversion, whose result is then an int32
// for every value within reach.
template <typename World>
__attribute__((target("avx2"))) bool roundPointsFour(const World& world, const double* g,
                                                     int64_t count, const double* offset,
                                                     const double* scale, int32_t* out) {
    constexpr bool kDiagonal = std::is_same<World, DiagonalMatrix>::value;
    __m256d move[3], factor[3], shift[3], step[3];
    for (int j = 0; j < 3; ++j) {
        int axes[4];
        for (int l = 0; l < 4; ++l) axes[l] = (4 * j + l) % 3;
        shift[j] =
            _mm256_setr_pd(offset[axes[0]], offset[axes[1]], offset[axes[2]], offset[axes[3]]);
        step[j] = _mm256_setr_pd(scale[axes[0]], scale[axes[1]], scale[axes[2]], scale[axes[3]]);
        if constexpr (kDiagonal) {
            move[j] = _mm256_setr_pd(world.move[axes[0]], world.move[axes[1]], world.move[axes[2]],
                                     world.move[axes[3]]);
            factor[j] = _mm256_setr_pd(world.factor[axes[0]], world.factor[axes[1]],
                                       world.factor[axes[2]], world.factor[axes[3]]);
        }
    }
    const __m256d lowest = _mm256_set1_pd(kLowest), highest = _mm256_set1_pd(kHighest);
    const __m256d half = _mm256_set1_pd(0.5), minusHalf = _mm256_set1_pd(-0.5);
    const __m256d one = _mm256_set1_pd(1.0);
    __m256d every = _mm256_castsi256_pd(_mm256_set1_epi32(-1));
    int64_t i = 0;
    for (; i + 4 <= count; i += 4) {
        for (int j = 0; j < 3; ++j) {
            __m256d q = _mm256_loadu_pd(g + 3 * i + 4 * j);
            if constexpr (kDiagonal) q = _mm256_add_pd(move[j], _mm256_mul_pd(factor[j], q));
            const __m256d u = _mm256_div_pd(_mm256_sub_pd(q, shift[j]), step[j]);
            const __m256d in = _mm256_and_pd(_mm256_cmp_pd(u, lowest, _CMP_GT_OQ),
                                             _mm256_cmp_pd(u, highest, _CMP_LT_OQ));
            every = _mm256_and_pd(every, in);
            const __m256d inside = _mm256_and_pd(u, in);
            const __m256d whole = _mm256_round_pd(inside, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
            const __m256d fraction = _mm256_sub_pd(inside, whole);
            const __m256d up = _mm256_and_pd(_mm256_cmp_pd(fraction, half, _CMP_GE_OQ), one);
            const __m256d down = _mm256_and_pd(_mm256_cmp_pd(fraction, minusHalf, _CMP_LE_OQ), one);
            const __m128i rounded =
                _mm256_cvttpd_epi32(_mm256_sub_pd(_mm256_add_pd(whole, up), down));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 3 * i + 4 * j), rounded);
        }
    }
    bool allInside = _mm256_movemask_pd(every) == 15;
    for (; i < count; ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            out[3 * i + axis] =
                roundUnit((world.at(g + 3 * i, axis) - offset[axis]) / scale[axis], allInside);
        }
    }
    return allInside;
}

std::atomic<bool> fourAllowed{true};

bool hasFour() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has && fourAllowed.load(std::memory_order_relaxed);
}
#endif

// Coordinates, and the intensity and colour where the records take them, of `n` records; the
// coordinates a block of points at a time: the rounded units, then the records.
template <bool kIntensity, bool kColour, typename World>
void putEach(const World& world, const zul_bulk_Points& points, int64_t at, int64_t n,
             const LasHead& las, int64_t colorScale, unsigned char* records) {
    constexpr int64_t kBlock = 512;
    double units[3 * kBlock];
    int32_t whole[3 * kBlock];
    uint16_t wide[3 * kBlock];
    // A colour times the scale, kept to 16 bits: the same whatever the scale's higher bits.
    const uint16_t scale16 = static_cast<uint16_t>(colorScale);
    const size_t length = las.recordLength;
    const double scale[3] = {las.scale[0], las.scale[1], las.scale[2]};
    const double offset[3] = {las.offset[0], las.offset[1], las.offset[2]};
    const size_t colorOffset = static_cast<size_t>(las.colorOffset);
    for (int64_t from = 0; from < n; from += kBlock) {
        const int64_t count = std::min(kBlock, n - from);
        const double* g = points.positions + 3 * (at + from);
        const auto unitsWith = [&](const auto& through) {
            const double* p = g;
            for (int64_t i = 0; i < count; ++i, p += 3) {
                for (int axis = 0; axis < 3; ++axis)
                    units[3 * i + axis] = (through.at(p, axis) - offset[axis]) / scale[axis];
            }
        };
        bool allInside;
        if constexpr (std::is_same<World, FullMatrix>::value) {
            unitsWith(world);
            allInside = roundUnits(units, 3 * count, whole);
        } else {
#if defined(ZUL_ROUND_FOUR)
            allInside = hasFour() ? roundPointsFour(world, g, count, offset, scale, whole)
                                  : roundPoints(world, g, count, offset, scale, whole);
#else
            allInside = roundPoints(world, g, count, offset, scale, whole);
#endif
        }
        if (!allInside) {
            if constexpr (std::is_same<World, DiagonalMatrix>::value) {
                unitsWith(FullMatrix{world.m});
                roundUnits(units, 3 * count, whole);
            }
        }
        const int32_t* reflection = kIntensity ? points.reflections + at + from : nullptr;
        if (kColour) {
            // The block's colours at the records' scale first, in a loop the compiler widens.
            const uint8_t* colour = points.colors + 3 * (at + from);
            for (int64_t k = 0; k < 3 * count; ++k)
                wide[k] = static_cast<uint16_t>(colour[k] * scale16);
        }
        unsigned char* r = records + static_cast<size_t>(from) * length;
        for (int64_t i = 0; i < count; ++i, r += length) {
            std::memcpy(r, whole + 3 * i, 12);
            if (kIntensity) put(r + 12, static_cast<uint16_t>(reflection[i]));
            if (kColour) std::memcpy(r + colorOffset, wide + 3 * i, 6);
        }
    }
}

template <typename World>
void putPointsWith(const World& world, const zul_bulk_Points& points, int64_t at, int64_t n,
                   const LasHead& las, int64_t colorScale, unsigned char* records) {
    const bool colour = las.colorOffset > 0 && points.colors;
    if (points.reflections && colour)
        putEach<true, true>(world, points, at, n, las, colorScale, records);
    else if (points.reflections)
        putEach<true, false>(world, points, at, n, las, colorScale, records);
    else if (colour)
        putEach<false, true>(world, points, at, n, las, colorScale, records);
    else
        putEach<false, false>(world, points, at, n, las, colorScale, records);
}

// Copies a column's `n` values into their place in each record.
template <size_t W>
void copyColumn(const unsigned char* column, int64_t n, size_t length, unsigned char* r) {
    // Four values a turn: the loop's own steps cost more than a copy.
    int64_t i = 0;
    for (; i + 4 <= n; i += 4, column += 4 * W, r += 4 * length) {
        std::memcpy(r, column, W);
        std::memcpy(r + length, column + W, W);
        std::memcpy(r + 2 * length, column + 2 * W, W);
        std::memcpy(r + 3 * length, column + 3 * W, W);
    }
    for (; i < n; ++i, column += W, r += length) std::memcpy(r, column, W);
}

// Adds a difference column's `n` values to the values at `r` of each record, modulo the width.
template <typename U>
void addColumn(const unsigned char* column, int64_t n, size_t length, unsigned char* r) {
    for (int64_t i = 0; i < n; ++i, column += sizeof(U), r += length)
        put(r, static_cast<U>(loadLittle<U>(r) + loadLittle<U>(column)));
}

template <size_t L>
int64_t placeEach(const unsigned char* records, int64_t n, size_t length, const uint64_t* order,
                  uint64_t count, unsigned char* taken, unsigned char* whole) {
    const size_t size = L == 0 ? length : L;  // a length of its own, or any
    for (int64_t i = 0; i < n; ++i, records += size) {
        const uint64_t k = order[i];
        if (k >= count || taken[k]) return i;
        taken[k] = 1;
        std::memcpy(whole + k * size, records, size);
    }
    return n;
}

}  // namespace

void allowWiderRounding(bool allowed) {
#if defined(ZUL_ROUND_FOUR)
    fourAllowed = allowed;
#else
    (void)allowed;
#endif
}

int64_t placeRecords(const unsigned char* records, int64_t n, size_t length, const uint64_t* order,
                     uint64_t count, unsigned char* taken, unsigned char* whole) {
    // The records of the point formats most files have, copied with a length the compiler knows.
    switch (length) {
        case 20:
            return placeEach<20>(records, n, length, order, count, taken, whole);
        case 28:
            return placeEach<28>(records, n, length, order, count, taken, whole);
        case 30:
            return placeEach<30>(records, n, length, order, count, taken, whole);
        case 34:
            return placeEach<34>(records, n, length, order, count, taken, whole);
        default:
            return placeEach<0>(records, n, length, order, count, taken, whole);
    }
}

LasRecordFill::LasRecordFill(const LasHead& las, const zul_Header2& header, int64_t colorScale,
                             std::vector<Placed> placed)
    : las_(las), colorScale_(colorScale), placed_(std::move(placed)) {
    if (header.enabled) {
        std::copy(header.transformation, header.transformation + 16, matrix_);
        bool diagonal = true;
        for (const int k : {1, 2, 4, 6, 8, 9}) diagonal = diagonal && matrix_[k] == 0;
        matrixKind_ = diagonal ? Matrix::Diagonal : Matrix::Full;
    }
    const size_t length = las_.recordLength;
    for (int intensity = 0; intensity < 2; ++intensity) {
        for (int colour = 0; colour < 2; ++colour) {
            std::vector<bool> written(length, false);
            const auto mark = [&](size_t from, size_t count) {
                for (size_t b = from; b < std::min(length, from + count); ++b) written[b] = true;
            };
            mark(0, 12);
            if (intensity) mark(12, 2);
            if (las_.colorOffset > 0 && colour) mark(static_cast<size_t>(las_.colorOffset), 6);
            for (const Placed& p : placed_)
                if (p.residual < 0) mark(p.offset, static_cast<size_t>(p.width));
            covered_[intensity][colour] =
                std::find(written.begin(), written.end(), false) == written.end();
        }
    }
}

void LasRecordFill::putPoints(const zul_bulk_Points& points, int64_t at, int64_t n,
                              unsigned char* records) const {
    switch (matrixKind_) {
        case Matrix::None:
            return putPointsWith(NoMatrix{}, points, at, n, las_, colorScale_, records);
        case Matrix::Diagonal:
            return putPointsWith(DiagonalMatrix(matrix_), points, at, n, las_, colorScale_,
                                 records);
        case Matrix::Full:
            return putPointsWith(FullMatrix{matrix_}, points, at, n, las_, colorScale_, records);
    }
}

void LasRecordFill::fill(const zul_bulk_Points& points, int64_t at, int64_t n, void* const* values,
                         unsigned char* records) const {
    const size_t length = las_.recordLength;
    if (!covered_[points.reflections != nullptr][points.colors != nullptr])
        std::memset(records, 0, static_cast<size_t>(n) * length);
    putPoints(points, at, n, records);
    for (size_t f = 0; f < placed_.size(); ++f) {
        const Placed& p = placed_[f];
        const unsigned char* column = static_cast<const unsigned char*>(values[f]);
        if (p.residual < 0) {
            unsigned char* r = records + p.offset;
            switch (p.width) {
                case 1:
                    copyColumn<1>(column, n, length, r);
                    break;
                case 2:
                    copyColumn<2>(column, n, length, r);
                    break;
                case 4:
                    copyColumn<4>(column, n, length, r);
                    break;
                case 8:
                    copyColumn<8>(column, n, length, r);
                    break;
                default:
                    for (int64_t i = 0; i < n; ++i)
                        std::memcpy(r + static_cast<size_t>(i) * length,
                                    column + static_cast<size_t>(i) * p.width,
                                    static_cast<size_t>(p.width));
            }
            continue;
        }
        // A difference column: added to what the stream gave, at a place of its own in each record.
        if (p.residual < 3)
            addColumn<uint32_t>(column, n, length, records + 4 * p.residual);
        else
            addColumn<uint16_t>(
                column, n, length,
                records + (p.residual == 3 ? 12 : las_.colorOffset + 2 * (p.residual - 4)));
    }
}

}  // namespace zulconvert

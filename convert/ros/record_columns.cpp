#include "record_columns.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "point_access.h"

namespace zul::ros {

namespace {

// Each record's `Size` bytes at `offset`, copied (and reversed for big-endian values of
// `valueSize` bytes) between the records and the column.
template <size_t Size, bool ToColumn>
void move(const RecordGrid& g, const uint8_t* from, uint8_t* to, uint32_t offset) {
    for (uint64_t r = 0; r < g.rows; ++r) {
        for (uint64_t c = 0; c < g.width; ++c) {
            const uint64_t record = r * g.rowStep + c * g.pointStep + offset;
            const uint64_t value = (r * g.width + c) * Size;
            if (ToColumn)
                std::memcpy(to + value, from + record, Size);
            else
                std::memcpy(to + record, from + value, Size);
        }
    }
}

template <bool ToColumn>
void moveRange(const RecordGrid& g, const uint8_t* from, uint8_t* to, const ColumnRange& range) {
    const uint32_t bytes = range.valueSize * range.count;
    const bool swap = g.bigEndian && range.valueSize > 1;
    if (!swap) {
        switch (bytes) {
            case 1:
                return move<1, ToColumn>(g, from, to, range.offset);
            case 2:
                return move<2, ToColumn>(g, from, to, range.offset);
            case 4:
                return move<4, ToColumn>(g, from, to, range.offset);
            case 8:
                return move<8, ToColumn>(g, from, to, range.offset);
            default:
                break;
        }
    }
    for (uint64_t r = 0; r < g.rows; ++r) {
        for (uint64_t c = 0; c < g.width; ++c) {
            const uint64_t record = r * g.rowStep + c * g.pointStep + range.offset;
            const uint64_t value = (r * g.width + c) * bytes;
            if (!swap) {
                if (ToColumn)
                    std::memcpy(to + value, from + record, bytes);
                else
                    std::memcpy(to + record, from + value, bytes);
                continue;
            }
            for (uint32_t v = 0; v < range.count; ++v) {
                const uint32_t at = v * range.valueSize;
                if (ToColumn)
                    copyToLittle(from + record + at, range.valueSize, g.bigEndian, to + value + at);
                else
                    copyFromLittle(from + value + at, range.valueSize, g.bigEndian,
                                   to + record + at);
            }
        }
    }
}

// A value of `Size` bytes, reversed when `Swap`.
template <size_t Size, bool Swap>
inline void copyValue(const uint8_t* from, uint8_t* to) {
    uint8_t value[Size];
    std::memcpy(value, from, Size);
    if (Swap) std::reverse(value, value + Size);
    std::memcpy(to, value, Size);
}

template <size_t Size, bool Swap>
void gatherListed(const uint8_t* const* records, size_t n, uint32_t offset, uint8_t* column) {
    for (size_t j = 0; j < n; ++j) copyValue<Size, Swap>(records[j] + offset, column + j * Size);
}

template <size_t Size, bool Swap>
void scatterListed(const uint8_t* column, size_t n, uint32_t offset, uint8_t* const* records) {
    for (size_t j = 0; j < n; ++j) copyValue<Size, Swap>(column + j * Size, records[j] + offset);
}

template <size_t S>
using Size = std::integral_constant<size_t, S>;

// Calls `f` with the value size and the reversal as types (std::integral_constant) for widths 1,
// 2, 4 and 8, and for runs of padding of 12 and 16 bytes (never reversed, common after a
// position or a colour), whose loops the compiler then makes of its own; false for other widths.
template <typename F>
bool byWidth(uint32_t width, bool swap, F&& f) {
    using std::false_type;
    using std::true_type;
    // A one-byte value reads the same either way.
    if (width == 1) return f(Size<1>(), false_type()), true;
    switch (width) {
        case 2:
            return swap ? f(Size<2>(), true_type()) : f(Size<2>(), false_type()), true;
        case 4:
            return swap ? f(Size<4>(), true_type()) : f(Size<4>(), false_type()), true;
        case 8:
            return swap ? f(Size<8>(), true_type()) : f(Size<8>(), false_type()), true;
        case 12:
            return !swap && (f(Size<12>(), false_type()), true);
        case 16:
            return !swap && (f(Size<16>(), false_type()), true);
        default:
            return false;  // a run of padding of any other width
    }
}

}  // namespace

void gatherValues(const uint8_t* const* records, size_t n, uint32_t offset, uint32_t width,
                  bool swap, uint8_t* column) {
    if (byWidth(width, swap, [&](auto size, auto reversed) {
            gatherListed<decltype(size)::value, decltype(reversed)::value>(records, n, offset,
                                                                           column);
        }))
        return;
    for (size_t j = 0; j < n; ++j)
        copyToLittle(records[j] + offset, width, swap, column + j * width);
}

void scatterValues(const uint8_t* column, size_t n, uint32_t offset, uint32_t width, bool swap,
                   uint8_t* const* records) {
    if (byWidth(width, swap, [&](auto size, auto reversed) {
            scatterListed<decltype(size)::value, decltype(reversed)::value>(column, n, offset,
                                                                            records);
        }))
        return;
    for (size_t j = 0; j < n; ++j)
        copyFromLittle(column + j * width, width, swap, records[j] + offset);
}

void gatherRange(const RecordGrid& grid, const uint8_t* data, const ColumnRange& range,
                 uint8_t* column) {
    moveRange<true>(grid, data, column, range);
}

void scatterRange(const RecordGrid& grid, const uint8_t* column, const ColumnRange& range,
                  uint8_t* data) {
    moveRange<false>(grid, column, data, range);
}

}  // namespace zul::ros

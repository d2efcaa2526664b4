#include "record_columns.h"

#include <cstring>

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

}  // namespace

void gatherRange(const RecordGrid& grid, const uint8_t* data, const ColumnRange& range,
                 uint8_t* column) {
    moveRange<true>(grid, data, column, range);
}

void scatterRange(const RecordGrid& grid, const uint8_t* column, const ColumnRange& range,
                  uint8_t* data) {
    moveRange<false>(grid, column, data, range);
}

}  // namespace zul::ros

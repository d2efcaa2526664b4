// Moving one byte range of every point record into a column and back, row by row: values stored
// little-endian in the column whatever the record's byte order.
#pragma once

#include <cstdint>

#include "cloud_layout.h"

namespace zul::ros {

// The records of a cloud's data: `rows` rows of `width` records, `rowStep` and `pointStep` apart.
struct RecordGrid {
    uint64_t rows, width, rowStep, pointStep;
    bool bigEndian;
};

void gatherRange(const RecordGrid& grid, const uint8_t* data, const ColumnRange& range,
                 uint8_t* column);
void scatterRange(const RecordGrid& grid, const uint8_t* column, const ColumnRange& range,
                  uint8_t* data);

// The same for a list of records: value j of `column` (`width` bytes, little-endian) is the one
// at `records[j] + offset`, in the records' byte order when `swap` is false, reversed when true.
void gatherValues(const uint8_t* const* records, size_t n, uint32_t offset, uint32_t width,
                  bool swap, uint8_t* column);
void scatterValues(const uint8_t* column, size_t n, uint32_t offset, uint32_t width, bool swap,
                   uint8_t* const* records);

}  // namespace zul::ros

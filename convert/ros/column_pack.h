// The lean column container of a compressed message: named, typed columns of values, each coded
// on its own (integers as differences to the value one point before, floating-point values as the
// XOR of their bits with it, other bytes as they are; then the bytes of the values regrouped by
// significance and compressed with zstd). This is the one place that knows the container's bytes,
// so that another container can take its place behind the same two calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zul::ros {

enum class ColumnCoding : uint8_t { Raw = 0, Delta = 1, Xor = 2 };

// One column: `bytes` holds the values back to back, little-endian, `valuesPerPoint` a point.
struct Column {
    std::string name;
    uint8_t datatype = 2;  // as PointField's datatype; 2 (UINT8) for plain bytes
    uint32_t valuesPerPoint = 1;
    ColumnCoding coding = ColumnCoding::Raw;
    std::vector<uint8_t> bytes;
};

// Appends the columns to `out`.
void packColumns(const std::vector<Column>& columns, int zstdLevel, std::vector<uint8_t>& out);
// The most bytes packColumns() adds for `columns`.
size_t packedColumnsBound(const std::vector<Column>& columns);

// Reads the columns of a container one after the other, each into a column whose name, datatype,
// valuesPerPoint, coding and size (its `bytes` sized, contents ignored) the reader expects there:
// a container that holds another column, of another type or size, a damaged one, more or fewer
// columns, or bytes after the last, throws Error naming the column.
class ColumnReader {
public:
    ColumnReader(const uint8_t* bytes, size_t size);
    void read(Column& expected);
    // After the last column.
    void finish() const;

private:
    const uint8_t* take(size_t n, const std::string& what);
    uint64_t get(int n, const std::string& what);

    const uint8_t* bytes_;
    size_t size_, pos_ = 0;
    uint64_t count_ = 0, read_ = 0;
};

}  // namespace zul::ros

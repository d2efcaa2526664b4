// The LAS records of a chunk built from its decoded points and the companion's columns, each
// record written once where it goes: coordinates, intensity and colour in one pass over the
// points (the stream's matrix, if any, chosen once, not a point at a time), then each column
// copied into place with a loop of its own width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "commands/companion_las.h"
#include "zul.h"
#include "zul_bulk.h"

namespace zulconvert {

// A column of the companion and where it goes in a record.
struct Placed {
    int32_t field;
    int width;
    size_t offset;
    int residual;  // 0-6 for a difference column (kLasResidualNames), -1 for record bytes
};

// Copies each of `n` records of `length` bytes to its place `order[i]` among the `count` records
// of `whole`, marking it in `taken` (count bytes). Returns the index of the first record whose
// place is out of range or taken already, the records before it placed; else n.
int64_t placeRecords(const unsigned char* records, int64_t n, size_t length, const uint64_t* order,
                     uint64_t count, unsigned char* taken, unsigned char* whole);

// Whether the records' coordinates may be rounded with the processor's wider instructions where it
// has them (the default); off, the narrower form rounds them, as on other processors. For tests.
void allowWiderRounding(bool allowed);

class LasRecordFill {
public:
    // `colorScale` multiplies the stream's 8-bit colour; `header` is the stream's (its matrix
    // taken to the records' frame where it is enabled).
    LasRecordFill(const LasHead& las, const zul_Header2& header, int64_t colorScale,
                  std::vector<Placed> placed);

    // Writes the `n` records of points `at` .. `at + n - 1` of `points` to `records` (n times the
    // record length), `values[f]` holding the n values of column `placed[f]`. Every byte of
    // each record is written, those no source gives as 0.
    void fill(const zul_bulk_Points& points, int64_t at, int64_t n, void* const* values,
              unsigned char* records) const;

private:
    void putPoints(const zul_bulk_Points& points, int64_t at, int64_t n,
                   unsigned char* records) const;

    LasHead las_;
    double matrix_[16] = {};
    enum class Matrix { None, Diagonal, Full } matrixKind_ = Matrix::None;
    int64_t colorScale_;
    std::vector<Placed> placed_;
    // [with intensity][with colour]: whether every byte of a record is written without zeroing.
    bool covered_[2][2] = {};
};

}  // namespace zulconvert

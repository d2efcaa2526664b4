// Sensor fields predicted before they reach the companion, so that their columns are mostly
// zeros: from an earlier point of the message (an organised scan's ring is constant along a row,
// its time constant down a column, a flat scan's ring repeats with the number of lasers), or a
// whole number that follows from the position (a lidar's range) as a multiple of the point's
// distance to the origin, as the stream gives the position back. A value is sent as its
// difference to the prediction (modulo 2^bits, on the value's bits in the message's byte order),
// with the sign in the lowest bit; decoding adds the prediction back, in message order, exactly.
#pragma once

#include <cstdint>
#include <vector>

#include "cloud_layout.h"
#include "column_pack.h"
#include "companion_columns.h"
#include "record_columns.h"

namespace zul::ros {

// How a companion column is predicted: not (0), from the point `how` points before (1 to the
// row's width), or (kRadialPrediction) as `scale` times the point's distance to the origin.
inline constexpr uint32_t kRadialPrediction = 0xffffffffu;
struct Prediction {
    uint32_t how = 0;
    double scale = 0;
};

// The container's column "predictions": for each companion column its `how` (u32) and `scale`
// (f64, 0 unless radial), and back, refusing what no writer makes (a distance past the row, a
// prediction of raw bytes, a radial one of other than whole numbers or of a scale that is 0 or
// not finite).
Column predictionColumn(const std::vector<Prediction>& predictions);
Column emptyPredictionColumn(size_t fields);
std::vector<Prediction> readPredictions(const Column& column,
                                        const std::vector<CompanionField>& fields, uint32_t width);

// One value of a record: its offset in the record and its width (1, 2, 4 or 8 bytes).
struct PredictedValue {
    uint32_t offset, width;
};

// The distance (1 to the row's width) a value is predicted from, or 0 for none, measured on a
// sample of the message's points: the distance whose differences need the fewest significant bits,
// when they need at most three quarters of the bits of the values themselves. `bitsPerPoint` gets
// what the differences (or without a distance the values) need a point.
uint32_t choosePrediction(const RecordGrid& grid, const uint8_t* data, PredictedValue value,
                          double& bitsPerPoint);

// A point's distance to the origin, of the position as the stream gives it back, and the whole
// number `scale` times that predicts (rounded half up; 0 when it is not finite or not below 2^62
// in magnitude). The same on every machine: the library is built without contracted products.
double radiusOf(double x, double y, double z);
// The distance of a stream point on the grid (`grid`: x, y, z), as the stream gives its position
// back with `step` (`narrow`: an axis of FLOAT32).
double gridRadius(const int64_t* grid, double step, const bool* narrow);
int64_t radialPrediction(double radius, double scale);

// The scale of a radial prediction of a whole-number value (`isSigned`: of a signed type) from a
// sample of stream points (their records and radii): the median ratio of value to radius, a power
// of ten when within 1% of one; 0 when no point has a radius. `bitsPerPoint` gets what its
// differences need a point.
double chooseRadialScale(const uint8_t* const* records, const double* radii, size_t n,
                         PredictedValue value, bool isSigned, bool big, double& bitsPerPoint);

// The differences of the stream points' values (`records`, their message indices `indices` and
// positions on the grid, `grid`) to their radial predictions, little-endian, at their message
// index in `out`.
void predictRadially(const uint8_t* const* records, const uint32_t* indices, const int64_t* grid,
                     double step, const bool* narrow, size_t n, PredictedValue value, double scale,
                     bool big, uint8_t* out);

// The differences of every point's value to its prediction, little-endian, in message order, into
// `out` (the points' count times the width bytes). `distance` is 1 to grid.width. The value of
// point i is predicted by that of point i - distance, for the points of the first row closer to
// its start than that by the point before it, for the first point by 0.
void predictValues(const RecordGrid& grid, const uint8_t* data, PredictedValue value,
                   uint32_t distance, uint8_t* out);

// A value of the records and how it is predicted.
struct PredictedField {
    PredictedValue value;
    Prediction prediction;
};

// Adds their predictions back to the values of every point whose `inStream` byte is not 0, in
// one pass in message order (the points before have their values by then; a point with byte 0
// holds its own already; x, y and z as the layout has them are the stream's).
void undoPredictions(const RecordGrid& grid, uint8_t* data, const CloudLayout& layout,
                     const std::vector<PredictedField>& fields, const uint8_t* inStream);
// The same for radial predictions only, of the stream points at `records` (their x, y and z
// written): a chunk's points while they are in the cache.
void undoRadialPredictions(uint8_t* const* records, size_t n, const CloudLayout& layout,
                           const std::vector<PredictedField>& fields);

}  // namespace zul::ros

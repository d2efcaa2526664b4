// The grid on which a stream's positions come out, as a reader of the stream gets them, and the
// shortest decimal text of a step: what the tool shows and what a LAS output stores.
#pragma once

#include <string>

#include "zul.h"

namespace zulformats {

struct OutputGrid {
    // Distance of neighbouring grid points in output coordinates.
    double step = 0;
    // True where every output position is k * step + offset computed in double, k an integer:
    // a stream on the integer grid whose matrix is a uniform scale and a translation, applied.
    bool exact = false;
    double offset[3] = {0, 0, 0};
};

// The grid of a stream with `dataType` and `header`, read with the transformation applied or not.
OutputGrid outputGrid(const zul_DataType& dataType, const zul_Header2& header, bool applied);

// The step of the grid a reader gets, as text: the decimal that compress was given ("0.01" for a
// LAS scale of 0.01), or the float step of a stream without a matrix, shortest first.
std::string stepText(const zul_DataType& dataType, const zul_Header2& header);

// The shortest decimal that reads back as the same number, without an exponent: 0.01 for the
// double 0.01, 0.001 for the float 0.001f (not 0.00100000005).
std::string shortestDecimal(double value);
std::string shortestDecimal(float value);

// Decimals that show a multiple of `step` in full: 2 for 0.01, 4 for 0.0005, 0 for 1 or more.
int decimalsOfStep(double step);

}  // namespace zulformats

// What `zul compress` stores of an input file: the step, which attributes it keeps and how, and
// each point as it goes into the stream. Shared by the command and the benchmarks, so that both
// store the same points.
#pragma once

#include <cstdint>
#include <string>

#include "commands.h"
#include "formats/cloud.h"
#include "zul.h"

namespace zultool {

struct ReflectionPlan {
    bool keep = false;
    double scale = 1;
    int32_t max = 0;
};

struct PointPlan {
    zul_DataType dataType;
    ReflectionPlan reflection;
    bool normals = false;
    bool keepInvalid = false;
};

// The stream's data type for the input of `options`, whose reader gave `layout`. May read the
// file once more (for the range of floating-point intensities). Throws FormatError for options
// the input cannot satisfy.
PointPlan planPoints(const CompressOptions& options, const CloudLayout& layout, Format format);

// What became of the points so far: those dropped and those whose normal was replaced.
struct PointTally {
    int64_t dropped = 0, normalsReplaced = 0;
};

// Makes the point just read fit the plan: its reflection from the reader's intensity, a normal
// of length zero replaced by +z. Returns false for a point to drop (a coordinate NaN or
// infinite, unless kept).
bool preparePoint(const PointPlan& plan, const CloudReader& reader, zul_Point& point,
                  PointTally& tally);

// Tells on stderr what the tally holds, unless quiet.
void reportTally(const CompressOptions& options, const PointTally& tally);

}  // namespace zultool

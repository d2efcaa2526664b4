// Floating-point intensities, looked at before compressing: their largest value and the factor
// that makes every one of them a whole number, so that their resolution is kept.
#pragma once

#include "commands/commands.h"
#include "formats/cloud.h"

namespace zulconvert {

struct IntensityScan {
    double largest = 0;
    // The first of 1, 255, 65535, 10, 100, 1000 and 10000 that turns every intensity into a
    // whole number (within the rounding of its digits); failing that, 65535 for intensities within
    // 0 .. 1 and 100 otherwise, with `exact` false.
    double scale = 1;
    bool exact = true;
};

// One pass over the file of `options`, in bounded memory.
IntensityScan scanIntensities(const CompressOptions& options, zulformats::Format format);

}  // namespace zulconvert

#include "commands/intensity_scan.h"

#include <cmath>
#include <limits>
#include <memory>

#include "commands/progress_bar.h"

namespace zulconvert {

using namespace zulformats;

namespace {

constexpr double kScales[] = {1, 255, 65535, 10, 100, 1000, 10000};
constexpr int kScaleCount = sizeof kScales / sizeof kScales[0];

// True if `value` times `scale` is a whole number up to the rounding the value went through: a
// float holds n / scale to within half a unit of its 24-bit significand, and a text file's six
// digits (0.0274509992 for 7 / 255) come within a thousandth.
bool whole(double value, double scale) {
    const double scaled = value * scale;
    return std::fabs(scaled - std::round(scaled)) <= std::fabs(scaled) * 0x1p-22 + 1e-3;
}

}  // namespace

IntensityScan scanIntensities(const CompressOptions& options, Format format) {
    std::unique_ptr<CloudReader> reader = openCloudReader(options.input, format);
    ProgressBar progress("scanning intensities", reader->fileSize(), options.quiet);
    IntensityScan scan;
    bool fits[kScaleCount];
    std::fill(std::begin(fits), std::end(fits), true);
    zul_Point point;
    while (reader->read(point)) {
        const double v = reader->intensity();
        if (std::isfinite(v)) {
            scan.largest = std::fmax(scan.largest, v);
            for (int i = 0; i < kScaleCount; ++i) fits[i] = fits[i] && whole(v, kScales[i]);
        }
        progress.update(reader->bytesRead());
    }
    const double limit = std::numeric_limits<int32_t>::max();
    for (int i = 0; i < kScaleCount; ++i) {
        if (fits[i] && scan.largest * kScales[i] <= limit) {
            scan.scale = kScales[i];
            return scan;
        }
    }
    scan.exact = false;
    scan.scale = scan.largest <= 1 ? 65535 : scan.largest * 100 <= limit ? 100 : 1;
    return scan;
}

}  // namespace zulconvert

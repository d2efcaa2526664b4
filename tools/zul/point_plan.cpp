#include "point_plan.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <memory>

#include "progress_bar.h"

namespace zultool {

namespace {

void note(const CompressOptions& options, const std::string& text) {
    if (!options.quiet) std::cerr << "zul: " << text << "\n";
}

constexpr double kDefaultStep = 0.001;

float chooseStep(const CompressOptions& options, const CloudLayout& layout) {
    double step = options.step;
    const bool fromInput = step == 0 && layout.gridStep > 0;
    if (fromInput) step = layout.gridStep;
    if (step == 0) {
        step = kDefaultStep;
        note(options, "no --step given and " + options.input +
                          " has no grid of its own: using a step of 0.001 (1 mm for "
                          "coordinates in metres)");
    }
    const float value = static_cast<float>(step);
    zul_DataType probe;
    zul_init_headers(&probe, nullptr);
    probe.quantizationStep = value;
    zul_enc_Context encoder = nullptr;
    const zul_Status status = zul_enc_open(&encoder, &probe);
    zul_enc_close(&encoder);
    if (status != zul_STATUS_OK && fromInput) {
        throw FormatError(options.input + ": its grid of " + std::to_string(step) +
                          " is not a step the format allows (9.9e-10 to 10); give --step");
    }
    if (status != zul_STATUS_OK) {
        throw FormatError("--step " + std::to_string(step) +
                          ": the step must lie between 9.9e-10 and 10");
    }
    return value;
}

zul_ColorMode chooseColor(const CompressOptions& options, const CloudLayout& layout) {
    const std::string& mode = options.color;
    if (mode.empty()) return layout.hasColor ? zul_COLOR_RGB888 : zul_COLOR_NONE;
    if (mode == "none") return zul_COLOR_NONE;
    if (mode != "rgb565" && mode != "rgb888") {
        throw FormatError("--color " + mode + ": use none, rgb565 or rgb888");
    }
    if (!layout.hasColor) throw FormatError(options.input + ": has no colour to keep (--color)");
    return mode == "rgb565" ? zul_COLOR_RGB565 : zul_COLOR_RGB888;
}

// The largest intensity of the file, for intensities held as floating-point numbers: one pass
// over the file before the real one, in bounded memory.
double largestIntensity(const CompressOptions& options, Format format) {
    std::unique_ptr<CloudReader> reader = openCloudReader(options.input, format);
    ProgressBar progress("scanning intensities", reader->fileSize(), options.quiet);
    double largest = 0;
    zul_Point point;
    while (reader->read(point)) {
        if (std::isfinite(reader->intensity())) largest = std::fmax(largest, reader->intensity());
        progress.update(reader->bytesRead());
    }
    return largest;
}

ReflectionPlan chooseReflection(const CompressOptions& options, const CloudLayout& layout,
                                Format format) {
    ReflectionPlan plan;
    const std::string& mode = options.reflection;
    if (mode == "none" || (mode.empty() && !layout.hasIntensity)) return plan;
    if (!layout.hasIntensity) {
        throw FormatError(options.input + ": has no intensity to keep (--reflection)");
    }
    plan.keep = true;
    // An 8- or 16-bit type gives its maximum; for wider types and floating-point intensities
    // the file's own range is taken.
    const bool narrowType =
        !layout.floatIntensity && layout.intensityTypeMax > 0 && layout.intensityTypeMax <= 65535;
    const double largest = narrowType ? static_cast<double>(layout.intensityTypeMax)
                                      : largestIntensity(options, format);
    plan.scale = options.intensityScale;
    if (plan.scale == 0) {
        plan.scale = layout.floatIntensity && largest <= 1.0 ? 255.0 : 1.0;
        if (plan.scale != 1) {
            note(options,
                 "intensities lie within 0 .. 1: stored as 0 .. 255 (--intensity-scale "
                 "sets another factor)");
        }
    }
    if (!(plan.scale > 0) || !std::isfinite(plan.scale)) {
        throw FormatError("--intensity-scale must be a positive number");
    }
    if (!mode.empty()) {
        char* end = nullptr;
        const long long max = std::strtoll(mode.c_str(), &end, 10);
        if (*end != '\0' || max < 1 || max > std::numeric_limits<int32_t>::max()) {
            throw FormatError("--reflection " + mode + ": use none or a largest value of 1 to " +
                              std::to_string(std::numeric_limits<int32_t>::max()));
        }
        plan.max = static_cast<int32_t>(max);
    } else {
        const double max = std::ceil(largest * plan.scale);
        plan.max = static_cast<int32_t>(
            std::fmin(std::fmax(max, 1.0), std::numeric_limits<int32_t>::max()));
    }
    return plan;
}

}  // namespace

PointPlan planPoints(const CompressOptions& options, const CloudLayout& layout, Format format) {
    PointPlan plan;
    zul_init_headers(&plan.dataType, nullptr);
    plan.dataType.quantizationStep = chooseStep(options, layout);
    plan.dataType.colorMode = chooseColor(options, layout);
    plan.reflection = chooseReflection(options, layout, format);
    if (plan.reflection.keep) {
        plan.dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        plan.dataType.maxReflection = plan.reflection.max;
    }
    if (options.normals && !layout.hasNormals) {
        throw FormatError(options.input + ": has no normals to keep (--normals)");
    }
    plan.normals = layout.hasNormals && !options.noNormals;
    plan.dataType.normalMode = plan.normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    plan.keepInvalid = options.keepInvalid;
    return plan;
}

bool preparePoint(const PointPlan& plan, const CloudReader& reader, zul_Point& point,
                  PointTally& tally) {
    if (!plan.keepInvalid &&
        !(std::isfinite(point.position[0]) && std::isfinite(point.position[1]) &&
          std::isfinite(point.position[2]))) {
        ++tally.dropped;
        return false;
    }
    const ReflectionPlan& reflection = plan.reflection;
    if (reflection.keep) {
        const double v = std::round(reader.intensity() * reflection.scale);
        point.reflection = !(v > 0)              ? 0
                           : v >= reflection.max ? reflection.max
                                                 : static_cast<int32_t>(v);
    }
    if (plan.normals) {
        const float* n = point.normal;
        // The format cannot store a normal shorter than 1e-6; such a point gets +z.
        if (std::sqrt(double{n[0]} * n[0] + double{n[1]} * n[1] + double{n[2]} * n[2]) < 1e-6) {
            point.normal[0] = point.normal[1] = 0.0f;
            point.normal[2] = 1.0f;
            ++tally.normalsReplaced;
        }
    }
    return true;
}

void reportTally(const CompressOptions& options, const PointTally& tally) {
    if (tally.dropped > 0) {
        note(options, "dropped " + std::to_string(tally.dropped) +
                          " points with NaN or infinite coordinates (--keep-invalid keeps them)");
    }
    if (tally.normalsReplaced > 0) {
        note(options, std::to_string(tally.normalsReplaced) +
                          (tally.normalsReplaced == 1 ? " point had" : " points had") +
                          " a normal of length zero; stored as (0, 0, 1)");
    }
}

}  // namespace zultool

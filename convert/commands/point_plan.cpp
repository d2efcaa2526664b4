#include "commands/point_plan.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <memory>

#include "commands/intensity_scan.h"
#include "formats/output_grid.h"

namespace zulconvert {

using namespace zulformats;

namespace {

void note(const CompressOptions& options, const std::string& text) {
    if (!options.quiet) std::cerr << "zul: " << text << "\n";
}

constexpr double kDefaultStep = 0.001;

// The grid: the input's own (the finest LAS scale), the user's step, or a millimetre.
GridPlan chooseGrid(const CompressOptions& options, const CloudLayout& layout) {
    GridPlan grid;
    if (!(options.step >= 0) || !std::isfinite(options.step)) {
        throw FormatError("--step " + shortestDecimal(options.step) + ": give a positive number");
    }
    const bool ownGrid =
        layout.gridStep > 0 && (options.step == 0 || options.step == layout.gridStep);
    grid.step = options.step > 0      ? options.step
                : layout.gridStep > 0 ? layout.gridStep
                                      : kDefaultStep;
    if (options.step == 0 && layout.gridStep == 0) {
        note(options, "no --step given and " + shownInput(options) +
                          " has no grid of its own: using a step of 0.001 (1 mm for "
                          "coordinates in metres)");
    }
    if (layout.gridStep == 0) return grid;
    for (int axis = 0; axis < 3; ++axis) grid.offset[axis] = layout.gridOffset[axis];
    if (!ownGrid) return grid;
    bool differ = false;
    for (int axis = 0; axis < 3; ++axis) {
        const double ratio = layout.gridScale[axis] / grid.step;
        const double whole = std::round(ratio);
        if (std::fabs(ratio - whole) <= 1e-9 * whole && whole <= (1 << 20)) {
            grid.ratio[axis] = static_cast<int64_t>(whole);
        }
        differ = differ || layout.gridScale[axis] != grid.step;
    }
    if (differ) {
        note(options, "the LAS scales differ (" + shortestDecimal(layout.gridScale[0]) + ", " +
                          shortestDecimal(layout.gridScale[1]) + ", " +
                          shortestDecimal(layout.gridScale[2]) +
                          "): every axis is stored on the finest, " + shortestDecimal(grid.step));
    }
    return grid;
}

}  // namespace

SensorTransform sensorOf(const CompressOptions& options) {
    return {options.translate,   options.scale,      options.rotate,
            options.sensorMount, options.sensorType, options.sensorHeader};
}

zul_Header2 gridHeader(const SensorTransform& sensor, const GridPlan& grid) {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    double user[3][3];
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            const double r = sensor.rotate.empty() ? (row == column ? 1.0 : 0.0)
                                                   : sensor.rotate[3 * row + column];
            user[row][column] = sensor.scale * r;
        }
    }
    bool translated = false;
    for (int row = 0; row < 3; ++row) {
        double t = sensor.translate.empty() ? 0.0 : sensor.translate[row];
        for (int column = 0; column < 3; ++column) {
            header.transformation[4 * column + row] = user[row][column] * grid.step;
            if (grid.offset[column] != 0) t += user[row][column] * grid.offset[column];
        }
        header.transformation[12 + row] = t;
        translated = translated || t != 0;
    }
    header.sensorMount = static_cast<zul_SensorMount>(sensor.mount);
    header.sensorType = static_cast<zul_SensorType>(sensor.type);
    header.hasScaling = sensor.scale * grid.step != 1;
    header.hasRotation = !sensor.rotate.empty();
    header.hasTranslation = translated;
    header.enabled = sensor.header || header.hasScaling || header.hasRotation ||
                     header.hasTranslation || sensor.mount != 0 || sensor.type != 0;
    return header;
}

namespace {

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

ReflectionPlan chooseReflection(const CompressOptions& options, const CloudLayout& layout,
                                Format format) {
    ReflectionPlan plan;
    const std::string& mode = options.reflection;
    if (mode == "none" || (mode.empty() && !layout.hasIntensity)) return plan;
    if (!layout.hasIntensity) {
        throw FormatError(options.input + ": has no intensity to keep (--reflection)");
    }
    plan.keep = true;
    // An integer type of at most 16 bits gives its maximum; for wider types and floating-point
    // intensities the file's own values are looked at.
    const bool narrowType =
        !layout.floatIntensity && layout.intensityTypeMax > 0 && layout.intensityTypeMax <= 65535;
    IntensityScan scan;
    if (narrowType) {
        scan.largest = static_cast<double>(layout.intensityTypeMax);
    } else {
        scan = scanIntensities(options, format);
    }
    plan.scale = options.intensityScale;
    if (plan.scale == 0) {
        plan.scale = narrowType ? 1.0 : scan.scale;
        plan.exact = narrowType || scan.exact;
        if (plan.scale != 1) {
            note(options, std::string("intensities are stored multiplied by ") +
                              shortestDecimal(plan.scale) +
                              (plan.exact ? ", which makes every one a whole number"
                                          : ", rounded to whole numbers") +
                              " (--intensity-scale sets another factor)");
        }
    } else {
        plan.exact = false;
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
    } else if (!narrowType && plan.exact && scan.largest <= 1 && plan.scale >= 10 &&
               std::round(std::log10(plan.scale)) == std::log10(plan.scale)) {
        // Reflectances within 0 .. 1 at a decimal scale: the largest value stored is the scale
        // itself, so that a reader divides by it and gets them back (0.99 as 99 of 100).
        plan.max = static_cast<int32_t>(plan.scale);
    } else {
        const double max = std::ceil(scan.largest * plan.scale);
        plan.max = static_cast<int32_t>(
            std::fmin(std::fmax(max, 1.0), std::numeric_limits<int32_t>::max()));
    }
    return plan;
}

}  // namespace

std::string changeText(int64_t count, const std::string& kind) {
    return "changed " + std::to_string(count) + (count == 1 ? " value: " : " values: ") + kind;
}

PointPlan planPoints(const CompressOptions& options, const CloudLayout& layout, Format format) {
    PointPlan plan;
    plan.input = options.input;
    zul_init_headers(&plan.dataType, nullptr);
    plan.grid = chooseGrid(options, layout);
    plan.dataType.quantizationStep = 1.0f;
    plan.header = gridHeader(sensorOf(options), plan.grid);
    plan.dataType.colorMode = chooseColor(options, layout);
    plan.reflection = chooseReflection(options, layout, format);
    if (plan.reflection.keep) {
        plan.dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        plan.dataType.maxReflection = plan.reflection.max;
    }
    if (options.normals && options.noNormals) {
        throw FormatError("--normals and --no-normals contradict each other: give one");
    }
    if (options.normals && !layout.hasNormals) {
        throw FormatError(options.input + ": has no normals to keep (--normals)");
    }
    plan.normals = layout.hasNormals && !options.noNormals;
    plan.dataType.normalMode = plan.normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    return plan;
}

namespace {

// A value rounded half away from zero, as std::round, without its call for the values of most
// inputs (from 0 to 2^31).
double roundHalfAway(double value) {
    if (!(value >= 0 && value < 2147483648.0)) return std::round(value);
    const double whole = static_cast<double>(static_cast<int32_t>(value));
    return value - whole >= 0.5 ? whole + 1 : whole;  // the difference is exact
}

// The changes made to fit points, counted a batch at a time rather than a map look-up each.
struct BatchChanges {
    int64_t moved[3] = {0, 0, 0};
    int64_t notNumbers = 0, negative = 0, above = 0, rounded = 0;
    int64_t infiniteNormals = 0, zeroNormals = 0;

    void addTo(PointTally& tally, const PointPlan& plan) const {
        std::map<std::string, int64_t>& changes = tally.changes;
        for (int axis = 0; axis < 3; ++axis)
            if (moved[axis] > 0)
                changes[std::string(1, "xyz"[axis]) + " values moved onto the grid of " +
                        shortestDecimal(plan.grid.step) + " (by at most half of it)"] +=
                    moved[axis];
        const std::string max = std::to_string(plan.reflection.max);
        const std::pair<int64_t, std::string> counted[] = {
            {notNumbers, "intensities that are not numbers stored as 0"},
            {negative, "negative intensities stored as 0"},
            {above, "intensities above " + max + " stored as " + max},
            {rounded, "intensities rounded to whole numbers"},
            {infiniteNormals, "normals with an infinite component stored as (0, 0, 1)"},
            {zeroNormals, "normals of length zero (or not numbers) stored as (0, 0, 1)"}};
        for (const auto& [count, kind] : counted)
            if (count > 0) changes[kind] += count;
    }
};

}  // namespace

size_t preparePoints(const PointPlan& plan, const CloudLayout& layout, zul_Point* points,
                     const double* intensities, const int64_t* grids, size_t count,
                     PointTally& tally) {
    const GridPlan& grid = plan.grid;
    const bool onGrid = grid.ratio[0] != 0 && grid.ratio[1] != 0 && grid.ratio[2] != 0;
    const ReflectionPlan& reflection = plan.reflection;
    const double largest = reflection.max;
    BatchChanges changes;
    size_t kept = 0;
    for (size_t i = 0; i < count; ++i) {
        zul_Point& point = points[i];
        double* p = point.position;
        if (!(std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]))) continue;
        const int64_t* g = grids + 3 * i;
        if (onGrid) {
            for (int axis = 0; axis < 3; ++axis)
                p[axis] = static_cast<double>(g[axis] * grid.ratio[axis]);
        } else {
            for (int axis = 0; axis < 3; ++axis) {
                if (grid.ratio[axis] != 0) {
                    p[axis] = static_cast<double>(g[axis] * grid.ratio[axis]);
                    continue;
                }
                p[axis] = (p[axis] - grid.offset[axis]) / grid.step;
                // Beyond 2^53 grid points, neighbouring points of the grid are no longer
                // doubles.
                if (!(std::fabs(p[axis]) <= 9007199254740992.0)) {
                    throw FormatError(plan.input + ": point " + std::to_string(tally.read + 1 + i) +
                                      ": its " + "xyz"[axis] + " lies too far out for a step of " +
                                      shortestDecimal(grid.step) + " (give a larger --step)");
                }
                // A value of the input's own grid (a LAS integer) that falls between two of the
                // stored grid's points does not come back: counted, axis by axis.
                if (layout.gridStep > 0 && std::fabs(p[axis] - std::round(p[axis])) > 1e-6)
                    ++changes.moved[axis];
            }
        }
        if (reflection.keep) {
            const double scaled = intensities[i] * reflection.scale;
            const double v = roundHalfAway(scaled);
            if (std::isnan(scaled)) {
                ++changes.notNumbers;
            } else if (v < 0) {
                ++changes.negative;
            } else if (v > largest) {
                ++changes.above;
            } else if (v != scaled && !reflection.exact) {
                ++changes.rounded;
            }
            point.reflection = !(v > 0)       ? 0
                               : v >= largest ? reflection.max
                                              : static_cast<int32_t>(v);
        }
        if (plan.normals) {
            const float* n = point.normal;
            // The format cannot store a normal shorter than 1e-6, nor one with an infinite
            // component (it has no direction); such a point gets +z, counted.
            const double length =
                std::sqrt(double{n[0]} * n[0] + double{n[1]} * n[1] + double{n[2]} * n[2]);
            const bool infinite = std::isinf(length);
            if (infinite || !(length >= 1e-6)) {
                point.normal[0] = point.normal[1] = 0.0f;
                point.normal[2] = 1.0f;
                ++(infinite ? changes.infiniteNormals : changes.zeroNormals);
            }
        }
        if (kept != i) points[kept] = point;
        ++kept;
    }
    tally.read += static_cast<int64_t>(count);
    tally.dropped += static_cast<int64_t>(count - kept);
    changes.addTo(tally, plan);
    return kept;
}

bool preparePoint(const PointPlan& plan, const CloudReader& reader, zul_Point& point,
                  PointTally& tally) {
    const double intensity = reader.intensity();
    return preparePoints(plan, reader.layout(), &point, &intensity, reader.grid(), 1, tally) == 1;
}

void reportTally(const CompressOptions& options, const CloudReader& reader,
                 const PointTally& tally) {
    if (options.quiet) return;
    const std::vector<std::string> dropped = reader.dropped();
    if (!dropped.empty() && !tally.fieldsKept) {
        std::string names;
        for (const std::string& name : dropped) names += (names.empty() ? "" : ", ") + name;
        note(options,
             shownInput(options) + " holds what a zul file has no place for; left out: " + names);
    }
    const int colorScale = reader.colorScale();
    if (colorScale == 1 || colorScale == 256) {
        note(options,
             options.input + " held 8-bit colour values " +
                 (colorScale == 1 ? "as they are (0 .. 255)" : "times 256 (every low byte 0)") +
                 " in LAS's 16-bit fields, kept exactly; a zul stream has no place for "
                 "that scale: `zul decompress --las-color-scale " +
                 std::to_string(colorScale) +
                 "` writes them back so (a LAS output's colour is otherwise times 257)");
    }
    if (tally.dropped > 0 && tally.fieldsKept) {
        note(options, std::to_string(tally.dropped) + " of " + std::to_string(tally.read) +
                          " points with NaN or infinite coordinates are not in the stream (a zul "
                          "file cannot hold them); the companion keeps them");
    } else if (tally.dropped > 0) {
        note(options, "dropped " + std::to_string(tally.dropped) + " of " +
                          std::to_string(tally.read) +
                          " points with NaN or infinite coordinates (a zul file cannot hold them)");
    }
    for (const auto* changes : {&reader.changes(), &tally.changes}) {
        for (const auto& [kind, count] : *changes) note(options, changeText(count, kind));
    }
}

}  // namespace zulconvert

// zul compress: any point cloud file the tool reads, streamed point by point into a zul file.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <limits>

#include "commands.h"
#include "formats/cloud.h"
#include "output_file.h"
#include "progress_bar.h"
#include "status_text.h"
#include "zul.h"

namespace zultool {

namespace {

constexpr double kDefaultStep = 0.001;

// Closes the writer on every way out, so that the temporary file can go.
struct WriterGuard {
    zul_out_Context context = nullptr;
    ~WriterGuard() { zul_out_close(&context); }
};

void note(const CompressOptions& options, const std::string& text) {
    if (!options.quiet) std::cerr << "zul: " << text << "\n";
}

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

struct ReflectionPlan {
    bool keep = false;
    double scale = 1;
    int32_t max = 0;
};

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

zul_Header2 chooseHeader(const CompressOptions& options) {
    zul_Header2 header;
    zul_init_headers(nullptr, &header);
    header.enabled = options.sensorHeader || !options.translate.empty() || options.scale != 1 ||
                     !options.rotate.empty() || options.sensorMount != 0 || options.sensorType != 0;
    header.sensorMount = static_cast<zul_SensorMount>(options.sensorMount);
    header.sensorType = static_cast<zul_SensorType>(options.sensorType);
    header.hasScaling = options.scale != 1;
    header.hasRotation = !options.rotate.empty();
    header.hasTranslation = !options.translate.empty();
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            const double r = options.rotate.empty() ? (row == column ? 1.0 : 0.0)
                                                    : options.rotate[3 * row + column];
            header.transformation[4 * column + row] = options.scale * r;
        }
        header.transformation[12 + row] = options.translate.empty() ? 0.0 : options.translate[row];
    }
    return header;
}

}  // namespace

int runCompress(const CompressOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    if (formatOfPath(options.output) != Format::Zul) {
        throw FormatError(options.output + ": compress writes a zul file; name it .zul");
    }
    const Format format = formatOfPath(options.input);
    std::unique_ptr<CloudReader> reader = openCloudReader(options.input, format);
    const CloudLayout& layout = reader->layout();

    zul_DataType dataType;
    zul_init_headers(&dataType, nullptr);
    dataType.quantizationStep = chooseStep(options, layout);
    dataType.colorMode = chooseColor(options, layout);
    const ReflectionPlan reflection = chooseReflection(options, layout, format);
    if (reflection.keep) {
        dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        dataType.maxReflection = reflection.max;
    }
    if (options.normals && !layout.hasNormals) {
        throw FormatError(options.input + ": has no normals to keep (--normals)");
    }
    const bool normals = layout.hasNormals && !options.noNormals;
    dataType.normalMode = normals ? zul_NORMAL_SPHERICAL : zul_NORMAL_NONE;
    const zul_Header2 header = chooseHeader(options);

    OutputFile output(options.output);
    WriterGuard writer;
    const zul_Status opened = zul_out_open2(&writer.context, output.temporaryPath().c_str(),
                                            &dataType, header.enabled ? &header : nullptr);
    if (opened == zul_STATUS_INVALID_ARGUMENT) {
        throw FormatError(options.output +
                          ": the sensor header was refused: --rotate must be a proper rotation "
                          "(orthonormal, right-handed), --scale positive, --sensor-mount one of "
                          "0, 10-13, 20-22, 30-32 and --sensor-type 0 to 10 (invalid argument)");
    }
    checkStatus(opened, options.output, ZulStage::Write);
    if (zul_out_setChunkSize(writer.context, options.chunk) != zul_STATUS_OK) {
        throw FormatError("--chunk " + std::to_string(options.chunk) +
                          ": a chunk holds 1 to 2147483646 points");
    }

    ProgressBar progress("compressing", reader->fileSize(), options.quiet);
    int64_t written = 0, dropped = 0, normalsReplaced = 0;
    zul_Point point = {};
    while (reader->read(point)) {
        progress.update(reader->bytesRead());
        if (!options.keepInvalid &&
            !(std::isfinite(point.position[0]) && std::isfinite(point.position[1]) &&
              std::isfinite(point.position[2]))) {
            ++dropped;
            continue;
        }
        if (reflection.keep) {
            const double v = std::round(reader->intensity() * reflection.scale);
            point.reflection = !(v > 0)              ? 0
                               : v >= reflection.max ? reflection.max
                                                     : static_cast<int32_t>(v);
        }
        if (normals) {
            const float* n = point.normal;
            // The format cannot store a normal shorter than 1e-6; such a point gets +z.
            if (std::sqrt(double{n[0]} * n[0] + double{n[1]} * n[1] + double{n[2]} * n[2]) < 1e-6) {
                point.normal[0] = point.normal[1] = 0.0f;
                point.normal[2] = 1.0f;
                ++normalsReplaced;
            }
        }
        checkStatus(zul_out_writePoint(writer.context, &point), options.output, ZulStage::Write);
        ++written;
    }
    checkStatus(zul_out_close(&writer.context), options.output, ZulStage::Write);
    output.commit();

    if (dropped > 0) {
        note(options, "dropped " + std::to_string(dropped) +
                          " points with NaN or infinite coordinates (--keep-invalid keeps them)");
    }
    if (normalsReplaced > 0) {
        note(options, std::to_string(normalsReplaced) +
                          (normalsReplaced == 1 ? " point had" : " points had") +
                          " a normal of length zero; stored as (0, 0, 1)");
    }
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const uintmax_t bytes = std::filesystem::file_size(options.output);
        std::printf("%s (%s) -> %s: %lld points, %ju bytes, %.2f bytes/point, %.2f s\n",
                    options.input.c_str(), formatName(format), options.output.c_str(),
                    static_cast<long long>(written), bytes,
                    written > 0 ? static_cast<double>(bytes) / written : 0.0, seconds);
    }
    return 0;
}

}  // namespace zultool

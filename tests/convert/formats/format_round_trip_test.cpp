// Every shared cloud through compress and decompress into every format, read back with the
// tool's readers: positions within half a step (plus what the output format's precision adds),
// colours exact, reflections as compress scaled and clamped them, normals within the grid.
#include <algorithm>
#include <cmath>

#include "commands/commands.h"
#include "commands/point_check.h"
#include "commands/point_plan.h"
#include "formats/output_grid.h"
#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

using zulconvert::CompressOptions;
using zulconvert::DecompressOptions;

struct RoundTripCase {
    const char* name;
    const char* input;
    const char* extension;
    const char* encoding;
    const char* lasVersion;
};

// A failing case is shown by its name.
void PrintTo(const RoundTripCase& c, std::ostream* out) { *out << c.name; }

const char* const kSmallClouds[] = {"1.2-with-color.las", "4_6_crop.las", "sample_c.las",
                                    "bun0.pcd", "colored_cloud.pcd"};
const char* const kLargeClouds[] = {"cturtle.pcd", "table_scene_mug_stereo_textured.pcd"};

struct OutputKind {
    const char* extension;
    const char* encoding;
    const char* lasVersion;
    bool everyCloud;  // also for the large clouds
};

const OutputKind kOutputs[] = {{"las", "", "1.2", false},
                               {"las", "", "1.4", true},
                               {"pcd", "binary", "1.2", false},
                               {"pcd", "ascii", "1.2", false},
                               {"pcd", "binary_compressed", "1.2", true},
                               {"ply", "binary_little_endian", "1.2", true},
                               {"ply", "binary_big_endian", "1.2", false},
                               {"ply", "ascii", "1.2", false},
                               {"xyz", "", "1.2", false},
                               {"csv", "", "1.2", false},
                               {"bin", "", "1.2", true}};

std::vector<RoundTripCase> roundTripCases() {
    static std::vector<std::string> names;
    std::vector<RoundTripCase> cases;
    names.reserve(100);
    auto add = [&](const char* input, const OutputKind& out) {
        names.push_back(std::string(input) + " to " + out.extension + " " + out.encoding + " " +
                        (std::string(out.extension) == "las" ? out.lasVersion : ""));
        cases.push_back({names.back().c_str(), input, out.extension, out.encoding, out.lasVersion});
    };
    for (const OutputKind& out : kOutputs) {
        for (const char* input : kSmallClouds) add(input, out);
        if (out.everyCloud) {
            for (const char* input : kLargeClouds) add(input, out);
        }
    }
    return cases;
}

class FormatRoundTrip : public ToolTest, public ::testing::WithParamInterface<RoundTripCase> {};

bool finite(const zul_Point& p) {
    return std::isfinite(p.position[0]) && std::isfinite(p.position[1]) &&
           std::isfinite(p.position[2]);
}

TEST_P(FormatRoundTrip, KeepsEveryPointWithinItsStep) {
    const RoundTripCase& c = GetParam();
    zulformats::CloudLayout inputLayout;
    const std::vector<CloudPoint> original = readCloud(dataFile(c.input), &inputLayout);

    // One point a chunk in the input's order keeps that order all the way through.
    CompressOptions compress;
    compress.input = dataFile(c.input);
    compress.output = path("cloud.zul");
    compress.chunk = 1;
    compress.order = "input";
    compress.quiet = true;
    compress.companion = "never";  // the stream's own values, not the input's through a companion
    ASSERT_EQ(zulconvert::runCompress(compress), 0);

    zul_in_Context in = nullptr;
    zul_DataType dataType;
    zul_Header2 header;
    ASSERT_EQ(zul_in_open2(&in, &dataType, &header, compress.output.c_str(), nullptr),
              zul_STATUS_OK);
    zul_in_close(&in);

    DecompressOptions decompress;
    decompress.input = compress.output;
    decompress.output = path(std::string("back.") + c.extension);
    decompress.encoding = c.encoding;
    decompress.lasVersion = c.lasVersion;
    decompress.quiet = true;
    ASSERT_EQ(zulconvert::runDecompress(decompress), 0);
    zulformats::CloudLayout outputLayout;
    const std::vector<CloudPoint> back = readCloud(decompress.output, &outputLayout);

    const std::string extension = c.extension;
    const bool kitti = extension == "bin", text = extension == "xyz" || extension == "csv" ||
                                                  std::string(c.encoding) == "ascii";
    EXPECT_EQ(outputLayout.hasColor, dataType.colorMode != zul_COLOR_NONE && !kitti);
    EXPECT_EQ(outputLayout.hasNormals,
              dataType.normalMode != zul_NORMAL_NONE && extension != "las" && !kitti);
    const double step = zulformats::outputGrid(dataType, header, true).step;

    // The factor compress chose for the intensities, and the one a KITTI scan divides by.
    const double scale =
        zulconvert::planPoints(compress, inputLayout, zulformats::formatOfPath(compress.input))
            .reflection.scale;
    const int32_t max = dataType.maxReflection;
    const double kittiDivisor = max <= 255 ? 255.0 : max <= 65535 ? 65535.0 : max;

    // PCD positions in 4-byte floats, which move them by half their spacing at most.
    const bool floats = extension == "pcd" && !text &&
                        readFile(decompress.output).find("\nSIZE 4 4 4") != std::string::npos;
    size_t j = 0;
    for (const CloudPoint& o : original) {
        if (!finite(o.point)) continue;
        ASSERT_LT(j, back.size());
        const CloudPoint& b = back[j++];
        for (int a = 0; a < 3; ++a) {
            const double x = o.point.position[a];
            const double tolerance = 0.5 * step + (text ? 0.1 * step : 0.0) +
                                     (kitti || floats ? std::fabs(x) * 0x1.0p-23 : 0.0) +
                                     1e-12 * std::max(1.0, std::fabs(x));
            ASSERT_NEAR(b.point.position[a], x, tolerance) << "point " << j - 1 << " axis " << a;
        }
        if (outputLayout.hasColor && dataType.colorMode == zul_COLOR_RGB888) {
            for (int k = 0; k < 3; ++k) ASSERT_EQ(b.point.color[k], o.point.color[k]) << j - 1;
        }
        if (dataType.reflectionMode != zul_REFLECTION_NONE) {
            const double rounded = std::round(o.intensity * scale);
            const double r = !(rounded > 0)
                                 ? 0.0
                                 : std::min(rounded, static_cast<double>(dataType.maxReflection));
            if (kitti) {
                ASSERT_NEAR(b.intensity, r / kittiDivisor, 1e-6) << j - 1;
            } else {
                ASSERT_EQ(b.intensity, r) << j - 1;
            }
        }
        if (outputLayout.hasNormals) {
            const float* n = o.point.normal;
            if (std::isfinite(n[0]) && std::isfinite(n[1]) && std::isfinite(n[2]) &&
                std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) >= 1e-6) {
                ASSERT_LT(zulconvert::angleDegrees(b.point.normal, n), 2.0) << j - 1;
            }
        }
    }
    EXPECT_EQ(j, back.size());
}

INSTANTIATE_TEST_SUITE_P(SharedClouds, FormatRoundTrip, ::testing::ValuesIn(roundTripCases()),
                         NameOfCase());

}  // namespace

// The commands of the zul tool and their options. Each returns the process's exit code;
// failures throw zulformats::FormatError with a message that names the file.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/limits.h"

namespace zulconvert {

// What compress kept beside the stream, left out and changed, for a caller that reports it its
// own way (Python).
struct CompressReport {
    std::string kept;                  // "NAME.zulx keeps ...", or empty without a companion
    std::vector<std::string> dropped;  // what the output lacks, named for the user
    std::vector<std::pair<std::string, int64_t>> changed;  // kinds of change, with their counts
};

struct CompressOptions {
    std::string input, output;
    std::string inputName;      // for messages when `input` is a copy ("standard input"); "": input
    double step = 0;            // 0: the input's grid, or 0.001; kept as this decimal
    std::string color;          // "" (from the input), none, rgb565, rgb888
    std::string reflection;     // "" (from the input), none, or the largest value kept
    double intensityScale = 0;  // 0: 1, or 255 for intensities within 0 .. 1
    bool normals = false, noNormals = false;
    int chunk = zulbase::kDefaultChunkSize;
    std::string order = "plan";  // plan: the smallest cutting found; kd; input
    int orderBudgetMiB =
        zulbase::kDefaultOrderBudgetMiB;  // memory for a block of points being cut, in MiB
    std::vector<double> translate;        // 3 values
    double scale = 1;
    std::vector<double> rotate;  // 9 values, row after row
    int sensorMount = 0, sensorType = 0;
    bool sensorHeader = false;  // a version 2 stream even without a transformation
    bool quiet = false;
    std::string format;              // "": the input's content, else its extension
    bool force = false;              // replace an existing output
    bool verbose = false;            // tell how the chunks were cut
    int threads = 0;                 // encoding threads; 0: one a core
    std::string companion = "auto";  // NAME.zulx: auto (when the input holds more), always, never
    bool keepOrder = false;          // the companion keeps the input's order
    // The companion keeps the float bits of a PCD or PLY file's positions and normals that the
    // step and the stream's normals round away.
    bool exact = false;
    // The sync marker from the system's randomness, not from the points.
    bool randomMarker = false;
    CompressReport* report = nullptr;  // filled at the end when set
};

struct DecompressOptions {
    std::string input, output;
    std::string inputName;  // for messages when `input` is a copy ("standard input"); "": input
    bool noTransform = false;
    std::string encoding;  // format-specific (PCD data, PLY format)
    std::string lasVersion = "1.2";
    int lasColorScale = 0;  // LAS colour: the 8-bit value times 1, 256 or 257 (0: 257, said)
    std::string pcdType;  // PCD positions: "float", "double", or "": float where it keeps the grid
    bool quiet = false;
    std::string format;    // "": the output's extension
    bool force = false;    // replace an existing output
    bool salvage = false;  // write the intact chunks before the first damage, then fail
    int threads = 0;       // decoding threads; 0: one a core
    bool box = false;      // write only the points within [boxMin, boxMax], bounds included
    double boxMin[3] = {}, boxMax[3] = {};
    int64_t chunkBudgetMiB = zulbase::kDefaultChunkBudgetMiB;  // what one chunk may take decoded
    int64_t pointDensity = zulbase::kDefaultPointDensity;      // points a byte the file may claim
    bool noCompanion = false;  // write the stream alone, whatever NAME.zulx holds
};

struct InfoOptions {
    std::vector<std::string> inputs;
    bool json = false;
    bool chunks = false;  // a table of every chunk
    int64_t chunkBudgetMiB = zulbase::kDefaultChunkBudgetMiB;
    int64_t pointDensity = zulbase::kDefaultPointDensity;  // points a byte the file may claim
};

struct VerifyOptions {
    std::vector<std::string> inputs;
    bool quiet = false;  // report damaged files only
    int64_t chunkBudgetMiB = zulbase::kDefaultChunkBudgetMiB;
    int64_t pointDensity = zulbase::kDefaultPointDensity;  // points a byte the file may claim
};

struct DemoOptions {
    int points = 1000000;
    std::string keep;  // keep the compressed scan under this name
    bool quiet = false;
};

// The input's name for messages.
template <class Options>
const std::string& shownInput(const Options& options) {
    return options.inputName.empty() ? options.input : options.inputName;
}

int runCompress(const CompressOptions& options);
int runDecompress(const DecompressOptions& options);
int runInfo(const InfoOptions& options);
int runVerify(const VerifyOptions& options);
int runDemo(const DemoOptions& options);

}  // namespace zulconvert

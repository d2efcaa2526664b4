// What `zul compress` stores of an input file: the grid, which attributes it keeps and how, and
// each point as it goes into the stream. Shared by the command and the benchmarks, so that both
// store the same points.
//
// Positions are stored on the integer grid (a step of 1) with the grid's decimal step and offset
// in the sensor header's matrix, which every reader applies in double arithmetic: a LAS file's
// X * scale + offset, or a user's step of 0.001, come back as exactly those numbers rather than
// as multiples of the nearest float.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "formats/cloud.h"
#include "zul.h"

namespace zulconvert {

struct GridPlan {
    double step = 0.001;
    double offset[3] = {0, 0, 0};
    // Per axis, the whole number of steps in one unit of the input's own grid (a LAS scale), so
    // that its integers map to grid points exactly; 0 where the position is divided instead.
    int64_t ratio[3] = {0, 0, 0};
};

struct ReflectionPlan {
    bool keep = false;
    double scale = 1;
    int32_t max = 0;
    bool exact = true;  // the scale makes every intensity of the file a whole number
};

struct PointPlan {
    std::string input;  // the file, for messages
    zul_DataType dataType;
    zul_Header2 header;
    GridPlan grid;
    ReflectionPlan reflection;
    bool normals = false;
};

// The transformation a stream's readers apply after the grid's step and offset, and the sensor.
struct SensorTransform {
    std::vector<double> translate;  // 3 values, or none
    double scale = 1;
    std::vector<double> rotate;  // 9 values, row after row, or none
    int mount = 0, type = 0;
    bool header = false;  // a version 2 stream even without a transformation
};

// The transformation compress's options ask for.
SensorTransform sensorOf(const CompressOptions& options);

// The sensor header of a stream stored on the integer grid of `grid`: the grid's step and offset,
// followed by `sensor`'s transformation, mount and type.
zul_Header2 gridHeader(const SensorTransform& sensor, const GridPlan& grid);

// The stream's data type and header for the input of `options`, whose reader gave `layout`. May
// read the file once more (for the range of floating-point intensities). Throws FormatError for
// options the input cannot satisfy; tells on stderr what it chose where the input did not say.
PointPlan planPoints(const CompressOptions& options, const zulformats::CloudLayout& layout,
                     zulformats::Format format);

// What became of the points so far: the points read, those dropped, and every value changed to
// fit the stream, by kind.
struct PointTally {
    int64_t read = 0, dropped = 0;
    bool fieldsKept = false;  // a companion keeps what the stream has no place for
    std::map<std::string, int64_t> changes;
};

// Makes the point just read fit the plan: its position on the grid, its reflection from the
// reader's intensity, a normal of length zero replaced by +z. Returns false for a point to drop
// (a coordinate NaN or infinite). Throws FormatError for a position the grid cannot hold.
bool preparePoint(const PointPlan& plan, const zulformats::CloudReader& reader, zul_Point& point,
                  PointTally& tally);
// preparePoint of `count` points read from a reader of `layout`, each with its intensity and its
// grid point (3 values a point; CloudReader::readMany): those to drop are taken out, the others
// keep their order; returns how many are left.
size_t preparePoints(const PointPlan& plan, const zulformats::CloudLayout& layout,
                     zul_Point* points, const double* intensities, const int64_t* grids,
                     size_t count, PointTally& tally);

// "changed 3 values: <kind>", a line of the reports of compress and decompress.
std::string changeText(int64_t count, const std::string& kind);

// Tells on stderr, one line a kind, what was dropped and what changed, unless quiet.
void reportTally(const CompressOptions& options, const zulformats::CloudReader& reader,
                 const PointTally& tally);

}  // namespace zulconvert

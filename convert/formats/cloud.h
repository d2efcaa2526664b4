// What every point cloud file format of the tool shares: the attributes a file carries, a
// reader that hands out one point at a time and a writer that takes one point at a time.
// Readers and writers stream: they hold a buffer of the file, never the whole cloud.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "zul.h"
#include "zul_bulk.h"

namespace zulformats {

// A file that cannot be read or written as its format says. The message names the file and
// says what is wrong.
class FormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Format { Las, Pcd, Ply, Xyz, Csv, Kitti, Zul };

// The formats, from one table (format_table.cpp): names, extensions, signatures, readers, writers.
// The format a file name stands for, by its extension (case ignored); throws FormatError for an
// extension the tool does not know.
Format formatOfPath(const std::string& path);
// "LAS", "XYZ text", ...
const char* formatName(Format format);
// The format a --format word names (las, pcd, ply, xyz, txt, pts, csv, bin, kitti, zul; case
// ignored); nothing for any other word.
std::optional<Format> formatOfWord(const std::string& word);
// The words of formatOfWord, one a format: "las, pcd, ply, xyz, csv, bin, zul"; without zul
// files, the point cloud formats only.
std::string formatWords(bool withZul = true);
// Whether the format's writer needs the exact count of points before the first one
// (WriteOptions::pointCount, for a header that holds it); the others take any count.
bool writerNeedsCount(Format format);
// The point cloud formats, in the order lists name them (zul files are not among them).
const std::vector<Format>& cloudFormats();
// The extension of a file of the format, with its dot: ".las", ".bin", ...
const char* extensionOfFormat(Format format);
// The format the first bytes of the file show (LAS, PLY, PCD and zul files start with a
// signature or header word); nothing for a file that cannot be read or shows none of them.
std::optional<Format> formatOfContent(const std::string& path);

// What a file says about its points, as far as its header or type tells.
struct CloudLayout {
    bool hasColor = false;
    bool hasIntensity = false;
    bool hasNormals = false;
    // Intensity is held as a floating-point number (PCD F, PLY float, KITTI) rather than an
    // integer type.
    bool floatIntensity = false;
    // Largest intensity the file's type can hold (65535 for LAS's 16 bits); 0 if unbounded.
    int64_t intensityTypeMax = 0;
    // The file's own grid (LAS scale): the finest of the three scales; 0 if it has none. A
    // coordinate is grid() * gridScale + gridOffset, axis by axis.
    double gridStep = 0;
    double gridScale[3] = {0, 0, 0};
    double gridOffset[3] = {0, 0, 0};
    // Number of points the header announces; -1 if the format does not say.
    int64_t pointCount = -1;
    // What the file holds that a zul stream has no place for ("GPS time", "classification",
    // "the organised 640 x 480 layout"), named for the user.
    std::vector<std::string> dropped;
};

// What the stream holds of a field of a record (a PCD field, a PLY property): none, a coordinate,
// the packed 0x00RRGGBB word, a colour channel, the intensity or a normal's component.
enum class FieldRole { None, X, Y, Z, PackedColor, Red, Green, Blue, Intensity, NX, NY, NZ };

// A field of the records a reader hands out whole: its name, kind ('u' unsigned, 'i' signed, 'f'
// floating point), bytes a value, values a point and byte offset in the record.
struct RecordField {
    std::string name;
    char kind = 'f';
    int size = 4;
    int count = 1;
    size_t offset = 0;
    FieldRole role = FieldRole::None;
};

// The records of a file whose every field comes back (PCD, PLY): each point's fields in the
// file's order, every value little-endian, `size` bytes a record. The file's bytes before the
// first record (its header) are [0, dataBegin); those after the last from dataEnd() on.
struct RecordLayout {
    std::vector<RecordField> fields;
    size_t size = 0;
    std::string encoding;  // "ascii", "binary", "binary_compressed", "binary_little_endian", ...
    uint64_t dataBegin = 0;
    uint64_t width = 0, height = 1;  // a PCD's organised layout (height above 1)
};

class CloudReader {
public:
    virtual ~CloudReader() = default;
    const CloudLayout& layout() const { return layout_; }
    // Fills the position, and the colour and normal if the layout has them, and returns true;
    // false after the last point. The point's intensity is then intensity(). Throws FormatError
    // for a malformed or cut file.
    virtual bool read(zul_Point& point) = 0;
    // Reads up to `count` points as read() does, each point's intensity() into `intensities` and
    // its grid() into `grids` (3 values a point); returns how many, 0 after the last. Not for a
    // reader whose record() of each point is wanted.
    virtual size_t readMany(zul_Point* points, double* intensities, int64_t* grids, size_t count) {
        size_t n = 0;
        for (; n < count && read(points[n]); ++n) {
            intensities[n] = intensity_;
            std::copy(grid_, grid_ + 3, grids + 3 * n);
        }
        return n;
    }
    // The intensity of the point last read, as the file holds it.
    double intensity() const { return intensity_; }
    // The integer coordinates of the point last read, for a file with a grid of its own.
    const int64_t* grid() const { return grid_; }
    // What the reader had to change to make values fit a point, by kind ("colour above 255
    // clamped to 255"), with the number of values so changed.
    const std::map<std::string, int64_t>& changes() const { return changes_; }
    // What the file holds that the points read leave out, named for the user: the layout's
    // `dropped`, or for formats that look at the values, the fields that held anything.
    virtual std::vector<std::string> dropped() const { return layout_.dropped; }
    // How the file held its 8-bit colours in 16-bit fields, judged over the points read: 1 (as
    // they are), 256 (in the high byte, the low byte 0), 257 (the byte in both), 65536 (16-bit
    // colour, whose low byte a zul stream has no place for); 0 for a format of 8-bit colour.
    virtual int colorScale() const { return 0; }
    // The coordinate reference system, as text PROJ reads (WKT, or "EPSG:2903+5103"); empty if
    // the file has none; what could not be read of it in `problem`. Worked out when asked, since
    // reading GeoTIFF keys takes PROJ's database (tens of milliseconds).
    virtual std::string coordinateSystem(std::string& problem) const {
        problem.clear();
        return {};
    }
    // The layout of the records of a format whose every field can be kept, or null.
    virtual const RecordLayout* records() const { return nullptr; }
    // The record of the point last read (records()), all its fields little-endian.
    virtual const unsigned char* record() const { return nullptr; }
    // Where the records end in the file, once the last point was read.
    virtual uint64_t dataEnd() const { return fileSize(); }
    // Bytes of the file consumed so far, and the file's size, for progress.
    virtual uint64_t bytesRead() const = 0;
    virtual uint64_t fileSize() const = 0;

protected:
    void count(const char* change) { ++changes_[change]; }

    CloudLayout layout_;
    double intensity_ = 0;
    int64_t grid_[3] = {0, 0, 0};
    std::map<std::string, int64_t> changes_;
};

// What a writer is to store beside positions.
struct WriteOptions {
    bool color = false;
    bool intensity = false;
    bool normals = false;
    int32_t maxIntensity = 0;  // the stream's maximum, for formats that normalise (KITTI)
    double gridStep = 0.001;   // LAS scale; digits of text formats
    // Where the positions lie on a grid of gridStep with this offset exactly (a stream on an
    // integer grid with its scale and translation in the matrix), LAS stores them so.
    bool gridExact = false;
    double gridOffset[3] = {0, 0, 0};
    std::string crs;          // the coordinate reference system as PROJ reads it, or empty
    int64_t pointCount = 0;   // exact number of points that will be written (writerNeedsCount)
    std::string encoding;     // format-specific: "ascii", "binary", "binary_compressed", ...
    int lasColorScale = 257;  // LAS colour: the 8-bit value times 1, 256 or 257
    std::string lasVersion = "1.2";
    // The largest |x|, |y| or |z| of the points to write, or -1 when it is not known.
    double coordinateReach = -1;
    // PCD positions: "float" (4 bytes), "double" (8), or "": 4 bytes where they keep every
    // point's place on the grid of gridStep (see pcdFloatKeepsGrid), 8 otherwise.
    std::string pcdType;
};

// Whether 4-byte floats keep the grid: their spacing at `reach` is at most a quarter of `step`,
// so x / step rounds to the same whole number from the float as from the double.
bool pcdFloatKeepsGrid(double reach, double step);

// Point `i` of `points`, its absent attributes zero.
inline zul_Point pointOf(const zul_bulk_Points& points, int64_t i) {
    zul_Point point = {};
    std::copy_n(points.positions + 3 * i, 3, point.position);
    if (points.colors) std::copy_n(points.colors + 3 * i, 3, point.color);
    if (points.reflections) point.reflection = points.reflections[i];
    if (points.normals) std::copy_n(points.normals + 3 * i, 3, point.normal);
    return point;
}

class CloudWriter {
public:
    virtual ~CloudWriter() = default;
    virtual void write(const zul_Point& point) = 0;
    // Writes points `from` to `to` (not included) of `points` as write() writes each.
    virtual void writeMany(const zul_bulk_Points& points, int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i) write(pointOf(points, i));
    }
    // Completes the file (headers that depend on the points); throws FormatError if any write
    // failed.
    virtual void finish() = 0;
    // What the writer had to change to fit a value into the format, by kind, with the number of
    // values so changed.
    const std::map<std::string, int64_t>& changes() const { return changes_; }

protected:
    void count(const std::string& change, int64_t times = 1) { changes_[change] += times; }

private:
    std::map<std::string, int64_t> changes_;
};

std::unique_ptr<CloudReader> openCloudReader(const std::string& path, Format format);
std::unique_ptr<CloudWriter> openCloudWriter(const std::string& path, Format format,
                                             const WriteOptions& options);

}  // namespace zulformats

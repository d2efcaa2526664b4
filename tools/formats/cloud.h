// What every point cloud file format of the tool shares: the attributes a file carries, a
// reader that hands out one point at a time and a writer that takes one point at a time.
// Readers and writers stream: they hold a buffer of the file, never the whole cloud.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "zul.h"

namespace zultool {

// A file that cannot be read or written as its format says. The message names the file and
// says what is wrong.
class FormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Format { Las, Pcd, Ply, Xyz, Csv, Kitti, Zul };

// The format a file name stands for, by its extension (case ignored); throws FormatError for an
// extension the tool does not know.
Format formatOfPath(const std::string& path);
const char* formatName(Format format);

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
    // The file's own grid (LAS scale); 0 if it has none.
    double gridStep = 0;
    // Number of points the header announces; -1 if the format does not say.
    int64_t pointCount = -1;
};

class CloudReader {
public:
    virtual ~CloudReader() = default;
    const CloudLayout& layout() const { return layout_; }
    // Fills the position, and the colour and normal if the layout has them, and returns true;
    // false after the last point. The point's intensity is then intensity(). Throws FormatError
    // for a malformed or cut file.
    virtual bool read(zul_Point& point) = 0;
    // The intensity of the point last read, as the file holds it.
    double intensity() const { return intensity_; }
    // Bytes of the file consumed so far, and the file's size, for progress.
    virtual uint64_t bytesRead() const = 0;
    virtual uint64_t fileSize() const = 0;

protected:
    CloudLayout layout_;
    double intensity_ = 0;
};

// What a writer is to store beside positions.
struct WriteOptions {
    bool color = false;
    bool intensity = false;
    bool normals = false;
    int32_t maxIntensity = 0;  // the stream's maximum, for formats that normalise (KITTI)
    double gridStep = 0.001;   // LAS scale; digits of text formats
    int64_t pointCount = 0;    // exact number of points that will be written
    std::string encoding;      // format-specific: "ascii", "binary", "binary_compressed", ...
    std::string lasVersion = "1.2";
};

class CloudWriter {
public:
    virtual ~CloudWriter() = default;
    virtual void write(const zul_Point& point) = 0;
    // Completes the file (headers that depend on the points); throws FormatError if any write
    // failed.
    virtual void finish() = 0;
};

std::unique_ptr<CloudReader> openCloudReader(const std::string& path, Format format);
std::unique_ptr<CloudWriter> openCloudWriter(const std::string& path, Format format,
                                             const WriteOptions& options);

}  // namespace zultool

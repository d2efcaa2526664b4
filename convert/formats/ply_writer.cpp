// Writes PLY 1.0, binary little endian (the default), binary big endian or ascii: one vertex
// element with double x y z, uchar red green blue, uint intensity and float nx ny nz.
#include "formats/byte_output.h"
#include "formats/cloud.h"
#include "formats/text_line.h"
#include "formats/text_numbers.h"

namespace zulformats {

namespace {

class PlyWriter : public CloudWriter {
public:
    PlyWriter(const std::string& path, const WriteOptions& options)
        : path_(path), out_(path), options_(options) {
        std::string encoding = options.encoding.empty() ? "binary_little_endian" : options.encoding;
        if (encoding == "binary") encoding = "binary_little_endian";
        if (encoding != "ascii" && encoding != "binary_little_endian" &&
            encoding != "binary_big_endian") {
            throw FormatError(path + ": PLY format \"" + encoding +
                              "\" cannot be written (ascii, "
                              "binary_little_endian and binary_big_endian can)");
        }
        ascii_ = encoding == "ascii";
        big_ = encoding == "binary_big_endian";
        std::string header = "ply\nformat " + encoding +
                             " 1.0\ncomment written by zul\nelement vertex " +
                             std::to_string(options.pointCount) +
                             "\nproperty double x\nproperty double y\nproperty double z\n";
        if (options.color)
            header += "property uchar red\nproperty uchar green\nproperty uchar blue\n";
        wideIntensity_ = options.maxIntensity > 65535;
        if (options.intensity) {
            header += wideIntensity_ ? "property uint intensity\n" : "property ushort intensity\n";
        }
        if (options.normals) header += "property float nx\nproperty float ny\nproperty float nz\n";
        out_.text(header + "end_header\n");
        decimals_ = decimalsFor(options.gridStep);
    }

    void write(const zul_Point& point) override {
        if (written_ >= options_.pointCount)
            throw FormatError(path_ + ": more points than announced");
        ++written_;
        if (ascii_) return writeText(point);
        for (int axis = 0; axis < 3; ++axis) put(point.position[axis]);
        if (options_.color) out_.write(point.color, 3);
        if (options_.intensity && wideIntensity_) {
            put(static_cast<uint32_t>(point.reflection < 0 ? 0 : point.reflection));
        } else if (options_.intensity) {
            put(static_cast<uint16_t>(point.reflection < 0 ? 0 : point.reflection));
        }
        if (options_.normals) {
            for (int c = 0; c < 3; ++c) put(point.normal[c]);
        }
    }

    void finish() override {
        if (written_ != options_.pointCount)
            throw FormatError(path_ + ": fewer points than announced");
        out_.close();
    }

private:
    template <typename T>
    void put(T value) {
        if (big_) {
            out_.big(value);
        } else {
            out_.little(value);
        }
    }

    void writeText(const zul_Point& point) {
        line_.clear();
        appendPointLine(line_, point, options_, decimals_, ' ', false);
        out_.text(line_);
    }

    std::string path_;
    ByteOutput out_;
    WriteOptions options_;
    bool ascii_ = false, big_ = false;
    bool wideIntensity_ = false;  // uint rather than ushort
    int decimals_ = 6;
    int64_t written_ = 0;
    std::string line_;
};

}  // namespace

std::unique_ptr<CloudWriter> openPlyWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<PlyWriter>(path, options);
}

}  // namespace zulformats

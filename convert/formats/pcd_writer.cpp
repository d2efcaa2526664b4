// Writes PCD 0.7 with DATA binary (the default), ascii or binary_compressed: x y z as 4-byte
// floats, as the common loaders expect, where they keep every point's place on the grid, else as
// 8-byte floats (WriteOptions::pcdType decides); rgb as a 4-byte word 0x00RRGGBB, intensity and
// normals as 4-byte floats. A
// binary_compressed file is one LZF block of the whole cloud, so it is built in memory.
#include <lzf.h>

#include <cmath>
#include <limits>
#include <vector>

#include "formats/byte_output.h"
#include "formats/cloud.h"
#include "formats/text_line.h"
#include "formats/text_numbers.h"

namespace zulformats {

namespace {

class PcdWriter : public CloudWriter {
public:
    PcdWriter(const std::string& path, const WriteOptions& options)
        : path_(path), out_(path), options_(options), count_(options.pointCount) {
        data_ = options.encoding.empty() ? "binary" : options.encoding;
        if (data_ != "ascii" && data_ != "binary" && data_ != "binary_compressed") {
            throw FormatError(path + ": PCD data \"" + data_ +
                              "\" cannot be written (ascii, "
                              "binary and binary_compressed can)");
        }
        if (options.pcdType != "" && options.pcdType != "float" && options.pcdType != "double") {
            throw FormatError(path + ": PCD positions of type \"" + options.pcdType +
                              "\" cannot be written (float and double can)");
        }
        single_ = options.pcdType == "float" ||
                  (options.pcdType.empty() &&
                   pcdFloatKeepsGrid(options.coordinateReach, options.gridStep));
        recordSize_ = single_ ? 12 : 24;
        std::string fields = "x y z", sizes = single_ ? "4 4 4" : "8 8 8", types = "F F F",
                    counts = "1 1 1";
        addField(fields, sizes, types, counts, options.color, "rgb", "4", "U");
        addField(fields, sizes, types, counts, options.intensity, "intensity", "4", "F");
        for (const char* n : {"normal_x", "normal_y", "normal_z"}) {
            addField(fields, sizes, types, counts, options.normals, n, "4", "F");
        }
        const std::string n = std::to_string(count_);
        out_.text("# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS " + fields +
                  "\nSIZE " + sizes + "\nTYPE " + types + "\nCOUNT " + counts + "\nWIDTH " + n +
                  "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + n + "\nDATA " + data_ + "\n");
        decimals_ = decimalsFor(options.gridStep);
        if (data_ == "binary_compressed") {
            if (static_cast<uint64_t>(count_) > 0xFFFFFFFFu / recordSize_) {
                throw FormatError(path + ": too many points for one binary_compressed block");
            }
            block_.resize(recordSize_ * static_cast<size_t>(count_));
        }
    }

    void write(const zul_Point& point) override {
        if (written_ >= count_) throw FormatError(path_ + ": more points than announced");
        if (data_ == "ascii") {
            writeText(point);
        } else {
            size_t column = 0;
            auto put = [&](const void* value, size_t size) {
                if (data_ == "binary") {
                    out_.write(value, size);
                } else {
                    // Column after column: this field's values start at column * count.
                    std::memcpy(block_.data() + column * static_cast<size_t>(count_) +
                                    static_cast<size_t>(written_) * size,
                                value, size);
                }
                column += size;
            };
            for (int axis = 0; axis < 3; ++axis) {
                if (!single_) {
                    put(&point.position[axis], 8);
                    continue;
                }
                const float value = static_cast<float>(point.position[axis]);
                if (std::fabs(value - point.position[axis]) > options_.gridStep / 4) {
                    count("positions moved by more than a quarter of the step as 4-byte floats");
                }
                put(&value, 4);
            }
            if (options_.color) {
                const uint32_t rgb =
                    uint32_t{point.color[0]} << 16 | uint32_t{point.color[1]} << 8 | point.color[2];
                put(&rgb, 4);
            }
            if (options_.intensity) {
                const float intensity = static_cast<float>(point.reflection);
                if (static_cast<int64_t>(intensity) != point.reflection) {
                    count("reflections above 2^24 rounded to the nearest float");
                }
                put(&intensity, 4);
            }
            if (options_.normals) {
                for (int c = 0; c < 3; ++c) put(&point.normal[c], 4);
            }
        }
        ++written_;
    }

    void finish() override {
        if (written_ != count_) throw FormatError(path_ + ": fewer points than announced");
        if (data_ == "binary_compressed") {
            std::vector<unsigned char> packed(block_.size() + block_.size() / 16 + 64);
            const unsigned int size =
                block_.empty() ? 0
                               : lzf_compress(block_.data(), static_cast<unsigned>(block_.size()),
                                              packed.data(), static_cast<unsigned>(packed.size()));
            if (!block_.empty() && size == 0) throw FormatError(path_ + ": LZF compression failed");
            out_.little<uint32_t>(size);
            out_.little<uint32_t>(static_cast<uint32_t>(block_.size()));
            out_.write(packed.data(), size);
        }
        out_.close();
    }

private:
    void addField(std::string& fields, std::string& sizes, std::string& types, std::string& counts,
                  bool present, const char* name, const char* size, const char* type) {
        if (!present) return;
        fields += std::string(" ") + name;
        sizes += std::string(" ") + size;
        types += std::string(" ") + type;
        counts += " 1";
        recordSize_ += std::stoul(size);
    }

    void writeText(const zul_Point& point) {
        line_.clear();
        appendPointLine(line_, point, options_, decimals_, ' ', true);
        out_.text(line_);
    }

    std::string path_;
    ByteOutput out_;
    WriteOptions options_;
    std::string data_;
    int64_t count_;
    int64_t written_ = 0;
    size_t recordSize_ = 24;
    bool single_ = false;  // positions as 4-byte floats
    int decimals_ = 6;
    std::vector<unsigned char> block_;
    std::string line_;
};

}  // namespace

bool pcdFloatKeepsGrid(double reach, double step) {
    if (!(reach >= 0) || !(step > 0) || !(reach < std::numeric_limits<float>::max())) return false;
    const float far = static_cast<float>(reach);
    const double spacing =
        static_cast<double>(std::nextafter(far, std::numeric_limits<float>::infinity())) - far;
    return spacing <= step / 4;
}

std::unique_ptr<CloudWriter> openPcdWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<PcdWriter>(path, options);
}

}  // namespace zulformats

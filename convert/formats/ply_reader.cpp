// PLY files, ascii and binary in either byte order: the vertex element's x y z, red green blue,
// intensity or scalar_intensity, and nx ny nz. Elements before the vertices are skipped, those
// after them never read.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "formats/byte_input.h"
#include "formats/cloud.h"
#include "formats/ply_header.h"
#include "formats/text_line.h"
#include "formats/typed_values.h"

namespace zulformats {

namespace {

class PlyReader : public CloudReader {
public:
    explicit PlyReader(const std::string& path) : in_(path) {
        header_ = readPlyHeader(in_);
        big_ = header_.encoding == PlyEncoding::BinaryBig;
        size_t index = 0;
        while (index < header_.elements.size() && header_.elements[index].name != "vertex") {
            skipElement(header_.elements[index++]);
        }
        if (index == header_.elements.size()) in_.fail("the PLY file has no vertex element");
        vertex_ = header_.elements[index];
        records_.dataBegin = in_.position();
        if (vertex_.hasList) in_.fail("PLY vertices with list properties are not supported");
        const char* axes[3] = {"x", "y", "z"};
        const char* colors[3] = {"red", "green", "blue"};
        const char* normals[3] = {"nx", "ny", "nz"};
        for (int c = 0; c < 3; ++c) {
            position_[c] = vertex_.find(axes[c]);
            color_[c] = vertex_.find(colors[c]);
            normal_[c] = vertex_.find(normals[c]);
            if (position_[c] == nullptr) in_.fail(std::string("the PLY vertex has no ") + axes[c]);
        }
        intensityProperty_ = vertex_.find("intensity") != nullptr
                                 ? vertex_.find("intensity")
                                 : vertex_.find("scalar_intensity");
        layout_.hasColor = color_[0] != nullptr && color_[1] != nullptr && color_[2] != nullptr;
        layout_.hasNormals =
            normal_[0] != nullptr && normal_[1] != nullptr && normal_[2] != nullptr;
        layout_.hasIntensity = intensityProperty_ != nullptr;
        if (intensityProperty_ != nullptr) {
            layout_.floatIntensity = intensityProperty_->kind == 'f';
            const int bits = 8 * intensityProperty_->size - (intensityProperty_->kind == 'i');
            layout_.intensityTypeMax = layout_.floatIntensity ? 0
                                       : bits >= 31           ? std::numeric_limits<int32_t>::max()
                                                              : (int64_t{1} << bits) - 1;
        }
        layout_.pointCount = static_cast<int64_t>(vertex_.count);
        for (const PlyProperty& property : vertex_.properties) {
            if (!isRead(&property)) layout_.dropped.push_back(printable(property.name));
        }
        if (layout_.hasColor && color_[0]->kind != 'f' && color_[0]->size == 2) {
            layout_.dropped.push_back("the low byte of 16-bit colour");
        }
        for (const PlyElement& element : header_.elements) {
            if (element.name != "vertex" && element.count > 0) {
                layout_.dropped.push_back(std::to_string(element.count) + " " +
                                          printable(element.name) + " elements");
            }
        }
        describeRecords();
        if (header_.encoding != PlyEncoding::Ascii) {
            if (vertex_.recordSize == 0 ||
                vertex_.count > (in_.size() - in_.position()) / vertex_.recordSize) {
                in_.fail("the file ends before the " + std::to_string(vertex_.count) +
                         " vertices its header announces (truncated)");
            }
            record_.resize(vertex_.recordSize);
        }
    }

    bool read(zul_Point& point) override {
        if (next_ == vertex_.count) return false;
        if (header_.encoding == PlyEncoding::Ascii) {
            readTokens(vertex_);
        } else {
            in_.read(record_.data(), record_.size(), "a vertex");
        }
        for (int c = 0; c < 3; ++c) point.position[c] = value(*position_[c]);
        if (layout_.hasColor) {
            for (int c = 0; c < 3; ++c) point.color[c] = colorChannel(*color_[c]);
        }
        if (layout_.hasNormals) {
            for (int c = 0; c < 3; ++c) point.normal[c] = static_cast<float>(value(*normal_[c]));
        }
        if (intensityProperty_ != nullptr) intensity_ = value(*intensityProperty_);
        ++next_;
        if (next_ == vertex_.count) dataEnd_ = in_.position();
        return true;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }
    const RecordLayout* records() const override { return &records_; }
    uint64_t dataEnd() const override { return vertex_.count == 0 ? records_.dataBegin : dataEnd_; }

    const unsigned char* record() const override {
        if (header_.encoding == PlyEncoding::BinaryLittle) return record_.data();
        whole_.resize(vertex_.recordSize);
        for (size_t k = 0; k < vertex_.properties.size(); ++k) {
            const PlyProperty& property = vertex_.properties[k];
            unsigned char* at = whole_.data() + property.offset;
            if (header_.encoding == PlyEncoding::BinaryBig) {
                std::memcpy(at, record_.data() + property.offset, property.size);
                reverseBytes(at, property.size);
            } else if (!line_.typed(k, property.kind, property.size, at)) {
                in_.fail("vertex " + std::to_string(next_ - 1) + ": property " +
                         printable(property.name) +
                         " holds a value that is not a number of its type (compress with "
                         "--no-companion to leave the fields out)");
            }
        }
        return whole_.data();
    }

private:
    void describeRecords() {
        const FieldRole roles[3][3] = {{FieldRole::X, FieldRole::Y, FieldRole::Z},
                                       {FieldRole::Red, FieldRole::Green, FieldRole::Blue},
                                       {FieldRole::NX, FieldRole::NY, FieldRole::NZ}};
        for (const PlyProperty& property : vertex_.properties) {
            RecordField f{property.name,   property.kind,  property.size, 1,
                          property.offset, FieldRole::None};
            for (int c = 0; c < 3; ++c) {
                if (&property == position_[c]) f.role = roles[0][c];
                if (&property == color_[c] && layout_.hasColor) f.role = roles[1][c];
                if (&property == normal_[c] && layout_.hasNormals) f.role = roles[2][c];
            }
            if (&property == intensityProperty_) f.role = FieldRole::Intensity;
            records_.fields.push_back(f);
        }
        records_.size = vertex_.recordSize;
        records_.encoding = header_.encoding == PlyEncoding::Ascii          ? "ascii"
                            : header_.encoding == PlyEncoding::BinaryLittle ? "binary_little_endian"
                                                                            : "binary_big_endian";
    }

    bool isRead(const PlyProperty* property) const {
        for (int c = 0; c < 3; ++c) {
            if (property == position_[c] || property == color_[c] || property == normal_[c])
                return true;
        }
        return property == intensityProperty_;
    }

    // Skips the records of an element that comes before the vertices.
    void skipElement(const PlyElement& element) {
        std::vector<unsigned char> bytes(8);
        for (uint64_t i = 0; i < element.count; ++i) {
            if (header_.encoding == PlyEncoding::Ascii) {
                if (!line_.next(in_)) in_.fail("the file ends inside the " + element.name + "s");
                continue;
            }
            for (const PlyProperty& property : element.properties) {
                uint64_t n = 1;
                if (property.list) {
                    PlyProperty count{"count", property.countSize, 'u'};
                    in_.read(bytes.data(), count.size, "an element");
                    n = static_cast<uint64_t>(plyValue(count, bytes.data(), big_));
                }
                for (uint64_t k = 0; k < n; ++k)
                    in_.read(bytes.data(), property.size, "an element");
            }
        }
    }

    void readTokens(const PlyElement& element) {
        if (!line_.next(in_)) {
            in_.fail("the file ends after " + std::to_string(next_) + " of " +
                     std::to_string(element.count) + " vertices (truncated)");
        }
        if (line_.size() < element.properties.size()) {
            in_.fail("vertex " + std::to_string(next_) + " has too few values");
        }
    }

    double value(const PlyProperty& property) const {
        if (header_.encoding != PlyEncoding::Ascii) {
            return plyValue(property, record_.data() + property.offset, big_);
        }
        double v = 0;
        if (!line_.number(static_cast<size_t>(&property - vertex_.properties.data()), v)) {
            in_.fail("vertex " + std::to_string(next_) + " holds a value that is not a number");
        }
        return v;
    }

    // 8 bits as they are, 16 bits reduced to their high byte, floats taken as 0 .. 1; what
    // falls outside 0 .. 255 or between whole numbers is clamped or rounded, and counted.
    uint8_t colorChannel(const PlyProperty& property) {
        const double v = value(property);
        const bool isFloat = property.kind == 'f';
        const double scaled = isFloat ? v * 255.0 : property.size == 2 ? v / 256.0 : v;
        const double kept = std::floor(scaled + (isFloat ? 0.5 : 0.0));
        if (std::isnan(scaled) || kept < 0 || kept > 255) {
            count(isFloat ? "float colour values outside 0 .. 1 clamped"
                          : "colour values outside 0 .. 255 clamped");
            return std::isnan(scaled) || kept < 0 ? 0 : 255;
        }
        if (isFloat && kept != scaled) count("float colour values rounded to 8 bits");
        return static_cast<uint8_t>(kept);
    }

    ByteInput in_;
    PlyHeader header_;
    PlyElement vertex_;
    bool big_ = false;
    const PlyProperty* position_[3] = {};
    const PlyProperty* color_[3] = {};
    const PlyProperty* normal_[3] = {};
    const PlyProperty* intensityProperty_ = nullptr;
    uint64_t next_ = 0;
    std::vector<unsigned char> record_;
    TextLine line_{" \t"};
    RecordLayout records_;
    uint64_t dataEnd_ = 0;
    mutable std::vector<unsigned char> whole_;
};

}  // namespace

std::unique_ptr<CloudReader> openPlyReader(const std::string& path) {
    return std::make_unique<PlyReader>(path);
}

}  // namespace zulformats

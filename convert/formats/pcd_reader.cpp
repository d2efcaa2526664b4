// PCD files with DATA ascii, binary or binary_compressed (an LZF block holding the fields column
// after column). Fields read: x y z, rgb or rgba (0x00RRGGBB in a 4-byte word), intensity and
// normal_x normal_y normal_z; all others, rgba's alpha, the organised layout and the viewpoint are
// named as dropped.
#include <lzf.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "formats/byte_input.h"
#include "formats/cloud.h"
#include "formats/pcd_header.h"
#include "formats/text_line.h"

namespace zulformats {

namespace {

// LZF's longest back-reference, 264 bytes, costs 3 bytes: no block expands further than that.
constexpr uint64_t kLzfMaxExpansion = 89;

// The bytes an LZF block decompresses to, read from its control bytes alone without writing any,
// or -1 if the block is malformed: a literal run or a back-reference's offset byte past its end,
// or a back-reference to before the start. So a block's declared size is checked against what
// it really holds before its memory is allocated.
int64_t lzfDecodedSize(const unsigned char* in, size_t size) {
    size_t at = 0;
    int64_t out = 0;
    while (at < size) {
        const unsigned ctrl = in[at++];
        if (ctrl < 32) {
            const size_t literal = ctrl + 1;
            if (literal > size - at) return -1;
            at += literal;
            out += static_cast<int64_t>(literal);
            continue;
        }
        int64_t length = ctrl >> 5;
        if (length == 7) {
            if (at == size) return -1;
            length += in[at++];
        }
        if (at == size) return -1;
        const int64_t back = ((int64_t{ctrl} & 0x1f) << 8) + in[at++] + 1;
        if (back > out) return -1;
        out += length + 2;
    }
    return out;
}

int64_t integerTypeMax(const PcdField& field) {
    if (field.type == 'F') return 0;
    const int bits = 8 * field.size - (field.type == 'I' ? 1 : 0);
    return bits >= 31 ? std::numeric_limits<int32_t>::max() : (int64_t{1} << bits) - 1;
}

class PcdReader : public CloudReader {
public:
    explicit PcdReader(const std::string& path) : in_(path) {
        header_ = readPcdHeader(in_);
        records_.dataBegin = in_.position();
        x_ = header_.find("x");
        y_ = header_.find("y");
        z_ = header_.find("z");
        rgb_ = header_.find("rgb") != nullptr ? header_.find("rgb") : header_.find("rgba");
        intensityField_ = header_.find("intensity");
        normal_[0] = header_.find("normal_x");
        normal_[1] = header_.find("normal_y");
        normal_[2] = header_.find("normal_z");
        if (rgb_ != nullptr && rgb_->size != 4) in_.fail("the PCD field rgb is not 4 bytes");
        layout_.hasColor = rgb_ != nullptr;
        layout_.hasIntensity = intensityField_ != nullptr;
        if (intensityField_ != nullptr) {
            layout_.floatIntensity = intensityField_->type == 'F';
            layout_.intensityTypeMax = integerTypeMax(*intensityField_);
        }
        layout_.hasNormals =
            normal_[0] != nullptr && normal_[1] != nullptr && normal_[2] != nullptr;
        layout_.pointCount = static_cast<int64_t>(header_.points);
        nameDropped();
        describeRecords();
        const uint64_t left = in_.size() - in_.position();
        if (header_.data == PcdData::Binary) {
            if (header_.points > left / header_.recordSize) {
                in_.fail("the file ends before the " + std::to_string(header_.points) +
                         " points its header announces (truncated)");
            }
            record_.resize(header_.recordSize);
        } else if (header_.data == PcdData::BinaryCompressed) {
            readCompressedBlock(left);
        }
    }

    bool read(zul_Point& point) override {
        if (next_ == header_.points) return false;
        if (header_.data == PcdData::Ascii) {
            readLine();
        } else if (header_.data == PcdData::Binary) {
            in_.read(record_.data(), record_.size(), "a point record");
        }
        point.position[0] = value(*x_, 0);
        point.position[1] = value(*y_, 0);
        point.position[2] = value(*z_, 0);
        if (rgb_ != nullptr) {
            const uint32_t rgb = packedColor();
            point.color[0] = static_cast<uint8_t>(rgb >> 16);
            point.color[1] = static_cast<uint8_t>(rgb >> 8);
            point.color[2] = static_cast<uint8_t>(rgb);
        }
        if (intensityField_ != nullptr) intensity_ = value(*intensityField_, 0);
        if (layout_.hasNormals) {
            for (int c = 0; c < 3; ++c) point.normal[c] = static_cast<float>(value(*normal_[c], 0));
        }
        ++next_;
        return true;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }
    const RecordLayout* records() const override { return &records_; }

    const unsigned char* record() const override {
        if (header_.data == PcdData::Binary) return record_.data();
        whole_.resize(header_.recordSize);
        for (const PcdField& field : header_.fields) {
            if (header_.data == PcdData::BinaryCompressed) {
                const size_t width = static_cast<size_t>(field.size) * field.count;
                std::memcpy(whole_.data() + field.offset,
                            block_.data() + field.offset * header_.points + (next_ - 1) * width,
                            width);
                continue;
            }
            for (int k = 0; k < field.count; ++k) {
                if (!line_.typed(field.column + k, static_cast<char>(std::tolower(field.type)),
                                 field.size, whole_.data() + field.offset + field.size * k)) {
                    in_.fail("point " + std::to_string(next_ - 1) + ": field " +
                             printable(field.name) + " holds a value that is not a number of " +
                             std::to_string(field.size) + " bytes of type " + field.type +
                             " (compress with --no-companion to leave the fields out)");
                }
            }
        }
        return whole_.data();
    }

private:
    void describeRecords() {
        static const std::pair<const char*, FieldRole> kRoles[] = {
            {"x", FieldRole::X},         {"y", FieldRole::Y},         {"z", FieldRole::Z},
            {"normal_x", FieldRole::NX}, {"normal_y", FieldRole::NY}, {"normal_z", FieldRole::NZ}};
        for (const PcdField& field : header_.fields) {
            RecordField f{field.name,   static_cast<char>(std::tolower(field.type)),
                          field.size,   field.count,
                          field.offset, FieldRole::None};
            for (const auto& [name, role] : kRoles) {
                if (field.name == name && (role < FieldRole::NX || layout_.hasNormals))
                    f.role = role;
            }
            if (&field == rgb_) f.role = FieldRole::PackedColor;
            if (&field == intensityField_) f.role = FieldRole::Intensity;
            if (field.count != 1) f.role = FieldRole::None;
            records_.fields.push_back(f);
        }
        records_.size = header_.recordSize;
        records_.encoding = header_.data == PcdData::Ascii    ? "ascii"
                            : header_.data == PcdData::Binary ? "binary"
                                                              : "binary_compressed";
        records_.width = header_.width;
        records_.height = header_.height;
    }

    void nameDropped() {
        static const char* const kRead[] = {"x",         "y",        "z",        "rgb",     "rgba",
                                            "intensity", "normal_x", "normal_y", "normal_z"};
        for (const PcdField& field : header_.fields) {
            if (std::find(std::begin(kRead), std::end(kRead), field.name) == std::end(kRead) &&
                field.name != "_") {
                layout_.dropped.push_back(printable(field.name));
            }
        }
        if (rgb_ != nullptr && rgb_->name == "rgba") layout_.dropped.push_back("alpha");
        if (header_.height > 1) {
            layout_.dropped.push_back("the organised " + std::to_string(header_.width) + " x " +
                                      std::to_string(header_.height) + " layout");
        }
        if (header_.customViewpoint) layout_.dropped.push_back("the viewpoint");
    }

    void readCompressedBlock(uint64_t left) {
        unsigned char sizes[8];
        in_.read(sizes, 8, "the compressed block's sizes");
        const uint32_t packed = loadLittle<uint32_t>(sizes);
        const uint32_t unpacked = loadLittle<uint32_t>(sizes + 4);
        if (packed > left - 8) in_.fail("the compressed block is cut short (truncated)");
        if (header_.points > unpacked / header_.recordSize ||
            uint64_t{unpacked} != header_.points * header_.recordSize ||
            unpacked > uint64_t{packed} * kLzfMaxExpansion) {
            in_.fail("the compressed block's sizes do not match the header (damaged)");
        }
        std::vector<unsigned char> compressed(packed);
        in_.read(compressed.data(), packed, "the compressed block");
        // The block is held by the file; what it decompresses to is known before allocating it.
        if (lzfDecodedSize(compressed.data(), packed) != int64_t{unpacked})
            in_.fail("the compressed block does not decompress to its declared size (damaged)");
        block_.resize(unpacked);
        if (unpacked > 0 &&
            lzf_decompress(compressed.data(), packed, block_.data(), unpacked) != unpacked) {
            in_.fail("the compressed block does not decompress (damaged)");
        }
    }

    void readLine() {
        if (!line_.next(in_)) {
            in_.fail("the file ends after " + std::to_string(next_) + " of " +
                     std::to_string(header_.points) + " points (truncated)");
        }
        if (line_.size() != header_.valuesPerPoint) {
            in_.fail("point " + std::to_string(next_) + " has " + std::to_string(line_.size()) +
                     " values, the header says " + std::to_string(header_.valuesPerPoint));
        }
    }

    double asciiNumber(size_t column) const {
        double v = 0;
        if (!line_.number(column, v)) {
            in_.fail("point " + std::to_string(next_) + " holds a value that is not a number");
        }
        return v;
    }

    const unsigned char* binaryValue(const PcdField& field, int index) const {
        if (header_.data == PcdData::Binary)
            return record_.data() + field.offset + field.size * index;
        const size_t width = static_cast<size_t>(field.size) * field.count;
        return block_.data() + field.offset * header_.points + next_ * width + field.size * index;
    }

    double value(const PcdField& field, int index) const {
        if (header_.data == PcdData::Ascii) return asciiNumber(field.column + index);
        return pcdValue(field, binaryValue(field, index));
    }

    uint32_t packedColor() const {
        if (header_.data != PcdData::Ascii) return loadLittle<uint32_t>(binaryValue(*rgb_, 0));
        const double v = asciiNumber(rgb_->column);
        if (rgb_->type == 'F') {
            const float f = static_cast<float>(v);
            uint32_t bits;
            std::memcpy(&bits, &f, 4);
            return bits;
        }
        return v >= 0 && v <= 4294967295.0 ? static_cast<uint32_t>(v) : 0;
    }

    ByteInput in_;
    PcdHeader header_;
    const PcdField *x_ = nullptr, *y_ = nullptr, *z_ = nullptr, *rgb_ = nullptr;
    const PcdField* intensityField_ = nullptr;
    const PcdField* normal_[3] = {};
    uint64_t next_ = 0;
    std::vector<unsigned char> record_;
    std::vector<unsigned char> block_;
    TextLine line_{" \t"};
    RecordLayout records_;
    mutable std::vector<unsigned char> whole_;
};

}  // namespace

std::unique_ptr<CloudReader> openPcdReader(const std::string& path) {
    return std::make_unique<PcdReader>(path);
}

}  // namespace zulformats

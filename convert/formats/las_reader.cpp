// LAS 1.0 to 1.4, uncompressed, point formats 0 to 10: integer coordinates with a scale and an
// offset from the public header, a 16-bit intensity, and 16-bit RGB in the formats that have it.
// The coordinate reference system comes from the variable-length records; what else the records
// hold is named as dropped when it carries anything.
#include <algorithm>
#include <cmath>

#include "formats/byte_input.h"
#include "formats/cloud.h"
#include "formats/las_crs.h"
#include "formats/las_records.h"

namespace zulformats {

namespace {

class LasReader : public CloudReader {
public:
    explicit LasReader(const std::string& path) : in_(path) {
        unsigned char header[kLas14HeaderSize] = {};
        in_.read(header, kLas12HeaderSize, "the LAS header");
        if (std::memcmp(header, "LASF", 4) != 0) in_.fail("not a LAS file (no \"LASF\" signature)");
        const int major = header[24], minor = header[25];
        if (major != 1 || minor > 4) {
            in_.fail("LAS version " + std::to_string(major) + "." + std::to_string(minor) +
                     " is not supported (1.0 to 1.4 are)");
        }
        const uint16_t headerSize = loadLittle<uint16_t>(header + 94);
        const uint32_t dataOffset = loadLittle<uint32_t>(header + 96);
        const int pointFormat = header[104];
        recordLength_ = loadLittle<uint16_t>(header + 105);
        if (headerSize < kLas12HeaderSize || dataOffset < headerSize) {
            in_.fail("the LAS header's sizes are damaged");
        }
        if (pointFormat & 0xC0) in_.fail("compressed LAS points are not supported");
        if (pointFormat > 10) {
            in_.fail("LAS point format " + std::to_string(pointFormat) + " is not supported");
        }
        if (recordLength_ < kLasRecordSize[pointFormat]) {
            in_.fail("the LAS point record is shorter than its point format needs");
        }
        uint64_t count = loadLittle<uint32_t>(header + 107);
        if (minor >= 4 && headerSize >= kLas14HeaderSize) {
            in_.read(header + kLas12HeaderSize, kLas14HeaderSize - kLas12HeaderSize,
                     "the LAS 1.4 header");
            const uint64_t count64 = loadLittle<uint64_t>(header + 247);
            if (count64 != 0) count = count64;
        }
        for (int axis = 0; axis < 3; ++axis) {
            scale_[axis] = loadLittle<double>(header + 131 + 8 * axis);
            offset_[axis] = loadLittle<double>(header + 155 + 8 * axis);
            if (!(scale_[axis] > 0) || !std::isfinite(scale_[axis]) ||
                !std::isfinite(offset_[axis])) {
                in_.fail("the LAS header's scale or offset is not a positive finite number");
            }
        }
        colorOffset_ = kLasColorOffset[pointFormat];
        remaining_ = count;
        pointFormat_ = pointFormat;
        in_.seek(headerSize);
        const std::vector<LasVlr> vlrs =
            readLasVlrs(in_, loadLittle<uint32_t>(header + 100), dataOffset);
        for (const LasVlr& vlr : vlrs) {
            if (isCrsVlr(vlr)) {
                crsVlrs_.push_back(vlr);
            } else {
                ++otherVlrs_;
            }
        }
        in_.seek(dataOffset);
        if (count > (in_.size() - dataOffset) / recordLength_) {
            in_.fail("the file ends before the " + std::to_string(count) +
                     " points its header announces (truncated)");
        }
        // Padded with zeros to whole 8-byte words, for the fields seen.
        record_.assign((recordLength_ + 7) / 8 * 8, 0);
        if (colorOffset_ > 0) colorShift_ = colorIs16Bit(dataOffset, count) ? 8 : 0;
        layout_.hasColor = colorOffset_ > 0;
        layout_.hasIntensity = true;
        layout_.intensityTypeMax = 65535;
        layout_.gridStep = std::fmin(scale_[0], std::fmin(scale_[1], scale_[2]));
        for (int axis = 0; axis < 3; ++axis) {
            layout_.gridScale[axis] = scale_[axis];
            layout_.gridOffset[axis] = offset_[axis];
        }
        layout_.pointCount = static_cast<int64_t>(count);
        seen_.assign((recordLength_ + 7) / 8, 0);
        const size_t tail = recordLength_ % 8;
        lastWord_ = tail == 0 ? ~uint64_t{0} : (uint64_t{1} << (8 * tail)) - 1;
    }

    bool read(zul_Point& point) override {
        if (remaining_ == 0) return false;
        --remaining_;
        unsigned char* r = record_.data();
        in_.read(r, recordLength_, "a point record");
        see(r, 1);
        take(r, point, intensity_, grid_, lowBits_, notTimes257_);
        return true;
    }

    size_t readMany(zul_Point* points, double* intensities, int64_t* grids, size_t count) override {
        const size_t n = static_cast<size_t>(
            std::min<uint64_t>({count, remaining_, in_.largestTake() / recordLength_}));
        if (n == 0) return 0;
        remaining_ -= n;
        // The records where they were read; see() and take() load a word beyond the last.
        const unsigned char* r = in_.take(n * recordLength_, "a point record");
        see(r, n);
        unsigned low = lowBits_, differ = notTimes257_;
        for (size_t i = 0; i < n; ++i)
            take(r + i * recordLength_, points[i], intensities[i], grids + 3 * i, low, differ);
        lowBits_ = low;
        notTimes257_ = differ;
        intensity_ = intensities[n - 1];
        std::copy(grids + 3 * (n - 1), grids + 3 * n, grid_);
        return n;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }

    // The fields that held anything but zeros in the points read, and the other records.
    std::vector<std::string> dropped() const override {
        std::vector<std::string> names;
        for (const LasField& field : lasDroppedFields(pointFormat_, recordLength_)) {
            if (anySeen(field.offset, field.size)) names.push_back(field.name);
        }
        if (otherVlrs_ > 0) {
            names.push_back(std::to_string(otherVlrs_) + " variable-length record" +
                            (otherVlrs_ == 1 ? "" : "s"));
        }
        if (colorScale() == 65536) names.push_back("the low byte of 16-bit colour");
        return names;
    }

    std::string coordinateSystem(std::string& problem) const override {
        problem.clear();
        return crsOfVlrs(crsVlrs_, problem);
    }

    int colorScale() const override {
        if (colorOffset_ == 0) return 0;
        if (colorShift_ == 0) return 1;
        return lowBits_ == 0 ? 256 : notTimes257_ == 0 ? 257 : 65536;
    }

private:
    // Adds the bits set in the `n` records from `r` to seen_; the last 8-byte word of a record
    // may run past its end.
    void see(const unsigned char* r, size_t n) {
        const size_t words = seen_.size();
        for (size_t w = 0; w < words; ++w) {
            uint64_t bits = 0;
            for (size_t i = 0; i < n; ++i)
                bits |= loadLittle<uint64_t>(r + i * recordLength_ + 8 * w);
            seen_[w] |= w + 1 < words ? bits : bits & lastWord_;
        }
    }

    // The point of the record at `r`; of its colour, the bits of the low bytes go to `low` and
    // those where low and high byte differ to `differ`.
    void take(const unsigned char* r, zul_Point& point, double& intensity, int64_t grid[3],
              unsigned& low, unsigned& differ) const {
        for (int axis = 0; axis < 3; ++axis) {
            grid[axis] = loadLittle<int32_t>(r + 4 * axis);
            point.position[axis] = static_cast<double>(grid[axis]) * scale_[axis] + offset_[axis];
        }
        intensity = loadLittle<uint16_t>(r + 12);
        if (colorOffset_ > 0) {
            for (int c = 0; c < 3; ++c) {
                const uint16_t value = loadLittle<uint16_t>(r + colorOffset_ + 2 * c);
                point.color[c] = static_cast<uint8_t>(value >> colorShift_);
                low |= value & 0xFFu;
                differ |= (value & 0xFFu) ^ (value >> 8);
            }
        }
    }

    bool anySeen(size_t offset, size_t size) const {
        for (size_t i = offset; i < offset + size; ++i) {
            if ((seen_[i / 8] >> (8 * (i % 8))) & 0xFF) return true;
        }
        return false;
    }

    // Many writers put 8-bit colours into LAS's 16-bit fields: if no channel of any point exceeds
    // 255, the values are taken as they are; otherwise by their high byte.
    bool colorIs16Bit(uint64_t dataOffset, uint64_t count) {
        // The high bytes of the three channels, in a word loaded at the colour.
        const uint64_t highBytes = 0xFF00FF00FF00ull;
        bool wide = false;
        for (uint64_t left = count; left > 0 && !wide;) {
            const size_t n =
                static_cast<size_t>(std::min<uint64_t>(left, in_.largestTake() / recordLength_));
            left -= n;
            const unsigned char* r = in_.take(n * recordLength_, "a point record");
            uint64_t high = 0;
            for (size_t i = 0; i < n; ++i)
                high |= loadLittle<uint64_t>(r + i * recordLength_ + colorOffset_);
            wide = (high & highBytes) != 0;
        }
        in_.seek(dataOffset);
        return wide;
    }

    ByteInput in_;
    int colorShift_ = 8;
    // Of every colour value read: the bits of the low bytes, and those where low and high differ.
    unsigned lowBits_ = 0, notTimes257_ = 0;
    double scale_[3] = {};
    double offset_[3] = {};
    size_t recordLength_ = 0;
    int colorOffset_ = 0;
    uint64_t remaining_ = 0;
    int pointFormat_ = 0;
    uint32_t otherVlrs_ = 0;
    std::vector<LasVlr> crsVlrs_;
    std::vector<unsigned char> record_;
    std::vector<uint64_t> seen_;  // the bits set in any record so far
    uint64_t lastWord_ = 0;       // the bytes of the last word of seen_ that lie in a record
};

}  // namespace

std::unique_ptr<CloudReader> openLasReader(const std::string& path) {
    return std::make_unique<LasReader>(path);
}

}  // namespace zulformats

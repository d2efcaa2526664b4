// LAS 1.0 to 1.4, uncompressed, point formats 0 to 10: integer coordinates with a scale and an
// offset from the public header, a 16-bit intensity, and 16-bit RGB in the formats that have it.
#include <algorithm>
#include <cmath>

#include "byte_input.h"
#include "cloud.h"
#include "las_records.h"

namespace zultool {

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
        in_.seek(dataOffset);
        if (count > (in_.size() - dataOffset) / recordLength_) {
            in_.fail("the file ends before the " + std::to_string(count) +
                     " points its header announces (truncated)");
        }
        record_.resize(recordLength_);
        if (colorOffset_ > 0) colorShift_ = colorIs16Bit(dataOffset, count) ? 8 : 0;
        layout_.hasColor = colorOffset_ > 0;
        layout_.hasIntensity = true;
        layout_.intensityTypeMax = 65535;
        layout_.gridStep = std::fmin(scale_[0], std::fmin(scale_[1], scale_[2]));
        layout_.pointCount = static_cast<int64_t>(count);
    }

    bool read(zul_Point& point) override {
        if (remaining_ == 0) return false;
        --remaining_;
        unsigned char* r = record_.data();
        in_.read(r, record_.size(), "a point record");
        for (int axis = 0; axis < 3; ++axis) {
            point.position[axis] = loadLittle<int32_t>(r + 4 * axis) * scale_[axis] + offset_[axis];
        }
        intensity_ = loadLittle<uint16_t>(r + 12);
        if (colorOffset_ > 0) {
            for (int c = 0; c < 3; ++c) {
                point.color[c] = static_cast<uint8_t>(
                    loadLittle<uint16_t>(r + colorOffset_ + 2 * c) >> colorShift_);
            }
        }
        return true;
    }

    uint64_t bytesRead() const override { return in_.position(); }
    uint64_t fileSize() const override { return in_.size(); }

private:
    // Many writers put 8-bit colours into LAS's 16-bit fields. If no channel of the first
    // million points exceeds 255, the values are taken as they are; otherwise by their high byte.
    bool colorIs16Bit(uint64_t dataOffset, uint64_t count) {
        const uint64_t sample = std::min<uint64_t>(count, 1000000);
        bool wide = false;
        for (uint64_t i = 0; i < sample && !wide; ++i) {
            in_.read(record_.data(), record_.size(), "a point record");
            for (int c = 0; c < 3; ++c) {
                wide = wide || loadLittle<uint16_t>(record_.data() + colorOffset_ + 2 * c) > 255;
            }
        }
        in_.seek(dataOffset);
        return wide;
    }

    ByteInput in_;
    int colorShift_ = 8;
    double scale_[3] = {};
    double offset_[3] = {};
    size_t recordLength_ = 0;
    int colorOffset_ = 0;
    uint64_t remaining_ = 0;
    std::vector<unsigned char> record_;
};

}  // namespace

std::unique_ptr<CloudReader> openLasReader(const std::string& path) {
    return std::make_unique<LasReader>(path);
}

}  // namespace zultool

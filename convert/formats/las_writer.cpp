// Writes LAS 1.2 (point format 0, or 2 with colour) or LAS 1.4 (point format 6, or 7 with
// colour), with the scale equal to the stream's step and, where the stream says where its grid
// lies, its offset, so that every coordinate comes back as the stream gives it. The coordinate
// system goes into a variable-length record. The header is completed at the end, when the
// bounding box and the count are known.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "formats/byte_output.h"
#include "formats/cloud.h"
#include "formats/las_crs.h"
#include "formats/las_records.h"

namespace zulformats {

namespace {

template <typename T>
void put(unsigned char* header, size_t offset, T value) {
    std::memcpy(header + offset, &value, sizeof(T));
}

class LasWriter : public CloudWriter {
public:
    LasWriter(const std::string& path, const WriteOptions& options)
        : path_(path),
          out_(path),
          color_(options.color),
          intensity_(options.intensity),
          colorScale_(options.lasColorScale) {
        if (options.lasVersion != "1.2" && options.lasVersion != "1.4") {
            throw FormatError(path + ": LAS version " + options.lasVersion +
                              " cannot be written (1.2 and 1.4 can)");
        }
        v14_ = options.lasVersion == "1.4";
        pointFormat_ = v14_ ? (color_ ? 7 : 6) : (color_ ? 2 : 0);
        headerSize_ = v14_ ? kLas14HeaderSize : kLas12HeaderSize;
        scale_ = options.gridStep > 0 ? options.gridStep : 0.001;
        gridExact_ = options.gridExact;
        if (gridExact_) std::copy(options.gridOffset, options.gridOffset + 3, offset_);
        recordSize_ = kLasRecordSize[pointFormat_];
        if (!options.crs.empty()) vlrs_ = crsVlrs(options.crs, v14_, path);
        const std::vector<unsigned char> placeholder(headerSize_, 0);
        out_.write(placeholder.data(), placeholder.size());
        dataOffset_ = headerSize_;
        for (const LasVlr& vlr : vlrs_) {
            writeLasVlr(out_, vlr);
            dataOffset_ += kLasVlrHeaderSize + vlr.data.size();
        }
    }

    void write(const zul_Point& point) override {
        zul_Point copy = point;
        const zul_bulk_Points one = {1, copy.position, copy.color, &copy.reflection, copy.normal};
        writeMany(one, 0, 1);
    }

    void writeMany(const zul_bulk_Points& points, int64_t from, int64_t to) override {
        if (from >= to) return;
        if (count_ == 0 && !gridExact_) {
            // Coordinates are stored relative to the first point, on the grid of the scale.
            const double* first = points.positions + 3 * from;
            for (int axis = 0; axis < 3; ++axis) {
                offset_[axis] =
                    std::isfinite(first[axis]) ? std::round(first[axis] / scale_) * scale_ : 0.0;
            }
        }
        int64_t above = 0;
        const int colorAt = v14_ ? 30 : 20;
        // In locals: the records' byte stores could otherwise change them, as far as the
        // compiler knows, and it would load and store them a point at a time.
        const double scale = scale_;
        const double offset[3] = {offset_[0], offset_[1], offset_[2]};
        double low[3] = {min_[0], min_[1], min_[2]}, high[3] = {max_[0], max_[1], max_[2]};
        // Records made in the output's buffer, a block at a time, zeroed first.
        constexpr int64_t kBlock = 4096;
        for (int64_t begin = from; begin < to; begin += kBlock) {
            const int64_t n = std::min(kBlock, to - begin);
            const size_t bytes = static_cast<size_t>(n) * recordSize_;
            unsigned char* block = out_.room(bytes);
            std::memset(block, 0, bytes);
            for (int64_t i = 0; i < n; ++i) {
                unsigned char* record = block + static_cast<size_t>(i) * recordSize_;
                const int64_t k = begin + i;
                const double* p = points.positions + 3 * k;
                for (int axis = 0; axis < 3; ++axis) {
                    // std::round's halves away from zero, within LAS's 32-bit coordinates
                    // exactly where the units lie within (-2^31 - 0.5, 2^31 - 0.5).
                    const double units = (p[axis] - offset[axis]) / scale;
                    if (!(units > -2147483648.5 && units < 2147483647.5)) {
                        throw FormatError(path_ +
                                          ": a position does not fit LAS's 32-bit coordinates "
                                          "at this scale (or is not a number)");
                    }
                    const int32_t whole = static_cast<int32_t>(units);
                    const double fraction = units - static_cast<double>(whole);
                    const int32_t stored =
                        whole + (fraction >= 0.5 ? 1 : 0) - (fraction <= -0.5 ? 1 : 0);
                    put(record, 4 * axis, stored);
                    const double value = stored * scale + offset[axis];
                    low[axis] = std::min(low[axis], value);
                    high[axis] = std::max(high[axis], value);
                }
                if (intensity_) {
                    const int32_t reflection = points.reflections ? points.reflections[k] : 0;
                    above += reflection > 65535 ? 1 : 0;
                    put(record, 12, static_cast<uint16_t>(std::clamp(reflection, 0, 65535)));
                }
                // One return of one.
                record[14] = v14_ ? 0x11 : 0x09;
                if (color_ && points.colors) {
                    for (int c = 0; c < 3; ++c)
                        put(record, colorAt + 2 * c,
                            static_cast<uint16_t>(points.colors[3 * k + c] * colorScale_));
                }
            }
            out_.wrote(bytes);
            count_ += static_cast<uint64_t>(n);
        }
        std::copy(low, low + 3, min_);
        std::copy(high, high + 3, max_);
        if (above > 0) count("reflections above 65535 written as 65535", above);
    }

    void finish() override {
        std::vector<unsigned char> header(headerSize_, 0);
        unsigned char* h = header.data();
        std::memcpy(h, "LASF", 4);
        put<uint16_t>(h, 6, v14_ ? 0x10 : 0);  // 1.4 formats 6+ need the WKT bit
        h[24] = 1;
        h[25] = v14_ ? 4 : 2;
        std::memcpy(h + 26, "zul", 3);
        std::memcpy(h + 58, "zul decompress", 14);
        put<uint16_t>(h, 94, static_cast<uint16_t>(headerSize_));
        put<uint32_t>(h, 96, static_cast<uint32_t>(dataOffset_));
        put<uint32_t>(h, 100, static_cast<uint32_t>(vlrs_.size()));
        h[104] = static_cast<unsigned char>(pointFormat_);
        put<uint16_t>(h, 105, static_cast<uint16_t>(recordSize_));
        const bool legacyFits = !v14_ && count_ <= std::numeric_limits<uint32_t>::max();
        if (!v14_ && !legacyFits) {
            throw FormatError(path_ + ": too many points for LAS 1.2; write LAS 1.4");
        }
        if (legacyFits) {
            put<uint32_t>(h, 107, static_cast<uint32_t>(count_));
            put<uint32_t>(h, 111, static_cast<uint32_t>(count_));
        }
        for (int axis = 0; axis < 3; ++axis) {
            put(h, 131 + 8 * axis, scale_);
            put(h, 155 + 8 * axis, offset_[axis]);
            put(h, 179 + 16 * axis, count_ > 0 ? max_[axis] : 0.0);
            put(h, 187 + 16 * axis, count_ > 0 ? min_[axis] : 0.0);
        }
        if (v14_) {
            put<uint64_t>(h, 247, count_);
            put<uint64_t>(h, 255, count_);
        }
        out_.rewrite(0, h, header.size());
        out_.close();
    }

private:
    std::string path_;
    ByteOutput out_;
    bool color_, intensity_;
    int colorScale_;
    bool v14_ = false;
    int pointFormat_ = 0;
    size_t headerSize_ = 0;
    double scale_ = 0.001;
    bool gridExact_ = false;
    double offset_[3] = {};
    std::vector<LasVlr> vlrs_;
    size_t dataOffset_ = 0;
    double min_[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL};
    double max_[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    uint64_t count_ = 0;
    size_t recordSize_ = 0;
};

}  // namespace

std::unique_ptr<CloudWriter> openLasWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<LasWriter>(path, options);
}

}  // namespace zulformats

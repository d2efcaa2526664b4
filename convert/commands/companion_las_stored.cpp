#include "commands/companion_las_stored.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <numeric>

#include "base/worker_threads.h"
#include "commands/companion_match.h"
#include "formats/byte_input.h"

namespace zulconvert {

using zulformats::loadLittle;

namespace {

// Records asked for this many points before they are read.
constexpr size_t kAhead = 16;

constexpr double kExact = 4503599627370496.0;  // 2^52: below it, x + 0.5 is exact
constexpr double kSurelyNear = 0.499;

// The position a decoder gives for `value` on a grid of `step`: the nearest multiple, exact
// halves upwards, as the encoder rounds (an index beyond 64 bits is the smallest one).
double storedPosition(double value, double step) {
    const double index = std::floor((step * 0.5 + value) / step);
    const int64_t whole = index >= -9223372036854775808.0 && index < 9223372036854775808.0
                              ? static_cast<int64_t>(index)
                              : INT64_MIN;
    return static_cast<double>(whole) * step;
}

// Value `offset` of `width` bytes of the records of `inputs[0 .. n)`, side by side into `to`.
template <size_t width>
void gatherValues(const unsigned char* records, size_t length, const uint64_t* inputs, size_t n,
                  size_t offset, uint8_t* to) {
    const unsigned char* const from = records + offset;
    for (size_t k = 0; k < n; ++k) std::memcpy(to + k * width, from + inputs[k] * length, width);
}

}  // namespace

void LasStoredPoints::gatherColumns(size_t base, size_t n) {
    const uint64_t* const inputs = inputOf.data() + base;
    const size_t length = las_.recordLength;
    size_t j = 0;
    // Every point format starts with four columns of a byte (bit fields, classification ...), side
    // by side in the record: taken in one word a point.
    if (columns_.size() >= 4 && columns_[0].width == 1 && columns_[1].width == 1 &&
        columns_[2].width == 1 && columns_[3].width == 1 &&
        columns_[1].offset == columns_[0].offset + 1 &&
        columns_[2].offset == columns_[0].offset + 2 &&
        columns_[3].offset == columns_[0].offset + 3) {
        const unsigned char* const from = records_ + columns_[0].offset;
        uint8_t* const to = fields_.data() + base * rowWidth_ + columnAt_[0] * n;
        for (size_t k = 0; k < n; ++k) {
            const uint32_t four = loadLittle<uint32_t>(from + inputs[k] * length);
            for (size_t c = 0; c < 4; ++c) to[c * n + k] = static_cast<uint8_t>(four >> (8 * c));
        }
        j = 4;
    }
    for (; j < columns_.size(); ++j) {
        const size_t offset = columns_[j].offset, width = static_cast<size_t>(columns_[j].width);
        uint8_t* const to = fields_.data() + base * rowWidth_ + columnAt_[j] * n;
        switch (width) {
            case 1:
                gatherValues<1>(records_, length, inputs, n, offset, to);
                break;
            case 2:
                gatherValues<2>(records_, length, inputs, n, offset, to);
                break;
            case 4:
                gatherValues<4>(records_, length, inputs, n, offset, to);
                break;
            case 8:
                gatherValues<8>(records_, length, inputs, n, offset, to);
                break;
            default:
                for (size_t k = 0; k < n; ++k)
                    std::memcpy(to + k * width, records_ + inputs[k] * length + offset, width);
        }
    }
}

void LasStoredPoints::start(const LasHead& las, const unsigned char* records,
                            const int64_t ratio[3]) {
    las_ = las;
    records_ = records;
    for (int axis = 0; axis < 3; ++axis) ratio_[axis] = ratio[axis];
    columns_ = lasColumns(las.pointFormat, las.recordLength);
    columnAt_.clear();
    rowWidth_ = 0;
    for (const LasColumn& column : columns_) {
        columnAt_.push_back(rowWidth_);
        rowWidth_ += static_cast<size_t>(column.width);
    }
    fields_.reserve(las.count * rowWidth_);
    inputOf.reserve(las.count);
    intensityResidual.reserve(las.count);
    color8.reserve(3 * las.count);
}

bool LasStoredPoints::matchWhole(const zulplan::StoredChunk& chunk, bool fromRecords,
                                 uint64_t* inputs, uint64_t& last) {
    // (With the records' grid points, a point's position is its own record's X, Y and Z times
    // the ratios, as compress computed it: the same whole number, of an int32 times at most 2^20,
    // so below 2^52.)
    const size_t n = chunk.count;
    const double* const positions = chunk.points.positions;
    // Read from locals: the stores to `inputs` could alias the chunk's arrays.
    const uint32_t* const at = chunk.at;
    const uint64_t* const given = chunk.inputs;
    uint64_t largest = last;
    size_t run = 0;  // the first stored point of the grid point at hand
    const double* previous = nullptr;
    for (size_t k = 0; k < n; ++k) {
        const double* p = positions + 3 * size_t{at[k]};
        for (int axis = 0; axis < 3 && !fromRecords; ++axis) {
            const double v = p[axis];
            if (!(v > -kExact && v < kExact) || static_cast<double>(static_cast<int64_t>(v)) != v) {
                return false;
            }
        }
        const uint64_t input = given[k];
        inputs[k] = input;
        largest = std::max(largest, input);
        if (previous && (p[0] != previous[0] || p[1] != previous[1] || p[2] != previous[2])) {
            if (k - run > 1) std::sort(inputs + run, inputs + k);
            run = k;
        }
        previous = p;
    }
    last = largest;
    if (n - run > 1) std::sort(inputs + run, inputs + n);
    return true;
}

bool LasStoredPoints::match(const zulplan::StoredChunk& chunk, size_t base, Scratch& scratch,
                            bool& whole) {
    const size_t n = chunk.count;
    const double step = chunk.type->quantizationStep;
    const bool fromRecords = ratio_[0] != 0 && ratio_[1] != 0 && ratio_[2] != 0;
    const bool unit = step == 1.0;
    // A point past the file's records (the file changed) is caught before any record is read.
    uint64_t last = 0;
    uint64_t* inputs = inputOf.data() + base;
    whole = unit && matchWhole(chunk, fromRecords, inputs, last);
    if (!whole) {
        last = 0;
        for (size_t k = 0; k < n; ++k) last = std::max(last, chunk.inputs[k]);
    }
    if (n > 0 && last >= las_.count) return false;
    if (whole) return true;
    // Where every point's own grid point is the one it is stored on (as a rule), the points of a
    // grid point are next to each other in the chunk, and take their records in input order.
    std::vector<double>& stored = scratch.stored;
    std::vector<int64_t>& keys = scratch.keys;
    stored.resize(3 * n);
    keys.resize(6 * n);
    bool agree = true;
    for (size_t k = 0; k < n; ++k) {
        const uint64_t input = chunk.inputs[k];
        if (fromRecords && k + kAhead < n) {
            __builtin_prefetch(records_ + chunk.inputs[k + kAhead] * las_.recordLength);
        }
        const double* p = chunk.points.positions + 3 * size_t{chunk.at[k]};
        const unsigned char* r = records_ + input * las_.recordLength;
        for (int axis = 0; axis < 3; ++axis) {
            const double v = p[axis];
            double g;
            int64_t key, own;
            if (unit && v > -kExact && v < kExact &&
                static_cast<double>(static_cast<int64_t>(v)) == v) {
                // A whole number on a step of 1 (as a rule) is stored as it is.
                g = v;
                key = own = static_cast<int64_t>(v);
            } else {
                g = storedPosition(v, step);
                key = nearestInteger(g);
                own = nearestInteger(v);
            }
            if (fromRecords) own = int64_t{loadLittle<int32_t>(r + 4 * axis)} * ratio_[axis];
            stored[3 * k + axis] = g;
            keys[3 * k + axis] = key;
            keys[3 * (n + k) + axis] = own;
            agree &= key == own;
        }
    }
    std::copy(chunk.inputs, chunk.inputs + n, inputs);
    if (agree) {
        for (size_t k = 0; k < n;) {
            size_t end = k + 1;
            while (end < n && std::equal(&keys[3 * k], &keys[3 * k + 3], &keys[3 * end])) {
                ++end;
            }
            if (end - k > 1) std::sort(inputs + k, inputs + end);
            k = end;
        }
        return true;
    }
    // Otherwise (a position halfway between two grid points rounds either way): each stored
    // point takes the first record left on its grid point, or on a neighbouring one; where that
    // leaves a point without one, every stored point keeps its own.
    std::vector<uint32_t> byInput(n);
    std::iota(byInput.begin(), byInput.end(), uint32_t{0});
    std::sort(byInput.begin(), byInput.end(),
              [&](uint32_t a, uint32_t b) { return chunk.inputs[a] < chunk.inputs[b]; });
    std::vector<int64_t> ownKeys(3 * n);
    for (size_t i = 0; i < n; ++i) {
        std::copy_n(&keys[3 * (n + byInput[i])], 3, &ownKeys[3 * i]);
    }
    PointMatcher matcher(ownKeys, std::vector<uint8_t>(n, 1));
    for (size_t k = 0; k < n; ++k) {
        const int64_t found = matcher.take(&keys[3 * k]);
        if (found < 0) {
            std::copy(chunk.inputs, chunk.inputs + n, inputs);
            return true;
        }
        inputs[k] = chunk.inputs[byInput[static_cast<size_t>(found)]];
    }
    return true;
}

namespace {

// A point's three 16-bit colour values, red in the low 16 bits of the word.
inline uint64_t colourLanes(uint64_t red, uint64_t green, uint64_t blue) {
    return red | green << 16 | blue << 32;
}

// Of the three 16-bit lanes of `x`, those that are not 0, as a 1 at the lane's lowest bit (the
// lane's low 15 bits plus 0x7FFF carry into its top bit exactly where they are not 0).
inline uint64_t nonZeroLanes(uint64_t x) {
    constexpr uint64_t kLow = 0x7FFF7FFF7FFFull, kTop = 0x800080008000ull;
    return (((x & kLow) + kLow) | x) & kTop;
}

// How many values differ, counted lane by lane in `lanes` (at most 2^16 - 1 points a lane), added
// into `differ` and cleared.
inline void foldLanes(uint64_t& lanes, int64_t& differ) {
    differ += static_cast<int64_t>((lanes & 0xFFFF) + (lanes >> 16 & 0xFFFF) + (lanes >> 32));
    lanes = 0;
}

}  // namespace

void LasStoredPoints::add(const std::vector<zulplan::StoredChunk>& chunks, int threads) {
    if (changed_) return;
    // Each chunk takes its own range of the arrays, on any worker; what it tallies is joined in
    // the chunks' order.
    const size_t first = inputOf.size();
    std::vector<size_t> bases(chunks.size() + 1, first);
    for (size_t c = 0; c < chunks.size(); ++c) bases[c + 1] = bases[c] + chunks[c].count;
    const size_t end = bases.back();
    inputOf.resize(end);
    intensityResidual.resize(end);
    color8.resize(3 * end);
    fields_.resize(end * rowWidth_);
    std::vector<ChunkTally> tallies(chunks.size());
    const int workers = zulbase::threadsFor(threads, chunks.size());
    std::vector<Scratch> scratch(static_cast<size_t>(workers));
    std::atomic<size_t> next{0};
    zulbase::runWorkers(workers, [&](int w) {
        for (size_t c; (c = next++) < chunks.size();) {
            addChunk(chunks[c], bases[c], scratch[static_cast<size_t>(w)], tallies[c]);
        }
    });
    for (size_t c = 0; c < chunks.size(); ++c) {
        const ChunkTally& tally = tallies[c];
        if (tally.changed) {
            changed_ = true;
            return;
        }
        chunkStart.push_back(static_cast<int64_t>(bases[c + 1]));
        xyzResidual.insert(xyzResidual.end(), tally.xyz.begin(), tally.xyz.end());
        for (int s = 0; s < 4; ++s) anyResidual[s] = anyResidual[s] || tally.any[s];
        for (int s = 0; s < 3; ++s) same[s] += tally.same[s];
    }
}

void LasStoredPoints::addChunk(const zulplan::StoredChunk& chunk, size_t base, Scratch& scratch,
                               ChunkTally& tally) {
    const size_t n = chunk.count;
    bool whole = false;
    if (!match(chunk, base, scratch, whole)) {
        tally.changed = true;
        return;
    }
    const zul_DataType& type = *chunk.type;
    const zul_Header2 none = {};
    const zul_Header2& header = chunk.header ? *chunk.header : none;
    // Everything the loop reads is kept in locals while it runs: its stores of bytes could alias
    // the members, which would be read again after each.
    const bool reflection = type.reflectionMode != zul_REFLECTION_NONE;
    const int32_t maxReflection = type.maxReflection;
    const zul_ColorMode colorMode = type.colorMode;
    const int colorOffset = las_.colorOffset;
    const size_t length = las_.recordLength;
    const unsigned char* const records = records_;
    const uint64_t* const inputs = inputOf.data() + base;
    const uint32_t* const at = chunk.at;
    const double* const positions = chunk.points.positions;
    const int32_t* const reflections = chunk.points.reflections;
    const uint8_t* const colors = chunk.points.colors;
    uint16_t* const intensities = intensityResidual.data() + base;
    uint8_t* const color = color8.data() + 3 * base;
    const double* const stored = whole ? nullptr : scratch.stored.data();
    const double scale[3] = {las_.scale[0], las_.scale[1], las_.scale[2]};
    const double offset[3] = {las_.offset[0], las_.offset[1], las_.offset[2]};
    const double inverse[3] = {1 / scale[0], 1 / scale[1], 1 / scale[2]};
    // Whether any difference of X, Y, Z and intensity is not 0: their bits ORed together, in
    // registers (an array of flags would be read and written back a point).
    uint32_t anyX = 0, anyY = 0, anyZ = 0, anyIntensity = 0;
    // How many of the records' colour values each colour scale does not give back from the
    // stream's 8-bit values (own != value * kScales[s]), three lanes at once.
    static_assert(kScales[0] == 256 && kScales[1] == 257 && kScales[2] == 1, "the lanes' scales");
    uint64_t lanes256 = 0, lanes257 = 0, lanes1 = 0;
    int64_t differ[3] = {0, 0, 0};
    // A matrix without rotation (as compress makes it from the LAS scales and offsets) takes one
    // product and one sum an axis: the terms left out are zeros, which change no sum but the sign
    // of a zero, and no coordinate.
    const double* const m = header.transformation;
    const bool diagonal = header.enabled && m[1] == 0 && m[2] == 0 && m[4] == 0 && m[6] == 0 &&
                          m[8] == 0 && m[9] == 0;
    const double factor[3] = {m[0], m[5], m[10]}, shift[3] = {m[12], m[13], m[14]};
    // Colour kept in 5, 6 and 5 bits is given back in the middle of what each value stands for.
    const int drop[3] = {3, 2, 3};
    for (size_t k = 0; k < n; ++k) {
        if (k + kAhead < n) {
            const char* next = reinterpret_cast<const char*>(records + inputs[k + kAhead] * length);
            __builtin_prefetch(next);
            __builtin_prefetch(next + length - 1);
        }
        const size_t i = at[k];
        const unsigned char* r = records + inputs[k] * length;
        double q[3];
        const double* g = stored ? stored + 3 * k : positions + 3 * i;
        if (diagonal) {
            for (int axis = 0; axis < 3; ++axis) q[axis] = shift[axis] + factor[axis] * g[axis];
        } else {
            residualWorld(g, m, header.enabled, q);
        }
        int32_t xyz[3];
        for (int axis = 0; axis < 3; ++axis) {
            const int32_t own = loadLittle<int32_t>(r + 4 * axis);
            // A product by the scale's inverse is within 2^-51 of the quotient, relatively: well
            // within 0.499 of `own` (of at most 2^31), the quotient is within 0.5 and the
            // difference 0 without a division; else lasResidual decides.
            const double near = (q[axis] - offset[axis]) * inverse[axis];
            xyz[axis] = std::fabs(near - static_cast<double>(own)) < kSurelyNear
                            ? 0
                            : lasResidual(own, q[axis], scale[axis], offset[axis]);
        }
        anyX |= static_cast<uint32_t>(xyz[0]);
        anyY |= static_cast<uint32_t>(xyz[1]);
        anyZ |= static_cast<uint32_t>(xyz[2]);
        if ((xyz[0] | xyz[1] | xyz[2]) != 0) {
            tally.xyz.push_back({base + k, {xyz[0], xyz[1], xyz[2]}});
        }
        // The reflection and colour as the stream gives them back.
        const int32_t kept = reflection ? std::max(0, std::min(reflections[i], maxReflection)) : 0;
        const uint16_t ir =
            static_cast<uint16_t>(loadLittle<uint16_t>(r + 12) - static_cast<uint16_t>(kept));
        intensities[k] = ir;
        anyIntensity |= ir;
        uint8_t value[3] = {0, 0, 0};
        if (colorMode == zul_COLOR_RGB888) {
            for (int channel = 0; channel < 3; ++channel) value[channel] = colors[3 * i + channel];
        } else if (colorMode == zul_COLOR_RGB565) {
            for (int channel = 0; channel < 3; ++channel) {
                const int d = drop[channel];
                value[channel] =
                    static_cast<uint8_t>(((colors[3 * i + channel] >> d) << d) + (1 << (d - 1)));
            }
        }
        for (int channel = 0; channel < 3; ++channel) color[3 * k + channel] = value[channel];
        if (colorOffset > 0) {
            const uint64_t own = colourLanes(loadLittle<uint16_t>(r + colorOffset),
                                             loadLittle<uint16_t>(r + colorOffset + 2),
                                             loadLittle<uint16_t>(r + colorOffset + 4));
            const uint64_t stream = colourLanes(value[0], value[1], value[2]);
            lanes256 += nonZeroLanes(own ^ stream << 8) >> 15;
            lanes257 += nonZeroLanes(own ^ (stream << 8 | stream)) >> 15;
            lanes1 += nonZeroLanes(own ^ stream) >> 15;
            if ((k & 0x7FFF) == 0x7FFF) {
                foldLanes(lanes256, differ[0]);
                foldLanes(lanes257, differ[1]);
                foldLanes(lanes1, differ[2]);
            }
        }
    }
    tally.any[0] = anyX != 0;
    tally.any[1] = anyY != 0;
    tally.any[2] = anyZ != 0;
    tally.any[3] = anyIntensity != 0;
    if (colorOffset > 0) {
        foldLanes(lanes256, differ[0]);
        foldLanes(lanes257, differ[1]);
        foldLanes(lanes1, differ[2]);
        for (int s = 0; s < 3; ++s) tally.same[s] = 3 * static_cast<int64_t>(n) - differ[s];
    }
    // The chunk's records were just read: their columns are taken now, from the caches, not
    // from anywhere in the file once the stream is complete.
    gatherColumns(base, n);
}

}  // namespace zulconvert

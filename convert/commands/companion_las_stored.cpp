#include "commands/companion_las_stored.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "commands/companion_match.h"
#include "formats/byte_input.h"

namespace zulconvert {

using zulformats::loadLittle;

namespace {

// Records asked for this many points before they are read.
constexpr size_t kAhead = 16;

constexpr double kExact = 4503599627370496.0;  // 2^52: below it, x + 0.5 is exact

// The position a decoder gives for `value` on a grid of `step`: the nearest multiple, exact
// halves upwards, as the encoder rounds (an index beyond 64 bits is the smallest one).
double storedPosition(double value, double step) {
    const double index = std::floor((step * 0.5 + value) / step);
    const int64_t whole = index >= -9223372036854775808.0 && index < 9223372036854775808.0
                              ? static_cast<int64_t>(index)
                              : INT64_MIN;
    return static_cast<double>(whole) * step;
}

}  // namespace

void LasStoredPoints::start(const LasHead& las, const unsigned char* records,
                            const int64_t ratio[3]) {
    las_ = las;
    records_ = records;
    for (int axis = 0; axis < 3; ++axis) ratio_[axis] = ratio[axis];
    inputOf.reserve(las.count);
    intensityResidual.reserve(las.count);
    color8.reserve(3 * las.count);
}

bool LasStoredPoints::matchWhole(const zulplan::StoredChunk& chunk, bool fromRecords,
                                 uint64_t* inputs) {
    // In locals: the stores to `inputs` could alias the members.
    const size_t n = chunk.count, length = las_.recordLength;
    const unsigned char* const records = records_;
    const int64_t ratio[3] = {ratio_[0], ratio_[1], ratio_[2]};
    const double* const positions = chunk.points.positions;
    size_t run = 0;  // the first stored point of the grid point at hand
    const double* previous = nullptr;
    for (size_t k = 0; k < n; ++k) {
        const uint64_t input = chunk.inputs[k];
        if (fromRecords && k + kAhead < n) {
            __builtin_prefetch(records + chunk.inputs[k + kAhead] * length);
        }
        const double* p = positions + 3 * size_t{chunk.at[k]};
        const unsigned char* r = records + input * length;
        for (int axis = 0; axis < 3; ++axis) {
            const double v = p[axis];
            if (!(v > -kExact && v < kExact)) return false;
            const int64_t whole = static_cast<int64_t>(v);
            if (static_cast<double>(whole) != v ||
                (fromRecords &&
                 int64_t{loadLittle<int32_t>(r + 4 * axis)} * ratio[axis] != whole)) {
                return false;
            }
        }
        inputs[k] = input;
        if (previous && (p[0] != previous[0] || p[1] != previous[1] || p[2] != previous[2])) {
            if (k - run > 1) std::sort(inputs + run, inputs + k);
            run = k;
        }
        previous = p;
    }
    if (n - run > 1) std::sort(inputs + run, inputs + n);
    return true;
}

bool LasStoredPoints::match(const zulplan::StoredChunk& chunk, size_t base) {
    const size_t n = chunk.count;
    const double step = chunk.type->quantizationStep;
    const bool fromRecords = ratio_[0] != 0 && ratio_[1] != 0 && ratio_[2] != 0;
    const bool unit = step == 1.0;
    for (size_t k = 0; k < n; ++k) {
        if (chunk.inputs[k] >= las_.count) {
            changed_ = true;
            return false;
        }
    }
    whole_ = unit && matchWhole(chunk, fromRecords, inputOf.data() + base);
    if (whole_) return true;
    // Where every point's own grid point is the one it is stored on (as a rule), the points of a
    // grid point are next to each other in the chunk, and take their records in input order.
    stored_.resize(3 * n);
    keys_.resize(6 * n);
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
            stored_[3 * k + axis] = g;
            keys_[3 * k + axis] = key;
            keys_[3 * (n + k) + axis] = own;
            agree &= key == own;
        }
    }
    uint64_t* inputs = inputOf.data() + base;
    std::copy(chunk.inputs, chunk.inputs + n, inputs);
    if (agree) {
        for (size_t k = 0; k < n;) {
            size_t end = k + 1;
            while (end < n && std::equal(&keys_[3 * k], &keys_[3 * k + 3], &keys_[3 * end])) {
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
        std::copy_n(&keys_[3 * (n + byInput[i])], 3, &ownKeys[3 * i]);
    }
    PointMatcher matcher(ownKeys, std::vector<uint8_t>(n, 1));
    for (size_t k = 0; k < n; ++k) {
        const int64_t found = matcher.take(&keys_[3 * k]);
        if (found < 0) {
            std::copy(chunk.inputs, chunk.inputs + n, inputs);
            return true;
        }
        inputs[k] = chunk.inputs[byInput[static_cast<size_t>(found)]];
    }
    return true;
}

void LasStoredPoints::add(const zulplan::StoredChunk& chunk) {
    if (changed_) return;
    const size_t n = chunk.count, base = inputOf.size();
    inputOf.resize(base + n);
    if (!match(chunk, base)) return;
    chunkStart.push_back(static_cast<int64_t>(base + n));
    intensityResidual.resize(base + n);
    color8.resize(3 * (base + n));
    // Everything the loop reads in locals: its byte stores could alias any member.
    const zul_DataType& type = *chunk.type;
    const zul_Header2 none = {};
    const zul_Header2& header = chunk.header ? *chunk.header : none;
    const bool reflection = type.reflectionMode != zul_REFLECTION_NONE;
    const int32_t maxReflection = type.maxReflection;
    const zul_ColorMode colorMode = type.colorMode;
    const int colorOffset = las_.colorOffset;
    const size_t length = las_.recordLength;
    const unsigned char* const records = records_;
    const uint64_t* const inputs = inputOf.data() + base;
    const uint32_t* const at = chunk.at;
    const double* const positions = whole_ ? chunk.points.positions : nullptr;
    const double* const stored = stored_.data();
    const int32_t* const reflections = chunk.points.reflections;
    const uint8_t* const colors = chunk.points.colors;
    uint16_t* const intensityOut = intensityResidual.data() + base;
    uint8_t* const colorOut = color8.data() + 3 * base;
    const double scale[3] = {las_.scale[0], las_.scale[1], las_.scale[2]};
    const double offset[3] = {las_.offset[0], las_.offset[1], las_.offset[2]};
    bool any[4] = {anyResidual[0], anyResidual[1], anyResidual[2], anyResidual[3]};
    int64_t counted[3] = {same[0], same[1], same[2]};
    for (size_t k = 0; k < n; ++k) {
        if (k + kAhead < n) {
            const char* next = reinterpret_cast<const char*>(records + inputs[k + kAhead] * length);
            __builtin_prefetch(next);
            __builtin_prefetch(next + length - 1);
        }
        const size_t i = at[k];
        const unsigned char* r = records + inputs[k] * length;
        double q[3];
        residualWorld(positions ? positions + 3 * i : stored + 3 * k, header.transformation,
                      header.enabled, q);
        XyzResidual xyz = {base + k, {0, 0, 0}};
        for (int axis = 0; axis < 3; ++axis) {
            const int32_t back = lasCoordinate(q[axis], scale[axis], offset[axis]);
            xyz.value[axis] =
                static_cast<int32_t>(static_cast<uint32_t>(loadLittle<int32_t>(r + 4 * axis)) -
                                     static_cast<uint32_t>(back));
            any[axis] |= xyz.value[axis] != 0;
        }
        if (xyz.value[0] != 0 || xyz.value[1] != 0 || xyz.value[2] != 0) {
            xyzResidual.push_back(xyz);
        }
        // The reflection and colour as the stream gives them back.
        const int32_t kept = reflection ? std::max(0, std::min(reflections[i], maxReflection)) : 0;
        const uint16_t ir =
            static_cast<uint16_t>(loadLittle<uint16_t>(r + 12) - static_cast<uint16_t>(kept));
        intensityOut[k] = ir;
        any[3] |= ir != 0;
        for (int channel = 0; channel < 3; ++channel) {
            uint8_t value = 0;
            if (colorMode == zul_COLOR_RGB888) {
                value = colors[3 * i + channel];
            } else if (colorMode == zul_COLOR_RGB565) {
                // Kept in 5, 6 and 5 bits, given back in the middle of what each stands for.
                const int drop = channel == 1 ? 2 : 3;
                value = static_cast<uint8_t>(((colors[3 * i + channel] >> drop) << drop) +
                                             (1 << (drop - 1)));
            }
            colorOut[3 * k + channel] = value;
            if (colorOffset > 0) {
                const uint16_t own = loadLittle<uint16_t>(r + colorOffset + 2 * channel);
                for (int s = 0; s < 3; ++s) {
                    counted[s] += own == static_cast<uint16_t>(value * kScales[s]);
                }
            }
        }
    }
    for (int c = 0; c < 4; ++c) anyResidual[c] = any[c];
    for (int s = 0; s < 3; ++s) same[s] = counted[s];
}

}  // namespace zulconvert

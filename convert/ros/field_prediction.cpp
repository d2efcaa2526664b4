#include "field_prediction.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "byte_order.h"
#include "point_access.h"
#include "ros_error.h"

namespace zul::ros {

namespace {

// The record of the point that predicts point (r, c), or null for the first point.
const uint8_t* predictorOf(const RecordGrid& g, const uint8_t* record, uint64_t r, uint64_t c,
                           uint64_t distance) {
    if (c >= distance) return record - distance * g.pointStep;
    if (r > 0) return record - g.rowStep + (g.width - distance) * g.pointStep;
    return c > 0 ? record - g.pointStep : nullptr;
}

// Significant bits of a difference taken as signed, and of a value.
int differenceBits(uint64_t d, uint32_t width) {
    const int shift = 64 - 8 * int(width);
    const int64_t s = int64_t(d << shift) >> shift;
    const uint64_t m = s < 0 ? ~uint64_t(s) : uint64_t(s);
    return m ? 65 - __builtin_clzll(m) : (s < 0 ? 1 : 0);
}

int valueBits(uint64_t v) { return v ? 64 - __builtin_clzll(v) : 0; }

template <typename U>
uint64_t read(const uint8_t* p, bool big) {
    return load<U>(p, big);
}

uint64_t readValue(const uint8_t* p, uint32_t width, bool big) {
    switch (width) {
        case 1:
            return *p;
        case 2:
            return read<uint16_t>(p, big);
        case 4:
            return read<uint32_t>(p, big);
        default:
            return read<uint64_t>(p, big);
    }
}

// A difference as a number of its width with the sign in the lowest bit (0, -1, 1, -2, ... as
// 0, 1, 2, 3, ...), so that small differences of either sign leave the high bytes zero; and back.
template <typename U>
U zigzag(U d) {
    using S = std::make_signed_t<U>;
    return U(U(d << 1) ^ U(S(d) >> (8 * sizeof(U) - 1)));
}

template <typename U>
U unzigzag(U z) {
    return U(U(z >> 1) ^ U(0 - U(z & 1)));
}

// Calls `f` with a value of the unsigned type of `width` bytes (1, 2, 4 or 8).
template <typename F>
void byWidth(uint32_t width, F&& f) {
    switch (width) {
        case 1:
            return f(uint8_t{});
        case 2:
            return f(uint16_t{});
        case 4:
            return f(uint32_t{});
        default:
            return f(uint64_t{});
    }
}

template <typename U>
void predictAll(const RecordGrid& g, const uint8_t* data, uint32_t offset, uint64_t distance,
                uint8_t* out) {
    const bool big = g.bigEndian;
    const uint64_t ps = g.pointStep, width = g.width, head = std::min(distance, width);
    for (uint64_t r = 0; r < g.rows; ++r) {
        const uint8_t* row = data + r * g.rowStep + offset;
        for (uint64_t c = 0; c < head; ++c, out += sizeof(U)) {
            const uint8_t* at = row + c * ps;
            const uint8_t* by = predictorOf(g, at, r, c, distance);
            storeLittle<U>(out, zigzag<U>(U(load<U>(at, big) - (by ? load<U>(by, big) : U(0)))));
        }
        const uint64_t back = distance * ps;
        for (uint64_t c = head; c < width; ++c, out += sizeof(U)) {
            const uint8_t* at = row + c * ps;
            storeLittle<U>(out, zigzag<U>(U(load<U>(at, big) - load<U>(at - back, big))));
        }
    }
}

}  // namespace

uint32_t choosePrediction(const RecordGrid& g, const uint8_t* data, PredictedValue value,
                          double& bitsPerPoint) {
    const uint64_t points = g.rows * g.width;
    bitsPerPoint = 0;
    if (points < 2) return 0;
    std::vector<uint64_t> distances;
    for (uint64_t d = 1; d <= 64 && d < g.width; d *= 2) distances.push_back(d);
    distances.push_back(g.width);
    // Blocks of consecutive points spread over the message.
    constexpr uint64_t kBlocks = 8, kBlockPoints = 64;
    std::vector<uint64_t> cost(distances.size(), 0);
    uint64_t raw = 0;
    for (uint64_t b = 0; b < kBlocks; ++b) {
        const uint64_t first = points * b / kBlocks;
        const uint64_t last = std::min(points, first + kBlockPoints);
        for (uint64_t i = first; i < last; ++i) {
            const uint64_t r = i / g.width, c = i % g.width;
            const uint8_t* at = data + r * g.rowStep + c * g.pointStep + value.offset;
            const uint64_t v = readValue(at, value.width, g.bigEndian);
            raw += uint64_t(valueBits(v));
            for (size_t k = 0; k < distances.size(); ++k) {
                const uint8_t* by = predictorOf(g, at, r, c, distances[k]);
                const uint64_t p = by ? readValue(by, value.width, g.bigEndian) : 0;
                cost[k] += uint64_t(differenceBits(v - p, value.width));
            }
        }
    }
    const size_t best = size_t(std::min_element(cost.begin(), cost.end()) - cost.begin());
    const uint64_t sampled = std::min(points, kBlocks * kBlockPoints);
    const bool taken = cost[best] * 4 <= raw * 3 && cost[best] < raw;
    bitsPerPoint = double(taken ? cost[best] : raw) / double(sampled);
    return taken ? uint32_t(distances[best]) : 0;
}

Column emptyPredictionColumn(size_t fields) {
    Column column{"predictions", kUint8, 1, ColumnCoding::Raw, {}};
    column.bytes.resize(12 * fields);
    return column;
}

Column predictionColumn(const std::vector<Prediction>& predictions) {
    Column column = emptyPredictionColumn(predictions.size());
    for (size_t f = 0; f < predictions.size(); ++f) {
        storeLittle<uint32_t>(&column.bytes[12 * f], predictions[f].how);
        storeLittle<double>(&column.bytes[12 * f + 4], predictions[f].scale);
    }
    return column;
}

std::vector<Prediction> readPredictions(const Column& column,
                                        const std::vector<CompanionField>& fields, uint32_t width) {
    std::vector<Prediction> predictions(fields.size());
    for (size_t f = 0; f < fields.size(); ++f) {
        Prediction& p = predictions[f];
        p.how = loadLittle<uint32_t>(&column.bytes[12 * f]);
        p.scale = loadLittle<double>(&column.bytes[12 * f + 4]);
        const zul_FieldType type = fields[f].type;
        const bool radial = p.how == kRadialPrediction;
        const bool fits =
            radial ? type >= zul_FIELD_U8 && type <= zul_FIELD_I64 && std::isfinite(p.scale) &&
                         p.scale != 0
                   : p.scale == 0 && (p.how == 0 || (p.how <= width && type != zul_FIELD_RAW));
        if (!fits)
            throw Error("column 'predictions' predicts '" + fields[f].name + "' in a way (" +
                        std::to_string(p.how) + ", scale " + std::to_string(p.scale) +
                        ") no writer makes");
    }
    return predictions;
}

double radiusOf(double x, double y, double z) { return std::sqrt(x * x + y * y + z * z); }

double gridRadius(const int64_t* grid, double step, const bool* narrow) {
    double xyz[3];
    for (int k = 0; k < 3; ++k) {
        xyz[k] = double(grid[k]) * step;
        if (narrow[k]) xyz[k] = double(static_cast<float>(xyz[k]));
    }
    return radiusOf(xyz[0], xyz[1], xyz[2]);
}

int64_t radialPrediction(double radius, double scale) {
    const double p = scale * radius + 0.5;
    if (!(std::fabs(p) < 4611686018427387904.0)) return 0;  // NaN and 2^62 give 0
    // The floor by truncation: std::floor is a call without SSE 4.1.
    const int64_t whole = int64_t(p);
    return double(whole) > p ? whole - 1 : whole;
}

double chooseRadialScale(const uint8_t* const* records, const double* radii, size_t n,
                         PredictedValue value, bool isSigned, bool big, double& bitsPerPoint) {
    constexpr size_t kSample = 1024;
    const size_t every = std::max<size_t>(1, n / kSample);
    const int shift = 64 - 8 * int(value.width);
    auto valueAt = [&](size_t j) {
        const uint64_t v = readValue(records[j] + value.offset, value.width, big);
        return isSigned ? double(int64_t(v << shift) >> shift) : double(v);
    };
    std::vector<double> ratios;
    for (size_t j = 0; j < n; j += every)
        if (radii[j] > 0 && std::isfinite(radii[j])) ratios.push_back(valueAt(j) / radii[j]);
    bitsPerPoint = 0;
    if (ratios.empty()) return 0;
    std::nth_element(ratios.begin(), ratios.begin() + ratios.size() / 2, ratios.end());
    double scale = ratios[ratios.size() / 2];
    if (!(std::isfinite(scale) && scale != 0)) return 0;
    const double ten = std::pow(10.0, std::round(std::log10(std::fabs(scale))));
    if (std::fabs(std::fabs(scale) / ten - 1) < 0.01) scale = std::copysign(ten, scale);
    uint64_t bits = 0, sampled = 0;
    for (size_t j = 0; j < n; j += every, ++sampled) {
        const uint64_t v = readValue(records[j] + value.offset, value.width, big);
        bits +=
            uint64_t(differenceBits(v - uint64_t(radialPrediction(radii[j], scale)), value.width));
    }
    bitsPerPoint = double(bits) / double(sampled);
    return scale;
}

namespace {

template <typename U>
void predictRadiallyAs(const uint8_t* const* records, const uint32_t* indices, const int64_t* grid,
                       double step, const bool* narrow, size_t n, uint32_t offset, double scale,
                       bool big, uint8_t* out) {
    for (size_t j = 0; j < n; ++j) {
        const double radius = gridRadius(grid + 3 * j, step, narrow);
        const U p = U(uint64_t(radialPrediction(radius, scale)));
        storeLittle<U>(out + size_t(indices[j]) * sizeof(U),
                       zigzag<U>(U(load<U>(records[j] + offset, big) - p)));
    }
}

}  // namespace

void predictRadially(const uint8_t* const* records, const uint32_t* indices, const int64_t* grid,
                     double step, const bool* narrow, size_t n, PredictedValue value, double scale,
                     bool big, uint8_t* out) {
    byWidth(value.width, [&](auto u) {
        predictRadiallyAs<decltype(u)>(records, indices, grid, step, narrow, n, value.offset, scale,
                                       big, out);
    });
}

void predictValues(const RecordGrid& grid, const uint8_t* data, PredictedValue value,
                   uint32_t distance, uint8_t* out) {
    byWidth(value.width,
            [&](auto u) { predictAll<decltype(u)>(grid, data, value.offset, distance, out); });
}

namespace {

// Row r's values of one field (at `offset` in its records) from the point `distance` before.
template <typename U, bool Big>
void undoRow(const RecordGrid& g, uint8_t* row, uint64_t r, uint32_t offset, uint64_t distance,
             const uint8_t* inStream) {
    const uint64_t ps = g.pointStep, width = g.width, head = std::min(distance, width);
    row += offset;
    for (uint64_t c = 0; c < head; ++c) {
        if (!inStream[c]) continue;
        uint8_t* at = row + c * ps;
        const uint8_t* by = predictorOf(g, at, r, c, distance);
        store<U>(at, U(unzigzag<U>(load<U>(at, Big)) + (by ? load<U>(by, Big) : U(0))), Big);
    }
    // Without a branch a point: a point outside the stream keeps its value.
    const uint64_t back = distance * ps;
    uint8_t* at = row + head * ps;
    for (uint64_t c = head; c < width; ++c, at += ps) {
        const U v = load<U>(at, Big);
        const U sum = U(unzigzag<U>(v) + load<U>(at - back, Big));
        store<U>(at, inStream[c] ? sum : v, Big);
    }
}

// Row r's values of one field as `scale` times their points' distances to the origin.
template <typename U, typename Axes>
void undoRowRadially(const RecordGrid& g, uint8_t* row, const Axes& axes, uint32_t offset,
                     double scale, const uint8_t* inStream) {
    const bool big = g.bigEndian;
    for (uint64_t c = 0; c < g.width; ++c, row += g.pointStep) {
        if (!inStream[c]) continue;
        const double radius = radiusOf(axes(row, 0), axes(row, 1), axes(row, 2));
        const U p = U(uint64_t(radialPrediction(radius, scale)));
        store<U>(row + offset, U(unzigzag<U>(load<U>(row + offset, big)) + p), big);
    }
}

// Row by row, each row's fields in turn while its records are in the cache.
template <typename Axes>
void undoAll(const RecordGrid& g, uint8_t* data, const Axes& axes,
             const std::vector<PredictedField>& fields, const uint8_t* inStream) {
    for (uint64_t r = 0; r < g.rows; ++r, inStream += g.width) {
        uint8_t* row = data + r * g.rowStep;
        for (const PredictedField& field : fields) {
            const uint32_t how = field.prediction.how, offset = field.value.offset;
            byWidth(field.value.width, [&](auto u) {
                using U = decltype(u);
                if (how == kRadialPrediction)
                    undoRowRadially<U>(g, row, axes, offset, field.prediction.scale, inStream);
                else if (g.bigEndian)
                    undoRow<U, true>(g, row, r, offset, how, inStream);
                else
                    undoRow<U, false>(g, row, r, offset, how, inStream);
            });
        }
    }
}

}  // namespace

void undoRadialPredictions(uint8_t* const* records, size_t n, const CloudLayout& layout,
                           const std::vector<PredictedField>& fields) {
    const bool big = layout.bigEndian;
    withAxes(layout, [&](const auto& axes) {
        for (const PredictedField& field : fields)
            byWidth(field.value.width, [&](auto u) {
                using U = decltype(u);
                const uint32_t offset = field.value.offset;
                const double scale = field.prediction.scale;
                for (size_t j = 0; j < n; ++j) {
                    uint8_t* record = records[j];
                    const double radius =
                        radiusOf(axes(record, 0), axes(record, 1), axes(record, 2));
                    const U p = U(uint64_t(radialPrediction(radius, scale)));
                    uint8_t* at = record + offset;
                    store<U>(at, U(unzigzag<U>(load<U>(at, big)) + p), big);
                }
            });
    });
}

void undoPredictions(const RecordGrid& grid, uint8_t* data, const CloudLayout& layout,
                     const std::vector<PredictedField>& fields, const uint8_t* inStream) {
    if (fields.empty()) return;
    withAxes(layout, [&](const auto& axes) { undoAll(grid, data, axes, fields, inStream); });
}

}  // namespace zul::ros

// PointCloud2 -> CompressedPointCloud2.
#include <zul.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "chunk_plan.h"
#include "companion_columns.h"
#include "compressed_blob.h"
#include "field_prediction.h"
#include "point_access.h"
#include "record_columns.h"
#include "scratch.h"
#include "stream_order.h"
#include "zul_ros.h"

namespace zul::ros {

namespace {

// The stream's bytes, a buffer of the thread.
std::vector<uint8_t>& streamBuffer() {
    thread_local std::vector<uint8_t> buffer;
    return buffer;
}

// The stream's points: those whose positions come back within half a step, in message order.
struct StreamPoints {
    std::vector<uint8_t> inside;          // one a point of the message
    UnsetVector<uint32_t> message;        // message index of each stream point
    UnsetVector<const uint8_t*> records;  // its record
    UnsetVector<int64_t> grid;            // x, y, z on the grid
};

const uint8_t* recordOf(const PointCloud2View& message, uint64_t i) {
    const CloudDescription& c = message.cloud;
    return message.data + (i / c.width) * c.rowStep + (i % c.width) * c.pointStep;
}

// A position the stream gives back within half a step, as the field's type holds it (`narrow`:
// FLOAT32); the grid stays below 2^51 so that distinct grid values decode to distinct doubles.
inline bool fitsStream(double value, bool narrow, double step, int64_t& grid) {
    const double half = step * 0.5;
    const double quotient = (half + value) / step;
    if (!(std::fabs(quotient) < 4611686018427387904.0)) return false;  // NaN, infinite, 2^62
    // The floor of the quotient, by truncation: std::floor is a call without SSE 4.1.
    grid = int64_t(quotient);
    if (double(grid) > quotient) --grid;
    if (!(grid < 2251799813685248 && grid > -2251799813685248)) return false;  // 2^51 or more
    double back = double(grid) * step;
    if (narrow) back = double(static_cast<float>(back));
    return std::fabs(back - value) <= half;
}

void selectStreamPoints(const PointCloud2View& message, const CloudLayout& layout, double step,
                        StreamPoints& points) {
    const CloudDescription& cloud = message.cloud;
    points.inside.assign(layout.points, 0);
    points.message.resize(layout.points);
    points.records.resize(layout.points);
    points.grid.resize(3 * layout.points);
    // Written through pointers kept in locals, as are the sizes: the byte stores of `inside` might
    // otherwise make every pass reload them.
    uint8_t* inside = points.inside.data();
    uint32_t* index = points.message.data();
    const uint8_t** records = points.records.data();
    int64_t* grid = points.grid.data();
    size_t count = 0;
    const uint64_t rows = layout.points ? cloud.height : 0, width = cloud.width;
    const uint64_t rowStep = cloud.rowStep, pointStep = cloud.pointStep;
    const uint8_t* data = message.data;
    withAxes(layout, [&](const auto& axes) {
        const auto local = axes;
        const bool narrow[3] = {local.narrow(0), local.narrow(1), local.narrow(2)};
        for (uint64_t r = 0; r < rows; ++r) {
            const uint8_t* row = data + r * rowStep;
            for (uint64_t c = 0; c < width; ++c) {
                const uint8_t* record = row + c * pointStep;
                int64_t* g = grid + 3 * count;
                if (!fitsStream(local(record, 0), narrow[0], step, g[0]) ||
                    !fitsStream(local(record, 1), narrow[1], step, g[1]) ||
                    !fitsStream(local(record, 2), narrow[2], step, g[2]))
                    continue;
                const uint64_t i = r * width + c;
                inside[i] = 1;
                index[count] = uint32_t(i);
                records[count] = record;
                ++count;
            }
        }
    });
    points.message.resize(count);
    points.records.resize(count);
    points.grid.resize(3 * count);
}

// The intensity field goes into the stream if every stream point's value is a whole number from
// 0 to 2^31 - 1 that its type gives back bit for bit; `maxValue` is the largest (at least 1). A
// loop for each type.
bool intensityFits(const CloudLayout& layout, const StreamPoints& points, int32_t& maxValue) {
    const StreamField& field = layout.intensity;
    maxValue = 1;
    if (field.field < 0) return false;
    const bool big = layout.bigEndian;
    const uint32_t offset = field.offset;
    const uint8_t* const* records = points.records.data();
    const size_t n = points.records.size();
    int64_t largest = 1;
    auto integers = [&](auto read) {
        int64_t low = 0, high = 1;
        for (size_t j = 0; j < n; ++j) {
            const int64_t value = read(records[j] + offset);
            low = std::min(low, value);
            high = std::max(high, value);
        }
        largest = high;
        return low >= 0 && high <= 2147483647;
    };
    auto reals = [&](auto read) {
        for (size_t j = 0; j < n; ++j) {
            const double value = read(records[j] + offset);
            // A negative zero would come back as a positive one.
            if (!(value >= 0 && value <= 2147483647.0) || std::signbit(value) ||
                double(int64_t(value)) != value)
                return false;
            largest = std::max(largest, int64_t(value));
        }
        return true;
    };
    bool fits = false;
    switch (field.datatype) {
        case kInt8:
            fits = integers([](const uint8_t* p) { return int64_t(int8_t(*p)); });
            break;
        case kUint8:
            fits = integers([](const uint8_t* p) { return int64_t(*p); });
            break;
        case kInt16:
            fits = integers(
                [big](const uint8_t* p) { return int64_t(int16_t(load<uint16_t>(p, big))); });
            break;
        case kUint16:
            fits = integers([big](const uint8_t* p) { return int64_t(load<uint16_t>(p, big)); });
            break;
        case kInt32:
            fits = integers(
                [big](const uint8_t* p) { return int64_t(int32_t(load<uint32_t>(p, big))); });
            break;
        case kUint32:
            fits = integers([big](const uint8_t* p) { return int64_t(load<uint32_t>(p, big)); });
            break;
        case kFloat32:
            fits = reals([big](const uint8_t* p) { return loadReal(p, kFloat32, big); });
            break;
        default:
            fits = reals([big](const uint8_t* p) { return loadReal(p, kFloat64, big); });
            break;
    }
    if (fits) maxValue = int32_t(largest);
    return fits;
}

class StreamWriter {
public:
    StreamWriter(const zul_DataType& type, std::vector<uint8_t>& out) : out_(out) {
        if (zul_enc_open(&context_.value, &type) != zul_STATUS_OK)
            throw Error("the step " + std::to_string(type.quantizationStep) +
                        " is outside 9.9e-10 to 10");
        const char* bytes;
        int size;
        zul_enc_createFileSignature(context_.value, &bytes);
        out_.insert(out_.end(), bytes, bytes + 8);
        zul_enc_encodeFileHeader(context_.value, &bytes, &size);
        out_.insert(out_.end(), bytes, bytes + size);
    }
    void chunk(const zul_PointData& points) {
        const char* bytes;
        int size;
        if (zul_enc_encodeChunk(context_.value, &bytes, &size, &points) != zul_STATUS_OK)
            throw Error("a chunk of " + std::to_string(points.numPoints) +
                        " points cannot be encoded");
        out_.insert(out_.end(), bytes, bytes + size);
    }

private:
    // Closed also when the constructor throws.
    struct Context {
        zul_enc_Context value = nullptr;
        ~Context() { zul_enc_close(&value); }
    } context_;
    std::vector<uint8_t>& out_;
};

// Chooses the companion's columns that a prediction suits (docs/ros.md: from an earlier point, or
// a whole number from the stream point's distance to the origin) and gives the writer their
// differences, made into `differences`.
void predictFields(const RecordGrid& grid, const uint8_t* data, const CloudLayout& layout,
                   const StreamPoints& points, double step, bool radial, CompanionWriter& writer,
                   std::vector<Prediction>& predictions, UnsetVector<uint8_t>& differences) {
    const std::vector<CompanionField>& fields = writer.fields();
    predictions.assign(fields.size(), Prediction{});
    // A sample of the stream points (at most 2048), their records and distances to the origin,
    // made when a whole number needs it.
    const size_t n = points.message.size();
    std::vector<const uint8_t*> sample;
    std::vector<double> radii;
    bool narrow[3];
    for (int k = 0; k < 3; ++k) narrow[k] = layout.position[k].datatype == kFloat32;
    auto takeSample = [&] {
        for (size_t j = 0, every = std::max<size_t>(1, n / 1024); j < n; j += every) {
            sample.push_back(points.records[j]);
            radii.push_back(gridRadius(&points.grid[3 * j], step, narrow));
        }
    };
    size_t widths = 0;
    for (size_t f = 0; f < fields.size(); ++f) {
        const CompanionField& field = fields[f];
        if (field.type == zul_FIELD_RAW) continue;
        const PredictedValue value{field.offset, field.width};
        double bits = 0, radialBits = 0;
        predictions[f].how = choosePrediction(grid, data, value, bits);
        // Values of no bits (zeros, mostly) leave nothing to gain.
        if (radial && field.type >= zul_FIELD_U8 && field.type <= zul_FIELD_I64 && bits > 0) {
            if (sample.empty()) takeSample();
            const bool isSigned = field.type % 2 == 0;
            const double scale = chooseRadialScale(sample.data(), radii.data(), sample.size(),
                                                   value, isSigned, layout.bigEndian, radialBits);
            if (scale != 0 && radialBits * 4 <= bits * 3)
                predictions[f] = Prediction{kRadialPrediction, scale};
        }
        if (predictions[f].how) widths += field.width;
    }
    const size_t count = grid.rows * grid.width;
    differences.resize(count * widths);
    uint8_t* at = differences.data();
    for (size_t f = 0; f < fields.size(); ++f) {
        const Prediction& prediction = predictions[f];
        const PredictedValue value{fields[f].offset, fields[f].width};
        if (prediction.how == kRadialPrediction)
            predictRadially(points.records.data(), points.message.data(), points.grid.data(), step,
                            narrow, n, value, prediction.scale, layout.bigEndian, at);
        else if (prediction.how)
            predictValues(grid, data, value, prediction.how, at);
        else
            continue;
        writer.takeValues(f, at);
        at += count * fields[f].width;
    }
}

// Encodes the stream points chunk by chunk in the order the decoder gives them back into `stream`,
// and notes for each of them its place in the chunk's message order (`order`), or, with a
// companion, puts the other fields of each chunk's points and their message indices into it,
// which it returns.
std::unique_ptr<CompanionWriter> writeStream(const CloudLayout& layout, const StreamPoints& points,
                                             const zul_DataType& type, const ChunkPlan& plan,
                                             std::vector<uint8_t>& stream,
                                             std::vector<uint8_t>& order, bool companion,
                                             const PointCloud2View& message,
                                             const EncodeOptions& options,
                                             std::vector<Prediction>& predictions) {
    StreamWriter writer(type, stream);
    std::unique_ptr<CompanionWriter> fields;
    // The differences of predicted fields, a buffer of the thread.
    thread_local UnsetVector<uint8_t> reused;
    const ScratchLease<UnsetVector<uint8_t>> differences(reused);
    if (companion) {
        fields = std::make_unique<CompanionWriter>(layout, stream.data(), stream.size());
        const CloudDescription& c = message.cloud;
        if (options.predict)
            predictFields({c.height, c.width, c.rowStep, c.pointStep, layout.bigEndian},
                          message.data, layout, points, type.quantizationStep,
                          options.radialPrediction, *fields, predictions, *differences);
    }
    std::vector<uint64_t> stored;
    std::vector<const uint8_t*> storedRecords;
    if (!companion) order.resize(2 * plan.sequence.size());
    std::vector<OrderKey> keys;
    std::vector<double> positions;
    std::vector<uint8_t> colors;
    std::vector<int32_t> reflections;
    const bool big = layout.bigEndian;
    for (size_t c = 0; c + 1 < plan.starts.size(); ++c) {
        const size_t first = plan.starts[c], n = plan.starts[c + 1] - first;
        keys.resize(n);
        for (size_t j = 0; j < n; ++j) {
            const uint32_t s = plan.sequence[first + j];
            OrderKey& key = keys[j];
            std::copy_n(&points.grid[3 * size_t(s)], 3, key.slot);
            const uint8_t* record = points.records[s];
            key.color = type.colorMode == zul_COLOR_NONE
                            ? 0
                            : load<uint32_t>(record + layout.color.offset, big) & 0xffffffu;
            key.reflection = 0;
            if (type.reflectionMode != zul_REFLECTION_NONE)
                key.reflection = int32_t(
                    loadNumber(record + layout.intensity.offset, layout.intensity.datatype, big));
            key.local = uint32_t(j);
        }
        sortAsStored(keys);
        positions.resize(3 * n);
        colors.resize(3 * n);
        reflections.resize(n);
        withAxes(layout, [&](const auto& axes) {
            for (size_t j = 0; j < n; ++j) {
                const uint8_t* record = points.records[plan.sequence[first + keys[j].local]];
                for (int k = 0; k < 3; ++k) positions[3 * j + k] = axes(record, k);
            }
        });
        for (size_t j = 0; j < n; ++j) {
            const OrderKey& key = keys[j];
            colors[3 * j] = uint8_t(key.color >> 16);
            colors[3 * j + 1] = uint8_t(key.color >> 8);
            colors[3 * j + 2] = uint8_t(key.color);
            reflections[j] = key.reflection;
            if (!companion) storeLittle<uint16_t>(&order[2 * (first + key.local)], uint16_t(j));
        }
        zul_PointData data{int32_t(n), positions.data(), colors.data(), reflections.data(),
                           nullptr};
        const size_t before = stream.size();
        writer.chunk(data);
        if (!fields) continue;
        stored.resize(n);
        storedRecords.resize(n);
        for (size_t j = 0; j < n; ++j) {
            const uint32_t s = plan.sequence[first + keys[j].local];
            stored[j] = points.message[s];
            storedRecords[j] = points.records[s];
        }
        fields->chunk(storedRecords, stored, stream.data() + before, stream.size() - before);
    }
    return fields;
}

// The record's byte ranges of every point, and the stream's fields of the points outside it, into
// their columns (the first of `record`).
void gatherRecords(const PointCloud2View& message, const CloudLayout& layout,
                   const StreamPoints& points, uint64_t outside, std::vector<Column>& record) {
    const CloudDescription& cloud = message.cloud;
    const bool big = layout.bigEndian;
    const size_t ranges = layout.columns.size();
    const RecordGrid grid{layout.points == 0 ? 0 : cloud.height, cloud.width, cloud.rowStep,
                          cloud.pointStep, big};
    for (size_t c = 0; c < ranges; ++c)
        gatherRange(grid, message.data, layout.columns[c], record[c].bytes.data());
    const std::vector<StreamField> fields = streamFields(layout);
    uint64_t o = 0;
    for (uint64_t i = 0; i < layout.points && outside > 0; ++i) {
        if (points.inside[i]) continue;
        const uint8_t* at = recordOf(message, i);
        for (size_t f = 0; f < fields.size(); ++f) {
            const uint32_t size = uint32_t(datatypeSize(fields[f].datatype));
            copyToLittle(at + fields[f].offset, size, big,
                         record[ranges + f].bytes.data() + o * size);
        }
        ++o;
    }
}

void putColumn(Column&& column, std::vector<Column>& columns) {
    columns.push_back(std::move(column));
}

// Appends the compressed_data of a message to `out`.
void compressView(const PointCloud2View& message, const EncodeOptions& options,
                  std::vector<uint8_t>& out) {
    const CloudDescription& cloud = message.cloud;
    CloudLayout layout = layOutCloud(cloud, message.size, true);
    uint32_t chunkPoints = options.chunkPoints, tileColumns = options.tileColumns;
    if (chunkPoints > 65536) throw Error("a chunk holds at most 65536 points");
    if (chunkPoints == 0 && tileColumns == 0) {
        // Measured on the generated sensor messages (bench/ros): a lidar's few long rows in
        // chunks of 256 points (with a companion: in tiles of about 2048, as small as tiles of
        // 1024 within 0.3% and coded in 7% fewer instructions), a camera's in chunks of 512
        // (with a companion: of 4096, 34% larger but decoded in 18% fewer instructions and 23%
        // less time; tiles of 8 columns were 7% smaller than that, but 18% slower to encode), a
        // flat cloud in chunks of 1024.
        chunkPoints = cloud.height <= 1 ? 1024 : cloud.height <= 128 ? 256 : 512;
        if (options.companion && cloud.height > 1 && cloud.height <= 128)
            tileColumns = std::max<uint32_t>(1, 2048 / cloud.height);
        else if (options.companion && cloud.height > 128)
            chunkPoints = 4096;
    }
    if (chunkPoints == 0) chunkPoints = 1024;
    zul_DataType type;
    zul_init_headers(&type, nullptr);
    type.quantizationStep = static_cast<float>(options.step);
    const double step = type.quantizationStep;
    if (!(step >= 9.9e-10 && step <= 10.0))
        throw Error("the step " + std::to_string(options.step) + " is outside 9.9e-10 to 10");

    BlobHead head;
    head.chunkPoints = chunkPoints;
    head.tileColumns = cloud.height > 1 ? tileColumns : 0;
    head.trailingMessageBytes = cloud.trailingBytes;
    head.trailingDataBytes = message.size - uint64_t(cloud.height) * cloud.rowStep;
    if (layout.points == 0) head.trailingDataBytes = message.size;

    // The stream points and the stream in buffers of the thread, kept for the next message.
    thread_local StreamPoints reused;
    StreamPoints& points = reused;
    const ScratchLease<std::vector<uint8_t>> insideLease(points.inside),
        streamLease(streamBuffer());
    const ScratchLease<UnsetVector<uint32_t>> messageLease(points.message);
    const ScratchLease<UnsetVector<const uint8_t*>> recordsLease(points.records);
    const ScratchLease<UnsetVector<int64_t>> gridLease(points.grid);
    std::vector<uint8_t>& stream = *streamLease;
    std::vector<uint8_t> order;
    std::vector<Prediction> predictions;  // of the companion's columns
    std::unique_ptr<CompanionWriter> companion;
    if (layout.hasPositions) {
        selectStreamPoints(message, layout, step, points);
        int32_t maxValue = 1;
        if (intensityFits(layout, points, maxValue)) {
            head.flags |= kIntensityInStream;
            type.reflectionMode = zul_REFLECTION_CLAMPED;
            type.maxReflection = maxValue;
        } else if (layout.intensity.field >= 0) {
            layout = layOutCloud(cloud, message.size, false);
        }
        if (layout.color.field >= 0) type.colorMode = zul_COLOR_RGB888;
        if (points.message.size() != layout.points) head.flags |= kMaskPresent;
        const ChunkPlan plan =
            planChunks(cloud.height, cloud.width, points.inside.data(), points.message.size(),
                       chunkPoints, head.tileColumns, true);
        companion = writeStream(layout, points, type, plan, stream, order, options.companion,
                                message, options, predictions);
        if (companion) head.flags |= kCompanion;
        if (std::any_of(predictions.begin(), predictions.end(),
                        [](const Prediction& p) { return p.how != 0; }))
            head.flags |= kPredicted;
    }
    // With a companion, the stream and it as the companion's one blob.
    head.streamSize = companion ? companion->finish(stream) : stream.size();

    std::vector<Column> columns;
    if (head.flags & kMaskPresent) {
        Column mask{"valid", kUint8, 1, ColumnCoding::Raw, {}};
        mask.bytes.assign((layout.points + 7) / 8, 0);
        for (uint64_t i = 0; i < layout.points; ++i)
            mask.bytes[i / 8] |= uint8_t(points.inside[i] << (i % 8));
        putColumn(std::move(mask), columns);
    }
    if (head.flags & kPredicted) {
        putColumn(predictionColumn(predictions), columns);
    }
    const uint64_t outside = layout.hasPositions ? layout.points - points.message.size() : 0;
    const uint64_t tail = layout.points == 0 ? 0 : cloud.rowStep - layout.recordBytes;
    std::vector<Column> record;
    if (head.flags & kCompanion) {
        record = companionModeColumns(layout, cloud.pointStep, outside, tail * cloud.height,
                                      head.trailingDataBytes);
        uint8_t* out = record[0].bytes.data();
        for (uint64_t i = 0; i < layout.points && outside > 0; ++i)
            if (!points.inside[i]) out = std::copy_n(recordOf(message, i), cloud.pointStep, out);
    } else {
        if (layout.hasPositions)
            putColumn({"order", kUint16, 1, ColumnCoding::Delta, std::move(order)}, columns);
        record = recordColumns(layout, outside, tail * cloud.height, head.trailingDataBytes);
        gatherRecords(message, layout, points, outside, record);
    }
    uint8_t* tails = record[record.size() - 2].bytes.data();
    for (uint64_t r = 0; r < cloud.height && tail > 0; ++r)
        std::memcpy(tails + r * tail, message.data + r * cloud.rowStep + layout.recordBytes, tail);
    std::copy(message.data + message.size - head.trailingDataBytes, message.data + message.size,
              record.back().bytes.begin());
    for (Column& column : record) putColumn(std::move(column), columns);

    // Room for every part at once: the stream alone is most of the blob, and a reallocation
    // would copy it.
    const size_t start = out.size();
    out.reserve(start + kBlobHeadSize + head.streamSize + packedColumnsBound(columns) + 256);
    writeBlobHead(head, out);
    if (companion)
        companion->appendBlob(stream, out);
    else
        out.insert(out.end(), stream.begin(), stream.end());
    packColumns(columns, options.zstdLevel, out);
    uint8_t* blob = out.data() + start;
    const uint64_t checksum = blobChecksum(cloud, blob, out.size() - start);
    for (int b = 0; b < 8; ++b) blob[32 + b] = uint8_t(checksum >> (8 * b));
}

}  // namespace

CompressedPointCloud2 compressCloud(const PointCloud2& message, const EncodeOptions& options) {
    CompressedPointCloud2 result;
    result.cloud = message.cloud;
    result.cloud.trailingBytes = 0;
    result.format = formatName();
    compressView({message.cloud, message.data.data(), message.data.size()}, options,
                 result.compressedData);
    return result;
}

// compressed_data made in place in the serialised message, without a copy.
std::vector<uint8_t> compressMessage(const uint8_t* bytes, size_t size, Serialization family,
                                     const EncodeOptions& options) {
    const PointCloud2View message = viewPointCloud2(bytes, size, family);
    return writeCompressedPointCloud2(
        message.cloud, formatName(), 0,
        [&](std::vector<uint8_t>& out) { compressView(message, options, out); });
}

}  // namespace zul::ros

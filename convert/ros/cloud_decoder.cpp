// CompressedPointCloud2 -> PointCloud2.
#include <zul.h>

#include <algorithm>
#include <memory>

#include "chunk_plan.h"
#include "companion_columns.h"
#include "compressed_blob.h"
#include "field_prediction.h"
#include "point_access.h"
#include "record_columns.h"
#include "stream_order.h"
#include "zul_ros.h"

namespace zul::ros {

namespace {

// Reads the zul stream of a message chunk by chunk, from memory.
class StreamReader {
public:
    StreamReader(const uint8_t* bytes, size_t size, zul_DataType& type)
        : bytes_(bytes), size_(size) {
        int headerSize = 0;
        zul_dec_Params params{1, {0, 0, 0, 0}};
        need(8, "its signature");
        if (zul_dec_open2(&context_.value, &headerSize, reinterpret_cast<const char*>(bytes_),
                          &params) != zul_STATUS_OK)
            throw Error("compressed_data's stream does not start with a zul signature");
        pos_ = 8;
        need(size_t(headerSize), "its file header");
        if (zul_dec_decodeFileHeader(context_.value, &type, &chunkHeaderSize_, &sync_,
                                     reinterpret_cast<const char*>(bytes_ + pos_)) != zul_STATUS_OK)
            throw Error("compressed_data's stream has a damaged file header");
        pos_ += size_t(headerSize);
    }

    bool done() const { return pos_ == size_; }

    // The next chunk, which must hold `expected` points.
    zul_PointData chunk(int32_t expected, size_t number) {
        const std::string where = "compressed_data's stream chunk " + std::to_string(number);
        need(size_t(16 + chunkHeaderSize_), "a chunk header");
        // The decoder reads the sync marker from the bytes before the chunk header.
        if (std::memcmp(bytes_ + pos_, sync_, 16) != 0)
            throw Error(where + " has a wrong sync marker");
        pos_ += 16;
        int bodySize = 0, points = 0;
        if (zul_dec_decodeChunkHeader(context_.value, &bodySize,
                                      reinterpret_cast<const char*>(bytes_ + pos_)) !=
                zul_STATUS_OK ||
            zul_dec_getNumPointsInChunk(context_.value, &points) != zul_STATUS_OK)
            throw Error(where + " has a damaged header");
        if (points != expected)
            throw Error(where + " holds " + std::to_string(points) + " points, the columns say " +
                        std::to_string(expected));
        pos_ += size_t(chunkHeaderSize_);
        need(size_t(bodySize), "a chunk body");
        zul_PointData data{};
        if (zul_dec_decodeChunkBody(context_.value, &data,
                                    reinterpret_cast<const char*>(bytes_ + pos_)) != zul_STATUS_OK)
            throw Error(where + " has a damaged body");
        pos_ += size_t(bodySize);
        return data;
    }

private:
    void need(size_t n, const char* what) {
        if (n > size_ - pos_)
            throw Error(std::string("compressed_data's stream ends inside ") + what);
    }

    // Closed also when the constructor throws.
    struct Context {
        zul_dec_Context value = nullptr;
        ~Context() { zul_dec_close(&value); }
    } context_;
    const char* sync_ = nullptr;
    const uint8_t* bytes_;
    size_t size_, pos_ = 0;
    int chunkHeaderSize_ = 0;
};

// Finds point i's record; without bytes after the rows' points, without a division. Its copies
// of the sizes are values of its own, which the stores of bytes in the records cannot alias.
struct Records {
    uint8_t* data;
    uint64_t width, rowStep, pointStep;
    bool plain;  // rows without bytes after their points
    Records(const CloudDescription& c, uint8_t* bytes)
        : data(bytes),
          width(c.width),
          rowStep(c.rowStep),
          pointStep(c.pointStep),
          plain(width * pointStep == rowStep) {}
    uint8_t* operator()(uint64_t i) const {
        return plain ? data + i * pointStep
                     : data + (i / width) * rowStep + (i % width) * pointStep;
    }
};

uint8_t* recordOf(const CloudDescription& c, uint8_t* data, uint64_t i) {
    return Records(c, data)(i);
}

// The stream's points of a decoded chunk into their records (`records`, one a point in stored
// order, point j of the chunk being stream point tie(j)): x, y, z, and the colour's three bytes
// and the intensity where the stream holds them (the colour's fourth byte is in the records
// already).
template <typename Tie>
void writeStreamPointsBy(const zul_PointData& data, Tie tie, uint8_t* const* records, uint32_t n,
                         const CloudLayout& layout, const std::string& where) {
    // Everything the loops read is in locals: their stores of bytes might otherwise alias it.
    const bool big = layout.bigEndian;
    const double* positions = data.positions;
    withAxes(layout, [&](const auto& axes) {
        const auto local = axes;
        for (uint32_t j = 0; j < n; ++j) {
            uint8_t* record = records[j];
            const double* at = positions + 3 * size_t(tie(j));
            local.store(record, 0, at[0]);
            local.store(record, 1, at[1]);
            local.store(record, 2, at[2]);
        }
    });
    if (layout.color.field >= 0) {
        const uint8_t* colors = data.colors;
        const uint32_t offset = layout.color.offset;
        for (uint32_t j = 0; j < n; ++j) {
            const uint8_t* c = colors + 3 * size_t(tie(j));
            uint8_t* rgb = records[j] + offset;
            const uint32_t alpha = load<uint32_t>(rgb, big) & 0xff000000u;
            store<uint32_t>(rgb, alpha | uint32_t(c[0]) << 16 | uint32_t(c[1]) << 8 | c[2], big);
        }
    }
    if (layout.intensity.field < 0) return;
    const uint8_t type = layout.intensity.datatype;
    const uint32_t offset = layout.intensity.offset;
    const int32_t* reflections = data.reflections;
    // A type holds every value up to its largest.
    int32_t largest = 0;
    for (uint32_t j = 0; j < n; ++j) largest = std::max(largest, reflections[j]);
    if (!holdsWhole(type, largest))
        throw Error("compressed_data's stream " + where + " holds an intensity of " +
                    std::to_string(largest) + " that the field's type cannot hold");
    // A loop for each type.
    auto storeAll = [&](auto convert) {
        for (uint32_t j = 0; j < n; ++j) convert(records[j] + offset, reflections[tie(j)]);
    };
    switch (type) {
        case kInt8:
        case kUint8:
            return storeAll([](uint8_t* p, int32_t v) { *p = uint8_t(v); });
        case kInt16:
        case kUint16:
            return storeAll([big](uint8_t* p, int32_t v) { store<uint16_t>(p, uint16_t(v), big); });
        case kInt32:
        case kUint32:
            return storeAll([big](uint8_t* p, int32_t v) { store<uint32_t>(p, uint32_t(v), big); });
        case kFloat32:
            return storeAll(
                [big](uint8_t* p, int32_t v) { storeReal(p, kFloat32, big, double(v)); });
        default:
            return storeAll(
                [big](uint8_t* p, int32_t v) { storeReal(p, kFloat64, big, double(v)); });
    }
}

// The same with the points put in the order of their colour and reflection where they share a
// position (stream_order.h); `ties` is scratch.
void writeStreamPoints(const zul_PointData& data, std::vector<uint32_t>& ties,
                       uint8_t* const* records, uint32_t n, const CloudLayout& layout,
                       const std::string& where) {
    if (!settleTies(data.positions, data.colors, data.reflections, n, ties))
        return writeStreamPointsBy(
            data, [](uint32_t j) { return j; }, records, n, layout, where);
    const uint32_t* tie = ties.data();
    writeStreamPointsBy(
        data, [tie](uint32_t j) { return tie[j]; }, records, n, layout, where);
}

// The lean container's columns into the records: every point's byte ranges, and the stream's
// fields of the points outside the stream.
void scatterRecords(const std::vector<Column>& record, const CloudLayout& layout,
                    const std::vector<uint32_t>& inside, const CloudDescription& cloud,
                    uint8_t* data) {
    const bool big = layout.bigEndian;
    const size_t ranges = layout.columns.size();
    const RecordGrid grid{layout.points == 0 ? 0 : cloud.height, cloud.width, cloud.rowStep,
                          cloud.pointStep, big};
    for (size_t c = 0; c < ranges; ++c)
        scatterRange(grid, record[c].bytes.data(), layout.columns[c], data);
    if (!layout.hasPositions || inside.size() == layout.points) return;
    const std::vector<StreamField> fields = streamFields(layout);
    uint64_t o = 0;
    size_t next = 0;
    for (uint64_t i = 0; i < layout.points; ++i) {
        if (next < inside.size() && inside[next] == i) {
            ++next;
            continue;
        }
        uint8_t* at = recordOf(cloud, data, i);
        for (size_t f = 0; f < fields.size(); ++f) {
            const uint32_t size = uint32_t(datatypeSize(fields[f].datatype));
            copyFromLittle(record[ranges + f].bytes.data() + o * size, size, big,
                           at + fields[f].offset);
        }
        ++o;
    }
}

// The whole records of the points outside the stream (`inStream` 0).
void placeOutsideRecords(const Column& records, const std::vector<uint8_t>& inStream,
                         const CloudDescription& cloud, uint8_t* data) {
    const uint8_t* from = records.bytes.data();
    if (records.bytes.empty()) return;
    const Records findRecord(cloud, data);
    const uint32_t pointStep = cloud.pointStep;
    for (uint64_t i = 0; i < inStream.size(); ++i) {
        if (inStream[i] != 0) continue;
        std::memcpy(findRecord(i), from, pointStep);
        from += pointStep;
    }
}

// What the compressed_data's head says, checked against the message before any data is made.
struct Prepared {
    BlobHead head;
    CloudLayout layout;
    uint64_t points = 0, rows = 0;  // points, and bytes of data before the trailing data
    uint64_t dataBytes() const { return rows + head.trailingDataBytes; }
};

Prepared prepare(const CloudDescription& cloud, const std::string& format, const uint8_t* blob,
                 size_t blobSize, const DecodeOptions& options) {
    if (format != formatName()) throw Error("the message's format is '" + format + "', not 'zul'");
    Prepared p;
    p.head = readBlobHead(blob, blobSize);
    const BlobHead& head = p.head;
    if (head.trailingMessageBytes > 0 && !isCdr(cloud.wire))
        throw Error("compressed_data claims padding after a ROS 1 message, which has none");
    p.points = uint64_t(cloud.height) * cloud.width;
    p.rows = p.points == 0 ? 0 : uint64_t(cloud.height) * cloud.rowStep;
    if (head.trailingDataBytes > options.maxDataBytes ||
        p.rows > options.maxDataBytes - head.trailingDataBytes)
        throw Error("the message claims " + std::to_string(p.rows + head.trailingDataBytes) +
                    " bytes of data, more than the " + std::to_string(options.maxDataBytes) +
                    " allowed");
    if (blobChecksum(cloud, blob, blobSize) != head.checksum)
        throw Error(
            "compressed_data fails its checksum: it is damaged, or the message's height, "
            "width, fields, is_bigendian, point_step or row_step changed");
    p.layout = layOutCloud(cloud, p.dataBytes(), (head.flags & kIntensityInStream) != 0);
    if ((head.flags & kIntensityInStream) && p.layout.intensity.field < 0)
        throw Error(
            "compressed_data says the intensity is in the stream, but the fields have none");
    if (!p.layout.hasPositions && (head.flags != 0 || head.streamSize != 0))
        throw Error(
            "compressed_data holds a stream, but the fields have no x, y and z to put it in");
    return p;
}

// With a companion, each message point: outside the stream, a stream point not yet placed, or
// placed.
enum : uint8_t { kOutside = 0, kFree = 1, kTaken = 2 };

// Which points the stream holds (one byte a point, kFree or kOutside, from the column 'valid'
// when the head says some are outside); returns how many.
uint64_t readStreamPoints(ColumnReader& reader, const BlobHead& head, uint64_t points,
                          std::vector<uint8_t>& inStream) {
    if (!(head.flags & kMaskPresent)) {
        inStream.assign(points, kFree);
        return points;
    }
    Column mask{"valid", kUint8, 1, ColumnCoding::Raw, {}};
    mask.bytes.resize((points + 7) / 8);
    reader.read(mask);
    if (points % 8 != 0 && mask.bytes.back() >> (points % 8) != 0)
        throw Error("column 'valid' marks points past the last");
    inStream.resize(points);
    uint8_t* flag = inStream.data();
    const uint8_t* bits = mask.bytes.data();
    uint64_t count = 0;
    for (uint64_t i = 0; i < points; ++i) {
        flag[i] = bits[i / 8] >> (i % 8) & 1;
        count += flag[i];
    }
    if (count == points) throw Error("column 'valid' marks every point, but says some are missing");
    return count;
}

// Decodes compressed_data (`blob`) into the message's data at `data` (p.dataBytes() bytes, zero).
void decodeData(const CloudDescription& cloud, const uint8_t* blob, size_t blobSize,
                const Prepared& p, uint8_t* data) {
    const BlobHead& head = p.head;
    const CloudLayout& layout = p.layout;
    const uint64_t points = p.points, rows = p.rows;
    const uint8_t* columnBytes = blob + kBlobHeadSize + head.streamSize;
    ColumnReader reader(columnBytes, blobSize - kBlobHeadSize - head.streamSize);
    // Which points the stream holds.
    std::vector<uint8_t> inStream;
    const uint64_t total =
        layout.hasPositions ? readStreamPoints(reader, head, points, inStream) : 0;
    const bool withCompanion = (head.flags & kCompanion) != 0;
    // Without a companion, the message index of each stream point and their places in their
    // chunks' stream order.
    std::vector<uint32_t> inside;
    Column order{"order", kUint16, 1, ColumnCoding::Delta, {}};
    if (layout.hasPositions && !withCompanion) {
        inside.reserve(total);
        for (uint64_t i = 0; i < points; ++i)
            if (inStream[i]) inside.push_back(uint32_t(i));
        order.bytes.resize(2 * total);
        reader.read(order);
    }
    // Which companion columns hold differences to a prediction, and from how far back.
    std::vector<CompanionField> predicted;
    std::vector<Prediction> predictions;
    if (head.flags & kPredicted) {
        predicted = companionFields(layout);
        Column column = emptyPredictionColumn(predicted.size());
        reader.read(column);
        predictions = readPredictions(column, predicted, cloud.width);
    }
    // Radial predictions are undone chunk by chunk, the others in message order at the end.
    std::vector<PredictedField> radial, fromNeighbours;
    for (size_t f = 0; f < predictions.size(); ++f)
        if (predictions[f].how)
            (predictions[f].how == kRadialPrediction ? radial : fromNeighbours)
                .push_back({{predicted[f].offset, predicted[f].width}, predictions[f]});
    const uint64_t outside = layout.hasPositions ? points - total : 0;
    const uint64_t tail = points == 0 ? 0 : cloud.rowStep - layout.recordBytes;
    std::vector<Column> record =
        withCompanion ? companionModeColumns(layout, cloud.pointStep, outside, tail * cloud.height,
                                             head.trailingDataBytes)
                      : recordColumns(layout, outside, tail * cloud.height, head.trailingDataBytes);
    for (Column& column : record) reader.read(column);
    reader.finish();

    if (withCompanion)
        placeOutsideRecords(record[0], inStream, cloud, data);
    else
        scatterRecords(record, layout, inside, cloud, data);
    const uint8_t* tails = record[record.size() - 2].bytes.data();
    for (uint64_t r = 0; r < cloud.height && tail > 0; ++r)
        std::memcpy(data + r * cloud.rowStep + layout.recordBytes, tails + r * tail, tail);
    std::copy(record.back().bytes.begin(), record.back().bytes.end(), data + rows);
    if (!layout.hasPositions) return;

    // The stream, alone or with its companion in one blob.
    const uint8_t* streamBytes = blob + kBlobHeadSize;
    size_t streamSize = head.streamSize;
    const void *streamPart = nullptr, *companionPart = nullptr;
    size_t companionSize = 0;
    if (withCompanion) {
        if (zul_xblob_unpack(streamBytes, streamSize, &streamPart, &streamSize, &companionPart,
                             &companionSize) != zul_STATUS_OK ||
            companionSize == 0)
            throw Error("compressed_data's stream and companion are not framed as one blob");
        streamBytes = static_cast<const uint8_t*>(streamPart);
    }
    zul_DataType type;
    StreamReader stream(streamBytes, streamSize, type);
    const bool hasColor = layout.color.field >= 0, hasIntensity = layout.intensity.field >= 0;
    if ((type.colorMode != zul_COLOR_NONE) != hasColor ||
        (type.colorMode != zul_COLOR_NONE && type.colorMode != zul_COLOR_RGB888) ||
        (type.reflectionMode != zul_REFLECTION_NONE) != hasIntensity ||
        type.normalMode != zul_NORMAL_NONE)
        throw Error("compressed_data's stream holds other attributes than the fields say");
    // With a companion only the chunks' sizes: the companion names each point's place.
    const ChunkPlan plan = planChunks(cloud.height, cloud.width, inStream.data(), total,
                                      head.chunkPoints, head.tileColumns, !withCompanion);
    std::unique_ptr<CompanionColumnReader> fields;
    if (withCompanion)
        fields = std::make_unique<CompanionColumnReader>(
            layout, static_cast<const uint8_t*>(companionPart), companionSize, streamBytes,
            streamSize, plan.starts.size() - 1);
    std::vector<uint32_t> ties;
    std::vector<uint64_t> indices;
    std::vector<uint8_t> seen;
    std::vector<uint8_t*> records;
    const Records findRecord(cloud, data);
    for (size_t c = 0; c + 1 < plan.starts.size(); ++c) {
        const size_t first = plan.starts[c];
        const uint32_t n = uint32_t(plan.starts[c + 1] - first);
        const zul_PointData decoded = stream.chunk(int32_t(n), c);
        const std::string where = "chunk " + std::to_string(c);
        records.resize(n);
        if (withCompanion) {
            // The companion's rows follow the stored order, each naming its message point.
            fields->readChunk(int64_t(c), n, indices);
            uint8_t* state = inStream.data();
            uint8_t** record = records.data();
            const uint64_t* index = indices.data();
            for (uint32_t j = 0; j < n; ++j) {
                const uint64_t m = index[j];
                if (m >= points || state[m] != kFree)
                    throw Error("compressed_data's companion gives point " + std::to_string(j) +
                                " of " + where + " the place " + std::to_string(m) +
                                ", not a free place of a stream point");
                state[m] = kTaken;
                record[j] = findRecord(m);
            }
            fields->place(records.data());
            writeStreamPoints(decoded, ties, records.data(), n, layout, where);
            undoRadialPredictions(records.data(), n, layout, radial);
            continue;
        }
        seen.assign(n, 0);
        for (uint32_t local = 0; local < n; ++local) {
            const uint32_t j = loadLittle<uint16_t>(&order.bytes[2 * (first + local)]);
            if (j >= n || seen[j])
                throw Error("column 'order' of " + where + " is not an order of its " +
                            std::to_string(n) + " points");
            seen[j] = 1;
            records[j] = findRecord(inside[plan.sequence[first + local]]);
        }
        writeStreamPoints(decoded, ties, records.data(), n, layout, where);
    }
    if (!stream.done())
        throw Error("compressed_data's stream holds more chunks than its points need");
    const RecordGrid grid{cloud.height, cloud.width, cloud.rowStep, cloud.pointStep,
                          layout.bigEndian};
    undoPredictions(grid, data, layout, fromNeighbours, inStream.data());
}

}  // namespace

PointCloud2 decompressCloud(const CompressedPointCloud2& compressed, const DecodeOptions& options) {
    const std::vector<uint8_t>& blob = compressed.compressedData;
    const Prepared p =
        prepare(compressed.cloud, compressed.format, blob.data(), blob.size(), options);
    PointCloud2 message;
    message.cloud = compressed.cloud;
    message.cloud.trailingBytes = p.head.trailingMessageBytes;
    message.data.assign(p.dataBytes(), 0);
    decodeData(compressed.cloud, blob.data(), blob.size(), p, message.data.data());
    return message;
}

// The data decoded in place in the serialised message, from compressed_data where it lies.
std::vector<uint8_t> decompressMessage(const uint8_t* bytes, size_t size, Serialization family,
                                       const DecodeOptions& options) {
    const CompressedPointCloud2View compressed = viewCompressedPointCloud2(bytes, size, family);
    const Prepared p =
        prepare(compressed.cloud, compressed.format, compressed.data, compressed.size, options);
    CloudDescription cloud = compressed.cloud;
    cloud.trailingBytes = p.head.trailingMessageBytes;
    size_t at = 0;
    std::vector<uint8_t> message = writePointCloud2Room(cloud, p.dataBytes(), at);
    decodeData(compressed.cloud, compressed.data, compressed.size, p, message.data() + at);
    return message;
}

}  // namespace zul::ros
